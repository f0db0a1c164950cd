// Covers the map of stored user-defined property codes on a live core: the stream that adopts it and
// translates through it, the environment's global-section hooks, and RegisterUDPs against real roots.

#include "support/PersTestSupport.h"

namespace {

using R = MCFactoryRegistry;

/// Counts the maps that go, to show who deletes them.
struct CountedMap : MCUDPMap {
    explicit CountedMap(int& deleted) : m_rDeleted(deleted) {}
    ~CountedMap() override { ++m_rDeleted; }
    int& m_rDeleted;
};

TEST(MCUDPMapTest, TheStreamOwnsOneMapAndTranslatesOnlyWhatItKnows) {
    int deleted = 0;
    auto* first = new CountedMap(deleted);
    {
        std::stringstream medium;
        MCStream stream(medium, ZVTStream::binary);
        // Without a map a stored negative code names nothing here.
        EXPECT_EQ(stream.TranslateUDPType(-3), 0);
        EXPECT_EQ(stream.TranslateUDPType(87), 87);
        first->Add(-3, -7);
        stream.AdoptUDPMap(first);
        stream.AdoptUDPMap(first);
        EXPECT_EQ(deleted, 0) << "adopting the adopted map again must not free it";
        EXPECT_EQ(stream.TranslateUDPType(-3), -7);
        EXPECT_EQ(stream.TranslateUDPType(-4), -4);
        // The earlier map goes back to its adopter, who may still be using it.
        stream.AdoptUDPMap(new CountedMap(deleted));
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
    delete first;
}

using UDPMapModelTest = PersTest;

// A global section saved by the environment comes back as a map; RegisterUDPs then gives the stored names
// this process does not know fresh codes for the root.
TEST_F(UDPMapModelTest, GlobalsRoundTripAndRegisterUDPsGivesUnknownNamesFreshCodesForTheRoot) {
    struct : MCEnvironment {
    } environment;  // not the singleton: it must leave the installed one alone when it goes
    MCObject* root = Make(nullptr, PersRoot::c_sType);
    const short code = R::RegisterUDP("MapTest.Colour", MCCodes::pInteger, root, true);
    ASSERT_LT(code, 0);
    ASSERT_TRUE(R::AddPropertyUsage(TestNode::c_sType, code, 1));
    std::stringstream saved;
    MCStream stream(saved, ZVTStream::binary);
    environment.SaveGlobals(stream, root);
    char token = 0, next = 0;
    stream >> token >> next;
    stream.SetPendingToken(next);  // as a reader that looked one token ahead leaves it
    MCUDPMap* restored = nullptr;
    environment.RestoreGlobalToken(token, stream, &restored);
    ASSERT_NE(restored, nullptr);
    short to = 0;
    EXPECT_TRUE(restored->Translate(code, to) && to == code);
    MCUDPMap* const same = restored;
    stream.seekg(0);
    stream >> token;
    environment.RestoreGlobalToken(token, stream, &restored);
    EXPECT_EQ(restored, same) << "a given map is read into, not replaced";
    delete restored;

    const short known = R::RegisterUDP("MapTest.Known", MCCodes::pInteger, nullptr, false);
    const short probe = R::RegisterUDP("MapTest.Probe", MCCodes::pInteger, nullptr, false);
    ASSERT_LT(probe, known);
    MCObject* child = MakeNode(MakeNode(root));
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
    environment.RestoreGlobalToken(MCStream::tokenGlobals, in, &map);
    in.AdoptUDPMap(map);
    ASSERT_EQ(map->m_xUDPInfos.Length(), 2u);

    EXPECT_FALSE(R::RegisterUDPs(*MakeNode(), map)) << "no root above";
    EXPECT_FALSE(R::RegisterUDPs(*child, nullptr));
    EXPECT_EQ(in.TranslateUDPType(-1), -1) << "nothing registered without a root";

    ASSERT_TRUE(R::RegisterUDPs(*child, map));
    const short fresh = R::Lookup(ZVTString("MapTest.Fresh"));
    EXPECT_EQ(fresh, probe - 1);
    const std::vector<short> translated{in.TranslateUDPType(-1), in.TranslateUDPType(-2),
                                        in.TranslateUDPType(-3)};
    EXPECT_EQ(translated, (std::vector<short>{fresh, 0, known})) << "a bad type is dropped";
    EXPECT_TRUE(R::IsRegistered(fresh, root) && R::IsRegistered(known, root))
        << "a known name joins the root";
    EXPECT_EQ(R::GetClipFlag(TestNode::c_sType, fresh), R::clipUndecided);
    unsigned long flags = 0;
    EXPECT_TRUE(R::GetFlags(fresh, flags) && (flags & R::flagFirstOn) != 0);
}

}  // namespace
