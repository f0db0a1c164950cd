// The small-block pool: blocks of every class are aligned, never overlap and keep what is written to them
// while alive, also across release and reuse; sizes beyond the pooled ones work the same way.

#include "foundation/ZVTPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

TEST(ZVTPoolTest, BlocksAreAlignedDistinctAndKeepTheirContents) {
    std::mt19937 random(11);
    std::vector<std::pair<unsigned char*, std::size_t>> live;
    for (int step = 0; step < 20000; ++step) {
        if (!live.empty() && random() % 3 == 0) {
            const std::size_t at = random() % live.size();
            auto [block, size] = live[at];
            for (std::size_t i = 0; i < size; ++i)
                ASSERT_EQ(block[i], static_cast<unsigned char>(size + i)) << "step " << step;
            ZVTPool::Release(block, size);
            live[at] = live.back();
            live.pop_back();
            continue;
        }
        const std::size_t size = 1 + random() % 700;  // pooled and larger sizes
        auto* block = static_cast<unsigned char*>(ZVTPool::Allocate(size));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u) << size;
        for (std::size_t i = 0; i < size; ++i)
            block[i] = static_cast<unsigned char>(size + i);
        live.emplace_back(block, size);
    }
    std::sort(live.begin(), live.end());
    for (std::size_t i = 1; i < live.size(); ++i)
        ASSERT_LE(live[i - 1].first + live[i - 1].second, live[i].first) << "blocks overlap";
    for (auto [block, size] : live) {
        for (std::size_t i = 0; i < size; ++i)
            ASSERT_EQ(block[i], static_cast<unsigned char>(size + i));
        ZVTPool::Release(block, size);
    }
    ZVTPool::Release(nullptr, 8);
}
