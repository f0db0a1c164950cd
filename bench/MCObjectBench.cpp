// Cost of the object store on trees of GenericObjects: building a tree with two properties per object,
// editing every object through an active accessor, and the two look-ups everything else leans on
// (ResolveId, FindProperty). Node i is owned by node (i-1)/10, as in the reference workload, which has a
// program of its own (ReferenceWorkloadBench).
//
// Whole-tree benchmarks time one pass over the tree per iteration and print per-object figures as
// counters; look-up benchmarks time one call per iteration. Memory is the growth of the resident set
// (/proc/self/statm) and of the heap in use (mallinfo2) across a build, after malloc_trim has handed the
// previous tree's pages back. The global id table and the table of live instances keep the capacity an
// earlier, larger tree gave them, so a build pays for their growth only when it is the largest so far.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCGenericObject.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"
#include "ModelCore/ZVFWMC/MdlCore.h"
#include "foundation/ZVTString.h"

namespace {

using bench::HeapBytes;
using bench::NodeName;
using bench::ReleaseFreeMemory;
using bench::ResidentBytes;

using Clock = std::chrono::steady_clock;

// Enough probes that a cold run reads the large trees all over.
constexpr std::size_t kProbeCount = std::size_t{1} << 20;
constexpr std::size_t kWarmSetSize = 1024;
constexpr std::size_t kEditTreeSize = 1000000;

double Seconds(Clock::duration elapsed) {
    return std::chrono::duration<double>(elapsed).count();
}

// Fills `nodes` with the tree, node i under node (i-1)/10, each with its String and Integer set through
// active accessors. False when the library refused something; nodes[0] is then the root to expunge, or
// null, and the last slot no longer names a node of an earlier tree.
bool BuildTree(std::vector<MCObject*>& nodes) {
    nodes[0] = nullptr;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        MCObject* owner = i == 0 ? nullptr : nodes[(i - 1) / 10];
        auto* node = static_cast<MCObject*>(
            MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, owner, nullptr, nullptr));
        nodes[i] = node;
        const long value = static_cast<long>(i);
        MCSPropertyAccessorT<ZVTString> name(NodeName(value));
        MCSPropertyAccessorT<long> count(value);
        if (node == nullptr || !node->SetProperty(MCCodes::pString, name, MCPropertyAccessor::accessAdd) ||
            !node->SetProperty(MCCodes::pInteger, count, MCPropertyAccessor::accessAdd)) {
            if (nodes.size() > 1)
                nodes.back() = nullptr;
            return false;
        }
    }
    return true;
}

// Whether the last node holds what BuildTree gave it, read back raw.
bool LastNodeIsIntact(const std::vector<MCObject*>& nodes) {
    const long last = static_cast<long>(nodes.size()) - 1;
    MCSPropertyRawAccessorT<long> count;
    MCSPropertyRawAccessorT<ZVTString> name;
    return nodes.back()->GetProperty(MCCodes::pInteger, count) && count.GetValue() == last &&
           nodes.back()->GetProperty(MCCodes::pString, name) &&
           name.GetValue().str() == NodeName(last).str() &&
           MCObject::ResolveId(nodes.back()->GetId()) == nodes.back();
}

// Expunges the tree from its root; false when an object outlived it.
bool ExpungeTree(std::vector<MCObject*>& nodes) {
    if (nodes[0] == nullptr)
        return true;
    const long rootId = nodes[0]->GetId();
    const long lastId = nodes.back() != nullptr ? nodes.back()->GetId() : rootId;
    nodes[0]->Expunge(true);
    nodes[0] = nullptr;
    return MCObject::ResolveId(rootId) == nullptr && MCObject::ResolveId(lastId) == nullptr;
}

