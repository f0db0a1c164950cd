// Covers the map of stored user-defined property codes on a live core: the stream that adopts it and
// translates through it, the environment's global-section hooks, and RegisterUDPs against real roots.

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/PersTestSupport.h"

namespace {

using R = MCFactoryRegistry;

/// Counts the maps that go, to show who deletes them.
class CountedMap : public MCUDPMap {
public:
    explicit CountedMap(int& deleted) : m_rDeleted(deleted) {}
    ~CountedMap() override { ++m_rDeleted; }

private:
    int& m_rDeleted;
};

std::string Render(MCUDPMap& map) {
    std::string out;
    for (MCMapToIterT<short, short> it(map); ++it;)
        out += (out.empty() ? "" : " ") + std::to_string(it.From()) + ">" + std::to_string(it.To());
    return out;
}

TEST(MCUDPMapTest, TheStreamOwnsOneMapAndTranslatesOnlyWhatItKnows) {
    int deleted = 0;
    {
        std::stringstream medium;
        MCStream stream(medium, ZVTStream::binary);
        EXPECT_EQ(stream.GetUDPMap(), nullptr);
        // Without a map a stored negative code names nothing here.
        EXPECT_EQ(stream.TranslateUDPType(-3), 0);
        EXPECT_EQ(stream.TranslateUDPType(87), 87);

        auto* first = new CountedMap(deleted);
        first->Add(-3, -7);
        stream.AdoptUDPMap(first);
        stream.AdoptUDPMap(first);
        EXPECT_EQ(deleted, 0) << "adopting the adopted map again must not free it";
        EXPECT_EQ(stream.TranslateUDPType(-3), -7);
        EXPECT_EQ(stream.TranslateUDPType(-4), -4);
        EXPECT_EQ(stream.TranslateUDPType(87), 87);

        auto* second = new CountedMap(deleted);
        stream.AdoptUDPMap(second);
        EXPECT_EQ(deleted, 1);
        EXPECT_EQ(stream.GetUDPMap(), second);
        EXPECT_EQ(stream.TranslateUDPType(-3), -3);
    }
    EXPECT_EQ(deleted, 2);
}

class UDPMapModelTest : public PersTest {
protected:
    void SetUp() override {
        PersTest::SetUp();
        m_pxRoot = Make(nullptr, PersRoot::c_sType);
        m_pxChild = MakeNode(MakeNode(m_pxRoot));
    }

    MCObject* m_pxRoot = nullptr;
    MCObject* m_pxChild = nullptr;
    // Not the singleton: it must leave the installed one alone when it goes.
    class : public MCEnvironment {
    } m_xEnvironment;
};

TEST_F(UDPMapModelTest, GlobalsRoundTripThroughTheEnvironment) {
    const short code = R::RegisterUDP("MapTest.Colour", MCCodes::pInteger, m_pxRoot, true);
    ASSERT_LT(code, 0);
    ASSERT_TRUE(R::AddPropertyUsage(TestNode::c_sType, code, 1));
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    m_xEnvironment.SaveGlobals(stream, m_pxRoot);

    for (bool peek : {false, true}) {
        SCOPED_TRACE(peek ? "next token pending" : "next token in the stream");
        stream.seekg(0);
        char token = 0;
        stream >> token;
        ASSERT_EQ(token, MCStream::tokenGlobals);
        if (peek) {
            char next = 0;
            stream >> next;
            stream.SetPendingToken(next);
        }
        MCUDPMap* map = nullptr;
        m_xEnvironment.RestoreGlobalToken(token, stream, &map);
        ASSERT_NE(map, nullptr);
        EXPECT_EQ(Render(*map), std::to_string(code) + ">" + std::to_string(code));
        MCUDPMap* const same = map;
        stream.seekg(0);
        stream >> token;
        m_xEnvironment.RestoreGlobalToken(token, stream, &map);
        EXPECT_EQ(map, same) << "a given map is read into, not replaced";
        delete map;
    }
}

TEST_F(UDPMapModelTest, RegisterUDPsGivesUnknownNamesFreshCodesForTheRoot) {
    const short known = R::RegisterUDP("MapTest.Known", MCCodes::pInteger, nullptr, false);
    const short probe = R::RegisterUDP("MapTest.Probe", MCCodes::pInteger, nullptr, false);
    ASSERT_LT(probe, known);
    const unsigned short on = 1, off = 0;
    std::stringstream medium;
    {
        MCStream out(medium, ZVTStream::binary);
        // Stored codes as another process gave them; -1 may well be taken here.
        out << static_cast<char>(1) << short(-1) << ZVTString("MapTest.Fresh") << short(87) << on << 1L
            << TestNode::c_sType;
        out << static_cast<char>(1) << short(-2) << ZVTString("MapTest.BadType") << short(999) << off << 0L;
        out << static_cast<char>(1) << short(-3) << ZVTString("MapTest.Known") << short(87) << off << 0L
            << static_cast<char>(0x15);
    }
    MCStream in(medium, ZVTStream::binary);
    MCUDPMap* map = nullptr;
    m_xEnvironment.RestoreGlobalToken(MCStream::tokenGlobals, in, &map);
    in.AdoptUDPMap(map);
    ASSERT_EQ(map->m_xUDPInfos.Length(), 2u);

    MCObject* orphan = MakeNode();
    EXPECT_FALSE(R::RegisterUDPs(*orphan, map)) << "no root above";
    EXPECT_FALSE(R::RegisterUDPs(*m_pxChild, nullptr));
    EXPECT_EQ(in.TranslateUDPType(-1), -1) << "nothing registered without a root";

    ASSERT_TRUE(R::RegisterUDPs(*m_pxChild, map));
    const short fresh = R::Lookup(ZVTString("MapTest.Fresh"));
    EXPECT_EQ(fresh, probe - 1);
    EXPECT_EQ(in.TranslateUDPType(-1), fresh);
    EXPECT_EQ(in.TranslateUDPType(-2), 0);
    EXPECT_EQ(in.TranslateUDPType(-3), known);
    EXPECT_TRUE(R::IsRegistered(fresh, m_pxRoot));
    EXPECT_TRUE(R::IsRegistered(known, m_pxRoot)) << "a known name joins the root too";
    EXPECT_EQ(R::GetClipFlag(TestNode::c_sType, fresh), R::clipUndecided);
    unsigned long flags = 0;
    ASSERT_TRUE(R::GetFlags(fresh, flags));
    EXPECT_TRUE(flags & R::flagFirstOn);

    // Properties of the model can now be made under the translated code.
    EXPECT_TRUE(SetLong(m_pxChild, in.TranslateUDPType(-1), 42));
    EXPECT_EQ(GetLong(m_pxChild, fresh), "42");
}

}  // namespace
