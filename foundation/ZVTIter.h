#ifndef ZVTITER_H
#define ZVTITER_H

#include <cstddef>

#include "foundation/ZVTBoolean.h"

/// Decides whether an iterator hands out an element.
template <class T>
class ZVTFilter {
public:
    /// Virtual: filters are used through this base.
    virtual ~ZVTFilter() = default;
    /// True when element passes.
    virtual ZVTBoolean Test(T& element) = 0;
};

/// Orders the snapshot of a sorted iteration.
template <class T>
class ZVTSorter {
public:
    /// Virtual: sorters are used through this base.
    virtual ~ZVTSorter() = default;
    /// Sorts count elements in place; this base leaves them as they are.
    virtual void Sort(T* /*elements*/, long /*count*/) {}
};

/// The base of the filtered and sorted iterators. A concrete iterator supplies a raw cursor (the pure
/// operations); this base walks it directly without a sorter, or over a snapshot taken at Reset(true)
/// with one. Filter and sorter are not owned and may be null.
///
/// The snapshot is an array made with new T[]. A class whose SetBuffer_ keeps it in another form frees
/// the given array itself, overrides FreeBuffer_ for its own form and calls ReleaseBuffer() in its
/// destructor (by then this base can no longer reach the override).
template <class T>
class ZVTIter {
public:
    /// An iterator with the given filter and sorter; the concrete constructor ends with Reset(true).
    explicit ZVTIter(ZVTFilter<T>* filter = nullptr, ZVTSorter<T>* sorter = nullptr)
        : m_pxFilter(filter), m_pxSorter(sorter) {}
    ZVTIter(const ZVTIter&) = delete;
    ZVTIter& operator=(const ZVTIter&) = delete;
    /// Frees the snapshot.
    virtual ~ZVTIter() { delete[] static_cast<T*>(m_pBuffer); }

    /// Advances the raw cursor; false past the end.
    virtual ZVTBoolean Next_() = 0;
    /// Moves the raw cursor to index; false when that is not possible.
    virtual ZVTBoolean Seek_(long index) = 0;
    /// The raw element count.
    virtual long Entries_() const = 0;
    /// The raw cursor's index.
    virtual long Index_() const = 0;
    /// The current element by value.
    virtual T Current_() const = 0;
    /// The current element, into value.
    virtual void CurrentTo_(T& value) const = 0;
    /// Puts the raw cursor back before the first element.
    virtual void Rewind_() = 0;
    /// Turns the sorted array into the form in which it is kept; this base keeps it as it is.
    virtual void* SetBuffer_(T* values, long /*count*/) { return values; }
    /// The element at index of the snapshot; T() outside it.
    virtual T GetBufferValue_(void* buffer, long index) const {
        if (buffer == nullptr || index < 0 || index >= m_lBufferCount)
            return T();
        return static_cast<T*>(buffer)[index];
    }
    /// Whether the element at index of the snapshot is still good; this base says yes.
    virtual ZVTBoolean IsValidBufferValue_(void* /*buffer*/, long /*index*/) { return true; }

    /// Goes back before the first element. Without a sorter the walk stays on the live container and
    /// rebuild only recounts what passes the filter; with one, rebuild takes a new sorted snapshot and
    /// otherwise the old snapshot is walked again.
    void Reset(ZVTBoolean rebuild) {
        Rewind_();
        if (m_pxSorter == nullptr) {
            if (m_pxFilter == nullptr)
                return;
            if (rebuild) {
                m_lCount = 0;
                T value{};
                while (Next_()) {
                    CurrentTo_(value);
                    if (m_pxFilter->Test(value))
                        ++m_lCount;
                }
            }
            Rewind_();
            m_lPosition = -1;
            return;
        }
        if (rebuild && !TakeSnapshot())
            return;  // nothing to walk: the position stays as it was
        m_lPosition = m_lCount;
    }

    /// Moves to the next element that passes the filter; false past the end.
    ZVTBoolean operator++() {
        if (m_pxSorter == nullptr) {
            if (m_pxFilter == nullptr)
                return Next_();
            T value{};
            while (Next_()) {
                CurrentTo_(value);
                if (m_pxFilter->Test(value)) {
                    ++m_lPosition;
                    return true;
                }
            }
            return false;
        }
        if (m_lPosition == m_lCount - 1 || m_pBuffer == nullptr)
            return false;
        if (m_lPosition == m_lCount) {  // before the first: index 0 is taken unchecked
            m_lPosition = 0;
            return true;
        }
        do {
            if (++m_lPosition >= m_lCount)
                return false;
        } while (!IsValidBufferValue_(m_pBuffer, m_lPosition));
        return true;
    }

    /// The current element.
    T GetValue() const {
        return m_pxSorter == nullptr ? Current_() : GetBufferValue_(m_pBuffer, m_lPosition);
    }
    /// The raw count without filter and sorter, otherwise the count that passed at the last rebuild.
    long GetCount() const { return m_pxFilter == nullptr && m_pxSorter == nullptr ? Entries_() : m_lCount; }

protected:
    /// Frees a snapshot in the form that SetBuffer_ made.
    virtual void FreeBuffer_(void* buffer) { delete[] static_cast<T*>(buffer); }
    /// Frees the snapshot and forgets it.
    void ReleaseBuffer() {
        if (m_pBuffer != nullptr)
            FreeBuffer_(m_pBuffer);
        m_pBuffer = nullptr;
        m_lBufferCount = 0;
    }

    void* m_pBuffer = nullptr;  // the sorted snapshot, owned; null when there is none
    long m_lBufferCount = 0;
    ZVTFilter<T>* m_pxFilter;
    ZVTSorter<T>* m_pxSorter;
    long m_lCount = 0;     // elements that passed the filter at the last rebuild
    long m_lPosition = 0;  // in the snapshot; m_lCount stands before the first, -1 after a filtered reset

private:
    // Copies what passes the filter, sorts it and keeps it; false when nothing passed.
    bool TakeSnapshot() {
        m_lCount = 0;
        const long entries = Entries_();
        ReleaseBuffer();
        if (entries <= 0)
            return false;
        T* values = new T[static_cast<size_t>(entries)];
        for (long i = 0; i < entries && Next_(); ++i) {
            CurrentTo_(values[m_lCount]);
            if (m_pxFilter == nullptr || m_pxFilter->Test(values[m_lCount]))
                ++m_lCount;
        }
        if (m_lCount == 0) {
            delete[] values;
            return false;
        }
        m_pxSorter->Sort(values, m_lCount);
        m_pBuffer = SetBuffer_(values, m_lCount);
        m_lBufferCount = m_lCount;
        return true;
    }
};

#endif
