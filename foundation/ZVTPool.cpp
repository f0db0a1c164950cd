#include "foundation/ZVTPool.h"

#include <cstdint>
#include <new>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool c_bPool = false;
#else
constexpr bool c_bPool = true;
#endif

// Classes are 8 bytes apart; Allocate uses every second one, whose blocks stay 16-byte aligned, and
// AllocatePacked all of them, sharing the even ones with Allocate.
constexpr std::size_t c_nGrain = 8;
constexpr std::size_t c_nLargest = 512;
constexpr std::size_t c_nClasses = c_nLargest / c_nGrain;
constexpr std::size_t c_nFirstSlab = 64 * 1024;
constexpr std::size_t c_nHuge = 2 * 1024 * 1024;

struct FreeBlock {
    FreeBlock* m_pxNext;
};

struct Slab {
    char* m_pcBegin;
    std::size_t m_nBytes;
};

struct SizeClass {
    FreeBlock* m_pxFree = nullptr;
    char* m_pcNext = nullptr;  // the unused rest of the slab being carved
    char* m_pcEnd = nullptr;
    std::size_t m_nSlab = c_nFirstSlab;  // the size of the next slab
    std::size_t m_nLive = 0;             // blocks handed out and not given back
    std::size_t m_nCarving = 0;          // the index in m_xSlabs of the slab being carved
    std::vector<Slab> m_xSlabs;          // in the order they were made
};

SizeClass c_axClasses[c_nClasses];
std::size_t c_nMapped = 0;

// The slabs stay listed, and so reachable, until the process ends.
std::vector<void*>& Slabs() {
    static std::vector<void*>* slabs = new std::vector<void*>;
    return *slabs;
}

#if defined(__linux__) && defined(MADV_HUGEPAGE)
constexpr bool c_bHugePages = c_bPool;

// `size` bytes, a multiple of c_nHuge, on huge-page boundaries and marked for huge pages; null when the
// system has no memory for it.
void* MapHuge(std::size_t size) {
    // Map one huge page more than asked, then cut the ends off so that the rest starts on a boundary.
    void* mapped = mmap(nullptr, size + c_nHuge, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED)
        return nullptr;
    const auto begin = reinterpret_cast<std::uintptr_t>(mapped);
    const std::uintptr_t aligned = (begin + c_nHuge - 1) & ~static_cast<std::uintptr_t>(c_nHuge - 1);
    if (aligned != begin)
        munmap(mapped, aligned - begin);
    if (const std::size_t tail = begin + c_nHuge - aligned)
        munmap(reinterpret_cast<void*>(aligned + size), tail);
    void* block = reinterpret_cast<void*>(aligned);
    madvise(block, size, MADV_HUGEPAGE);  // a hint: where it is not taken the pages are merely small
    c_nMapped += size;
    return block;
}

void UnmapHuge(void* block, std::size_t size) {
    munmap(block, size);
    c_nMapped -= size;
}
#else
// Never called: every caller asks c_bHugePages first.
constexpr bool c_bHugePages = false;
void* MapHuge(std::size_t) {
    return nullptr;
}
void UnmapHuge(void*, std::size_t) {}
#endif

std::size_t RoundToHuge(std::size_t size) {
    return (size + c_nHuge - 1) & ~(c_nHuge - 1);
}

// The class of an Allocate block of `size` (1..c_nLargest): its size rounded up to 16.
std::size_t AlignedClass(std::size_t size) {
    return (size - 1) / 16 * 2 + 1;
}

// The class of an AllocatePacked block of `size` (1..c_nLargest): its size rounded up to 8.
std::size_t PackedClass(std::size_t size) {
    return (size - 1) / c_nGrain;
}

// Makes the slab after the one being carved the one to carve: the next of those already made, else a new
// one.
void NextSlab(SizeClass& sizeClass) {
    const std::size_t next = sizeClass.m_xSlabs.empty() ? 0 : sizeClass.m_nCarving + 1;
    if (next == sizeClass.m_xSlabs.size()) {
        const std::size_t bytes = sizeClass.m_nSlab;
        // Room first, so that a failure below leaves nothing to undo.
        sizeClass.m_xSlabs.reserve(next + 1);
        char* slab = c_bHugePages && bytes == c_nHuge ? static_cast<char*>(MapHuge(bytes)) : nullptr;
        if (slab == nullptr) {
            Slabs().reserve(Slabs().size() + 1);
            slab = static_cast<char*>(::operator new(bytes));
            Slabs().push_back(slab);
        }
        sizeClass.m_xSlabs.push_back(Slab{slab, bytes});
        if (bytes < c_nHuge)
            sizeClass.m_nSlab = bytes * 2;
    }
    sizeClass.m_nCarving = next;
    sizeClass.m_pcNext = sizeClass.m_xSlabs[next].m_pcBegin;
    sizeClass.m_pcEnd = sizeClass.m_pcNext + sizeClass.m_xSlabs[next].m_nBytes;
}

