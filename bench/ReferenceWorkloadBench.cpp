// The reference workload, phase by phase, on which ModelCore is compared with a peer framework: N nodes of
// a host type Node with `count`, `name`, a single reference `ref` and a reference list `refs`; node i is
// owned by node (i-1)/10. One run per N does the phases in order on one tree and prints each phase's
// ns per node; memory is the resident growth across build and link.
//
// Phases so far: build, link (pass A sets every `ref` from a seeded generator, pass B adds three drawn
// targets to the `refs` of every tenth node), notify-edit (an observer on the root hears every node's
// `count` go up by one). The run fails unless the drawn targets match the workload's check values and the
// observer hears N events.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
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
    MCFactoryRegistry::RegisterAliasProperty(kCount, "count", 87, true, false, false, false);
    MCFactoryRegistry::RegisterAliasProperty(kName, "name", 91, true, false, false, false);
    MCFactoryRegistry::RegisterAliasProperty(kRef, "ref", 89, true, false, false, false);
    MCFactoryRegistry::RegisterAliasProperty(kRefs, "refs", 90, true, false, false, false);
    bench::HostNode<kNodeType>::Register("Node", 1);
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
};

void BM_ReferenceWorkload(benchmark::State& state) {
    RegisterTypes();
    const auto n = static_cast<std::int32_t>(state.range(0));
    const CheckValues check =
        n == 200000 ? CheckValues{{38943, 193350, 18585, 149399, 173285}, 19994678702LL, 59998}
                    : CheckValues{{432693, 392881, 212716, 948987, 970633}, 500508033973LL, 300000};
    std::vector<MCObject*> nodes(static_cast<std::size_t>(n));
    bench::PropertySetCounter observer;
    for (auto _ : state) {
        bench::ReleaseFreeMemory();
        const double rssBefore = bench::ResidentBytes();

        // build
        Clock::time_point start = Clock::now();
        bool ok = true;
        for (std::int32_t i = 0; i < n; ++i) {
            MCObject* owner = i == 0 ? nullptr : nodes[static_cast<std::size_t>((i - 1) / 10)];
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

        state.SetIterationTime(build + link + notifyEdit);
        nodes[0]->Expunge(true);

        bool checks = refSum == check.m_llRefSum && refsAdded == check.m_lRefsAdded && heard == n;
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
