// Object dumps: the file-stream dump of objects with every core value type (nulled, unbound, user-defined)
// and their subscriber lines; the listing and outline of a tree in each mode, and of a branch of any depth.

#include <fstream>
#include <sstream>

#include "support/ModelTestSupport.h"

namespace {

using R = MCFactoryRegistry;
using std::to_string;

template <class Accessor, class Value>
void Set(MCObject* object, short type, const Value& value) {
    Accessor accessor(value);
    ASSERT_TRUE(object->SetProperty(type, accessor, MCPropertyAccessor::accessAdd)) << type;
}

// Reads what `write` puts on a stream into the property of `type` raw, as a restore does.
void RestoreRaw(MCObject* object, short type, const std::function<void(MCStream&)>& write) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    write(stream);
    const_cast<MCProperty*>(object->FindProperty(type, true))->RestoreFrom(stream);
}

// The file-stream dump of `object` and its result, as "<text> -> <result>".
std::string FileDump(MCObject* object) {
    std::stringbuf text;
    std::ofstream stream;
    stream.std::ios::rdbuf(&text);
    const unsigned int result = object->Dump(stream, 0);
    return text.str() + " -> " + to_string(result);
}

std::string StreamDump(MCObject* object, long mode, MCDumpableParameter* parameter) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    static_cast<MCDumpable*>(object)->Dump(stream, mode, parameter);
    return medium.str();
}

// A property line with T=0 SA=0 and the flags N, PF and NL given as three characters.
std::string Line(const char* flags, const std::string& rest) {
    return std::string("\tT=0 SA=0 N=") + flags[0] + " PF=" + flags[1] + " NL=" + flags[2] + " " + rest +
           "\n";
}

// The end of a file dump: the item sizes of `types` plus `extra`, also the dump's result.
std::string Sized(std::initializer_list<short> types, unsigned int extra) {
    for (short type : types)
        extra += R::GetItemSize(type);
    return "\tEffective size (approximate--doesn't include list nodes, etc.): " + to_string(extra) + " -> " +
           to_string(extra);
}

// A tree of root "root", under it A "a" (a TestNode) and an unnamed B, under B a TestNode C whose name
// property is nulled.
class ObjectDumpTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        m_pxRoot = Named("root");
        m_pxA = Named("a", m_pxRoot, TestNode::c_sType);
        m_pxB = Make(m_pxRoot);
        m_pxC = Named("x", m_pxB, TestNode::c_sType);
        RestoreRaw(m_pxC, MCCodes::pName, [](MCStream& s) {
            s << static_cast<unsigned short>(MCItem::itemNulled) << ZVTString("old");
        });
    }
    MCObject *m_pxRoot = nullptr, *m_pxA = nullptr, *m_pxB = nullptr, *m_pxC = nullptr;
};

