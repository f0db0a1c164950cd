// Cost of taking a whole tree down: node i owned by node (i-1)/10, every tenth node holding a reference to
// a random other node, the root expunged in one call. The death of every node reaches its owner and the
// holders of references to it, so the per-node cost shows whether anything on that path grows with the
// tree; it must stay flat from 10^4 to 10^6.
//
// A second case takes down a group of L targets that one holder's reference list names, each once. Each
// dying target takes itself out of the list as a change of its own, so the cost per target shows whether
// that removal grows with the list; it must stay flat from 10^3 to 10^5, in the list's order (the order
// the targets die in) and shuffled.
#include <benchmark/benchmark.h>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <vector>

#include "BenchSupport.h"

namespace {

void BM_MCObjectExpungeTree(benchmark::State& state) {
    MdlCore::Initialize();
    const auto n = static_cast<std::size_t>(state.range(0));
    std::vector<MCObject*> nodes(n);
    double seconds = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < n; ++i)
            nodes[i] = static_cast<MCObject*>(MCFactoryRegistry::CreateItem(
                MCGenericObject::c_sType, i == 0 ? nullptr : nodes[(i - 1) / 10], nullptr, nullptr));
        std::mt19937 rng(42);
        std::uniform_int_distribution<std::size_t> pick(0, n - 1);
        for (std::size_t i = 0; i < n; i += 10) {
            MCSRefAccessor reference(nodes[pick(rng)]);
            nodes[i]->SetProperty(MCCodes::pReference, reference, MCPropertyAccessor::accessAdd);
        }
        const long rootId = nodes[0]->GetId();
        const long lastId = nodes[n - 1]->GetId();
        const auto start = std::chrono::steady_clock::now();
        nodes[0]->Expunge(true);
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        if (MCObject::ResolveId(rootId) != nullptr || MCObject::ResolveId(lastId) != nullptr) {
            state.SkipWithError("objects outlived their root");
            return;
        }
    }
    state.counters["ns_per_obj"] =
        seconds * 1e9 / (static_cast<double>(n) * static_cast<double>(state.iterations()));
}
// One take-down of 10^4 lasts about 2 ms, too short to be read once: its figure is the mean of 30.
BENCHMARK(BM_MCObjectExpungeTree)->Arg(10000)->Iterations(30)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MCObjectExpungeTree)
    ->Arg(100000)
    ->Arg(1000000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_MCObjectExpungeTargetsOfALongList(benchmark::State& state) {
    MdlCore::Initialize();
    const auto length = static_cast<std::size_t>(state.range(0));
    const bool shuffled = state.range(1) != 0;
    double seconds = 0;
    for (auto _ : state) {
        MCObject* holder = bench::Create(MCGenericObject::c_sType, nullptr);
        MCObject* group = bench::Create(MCGenericObject::c_sType, nullptr);
        ZVTSList<MCObject*> targets;
        std::vector<MCObject*> order;
        for (std::size_t i = 0; i < length; ++i)
            order.push_back(bench::Create(MCGenericObject::c_sType, group));
        if (shuffled)
            std::shuffle(order.begin(), order.end(), std::mt19937(42));
        for (MCObject* target : order)
            targets.Append(target);
        MCVRefAccessor list(&targets);
        holder->SetProperty(MCCodes::pReferenceList, list, MCPropertyAccessor::accessAdd);
        const auto start = std::chrono::steady_clock::now();
        group->Expunge(true);
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        MCVRefRawAccessor left;
        const bool emptied = holder->GetProperty(MCCodes::pReferenceList, left) && left.GetList()->IsEmpty();
        holder->Expunge(true);
        if (!emptied) {
            state.SkipWithError("the list kept a dead target");
            return;
        }
    }
    state.counters["ns_per_target"] =
        seconds * 1e9 / (static_cast<double>(length) * static_cast<double>(state.iterations()));
}
BENCHMARK(BM_MCObjectExpungeTargetsOfALongList)
    ->ArgsProduct({{1000, 10000, 100000}, {0, 1}})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
