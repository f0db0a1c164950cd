// The reference workload, phase by phase, on which ModelCore is compared with a peer framework: N nodes of
// a host type Node with `count`, `name`, a single reference `ref` and a reference list `refs`; node i is
// owned by node (i-1)/10. A pass does the phases in order on one tree: build, link (pass A sets every
// `ref` from a seeded generator, pass B adds three drawn targets to the `refs` of every tenth node),
// notify-edit (an observer on the root hears every node's `count` go up by one), save (the whole tree to a
// file), restore (that file into a fresh tree, references resolved), copy (a deep copy of the whole tree,
// references among its nodes moved onto the copies) and delete (node 1 with its subtree, every reference
// into it from outside cleared).
//
// The protocol is the peer's: five warm-up passes at N = 2*10^4, then three measured passes at N; each
// phase reports its median ns per node (the counters side-by-side.sh reads) and the passes' figures are
// printed beside it. Memory is the resident growth across build and link in one build-and-link at N of its
// own, made in a child process forked before this process has built any tree, so that every size reads it
// on a fresh heap (the pool keeps its slabs for reuse). Without arguments it runs N = 2*10^5 and 10^6, then
// 10^4 for the flatness of the per-node costs. The environment variable MODELCORE_WORKLOAD_N=<n>
// runs one pass at n instead, with no warm-up and memory read in that pass (what CI runs, at 2*10^4); an
// n below 2 fails the run, and one that is not a positive number or lies beyond 2^31 - 1 is ignored.
//
// A pass fails unless the observer hears N events, the restore brings back every node, the copy has N
// nodes whose references point at the copies of their sources' targets, and the delete clears exactly the
// references the draws made from outside the deleted subtree into it; at 2*10^5 and 10^6 the draws must
// also match the workload's check values.
//
// A save needs a persistence root above what it saves, so node 0 sits under a model object; it is saved and
// restored with the tree, one object more in N + 1.
#include <benchmark/benchmark.h>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "BenchSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr short kNodeType = 7601;
constexpr short kCount = 7611;  // Integer
constexpr short kName = 7612;   // String
constexpr short kRef = 7613;    // Reference
constexpr short kRefs = 7614;   // ReferenceList

void RegisterTypes() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    MdlCore::Initialize();
    bench::RegisterProperty(kCount, "count", MCCodes::pInteger);
    bench::RegisterProperty(kName, "name", MCCodes::pString);
    bench::RegisterProperty(kRef, "ref", MCCodes::pReference);
    bench::RegisterProperty(kRefs, "refs", MCCodes::pReferenceList);
    bench::HostNode<kNodeType>::Register("Node", 1);
    bench::ModelRoot::Register("Model", 1);
    bench::Environment::Install();
}

// The seeded generator both sides draw from.
class JavaRandom {
public:
    explicit JavaRandom(std::int64_t seed) : m_lSeed((seed ^ 0x5DEECE66DLL) & kMask) {}
    std::int32_t NextInt(std::int32_t bound) {
        std::int32_t r = Next(31);
        const std::int32_t m = bound - 1;
        if ((bound & m) == 0)
            return static_cast<std::int32_t>((static_cast<std::int64_t>(bound) * r) >> 31);
        for (std::int32_t u = r; static_cast<std::int32_t>(static_cast<std::uint32_t>(u - (r = u % bound)) +
                                                           static_cast<std::uint32_t>(m)) < 0;
             u = Next(31)) {
        }
        return r;
    }

private:
    static constexpr std::int64_t kMask = (std::int64_t{1} << 48) - 1;
    std::int32_t Next(int bits) {
        m_lSeed = (m_lSeed * 0x5DEECE66DLL + 0xBLL) & kMask;
        return static_cast<std::int32_t>(static_cast<std::uint64_t>(m_lSeed) >> (48 - bits));
    }
    std::int64_t m_lSeed;
};

struct CheckValues {
    std::int32_t m_anFirstRefs[5];
    long long m_llRefSum;
    long m_lRefsAdded;
    long m_lCleared;
};

// Whether node k lies in the subtree of node 1: owners are (k-1)/10 down to node 0.
bool InDeletedSubtree(std::int32_t k) {
    for (; k > 1; k = (k - 1) / 10) {
    }
    return k == 1;
}

