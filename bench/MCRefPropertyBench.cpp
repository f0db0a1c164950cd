// Cost of references: 10^6 single references and 10^5 reference lists of 10 targets, set through active
// accessors between GenericObjects of one flat tree, each target drawn at random. Every reference is a
// counted subscription of its holder on its target, so the memory a subscription adds is measured apart
// from the property's own: a second reference property with the same targets finds each subscription in
// place and only raises its count, so the difference of the two heap growths is the subscriptions.
#include <benchmark/benchmark.h>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <chrono>
#include <cstddef>
#include <random>
#include <vector>

#include "BenchSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr short kSecondReference = 7801;
constexpr short kSecondReferenceList = 7802;
constexpr long kListLength = 10;

void RegisterTypes() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    MdlCore::Initialize();
    bench::RegisterProperty(kSecondReference, "SecondReference", MCCodes::pReference);
    bench::RegisterProperty(kSecondReferenceList, "SecondReferenceList", MCCodes::pReferenceList);
}

// A root with `count` GenericObjects under it; the root goes when the scope ends.
class Flat {
public:
    explicit Flat(std::size_t count) {
        RegisterTypes();
        m_pxRoot = static_cast<MCObject*>(
            MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, nullptr, nullptr, nullptr));
        m_xNodes.reserve(count);
        for (std::size_t i = 0; i < count; ++i)
            m_xNodes.push_back(static_cast<MCObject*>(
                MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, m_pxRoot, nullptr, nullptr)));
    }
    ~Flat() { m_pxRoot->Expunge(true); }
    Flat(const Flat&) = delete;
    Flat& operator=(const Flat&) = delete;

    std::vector<MCObject*>& Nodes() { return m_xNodes; }

private:
    MCObject* m_pxRoot;
    std::vector<MCObject*> m_xNodes;
};

// One timed pass of `set` over every holder; the heap growth per reference goes into `bytes`.
template <class Set>
double TimedPass(std::size_t holders, long referencesPerHolder, double& bytes, bool& ok, Set set) {
    const double heapBefore = bench::HeapBytes();
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < holders; ++i)
        ok &= set(i);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    bytes = (bench::HeapBytes() - heapBefore) / static_cast<double>(holders * referencesPerHolder);
    return seconds;
}

void Report(benchmark::State& state, double seconds, double references, double withSubscription,
            double withoutSubscription) {
    state.counters["ns_per_ref"] = seconds * 1e9 / references;
    state.counters["refs_per_s"] = references / seconds;
#ifdef MC_BENCH_HAVE_MALLINFO2
    state.counters["heap_B_per_ref"] = withSubscription;
    state.counters["subscription_B"] = withSubscription - withoutSubscription;
#else
    static_cast<void>(withSubscription);
    static_cast<void>(withoutSubscription);
#endif
}

// 10^6 holders each set a single reference to a random target, then a second one to the same target.
void BM_MCRefSetSingle(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        Flat flat(count);
        std::vector<MCObject*>& nodes = flat.Nodes();
        std::mt19937 rng(42);
        std::uniform_int_distribution<std::size_t> pick(0, count - 1);
        std::vector<MCObject*> targets(count);
        for (MCObject*& target : targets)
            target = nodes[pick(rng)];
        bool ok = true;
        double withSubscription = 0, withoutSubscription = 0;
        const double seconds = TimedPass(count, 1, withSubscription, ok, [&](std::size_t i) {
            MCSRefAccessor accessor(targets[i]);
            return nodes[i]->SetProperty(MCCodes::pReference, accessor, MCPropertyAccessor::accessAdd);
        });
        TimedPass(count, 1, withoutSubscription, ok, [&](std::size_t i) {
            MCSRefAccessor accessor(targets[i]);
            return nodes[i]->SetProperty(kSecondReference, accessor, MCPropertyAccessor::accessAdd);
        });
        state.SetIterationTime(seconds);
        if (!ok) {
            state.SkipWithError("a reference was refused");
            return;
        }
        Report(state, seconds, static_cast<double>(count), withSubscription, withoutSubscription);
    }
}
BENCHMARK(BM_MCRefSetSingle)->Arg(1000000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

// 10^5 holders each set a list of 10 random targets in one change, then a second list of the same.
void BM_MCRefSetList(benchmark::State& state) {
    const auto holders = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        Flat flat(holders);
        std::vector<MCObject*>& nodes = flat.Nodes();
        std::mt19937 rng(42);
        std::uniform_int_distribution<std::size_t> pick(0, holders - 1);
        std::vector<ZVTSList<MCObject*>> lists(holders);
        for (ZVTSList<MCObject*>& list : lists)
            for (long k = 0; k < kListLength; ++k)
                list.Append(nodes[pick(rng)]);
        bool ok = true;
        double withSubscription = 0, withoutSubscription = 0;
        const double seconds = TimedPass(holders, kListLength, withSubscription, ok, [&](std::size_t i) {
            MCVRefAccessor accessor(&lists[i]);
            return nodes[i]->SetProperty(MCCodes::pReferenceList, accessor, MCPropertyAccessor::accessAdd);
        });
        TimedPass(holders, kListLength, withoutSubscription, ok, [&](std::size_t i) {
            MCVRefAccessor accessor(&lists[i]);
            return nodes[i]->SetProperty(kSecondReferenceList, accessor, MCPropertyAccessor::accessAdd);
        });
        state.SetIterationTime(seconds);
        if (!ok) {
            state.SkipWithError("a reference list was refused");
            return;
        }
        Report(state, seconds, static_cast<double>(holders * kListLength), withSubscription,
               withoutSubscription);
    }
}
BENCHMARK(BM_MCRefSetList)->Arg(100000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
