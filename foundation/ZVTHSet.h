#ifndef ZVTHSET_H
#define ZVTHSET_H

#include <cstddef>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTHashCore.h"

namespace zvt_detail {

/// The key of a set entry is the entry.
struct SelfKey {
    template <class T>
    static const T& Get(const T& entry) {
        return entry;
    }
};

/// What ZVTHSetT and ZVTHTableT share; Unique says whether an equal value may stand twice.
template <class T, bool Unique>
class HashBag {
public:
    /// The caller's hash of a value; the container mixes it further.
    using HashFn = unsigned int (*)(const T&);

    /// An empty container that will start with room for about buckets slots.
    /// An empty bag with room for about buckets values at first; `localityBits` as for HashCore.
    explicit HashBag(HashFn hash, size_t buckets = 64, unsigned int localityBits = 0)
        : m_xCore(hash, buckets, localityBits) {}

    /// Adds value; false (and nothing added) when a set already holds it.
    ZVTBoolean Insert(const T& value) { return m_xCore.Emplace(Unique, value, value).second; }
    /// True when an equal value is there.
    ZVTBoolean Contains(const T& value) const { return m_xCore.Find(value) != Core::npos; }
    /// Removes one equal value; false when there is none.
    ZVTBoolean Remove(const T& value) { return m_xCore.Erase(value); }
    /// Loads the place of value ahead of an insertion or look-up that is coming; changes nothing.
    void Prefetch(const T& value) const { m_xCore.Prefetch(value); }
    /// The number of values, counting repeats.
    size_t Entries() const { return m_xCore.Size(); }
    /// True when there is no value.
    ZVTBoolean IsEmpty() const { return m_xCore.Size() == 0; }
    /// Removes every value and frees the table.
    void Clear() { m_xCore.Clear(); }

protected:
    template <class, class>
    friend class HashBagIter;
    using Core = HashCore<T, T, SelfKey>;
    Core m_xCore;
};

/// A cursor over every value of a HashBag exactly once (repeats once each), in an unspecified order. It
/// starts before the first value; past the last it answers false and starts over on the next step.
/// Inserting or removing while it walks is undefined; Key off the values throws std::out_of_range.
template <class Bag, class T>
class HashBagIter {
public:
    /// A cursor before the first value of bag.
    explicit HashBagIter(Bag& bag) : m_pxBag(&bag) {}
    /// Moves to the next value; false past the last.
    ZVTBoolean operator++() { return m_xCursor.Advance(m_pxBag->m_xCore); }
    /// The current value.
    const T& Key() const { return m_pxBag->m_xCore.At(m_xCursor.Slot()); }
    /// Goes back before the first value.
    void Reset() { m_xCursor.Reset(); }

private:
    Bag* m_pxBag;
    HashCursor m_xCursor;
};

}  // namespace zvt_detail

/// A hashed set made with the caller's hash function: each value stands once. The bucket count is only
/// the initial size; the table grows, so every operation stays O(1) at any size.
template <class T>
class ZVTHSetT : public zvt_detail::HashBag<T, true> {
public:
    using zvt_detail::HashBag<T, true>::HashBag;
};

/// A hashed multiset made with the caller's hash function: equal values may stand more than once.
template <class T>
class ZVTHTableT : public zvt_detail::HashBag<T, false> {
public:
    using zvt_detail::HashBag<T, false>::HashBag;

    /// How many times an equal value stands in the table.
    size_t Occurrences(const T& value) const { return this->m_xCore.Count(value); }
};

/// A cursor over a ZVTHSetT; see HashBagIter.
template <class T>
class ZVTHSetIterT : public zvt_detail::HashBagIter<ZVTHSetT<T>, T> {
public:
    /// A cursor before the first value of set.
    explicit ZVTHSetIterT(ZVTHSetT<T>& set) : zvt_detail::HashBagIter<ZVTHSetT<T>, T>(set) {}
};

/// A cursor over a ZVTHTableT, visiting each repeat of a value; see HashBagIter.
template <class T>
class ZVTHTableIterT : public zvt_detail::HashBagIter<ZVTHTableT<T>, T> {
public:
    /// A cursor before the first value of table.
    explicit ZVTHTableIterT(ZVTHTableT<T>& table) : zvt_detail::HashBagIter<ZVTHTableT<T>, T>(table) {}
};

#endif
