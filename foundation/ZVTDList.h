#ifndef ZVTDLIST_H
#define ZVTDLIST_H

#include "foundation/ZVTListCore.h"

/// A list of values copied in, walked in both directions; the operations are those of ZVTSList.
template <class T>
class ZVTDList : public zvt_detail::ListCore<T> {
public:
    /// An empty list.
    ZVTDList() = default;
    /// A copy of the other's elements.
    ZVTDList(const ZVTDList&) = default;
    /// Takes the other's elements; the other is left empty.
    ZVTDList(ZVTDList&&) noexcept = default;
    /// Replaces the elements by a copy of the other's.
    ZVTDList& operator=(const ZVTDList&) = default;
    /// Takes the other's elements.
    ZVTDList& operator=(ZVTDList&&) noexcept = default;
    /// Virtual so that classes built on a list are destroyed whole.
    virtual ~ZVTDList() = default;
};

/// A cursor on a ZVTDList in both directions. From the start (or after passing an end) ++ enters at the
/// first element and -- at the last; mutating the list while it walks is undefined.
template <class T>
class ZVTDListIter : public zvt_detail::ListCursor<ZVTDList<T>, T> {
public:
    /// A cursor off the list.
    explicit ZVTDListIter(ZVTDList<T>& list) : zvt_detail::ListCursor<ZVTDList<T>, T>(list) {}
    /// Moves to the previous element; false before the first.
    ZVTBoolean operator--() { return this->StepBack(); }
};

#endif