// The references `node` holds: its `ref` when set plus the entries of its `refs`.
long HeldReferences(MCObject* node) {
    MCSRefAccessor ref;
    MCVRefAccessor refs;
    long held = 0;
    if (node->GetProperty(kRef, ref) && ref.GetValue() != nullptr)
        ++held;
    if (node->GetProperty(kRefs, refs))
        held += static_cast<long>(refs.GetList()->Entries());
    return held;
}

// The clone's source, through CloneId; null when it has none.
MCObject* SourceOf(MCObject* clone) {
    MCSPropertyRawAccessorT<long> cloneId;
    return clone && clone->GetProperty(MCCodes::pCloneId, cloneId) ? MCObject::ResolveId(cloneId.GetValue())
                                                                   : nullptr;
}

// Whether the copy under `copy` has `n` nodes and every reference in it points at an object of the copy
// that was cloned from the target of the same reference of its source.
bool IsClosedCopy(MCObject* copy, std::int32_t n) {
    ZVTHSetT<long> ids(MCIdSpace::HashId, 2 * static_cast<std::size_t>(n));
    copy->GetAllIdsFromTree(ids, nullptr);
    if (ids.Entries() != static_cast<std::size_t>(n))
        return false;
    auto isCopyOf = [&ids](MCObject* target, MCObject* sourceTarget) {
        return target && ids.Contains(target->GetId()) && SourceOf(target) == sourceTarget;
    };
    MCDepthFirstWalker walker(copy, nullptr);
    while (walker.Traverse()) {
        MCObject* clone = walker.GetValue();
        MCObject* source = SourceOf(clone);
        if (!source)
            return false;
        MCSRefAccessor ref;
        MCSRefAccessor sourceRef;
        if (clone->GetProperty(kRef, ref) != source->GetProperty(kRef, sourceRef) ||
            (ref.GetValue() && !isCopyOf(ref.GetValue(), sourceRef.GetValue())))
            return false;
        MCVRefAccessor refs;
        MCVRefAccessor sourceRefs;
        if (clone->GetProperty(kRefs, refs) != source->GetProperty(kRefs, sourceRefs) ||
            refs.GetList()->Entries() != sourceRefs.GetList()->Entries())
            return false;
        for (std::size_t k = 0; k < refs.GetList()->Entries(); ++k)
            if (!isCopyOf(refs.GetList()->At(k), sourceRefs.GetList()->At(k)))
                return false;
    }
    return true;
}

// The phases a pass times, in the order it runs them, with the counter each is reported as.
enum Phase { kBuild, kLink, kNotifyEdit, kSave, kRestore, kCopy, kDelete, kPhases };
constexpr const char* kPhaseNames[kPhases] = {"build",   "link", "notify-edit", "save",
                                              "restore", "copy", "delete"};
constexpr const char* kPhaseCounters[kPhases] = {
    "build_ns_per_node",   "link_ns_per_node", "notify_edit_ns_per_node", "save_ns_per_node",
    "restore_ns_per_node", "copy_ns_per_node", "delete_ns_per_node"};

// What one pass measured; m_pszError is null when every check held.
struct Pass {
    double m_adSeconds[kPhases] = {};
    double m_dResidentGrowth = 0;
    double m_dFileBytes = 0;
    const char* m_pszError = nullptr;
};

