// The small-block pool: blocks of every class are aligned, never overlap and keep what is written to them
// while alive, also across release and reuse; sizes beyond the pooled ones work the same way, and so do
// the huge slabs of a class that has grown and the blocks for large tables.

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
    for (int step = 0; step < 170000; ++step) {
        if (step < 20000 && !live.empty() && random() % 3 == 0) {
            const std::size_t at = random() % live.size();
            auto [block, size] = live[at];
            for (std::size_t i = 0; i < size; ++i)
                ASSERT_EQ(block[i], static_cast<unsigned char>(size + i)) << "step " << step;
            ZVTPool::Release(block, size);
            live[at] = live.back();
            live.pop_back();
            continue;
        }
        // Pooled and larger sizes; at the end enough blocks of one class to go through every slab size
        // into several huge slabs, where a slab cut wrongly from its mapping would overlap another or end
        // before its last block.
        const std::size_t size = step < 20000 ? 1 + random() % 700 : 48;
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

// Where the pool maps huge pages itself; the memory figures of the benchmarks count on MappedBytes.
#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
constexpr bool kMapsItself = true;
#else
constexpr bool kMapsItself = false;
#endif

TEST(ZVTPoolTest, LargeBlocksAreWholeOnEitherSideOfTheHugeSize) {
    constexpr std::size_t huge = std::size_t{2} << 20;
    for (std::size_t size : {std::size_t{1000}, huge, (std::size_t{5} << 20) + 3}) {
        const std::size_t mappedBefore = ZVTPool::MappedBytes();
        auto* first = static_cast<unsigned char*>(ZVTPool::AllocateLarge(size));
        auto* second = static_cast<unsigned char*>(ZVTPool::AllocateLarge(size));
        const std::size_t mapped = kMapsItself && size >= huge ? 2 * ((size + huge - 1) / huge * huge) : 0;
        EXPECT_EQ(ZVTPool::MappedBytes() - mappedBefore, mapped) << size;
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(first) % 16, 0u) << size;
        std::memset(first, 0xA5, size);
        std::memset(second, 0x5A, size);
        EXPECT_EQ(std::count(first, first + size, 0xA5), static_cast<std::ptrdiff_t>(size)) << size;
        EXPECT_EQ(std::count(second, second + size, 0x5A), static_cast<std::ptrdiff_t>(size)) << size;
        ZVTPool::ReleaseLarge(first, size);
        ZVTPool::ReleaseLarge(second, size);
        EXPECT_EQ(ZVTPool::MappedBytes(), mappedBefore) << size;
    }
    ZVTPool::ReleaseLarge(nullptr, 8);
}

TEST(ZVTPoolTest, NextBlockNamesTheBlockTheNextAllocationGives) {
    for (std::size_t size : {8u, 16u, 24u, 200u, 512u}) {
        SCOPED_TRACE(size);
        void* first = ZVTPool::Allocate(size);
        const void* announced = ZVTPool::NextBlock(size);
        void* second = ZVTPool::Allocate(size);
        ZVTPool::Release(first, size);
        const void* reused = ZVTPool::NextBlock(size);
        if (reused == nullptr) {
            // A build that bypasses the pool knows no next block.
            EXPECT_EQ(announced, nullptr);
        } else {
            EXPECT_EQ(reused, first) << "a released block is the next one given";
            EXPECT_TRUE(announced == nullptr || announced == second);
            EXPECT_EQ(ZVTPool::Allocate(size), first);
            ZVTPool::Release(first, size);
        }
        ZVTPool::Release(second, size);
    }
    EXPECT_EQ(ZVTPool::NextBlock(0), nullptr);
    EXPECT_EQ(ZVTPool::NextBlock(4096), nullptr) << "large blocks come from the general heap";
}

// Once every block of a class is back, the next ones are carved again in address order, as the first
// were: a model made after another died gets neighbours in memory, not the dead one's scattered blocks.
TEST(ZVTPoolTest, AClassEmptiedIsCarvedAgainInOrder) {
    constexpr std::size_t size = 488;  // a class nothing else in this program uses
    std::vector<void*> first(2000), again(first.size());
    for (void*& block : first)
        block = ZVTPool::AllocatePacked(size);
    std::vector<void*> dying = first;
    std::shuffle(dying.begin(), dying.end(), std::mt19937(5));
    for (void* block : dying)
        ZVTPool::ReleasePacked(block, size);
    for (void*& block : again)
        block = ZVTPool::AllocatePacked(size);
#if !defined(__SANITIZE_ADDRESS__)  // the general heap promises no order
    EXPECT_EQ(again, first);
#endif
    for (void* block : again)
        ZVTPool::ReleasePacked(block, size);
}

// Packed blocks take their size rounded to 8, keep the alignment their size allows, and never mix with
// Allocate's 16-byte-aligned blocks: a freed packed 24 must not come back from Allocate(24).
TEST(ZVTPoolTest, PackedBlocksAreAsLargeAsTheirSizeAndAlignedAsItAllows) {
    for (std::size_t size : {8u, 20u, 24u, 40u, 48u, 56u, 200u, 512u, 600u}) {
        SCOPED_TRACE(size);
        const std::size_t rounded = (size + 7) / 8 * 8;
        // Keeps the class from emptying, which would have it carved again from its first slab.
        void* keeper = ZVTPool::AllocatePacked(size);
        std::vector<unsigned char*> blocks(300);
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            blocks[i] = static_cast<unsigned char*>(ZVTPool::AllocatePacked(size));
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i]) % (rounded % 16 == 0 ? 16 : 8), 0u);
            std::memset(blocks[i], static_cast<int>(i), size);
        }
        std::vector<unsigned char*> sorted(blocks);
        std::sort(sorted.begin(), sorted.end());
        std::size_t closest = SIZE_MAX;
        for (std::size_t i = 1; i < sorted.size(); ++i)
            closest = std::min(closest, static_cast<std::size_t>(sorted[i] - sorted[i - 1]));
        ASSERT_GE(closest, size) << "blocks overlap";
        const bool pooled = ZVTPool::NextPackedBlock(size) != nullptr;
        if (pooled) {
            EXPECT_EQ(closest, rounded) << "a slab's blocks lie side by side";
        }
        for (std::size_t i = 0; i < blocks.size(); ++i)
            ASSERT_EQ(std::count(blocks[i], blocks[i] + size, static_cast<unsigned char>(i)),
                      static_cast<std::ptrdiff_t>(size));
        for (unsigned char* block : blocks)
            ZVTPool::ReleasePacked(block, size);
        if (pooled) {
            EXPECT_EQ(ZVTPool::NextPackedBlock(size), blocks.back())
                << "a released block is the next one given";
            void* aligned = ZVTPool::Allocate(size);
            EXPECT_EQ(aligned == blocks.back(), rounded % 16 == 0)
                << "only a multiple of 16 shares its class";
            ZVTPool::Release(aligned, size);
        }
        ZVTPool::ReleasePacked(keeper, size);
    }
    ZVTPool::ReleasePacked(nullptr, 24);
    EXPECT_EQ(ZVTPool::NextPackedBlock(0), nullptr);
}
