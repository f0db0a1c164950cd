// The small-block pool, for pooled sizes and those beyond, and the blocks for large tables.

#include "foundation/ZVTPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

// A sanitizer build hands every block to the general heap; elsewhere on Linux the pool maps huge pages
// itself (the memory figures of the benchmarks count on MappedBytes).
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPools = false, kMapsItself = false;
#elif defined(__linux__)
constexpr bool kPools = true, kMapsItself = true;
#else
constexpr bool kPools = true, kMapsItself = false;
#endif
constexpr std::size_t kLargestPooled = 512;

bool Aligned(const void* block, std::size_t alignment) {
    return reinterpret_cast<std::uintptr_t>(block) % alignment == 0;
}

// Once every block of a class is back, the next ones are carved again in address order, as the first
// were: a model made after another died gets neighbours in memory, not the dead one's scattered blocks.
TEST(ZVTPoolTest, AClassEmptiedIsCarvedAgainInOrder) {
    constexpr std::size_t size = 488;  // a class nothing else in this program uses
    std::vector<void*> first(2000), again(first.size());
    for (void*& block : first)
        block = ZVTPool::AllocatePacked(size);
    for (std::size_t i = 0; i < first.size(); ++i)
        ZVTPool::ReleasePacked(first[i * 7 % first.size()], size);  // in a scattered order
    for (void*& block : again)
        block = ZVTPool::AllocatePacked(size);
    EXPECT_TRUE(!kPools || again == first);  // the general heap promises no order
    for (void* block : again)
        ZVTPool::ReleasePacked(block, size);
}

TEST(ZVTPoolTest, LargeBlocksAreWholeOnEitherSideOfTheHugeSize) {
    constexpr std::size_t huge = std::size_t{2} << 20;
    for (std::size_t size : {std::size_t{1000}, huge, (std::size_t{5} << 20) + 3}) {
        SCOPED_TRACE(size);
        const std::size_t mappedBefore = ZVTPool::MappedBytes();
        unsigned char* blocks[2];
        for (unsigned char*& block : blocks)
            block = static_cast<unsigned char*>(ZVTPool::AllocateLarge(size));
        const std::size_t mapped = kMapsItself && size >= huge ? 2 * ((size + huge - 1) / huge * huge) : 0;
        EXPECT_EQ(ZVTPool::MappedBytes() - mappedBefore, mapped);
        for (int i : {0, 1})
            std::memset(blocks[i], 0xA5 + i, size);
        for (int i : {0, 1}) {
            EXPECT_TRUE(Aligned(blocks[i], 16));
            EXPECT_EQ(std::count(blocks[i], blocks[i] + size, 0xA5 + i), static_cast<std::ptrdiff_t>(size));
            ZVTPool::ReleaseLarge(blocks[i], size);
        }
        EXPECT_EQ(ZVTPool::MappedBytes(), mappedBefore);
    }
    ZVTPool::ReleaseLarge(nullptr, 8);
}

// Blocks are aligned, never overlap, keep their contents, lie side by side in a slab and come back once
// released. Aligned blocks round their size to 16, packed ones to 8 and keep the alignment that allows;
// the two kinds share a class only where both round alike: a freed packed 24 must not come back as a 32.
TEST(ZVTPoolTest, BlocksAreAlignedDistinctAnnouncedAndGivenAgainOnceReleased) {
    struct Kind {
        const char* name;
        void* (*allocate)(std::size_t);
        void (*release)(void*, std::size_t) noexcept;
        const void* (*next)(std::size_t);
        std::size_t grain;
    };
    const Kind kinds[] = {
        {"aligned", ZVTPool::Allocate, ZVTPool::Release, ZVTPool::NextBlock, 16},
        {"packed", ZVTPool::AllocatePacked, ZVTPool::ReleasePacked, ZVTPool::NextPackedBlock, 8},
    };
    for (const Kind& kind : kinds) {
        const Kind& other = kinds[&kind == kinds ? 1 : 0];
        for (std::size_t size : {8u, 20u, 24u, 40u, 200u, 512u, 600u}) {
            SCOPED_TRACE(std::string(kind.name) + " " + std::to_string(size));
            const std::size_t rounded = (size + kind.grain - 1) / kind.grain * kind.grain;
            const bool pooled = kPools && size <= kLargestPooled;
            // Keeps the class from emptying, which would have it carved again from its first slab.
            void* keeper = kind.allocate(size);
            // Enough of 200 to go through every slab size into several huge slabs, where a slab cut wrongly
            // from its mapping would overlap another.
            std::vector<unsigned char*> blocks(size == 200 ? 40000 : 300);
            for (std::size_t i = 0; i < blocks.size(); ++i) {
                const void* announced = kind.next(size);
                blocks[i] = static_cast<unsigned char*>(kind.allocate(size));
                ASSERT_TRUE(announced == nullptr || announced == blocks[i]);
                ASSERT_TRUE(Aligned(blocks[i], rounded % 16 == 0 ? 16 : 8));
                std::memset(blocks[i], static_cast<int>(i), size);
            }
            std::vector<unsigned char*> sorted(blocks);
            std::sort(sorted.begin(), sorted.end());
            std::size_t closest = SIZE_MAX;
            for (std::size_t i = 1; i < sorted.size(); ++i)
                closest = std::min(closest, static_cast<std::size_t>(sorted[i] - sorted[i - 1]));
            ASSERT_GE(closest, size) << "blocks overlap";
            EXPECT_TRUE(!pooled || closest == rounded) << "a slab's blocks lie side by side: " << closest;
            for (std::size_t i = 0; i < blocks.size(); ++i)
                ASSERT_EQ(std::count(blocks[i], blocks[i] + size, static_cast<unsigned char>(i)),
                          static_cast<std::ptrdiff_t>(size));
            for (unsigned char* block : blocks)
                kind.release(block, size);
            EXPECT_EQ(kind.next(size), pooled ? blocks.back() : nullptr) << "the released block is next";
            void* fromOther = other.allocate(size);
            EXPECT_EQ(fromOther == blocks.back(), pooled && (size + 7) / 8 * 8 == (size + 15) / 16 * 16);
            other.release(fromOther, size);
            kind.release(keeper, size);
        }
        EXPECT_EQ(kind.next(0), nullptr);
        kind.release(nullptr, 24);
    }
}

}  // namespace
