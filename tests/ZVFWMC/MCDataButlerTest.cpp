// The data butler as a template engine drives it: every macro's answers and failures from one table, the
// life of iterations (passes, break-on, nesting, abandonment), contexts, variables and shared state.

#include <sstream>

#include "support/RuleTestSupport.h"

namespace {

// A small metamodel of value properties on the shapes; Area (calculated) and Label come with them.
constexpr short c_sTitle = 7851, c_sRank = 7852, c_sPartner = 7854, c_sParts = 7855, c_sWeight = 7856,
                c_sBlob = 7857;

struct NoTextConverter : MCPropertyConverter {
    NoTextConverter() : MCPropertyConverter(c_sBlob) {}
    ZVTBoolean Supports(short toType) const override { return toType == MCCodes::pString; }
};

bool RegisterMetamodel() {
    for (auto [code, name, concrete] :
         {std::tuple<short, const char*, short>{c_sTitle, "Title", MCCodes::pString},
          {c_sRank, "Rank", MCCodes::pInteger},
          {c_sPartner, "Partner", MCCodes::pReference},
          {c_sParts, "Parts", MCCodes::pReferenceList},
          {c_sWeight, "Weight", MCCodes::pFloat},
          {c_sBlob, "Blob", MCCodes::pFloat}})
        MCFactoryRegistry::RegisterAliasProperty(code, name, concrete, true, false, false, false);
    MCPropertyConverterRegistry::Register(new NoTextConverter);
    return true;
}

// A host's own iteration over a list it made of one object, counting how many proxies are alive.
struct HostListProxy : MCIterProxy {
    explicit HostListProxy(MCObject* only)
        : MCIterProxy("Host", m_xWalk, true), m_xList(ListOf({only})), m_xWalk(&m_xList) {
        ++c_nAlive;
    }
    ~HostListProxy() override { --c_nAlive; }
    MCObject* GetCurrentObject() override { return m_xWalk.GetValue(); }
    static inline int c_nAlive = 0;
    ZVTSList<MCObject*> m_xList;
    MCVRefIter m_xWalk;
};

class DataButlerTest : public RuleTest {
protected:
    // A (a Box, the anchor) owns P1 and P2 (Shapes). A: Title Top, Rank 2, an empty Label, Weight, Blob,
    // Partner P1, Parts P1 P2. P1: Title One, Rank -1, Partner P2, Parts P2 A. P2: Title Two.
    void SetUp() override {
        RuleTest::SetUp();
        [[maybe_unused]] static const bool registered = RegisterMetamodel();  // once per process
        m_pxA = Make(nullptr, Box::c_sType);
        m_pxP1 = Make(m_pxA, Shape::c_sType);
        m_pxP2 = Make(m_pxA, Shape::c_sType);
        // N, apart: a node whose embedded property is nulled, so it has no value.
        m_xNames = {{nullptr, "-"}, {m_pxA, "A"}, {m_pxP1, "P1"}, {m_pxP2, "P2"}, {MakeNode(), "N"}};
        for (auto [object, type, text] : {std::tuple<MCObject*, short, const char*>{m_pxA, c_sTitle, "Top"},
                                          {m_pxA, Shape::c_sLabel, ""},
                                          {m_pxP1, c_sTitle, "One"},
                                          {m_pxP2, c_sTitle, "Two"}}) {
            MCSPropertyAccessorT<ZVTString> accessor{ZVTString(text)};
            object->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
        }
        SetLong(m_pxA, c_sRank, 2);
        SetLong(m_pxP1, c_sRank, -1);
        MCSPropertyAccessorT<float> number(1.5f);
        for (short type : {c_sWeight, c_sBlob})
            ASSERT_TRUE(m_pxA->SetProperty(type, number, MCPropertyAccessor::accessAdd));
        Link(m_pxA, c_sPartner, m_pxP1);
        Link(m_pxP1, c_sPartner, m_pxP2);
        for (auto [from, to] : {std::pair{m_pxA, m_pxP1}, {m_pxA, m_pxP2}, {m_pxP1, m_pxP2}, {m_pxP1, m_pxA}})
            Link(from, c_sParts, to);
    }

