#ifndef ZVTHASHCORE_H
#define ZVTHASHCORE_H

// Shared by ZVTHDict, ZVTHSetT and ZVTHTableT; not for direct use.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "foundation/ZVTPool.h"

namespace zvt_detail {

/// Whether the first byte in memory of a word is its lowest: then a word's lowest set bit names the first
/// byte that has it.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr bool c_bLittleEndian = true;
#else
constexpr bool c_bLittleEndian = false;
#endif

/// Spreads a caller's hash over all 64 bits (a 64-bit finalizer): identity hashes of ids and pointers
/// come in runs and strides that would otherwise pile up in a few places of a power-of-two table.
inline std::uint64_t MixHash(unsigned int hash) {
    std::uint64_t x = hash;
    x *= 0xff51afd7ed558ccdULL;
    x ^= x >> 33;
    x *= 0xc4ceb9fe1a85ec53ULL;
    x ^= x >> 33;
    return x;
}

/// Keeps hashes that differ only in their low `localityBits` bits side by side, spreading the blocks
/// they form as MixHash spreads any hash: for keys whose neighbours in value are used together, such as
/// the addresses of objects made one after the other.
inline std::uint64_t LocalHash(unsigned int hash, unsigned int localityBits) {
    return (MixHash(hash >> localityBits) << localityBits) | (hash & ((1u << localityBits) - 1u));
}

/// Open addressing with linear probing on a power-of-two table, at most 3/4 full, with backward-shift
/// deletion (no tombstones). Entries live in place, beside one control byte per slot: 0 for empty,
/// otherwise 0x80 and seven bits of the mixed hash, which settles most mismatches without a key compare.
/// KeyOf::Get(entry) gives an entry's key. The table is allocated on the first insertion.
template <class Key, class Entry, class KeyOf>
class HashCore {
public:
    using HashFn = unsigned int (*)(const Key&);
    static constexpr size_t npos = static_cast<size_t>(-1);

    /// An empty table whose first allocation has room for about buckets slots; with `localityBits`,
    /// hashes are placed by LocalHash rather than MixHash. Only keys that stay sparse within such a block
    /// may ask for it: a block filled densely would form one long probe run.
    HashCore(HashFn hash, size_t buckets, unsigned int localityBits = 0)
        : m_pfHash(hash), m_nInitial(RoundUp(buckets)), m_nLocalityBits(localityBits) {}
    /// A copy of every entry.
    HashCore(const HashCore& other)
        : m_pfHash(other.m_pfHash), m_nInitial(other.m_nInitial), m_nLocalityBits(other.m_nLocalityBits) {
        if (other.m_nSize == 0)
            return;
        Allocate(other.Capacity());
        try {
            // Same capacity, same hash: every entry keeps its slot.
            for (size_t i = 0; i < Capacity(); ++i) {
                if (other.m_pcCtrl[i] == 0)
                    continue;
                new (&m_pxSlots[i]) Entry(other.m_pxSlots[i]);
                m_pcCtrl[i] = other.m_pcCtrl[i];
                ++m_nSize;
            }
        } catch (...) {
            Release();
            throw;
        }
    }
    /// Takes the other's entries; the other is left empty.
    HashCore(HashCore&& other) noexcept
        : m_pfHash(other.m_pfHash), m_nInitial(other.m_nInitial), m_nLocalityBits(other.m_nLocalityBits) {
        Swap(other);
    }
    /// Replaces the entries by a copy of the other's.
    HashCore& operator=(const HashCore& other) {
        if (this != &other) {
            HashCore copy(other);
            Swap(copy);
        }
        return *this;
    }
    /// Takes the other's entries.
    HashCore& operator=(HashCore&& other) noexcept {
        HashCore taken(std::move(other));
        Swap(taken);
        return *this;
    }
    /// Destroys every entry.
    ~HashCore() { Release(); }

    /// The number of entries.
    size_t Size() const { return m_nSize; }
    /// The number of slots; 0 before the first insertion.
    size_t Capacity() const { return m_pxSlots == nullptr ? 0 : m_nMask + 1; }

    /// The slot of an entry with key, or npos.
    size_t Find(const Key& key) const {
        if (m_nSize == 0)
            return npos;
        const std::uint64_t hash = Mix(key);
        for (size_t i = hash & m_nMask; m_pcCtrl[i] != 0; i = (i + 1) & m_nMask) {
            if (m_pcCtrl[i] == Tag(hash) && KeyOf::Get(m_pxSlots[i]) == key)
                return i;
        }
        return npos;
    }

