// The reference workload, phase by phase, on which ModelCore is compared with a peer framework: N nodes of
// a host type Node with `count`, `name`, a single reference `ref` and a reference list `refs`; node i is
// owned by node (i-1)/10. One run per N does the phases in order on one tree and prints each phase's
// ns per node; memory is the resident growth across build and link.
//
// Phases so far: build, link (pass A sets every `ref` from a seeded generator, pass B adds three drawn
// targets to the `refs` of every tenth node), notify-edit (an observer on the root hears every node's
// `count` go up by one), save (the whole tree to a file), restore (that file into a fresh tree, references
// resolved), copy (a deep copy of the whole tree, references among its nodes moved onto the copies) and
// delete (node 1 with its subtree, every reference into it from outside cleared). The run fails unless the
// drawn targets and the cleared references match the workload's check values, the observer hears N events,
// the restore brings back every node and the copy has N nodes whose references point at the copies of
// their sources' targets.
//
// A save needs a persistence root above what it saves, so node 0 sits under a model object; it is saved and
// restored with the tree, one object more in N + 1.
#include <benchmark/benchmark.h>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
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

void BM_ReferenceWorkload(benchmark::State& state) {
    RegisterTypes();
    const auto n = static_cast<std::int32_t>(state.range(0));
    const CheckValues check =
        n == 200000 ? CheckValues{{38943, 193350, 18585, 149399, 173285}, 19994678702LL, 59998, 64943}
                    : CheckValues{{432693, 392881, 212716, 948987, 970633}, 500508033973LL, 300000, 128189};
    const std::string path = std::string(P_tmpdir) + "/modelcore-workload-" + std::to_string(n) + ".mdl";
    std::vector<MCObject*> nodes(static_cast<std::size_t>(n));
    bench::PropertySetCounter observer;
    for (auto _ : state) {
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
        const double build = std::chrono::duration<double>(Clock::now() - start).count();

        // link
        start = Clock::now();
        JavaRandom random(42);
        long long refSum = 0;
        std::int32_t firstRefs[5] = {};
        for (std::int32_t i = 0; i < n; ++i) {
            std::int32_t j = random.NextInt(n - 1);
            if (j >= i)
                ++j;
            refSum += j;
            if (i < 5)
                firstRefs[i] = j;
            MCSRefAccessor ref(nodes[static_cast<std::size_t>(j)]);
            ok &= nodes[static_cast<std::size_t>(i)]->SetProperty(kRef, ref, MCPropertyAccessor::accessAdd);
        }
        long refsAdded = 0;
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
                ok &= nodes[static_cast<std::size_t>(i)]->SetProperty(kRefs, refs,
                                                                      MCPropertyAccessor::accessAdd);
                ++refsAdded;
            }
        }
        const double link = std::chrono::duration<double>(Clock::now() - start).count();
        const double rssAfterLink = bench::ResidentBytes();

        // notify-edit
        nodes[0]->AddSubscriber(&observer, MCEvent::subscriberObserver);
        const long heardBefore = observer.m_lHeard;
        start = Clock::now();
        for (std::int32_t i = 0; i < n; ++i) {
            MCObject* node = nodes[static_cast<std::size_t>(i)];
            MCSPropertyAccessorT<long> count;
            ok &= node->GetProperty(kCount, count);
            count.SetValue(count.GetValue() + 1);
            ok &= node->SetProperty(kCount, count, MCPropertyAccessor::accessAdd);
        }
        const double notifyEdit = std::chrono::duration<double>(Clock::now() - start).count();
        nodes[0]->RemoveSubscriber(&observer, MCEvent::subscriberObserver);
        const long heard = observer.m_lHeard - heardBefore;

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
        const double save = std::chrono::duration<double>(Clock::now() - start).count();
        std::ifstream::pos_type fileBytes = std::ifstream(path, std::ios::binary | std::ios::ate).tellg();

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
        const double restore = std::chrono::duration<double>(Clock::now() - start).count();
        if (restored)
            restored->Expunge(true);
        std::remove(path.c_str());

        // copy
        start = Clock::now();
        MCObject* copy = nodes[0]->CloneTree(nullptr);
        const double copyTime = std::chrono::duration<double>(Clock::now() - start).count();
        const bool copyClosed = copy && IsClosedCopy(copy, n);
        if (copy)
            copy->Expunge(true);

        // delete: what the survivors hold before and after tells how many references were cleared.
        long heldBefore = 0;
        for (std::int32_t i = 0; i < n; ++i)
            if (!InDeletedSubtree(i))
                heldBefore += HeldReferences(nodes[static_cast<std::size_t>(i)]);
        start = Clock::now();
        ok &= nodes[1]->Expunge(true);
        const double remove = std::chrono::duration<double>(Clock::now() - start).count();
        long heldAfter = 0;
        for (std::int32_t i = 0; i < n; ++i)
            if (!InDeletedSubtree(i))
                heldAfter += HeldReferences(nodes[static_cast<std::size_t>(i)]);

        state.SetIterationTime(build + link + notifyEdit + save + restore + copyTime + remove);
        model->Expunge(true);

        bool checks = refSum == check.m_llRefSum && refsAdded == check.m_lRefsAdded && heard == n &&
                      restoredObjects == static_cast<std::size_t>(n) + 1 && copyClosed &&
                      heldBefore - heldAfter == check.m_lCleared;
        for (int k = 0; k < 5; ++k)
            checks &= firstRefs[k] == check.m_anFirstRefs[k];
        if (!ok || !checks) {
            state.SkipWithError(!ok ? "the library refused an operation" : "a check value does not match");
            return;
        }
        const double perNode = 1e9 / n;
        state.counters["build_ns_per_node"] = build * perNode;
        state.counters["link_ns_per_node"] = link * perNode;
        state.counters["notify_edit_ns_per_node"] = notifyEdit * perNode;
        state.counters["save_ns_per_node"] = save * perNode;
        state.counters["restore_ns_per_node"] = restore * perNode;
        state.counters["copy_ns_per_node"] = copyTime * perNode;
        state.counters["delete_ns_per_node"] = remove * perNode;
        state.counters["file_B_per_node"] = static_cast<double>(fileBytes) / n;
        state.counters["rss_B_per_node_after_build_link"] = (rssAfterLink - rssBefore) / n;
    }
}
BENCHMARK(BM_ReferenceWorkload)
    ->Arg(200000)
    ->Arg(1000000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