    /// The arguments of "a|b": "a" and "b"; "|" gives two empty ones, "" none.
    static ZVMStringList List(const std::string& text) {
        ZVMStringList list;
        for (size_t start = 0, bar = 0; !text.empty() && bar != std::string::npos; start = bar + 1) {
            bar = text.find('|', start);
            list.Append(text.substr(start, bar == std::string::npos ? bar : bar - start));
        }
        return list;
    }
    /// What the macro gives for these arguments, "!" when it refuses.
    static std::string Expand(MCDataButlerBase& butler, const char* macro, const std::string& arguments) {
        ZVMStringList list = List(arguments);
        ZVTString result;
        return butler.SubstituteValue(macro, list, result) ? result.str() : "!";
    }
    std::string Name(MCObject* object) { return m_xNames.count(object) ? m_xNames[object] : "?"; }

    // The top of the context stack and the variable v: "@P1 v=i1", "v=sxy", "v=oP2".
    std::string State(MCDataButlerBase& butler) {
        const std::string top = "@" + (butler.GetContextStackCount() ? Name(butler.GetContext()) : "none");
        int number = 0;
        ZVTString string;
        MCObject* object = nullptr;
        return butler.GetInteger("v", number)   ? top + " v=i" + std::to_string(number)
               : butler.GetString("v", string)  ? top + " v=s" + string.str()
               : butler.GetObjectA("v", object) ? top + " v=o" + Name(object)
                                                : top;
    }

