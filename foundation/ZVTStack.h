#ifndef ZVTSTACK_H
#define ZVTSTACK_H

#include <cstddef>
#include <list>
#include <stdexcept>
#include <utility>
#include <vector>

#include "foundation/ZVTBoolean.h"

/// A last-in first-out stack of values over a standard sequence C (push_back, pop_back, back).
template <class T, class C = std::vector<T>>
class ZVTStackT {
public:
    /// Puts value on top.
    void Push(const T& value) { m_xItems.push_back(value); }
    /// Removes and returns the top; throws std::out_of_range on an empty stack.
    T Pop() {
        T value = std::move(Top());
        m_xItems.pop_back();
        return value;
    }
    /// The top; throws std::out_of_range on an empty stack.
    T& Top() {
        if (m_xItems.empty())
            throw std::out_of_range("stack is empty");
        return m_xItems.back();
    }
    /// The number of values.
    size_t Entries() const { return m_xItems.size(); }
    /// True when the stack holds nothing.
    ZVTBoolean IsEmpty() const { return m_xItems.empty(); }
    /// Removes every value.
    void Clear() { m_xItems.clear(); }

private:
    C m_xItems;
};

/// The stack on a linked list: pushes never move the values already there.
template <class T>
class ZVTListStackT : public ZVTStackT<T, std::list<T>> {};

#endif
