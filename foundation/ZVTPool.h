#ifndef ZVTPOOL_H
#define ZVTPOOL_H

#include <cstddef>

#include "foundation/ZVTExport.h"

/// Small blocks for the many little objects of a model (objects, properties, subscriptions), carved from
/// large slabs in size classes up to 512 bytes and recycled through one free list per class: classes 16
/// bytes apart for blocks that must be 16-aligned, 8 bytes apart for packed ones. It saves the general
/// heap's per-block header and its work on freeing millions of blocks; the slabs are kept for reuse until
/// the process ends, so memory once used by a model stays with the pool. A class whose every block has
/// come back is carved again from its first slab, so the next model's blocks lie in the order they are
/// made rather than in the order the last one died. Larger blocks go to the general
/// heap. Single-threaded like the rest of the library. Builds with address
/// sanitizing use the general heap for every block, so that a late use of a freed block is caught.
///
/// A class's slabs double from 64 KB up to 2 MB. Slabs of 2 MB, and the large blocks of AllocateLarge,
/// are asked of the system as huge pages where it offers them: a large model is reached at random, and
/// with small pages nearly every such access also misses the address translation cache.
class MODELCORE_API ZVTPool {
public:
    /// A block of at least `size` bytes, aligned for any object of up to 16-byte alignment.
    static void* Allocate(std::size_t size);
    /// Gives back a block from Allocate with the same `size`.
    static void Release(void* block, std::size_t size) noexcept;
    /// A block of `size` rounded up to 8 bytes, for an object of exactly that size: aligned to 16 when
    /// the rounded size is a multiple of 16, else to 8, which suits every type, as a type's size is a
    /// multiple of its alignment. A 24-byte item thus takes 24 bytes, not 32.
    static void* AllocatePacked(std::size_t size);
    /// Gives back a block from AllocatePacked with the same `size`.
    static void ReleasePacked(void* block, std::size_t size) noexcept;
    /// NextBlock for AllocatePacked.
    static const void* NextPackedBlock(std::size_t size);
    /// The block the next Allocate of `size` will give, when the pool knows it already; null otherwise.
    /// Only for asking the processor to load what goes with it: the block is not reserved.
    static const void* NextBlock(std::size_t size);

    /// A block of `size` bytes for a large table, aligned as ::operator new aligns; from the general heap
    /// below 2 MB.
    static void* AllocateLarge(std::size_t size);
    /// Gives back a block from AllocateLarge with the same `size`.
    static void ReleaseLarge(void* block, std::size_t size) noexcept;

    /// The bytes held in mappings of their own (huge slabs and large blocks), which the general heap's
    /// statistics do not count.
    static std::size_t MappedBytes();
};

#endif
