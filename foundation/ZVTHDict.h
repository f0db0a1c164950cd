#ifndef ZVTHDICT_H
#define ZVTHDICT_H

#include <cstddef>
#include <utility>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTHashCore.h"

/// A hashed dictionary, one value per key, made with the caller's hash function. The bucket count is
/// only the initial size: the table grows, so every operation stays O(1) at any size.
template <class K, class V>
class ZVTHDict {
public:
    /// The caller's hash of a key; the dictionary mixes it further.
    using HashFn = unsigned int (*)(const K&);

    /// An empty dictionary that will start with room for about buckets slots.
    explicit ZVTHDict(HashFn hash, size_t buckets = 64) : m_xCore(hash, buckets) {}
    /// The same, keeping keys whose hashes differ only in their low `localityBits` bits side by side (see
    /// LocalHash), so that keys met together are placed together.
    ZVTHDict(HashFn hash, size_t buckets, unsigned int localityBits) : m_xCore(hash, buckets, localityBits) {}

    /// Removes every entry and frees the table.
    void Clear() { m_xCore.Clear(); }
    /// True when key is there.
    ZVTBoolean Contains(const K& key) const { return m_xCore.Find(key) != Core::npos; }
    /// Removes key and its value; false when key is not there.
    ZVTBoolean Remove(const K& key) { return m_xCore.Erase(key); }
    /// Removes key only while it holds `expected`, in one probe; false otherwise.
    ZVTBoolean Remove(const K& key, const V& expected) {
        const size_t slot = m_xCore.Find(key);
        if (slot == Core::npos || !(m_xCore.At(slot).second == expected))
            return false;
        m_xCore.EraseSlot(slot);
        return true;
    }
    /// Copies the value of key into value and answers true; without key answers false and leaves value
    /// untouched.
    ZVTBoolean Find(const K& key, V& value) const {
        const size_t slot = m_xCore.Find(key);
        if (slot == Core::npos)
            return false;
        value = m_xCore.At(slot).second;
        return true;
    }
    /// The value of key in place, or nullptr; valid until the next insertion or removal.
    V* FindPtr(const K& key) {
        const size_t slot = m_xCore.Find(key);
        return slot == Core::npos ? nullptr : &m_xCore.At(slot).second;
    }
    /// The value of key in place, storing value under key first when key had none; the flag tells whether
    /// it did. The pointer is valid until the next insertion or removal. One probe where Find and Insert
    /// take two.
    std::pair<V*, bool> FindOrInsert(const K& key, const V& value) {
        auto placed = m_xCore.Emplace(true, key, key, value);
        return {&placed.first->second, placed.second};
    }
    /// Loads the place of key ahead of a look-up that is coming; changes nothing.
    void Prefetch(const K& key) const { m_xCore.Prefetch(key); }
    /// The number of entries.
    size_t Entries() const { return m_xCore.Size(); }
    /// Stores value under key, replacing the value that key had.
    void Insert(const K& key, const V& value) {
        auto placed = m_xCore.Emplace(true, key, key, value);
        if (!placed.second)
            placed.first->second = value;
    }
    /// Rehashes into about buckets slots, never fewer than the entries need.
    void Resize(size_t buckets) { m_xCore.Resize(buckets); }
    /// True when there is no entry.
    ZVTBoolean IsEmpty() const { return m_xCore.Size() == 0; }

private:
    template <class, class>
    friend class ZVTHDictIter;
    struct KeyOf {
        static const K& Get(const std::pair<K, V>& entry) { return entry.first; }
    };
    using Core = zvt_detail::HashCore<K, std::pair<K, V>, KeyOf>;

    Core m_xCore;
};

/// A cursor over every entry of a ZVTHDict exactly once, in an unspecified order. It starts before the
/// first entry; past the last it answers false and starts over on the next step. Inserting or removing
/// while it walks is undefined; Key and Value off the entries throw std::out_of_range.
template <class K, class V>
class ZVTHDictIter {
public:
    /// A cursor before the first entry of dict.
    explicit ZVTHDictIter(ZVTHDict<K, V>& dict) : m_pxDict(&dict) {}
    /// Moves to the next entry; false past the last.
    ZVTBoolean operator++() { return m_xCursor.Advance(m_pxDict->m_xCore); }
    /// The current key.
    const K& Key() const { return m_pxDict->m_xCore.At(m_xCursor.Slot()).first; }
    /// The current value, which may be changed in place.
    V& Value() const { return m_pxDict->m_xCore.At(m_xCursor.Slot()).second; }
    /// Goes back before the first entry.
    void Reset() { m_xCursor.Reset(); }

private:
    ZVTHDict<K, V>* m_pxDict;
    zvt_detail::HashCursor m_xCursor;
};

#endif