TEST_F(ObjectDumpTest, FileDumpsShowEveryValueTypeTheSubscribersAndTheSize) {
    Set<MCSPropertyAccessorT<long>>(m_pxA, TestNode::c_sEmbedded, 5L);
    MCSPropertyAccessorT<long> nuller;
    ASSERT_TRUE(m_pxA->NullProperty(TestNode::c_sEmbedded, nuller));
    Set<MCSPropertyAccessorT<long>>(m_pxA, 1165, 42L);
    m_pxA->SetPropertyFlag(PropertyOf(m_pxA, 1165), MCItem::itemTemp | MCItem::itemSA, true);
    Set<MCSPropertyAccessorT<double>>(m_pxA, 1036, 2.5);
    Set<MCSPropertyAccessorT<float>>(m_pxA, 85, 0.25f);
    m_pxA->SetPropertyFlag(PropertyOf(m_pxA, 85), MCItem::itemPreFetch, true);
    Set<MCVPropertyAccessorT<long>>(m_pxA, 304, ListOf({3L, 4L}));
    Set<MCVPropertyAccessorT<float>>(m_pxA, 86, ListOf({1.5f}));
    Set<MCVPropertyAccessorT<ZVTString>>(m_pxA, 92, ListOf({ZVTString("x"), ZVTString("yz")}));
    ZvUCObjectId origin;
    for (int word = 0; word < ZvUCId::c_nWordCount; ++word)
        origin.SetWord(word, 0x64636261u + 0x04040404u * static_cast<unsigned>(word));  // "abcd", "efgh", ...
    Set<MCSPropertyAccessorT<ZvUCObjectId>>(m_pxA, 93, origin);
    Set<MCSPropertyAccessorT<tgt_target*>>(m_pxA, 248, static_cast<tgt_target*>(nullptr));
    Set<MCSRefAccessor>(m_pxA, 152, m_pxRoot);
    Set<MCSRefAccessor>(m_pxA, 133, static_cast<MCObject*>(nullptr));
    Set<MCSRefAccessor>(m_pxA, 89, static_cast<MCObject*>(nullptr));
    RestoreRaw(m_pxA, 89, [](MCStream& s) { s << static_cast<unsigned short>(0) << 777L; });
    ZVTSList<MCObject*> targets = ListOf({m_pxRoot, m_pxRoot});
    Set<MCVRefAccessor>(m_pxA, 303, &targets);
    const short colour = R::RegisterUDP("DumpColour", MCCodes::pString, m_pxRoot, true);
    Set<MCSPropertyAccessorT<ZVTString>>(m_pxA, colour, ZVTString("red"));
    const short floats = R::RegisterUDP("DumpFloats", MCCodes::pFloatList, m_pxRoot, true);
    const short texts = R::RegisterUDP("DumpTexts", MCCodes::pStringList, m_pxRoot, true);
    Set<MCVPropertyAccessorT<float>>(m_pxA, floats, ListOf({1.5f, 2.5f}));
    Set<MCVPropertyAccessorT<ZVTString>>(m_pxA, texts, ListOf({ZVTString("uv"), ZVTString("w")}));
    std::ostringstream nullTarget;
    nullTarget << static_cast<const void*>(nullptr);

    const std::string id = "MCSPropertyT<long>, Type=Id(132), Value=";
    const std::string subscribers = "\tSubscriber info:\n\t\t";
    // Three references from A count on one entry.
    EXPECT_EQ(FileDump(m_pxRoot),
              "MCGenericObject(2):\tId=" + Id(m_pxRoot) + ", Name='root'\n" + Line("000", id + Id(m_pxRoot)) +
                  Line("000", "MCSPropertyT<ZVTString>, Type=Name(147), Value=root") + subscribers +
                  "TestNode:\tId: " + Id(m_pxA) + ", Name='a', RefCnt=3\n" + Sized({2, 132, 147}, 4));
    // Text and list lengths count for aliases only: "a", two integers, two references, "red", two
    // floats, "uv" and "w".
    EXPECT_EQ(
        FileDump(m_pxA),
        "TestNode(7001):\tId=" + Id(m_pxA) + ", Name='a'\n" + Line("000", id + Id(m_pxA)) +
            Line("100", "MCSPropertyT<long>, Type=Embedded(7101), Value=5") +
            Line("000", "MCSPropertyT<ZVTString>, Type=Name(147), Value=a") +
            "\tT=1 SA=1 N=0 PF=0 NL=0 MCSPropertyT<long>, Type=TypeCode(1165), Value=42\n" +
            Line("000", "MCSPropertyT<double>, Type=Double(1036), Value=2.5") +
            Line("010", "MCSPropertyT<float>, Type=Float(85), Value=0.25") +
            Line("000", "MCVPropertyT<long>, Type=ValidTypeList(304), Values=3 4 ") +
            Line("000", "MCVPropertyT<float>, Type=FloatList(86), Values=1.5 ") +
            Line("000", "MCVPropertyT<ZVTString>, Type=StringList(92), Values=x yz ") +
            Line("000", "MCSPropertyT<ZvUCObjectId>, Type=OriginId(93), Value=abcdefghijklmnopqrst") +
            Line("000", "MCSPropertyT<tgt_target*>, Type=TargetReference(248), Value=" + nullTarget.str()) +
            Line("000", "MCSRef, Type=Parent(152), Id=" + Id(m_pxRoot)) +
            Line("000", "MCSRef, Type=IdSpace(133), Id=<null reference>") +
            Line("001", "MCSRef, Type=Reference(89), Id=777") +
            Line("000", "MCVRef, Type=StringInfoList(303), Ids=" + Id(m_pxRoot) + " " + Id(m_pxRoot) + " ") +
            Line("000", "MCSPropertyT<ZVTString>, Type=DumpColour(" + to_string(colour) + "), Value=red") +
            Line("000", "MCVPropertyT<float>, Type=DumpFloats(" + to_string(floats) + "), Values=1.5 2.5 ") +
            Line("000", "MCVPropertyT<ZVTString>, Type=DumpTexts(" + to_string(texts) + "), Values=uv w ") +
            subscribers + "MCGenericObject:\tId: " + Id(m_pxRoot) + ", Name='root', RefCnt=1\n" +
            Sized({TestNode::c_sType, 132, TestNode::c_sEmbedded, 147, 1165, 1036, 85, 304, 86, 92, 93, 248,
                   152, 133, 89, 303, colour, floats, texts},
                  1 + 8 + 8 + 3 + 8 + 3));
    // A nulled name still names its object here; an object without one is named so.
    EXPECT_EQ(FileDump(m_pxC),
              "TestNode(7001):\tId=" + Id(m_pxC) + ", Name='old'\n" + Line("000", id + Id(m_pxC)) +
                  Line("100", "MCSPropertyT<long>, Type=Embedded(7101), Value=0") +
                  Line("100", "MCSPropertyT<ZVTString>, Type=Name(147), Value=old") + subscribers +
                  "MCGenericObject:\tId: " + Id(m_pxB) + ", Name='<can't find name>', RefCnt=1\n" +
                  Sized({TestNode::c_sType, 132, TestNode::c_sEmbedded, 147}, 3));
}