    /// Asks the processor to load the home slot of key ahead of a look-up; it changes nothing, and is
    /// wasted if the table grows first.
    void Prefetch(const Key& key) const {
        if (m_pxSlots == nullptr)
            return;
        const size_t i = Mix(key) & m_nMask;
        __builtin_prefetch(&m_pcCtrl[i]);
        __builtin_prefetch(&m_pxSlots[i]);
    }

    /// The number of entries with key; they all stand in the probe run that starts at its home slot.
    size_t Count(const Key& key) const {
        if (m_nSize == 0)
            return 0;
        const std::uint64_t hash = Mix(key);
        size_t count = 0;
        for (size_t i = hash & m_nMask; m_pcCtrl[i] != 0; i = (i + 1) & m_nMask) {
            if (m_pcCtrl[i] == Tag(hash) && KeyOf::Get(m_pxSlots[i]) == key)
                ++count;
        }
        return count;
    }

    /// Builds an entry from args under key. With unique set and key already there, nothing is built and
    /// the existing entry is returned with false.
    template <class... Args>
    std::pair<Entry*, bool> Emplace(bool unique, const Key& key, Args&&... args) {
        Reserve(m_nSize + 1);
        const std::uint64_t hash = Mix(key);
        size_t i = hash & m_nMask;
        if (unique) {
            for (; m_pcCtrl[i] != 0; i = (i + 1) & m_nMask) {
                if (m_pcCtrl[i] == Tag(hash) && KeyOf::Get(m_pxSlots[i]) == key)
                    return {&m_pxSlots[i], false};
            }
        } else {
            i = FirstEmpty(i);
        }
        new (&m_pxSlots[i]) Entry(std::forward<Args>(args)...);
        m_pcCtrl[i] = Tag(hash);
        ++m_nSize;
        return {&m_pxSlots[i], true};
    }

    /// Removes the entry in slot and closes the gap by moving later entries of the run back.
    void EraseSlot(size_t slot) {
        Destroy(slot);
        --m_nSize;
        for (size_t j = (slot + 1) & m_nMask; m_pcCtrl[j] != 0; j = (j + 1) & m_nMask) {
            const size_t home = Mix(KeyOf::Get(m_pxSlots[j])) & m_nMask;
            // The entry may move into the gap only if the gap lies on its way from home to j.
            if (((j - home) & m_nMask) < ((j - slot) & m_nMask))
                continue;
            new (&m_pxSlots[slot]) Entry(std::move(m_pxSlots[j]));
            m_pcCtrl[slot] = m_pcCtrl[j];
            Destroy(j);
            slot = j;
        }
    }

    /// Removes one entry with key; false when there is none.
    bool Erase(const Key& key) {
        const size_t slot = Find(key);
        if (slot == npos)
            return false;
        EraseSlot(slot);
        return true;
    }

    /// Destroys every entry and frees the table; the next insertion starts at the initial size again.
    void Clear() {
        Release();
        m_nSize = 0;
    }

    /// Rehashes into room for buckets slots, or more if the entries need it.
    void Resize(size_t buckets) {
        if (m_pxSlots == nullptr) {
            m_nInitial = RoundUp(buckets);
            return;
        }
        size_t capacity = RoundUp(buckets);
        while (m_nSize * 4 > capacity * 3)
            capacity *= 2;
        if (capacity != Capacity())
            Rehash(capacity);
    }

    /// The first used slot at or after from, or npos.
    size_t NextUsed(size_t from) const {
        for (size_t i = from; i < Capacity(); ++i) {
            if (m_pcCtrl[i] != 0)
                return i;
        }
        return npos;
    }

    /// The entry in a used slot; throws std::out_of_range for any other slot.
    Entry& At(size_t slot) const {
        if (slot >= Capacity() || m_pcCtrl[slot] == 0)
            throw std::out_of_range("no current entry");
        return m_pxSlots[slot];
    }

private:
    static constexpr size_t c_nMinCapacity = 8;

