#ifndef ZVTVECTOR_H
#define ZVTVECTOR_H

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

#include "foundation/ZVTBoolean.h"

/// A growing array of values in order of insertion.
template <class T>
class ZVTOrderedVectorT {
public:
    /// What Index gives for a value that is not there.
    static constexpr size_t npos = static_cast<size_t>(-1);

    /// An empty vector with room for capacity values.
    explicit ZVTOrderedVectorT(size_t capacity = 10) { m_xItems.reserve(capacity); }

    /// Adds value at the end.
    void Append(const T& value) { m_xItems.push_back(value); }
    /// Adds value at the end, like Append.
    void Insert(const T& value) { Append(value); }
    /// The number of values.
    size_t Length() const { return m_xItems.size(); }
    /// The value at index; throws std::out_of_range when index >= Length().
    T& operator[](size_t index) { return m_xItems.at(index); }
    /// The value at index; throws std::out_of_range when index >= Length().
    const T& operator[](size_t index) const { return m_xItems.at(index); }
    /// True when a value equals value.
    ZVTBoolean Contains(const T& value) const { return Index(value) != npos; }
    /// The position of the first value equal to value, or npos.
    size_t Index(const T& value) const {
        auto found = std::find(m_xItems.begin(), m_xItems.end(), value);
        return found == m_xItems.end() ? npos : static_cast<size_t>(found - m_xItems.begin());
    }
    /// Removes the first value equal to value; false when there is none.
    ZVTBoolean Remove(const T& value) {
        const size_t index = Index(value);
        if (index == npos)
            return false;
        RemoveAt(index);
        return true;
    }
    /// Removes and returns the value at index; throws std::out_of_range when index >= Length().
    T RemoveAt(size_t index) {
        T value = std::move(m_xItems.at(index));
        m_xItems.erase(m_xItems.begin() + static_cast<std::ptrdiff_t>(index));
        return value;
    }
    /// Removes every value.
    void Clear() { m_xItems.clear(); }
    /// True when there is no value.
    ZVTBoolean IsEmpty() const { return m_xItems.empty(); }
    /// The values in one array of Length() elements; valid until the next change.
    T* Data() { return m_xItems.data(); }
    /// The values in one array of Length() elements; valid until the next change.
    const T* Data() const { return m_xItems.data(); }

private:
    std::vector<T> m_xItems;
};

/// An array of a fixed number of values, value-initialized.
template <class T>
class ZVTVectorT {
public:
    /// An array of length values.
    explicit ZVTVectorT(size_t length) : m_xItems(length) {}
    /// The value at index; throws std::out_of_range when index >= Length().
    T& operator[](size_t index) { return m_xItems.at(index); }
    /// The value at index; throws std::out_of_range when index >= Length().
    const T& operator[](size_t index) const { return m_xItems.at(index); }
    /// The number of values.
    size_t Length() const { return m_xItems.size(); }

private:
    std::vector<T> m_xItems;
};

#endif
