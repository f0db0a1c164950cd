// Save and restore of a tree in memory: node i owned by node (i-1)/10 under a model root, each node with an
// Integer and a String, every tenth with a reference to a random other node. Reports MB/s, objects/s and
// bytes per object on the medium; restore must stay linear in the file size, so its ns per object is
// printed at 10^4, 10^5 and 10^6 too.
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr short kNodeType = 7621;
constexpr short kCount = 7631;  // Integer
constexpr short kName = 7632;   // String
constexpr short kRef = 7633;    // Reference

void RegisterTypes() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    MdlCore::Initialize();
    bench::Environment::Install();
    bench::RegisterProperty(kCount, "count", MCCodes::pInteger);
    bench::RegisterProperty(kName, "name", MCCodes::pString);
    bench::RegisterProperty(kRef, "ref", MCCodes::pReference);
    bench::ModelRoot::Register("Model", 1);
    bench::HostNode<kNodeType>::Register("Node", 1);
}

// The model root with n nodes below it.
MCObject* BuildTree(std::size_t n) {
    auto* root = static_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(bench::ModelRoot::c_sType, nullptr, nullptr, nullptr));
    std::vector<MCObject*> nodes(n);
    for (std::size_t i = 0; i < n; ++i) {
        MCObject* owner = i == 0 ? root : nodes[(i - 1) / 10];
        nodes[i] = static_cast<MCObject*>(MCFactoryRegistry::CreateItem(kNodeType, owner, nullptr, nullptr));
        MCSPropertyAccessorT<long> count(static_cast<long>(i));
        MCSPropertyAccessorT<ZVTString> name(bench::NodeName(static_cast<long>(i)));
        nodes[i]->SetProperty(kCount, count, MCPropertyAccessor::accessAdd);
        nodes[i]->SetProperty(kName, name, MCPropertyAccessor::accessAdd);
    }
    std::mt19937 rng(42);
    std::uniform_int_distribution<std::size_t> pick(0, n - 1);
    for (std::size_t i = 0; i < n; i += 10) {
        MCSRefAccessor ref(nodes[pick(rng)]);
        nodes[i]->SetProperty(kRef, ref, MCPropertyAccessor::accessAdd);
    }
    return root;
}

std::string Save(MCObject* root, bool& ok) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    MCPersHeader head = bench::Head();
    MCPersController controller;
    ok = controller.SaveTo(stream, root, head) == MCPersController::resultOk && !stream.fail();
    return medium.str();
}

void Report(benchmark::State& state, double seconds, std::size_t bytes, std::size_t objects) {
    const double runs = static_cast<double>(state.iterations());
    state.counters["MB_per_s"] = static_cast<double>(bytes) * runs / seconds / 1e6;
    state.counters["objects_per_s"] = static_cast<double>(objects) * runs / seconds;
    state.counters["ns_per_obj"] = seconds * 1e9 / (static_cast<double>(objects) * runs);
    state.counters["file_B_per_obj"] = static_cast<double>(bytes) / static_cast<double>(objects);
}

void BM_MCPersSave(benchmark::State& state) {
    RegisterTypes();
    const auto n = static_cast<std::size_t>(state.range(0));
    MCObject* root = BuildTree(n);
    double seconds = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        bool ok = false;
        const auto start = Clock::now();
        const std::string file = Save(root, ok);
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        bytes = file.size();
        if (!ok) {
            state.SkipWithError("the save failed");
            break;
        }
    }
    root->Expunge(true);
    Report(state, seconds, bytes, n + 1);
}
BENCHMARK(BM_MCPersSave)->Arg(1000000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_MCPersRestore(benchmark::State& state) {
    RegisterTypes();
    const auto n = static_cast<std::size_t>(state.range(0));
    MCObject* original = BuildTree(n);
    bool ok = false;
    const std::string file = Save(original, ok);
    original->Expunge(true);
    double seconds = 0;
    for (auto _ : state) {
        std::istringstream medium(file);
        MCStream stream(medium, ZVTStream::binary);
        MCPersHeader limits = bench::Head();
        MCPersController controller;
        MCObject* root = nullptr;
        const auto start = Clock::now();
        ok &= controller.RestoreFrom(stream, root, limits) == MCPersController::resultOk;
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        ok &= root != nullptr && controller.GetCreatedObjects().Entries() == n + 1;
        if (root)
            root->Expunge(true);
        if (!ok) {
            state.SkipWithError("the restore failed or lost objects");
            break;
        }
    }
    Report(state, seconds, file.size(), n + 1);
}
BENCHMARK(BM_MCPersRestore)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