// One pass of every phase on a fresh tree of n nodes. `stopAfterLink` ends it after build and link (the
// memory reading); the tree is taken down before it returns.
Pass RunPass(std::int32_t n, bool stopAfterLink) {
    const CheckValues* check = nullptr;
    static const CheckValues c_x200k{{38943, 193350, 18585, 149399, 173285}, 19994678702LL, 59998, 64943};
    static const CheckValues c_x1M{{432693, 392881, 212716, 948987, 970633}, 500508033973LL, 300000, 128189};
    if (n == 200000)
        check = &c_x200k;
    else if (n == 1000000)
        check = &c_x1M;
    const std::string path = std::string(P_tmpdir) + "/modelcore-workload-" + std::to_string(n) + ".mdl";
    std::vector<MCObject*> nodes(static_cast<std::size_t>(n));
    // Whether each node lies in the deleted subtree, and the references from outside it into it that the
    // draws made: what the delete must clear, at any n.
    std::vector<bool> inDeleted(static_cast<std::size_t>(n));
    for (std::int32_t i = 0; i < n; ++i)
        inDeleted[static_cast<std::size_t>(i)] = InDeletedSubtree(i);
    long expectedCleared = 0;
    // The draws, kept for the checks; made before the memory reading so that they are not counted in it.
    std::vector<std::int32_t> drawnRef(static_cast<std::size_t>(n));
    std::vector<std::pair<std::int32_t, std::int32_t>> addedRefs;
    addedRefs.reserve(static_cast<std::size_t>(n / 10 * 3 + 3));
    bench::PropertySetCounter observer;
    Pass pass;
    bench::ReleaseFreeMemory();
    const double rssBefore = bench::ResidentBytes();

    // build
    Clock::time_point start = Clock::now();
    bool ok = true;
    auto* model = static_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(bench::ModelRoot::c_sType, nullptr, nullptr, nullptr));
    for (std::int32_t i = 0; i < n; ++i) {
        MCObject* owner = i == 0 ? model : nodes[static_cast<std::size_t>((i - 1) / 10)];
        auto* node =
            static_cast<MCObject*>(MCFactoryRegistry::CreateItem(kNodeType, owner, nullptr, nullptr));
        nodes[static_cast<std::size_t>(i)] = node;
        MCSPropertyAccessorT<ZVTString> name(bench::NodeName(i));
        MCSPropertyAccessorT<long> count(i);
        ok &= node->SetProperty(kName, name, MCPropertyAccessor::accessAdd) &&
              node->SetProperty(kCount, count, MCPropertyAccessor::accessAdd);
    }
    pass.m_adSeconds[kBuild] = std::chrono::duration<double>(Clock::now() - start).count();

    // link
    start = Clock::now();
    JavaRandom random(42);
    for (std::int32_t i = 0; i < n; ++i) {
        std::int32_t j = random.NextInt(n - 1);
        if (j >= i)
            ++j;
        drawnRef[static_cast<std::size_t>(i)] = j;
        MCSRefAccessor ref(nodes[static_cast<std::size_t>(j)]);
        ok &= nodes[static_cast<std::size_t>(i)]->SetProperty(kRef, ref, MCPropertyAccessor::accessAdd);
    }
    for (std::int32_t i = 0; i < n; i += 10) {
        std::int32_t drawn[3];
        for (int k = 0; k < 3; ++k) {
            drawn[k] = random.NextInt(n);
            // The list holds only this node's draws, so the duplicates to skip are among them.
            bool already = false;
            for (int l = 0; l < k; ++l)
                already |= drawn[l] == drawn[k];
            if (already)
                continue;
            MCObject* target = nodes[static_cast<std::size_t>(drawn[k])];
            MCVRefAccessor refs(target);
            ok &= nodes[static_cast<std::size_t>(i)]->SetProperty(kRefs, refs, MCPropertyAccessor::accessAdd);
            addedRefs.emplace_back(i, drawn[k]);
        }
    }
    pass.m_adSeconds[kLink] = std::chrono::duration<double>(Clock::now() - start).count();
    pass.m_dResidentGrowth = bench::ResidentBytes() - rssBefore;
    long long refSum = 0;
    for (std::int32_t i = 0; i < n; ++i) {
        const std::int32_t j = drawnRef[static_cast<std::size_t>(i)];
        refSum += j;
        expectedCleared += !inDeleted[static_cast<std::size_t>(i)] && inDeleted[static_cast<std::size_t>(j)];
    }
    for (const auto& added : addedRefs)
        expectedCleared += !inDeleted[static_cast<std::size_t>(added.first)] &&
                           inDeleted[static_cast<std::size_t>(added.second)];
    bool checks = !check || (refSum == check->m_llRefSum &&
                             static_cast<long>(addedRefs.size()) == check->m_lRefsAdded &&
                             expectedCleared == check->m_lCleared &&
                             std::equal(check->m_anFirstRefs, check->m_anFirstRefs + 5, drawnRef.begin()));
    if (stopAfterLink) {
        model->Expunge(true);
        pass.m_pszError = !ok       ? "the library refused an operation"
                          : !checks ? "a check value does not match"
                                    : nullptr;
        return pass;
    }

    // notify-edit
    nodes[0]->AddSubscriber(&observer, MCEvent::subscriberObserver);
    start = Clock::now();
    for (std::int32_t i = 0; i < n; ++i) {
        MCObject* node = nodes[static_cast<std::size_t>(i)];
        MCSPropertyAccessorT<long> count;
        ok &= node->GetProperty(kCount, count);
        count.SetValue(count.GetValue() + 1);
        ok &= node->SetProperty(kCount, count, MCPropertyAccessor::accessAdd);
    }
    pass.m_adSeconds[kNotifyEdit] = std::chrono::duration<double>(Clock::now() - start).count();
    nodes[0]->RemoveSubscriber(&observer, MCEvent::subscriberObserver);
    checks &= observer.m_lHeard == n;

    // save
    start = Clock::now();
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        MCStream stream(*file.rdbuf(), ZVTStream::binary);
        MCPersHeader head = bench::Head();
        MCPersController controller;
        ok &= controller.SaveTo(stream, model, head) == MCPersController::resultOk && !stream.fail();
        file.close();
        ok &= !file.fail();
    }
    pass.m_adSeconds[kSave] = std::chrono::duration<double>(Clock::now() - start).count();
    pass.m_dFileBytes = static_cast<double>(std::ifstream(path, std::ios::binary | std::ios::ate).tellg());

    // restore
    start = Clock::now();
    MCObject* restored = nullptr;
    std::size_t restoredObjects = 0;
    {
        std::ifstream file(path, std::ios::binary);
        MCStream stream(*file.rdbuf(), ZVTStream::binary);
        MCPersHeader limits = bench::Head();
        MCPersController controller;
        ok &= controller.RestoreFrom(stream, restored, limits) == MCPersController::resultOk;
        restoredObjects = controller.GetCreatedObjects().Entries();
    }
    pass.m_adSeconds[kRestore] = std::chrono::duration<double>(Clock::now() - start).count();
    if (restored)
        restored->Expunge(true);
    std::remove(path.c_str());
    checks &= restoredObjects == static_cast<std::size_t>(n) + 1;

    // copy
    start = Clock::now();
    MCObject* copy = nodes[0]->CloneTree(nullptr);
    pass.m_adSeconds[kCopy] = std::chrono::duration<double>(Clock::now() - start).count();
    checks &= copy && IsClosedCopy(copy, n);
    if (copy)
        copy->Expunge(true);

    // delete: what the survivors hold before and after tells how many references were cleared.
    long heldBefore = 0;
    for (std::int32_t i = 0; i < n; ++i)
        if (!inDeleted[static_cast<std::size_t>(i)])
            heldBefore += HeldReferences(nodes[static_cast<std::size_t>(i)]);
    start = Clock::now();
    ok &= nodes[1]->Expunge(true);
    pass.m_adSeconds[kDelete] = std::chrono::duration<double>(Clock::now() - start).count();
    long heldAfter = 0;
    for (std::int32_t i = 0; i < n; ++i)
        if (!inDeleted[static_cast<std::size_t>(i)])
            heldAfter += HeldReferences(nodes[static_cast<std::size_t>(i)]);
    checks &= heldBefore - heldAfter == expectedCleared;

    model->Expunge(true);
    pass.m_pszError = !ok       ? "the library refused an operation"
                      : !checks ? "a check value does not match"
                                : nullptr;
    return pass;
}

