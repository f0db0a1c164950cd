// Covers the metamodel dumps: which types each selects, the exact text, and order by name rather than by
// code or hash.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ModelCore/ZVFWMC/MCStreams.h"
#include "support/RegistryTestSupport.h"

namespace {

using R = MCFactoryRegistry;

class MCFactoryRegistryDumpTest : public FreshRegistryTest {
protected:
    void SetUp() override {
        FreshRegistryTest::SetUp();
        // Codes run against the names' order, so a dump in code order shows.
        ASSERT_TRUE(R::RegisterConcreteProperty(90, "Side", new CountingFactory(counters), true, false, false,
                                                false));
        ASSERT_TRUE(R::RegisterConcreteProperty(91, "Name", new CountingFactory(counters), true, false, false,
                                                false));
        ASSERT_TRUE(R::RegisterConcreteProperty(92, "Colour", new CountingFactory(counters), true, false,
                                                false, false));
        ASSERT_TRUE(R::RegisterAbstractObject(20, "alpha", 0));
        ASSERT_TRUE(R::RegisterAbstractObject(21, "Shape", 0));
        ASSERT_TRUE(
            R::RegisterConcreteObject(22, "Square", 21, 23, new CountingFactory(counters), false, true));
        ASSERT_TRUE(
            R::RegisterConcreteObject(23, "Drawing", 21, 0, new CountingFactory(counters), true, false));
        ASSERT_TRUE(R::RegisterAliasObject(24, "Box", 0, 22, true, true));
        ASSERT_TRUE(R::AddOwnerType(22, 0));
        ASSERT_TRUE(R::AddPropertyUsage(21, 91, R::clipUndecided));
        ASSERT_TRUE(R::AddPropertyUsage(21, 92, R::clipUndecided));
        ASSERT_TRUE(R::AddPropertyUsage(22, 92, R::clipUndecided));
        ASSERT_TRUE(R::AddPropertyUsage(22, 90, R::clipUndecided));
    }
};

TEST_F(MCFactoryRegistryDumpTest, EachDumpSelectsItsTypesAndOtherModesWriteNothing) {
    const std::pair<long, const char*> cases[] = {
        // Abstract and concrete types with their own usages.
        {R::dumpMetamodel,
         "METAMODEL DUMP\r\n\r\n"
         "Drawing\r\n\tSupertype: Shape\r\n\tProperty Usages:\r\n"
         "Shape\r\n\tSupertype: \r\n\tProperty Usages:\r\n\t\tColour\r\n\t\tName\r\n"
         "Square\r\n\tSupertype: Shape\r\n\tProperty Usages:\r\n\t\tColour\r\n\t\tSide\r\n"
         "alpha\r\n\tSupertype: \r\n\tProperty Usages:\r\n"},
        // Concrete and alias types with their owners and flattened usages.
        {R::dumpConcreteMetamodel,
         "CONCRETE METAMODEL DUMP\nConcrete objects with flattened properties\r\n\r\n"
         "Box\r\n\tSupertype: \r\n\tOwner Types: \r\n\r\n\tProperty Usages:\r\n"
         "Drawing\r\n\tSupertype: Shape\r\n\tOwner Types: \r\nUndefined, \r\n"
         "\tProperty Usages:\r\n\t\tColour\r\n\t\tName\r\n"
         "Square\r\n\tSupertype: Shape\r\n\tOwner Types: \r\nDrawing, Undefined, \r\n"
         "\tProperty Usages:\r\n\t\tColour\r\n\t\tColour\r\n\t\tName\r\n\t\tSide\r\n"},
        {0, ""},
        {3, ""},
        {6, ""},
    };
    for (const auto& [mode, text] : cases) {
        SCOPED_TRACE(mode);
        std::stringstream medium;
        MCStream stream(medium, ZVTStream::binary);
        R::GetInstance()->Dump(stream, mode, nullptr);
        EXPECT_EQ(medium.str(), text);
    }
}

}  // namespace
