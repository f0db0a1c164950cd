// The exception family: each class's code, the side it is caught on and its what() text, the one
// standard message, and EXUnexpected with its place.

#include "ModelCore/ZVFWMC/EXBase.h"

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <iterator>
#include <string>

#include "platform/HUB.h"

namespace {

// In code order: the codes stand in hosts' handlers as 1..codeLast.
const std::pair<const char*, std::function<void()>> c_axConcrete[] = {
    {"EXDuplicateFactory", [] { throw EXDuplicateFactory(5); }},
    {"EXDuplicateProperty", [] { throw EXDuplicateProperty(); }},
    {"EXDuplicateResolution", [] { throw EXDuplicateResolution(nullptr, nullptr); }},
    {"EXDuplicateSemantic", [] { throw EXDuplicateSemantic(nullptr, nullptr); }},
    {"EXGenericObject", [] { throw EXGenericObject(); }},
    {"EXInvalidIter", [] { throw EXInvalidIter(); }},
    {"EXMissingFactory", [] { throw EXMissingFactory(5, nullptr); }},
    {"EXMissingSemanticHandler", [] { throw EXMissingSemanticHandler(5); }},
    {"EXNoMapPointer", [] { throw EXNoMapPointer(); }},
    {"EXNonOwnedObject", [] { throw EXNonOwnedObject(); }},
    {"EXNullOwner", [] { throw EXNullOwner(); }},
    {"EXRequiredProperty", [] { throw EXRequiredProperty(1, 2); }},
    {"EXUnexpected", [] { throw EXUnexpected(ZVTString(), "42"); }},  // no file: no place
    {"EXUnknownToken", [] { throw EXUnknownToken(); }},
    {"EXMissingComparisonObject", [] { throw EXMissingComparisonObject(); }},
    {"EXInvalidComparison", [] { throw EXInvalidComparison(); }},
};

// Each concrete class is a programmer fault (never a user one) with its code, no standard message but
// EXDuplicateFactory's, and what() naming the class and the code.
TEST(EXBaseTest, EveryConcreteClassIsAProgrammerFaultWithItsCodeAndName) {
    HUBScopedMessageHandler messages;
    EXPECT_EQ(static_cast<long>(std::size(c_axConcrete)), EXBase::codeLast);
    for (size_t i = 0; i < std::size(c_axConcrete); ++i) {
        const long code = static_cast<long>(i) + 1;
        SCOPED_TRACE(c_axConcrete[i].first);
        try {
            c_axConcrete[i].second();
            ADD_FAILURE() << "nothing thrown";
        } catch (const EXUser&) {
            ADD_FAILURE() << "caught as a user fault";
        } catch (const EXProgrammer& e) {
            EXPECT_EQ(e.GetExceptionCode(), code);
            if (code != EXBase::codeDuplicateFactory) {
                EXPECT_EQ(e.StandardMessage(nullptr), 0);
            }
            EXPECT_EQ(std::string(e.what()),
                      std::string(c_axConcrete[i].first) + " (code " + std::to_string(code) + ")");
        }
    }
    EXPECT_EQ(messages.Log(), "");
}

TEST(EXBaseTest, OtherFaultsNameThemselvesAndUnexpectedItsPlaceAsFarAsItIsKnown) {
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[] { throw EXBase(99); }, "other: EXBase (code 99)"},
        {[] { throw EXUser(42); }, "other: EXUser (code 42)"},
        {[] { throw EXProgrammer(-1); }, "programmer: EXProgrammer (code -1)"},
        {[] { MCThrowUnexpected("ModelCore/ZVFWMC/MCObject", 42); },
         "programmer: EXUnexpected (code 13) at ModelCore/ZVFWMC/MCObject:42"},
        {[] { throw EXUnexpected("ModelCore/ZVFWMC/MCObject", ""); },
         "programmer: EXUnexpected (code 13) at ModelCore/ZVFWMC/MCObject"},
    };
    for (const auto& [toThrow, expected] : cases) {
        SCOPED_TRACE(expected);
        try {
            toThrow();
            ADD_FAILURE() << "nothing thrown";
        } catch (const EXProgrammer& e) {
            EXPECT_EQ("programmer: " + std::string(e.what()), expected);
        } catch (const std::exception& e) {
            EXPECT_EQ("other: " + std::string(e.what()), expected);
        }
    }
    // An overlong place is cut short.
    const std::string full = "EXUnexpected (code 13) at " + std::string(1000, 'd') + ":42";
    const std::string what = EXUnexpected(std::string(1000, 'd').c_str(), "42").what();
    EXPECT_GT(what.size(), std::string("EXUnexpected (code 13) at d").size());
    EXPECT_LT(what.size(), full.size());
    EXPECT_EQ(full.compare(0, what.size(), what), 0);
}

TEST(EXBaseTest, DuplicateFactoryShowsMessage60505WithTheTypeCodeAndReturnsTheAnswer) {
    HUBScopedMessageHandler messages(7);
    ZVTReferenceUser data(new EXMsgData());
    const EXBase& negative = EXDuplicateFactory(-12);  // through the base: the override must be virtual
    EXPECT_EQ(negative.StandardMessage(nullptr), 7);
    EXPECT_EQ(EXDuplicateFactory(530).StandardMessage(static_cast<EXMsgData*>(data())), 7);
    EXPECT_EQ(messages.Log(), "message 60505 (style 0x40): -12\nmessage 60505 (style 0x40): 530");
    ASSERT_EQ(messages.GetMessages().size(), 2u);
    EXPECT_EQ(messages.GetMessages()[0].m_nCall, HUBMessageRecord::callDisplayMessage);
    EXPECT_EQ(messages.GetMessages()[0].m_lTextType, 0);
}

TEST(EXBaseTest, ThrowUnexpectedNamesTheUnitAndTheCurrentLineAndCopiesKeepThem) {
    EXUnexpected copy("", "");
    const long line = __LINE__ + 2;
    try {
        MC_THROW_UNEXPECTED(ZVTString("ModelCore/ZVFWMC/EXBaseTest"));
    } catch (const EXUnexpected& e) {
        copy = e;
    }
    // The thrown object is gone: the copy's text must be its own.
    EXPECT_EQ(std::string(copy.what()),
              "EXUnexpected (code 13) at ModelCore/ZVFWMC/EXBaseTest:" + std::to_string(line));
    EXPECT_EQ(copy.m_xFile, "ModelCore/ZVFWMC/EXBaseTest");
    EXPECT_EQ(copy.m_xLine, ZVTString(line, 10));
}

}  // namespace
