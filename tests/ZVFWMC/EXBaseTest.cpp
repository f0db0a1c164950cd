// The exception family: each class's code, the side it is caught on and its what() text, the one
// standard message, and EXUnexpected with its place.

#include "ModelCore/ZVFWMC/EXBase.h"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>

#include "platform/HUB.h"

namespace {

// "side code: what()" of what `toThrow` throws.
std::string Caught(const std::function<void()>& toThrow) {
    try {
        toThrow();
    } catch (const EXBase& e) {
        const char* side = dynamic_cast<const EXUser*>(&e)         ? "user "
                           : dynamic_cast<const EXProgrammer*>(&e) ? "programmer "
                                                                   : "other ";
        return side + std::to_string(e.GetExceptionCode()) + ": " + e.what();
    }
    return "nothing thrown";
}

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

// Each concrete class is a programmer fault with its code, and only EXDuplicateFactory has a standard
// message.
TEST(EXBaseTest, EveryConcreteClassIsAProgrammerFaultWithItsCodeAndName) {
    EXPECT_EQ(static_cast<long>(std::size(c_axConcrete)), EXBase::codeLast);
    for (size_t i = 0; i < std::size(c_axConcrete); ++i) {
        const std::string code = std::to_string(i + 1);
        EXPECT_EQ(Caught(c_axConcrete[i].second),
                  "programmer " + code + ": " + c_axConcrete[i].first + " (code " + code + ")");
    }
    EXPECT_EQ(EXNullOwner().StandardMessage(nullptr), 0);
}

TEST(EXBaseTest, OtherFaultsNameThemselvesAndUnexpectedItsPlaceAsFarAsItIsKnown) {
    const std::string far(1000, 'd');
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { throw EXBase(99); }, "other 99: EXBase (code 99)"},
        {[] { throw EXUser(42); }, "user 42: EXUser (code 42)"},
        {[] { throw EXProgrammer(-1); }, "programmer -1: EXProgrammer (code -1)"},
        {[] { MCThrowUnexpected("ModelCore/ZVFWMC/MCObject", 42); },
         "programmer 13: EXUnexpected (code 13) at ModelCore/ZVFWMC/MCObject:42"},
        {[] { throw EXUnexpected("ModelCore/ZVFWMC/MCObject", ""); },
         "programmer 13: EXUnexpected (code 13) at ModelCore/ZVFWMC/MCObject"},
    };
    for (const auto& [toThrow, expected] : cases)
        EXPECT_EQ(Caught(toThrow), expected);
    // An overlong place is cut short.
    const std::string full = "EXUnexpected (code 13) at " + far + ":42",
                      what = EXUnexpected(far.c_str(), "42").what();
    EXPECT_TRUE(what.size() > full.find('d') && what.size() < full.size() &&
                full.compare(0, what.size(), what) == 0)
        << what;
    // The macro names the current line; a copy outlives the thrown object with a text of its own.
    EXUnexpected copy("", "");
    const long line = __LINE__ + 2;
    try {
        MC_THROW_UNEXPECTED(ZVTString("ModelCore/ZVFWMC/EXBaseTest"));
    } catch (const EXUnexpected& e) {
        copy = e;
    }
    EXPECT_EQ(std::string(copy.what()),
              "EXUnexpected (code 13) at ModelCore/ZVFWMC/EXBaseTest:" + std::to_string(line));
}

TEST(EXBaseTest, DuplicateFactoryShowsMessage60505WithTheTypeCodeAndReturnsTheAnswer) {
    HUBScopedMessageHandler messages(7);
    ZVTReferenceUser data(new EXMsgData());
    const EXBase& negative = EXDuplicateFactory(-12);  // through the base: the override must be virtual
    EXPECT_EQ(negative.StandardMessage(nullptr), 7);
    EXPECT_EQ(EXDuplicateFactory(530).StandardMessage(static_cast<EXMsgData*>(data())), 7);
    EXPECT_EQ(messages.Log(), "message 60505 (style 0x40): -12\nmessage 60505 (style 0x40): 530");
    const HUBMessageRecord& first = messages.GetMessages().at(0);
    EXPECT_TRUE(first.m_nCall == HUBMessageRecord::callDisplayMessage && first.m_lTextType == 0);
}

}  // namespace
