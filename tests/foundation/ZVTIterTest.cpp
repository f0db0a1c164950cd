// The iterator base over a vector cursor: live walks with and without a filter, and sorted snapshots
// that ignore later changes, skip entries that went bad and are only retaken by Reset(true).

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/ZVTIter.h"

namespace {

struct VectorIter : ZVTIter<long> {
    VectorIter(std::vector<long>& values, ZVTFilter<long>* filter, ZVTSorter<long>* sorter)
        : ZVTIter<long>(filter, sorter), m_rValues(values) {
        Reset(true);
    }
    ZVTBoolean Next_() override { return ++m_lIndex < static_cast<long>(m_rValues.size()); }
    ZVTBoolean Seek_(long) override { return false; }
    long Entries_() const override { return static_cast<long>(m_rValues.size()); }
    long Index_() const override { return m_lIndex; }
    long Current_() const override { return m_rValues.at(static_cast<size_t>(m_lIndex)); }
    void CurrentTo_(long& value) const override { value = Current_(); }
    void Rewind_() override { m_lIndex = -1; }
    // Negative values in the snapshot stand for entries that went away.
    ZVTBoolean IsValidBufferValue_(void* buffer, long index) override {
        return GetBufferValue_(buffer, index) >= 0;
    }

    std::vector<long>& m_rValues;
    long m_lIndex = -1;
};

struct Even : ZVTFilter<long> {
    ZVTBoolean Test(long& value) override { return value % 2 == 0; }
};

struct Descending : ZVTSorter<long> {
    void Sort(long* values, long count) override { std::sort(values, values + count, std::greater<long>()); }
};

std::string Walk(VectorIter& it) {
    std::string text = std::to_string(it.GetCount()) + ":";
    while (++it)
        text += " " + std::to_string(it.GetValue());
    return text;
}

TEST(ZVTIterTest, LiveWalksAndSortedSnapshots) {
    std::vector<long> values{3, 8, 2, 5, 6};
    Even even;
    Descending descending;
    VectorIter plain(values, nullptr, nullptr), filtered(values, &even, nullptr),
        sorted(values, &even, &descending);
    EXPECT_EQ(Walk(plain), "5: 3 8 2 5 6");
    EXPECT_EQ(Walk(filtered), "3: 8 2 6");
    EXPECT_EQ(Walk(sorted), "3: 8 6 2");
    EXPECT_FALSE(++sorted);

    values = {4, 1, 10};
    filtered.Reset(false);  // live walk, stale count
    EXPECT_EQ(Walk(filtered), "3: 4 10");
    sorted.Reset(false);  // the old snapshot again
    EXPECT_EQ(Walk(sorted), "3: 8 6 2");
    sorted.Reset(true);
    EXPECT_EQ(Walk(sorted), "2: 10 4");

    values = {-2, 7, -4, 9};
    VectorIter skipping(values, nullptr, &descending);  // 9 7 -2 -4: the first step is taken unchecked
    EXPECT_EQ(Walk(skipping), "4: 9 7");
    values.clear();
    skipping.Reset(true);
    EXPECT_EQ(Walk(skipping), "0:");
}

}  // namespace