// How a run is made: the workload's protocol, or one quick pass for CI.
struct Protocol {
    int m_nWarmUps;
    std::int32_t m_nWarmUpSize;
    int m_nPasses;
    bool m_bMemoryPass;  // memory read in a build and link of its own at n, not in the first measured pass
};

// The sizes the protocol runs, as registered.
std::vector<std::int32_t>& ProtocolSizes() {
    static std::vector<std::int32_t> sizes;
    return sizes;
}

// The resident growth of one build and link at n in a child process: negative when its pass failed, NaN
// when no child could be made.
double ResidentGrowthInChild(std::int32_t n) {
    int channel[2];
    if (pipe(channel) != 0)
        return NAN;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        close(channel[0]);
        close(channel[1]);
        return NAN;
    }
    if (child == 0) {
        close(channel[0]);
        const Pass pass = RunPass(n, true);
        const double growth = pass.m_pszError ? -1 : pass.m_dResidentGrowth;
        const bool sent = write(channel[1], &growth, sizeof growth) == static_cast<ssize_t>(sizeof growth);
        _exit(sent ? 0 : 1);
    }
    close(channel[1]);
    double growth = NAN;
    if (read(channel[0], &growth, sizeof growth) != static_cast<ssize_t>(sizeof growth))
        growth = NAN;
    close(channel[0]);
    waitpid(child, nullptr, 0);
    return growth;
}