    MCObject *m_pxA = nullptr, *m_pxP1 = nullptr, *m_pxP2 = nullptr;
    std::map<MCObject*, std::string> m_xNames;
};

// A row: "[preset...] Macro[(a|b)]... : T|F result state [#iterations] [!message]", each macro called on a
// fresh butler with the presets. Presets: "@P1" pushes P1, "@-" pushes null, "i:v=1", "s:v=xy", "o:v=P1" and
// "o:v=" (null) create a variable. No parentheses: no argument list; "()": an empty one; "*": asked to
// iterate. The last row: without the arguments it needs every macro refuses, and so does every text macro
// asked to iterate (no result to fill); neither touches the result, the contexts or the variables.
TEST_F(DataButlerTest, EveryMacroAnswersAsItsRowSays) {
    const std::string table =
        "@P1 AnchorProperty(Title) OwnerProperty(Title) : T Top @P1; "
        "AnchorProperty(Nope) ReferenceProperty(Partner) Lookup(Rank|zero|one) Equal(Title|top) "
        "HasProperty(Nope) NotHasProperty(Title) TypeNameEquals(Box|x) PushOwner PushReference(Title) "
        "Destroy(v) Comma ForEach(Nope) : F old @A; ForEach(Parts) : T old @A #1; "
        "Property(Weight|d) : T d @A !60508; Property(Blob) : F old @A !60509; @- Property(Title|) : T  @-; "
        "property(Title) : F old @A !59000; ReferenceProperty(Partner|Title) : T One @A; "
        "@P2 ReferenceProperty(Partner|Title|d) NotEmptyProperty(Rank) HasProperty(Rank) Equal(Title|One) "
        "NotEqual(Title|Two) TypeNameEquals(Box) : F old @P2; "
        "NotEmptyProperty(Title) : T Top @A; NotEmptyProperty(Label|d) : T d @A; "
        "NotEmptyProperty(Label|) : F  @A; Lookup(Rank|zero|one|two) : T two @A; "
        "@P1 Lookup(Rank|zero|one) : F old @P1; @- Equal(Title|Top) : T old @-; "
        "NotEqual(Nope|) NotEqual(Title|Two) NotHasProperty() : T old @A; @- HasProperty(Title) : F old @-; "
        "@N HasProperty(Embedded) : F old @N; "
        "@P1 TypeNameEquals(Shape) : T old @P1; @- TypeNameEquals(Box) : T old @-; Pop : T old @none; "
        "o:v=P1 PushObject(v) : T old @P1 v=oP1; "
        "o:v=P1 PushObject(v|x) ReferencePropertyEqual(Partner) : F old @A v=oP1; "
        "o:v= PushObject(v) : F old @A v=o-; "
        "i:v=1 PushObject(v) ReferencePropertyEqual(Partner|v) String(v) SetString(v|y) AppendString(v|y) "
        "StringEqual(v|1) StringValue(v) If(v|yes) : F old @A v=i1; @P1 PushOwner : T old @A; "
        "PushReference(Partner) : T old @P1; o:v=P1 ReferencePropertyEqual(Partner|v) : T old @A v=oP1; "
        "o:v=P2 ReferencePropertyEqual(Partner|v) : F old @A v=oP2; Boolean(v) *Boolean(v) : T old @A v=i0; "
        "s:v=x Boolean(v) SetObject(v) SetString(v) AppendString(v|y|z) StringValue(v|y) StringEqual(v|X) "
        "SetBoolean(v|true) : F old @A v=sx; String(v) : T old @A v=s; Object(v) : T old @A v=o-; "
        "i:v=1 Destroy(v) : T old @A; i:v=0 SetBoolean(v|TrUe) : T old @A v=i1; "
        "i:v=1 SetBoolean(v|1) : T old @A v=i0; o:v= @P1 SetObject(v) : T old @P1 v=oP1; "
        "o:v= StoreCurrentObject(v) : T old @A v=oA; s:v=x SetString(v|y) : T old @A v=sy; "
        "s:v=x AppendString(v|y) : T old @A v=sxy; "
        "s:v=x StringEqual(v|x) StringNotEqual(v|X) : T old @A v=sx; s:v=x StringValue(v) : T x @A v=sx; "
        "i:v=1 If(v) : T old @A v=i1; i:v=1 If(v|yes|no) : T yes @A v=i1; i:v=0 If(v|yes|no) : T no @A v=i0; "
        "s:v=1 If(v) : F old @A v=s1; i:v=1 IfNot(v|yes|no) : T no @A v=i1; "
        "IfFirstIter(first|later) : T first @A; Comma(|a||b) : T olda,b @A; Concatenate(a|b) : T oldab @A; "
        "s:v= AnchorProperty Boolean Destroy Equal ForEach IfFirstIter Lookup NotEmptyProperty NotEqual "
        "Object OwnerProperty Property PushReference SetBoolean SetObject String StringEqual "
        "*AnchorProperty(v|Title|x) *Comma(v|Title|x) *Concatenate(v|Title|x) *If(v|Title|x) "
        "*IfFirstIter(v|Title|x) *Lookup(v|Title|x) *NotEmptyProperty(v|Title|x) *OwnerProperty(v|Title|x) "
        "*Property(v|Title|x) *ReferenceProperty(v|Title|x) *StringValue(v|Title|x) : F old @A v=s";
    std::istringstream rows(table);
    for (std::string row; std::getline(rows >> std::ws, row, ';');) {
        std::istringstream tokens(row.substr(0, row.find(" : ")));
        std::vector<std::string> presets, calls;
        for (std::string token; tokens >> token;)
            (token[0] == '@' || token[1] == ':' ? presets : calls).push_back(token);
        for (const std::string& call : calls) {
            SCOPED_TRACE(call + " in " + row);
            MCDataButler butler(m_pxA);
            for (const std::string& token : presets) {
                const std::string value = token.substr(token[0] == '@' ? 1 : 4);
                MCObject* object = nullptr;
                for (const auto& entry : m_xNames)
                    object = entry.second == value ? entry.first : object;
                if (token[0] == '@')
                    butler.PushCurrentContext(object);
                else if (token[0] == 'i')
                    ASSERT_TRUE(butler.CreateInteger("v") && butler.SetInteger("v", std::stoi(value)));
                else if (token[0] == 's')
                    ASSERT_TRUE(butler.CreateString("v") && butler.SetString("v", value));
                else
                    ASSERT_TRUE(butler.CreateObject("v") && butler.SetObject("v", object));
            }
            const bool iterate = call[0] == '*';
            const size_t paren = call.find('(');
            const std::string name = call.substr(iterate, paren - iterate);
            ZVMStringList arguments =
                List(paren == std::string::npos ? "" : call.substr(paren + 1, call.size() - paren - 2));
            HUBScopedMessageHandler messages;
            ZVTString result("old");
            const bool answer = paren == std::string::npos ? butler.SubstituteValue(name, result)
                                : iterate                  ? butler.StartIteration(name, arguments)
                                                           : butler.SubstituteValue(name, arguments, result);
            std::string seen = std::string(answer ? "T " : "F ") + result.str() + " " + State(butler);
            if (butler.GetIteratorStackCount())
                seen += " #" + std::to_string(butler.GetIteratorStackCount());
            for (const HUBMessageRecord& message : messages.GetMessages())
                seen += " !" + std::to_string(message.m_lMessageId);
            EXPECT_EQ(seen, row.substr(row.find(" : ") + 3));
        }
    }
}

// Each pass runs on its target with its number; a break-on variable ends the iteration before its next
// pass; the context is left as it was.
TEST_F(DataButlerTest, AnIterationPassesOverEachTargetUntilItsBreakOnVariableIsZero) {
    // Go before the first pass (-1: go not made, -2: no break-on argument), go after it, the passes.
    const std::tuple<const char*, int, int, const char*> cases[] = {
        {"zero before the first pass", 0, 0, "0 | 1@A #0"},
        {"no break-on variable", -2, 0, "0 1:One first 2:Two later | 1@A #0"},
        {"no integer variable", -1, 0, "0 | 1@A #0"},
        {"set to zero in the first pass", 1, 0, "0 1:One first | 1@A #0"},
        {"left at one", 1, 1, "0 1:One first 2:Two later | 1@A #0"},
    };
    for (const auto& [name, start, afterFirst, expected] : cases) {
        SCOPED_TRACE(name);
        MCDataButler butler(m_pxA);
        ASSERT_TRUE(start < 0 || (butler.CreateInteger("go") && butler.SetInteger("go", start)));
        ZVMStringList arguments = List(start == -2 ? "Parts" : "Parts|go");
        ASSERT_TRUE(butler.StartIteration("ForEach", arguments));
        std::string passes = std::to_string(butler.GetIteratorStackLast()->GetCurrent()) + " ";
        while (butler.NextIteration("ForEach")) {
            passes += std::to_string(butler.GetIteratorStackLast()->GetCurrent()) + ":" +
                      Expand(butler, "Property", "Title") + " " +
                      Expand(butler, "IfFirstIter", "first|later") + " ";
            butler.SetInteger("go", afterFirst);
        }
        EXPECT_EQ(passes + "| " + std::to_string(butler.GetContextStackCount()) + State(butler) + " #" +
                      std::to_string(butler.GetIteratorStackCount()),
                  expected);
    }
}

TEST_F(DataButlerTest, NestedIterationsOfOneNameAndAnUnknownNameDeletingThemAll) {
    MCDataButler butler(m_pxA);
    ZVMStringList parts = List("Parts");
    // The outer on P1, whose Parts are P2 and A, and an inner one over them.
    ASSERT_TRUE(butler.StartIteration("ForEach", parts) && butler.NextIteration("ForEach") &&
                butler.StartIteration("ForEach", parts));
    std::string seen;
    while (butler.NextIteration("ForEach"))
        seen +=
            Name(butler.GetCurrentContext(0)) + std::to_string(butler.GetIteratorStackLast()->GetCurrent());
    ASSERT_TRUE(butler.NextIteration("ForEach"));
    seen += " " + Name(butler.GetContext()) + std::to_string(butler.GetIteratorStackLast()->GetCurrent());

    // Abandoned iterations go at once; the objects they pushed stay.
    butler.PushIter(new HostListProxy(m_pxP1));
    butler.PushIter(butler.GetIteratorStackLast());  // entered once only, so deleted once
    butler.PushIter(nullptr);
    ASSERT_TRUE(butler.NextIteration("Host"));
    seen += " " + std::to_string(HostListProxy::c_nAlive) + Name(butler.GetIterContext(Box::c_sType)) +
            Name(butler.GetIterContext(Shape::c_sType));
    EXPECT_FALSE(butler.NextIteration("Other"));
    seen += " " + std::to_string(butler.GetIteratorStackCount()) + std::to_string(HostListProxy::c_nAlive) +
            std::to_string(butler.GetContextStackCount());
    // The inner passes, the outer's second, the live proxies with the iteration contexts by type, and what
    // is left: no iteration, no proxy, three contexts.
    EXPECT_EQ(seen, "P21A2 P22 1-P1 003");
}

TEST_F(DataButlerTest, CopiesShareTheStateAndTheLastDeletesWhatTemplatesLeftRunning) {
    {
        auto* first = new MCDataButler(m_pxA);
        MCDataButler copy(*first), assigned(nullptr);
        assigned = copy;
        first->CreateString("w");
        first->PushIter(new HostListProxy(m_pxP2));
        delete first;
        const bool set = assigned.SetString("w", "kept"), next = copy.NextIteration("Host");
        EXPECT_EQ("set:" + std::to_string(set) + " next:" + std::to_string(next) + " at:" +
                      Name(copy.GetCurrentContext(0)) + " alive:" + std::to_string(HostListProxy::c_nAlive) +
                      " clone:" + (copy.Clone() ? "made" : "null"),
                  "set:1 next:1 at:P2 alive:1 clone:null");
    }
    EXPECT_EQ(HostListProxy::c_nAlive, 0);
}

TEST_F(DataButlerTest, ContextsFallBackByTypeAndAnEmptyStackRaises) {
    MCDataButler none(nullptr);
    EXPECT_EQ(none.GetCurrentContext(0), nullptr);
    none.PopCurrentContext();
    try {
        none.GetContext();
        ADD_FAILURE() << "no exception";
    } catch (const EXUnexpected& raised) {
        EXPECT_EQ(raised.m_xFile, "ModelCore/ZVFWMC/MCDataButlerBase");
    }

    // Top: a generic object; below it the iteration's P1; the anchor A, set last, over P1.
    none.SetAnchorContext(m_pxP1);
    none.SetAnchorContext(m_pxA);
    none.PushIter(new HostListProxy(m_pxP1));
    ASSERT_TRUE(none.NextIteration("Host"));
    none.PushCurrentContext(Make());
    std::string found;
    for (short type : {Shape::c_sType, Box::c_sType, Crate::c_sType})
        found += Name(none.GetCurrentContext(type)) + " ";
    EXPECT_EQ(found + Name(none.GetCurrentContext(0)), "P1 A - ?");
}

TEST_F(DataButlerTest, VariablesKeepTheirTypeAndHostsAddMacros) {
    MCDataButler butler(m_pxA);
    ASSERT_TRUE(butler.CreateInteger("v") && butler.SetInteger("v", 7) && butler.CreateObject("o") &&
                butler.CreateString("s") && butler.SetString("s", "x"));
    std::string seen;
    for (const char* name : {"nope", "v", "s", "o"}) {
        seen += std::string(name) + ":" + std::to_string(butler.GetVariableType(name));
        if (MCDataButlerVariable* variable = butler.FindVariable(name))
            seen += "=" + variable->GetAsString().str();
        seen += " ";
    }
    EXPECT_EQ(seen, "nope:0 v:1=7 s:2=x o:3= ");

    // A host's macro doubles a property of the anchor.
    struct Twice : MCMacroHandlerBase {
        ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString&, ZVMStringList* arguments,
                               ZVTString* result) override {
            if (!result || !RetrieveProperty(butler->GetAnchorContext(0), (*arguments)[0], *result))
                return false;
            *result += *result;
            return true;
        }
    } twice;
    struct HostButler : MCDataButler {
        HostButler(MCObject* anchor, MCMacroHandlerBase* handler) : MCDataButler(anchor) {
            AddHandler("Twice", handler);
        }
    } host(m_pxA, &twice);
    EXPECT_TRUE(host.KnowsMacro("Twice") && host.KnowsMacro("ForEach") && !host.KnowsMacro("forEach"));
    EXPECT_EQ(Expand(host, "Twice", "Title"), "TopTop");
}

