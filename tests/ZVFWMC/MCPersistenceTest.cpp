// Covers the file head: its bytes, every result of a read against the running product's limits, heads
// that end early or hold garbage lengths, and the header built from the product identity.

#include <tuple>

#include "support/PersTestSupport.h"

namespace {

using H = MCPersHeader;

std::string Saved(H header) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    EXPECT_EQ(header.SaveTo(stream), H::resultOk);
    return medium.str();
}

std::string State(const H& h) {
    return std::to_string(h.GetFileMajorVersion()) + "." + std::to_string(h.GetFileMinorVersion()) + " " +
           h.GetCompanyCode().str() + "/" + h.GetProductCode().str() + " " + h.GetProductVersion().str();
}

TEST(MCPersHeaderTest, HeadBytesAreFixedAndEachStoredHeadGivesItsResultKeepingOnlyTheFieldsThatPassed) {
    // The prefix with its zero, major and minor in 32 bits, then each string after its 32-bit length.
    const std::string head = "4d646c436f726500030000000100000002000000436f010000005000000000";
    EXPECT_EQ(HexOf(Saved(H(3, 1, "Co", "P", ""))), head);
    const std::string valid = Saved(PersLimits());
    // The stored head, the result of reading it and the fields after (empty: not looked at).
    std::vector<std::tuple<std::string, H::result, const char*>> cases = {
        {Saved(H(3, 1, "Acme", "Tool", "0.9")), H::resultOk, "3.1 Acme/Tool 0.9"},
        {Saved(H(-1, -7, "Acme", "Tool", "")), H::resultOk, "-1.-7 Acme/Tool "},
        {Saved(H(5, 0, "Acme", "Tool", "")), H::resultNewerMajor, "4.2 Acme/Tool 4.2"},
        {Saved(H(3, 5, "Acme", "Tool", "")), H::resultNewerMinor, "3.2 Acme/Tool 4.2"},
        {Saved(H(4, 1, "ACME", "Tool", "")), H::resultOtherCompany, "4.1 Acme/Tool 4.2"},
        {Saved(H(4, 2, "Acme", "tool", "")), H::resultOtherProduct, "4.2 Acme/Tool 4.2"},
        {"m" + valid.substr(1), H::resultBadPrefix, "4.2 Acme/Tool 4.2"},
        {std::string(valid).replace(7, 1, "X"), H::resultBadPrefix, "4.2 Acme/Tool 4.2"},
    };
    // Cut at every byte, or a length of company, product or version claiming more than the stream holds.
    for (size_t cut = 0; cut < valid.size(); ++cut)
        cases.emplace_back(valid.substr(0, cut), H::resultStreamFailed, "");
    for (size_t at : {16, 24, 32})
        for (const char* length : {"\xFE\xFF\xFF\xFF", "\x00\x01\x00\x00"})
            cases.emplace_back(std::string(valid).replace(at, 4, length, 4), H::resultStreamFailed, "");
    for (const auto& [stored, expected, after] : cases) {
        SCOPED_TRACE(HexOf(stored));
        std::stringstream medium(stored);
        MCStream stream(medium, ZVTStream::binary);
        H header = PersLimits();
        EXPECT_EQ(header.RestoreFrom(stream), expected);
        EXPECT_EQ(*after ? State(header) : "", after);
    }
}

TEST(MCPersHeaderTest, TheRunningProductGivesCodesAndTheFirstTwoVersionNumbersOrNoHeaderAtAll) {
    const std::pair<const char*, const char*> cases[] = {
        {"7", "7.0"},   {"7,3", "7.3"},  {" 7 , 3 ", "7.3"},     {"2, 1, 0, 0", "2.1"}, {"", "0.0"},
        {"x,5", "0.5"}, {"1,,2", "1.0"}, {"1,2,3,4,5,6", "1.2"}, {"1 2,3", "12.3"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        HUBProductIdent::SetProductIdent("Acme", "Tool", "4.2 beta", c.first);
        EXPECT_EQ(State(H()), c.second + std::string(" Acme/Tool 4.2 beta"));
    }
    HUBProductIdent::ClearProductIdent();
    EXPECT_THROW(H{}, EXUnexpected) << "without an identity there is no header";
}

}  // namespace
