// Covers the record chain: appending and moving both ways on a good chain, cutting it by appending
// behind a record that has a successor, WriteRec's refusals, and the result of each kind of damage.

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "ModelCore/ModelCore.h"

namespace {

using R = MCRecMgr;
constexpr long c_lNone = R::c_nNoPos;

// A record head as stored.
std::string Rec(long previous, long next, char token = MCStream::tokenRecord) {
    std::string out(1, token);
    for (long link : {previous, next})
        for (int i = 0; i < 4; ++i)
            out += static_cast<char>(static_cast<unsigned long>(link) >> (8 * i));
    return out;
}

// Moves one way until a move answers other than eOk: "id:payload ... |result", cut off as "|loop"; a failed
// move must change nothing.
std::string Walk(R& manager, bool forward, bool payloads) {
    std::string out;
    for (int step = 0; step < 64; ++step) {
        const MCRecMgrState before = manager.GetState();
        const R::eResult result = forward ? manager.MoveNext() : manager.MovePrev();
        if (result != R::eOk) {
            EXPECT_TRUE(result == R::eAtEnd || result == R::eNoRecord || manager.GetState() == before);
            return out + "|" + std::to_string(result);
        }
        ZVTString payload;
        if (payloads)
            *manager.GetStream() >> payload;
        out += std::to_string(manager.GetCurrRecId()) + (payloads ? ":" + payload.str() : "") + " ";
    }
    return out + "|loop";
}

// Appends from where the manager stands, as a host does after the last record's payload.
void Append(R& manager, std::initializer_list<const char*> payloads) {
    for (const char* payload : payloads) {
        ASSERT_EQ(manager.WriteRec(), R::eOk);
        EXPECT_TRUE(manager.eof());
        *manager.GetStream() << ZVTString(payload);
    }
}

TEST(MCRecMgrTest, AppendedRecordsWalkBothWaysCutAndRefuseBadWrites) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    R writer(stream);
    EXPECT_TRUE(writer.bof() && writer.eof() && writer.MoveNext() == R::eAtEnd);
    Append(writer, {"a", "bb", "ccc"});

    R reader(stream);
    EXPECT_EQ(Walk(reader, true, true), "0:a 14:bb 29:ccc |1");
    // Off the front the manager stands before the chain, and the next step is the record at 0.
    EXPECT_EQ(Walk(reader, false, true), "14:bb 0:a |4");
    EXPECT_TRUE(reader.bof() && !reader.eof() && reader.GetCurrRecId() == c_lNone);
    EXPECT_EQ(Walk(reader, true, false), "0 14 29 |1");
    // A position inside a payload is no record; SetState returns to a saved record.
    ASSERT_EQ(reader.MoveToRecId(14), R::eOk);
    MCRecMgrState saved = reader.GetState();
    EXPECT_EQ(reader.MoveToRecId(24), R::eBadRecord);
    ASSERT_EQ(reader.MoveLast(), R::eOk);
    reader.SetState(saved);
    EXPECT_TRUE(reader.GetState() == saved && reader.GetState() != MCRecMgrState());  // no state: all unset
    stream.seekg(0);
    EXPECT_TRUE(reader.GetState() != saved) << "one field apart is another state";
    reader.SetState(saved);
    EXPECT_EQ(Walk(reader, true, true), "29:ccc |1");

    // Appending behind a record that has a successor cuts the chain there: what was cut off links back to
    // a record that no longer leads to it.
    ASSERT_EQ(reader.MoveFirst(), R::eOk);
    stream.seekp(static_cast<long>(medium.str().size()));
    Append(reader, {"d"});
    EXPECT_EQ(Walk(reader, false, true), "0:a |4");
    EXPECT_EQ(Walk(reader, true, true), "0:a 45:d |1");
    ASSERT_EQ(reader.MoveToRecId(14), R::eOk);
    EXPECT_EQ(Walk(reader, false, false), "|2");

    // WriteRec refuses a head over the current one's, or behind bytes that are no longer a head.
    const std::string bytes = medium.str();
    for (long put : {15L, 10L}) {
        stream.seekp(put);
        EXPECT_EQ(reader.WriteRec(), R::eBadRecord);
    }
    ASSERT_EQ(reader.MoveFirst(), R::eOk);
    stream.seekp(0);
    stream << static_cast<char>(0);
    stream.seekp(static_cast<long>(bytes.size()));
    EXPECT_EQ(reader.WriteRec(), R::eBadRecord);
    EXPECT_EQ(medium.str(), std::string(1, '\0') + bytes.substr(1));
}

TEST(MCRecMgrTest, EachDamageEndsTheWalkWithItsResult) {
    const std::string two = Rec(c_lNone, 9) + Rec(0, c_lNone);
    // The bytes, where to start (c_lNone: before the chain), and the walks forward, then back from where
    // that ended.
    const std::tuple<std::string, long, const char*> cases[] = {
        {two.substr(0, 14), c_lNone, "0 |3 / |4"},                             // second head cut
        {two.substr(0, 5), c_lNone, "|1 / |4"},                                // first head cut
        {Rec(c_lNone, 100), c_lNone, "0 |3 / |4"},                             // next beyond the stream
        {Rec(c_lNone, -7), c_lNone, "0 |3 / |4"},                              // negative next
        {Rec(c_lNone, 9) + Rec(0, c_lNone, 5), c_lNone, "0 |2 / |4"},          // bad token
        {Rec(c_lNone, 9) + Rec(5, c_lNone), c_lNone, "0 |2 / |4"},             // crossed link
        {Rec(c_lNone, 0), c_lNone, "0 |2 / |4"},                               // next to itself
        {Rec(c_lNone, 9) + Rec(0, 0), c_lNone, "0 9 |2 / 0 |4"},               // back to the head
        {Rec(c_lNone, c_lNone) + Rec(18, 18) + Rec(9, 9), 9, "18 |2 / 9 |2"},  // ring off the chain
        {Rec(9, c_lNone) + Rec(c_lNone, 0), c_lNone, "|2 / |4"},               // head at 0 claims a previous
    };
    int row = 0;
    for (const auto& [bytes, start, walks] : cases) {
        SCOPED_TRACE(row++);
        std::stringstream medium(bytes);
        MCStream stream(medium, ZVTStream::binary);
        R manager(stream);
        EXPECT_EQ(start == c_lNone ? R::eOk : manager.MoveToRecId(start), R::eOk);
        const std::string forward = Walk(manager, true, false);
        EXPECT_EQ(forward + " / " + Walk(manager, false, false), walks);
        EXPECT_EQ(medium.str(), bytes);  // reading writes nothing
    }
}

}  // namespace
