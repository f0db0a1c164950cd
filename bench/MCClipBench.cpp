// Copy and paste of a subtree: node i owned by node (i-1)/10 below one node under a model root, each node
// with an Integer and a Name, every tenth with a reference to a random node of the subtree. The reference
// depends on its target, so the closure checks it without bringing anything in and every record keeps its
// real owner. Copy times the closure and the writing of the buffer; paste makes the subtree anew under a
// fresh target, which is made and expunged outside the timed region. Both report ns per object, and
// ratio_vs_1e3 is that figure over the one of the 10^3 run: it should stay within 1.5 at 10^5.
#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <random>
#include <unordered_set>
#include <vector>

#include "BenchSupport.h"
#include "ModelCore/ZVFWMC/MCClipboard.h"
#include "ModelCore/ZVFWMC/MCCodes.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr short kNodeType = 7641;
constexpr short kCount = 7651;  // Integer
constexpr short kRef = 7652;    // Reference
constexpr std::size_t kReferenceEvery = 10;
constexpr long kBaseSize = 1000;

void RegisterTypes() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    MdlCore::Initialize();
    bench::Environment::Install();
    bench::RegisterProperty(kCount, "count", MCCodes::pInteger);
    bench::RegisterProperty(kRef, "ref", MCCodes::pReference);
    bench::ModelRoot::Register("Model", 1);
    bench::HostNode<kNodeType>::Register("Node", 1);
    // A paste places its top entries only under targets the registry lists as owners.
    MCFactoryRegistry::AddOwnerType(kNodeType, kNodeType);
    MCFactoryRegistry::AddPropertyUsage(kNodeType, kRef, MCFactoryRegistry::clipDepend);
}

// The model root with the subtree of n nodes below it; `top` is the subtree's first node.
MCObject* BuildModel(std::size_t n, MCObject*& top) {
    MCObject* root = bench::Create(bench::ModelRoot::c_sType, nullptr);
    std::vector<MCObject*> nodes(n);
    for (std::size_t i = 0; i < n; ++i) {
        nodes[i] = bench::Create(kNodeType, i == 0 ? root : nodes[(i - 1) / 10]);
        MCSPropertyAccessorT<long> count(static_cast<long>(i));
        MCSPropertyAccessorT<ZVTString> name(bench::NodeName(static_cast<long>(i)));
        nodes[i]->SetProperty(kCount, count, MCPropertyAccessor::accessAdd);
        nodes[i]->SetProperty(MCCodes::pName, name, MCPropertyAccessor::accessAdd);
    }
    std::mt19937 rng(42);
    std::uniform_int_distribution<std::size_t> pick(0, n - 1);
    for (std::size_t i = 0; i < n; i += kReferenceEvery) {
        MCSRefAccessor ref(nodes[pick(rng)]);
        nodes[i]->SetProperty(kRef, ref, MCPropertyAccessor::accessAdd);
    }
    top = nodes[0];
    return root;
}

std::vector<char> Copy(MCObject& source, MCObject* top) {
    ZVTSList<MCObject*> selection;
    selection.Append(top);
    MCClipList copy(selection, source, MCClipList::modeCopy, nullptr);
    std::vector<char> buffer(static_cast<std::size_t>(copy.GetBufferSize()));
    copy.CopyBuffer(buffer.data());
    return buffer;
}

// Whether the tree below `target` holds n objects and one bound reference per ten, each into the tree.
bool PastedWhole(MCObject* target, std::size_t n) {
    std::unordered_set<const MCObject*> inside;
    std::vector<MCObject*> open{target};
    while (!open.empty()) {
        MCObject* object = open.back();
        open.pop_back();
        for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling()) {
            inside.insert(ownee);
            open.push_back(ownee);
        }
    }
    std::size_t references = 0;
    for (const MCObject* object : inside) {
        const auto* ref = dynamic_cast<const MCSRef*>(object->FindProperty(kRef, false));
        if (!ref)
            continue;
        if (!ref->IsBound() || !inside.count(ref->GetValue()))
            return false;
        ++references;
    }
    return inside.size() == n && references == (n + kReferenceEvery - 1) / kReferenceEvery;
}

// The ns per object of each benchmark's 10^3 run, for the ratio of the larger ones.
std::map<std::string, double>& BaseCosts() {
    static std::map<std::string, double> costs;
    return costs;
}

void Report(benchmark::State& state, const char* name, double seconds, std::size_t bytes, std::size_t n) {
    const double objects = static_cast<double>(n) * static_cast<double>(state.iterations());
    const double nsPerObject = seconds * 1e9 / objects;
    state.counters["ns_per_obj"] = nsPerObject;
    state.counters["buffer_B_per_obj"] = static_cast<double>(bytes) / static_cast<double>(n);
    if (state.range(0) == kBaseSize)
        BaseCosts()[name] = nsPerObject;
    const auto base = BaseCosts().find(name);
    if (base != BaseCosts().end())
        state.counters["ratio_vs_1e3"] = nsPerObject / base->second;
}

void BM_ClipCopy(benchmark::State& state) {
    RegisterTypes();
    const auto n = static_cast<std::size_t>(state.range(0));
    MCObject* top = nullptr;
    MCObject* root = BuildModel(n, top);
    double seconds = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        const std::vector<char> buffer = Copy(*root, top);
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        bytes = buffer.size();
        if (bytes == 0) {
            state.SkipWithError("the copy gave no buffer");
            break;
        }
    }
    root->Expunge(true);
    Report(state, "copy", seconds, bytes, n);
}
BENCHMARK(BM_ClipCopy)
    ->RangeMultiplier(10)
    ->Range(kBaseSize, 100 * kBaseSize)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_ClipPaste(benchmark::State& state) {
    RegisterTypes();
    const auto n = static_cast<std::size_t>(state.range(0));
    MCObject* top = nullptr;
    MCObject* root = BuildModel(n, top);
    const std::vector<char> buffer = Copy(*root, top);
    double seconds = 0;
    bool checked = false;
    for (auto _ : state) {
        MCObject* target = bench::Create(kNodeType, root);
        ZVTSList<MCObject*> targets;
        targets.Append(target);
        ZVTOrderedVectorT<long> ids;
        const auto start = Clock::now();
        {
            MCClipList paste(targets, *target, const_cast<char*>(buffer.data()),
                             static_cast<int>(buffer.size()), &ids, nullptr);
        }
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        // One check of the whole tree; the top id on every run.
        const bool whole = ids.Length() == 1 && (checked || PastedWhole(target, n));
        checked = true;
        target->Expunge(true);
        if (!whole) {
            state.SkipWithError("the paste lost objects or references");
            break;
        }
    }
    root->Expunge(true);
    Report(state, "paste", seconds, buffer.size(), n);
}
BENCHMARK(BM_ClipPaste)
    ->RangeMultiplier(10)
    ->Range(kBaseSize, 100 * kBaseSize)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
