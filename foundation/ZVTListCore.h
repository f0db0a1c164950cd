#ifndef ZVTLISTCORE_H
#define ZVTLISTCORE_H

// Shared by ZVTSList and ZVTDList; not for direct use.

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

#include "foundation/ZVTBoolean.h"

namespace zvt_detail {

/// The values of a list in order, in one array. RemoveFirst, and any removal in the front half, leaves a
/// dead prefix that is dropped once it is half the array, so both ends cost O(1) amortized and an empty
/// list allocates nothing.
template <class T>
class ListCore {
public:
    /// Adds value at the end; equal values may stand more than once.
    void Append(const T& value) { m_xItems.push_back(value); }
    /// Removes every element and frees the storage.
    void Clear() {
        std::vector<T>().swap(m_xItems);
        m_nHead = 0;
    }
    /// True when an element equals value.
    ZVTBoolean Contains(const T& value) const {
        return std::find(Begin(), m_xItems.end(), value) != m_xItems.end();
    }
    /// Removes the first element equal to value; false when there is none.
    ZVTBoolean Remove(const T& value) {
        auto found = std::find(Begin(), m_xItems.end(), value);
        if (found == m_xItems.end())
            return false;
        RemoveAt(static_cast<size_t>(found - Begin()));
        return true;
    }
    /// Removes the element at index, moving whichever side of it is shorter; throws std::out_of_range
    /// when index >= Entries().
    void RemoveAt(size_t index) {
        if (index >= Entries())
            throw std::out_of_range("list index out of range");
        const auto at = Begin() + static_cast<std::ptrdiff_t>(index);
        if (index < Entries() / 2) {
            // The front moves up one place and its first slot joins the dead prefix.
            std::move_backward(Begin(), at, at + 1);
            ++m_nHead;
        } else {
            m_xItems.erase(at);
        }
        Compact();
    }
    /// Makes room for `count` elements in all, so that appends up to that many move nothing.
    void Reserve(size_t count) { m_xItems.reserve(m_nHead + count); }
    /// Makes room for `count` more elements, growing as appends would, so that the next `count` appends
    /// cannot fail.
    void MakeRoom(size_t count) {
        const size_t needed = m_xItems.size() + count;
        if (needed > m_xItems.capacity())
            m_xItems.reserve(std::max(needed, 2 * m_xItems.capacity()));
    }
    /// The number of elements.
    size_t Entries() const { return m_xItems.size() - m_nHead; }
    /// Adds value at the end, like Append.
    void Insert(const T& value) { Append(value); }
    /// Inserts value so that it stands at index; throws std::out_of_range when index > Entries().
    void InsertAt(size_t index, const T& value) {
        if (index > Entries())
            throw std::out_of_range("list index out of range");
        if (index == 0 && m_nHead > 0) {
            m_xItems[m_nHead - 1] = value;  // reuse a dead slot
            --m_nHead;
            return;
        }
        m_xItems.insert(Begin() + static_cast<std::ptrdiff_t>(index), value);
    }
    /// True when the list has no element.
    ZVTBoolean IsEmpty() const { return Entries() == 0; }
    /// Removes and returns the first element; throws std::out_of_range on an empty list.
    T RemoveFirst() {
        T value = std::move(First());
        ++m_nHead;
        Compact();
        return value;
    }
    /// Removes and returns the last element; throws std::out_of_range on an empty list.
    T RemoveLast() {
        T value = std::move(Last());
        m_xItems.pop_back();
        Compact();
        return value;
    }
    /// The element at index; throws std::out_of_range when index >= Entries().
    T& At(size_t index) {
        if (index >= Entries())
            throw std::out_of_range("list index out of range");
        return m_xItems[m_nHead + index];
    }
    /// The element at index; throws std::out_of_range when index >= Entries().
    const T& At(size_t index) const { return const_cast<ListCore*>(this)->At(index); }
    /// The first element; throws std::out_of_range on an empty list.
    T& First() { return At(0); }
    /// The first element; throws std::out_of_range on an empty list.
    const T& First() const { return At(0); }
    /// The last element; throws std::out_of_range on an empty list.
    T& Last() { return At(Entries() - 1); }
    /// The last element; throws std::out_of_range on an empty list.
    const T& Last() const { return At(Entries() - 1); }

protected:
    ListCore() = default;
    ListCore(const ListCore& other) : m_xItems(other.Begin(), other.m_xItems.end()) {}
    ListCore(ListCore&& other) noexcept { Swap(other); }
    ListCore& operator=(const ListCore& other) {
        if (this != &other) {
            ListCore copy(other);
            Swap(copy);
        }
        return *this;
    }
    ListCore& operator=(ListCore&& other) noexcept {
        ListCore taken(std::move(other));
        Swap(taken);
        return *this;
    }
    ~ListCore() = default;

private:
    typename std::vector<T>::iterator Begin() {
        return m_xItems.begin() + static_cast<std::ptrdiff_t>(m_nHead);
    }
    typename std::vector<T>::const_iterator Begin() const {
        return m_xItems.begin() + static_cast<std::ptrdiff_t>(m_nHead);
    }
    void Swap(ListCore& other) noexcept {
        m_xItems.swap(other.m_xItems);
        std::swap(m_nHead, other.m_nHead);
    }
    // Drops the dead prefix once it is at least half the array; moving the rest costs no more than the
    // removals that made the prefix.
    void Compact() {
        if (m_nHead * 2 < m_xItems.size())
            return;
        m_xItems.erase(m_xItems.begin(), Begin());
        m_nHead = 0;
    }

    std::vector<T> m_xItems;
    size_t m_nHead = 0;  // dead (moved-from) elements in front
};

/// A cursor over a list by position. It starts off the list; a step from there enters at the near end, a
/// step past either end leaves it off the list again and answers false. Mutating the list meanwhile is
/// undefined, but Key() never reads outside it: off the list it throws std::out_of_range.
template <class List, class T>
class ListCursor {
public:
    /// A cursor off the list.
    explicit ListCursor(List& list) : m_pxList(&list) {}
    /// Moves to the next element; false past the end.
    ZVTBoolean operator++() { return MoveTo(m_nIndex == c_nOff ? 0 : m_nIndex + 1); }
    /// The current element.
    T& Key() const { return m_pxList->At(m_nIndex); }
    /// The element `ahead` places after the current one (before the first when off the list), null past
    /// the end; the cursor stays where it is.
    const T* Peek(size_t ahead) const {
        const size_t at = m_nIndex == c_nOff ? ahead - 1 : m_nIndex + ahead;
        return at < m_pxList->Entries() ? &m_pxList->At(at) : nullptr;
    }
    /// Goes back off the list.
    void Reset() { m_nIndex = c_nOff; }
    /// Goes off the list and onto another one.
    void Reset(List& list) {
        m_pxList = &list;
        m_nIndex = c_nOff;
    }

protected:
    // Wraps to c_nOff (and so to false) below index 0 and on an empty list.
    ZVTBoolean StepBack() { return MoveTo((m_nIndex == c_nOff ? m_pxList->Entries() : m_nIndex) - 1); }

private:
    static constexpr size_t c_nOff = static_cast<size_t>(-1);

    ZVTBoolean MoveTo(size_t index) {
        m_nIndex = index < m_pxList->Entries() ? index : c_nOff;
        return m_nIndex != c_nOff;
    }

    List* m_pxList;
    size_t m_nIndex = c_nOff;
};

}  // namespace zvt_detail

#endif