bool HasRoom(const SizeClass& sizeClass, std::size_t blockSize) {
    return sizeClass.m_pcNext != nullptr &&
           static_cast<std::size_t>(sizeClass.m_pcEnd - sizeClass.m_pcNext) >= blockSize;
}

void* Carve(SizeClass& sizeClass, std::size_t blockSize) {
    void* block = sizeClass.m_pcNext;
    sizeClass.m_pcNext += blockSize;
    ++sizeClass.m_nLive;
    return block;
}

// Carves a block from the next slab with room. Out of line and reached by a tail call: inlined, the
// registers it needs would be saved and restored on every allocation.
[[gnu::noinline]] void* CarveFromNextSlab(SizeClass& sizeClass, std::size_t blockSize) {
    while (!HasRoom(sizeClass, blockSize))
        NextSlab(sizeClass);
    return Carve(sizeClass, blockSize);
}

void* AllocateIn(std::size_t index) {
    SizeClass& sizeClass = c_axClasses[index];
    if (FreeBlock* block = sizeClass.m_pxFree) {
        sizeClass.m_pxFree = block->m_pxNext;
        // Blocks freed by a large expunge lie anywhere: the next one of the class is loaded while this one
        // is used, so the next allocation finds it at hand.
        if (block->m_pxNext)
            __builtin_prefetch(block->m_pxNext, 1);
        ++sizeClass.m_nLive;
        return block;
    }
    const std::size_t blockSize = (index + 1) * c_nGrain;
    if (!HasRoom(sizeClass, blockSize))
        return CarveFromNextSlab(sizeClass, blockSize);
    return Carve(sizeClass, blockSize);
}

void ReleaseIn(void* block, std::size_t index) noexcept {
    SizeClass& sizeClass = c_axClasses[index];
    if (--sizeClass.m_nLive != 0 || sizeClass.m_xSlabs.empty()) {
        sizeClass.m_pxFree = ::new (block) FreeBlock{sizeClass.m_pxFree};
        return;
    }
    // The last block of the class came back: the free list would hand out its blocks in the order a
    // model died, scattered over the slabs. Carved again from the first slab on, the next model's
    // objects lie in the order they are made, neighbours in memory as they were in the first.
    sizeClass.m_pxFree = nullptr;
    sizeClass.m_nCarving = 0;
    sizeClass.m_pcNext = sizeClass.m_xSlabs.front().m_pcBegin;
    sizeClass.m_pcEnd = sizeClass.m_pcNext + sizeClass.m_xSlabs.front().m_nBytes;
}

const void* NextIn(std::size_t index) {
    const SizeClass& sizeClass = c_axClasses[index];
    if (sizeClass.m_pxFree)
        return sizeClass.m_pxFree;
    const std::size_t blockSize = (index + 1) * c_nGrain;
    if (HasRoom(sizeClass, blockSize))
        return sizeClass.m_pcNext;
    return nullptr;
}

bool IsPooled(std::size_t size) {
    return c_bPool && size != 0 && size <= c_nLargest;
}

}  // namespace

void* ZVTPool::Allocate(std::size_t size) {
    return IsPooled(size) ? AllocateIn(AlignedClass(size)) : ::operator new(size);
}

void ZVTPool::Release(void* block, std::size_t size) noexcept {
    if (block == nullptr)
        return;
    if (IsPooled(size))
        ReleaseIn(block, AlignedClass(size));
    else
        ::operator delete(block);
}

const void* ZVTPool::NextBlock(std::size_t size) {
    return IsPooled(size) ? NextIn(AlignedClass(size)) : nullptr;
}

void* ZVTPool::AllocatePacked(std::size_t size) {
    return IsPooled(size) ? AllocateIn(PackedClass(size)) : ::operator new(size);
}

void ZVTPool::ReleasePacked(void* block, std::size_t size) noexcept {
    if (block == nullptr)
        return;
    if (IsPooled(size))
        ReleaseIn(block, PackedClass(size));
    else
        ::operator delete(block);
}

const void* ZVTPool::NextPackedBlock(std::size_t size) {
    return IsPooled(size) ? NextIn(PackedClass(size)) : nullptr;
}

void* ZVTPool::AllocateLarge(std::size_t size) {
    if (!c_bHugePages || size < c_nHuge)
        return ::operator new(size);
    void* block = MapHuge(RoundToHuge(size));
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void ZVTPool::ReleaseLarge(void* block, std::size_t size) noexcept {
    if (block == nullptr)
        return;
    if (!c_bHugePages || size < c_nHuge) {
        ::operator delete(block);
        return;
    }
    UnmapHuge(block, RoundToHuge(size));
}

std::size_t ZVTPool::MappedBytes() {
    return c_nMapped;
}
