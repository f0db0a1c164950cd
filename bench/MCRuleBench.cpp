// Cost of the rules on the edit path: an active edit of an object at depth 6 of a 10^6-object tree, heard
// by one observer on the root, first with no property rule anywhere, then with one on the object's type
// and one on its supertype. The host types are two class levels, registered as a host registers them;
// node i is owned by node (i-1)/10, so depth 6 holds nodes 111111 to 1111110.
#include <benchmark/benchmark.h>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <chrono>
#include <cstddef>
#include <vector>

#include "BenchSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr short kBaseType = 7501;
constexpr short kNodeType = 7502;
constexpr std::size_t kTreeSize = 1000000;
constexpr std::size_t kFirstAtDepth6 = 111111;
constexpr std::size_t kEditsPerIteration = 100000;

// A rule that follows every edit and lets it through.
class PassingRule : public MCPropertySemantic {
public:
    result Fire(mode, MCObject*, MCProperty*, MCPropertySemanticContext*) override {
        ++m_lCalls;
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PreEdit | PostEdit; }
    long m_lCalls = 0;
};

void RegisterTypes() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    MdlCore::Initialize();
    bench::HostNode<kBaseType>::Register("BenchBase", 1);
    bench::HostNode<kNodeType, bench::HostNode<kBaseType>>::Register("BenchNode", kBaseType);
}

// Edits the Integer of the depth-6 nodes in turn with an observer on the root; `rules` says whether the
// two rules are registered. Fails the run unless the observer hears every edit and each rule runs twice
// per edit.
void BM_MCRuleActiveEditAtDepth6(benchmark::State& state) {
    RegisterTypes();
    const bool withRules = state.range(0) != 0;
    bench::PropertySetCounter observer;
    std::vector<MCObject*> nodes(kTreeSize);
    for (std::size_t i = 0; i < kTreeSize; ++i)
        nodes[i] = static_cast<MCObject*>(MCFactoryRegistry::CreateItem(
            kNodeType, i == 0 ? nullptr : nodes[(i - 1) / 10], nullptr, nullptr));
    nodes[0]->AddSubscriber(&observer, MCEvent::subscriberObserver);
    PassingRule onType, onSupertype;
    if (withRules) {
        MCFactoryContext context;
        MCPropertySemanticRegistry::Register(kNodeType, &context, MCCodes::pInteger, &onType, false, false);
        MCPropertySemanticRegistry::Register(kBaseType, &context, MCCodes::pInteger, &onSupertype, false,
                                             false);
    }

    long value = 0;
    double seconds = 0;
    long edits = 0;
    for (auto _ : state) {
        const long heardBefore = observer.m_lHeard;
        const Clock::time_point start = Clock::now();
        for (std::size_t i = 0; i < kEditsPerIteration; ++i) {
            MCSPropertyAccessorT<long> accessor(++value);
            nodes[kFirstAtDepth6 + i]->SetProperty(MCCodes::pInteger, accessor,
                                                   MCPropertyAccessor::accessAdd);
        }
        seconds += std::chrono::duration<double>(Clock::now() - start).count();
        edits += static_cast<long>(kEditsPerIteration);
        if (observer.m_lHeard - heardBefore != static_cast<long>(kEditsPerIteration)) {
            state.SkipWithError("the root's observer did not hear every edit");
            break;
        }
    }
    if (withRules && (onType.m_lCalls != 2 * edits || onSupertype.m_lCalls != 2 * edits))
        state.SkipWithError("a rule did not follow every edit");
    MCPropertySemanticRegistry::GetInstance()->Deregister(&onType);
    MCPropertySemanticRegistry::GetInstance()->Deregister(&onSupertype);
    nodes[0]->RemoveSubscriber(&observer, MCEvent::subscriberObserver);
    nodes[0]->Expunge(true);
    state.counters["edits_per_s"] = benchmark::Counter(static_cast<double>(edits) / seconds);
    state.counters["ns_per_edit"] = benchmark::Counter(seconds * 1e9 / static_cast<double>(edits));
}
BENCHMARK(BM_MCRuleActiveEditAtDepth6)->ArgName("rules")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
