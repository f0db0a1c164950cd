// Its own process: the end of a library whose object rule registry never lived.

#include <gtest/gtest.h>

#include "ModelCore/ModelCore.h"

TEST(MCObjectSemEndTest, AnEndBeforeAnyRuleLeavesNoRegistryToComeBack) {
    MdlCore::Terminate();
    EXPECT_EQ(MCObjectSemReg::GetInstance(), nullptr);
}
