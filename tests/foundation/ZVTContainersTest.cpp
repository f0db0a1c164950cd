// The containers: hashed ones far past their initial size and against a model under colliding hashes;
// the list against a deque model; the cursors at and beyond their ends.

#include <algorithm>
#include <deque>
#include <random>
#include <set>
#include <stdexcept>

#include <gtest/gtest.h>

#include "foundation/ZVTDList.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTHSet.h"
#include "foundation/ZVTSmartPtr.h"
#include "foundation/ZVTString.h"

namespace {

// Many keys share a hash: long runs of collisions that wrap around the table's end.
unsigned int CollidingHash(const long& key) {
    return static_cast<unsigned int>(key % 5);
}

TEST(ZVTHDictTest, GrowsFarPastItsBucketCount) {
    constexpr long count = 200000;
    ZVTHDict<long, long> dict([](const long& key) { return static_cast<unsigned int>(key); });
    for (long id = 1; id <= count; ++id)
        dict.Insert(id, -id);
    for (long id = 1; id <= count; id += 2)
        ASSERT_TRUE(dict.Remove(id));
    ZVTHDict<long, long> copy(dict);
    dict.Clear();
    EXPECT_FALSE(dict.Contains(count));
    copy.Resize(1);  // never below what the entries need
    ASSERT_EQ(copy.Entries(), static_cast<size_t>(count / 2));
    for (long id = 1; id <= count; ++id) {
        const long* value = copy.FindPtr(id);
        ASSERT_EQ(value != nullptr ? *value : 0, id % 2 == 0 ? -id : 0) << id;
    }
}

TEST(ZVTHDictTest, CursorWritesThroughAndThrowsOffTheEnds) {
    ZVTHDict<ZVTString, void*> dict(ZVTString::Hash);
    int target = 0;
    dict.Insert("key", nullptr);
    dict.Insert("key", &target);  // replaces
    EXPECT_EQ(*dict.FindPtr(ZVTString(std::string("key"))), &target);

    ZVTHDictIter<ZVTString, void*> it(dict);
    EXPECT_THROW(it.Key(), std::out_of_range);  // before the first entry
    ASSERT_TRUE(++it);
    it.Value() = nullptr;
    EXPECT_EQ(*dict.FindPtr("key"), nullptr);
    EXPECT_FALSE(++it);
    EXPECT_THROW(it.Value(), std::out_of_range);
}

TEST(ZVTHSetTest, SetRefusesRepeatsTableCountsThem) {
    ZVTHSetT<long> set(CollidingHash);
    EXPECT_TRUE(set.Insert(7) && set.Insert(12) && !set.Insert(7));  // same hash, other values

    ZVTHTableT<long> table(CollidingHash, 1);
    std::multiset<long> model;
    std::mt19937 random(3);
    for (int step = 0; step < 5000; ++step) {
        const long value = static_cast<long>(random() % 40);
        const auto found = model.find(value);
        if (random() % 3 != 0) {
            table.Insert(value);
            model.insert(value);
        } else {
            ASSERT_EQ(table.Remove(value), found != model.end()) << "step " << step;
            if (found != model.end())
                model.erase(found);
        }
        ASSERT_EQ(table.Occurrences(value), model.count(value)) << "step " << step;
    }
    std::multiset<long> visited;
    for (ZVTHTableIterT<long> it(table); ++it;)
        visited.insert(it.Key());
    EXPECT_EQ(visited, model);
}

// Both list kinds share their core; the two-way one is the one with more to get wrong.
TEST(ZVTListTest, MatchesADequeUnderRandomOperations) {
    ZVTDList<ZVTString> list;
    std::deque<ZVTString> model;
    std::mt19937 random(11);
    for (int step = 0; step < 20000; ++step) {
        const ZVTString value(static_cast<long>(random() % 50), 10);
        const auto found = std::find(model.begin(), model.end(), value);
        const size_t at = random() % (model.size() + 1);
        const unsigned op = random() % 5;
        if (op == 0 || op == 3) {  // at the end, or anywhere
            op == 0 ? list.Append(value) : list.InsertAt(at, value);
            model.insert(op == 0 ? model.end() : model.begin() + static_cast<long>(at), value);
        } else if (op < 3 && !model.empty()) {
            ASSERT_EQ(op == 1 ? list.RemoveFirst() : list.RemoveLast(),
                      op == 1 ? model.front() : model.back())
                << "step " << step;
            op == 1 ? model.pop_front() : model.pop_back();
        } else if (op == 4) {
            ASSERT_EQ(list.Remove(value), found != model.end()) << "step " << step;
            if (found != model.end())
                model.erase(found);
        }
        ASSERT_EQ(list.Entries(), model.size());
    }
    const ZVTDList<ZVTString> copy(list);
    list.Clear();
    for (size_t i = 0; i < model.size(); ++i)
        ASSERT_EQ(copy.At(i), model[i]) << i;
    EXPECT_THROW(copy.At(model.size()), std::out_of_range);
    EXPECT_THROW(list.InsertAt(1, "y"), std::out_of_range);
    EXPECT_THROW(list.RemoveFirst(), std::out_of_range);
    EXPECT_THROW(list.RemoveLast(), std::out_of_range);
}

TEST(ZVTListIterTest, CursorsWalkOnceAndStartOverOffTheEnds) {
    ZVTDList<long> list;
    for (long v : {1, 2, 3})
        list.Append(v);
    ZVTDListIter<long> it(list);
    EXPECT_THROW(it.Key(), std::out_of_range);
    std::string walk;
    while (--it)
        walk += std::to_string(it.Key());
    while (++it)
        walk += std::to_string(it.Key());
    ASSERT_TRUE(++it && ++it && --it);
    it.Key() = 10;
    EXPECT_FALSE(--it);
    EXPECT_EQ(walk, "321123");
    EXPECT_EQ(list.First(), 10);
    ZVTDList<long> empty;
    it.Reset(empty);
    ASSERT_FALSE(++it);
    EXPECT_FALSE(--it);
}

TEST(ZVTSmartPtrTest, DeletesWhatItOwnsExactlyOnce) {
    struct Counted {
        int& deaths;
        ~Counted() { ++deaths; }
    };
    int deaths = 0;
    Counted* released = nullptr;
    {
        ZVTSmartClassPtrT<Counted> owner(new Counted{deaths});
        owner.Reset(owner.Get());  // the same pointer is kept, not deleted
        owner.Reset(new Counted{deaths});
        EXPECT_EQ(&owner->deaths, &deaths);
        released = owner.Release();
    }
    EXPECT_EQ(deaths, 1);
    delete released;
}

}  // namespace
