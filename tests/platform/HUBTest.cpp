// The interface-library stand-in: parameter slots, and delivery of both message calls to a handler and
// to standard error.

#include "platform/HUB.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

namespace {

ZVTBoolean Show(long messageId, long style, const std::vector<const char*>& texts) {
    HUBMessageParameter parameter(static_cast<long>(texts.size()), style);
    for (size_t i = 0; i < texts.size(); ++i)
        parameter.SetString(static_cast<long>(i), texts[i]);
    return HUBInterface::ShowMessage(1, messageId, parameter);
}

TEST(HUBMessageParameterTest, SlotsAreFilledByIndexAndStrayIndexesAreIgnored) {
    HUBMessageParameter parameter(2, 0x30);
    EXPECT_TRUE(parameter.GetString(1).IsNullString());
    for (long index : {-1L, 0L, 1L, 2L})
        parameter.SetString(index, ZVTString(index, 10));
    std::string seen = std::to_string(parameter.GetStringCount());
    for (long index : {-1L, 0L, 1L, 2L})
        seen += " " + (parameter.GetString(index).IsNullString() ? "null" : parameter.GetString(index).str());
    EXPECT_EQ(seen, "2 null 0 1 null");
    EXPECT_EQ(HUBMessageParameter(-3, 0).GetStringCount(), 0);
}

TEST(HUBMessageTest, BothCallsGoToTheHandlerAndGiveBackItsAnswerOrElseToStandardError) {
    HUBScopedMessageHandler handler(0);
    EXPECT_FALSE(Show(607, 0x30, {"12", "87"}));
    handler.SetAnswer(42);
    EXPECT_TRUE(Show(601, 0x10, {"1"}));
    EXPECT_EQ(HUBMessage::DisplayMessage(59000, nullptr, 0x40, "two", HUBMessage::text_type(3)), 42);
    EXPECT_EQ(handler.Log(),
              "message 607 (style 0x30): 12, 87\nmessage 601 (style 0x10): 1\n"
              "message 59000 (style 0x40): , two");
    std::string calls;
    for (const HUBMessageRecord& record : handler.GetMessages())
        calls += std::to_string(record.m_nCall == HUBMessageRecord::callShowMessage) + "/" +
                 std::to_string(record.m_lKind) + "/" + std::to_string(record.m_lTextType) + "/" +
                 std::to_string(record.m_xTexts.size()) + (record.m_xTexts[0].IsNullString() ? "n " : " ");
    EXPECT_EQ(calls, "1/1/0/2 1/1/0/1 0/0/3/2n ");

    // Without a handler each message is one line on standard error: trailing null texts are left out of
    // it, empty ones in the middle are kept.
    HUB::SetMessageHandler(nullptr);
    std::ostringstream captured;
    std::streambuf* old = std::cerr.rdbuf(captured.rdbuf());
    std::string answers = std::to_string(Show(606, 48, {}));
    answers += std::to_string(Show(603, 0x30, {"A", "", "B", nullptr}));
    answers += std::to_string(HUBMessage::DisplayMessage(59000, "N", 0x40, "M", HUBMessage::textPlain));
    std::cerr.rdbuf(old);
    EXPECT_EQ(answers, "111");
    EXPECT_EQ(captured.str(),
              "message 606 (style 0x30)\n"
              "message 603 (style 0x30): A, , B\n"
              "message 59000 (style 0x40): N, M\n");
    HUB::SetMessageHandler(&handler);
}

// Handlers nest and installing one gives back the one before; Terminate drops the handler, so that no
// scope ending brings one back, and the product identity.
TEST(HUBTest, HandlersNestAndTerminateClearsTheHandlerAndTheIdentity) {
    HUBProductIdent::SetProductIdent("Company", "Product", "1.0", "1, 0, 0, 0");
    HUBScopedMessageHandler outer;
    {
        HUBScopedMessageHandler inner;
        EXPECT_EQ(HUB::SetMessageHandler(&outer), &inner);
        Show(601, 0x10, {"1"});
        HUB::SetMessageHandler(&inner);
    }
    Show(602, 0x10, {"2"});
    EXPECT_EQ(outer.Log(), "message 601 (style 0x10): 1\nmessage 602 (style 0x10): 2");
    {
        HUBScopedMessageHandler inner;
        HUB::Terminate();
    }
    EXPECT_EQ(HUB::GetMessageHandler(), nullptr);
    EXPECT_EQ(HUBProductIdent::GetProductIdent(), nullptr);
}

}  // namespace