// The memory reading of every protocol size, taken on first use, before this process has held any tree:
// the pool keeps its slabs for reuse, so a size read here after another would find the other's blocks and
// grow the resident set by little. Each child starts from that untouched heap, in whatever order the sizes
// run. A size whose child could not be made is read in this process instead, before its warm-ups.
double MemoryReading(std::int32_t n, bool& failed) {
    static const std::map<std::int32_t, double> c_xReadings = [] {
        std::map<std::int32_t, double> taken;
        for (std::int32_t size : ProtocolSizes())
            taken[size] = ResidentGrowthInChild(size);
        return taken;
    }();
    const auto found = c_xReadings.find(n);
    double growth = found == c_xReadings.end() ? NAN : found->second;
    if (std::isnan(growth)) {
        const Pass pass = RunPass(n, true);
        growth = pass.m_pszError ? -1 : pass.m_dResidentGrowth;
    }
    failed = growth < 0;
    return growth;
}

void BM_ReferenceWorkload(benchmark::State& state, Protocol protocol) {
    RegisterTypes();
    const auto n = static_cast<std::int32_t>(state.range(0));
    for (auto _ : state) {
        // Node 1 is the one deleted, and a node's reference needs another node to draw.
        if (n < 2) {
            state.SkipWithError("N must be at least 2");
            return;
        }
        bool memoryFailed = false;
        const double memory = protocol.m_bMemoryPass ? MemoryReading(n, memoryFailed) : 0;
        const char* error = memoryFailed ? "the memory pass failed" : nullptr;
        for (int k = 0; k < protocol.m_nWarmUps && !error; ++k)
            error = RunPass(protocol.m_nWarmUpSize, false).m_pszError;
        std::vector<Pass> passes;
        for (int k = 0; k < protocol.m_nPasses && !error; ++k) {
            passes.push_back(RunPass(n, false));
            error = passes.back().m_pszError;
        }
        if (error) {
            state.SkipWithError(error);
            return;
        }
        // Each phase's median over the passes, and the pass figures beside it.
        std::printf("reference workload, N=%d, ns per node (passes; median)\n", n);
        double total = 0;
        for (int phase = 0; phase < kPhases; ++phase) {
            std::vector<double> perNode;
            std::printf("  %-12s", kPhaseNames[phase]);
            for (const Pass& pass : passes) {
                perNode.push_back(pass.m_adSeconds[phase] * 1e9 / n);
                std::printf(" %8.0f", perNode.back());
            }
            std::sort(perNode.begin(), perNode.end());
            const double median = perNode[perNode.size() / 2];
            std::printf(";  %8.0f\n", median);
            state.counters[kPhaseCounters[phase]] = median;
            total += median * n / 1e9;
        }
        std::fflush(stdout);
        state.SetIterationTime(total);
        state.counters["file_B_per_node"] = passes.front().m_dFileBytes / n;
        state.counters["rss_B_per_node_after_build_link"] =
            (protocol.m_bMemoryPass ? memory : passes.front().m_dResidentGrowth) / n;
    }
}

// MODELCORE_WORKLOAD_N=<n> runs one pass at n, with no warm-up; otherwise the protocol at 2*10^5, 10^6
// and 10^4.
const bool c_bRegistered = [] {
    const char* quick = std::getenv("MODELCORE_WORKLOAD_N");
    // Sizes beyond a 32-bit node index are read as none, which gives the full protocol.
    long quickSize = quick ? std::strtol(quick, nullptr, 10) : 0;
    if (quickSize > INT32_MAX)
        quickSize = 0;
    auto* run =
        benchmark::RegisterBenchmark("BM_ReferenceWorkload", BM_ReferenceWorkload,
                                     quickSize > 0 ? Protocol{0, 0, 1, false} : Protocol{5, 20000, 3, true});
    if (quickSize > 0) {
        run->Arg(quickSize);
    } else {
        ProtocolSizes() = {200000, 1000000, 10000};
        for (std::int32_t size : ProtocolSizes())
            run->Arg(size);
    }
    run->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
    return true;
}();

}  // namespace