TEST_F(DataButlerTest, ACalculatedPropertyThatRefusesCountsAsUnreadable) {
    SetLong(m_pxA, Shape::c_sWidth, 6);
    PropertyRule area("A", MCPropertySemantic::CalculateValue);
    area.m_xAct = [](auto, MCObject* object, MCProperty* property, auto) {
        const long width = std::stol(GetLong(object, Shape::c_sWidth));
        if (width < 0)
            return MCPropertySemantic::resultRefused;
        static_cast<MCSPropertyT<long>*>(property)->SetValue(width * width);
        return MCPropertySemantic::resultContinue;
    };
    AddRule(Shape::c_sType, Shape::c_sArea, area);
    ASSERT_EQ(GetLong(m_pxA, Shape::c_sArea), "36");  // makes the calculated property
    MCDataButler butler(m_pxA);
    SetLong(m_pxA, Shape::c_sWidth, 7);
    const std::string seven = Expand(butler, "Property", "Area|unknown");
    SetLong(m_pxA, Shape::c_sWidth, -1);
    EXPECT_EQ(seven + " " + Expand(butler, "Property", "Area|unknown"), "49 unknown");
}

// A calculation that destroys its object leaves the butler holding it as a context, as the anchor or in a
// variable; each of them reads as null from then on, so later macros fall back to their defaults.
TEST_F(DataButlerTest, AnObjectARuleDestroysReadsAsNullWhereverTheButlerKeepsIt) {
    static bool s_bKill = false;
    PropertyRule area("A", MCPropertySemantic::CalculateValue);
    area.m_xAct = [](auto, MCObject* object, MCProperty*, auto) {
        if (!s_bKill)
            return MCPropertySemantic::resultContinue;
        s_bKill = false;
        object->Expunge(true);
        return MCPropertySemantic::resultObjectDestroyed;
    };
    AddRule(Shape::c_sType, Shape::c_sArea, area);
    // Where the butler keeps the victim; the destroying read, a later read with a default, the state.
    for (auto [kept, want] : {std::pair<std::string, const char*>{"context", "! gone @-"},
                              {"anchor", "! gone @-"},
                              {"variable", "! Top @A v=o-"}}) {
        SCOPED_TRACE(kept);
        MCObject* victim = Make(m_pxA, Shape::c_sType);
        SetLong(victim, Shape::c_sArea, 9);
        MCDataButler butler(kept == "anchor" ? victim : m_pxA);
        const char* macro = kept == "anchor" ? "AnchorProperty" : "Property";
        if (kept != "anchor")
            butler.PushCurrentContext(victim);
        ASSERT_TRUE(kept != "variable" || (butler.CreateObject("v") && butler.SetObject("v", victim)));
        s_bKill = true;
        const std::string destroying = Expand(butler, macro, "Area");
        if (kept == "variable")
            butler.PopCurrentContext();
        EXPECT_EQ(destroying + " " + Expand(butler, macro, "Title|gone") + " " + State(butler), want);
    }
}

}  // namespace
