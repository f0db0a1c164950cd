// Cost of resolving one object id at 10^3 to 10^6 registered ids, beside a std::unordered_map.
// One iteration is one look-up, so the reported time is nanoseconds per look-up. Last, the map a copy
// keeps from its sources' ids to their clones: filled and read in the order a walk of a tree meets ids
// that were handed out breadth first.
//
// Two probe patterns: "Cold" draws every probe from the whole table, so past the size of the CPU caches it
// measures memory latency (std::unordered_map shows the same step); "Warm" draws from 1024 ids spread over
// the table, which keeps the touched lines cached and leaves the cost of the look-up itself. That one must
// stay flat from 10^3 to 10^6.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <unordered_map>
#include <vector>

#include "ModelCore/ZVFWMC/MCIdSpace.h"

class MCObject;

namespace {

// Enough probes that a cold run reads the large tables all over.
constexpr std::size_t kProbeCount = std::size_t{1} << 20;

// Distinct addresses standing for objects; they are only stored and compared, never dereferenced.
MCObject* FakeObject(std::vector<std::max_align_t>& slots, std::size_t i) {
    return reinterpret_cast<MCObject*>(&slots[i]);
}

constexpr std::size_t kWarmSetSize = 1024;

// Probes drawn from `distinct` random ids of `ids` (all of them for 0).
std::vector<long> RandomProbes(const std::vector<long>& ids, std::size_t distinct) {
    std::mt19937_64 rng(42);
    std::vector<long> pool = ids;
    if (distinct != 0 && distinct < pool.size()) {
        std::shuffle(pool.begin(), pool.end(), rng);
        pool.resize(distinct);
    }
    std::uniform_int_distribution<std::size_t> pick(0, pool.size() - 1);
    std::vector<long> probes(kProbeCount);
    for (long& probe : probes)
        probe = pool[pick(rng)];
    return probes;
}

void BM_MCIdSpaceResolveId(benchmark::State& state, std::size_t distinct) {
    const auto n = static_cast<std::size_t>(state.range(0));
    std::vector<std::max_align_t> slots(n);
    MCIdSpace space;
    std::vector<long> ids;
    ids.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const long id = space.RequestId();
        space.RegisterPointer(id, FakeObject(slots, i));
        ids.push_back(id);
    }
    // A table that loses entries would be timed on its miss path; refuse to report that.
    if (space.ResolveId(ids.front()) != FakeObject(slots, 0) ||
        space.ResolveId(ids.back()) != FakeObject(slots, n - 1)) {
        state.SkipWithError("MCIdSpace does not resolve its registered ids");
        return;
    }
    const std::vector<long> probes = RandomProbes(ids, distinct);
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(space.ResolveId(probes[next]));
        next = (next + 1) & (kProbeCount - 1);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_MCIdSpaceResolveId, Warm, kWarmSetSize)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK_CAPTURE(BM_MCIdSpaceResolveId, Cold, 0)->RangeMultiplier(10)->Range(1000, 1000000);

// Node i of a ten-wide tree owns nodes 10i+1..10i+10; the ids of its nodes, in pre-order, as a depth-first
// walk meets them.
std::vector<long> PreOrderIds(std::size_t n, long firstId) {
    std::vector<long> order;
    order.reserve(n);
    std::vector<std::size_t> pending{0};
    while (!pending.empty()) {
        const std::size_t node = pending.back();
        pending.pop_back();
        order.push_back(firstId + static_cast<long>(node));
        for (std::size_t child = std::min(10 * node + 10, n - 1); child > 10 * node; --child)
            pending.push_back(child);
    }
    return order;
}

// One iteration maps every node of the tree in walk order and resolves each node's owner as it goes;
// items are ids. The tree's ids start far from the fresh space's counter, as a model's do.
void BM_MCIdSpaceMapATreeWalk(benchmark::State& state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    std::vector<std::max_align_t> slots(n);
    constexpr long c_lFirstId = 5000001;
    const std::vector<long> order = PreOrderIds(n, c_lFirstId);
    for (auto _ : state) {
        MCIdSpace space(0);
        for (std::size_t i = 0; i < n; ++i) {
            const long id = order[i];
            const auto node = static_cast<std::size_t>(id - c_lFirstId);
            if (node != 0 && space.ResolveId(c_lFirstId + static_cast<long>((node - 1) / 10)) == nullptr) {
                state.SkipWithError("an owner was not mapped before its ownee");
                return;
            }
            space.RegisterPointer(id, FakeObject(slots, i));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(n));
}
BENCHMARK(BM_MCIdSpaceMapATreeWalk)
    ->RangeMultiplier(10)
    ->Range(10000, 1000000)
    ->Unit(benchmark::kMillisecond);

void BM_UnorderedMapFind(benchmark::State& state, std::size_t distinct) {
    const auto n = static_cast<std::size_t>(state.range(0));
    std::vector<std::max_align_t> slots(n);
    std::unordered_map<long, MCObject*> table;
    std::vector<long> ids;
    ids.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const long id = static_cast<long>(i) + 1;
        table.emplace(id, FakeObject(slots, i));
        ids.push_back(id);
    }
    const std::vector<long> probes = RandomProbes(ids, distinct);
    std::size_t next = 0;
    for (auto _ : state) {
        auto found = table.find(probes[next]);
        benchmark::DoNotOptimize(found == table.end() ? nullptr : found->second);
        next = (next + 1) & (kProbeCount - 1);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_UnorderedMapFind, Warm, kWarmSetSize)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK_CAPTURE(BM_UnorderedMapFind, Cold, 0)->RangeMultiplier(10)->Range(1000, 1000000);

}  // namespace
