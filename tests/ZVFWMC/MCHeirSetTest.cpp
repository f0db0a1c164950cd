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
    MCHeirSet set;
    // The walk by names, "-" for an empty slot, and the count.
    const auto walk = [&heirs, &set] {
        std::string names;
        MCHeirSetIter it(set);
        while (++it) {
            const auto at = std::find(heirs.begin(), heirs.end(), it.GetValue());
            names += at == heirs.end() ? '-' : static_cast<char>('a' + (at - heirs.begin()));
        }
        // Past the last slot the cursor shows nothing.
        return names + (it.GetValue() ? " stale" : "") + " #" + std::to_string(set.GetCount());
    };
    // Each step inserts (+) or deletes (-) the heirs it names.
    const struct {
        const char* pcStep;
        const char* pcWalk;
    } steps[] = {
        {"+", " #0"},         {"+abcde", "abcde #5"},
        {"-a", "-bcde #4"},  // the first step stands on slot 0 untested
        {"+fb", "fbcdeb #6"}, {"-b", "fcdeb #5"},
        {"-eb", "fcd #3"},  // the emptied second segment stays linked; the walk runs past it
        {"+a", "facd #4"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.pcStep);
        for (const char* name = step.pcStep + 1; *name; ++name)
            EXPECT_TRUE(step.pcStep[0] == '+' ? set.Insert(heir(*name)) : set.Delete(heir(*name)));
        EXPECT_EQ(walk(), step.pcWalk);
    }
    EXPECT_FALSE(set.Delete(heir('b')) || set.Insert(nullptr));
    EXPECT_EQ(walk(), "facd #4");
    // The last slot of the chain in use: past it the cursor must not show its heir.
    for (char name : std::string("bbeb"))
        ASSERT_TRUE(set.Insert(heir(name)));
    EXPECT_EQ(walk(), "facdbbeb #8");
}
