// Cost of reading one type's flags from a registry of 1000 to 32000 types (codes are 16-bit).
// One iteration is one look-up, so the reported time is nanoseconds per look-up.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"

namespace {

constexpr std::size_t kProbeCount = std::size_t{1} << 16;

void BM_MCFactoryRegistryGetFlags(benchmark::State& state) {
    const auto n = static_cast<short>(state.range(0));
    // Each size starts from an empty registry, whatever ran before.
    MCFactoryRegistry::DeleteInstance();
    for (short code = 1; code <= n; ++code) {
        const std::string name = "T" + std::to_string(code);
        MCFactoryRegistry::RegisterAbstractObject(code, ZVTString(name), code == 1 ? 0 : 1);
    }
    unsigned long flags = 0;
    if (!MCFactoryRegistry::GetFlags(n, flags)) {
        MCFactoryRegistry::DeleteInstance();
        state.SkipWithError("registry lost a registered type");
        return;
    }
    std::mt19937 rng(42);
    std::uniform_int_distribution<int> pick(1, n);
    std::vector<short> probes(kProbeCount);
    for (short& probe : probes)
        probe = static_cast<short>(pick(rng));

    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(MCFactoryRegistry::GetFlags(probes[next], flags));
        benchmark::DoNotOptimize(flags);
        next = (next + 1) & (kProbeCount - 1);
    }
    state.SetItemsProcessed(state.iterations());
    MCFactoryRegistry::DeleteInstance();
}
BENCHMARK(BM_MCFactoryRegistryGetFlags)->Arg(1000)->Arg(4000)->Arg(16000)->Arg(32000);

}  // namespace
