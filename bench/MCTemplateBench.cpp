// Template expansion through the data butler: a model root whose member list holds n nodes, each with a
// Name, an Integer and links to two other nodes; the template writes one line per member with its links.
// Reports ns per macro call (every SubstituteValue, StartIteration and NextIteration the engine makes)
// and MB/s of output; ratio_vs_1e3 is the ns per call over that of the 10^3 run and should stay within
// 1.5 at 10^5, as a call costs the same whatever the size of the model.
#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCDataButler.h"
#include "platform/ZVMTemplate.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr short kNodeType = 7661;
constexpr short kCount = 7671;    // Integer
constexpr short kMembers = 7672;  // ReferenceList
constexpr short kLinks = 7673;    // ReferenceList
constexpr long kBaseSize = 1000;

const char* const kTemplate =
    "${foreach ForEach(members)}\n"
    "${Property(Name)} = ${Property(count, 0)};${foreach ForEach(links)} ${IfFirstIter(\"->\", \",\")} "
    "${Property(Name)}${end}\n"
    "${end}\n";

void RegisterTypes() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    MdlCore::Initialize();
    bench::Environment::Install();
    bench::RegisterProperty(kCount, "count", MCCodes::pInteger);
    bench::RegisterProperty(kMembers, "members", MCCodes::pReferenceList);
    bench::RegisterProperty(kLinks, "links", MCCodes::pReferenceList);
    bench::ModelRoot::Register("Model", 1);
    bench::HostNode<kNodeType>::Register("Node", 1);
}

MCObject* BuildModel(long n) {
    MCObject* root = bench::Create(bench::ModelRoot::c_sType, nullptr);
    std::vector<MCObject*> nodes(static_cast<std::size_t>(n));
    ZVTSList<MCObject*> members;
    for (long i = 0; i < n; ++i) {
        MCObject* node = bench::Create(kNodeType, root);
        nodes[static_cast<std::size_t>(i)] = node;
        MCSPropertyAccessorT<long> count(i);
        MCSPropertyAccessorT<ZVTString> name(bench::NodeName(i));
        node->SetProperty(kCount, count, MCPropertyAccessor::accessAdd);
        node->SetProperty(MCCodes::pName, name, MCPropertyAccessor::accessAdd);
        members.Append(node);
    }
    for (long i = 0; i < n; ++i) {
        ZVTSList<MCObject*> links;
        links.Append(nodes[static_cast<std::size_t>((i + 1) % n)]);
        links.Append(nodes[static_cast<std::size_t>((i * 7 + 3) % n)]);
        MCVRefRawAccessor accessor(&links);
        nodes[static_cast<std::size_t>(i)]->SetProperty(kLinks, accessor, MCPropertyAccessor::accessReplace);
    }
    MCVRefRawAccessor accessor(&members);
    root->SetProperty(kMembers, accessor, MCPropertyAccessor::accessReplace);
    return root;
}

// Counts the calls the engine makes, so the timed runs need not.
class CountingButler : public ZVMDataButler {
public:
    explicit CountingButler(ZVMDataButler& inner) : m_xInner(inner) {}
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVMStringList& arguments, ZVTString& result) override {
        ++m_lCalls;
        return m_xInner.SubstituteValue(name, arguments, result);
    }
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVTString& result) override {
        ++m_lCalls;
        return m_xInner.SubstituteValue(name, result);
    }
    ZVTBoolean StartIteration(const ZVTString& name, ZVMStringList& arguments) override {
        ++m_lCalls;
        return m_xInner.StartIteration(name, arguments);
    }
    ZVTBoolean StartIteration(const ZVTString& name) override {
        ++m_lCalls;
        return m_xInner.StartIteration(name);
    }
    ZVTBoolean NextIteration(const ZVTString& name) override {
        ++m_lCalls;
        return m_xInner.NextIteration(name);
    }
    ZVTBoolean KnowsMacro(const ZVTString& name) const override { return m_xInner.KnowsMacro(name); }
    long m_lCalls = 0;

private:
    ZVMDataButler& m_xInner;
};

std::map<long, double>& BaseCost() {
    static std::map<long, double> cost;
    return cost;
}

void BM_TemplateExpand(benchmark::State& state) {
    RegisterTypes();
    const long n = state.range(0);
    MCObject* root = BuildModel(n);
    ZVMTemplate generator;
    ZVMTemplateError error;
    if (!generator.Parse(kTemplate, error)) {
        state.SkipWithError(error.Format().c_str());
        root->Expunge(true);
        return;
    }
    long calls = 0;
    std::size_t bytes = 0;
    {
        MCDataButler butler(root);
        CountingButler counting(butler);
        std::string out;
        if (!generator.Expand(counting, out, error) || counting.m_lCalls < 9 * n) {
            state.SkipWithError("the expansion failed or made too few calls");
            root->Expunge(true);
            return;
        }
        calls = counting.m_lCalls;
        bytes = out.size();
    }
    double seconds = 0;
    std::string out;
    out.reserve(bytes);
    for (auto _ : state) {
        out.clear();
        MCDataButler butler(root);
        const auto start = Clock::now();
        generator.Expand(butler, out, error);
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        benchmark::DoNotOptimize(out.data());
    }
    root->Expunge(true);
    const double iterations = static_cast<double>(state.iterations());
    const double nsPerCall = seconds * 1e9 / (static_cast<double>(calls) * iterations);
    state.counters["ns_per_call"] = nsPerCall;
    state.counters["calls"] = static_cast<double>(calls);
    state.counters["MB_per_s"] = static_cast<double>(bytes) * iterations / seconds / 1e6;
    if (n == kBaseSize)
        BaseCost()[0] = nsPerCall;
    if (!BaseCost().empty())
        state.counters["ratio_vs_1e3"] = nsPerCall / BaseCost()[0];
}
BENCHMARK(BM_TemplateExpand)
    ->RangeMultiplier(10)
    ->Range(kBaseSize, 100 * kBaseSize)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
