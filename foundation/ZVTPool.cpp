#include "foundation/ZVTPool.h"

#include <new>
#include <vector>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool c_bPool = false;
#else
constexpr bool c_bPool = true;
#endif

constexpr std::size_t c_nGrain = 16;
constexpr std::size_t c_nLargest = 512;
constexpr std::size_t c_nClasses = c_nLargest / c_nGrain;
constexpr std::size_t c_nSlab = 64 * 1024;

struct FreeBlock {
    FreeBlock* m_pxNext;
};

struct SizeClass {
    FreeBlock* m_pxFree = nullptr;
    char* m_pcNext = nullptr;  // the unused rest of the newest slab
    char* m_pcEnd = nullptr;
};

SizeClass c_axClasses[c_nClasses];

// The slabs stay listed, and so reachable, until the process ends.
std::vector<void*>& Slabs() {
    static std::vector<void*>* slabs = new std::vector<void*>;
    return *slabs;
}

}  // namespace

void* ZVTPool::Allocate(std::size_t size) {
    if (!c_bPool || size == 0 || size > c_nLargest)
        return ::operator new(size);
    const std::size_t index = (size - 1) / c_nGrain;
    SizeClass& sizeClass = c_axClasses[index];
    if (FreeBlock* block = sizeClass.m_pxFree) {
        sizeClass.m_pxFree = block->m_pxNext;
        return block;
    }
    const std::size_t blockSize = (index + 1) * c_nGrain;
    if (sizeClass.m_pcNext == nullptr ||
        static_cast<std::size_t>(sizeClass.m_pcEnd - sizeClass.m_pcNext) < blockSize) {
        char* slab = static_cast<char*>(::operator new(c_nSlab));
        Slabs().push_back(slab);
        sizeClass.m_pcNext = slab;
        sizeClass.m_pcEnd = slab + c_nSlab;
    }
    void* block = sizeClass.m_pcNext;
    sizeClass.m_pcNext += blockSize;
    return block;
}

void ZVTPool::Release(void* block, std::size_t size) noexcept {
    if (block == nullptr)
        return;
    if (!c_bPool || size == 0 || size > c_nLargest) {
        ::operator delete(block);
        return;
    }
    SizeClass& sizeClass = c_axClasses[(size - 1) / c_nGrain];
    sizeClass.m_pxFree = ::new (block) FreeBlock{sizeClass.m_pxFree};
}
