// Covers the file head: its bytes, every result of a read against the running product's limits, heads
// that end early or hold garbage lengths, and the header built from the product identity.

#include "ModelCore/ZVFWMC/MCPersistence.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "platform/HUB.h"

namespace {

struct HeadFields {
    std::string prefix;  // written char by char, the terminator included when given
    long major;
    long minor;
    const char* company;
    const char* product;
    const char* version;
};

const std::string c_sPrefix("MdlCore\0", 8);

std::string Head(const HeadFields& fields) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    for (char c : fields.prefix)
        stream << c;
    stream << fields.major << fields.minor << ZVTString(fields.company) << ZVTString(fields.product)
           << ZVTString(fields.version);
    return medium.str();
}

MCPersHeader Limits() {
    return MCPersHeader(4, 2, "Acme", "Tool", "4.2");
}

MCPersHeader::result Restore(const std::string& bytes, MCPersHeader& header) {
    std::stringstream medium(bytes);
    MCStream stream(medium, ZVTStream::binary);
    return header.RestoreFrom(stream);
}

std::string State(const MCPersHeader& h) {
    return std::to_string(h.GetFileMajorVersion()) + "." + std::to_string(h.GetFileMinorVersion()) + " " +
           h.GetCompanyCode().str() + "/" + h.GetProductCode().str() + " " + h.GetProductVersion().str();
}

TEST(MCPersHeaderTest, EachStoredHeadGivesItsResultAndKeepsOnlyTheFieldsThatPassed) {
    using H = MCPersHeader;
    const std::string badFirst = "mdlCore" + std::string(1, '\0');
    const struct {
        HeadFields stored;
        H::result expected;
        const char* after;
    } cases[] = {
        {{c_sPrefix, 4, 2, "Acme", "Tool", "4.2"}, H::resultOk, "4.2 Acme/Tool 4.2"},
        {{c_sPrefix, 3, 1, "Acme", "Tool", "0.9"}, H::resultOk, "3.1 Acme/Tool 0.9"},
        {{c_sPrefix, -1, -7, "Acme", "Tool", ""}, H::resultOk, "-1.-7 Acme/Tool "},
        {{c_sPrefix, 5, 0, "Acme", "Tool", ""}, H::resultNewerMajor, "4.2 Acme/Tool 4.2"},
        {{c_sPrefix, 3, 5, "Acme", "Tool", ""}, H::resultNewerMinor, "3.2 Acme/Tool 4.2"},
        {{c_sPrefix, 4, 1, "ACME", "Tool", ""}, H::resultOtherCompany, "4.1 Acme/Tool 4.2"},
        {{c_sPrefix, 4, 2, "Acme", "tool", ""}, H::resultOtherProduct, "4.2 Acme/Tool 4.2"},
        {{badFirst, 4, 2, "Acme", "Tool", ""}, H::resultBadPrefix, "4.2 Acme/Tool 4.2"},
        {{"MdlCoreX", 4, 2, "Acme", "Tool", ""}, H::resultBadPrefix, "4.2 Acme/Tool 4.2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.stored.prefix.c_str() + std::string(" ") + c.stored.company + " " + c.stored.product);
        MCPersHeader header = Limits();
        EXPECT_EQ(Restore(Head(c.stored), header), c.expected);
        EXPECT_EQ(State(header), c.after);
    }
}

TEST(MCPersHeaderTest, AHeadCutShortOrClaimingMoreThanItHoldsFailsAsAStream) {
    const std::string valid = Head({c_sPrefix, 4, 2, "Acme", "Tool", "4.2"});
    for (size_t cut = 0; cut < valid.size(); ++cut) {
        SCOPED_TRACE(cut);
        MCPersHeader header = Limits();
        EXPECT_EQ(Restore(valid.substr(0, cut), header), MCPersHeader::resultStreamFailed);
    }
    // The three string lengths: after the prefix and the versions, then after "Acme" and "Tool".
    for (size_t offset : {16, 24, 32}) {
        for (const char* length : {"\xFE\xFF\xFF\xFF", "\x00\x01\x00\x00"}) {
            SCOPED_TRACE(offset);
            std::string bytes = valid;
            bytes.replace(offset, 4, length, 4);
            MCPersHeader header = Limits();
            EXPECT_EQ(Restore(bytes, header), MCPersHeader::resultStreamFailed);
        }
    }
}

TEST(MCPersHeaderTest, SaveWritesThePrefixWithItsZeroThenVersionsAndStringsOrFailsAsAStream) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    MCPersHeader header(3, 1, "Co", "P", "");
    ASSERT_EQ(header.SaveTo(stream), MCPersHeader::resultOk);
    EXPECT_EQ(medium.str(), c_sPrefix + std::string("\3\0\0\0\1\0\0\0", 8) +
                                std::string("\2\0\0\0Co\1\0\0\0P\0\0\0\0", 15));
    MCPersHeader tooWide(0x100000000L, 0, "Acme", "Tool", "");
    EXPECT_EQ(tooWide.SaveTo(stream), MCPersHeader::resultStreamFailed);
    std::istringstream readOnly;
    MCStream input(readOnly, ZVTStream::binary);
    EXPECT_EQ(header.SaveTo(input), MCPersHeader::resultStreamFailed);
}

class MCPersHeaderIdentityTest : public ::testing::Test {
protected:
    void TearDown() override { HUBProductIdent::ClearProductIdent(); }
};

TEST_F(MCPersHeaderIdentityTest, TheRunningProductGivesCodesAndTheFirstTwoVersionNumbers) {
    const std::pair<const char*, const char*> cases[] = {
        {"7", "7.0"},   {"7,3", "7.3"},  {" 7 , 3 ", "7.3"},     {"2, 1, 0, 0", "2.1"}, {"", "0.0"},
        {"x,5", "0.5"}, {"1,,2", "1.0"}, {"1,2,3,4,5,6", "1.2"}, {"1 2,3", "12.3"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        HUBProductIdent::SetProductIdent("Acme", "Tool", "4.2 beta", c.first);
        EXPECT_EQ(State(MCPersHeader()), c.second + std::string(" Acme/Tool 4.2 beta"));
    }
}

TEST_F(MCPersHeaderIdentityTest, WithoutAnIdentityTheHeaderCannotBeMade) {
    HUBProductIdent::ClearProductIdent();
    try {
        MCPersHeader header;
        FAIL() << "no exception";
    } catch (const EXUnexpected& e) {
        EXPECT_EQ(e.m_xFile, "ModelCore/ZVFWMC/MCPersistence");
    }
}

}  // namespace