    static size_t RoundUp(size_t buckets) {
        size_t capacity = c_nMinCapacity;
        while (capacity < buckets && capacity <= (npos >> 2))
            capacity *= 2;
        return capacity;
    }
    static std::uint8_t Tag(std::uint64_t hash) { return static_cast<std::uint8_t>(0x80 | (hash >> 57)); }
    // The first empty slot from `i` on, in probe order. A used slot's control byte has its top bit set, so
    // eight bytes are tested at once where they lie within the table: runs can be long where keys come in
    // blocks (LocalHash).
    size_t FirstEmpty(size_t i) const {
        const size_t capacity = m_nMask + 1;
        for (;;) {
            if (c_bLittleEndian && i + 8 <= capacity) {
                std::uint64_t word;
                std::memcpy(&word, m_pcCtrl + i, sizeof word);
                const std::uint64_t empty = ~word & 0x8080808080808080ULL;
                if (empty != 0)
                    return i + (static_cast<size_t>(__builtin_ctzll(empty)) >> 3);
                i = (i + 8) & m_nMask;
                continue;
            }
            if (m_pcCtrl[i] == 0)
                return i;
            i = (i + 1) & m_nMask;
        }
    }
    std::uint64_t Mix(const Key& key) const {
        const unsigned int hash = m_pfHash(key);
        return m_nLocalityBits == 0 ? MixHash(hash) : LocalHash(hash, m_nLocalityBits);
    }

    void Reserve(size_t size) {
        if (m_pxSlots != nullptr && size * 4 <= Capacity() * 3)
            return;
        size_t capacity = m_pxSlots == nullptr ? m_nInitial : Capacity();
        while (size * 4 > capacity * 3)
            capacity *= 2;
        if (m_pxSlots == nullptr) {
            Allocate(capacity);
        } else {
            Rehash(capacity);
        }
    }

    static size_t Bytes(size_t capacity) { return capacity * (sizeof(Entry) + 1); }

    void Allocate(size_t capacity) {
        static_assert(alignof(Entry) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "over-aligned entries");
        // One block: the slots, then their control bytes.
        void* block = ZVTPool::AllocateLarge(Bytes(capacity));
        m_pxSlots = static_cast<Entry*>(block);
        m_pcCtrl = reinterpret_cast<std::uint8_t*>(m_pxSlots + capacity);
        std::memset(m_pcCtrl, 0, capacity);
        m_nMask = capacity - 1;
    }

    void Rehash(size_t capacity) {
        Entry* oldSlots = m_pxSlots;
        std::uint8_t* oldCtrl = m_pcCtrl;
        const size_t oldCapacity = Capacity();
        Allocate(capacity);
        for (size_t i = 0; i < oldCapacity; ++i) {
            if (oldCtrl[i] == 0)
                continue;
            const size_t j = FirstEmpty(Mix(KeyOf::Get(oldSlots[i])) & m_nMask);
            new (&m_pxSlots[j]) Entry(std::move(oldSlots[i]));
            m_pcCtrl[j] = oldCtrl[i];
            oldSlots[i].~Entry();
        }
        ZVTPool::ReleaseLarge(oldSlots, Bytes(oldCapacity));
    }

    void Destroy(size_t slot) {
        m_pxSlots[slot].~Entry();
        m_pcCtrl[slot] = 0;
    }

    void Release() {
        if (m_pxSlots == nullptr)
            return;
        for (size_t i = 0; i < Capacity(); ++i) {
            if (m_pcCtrl[i] != 0)
                m_pxSlots[i].~Entry();
        }
        ZVTPool::ReleaseLarge(m_pxSlots, Bytes(Capacity()));
        m_pxSlots = nullptr;
        m_pcCtrl = nullptr;
        m_nMask = 0;
        m_nSize = 0;
    }

    void Swap(HashCore& other) noexcept {
        std::swap(m_pfHash, other.m_pfHash);
        std::swap(m_nInitial, other.m_nInitial);
        std::swap(m_nLocalityBits, other.m_nLocalityBits);
        std::swap(m_pxSlots, other.m_pxSlots);
        std::swap(m_pcCtrl, other.m_pcCtrl);
        std::swap(m_nMask, other.m_nMask);
        std::swap(m_nSize, other.m_nSize);
    }

    HashFn m_pfHash;
    size_t m_nInitial;  // capacity of the first allocation
    unsigned int m_nLocalityBits;
    Entry* m_pxSlots = nullptr;
    std::uint8_t* m_pcCtrl = nullptr;
    size_t m_nMask = 0;
    size_t m_nSize = 0;
};

/// A position in a HashCore: off the table at first, then on used slots in slot order.
class HashCursor {
public:
    /// Moves to the next used slot of core; false (and off the table) past the last.
    template <class Core>
    bool Advance(const Core& core) {
        m_nSlot = core.NextUsed(m_nSlot == Core::npos ? 0 : m_nSlot + 1);
        return m_nSlot != Core::npos;
    }
    /// The current slot, or npos off the table.
    size_t Slot() const { return m_nSlot; }
    /// Goes back off the table.
    void Reset() { m_nSlot = static_cast<size_t>(-1); }

private:
    size_t m_nSlot = static_cast<size_t>(-1);
};

}  // namespace zvt_detail

#endif
