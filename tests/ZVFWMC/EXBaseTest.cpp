// Covers the exception family: each class's code, the side it is caught on and its what() text, the one
// standard message, and the EXUnexpected helper with its place.

#include "ModelCore/ZVFWMC/EXBase.h"

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>

#include "platform/HUB.h"

namespace {

struct ThrowCase {
    long m_lCode;
    const char* m_pcName;
    std::function<void()> m_xThrow;
};

const ThrowCase c_axConcrete[] = {
    {EXBase::codeDuplicateFactory, "EXDuplicateFactory", [] { throw EXDuplicateFactory(5); }},
    {EXBase::codeDuplicateProperty, "EXDuplicateProperty", [] { throw EXDuplicateProperty(); }},
    {EXBase::codeDuplicateResolution, "EXDuplicateResolution",
     [] { throw EXDuplicateResolution(nullptr, nullptr); }},
    {EXBase::codeDuplicateSemantic, "EXDuplicateSemantic",
     [] { throw EXDuplicateSemantic(nullptr, nullptr); }},
    {EXBase::codeGenericObject, "EXGenericObject", [] { throw EXGenericObject(); }},
    {EXBase::codeInvalidIter, "EXInvalidIter", [] { throw EXInvalidIter(); }},
    {EXBase::codeMissingFactory, "EXMissingFactory", [] { throw EXMissingFactory(5, nullptr); }},
    {EXBase::codeMissingSemanticHandler, "EXMissingSemanticHandler",
     [] { throw EXMissingSemanticHandler(5); }},
    {EXBase::codeNoMapPointer, "EXNoMapPointer", [] { throw EXNoMapPointer(); }},
    {EXBase::codeNonOwnedObject, "EXNonOwnedObject", [] { throw EXNonOwnedObject(); }},
    {EXBase::codeNullOwner, "EXNullOwner", [] { throw EXNullOwner(); }},
    {EXBase::codeRequiredProperty, "EXRequiredProperty", [] { throw EXRequiredProperty(1, 2); }},
    {EXBase::codeUnexpected, "EXUnexpected", [] { throw EXUnexpected("file", "1"); }},
    {EXBase::codeUnknownToken, "EXUnknownToken", [] { throw EXUnknownToken(); }},
    {EXBase::codeMissingComparisonObject, "EXMissingComparisonObject",
     [] { throw EXMissingComparisonObject(); }},
    {EXBase::codeInvalidComparison, "EXInvalidComparison", [] { throw EXInvalidComparison(); }},
};

// Each concrete class: a programmer fault (never a user one) with its code, no standard message but
// EXDuplicateFactory's, and what() naming the class and the code.
TEST(EXBaseTest, EveryConcreteClassIsAProgrammerFaultWithItsCodeAndName) {
    HUBScopedMessageHandler messages;
    long expectedCode = 0;  // the codes stand in hosts' handlers: 1..codeLast in the table's order
    for (const ThrowCase& c : c_axConcrete) {
        EXPECT_EQ(c.m_lCode, ++expectedCode) << c.m_pcName;
        SCOPED_TRACE(c.m_pcName);
        try {
            c.m_xThrow();
            ADD_FAILURE() << "nothing thrown";
        } catch (const EXUser&) {
            ADD_FAILURE() << "caught as a user fault";
        } catch (const EXProgrammer& e) {
            EXPECT_EQ(e.GetExceptionCode(), c.m_lCode);
            // Only EXDuplicateFactory has a standard message.
            if (c.m_lCode != EXBase::codeDuplicateFactory) {
                EXPECT_EQ(e.StandardMessage(nullptr), 0);
            }
            if (c.m_lCode != EXBase::codeUnexpected) {  // EXUnexpected adds its place, below
                EXPECT_EQ(std::string(e.what()),
                          std::string(c.m_pcName) + " (code " + std::to_string(c.m_lCode) + ")");
            }
        }
    }
    EXPECT_EQ(expectedCode, EXBase::codeLast);
    EXPECT_EQ(messages.Log(), "");
}

TEST(EXBaseTest, BaseAndUserFaultsAreNoProgrammerFaultsAndNameThemselves) {
    const struct {
        std::function<void()> m_xThrow;
        const char* m_pcWhat;
    } cases[] = {
        {[] { throw EXBase(99); }, "EXBase (code 99)"},
        {[] { throw EXUser(42); }, "EXUser (code 42)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcWhat);
        try {
            c.m_xThrow();
            ADD_FAILURE() << "nothing thrown";
        } catch (const EXProgrammer&) {
            ADD_FAILURE() << "caught as a programmer fault";
        } catch (const std::exception& e) {
            EXPECT_EQ(std::string(e.what()), c.m_pcWhat);
        }
    }
    EXPECT_EQ(std::string(EXProgrammer(-1).what()), "EXProgrammer (code -1)");
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
    const ZVTString file("ModelCore/ZVFWMC/EXBaseTest");
    EXUnexpected copy("", "");
    const long expectedLine = __LINE__ + 2;
    try {
        MC_THROW_UNEXPECTED(file);
    } catch (const EXUnexpected& e) {
        copy = e;
    }
    EXPECT_EQ(copy.m_xFile, "ModelCore/ZVFWMC/EXBaseTest");
    EXPECT_EQ(copy.m_xLine, ZVTString(expectedLine, 10));
    EXPECT_EQ(copy.GetExceptionCode(), EXBase::codeUnexpected);
    // The thrown object is gone: the copy's text must be its own.
    EXPECT_EQ(std::string(copy.what()),
              "EXUnexpected (code 13) at ModelCore/ZVFWMC/EXBaseTest:" + std::to_string(expectedLine));
}

TEST(EXBaseTest, UnexpectedNamesItsPlaceOnlyAsFarAsItIsKnown) {
    const struct {
        std::function<void()> m_xThrow;
        const char* m_pcWhat;
    } cases[] = {
        {[] { MCThrowUnexpected("ModelCore/ZVFWMC/MCObject", 42); },
         "EXUnexpected (code 13) at ModelCore/ZVFWMC/MCObject:42"},
        {[] { throw EXUnexpected("ModelCore/ZVFWMC/MCObject", ""); },
         "EXUnexpected (code 13) at ModelCore/ZVFWMC/MCObject"},
        {[] { throw EXUnexpected(ZVTString(), "42"); }, "EXUnexpected (code 13)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcWhat);
        try {
            c.m_xThrow();
            ADD_FAILURE() << "nothing thrown";
        } catch (const EXUnexpected& e) {
            EXPECT_EQ(std::string(e.what()), c.m_pcWhat);
        }
    }
}

TEST(EXBaseTest, AnOverlongPlaceIsCutShortInWhat) {
    const std::string file(1000, 'd');
    const EXUnexpected e(file.c_str(), "42");
    const std::string full = "EXUnexpected (code 13) at " + file + ":42";
    const std::string what = e.what();
    EXPECT_GT(what.size(), std::string("EXUnexpected (code 13) at d").size());
    EXPECT_LT(what.size(), full.size());
    EXPECT_EQ(full.compare(0, what.size(), what), 0);
}

}  // namespace
