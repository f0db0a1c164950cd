// The heir set: the four-slot segments it shares with the property set, slot reuse, duplicates, and a
// first slot that may stand empty.

#include <algorithm>
#include <vector>

#include "support/ModelTestSupport.h"

using HeirSetTest = ModelTest;

TEST_F(HeirSetTest, SlotsAreReusedInChainOrderAndDuplicatesStand) {
    MCObject* root = Make();
    std::vector<MCObject*> heirs;  // 'a' to 'f'
    for (int i = 0; i < 6; ++i)
        heirs.push_back(Make(root));
    const auto heir = [&heirs](char name) { return heirs[static_cast<size_t>(name - 'a')]; };
    // The walk by names, "-" for an empty slot.
    const auto walk = [&heirs](const MCHeirSet& set) {
        std::string names;
        MCHeirSetIter it(set);
        while (++it) {
            const auto at = std::find(heirs.begin(), heirs.end(), it.GetValue());
            names += at == heirs.end() ? '-' : static_cast<char>('a' + (at - heirs.begin()));
        }
        return names;
    };

    MCHeirSet set;
    EXPECT_EQ(walk(set), "");
    for (char name : std::string("abcde"))
        EXPECT_TRUE(set.Insert(heir(name)));
    EXPECT_EQ(walk(set), "abcde");
    ASSERT_TRUE(set.Delete(heir('a')));
    EXPECT_EQ(walk(set), "-bcde");  // the first step stands on slot 0 untested
    EXPECT_EQ(set.GetCount(), 4);
    EXPECT_TRUE(set.Insert(heir('f')));
    EXPECT_TRUE(set.Insert(heir('b')));
    EXPECT_EQ(walk(set), "fbcdeb");
    EXPECT_EQ(set.GetCount(), 6);
    ASSERT_TRUE(set.Delete(heir('b')));
    EXPECT_EQ(walk(set), "fcdeb");

    // Emptying the second segment keeps it linked; the walk runs past it.
    ASSERT_TRUE(set.Delete(heir('e')));
    ASSERT_TRUE(set.Delete(heir('b')));
    EXPECT_EQ(walk(set), "fcd");
    EXPECT_FALSE(set.Delete(heir('b')));
    EXPECT_FALSE(set.Insert(nullptr));
    EXPECT_EQ(set.GetCount(), 3);
    EXPECT_TRUE(set.Insert(heir('a')));
    EXPECT_EQ(walk(set), "facd");
}
