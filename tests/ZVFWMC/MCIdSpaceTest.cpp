// Id spaces: the counter rules (registration moves it, removal and reset never lower it, the 32-bit
// limit), duplicate resolution, and removal from the table.

#include "ModelCore/ZVFWMC/MCIdSpace.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <tuple>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"

namespace {

// Distinct stand-ins for objects; the space only stores and compares the pointers.
alignas(16) char c_acSlots[3][16];
MCObject* const a = reinterpret_cast<MCObject*>(c_acSlots[0]);
MCObject* const b = reinterpret_cast<MCObject*>(c_acSlots[1]);
MCObject* const c = reinterpret_cast<MCObject*>(c_acSlots[2]);

TEST(MCIdSpaceTest, CounterRules) {
    // What happens, the last id the space starts with, what is done to it, the id it hands out next.
    const std::tuple<const char*, long, std::function<void(MCIdSpace&)>, long> cases[] = {
        {"ids follow one another", 0, [](MCIdSpace& s) { EXPECT_EQ(s.RequestId(), 1); }, 2},
        {"given last id", 100, [](MCIdSpace&) {}, 101},
        {"registering above moves it", 3, [](MCIdSpace& s) { s.RegisterPointer(500, a); }, 501},
        {"registering below leaves it", 3, [](MCIdSpace& s) { s.RegisterPointer(2, a); }, 4},
        {"removing the last id does not free it", 4,
         [](MCIdSpace& s) { s.RegisterPointer(5, a), s.RemoveId(5); }, 6},
        {"reset keeps it", 4, [](MCIdSpace& s) { s.RegisterPointer(5, a), s.Reset(); }, 6},
    };
    for (const auto& [what, lastId, prepare, next] : cases) {
        SCOPED_TRACE(what);
        MCIdSpace space(lastId);
        prepare(space);
        EXPECT_EQ(space.RequestId(), next);
    }

    MCIdSpace space(0x7FFFFFFE);
    EXPECT_EQ(space.RequestId(), 0x7FFFFFFF);
    for (int i = 0; i < 2; ++i)  // the failed request must not have wrapped the counter
        EXPECT_THROW(space.RequestId(), EXUnexpected);
    if (sizeof(long) > 4) {
        EXPECT_THROW(space.RegisterPointer(0x7FFFFFFFL + 1, a), EXUnexpected);
        EXPECT_EQ(space.ResolveId(0x7FFFFFFFL + 1), nullptr);
    }
}

// The same pair again is no duplicate; a duplicate names both objects. Removing an id nobody holds leaves
// the table alone.
TEST(MCIdSpaceTest, ADuplicateNamesBothObjects) {
    MCIdSpace space;
    space.RegisterPointer(7, a);
    EXPECT_NO_THROW(space.RegisterPointer(7, a));
    try {
        space.RegisterPointer(7, b);
        ADD_FAILURE() << "nothing thrown";
    } catch (const EXDuplicateResolution& e) {
        EXPECT_TRUE(e.m_pxExisting == a && e.m_pxIncoming == b);
    }
    space.RemoveId(42);
    EXPECT_EQ(space.ResolveId(7), a);
}

// Ids go to pages or to the hashed table by where they lie and when they come; whichever way an id went, it
// resolves, is refused twice and is removed alike, also when its neighbours arrive later and take the other
// way.
TEST(MCIdSpaceTest, NearAndFarIdsResolveAlike) {
    MCIdSpace space;
    std::mt19937 rng(7);
    std::map<long, MCObject*> model;
    std::vector<long> gone;
    MCObject* const objects[] = {a, b, c};
    for (int step = 0; step < 20000; ++step) {
        const unsigned kind = rng() % 4;
        if (kind == 3) {  // one goes, by id or by pointer
            if (model.empty())
                continue;
            auto it = std::next(model.begin(), static_cast<long>(rng() % model.size()));
            rng() % 2 ? space.RemoveId(it->first) : space.RemovePointer(it->first, it->second);
            gone.push_back(it->first);
            model.erase(it);
            continue;
        }
        // In sequence, anywhere in the pages' reach, or near and ahead of the counter.
        const long id = kind == 0   ? space.RequestId()
                        : kind == 1 ? static_cast<long>(rng() % 0x7FFFFFF) + 1
                                    : space.RequestId() + static_cast<long>(rng() % 9000);
        MCObject* object = objects[rng() % 3];
        const auto [known, added] = model.emplace(id, object);
        if (added) {
            space.RegisterPointer(id, object);
        } else if (known->second != object) {
            ASSERT_THROW(space.RegisterPointer(id, object), EXDuplicateResolution) << "step " << step;
        }
    }
    for (const auto& [id, object] : model)
        ASSERT_EQ(space.ResolveId(id), object) << id;
    for (long id : gone)
        ASSERT_EQ(space.ResolveId(id), model.count(id) ? model[id] : nullptr) << id;
    const auto [first, object] = *model.begin();
    space.RemovePointer(first, object == a ? b : a);
    EXPECT_EQ(space.ResolveId(first), object) << "another object's entry stays";
    space.Reset();
    const long next = space.RequestId();
    space.RegisterPointer(next, a);
    // A page reused after Reset starts empty: around the id just registered, wider than a page, it is the
    // only entry.
    std::string reused;
    for (long id = next - 8192; id < next + 8192; ++id)
        if (MCObject* found = space.ResolveId(id))
            reused += std::to_string(id - next) + (found == a ? "a " : "? ");
    EXPECT_EQ(reused, "0a ");
    EXPECT_EQ(space.ResolveId(first), nullptr);
}

}  // namespace
