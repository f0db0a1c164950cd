// Covers user-defined properties in the registry: how a name gets its code and which roots hold it, and
// the global section: its bytes, reading it in a process that numbered the names otherwise, cut short, and
// bad input.

#include <map>
#include <sstream>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"
#include "support/RegistryTestSupport.h"

namespace {

using R = MCFactoryRegistry;

// Roots are only keys to the registry; it never looks into them.
alignas(16) char c_acRoots[2][16];
MCObject* const c_pxRootA = reinterpret_cast<MCObject*>(c_acRoots[0]);
MCObject* const c_pxRootB = reinterpret_cast<MCObject*>(c_acRoots[1]);

constexpr short c_sNode = 7001;
constexpr short c_sLeaf = 7002;

/// Stored bytes written field by field, as another process would have written them.
struct Section {
    std::stringstream medium;
    MCStream stream{medium, ZVTStream::binary};

    Section& Token(int token) {
        stream << static_cast<char>(token);
        return *this;
    }
    Section& Record(short code, const char* name, short concrete, unsigned short first, long count,
                    std::vector<short> types) {
        stream << static_cast<char>(MCStream::tokenProperty) << code << ZVTString(name) << concrete << first
               << count;
        for (short type : types)
            stream << type;
        return *this;
    }
    std::string Str() const { return medium.str(); }
};

/// A map rendered as "stored>current ..." sorted by stored code, then "| name(code,type,first:types)"
/// for each unknown record.
std::string Render(MCUDPMap& map) {
    std::map<short, short> pairs;
    for (MCMapToIterT<short, short> it(map); ++it;)
        pairs[it.From()] = it.To();
    std::string out;
    for (auto& pair : pairs)
        out += (out.empty() ? "" : " ") + std::to_string(pair.first) + ">" + std::to_string(pair.second);
    for (size_t i = 0; i < map.m_xUDPInfos.Length(); ++i) {
        const MCUDPInfo& info = map.m_xUDPInfos[i];
        out += " | " + std::string(info.m_xName) + "(" + std::to_string(info.m_sCode) + "," +
               std::to_string(info.m_sConcreteType) + "," + std::to_string(info.m_usFirst) + ":";
        for (size_t j = 0; j < info.m_xUsingTypes.Length(); ++j)
            out += (j ? "," : "") + std::to_string(info.m_xUsingTypes[j]);
        out += ")";
    }
    return out;
}

std::string Restore(const std::string& bytes, MCUDPMap& map) {
    std::stringstream medium(bytes);
    MCStream stream(medium, ZVTStream::binary);
    R::GetInstance()->RestoreFrom(stream, &map, nullptr);
    return Render(map);
}

// Which of the two roots hold `code`, "unknown" when it is not registered at all.
std::string Held(short code) {
    if (!R::IsRegistered(code, nullptr))
        return "unknown";
    return std::string(R::IsRegistered(code, c_pxRootA) ? "A" : "") +
           (R::IsRegistered(code, c_pxRootB) ? "B" : "");
}

class UDPTest : public FreshRegistryTest {
protected:
    void SetUp() override {
        FreshRegistryTest::SetUp();
        DefineFixedTypes();
    }
    /// What every process knows: Integer, two object types and an alias of Integer.
    void DefineFixedTypes() {
        ASSERT_TRUE(R::RegisterConcreteProperty(MCCodes::pInteger, "Integer", new CountingFactory(counters),
                                                false, false, false, false) &&
                    R::RegisterAbstractObject(c_sNode, "Node", 0) &&
                    R::RegisterAbstractObject(c_sLeaf, "Leaf", c_sNode) &&
                    R::RegisterAliasProperty(7101, "Weight", MCCodes::pInteger, false, false, false, false));
    }
    static std::string Save(MCObject* model) {
        std::stringstream medium;
        MCStream stream(medium, ZVTStream::binary);
        R::GetInstance()->SaveTo(stream, model);
        return medium.str();
    }
};

TEST_F(UDPTest, CodesComeDownwardsByNameAndModelsJoinTheEntry) {
    EXPECT_EQ(R::RegisterUDP("Colour", MCCodes::pInteger, c_pxRootA, true), -1);
    EXPECT_EQ(R::RegisterUDP("Size", MCCodes::pInteger, nullptr, false), -2);
    EXPECT_EQ(R::RegisterUDP("Colour", MCCodes::pInteger, c_pxRootB, false), -1);
    EXPECT_EQ(Held(-1) + " " + Held(-2), "AB ");
    unsigned long flags = 0;
    EXPECT_TRUE(R::GetFlags(-1, flags) && R::Translate(-1, false) == MCCodes::pInteger);
    EXPECT_EQ(flags, R::flagProperty | R::flagAlias | R::flagUser | R::flagSecondOn | R::flagFirstOn);

    const std::pair<const char*, short> refused[] = {
        {"Colour", 7101},                // known name, other concrete type
        {"Integer", MCCodes::pInteger},  // a fixed property's name
        {"Node", MCCodes::pInteger},     // a fixed object type's name
        {"", MCCodes::pInteger},         // no name
        {"New", 7101},                   // an alias as the value type
        {"New", c_sNode},                // an object type as the value type
        {"New", 999},                    // an unknown value type
    };
    for (const auto& [name, concrete] : refused)
        EXPECT_EQ(R::RegisterUDP(name, concrete, c_pxRootA, false), 0) << name << "/" << concrete;
    EXPECT_EQ(R::RegisterUDP("New", MCCodes::pInteger, nullptr, false), -3) << "refusals use up no codes";

    // Removing a model keeps the code, whether or not the model held it; validating a persistence unit
    // adds the model again.
    EXPECT_TRUE(R::RemoveUDP(-1, c_pxRootA) && R::RemoveUDP(-1, c_pxRootA) && Held(-1) == "B");
    EXPECT_EQ(R::RegisterUDP("Colour", MCCodes::pInteger, c_pxRootB, false), -1);
    EXPECT_FALSE(R::RemoveUDP(MCCodes::pInteger, c_pxRootA) || R::RemoveUDP(-9, c_pxRootA) ||
                 R::ValidatePersistenceUnit(7101, c_pxRootA) || R::ValidatePersistenceUnit(-9, c_pxRootA) ||
                 R::ValidatePersistenceUnit(-1, nullptr));
    EXPECT_TRUE(R::ValidatePersistenceUnit(-1, c_pxRootA) && Held(-1) == "AB");
    R::DeleteInstance();
    EXPECT_FALSE(R::ValidatePersistenceUnit(-1, c_pxRootA));
}

TEST_F(UDPTest, NegativeCodesTakenByTheHostAreSkippedAndTheRangeEnds) {
    ASSERT_TRUE(R::RegisterAliasProperty(-1, "HostOwn", MCCodes::pInteger, false, false, false, false));
    EXPECT_EQ(R::RegisterUDP("First", MCCodes::pInteger, nullptr, false), -2);
    for (int i = 3; i <= 32768; ++i)
        ASSERT_EQ(R::RegisterUDP(("U" + std::to_string(i)).c_str(), MCCodes::pInteger, nullptr, false), -i);
    EXPECT_EQ(R::RegisterUDP("OneTooMany", MCCodes::pInteger, nullptr, false), 0);
    EXPECT_EQ(R::RegisterUDP("U32768", MCCodes::pInteger, c_pxRootA, false), -32768);
}

TEST_F(UDPTest, SectionHoldsTheModelsPropertiesOnly) {
    EXPECT_EQ(Save(c_pxRootA), "\x11\x15");
    R::RegisterUDP("Other", MCCodes::pInteger, c_pxRootB, false);
    const short code = R::RegisterUDP("Ab", MCCodes::pInteger, c_pxRootA, true);
    ASSERT_TRUE(R::AddPropertyUsage(c_sNode, code, 1) && R::AddPropertyUsage(c_sLeaf, code, 1));
    auto used = [](MCObject* model) {  // a user-defined usage counts for its models only
        constexpr unsigned long mask = R::usageCore | R::usageUser | R::flagWithInherited;
        return CodeList([&](auto& v) { return R::GetPropertyUsages(c_sLeaf, v, mask, model); });
    };
    EXPECT_EQ(used(c_pxRootA) + " | " + used(c_pxRootB), "-2 -2 | ");
    EXPECT_EQ(Save(c_pxRootA),
              std::string("\x11\x01\xFE\xFF\x02\0\0\0Ab\x57\0\x01\0\x02\0\0\0\x59\x1B\x5A\x1B\x15", 23));
    R::RegisterUDP("Unused", MCCodes::pInteger, c_pxRootB, false);
    const std::string other = Save(c_pxRootB);
    EXPECT_EQ(other.size(), 2u + 20u + 21u) << "two records without usages";
    R::DeleteInstance();  // read in another process, which numbered the names otherwise
    DefineFixedTypes();
    ASSERT_TRUE(R::RegisterUDP("Unused", MCCodes::pInteger, nullptr, false) == -1 &&
                R::RegisterUDP("Other", MCCodes::pInteger, nullptr, false) == -2);
    MCUDPMap map;
    EXPECT_EQ(Restore(other.substr(1), map), "-3>-1 -1>-2");
}

// Another process's section, cut short or bad: a record cut in its head is dropped, one cut in its types
// keeps those read; a known name's usages join its code here, an unknown name is not registered.
TEST_F(UDPTest, BadInputEndsTheSectionOrRaisesAsStored) {
    ASSERT_EQ(R::RegisterUDP("Known", MCCodes::pInteger, nullptr, false), -1);
    const std::string hugeName =
        Section().Record(-5, "A", MCCodes::pInteger, 0, 0, {}).Str() + "\x01\xFA\xFF\xF0\xFF\xFF\x7Fx";
    const std::string cases[][3] = {
        {"huge count, two types present",
         Section().Record(-5, "A", MCCodes::pInteger, 0, 0x7FFFFFFF, {c_sNode, c_sLeaf}).Str(),
         " | A(-5,87,0:7001,7002)"},
        {"negative count reads no types",
         Section()
             .Record(-5, "A", MCCodes::pInteger, 0, -3, {})
             .Record(-6, "B", 1, 0, 0, {})
             .Token(0x15)
             .Str(),
         " | A(-5,87,0:) | B(-6,1,0:)"},
        {"name longer than the stream", hugeName, " | A(-5,87,0:)"},
        {"junk between records is skipped",
         Section().Token(2).Token(0x12).Token(0x7F).Record(-5, "A", 1, 0, 0, {}).Token(0x15).Str(),
         " | A(-5,1,0:)"},
        {"end mark stops", Section().Token(-1).Record(-5, "A", 1, 0, 0, {}).Str(), ""},
        {"object type name maps to nothing", Section().Record(-5, "Node", 1, 0, 1, {c_sNode}).Str(), "-5>0"},
        {"known name cut in its types",
         Section().Record(-5, "Known", MCCodes::pInteger, 0, 2, {c_sNode}).Str(), "-5>-1"},
        {"unknown name cut in its types",
         Section().Record(-6, "Fresh", MCCodes::pInteger, 1, 2, {c_sNode}).Str(), " | Fresh(-6,87,1:7001)"},
    };
    for (const auto& [what, bytes, expected] : cases) {
        SCOPED_TRACE(what);
        MCUDPMap map;
        EXPECT_EQ(Restore(bytes, map), expected);
    }
    EXPECT_EQ(std::to_string(R::GetClipFlag(c_sNode, -1) == R::clipUndecided) + " " +
                  std::to_string(R::Lookup(ZVTString("Fresh"))),
              "1 0");

    MCUDPMap map;
    const std::string zeroCode =
        Section().Record(-5, "A", 1, 0, 0, {}).Record(0, "B", 1, 0, 0, {}).Record(-6, "C", 1, 0, 0, {}).Str();
    EXPECT_THROW(Restore(zeroCode, map), EXUnexpected);
    EXPECT_EQ(Render(map), " | A(-5,1,0:)");
    std::stringstream medium(zeroCode);
    MCStream stream(medium, ZVTStream::binary);
    EXPECT_THROW(R::GetInstance()->RestoreFrom(stream, nullptr, nullptr), EXUnexpected);
    char first = 0;
    stream >> first;
    EXPECT_EQ(first, 1) << "a refused call reads nothing";
}

}  // namespace