TEST_F(ObjectDumpTest, ListingAndOutlineOfATreeInEachMode) {
    const std::string root = "MCGenericObject: root [Id=" + Id(m_pxRoot) + "]\n";
    const std::string a = "TestNode: a [Id=" + Id(m_pxA) + "]\n";
    const std::string b = "MCGenericObject: <unknown> [Id=" + Id(m_pxB) + "]\n";
    const std::string c = "TestNode: <unknown> [Id=" + Id(m_pxC) + "]\n";
    const std::string properties = "\n\n\t***PROPERTIES***\n\n";
    const struct {
        long m_lMode;
        std::string m_sDump;
    } cases[] = {
        {MCObject::dumpListing, root + "\t<no owner>" + properties + a + "\tOwner=" + root + properties + b +
                                    "\tOwner=" + root + properties + c + "\tOwner=" + b + properties},
        {MCObject::dumpOutline, root + "\t" + a + "\t" + b + "\t\t" + c},
        {3, ""},
    };
    for (const auto& x : cases) {
        SCOPED_TRACE(x.m_sDump);
        MCDumpableParameter parameter;  // the outline leaves its depth as it found it
        const std::string dump = StreamDump(m_pxRoot, x.m_lMode, &parameter);
        EXPECT_EQ(dump + "|" + to_string(parameter.m_lDepth), x.m_sDump + "|0");
    }
    EXPECT_THROW(StreamDump(m_pxRoot, MCObject::dumpOutline, nullptr), EXUnexpected);
}

TEST_F(ObjectDumpTest, ABranchOfAnyDepthKeepsOrderAndIndentationOnASmallStack) {
    // Far deeper than a recursive dump goes on 1 MB. Node i+1, then leaf i+1 under node i: each leaf comes
    // after the whole deeper branch. Made without creation rules, whose events would climb the branch.
    constexpr int c_nDepth = 20000;
    constexpr int c_nOutlineFrom = c_nDepth - 1000;  // an outline grows with the square of its depth
    std::vector<MCObject*> nodes{MakeChain(m_pxB, 1)}, leaves;
    for (int i = 0; i < c_nDepth; ++i) {
        nodes.push_back(MakeChain(nodes.back(), 1));
        leaves.push_back(MakeChain(nodes[nodes.size() - 2], 1));
    }
    auto expected = [&](int from, long mode) {
        std::string text;
        auto add = [&](MCObject* object, int depth) {
            const std::string line = "MCGenericObject: <unknown> [Id=" + Id(object) + "]\n";
            text += mode == MCObject::dumpOutline
                        ? std::string(static_cast<size_t>(depth - from), '\t') + line
                        : line + "\tOwner=MCGenericObject: <unknown> [Id=" +
                              Id(object->GetOwner(0, MCItem::rttiDerived)) + "]\n\n\n\t***PROPERTIES***\n\n";
        };
        for (int i = from; i <= c_nDepth; ++i)
            add(nodes[static_cast<size_t>(i)], i);
        for (int i = c_nDepth; i > from; --i)
            add(leaves[static_cast<size_t>(i - 1)], i);
        return text;
    };
    MCDumpableParameter parameter;
    std::string outlined, listed;
    ASSERT_TRUE(RunOnStack(1 << 20, [&] {
        outlined = StreamDump(nodes[c_nOutlineFrom], MCObject::dumpOutline, &parameter);
        listed = StreamDump(nodes[0], MCObject::dumpListing, nullptr);
    }));
    // Compared as booleans: a failure would print megabytes.
    EXPECT_TRUE(outlined == expected(c_nOutlineFrom, MCObject::dumpOutline)) << outlined.substr(0, 400);
    EXPECT_TRUE(listed == expected(0, MCObject::dumpListing)) << listed.substr(0, 400);
    EXPECT_EQ(parameter.m_lDepth, 0);
}

}  // namespace
