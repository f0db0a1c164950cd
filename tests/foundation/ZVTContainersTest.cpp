// The containers: hashed ones against standard models under random operations and far past their
// initial size; the lists against a deque model; the cursors at and beyond their ends.

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include <gtest/gtest.h>

#include "foundation/ZVTDList.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTHSet.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTSmartPtr.h"
#include "foundation/ZVTString.h"

namespace {

unsigned int IdentityHash(const long& key) {
    return static_cast<unsigned int>(key);
}
// Many keys share a hash: long runs of collisions that wrap around the table's end.
unsigned int CollidingHash(const long& key) {
    return static_cast<unsigned int>(key % 5);
}

std::map<long, long> Contents(ZVTHDict<long, long>& dict) {
    std::map<long, long> seen;
    for (ZVTHDictIter<long, long> it(dict); ++it;)
        EXPECT_TRUE(seen.emplace(it.Key(), it.Value()).second) << "visited twice: " << it.Key();
    return seen;
}

TEST(ZVTHDictTest, MatchesAModelUnderRandomInsertsAndRemoves) {
    struct Case {
        const char* name;
        ZVTHDict<long, long>::HashFn hash;
        size_t buckets;
        long keyRange;
    };
    const Case cases[] = {
        {"identity, dense keys", IdentityHash, 1, 300},
        {"identity, sparse keys", IdentityHash, 64, 1L << 40},
        {"colliding hash", CollidingHash, 8, 200},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::mt19937_64 random(7);
        std::uniform_int_distribution<long> keys(0, c.keyRange);
        ZVTHDict<long, long> dict(c.hash, c.buckets);
        std::unordered_map<long, long> model;
        for (int step = 0; step < 20000; ++step) {
            const long key = keys(random);
            long value = -1;
            const auto found = model.find(key);
            switch (random() % 3) {
                case 0:
                    dict.Insert(key, step);
                    model[key] = step;
                    break;
                case 1:
                    ASSERT_EQ(dict.Remove(key), model.erase(key) == 1) << "step " << step;
                    break;
                default:
                    ASSERT_EQ(dict.Find(key, value), found != model.end()) << "step " << step;
                    ASSERT_EQ(value, found != model.end() ? found->second : -1) << "step " << step;
            }
            ASSERT_EQ(dict.Entries(), model.size());
        }
        ASSERT_EQ(Contents(dict), (std::map<long, long>(model.begin(), model.end())));
        // Emptied by removal, the table must still find nothing and take new entries.
        for (const auto& entry : model)
            ASSERT_TRUE(dict.Remove(entry.first));
        EXPECT_FALSE(dict.Contains(keys(random)));
        dict.Insert(5, 6);
        EXPECT_EQ(Contents(dict), (std::map<long, long>{{5, 6}}));
    }
}

TEST(ZVTHDictTest, GrowsFarPastItsBucketCount) {
    constexpr long count = 200000;
    ZVTHDict<long, long> dict(IdentityHash);
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

// A miss leaving Find's out value alone and Insert replacing are checked by the random test above.
TEST(ZVTHDictTest, CursorWritesThroughAndThrowsOffTheEnds) {
    ZVTHDict<ZVTString, void*> dict(ZVTString::Hash);
    int target = 0;
    dict.Insert("key", &target);
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

template <class List>
class ZVTListTest : public ::testing::Test {};
using ListTypes = ::testing::Types<ZVTSList<ZVTString>, ZVTDList<ZVTString>>;
TYPED_TEST_SUITE(ZVTListTest, ListTypes);

TYPED_TEST(ZVTListTest, MatchesADequeUnderRandomOperations) {
    TypeParam list;
    std::deque<ZVTString> model;
    std::mt19937 random(11);
    for (int step = 0; step < 20000; ++step) {
        const ZVTString value(static_cast<long>(random() % 50), 10);
        const auto found = std::find(model.begin(), model.end(), value);
        const size_t at = random() % (model.size() + 1);
        switch (random() % 5) {
            case 0:
                list.Append(value);
                model.push_back(value);
                break;
            case 1:
                if (!model.empty()) {
                    ASSERT_EQ(list.RemoveFirst(), model.front()) << "step " << step;
                    model.pop_front();
                }
                break;
            case 2:
                if (!model.empty()) {
                    ASSERT_EQ(list.RemoveLast(), model.back()) << "step " << step;
                    model.pop_back();
                }
                break;
            case 3:
                list.InsertAt(at, value);
                model.insert(model.begin() + static_cast<long>(at), value);
                break;
            default:
                ASSERT_EQ(list.Remove(value), found != model.end()) << "step " << step;
                if (found != model.end())
                    model.erase(found);
        }
        ASSERT_EQ(list.Entries(), model.size());
    }
    const TypeParam copy(list);
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

    ZVTSList<long> forward, empty;
    forward.Append(4);
    ZVTSListIter<long> cursor(forward);
    ASSERT_TRUE(++cursor);
    EXPECT_EQ(cursor.Key(), 4);
    cursor.Reset(empty);
    EXPECT_FALSE(++cursor);
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

// Values placed by blocks (as object addresses are) behave as a set like any other: inserted, found and
// removed against a model, through growth and backward-shift removal across block edges.
TEST(ZVTHSetTest, BlockPlacedValuesKeepSetBehaviour) {
    ZVTHSetT<long> set([](const long& value) { return static_cast<unsigned int>(value); }, 8, 8);
    std::set<long> model;
    std::mt19937 random(5);
    for (int step = 0; step < 20000; ++step) {
        // Runs of neighbours inside a few blocks, and scattered values.
        const long value = random() % 2 ? static_cast<long>(random() % 2048) : static_cast<long>(random());
        if (random() % 3 != 0)
            ASSERT_EQ(set.Insert(value), model.insert(value).second) << "step " << step;
        else
            ASSERT_EQ(set.Remove(value), model.erase(value) == 1) << "step " << step;
    }
    EXPECT_EQ(set.Entries(), model.size());
    for (long value : model)
        ASSERT_TRUE(set.Contains(value)) << value;
}
