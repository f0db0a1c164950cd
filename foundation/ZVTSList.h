#ifndef ZVTSLIST_H
#define ZVTSLIST_H

#include "foundation/ZVTListCore.h"
#include "foundation/ZVTReference.h"

/// A list of values copied in, in order; equal values may stand more than once. Both ends, indexing and
/// an empty list are cheap; Remove, Contains and InsertAt in the middle are linear.
template <class T>
class ZVTSList : public zvt_detail::ListCore<T> {
public:
    /// An empty list.
    ZVTSList() = default;
    /// A copy of the other's elements.
    ZVTSList(const ZVTSList&) = default;
    /// Takes the other's elements; the other is left empty.
    ZVTSList(ZVTSList&&) noexcept = default;
    /// Replaces the elements by a copy of the other's.
    ZVTSList& operator=(const ZVTSList&) = default;
    /// Takes the other's elements.
    ZVTSList& operator=(ZVTSList&&) noexcept = default;
    /// Virtual so that classes built on a list are destroyed whole.
    virtual ~ZVTSList() = default;
};

/// A forward cursor on a ZVTSList; mutating the list while it walks is undefined.
template <class T>
class ZVTSListIter : public zvt_detail::ListCursor<ZVTSList<T>, T> {
public:
    /// A cursor before the first element of list.
    explicit ZVTSListIter(ZVTSList<T>& list) : zvt_detail::ListCursor<ZVTSList<T>, T>(list) {}
};

/// A ZVTSListIter that a ZVTReferenceUser can hold and destroy.
template <class T>
class ZVTSListRCIterT : public ZVTSListIter<T>, public ZVTReference {
public:
    /// A cursor before the first element of list, not yet counted.
    explicit ZVTSListRCIterT(ZVTSList<T>& list) : ZVTSListIter<T>(list) {}
};

#endif