// A tree built outside any timing and expunged when the scope ends.
class Tree {
public:
    explicit Tree(std::size_t size) : m_xNodes(size, nullptr) {
        MdlCore::Initialize();
        m_bBuilt = BuildTree(m_xNodes) && LastNodeIsIntact(m_xNodes);
    }
    ~Tree() { ExpungeTree(m_xNodes); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    bool IsBuilt() const { return m_bBuilt; }
    const std::vector<MCObject*>& Nodes() const { return m_xNodes; }

private:
    std::vector<MCObject*> m_xNodes;
    bool m_bBuilt = false;
};

// kProbeCount indices below `size`, drawn from `distinct` random ones of them (all of them for 0).
std::vector<std::size_t> RandomIndices(std::size_t size, std::size_t distinct) {
    std::mt19937_64 rng(42);
    std::vector<std::size_t> pool(size);
    for (std::size_t i = 0; i < size; ++i)
        pool[i] = i;
    if (distinct != 0 && distinct < pool.size()) {
        std::shuffle(pool.begin(), pool.end(), rng);
        pool.resize(distinct);
    }
    std::uniform_int_distribution<std::size_t> pick(0, pool.size() - 1);
    std::vector<std::size_t> indices(kProbeCount);
    for (std::size_t& index : indices)
        index = pool[pick(rng)];
    return indices;
}

// The counters of a build benchmark.
struct BuildCounters {
    const char* m_pcRate;
    const char* m_pcTime;
    const char* m_pcResident;
    const char* m_pcHeap;
};

// Builds and expunges a tree per iteration; only the build is timed. Each build starts from trimmed
// free memory, so the RSS growth is the pages the tree touched.
void TimeBuilds(benchmark::State& state, const BuildCounters& names) {
    MdlCore::Initialize();
    const auto n = static_cast<std::size_t>(state.range(0));
    // Allocated and touched before the baseline: the pointers are the benchmark's, not the tree's.
    std::vector<MCObject*> nodes(n, nullptr);
    double seconds = 0;
    double rssBytes = 0;
    double heapBytes = 0;
    for (auto _ : state) {
        ReleaseFreeMemory();
        const double rssBefore = ResidentBytes();
        const double heapBefore = HeapBytes();
        const Clock::time_point start = Clock::now();
        const bool built = BuildTree(nodes);
        const double elapsed = Seconds(Clock::now() - start);
        rssBytes += ResidentBytes() - rssBefore;
        heapBytes += HeapBytes() - heapBefore;
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        const bool intact = built && LastNodeIsIntact(nodes);
        const bool gone = ExpungeTree(nodes);
        if (!intact || !gone) {
            state.SkipWithError(!intact ? "the tree was not built as asked" : "objects outlived their root");
            return;
        }
    }
    ReleaseFreeMemory();
    const double objects = static_cast<double>(n) * static_cast<double>(state.iterations());
    state.counters[names.m_pcRate] = benchmark::Counter(objects / seconds);
    state.counters[names.m_pcTime] = benchmark::Counter(seconds * 1e9 / objects);
    state.counters[names.m_pcResident] = benchmark::Counter(rssBytes / objects);
#ifdef MC_BENCH_HAVE_MALLINFO2
    state.counters[names.m_pcHeap] = benchmark::Counter(heapBytes / objects);
#else
    static_cast<void>(heapBytes);
#endif
}

void BM_MCObjectBuildTree(benchmark::State& state) {
    TimeBuilds(state, {"obj_per_s", "ns_per_obj", "rss_B_per_obj", "heap_B_per_obj"});
}
BENCHMARK(BM_MCObjectBuildTree)->Arg(10000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);
// One build of 10^6 objects is the whole job even under a short minimum time.
BENCHMARK(BM_MCObjectBuildTree)->Arg(1000000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

// One iteration sets the Integer of every object of a 10^6 tree, heard by one observer on the root: each
// event climbs from its object to the root. With `changed` 1 every value differs from the one before and
// each edit runs the rules and reaches the observer; with 0 the value is unchanged and the accessor stops
// at the comparison.
void BM_MCObjectActiveEdit(benchmark::State& state) {
    const bool changing = state.range(0) != 0;
    bench::PropertySetCounter observer;
    // Declared after the observer, so the tree goes first: the observer hears it go.
    Tree tree(kEditTreeSize);
    if (!tree.IsBuilt()) {
        state.SkipWithError("the tree was not built as asked");
        return;
    }
    const std::vector<MCObject*>& nodes = tree.Nodes();
    nodes[0]->AddSubscriber(&observer, MCEvent::subscriberObserver);

    long pass = 0;
    double seconds = 0;
    for (auto _ : state) {
        ++pass;
        const long offset = changing ? pass : 0;
        const long heardBefore = observer.m_lHeard;
        bool accepted = true;
        const Clock::time_point start = Clock::now();
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            MCSPropertyAccessorT<long> count(static_cast<long>(i) + offset);
            accepted &= nodes[i]->SetProperty(MCCodes::pInteger, count, MCPropertyAccessor::accessAdd) != 0;
        }
        seconds += Seconds(Clock::now() - start);
        const long expected = changing ? static_cast<long>(nodes.size()) : 0;
        if (!accepted || observer.m_lHeard - heardBefore != expected) {
            state.SkipWithError(!accepted ? "an edit was refused"
                                          : "the observer did not hear exactly one event per changed value");
            return;
        }
    }
    const double edits = static_cast<double>(nodes.size()) * static_cast<double>(state.iterations());
    state.counters["edits_per_s"] = benchmark::Counter(edits / seconds);
    state.counters["ns_per_edit"] = benchmark::Counter(seconds * 1e9 / edits);
}
BENCHMARK(BM_MCObjectActiveEdit)->ArgName("changed")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

// One iteration is one ResolveId of a live object's id. "Cold" draws from every object, so at large
// trees it measures memory latency; "Warm" draws from 1024 objects and leaves the look-up itself, which
// must stay flat from 10^3 to 10^6. The id table keeps the capacity the largest tree so far gave it, so
// after the 10^6 builds above the small trees are looked up in a sparse table. A run is one pass over the
// probes: letting the framework grow the iteration count would rebuild the tree for every trial, which
// costs far more than the look-ups.
void BM_MCObjectResolveId(benchmark::State& state, std::size_t distinct) {
    Tree tree(static_cast<std::size_t>(state.range(0)));
    if (!tree.IsBuilt()) {
        state.SkipWithError("the tree was not built as asked");
        return;
    }
    const std::vector<std::size_t> indices = RandomIndices(tree.Nodes().size(), distinct);
    std::vector<long> probes(kProbeCount);
    for (std::size_t i = 0; i < kProbeCount; ++i)
        probes[i] = tree.Nodes()[indices[i]]->GetId();
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(MCObject::ResolveId(probes[next]));
        next = (next + 1) & (kProbeCount - 1);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_MCObjectResolveId, Warm, kWarmSetSize)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Iterations(kProbeCount);
BENCHMARK_CAPTURE(BM_MCObjectResolveId, Cold, 0)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Iterations(kProbeCount);

// One iteration is one FindProperty of the Integer or the String (alternately) of a live object; Warm
// and Cold as for ResolveId.
void BM_MCObjectFindProperty(benchmark::State& state, std::size_t distinct) {
    struct Probe {
        const MCObject* m_pxObject;
        short m_sType;
    };
    Tree tree(static_cast<std::size_t>(state.range(0)));
    if (!tree.IsBuilt()) {
        state.SkipWithError("the tree was not built as asked");
        return;
    }
    const std::vector<std::size_t> indices = RandomIndices(tree.Nodes().size(), distinct);
    std::vector<Probe> probes(kProbeCount);
    for (std::size_t i = 0; i < kProbeCount; ++i)
        probes[i] = {tree.Nodes()[indices[i]], (i & 1) != 0 ? MCCodes::pString : MCCodes::pInteger};
    if (probes[0].m_pxObject->FindProperty(probes[0].m_sType, false) == nullptr) {
        state.SkipWithError("FindProperty misses a property that was set");
        return;
    }
    std::size_t next = 0;
    for (auto _ : state) {
        const Probe& probe = probes[next];
        benchmark::DoNotOptimize(probe.m_pxObject->FindProperty(probe.m_sType, false));
        next = (next + 1) & (kProbeCount - 1);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_MCObjectFindProperty, Warm, kWarmSetSize)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Iterations(kProbeCount);
BENCHMARK_CAPTURE(BM_MCObjectFindProperty, Cold, 0)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Iterations(kProbeCount);

}  // namespace
