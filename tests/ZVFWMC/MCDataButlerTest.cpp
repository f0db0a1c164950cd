// The data butler as a template engine drives it: every macro's answers and failures from one table, the
// life of iterations (passes, break-on, nesting, abandonment), contexts, variables and shared state.

#include <map>
#include <sstream>

#include "support/RuleTestSupport.h"

namespace {

// A small metamodel of value properties on the shapes; Area (calculated) and Label come with them.
constexpr short c_sTitle = 7851;    // String
constexpr short c_sRank = 7852;     // Integer
constexpr short c_sTags = 7853;     // StringList
constexpr short c_sPartner = 7854;  // Reference
constexpr short c_sParts = 7855;    // ReferenceList
constexpr short c_sWeight = 7856;   // Float: no converter
constexpr short c_sBlob = 7857;     // Float with a host converter that gives no text

struct NoTextConverter : MCPropertyConverter {
    NoTextConverter() : MCPropertyConverter(c_sBlob) {}
    ZVTBoolean Supports(short toType) const override { return toType == MCCodes::pString; }
};

void RegisterMetamodel() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    const struct {
        short m_sCode;
        const char* m_pcName;
        short m_sConcrete;
    } aliases[] = {{c_sTitle, "Title", 91},     {c_sRank, "Rank", 87},   {c_sTags, "Tags", 92},
                   {c_sPartner, "Partner", 89}, {c_sParts, "Parts", 90}, {c_sWeight, "Weight", 85},
                   {c_sBlob, "Blob", 85}};
    for (const auto& alias : aliases)
        MCFactoryRegistry::RegisterAliasProperty(alias.m_sCode, alias.m_pcName, alias.m_sConcrete, true,
                                                 false, false, false);
    MCPropertyConverterRegistry::Register(new NoTextConverter);
}

// A host's own iteration over a list it made, counting how many proxies are alive.
class HostListProxy : public MCIterProxy {
public:
    explicit HostListProxy(ZVTSList<MCObject*>& list) : MCIterProxy("Host", m_xWalk, true), m_xWalk(&list) {
        ++c_nAlive;
    }
    ~HostListProxy() override { --c_nAlive; }
    MCObject* GetCurrentObject() override { return m_xWalk.GetValue(); }
    static inline int c_nAlive = 0;

private:
    MCVRefIter m_xWalk;
};

class DataButlerTest : public RuleTest {
protected:
    // A (a Box, the anchor) owns P1 and P2 (Shapes). A: Title Top, Rank 2, Tags a, b, an empty Label,
    // Weight, Blob, Partner P1, Parts P1 P2. P1: Title One, Rank -1, Partner P2, Parts P2 A. P2: Title Two.
    void SetUp() override {
        RuleTest::SetUp();
        RegisterMetamodel();
        m_pxA = Make(nullptr, Box::c_sType);
        m_pxP1 = Make(m_pxA, Shape::c_sType);
        m_pxP2 = Make(m_pxA, Shape::c_sType);
        m_xNames = {{nullptr, "-"}, {m_pxA, "A"}, {m_pxP1, "P1"}, {m_pxP2, "P2"}};
        SetText(m_pxA, c_sTitle, "Top");
        SetText(m_pxA, Shape::c_sLabel, "");
        SetText(m_pxP1, c_sTitle, "One");
        SetText(m_pxP2, c_sTitle, "Two");
        SetLong(m_pxA, c_sRank, 2);
        SetLong(m_pxP1, c_sRank, -1);
        for (const char* tag : {"a", "b"}) {
            MCVPropertyAccessorT<ZVTString> element{ZVTString(tag)};
            m_pxA->SetProperty(c_sTags, element, MCPropertyAccessor::accessAdd);
        }
        for (short type : {c_sWeight, c_sBlob}) {
            MCSPropertyAccessorT<float> number(1.5f);
            m_pxA->SetProperty(type, number, MCPropertyAccessor::accessAdd);
        }
        Link(m_pxA, c_sPartner, m_pxP1);
        Link(m_pxP1, c_sPartner, m_pxP2);
        for (MCObject* part : {m_pxP1, m_pxP2})
            Link(m_pxA, c_sParts, part);
        for (MCObject* part : {m_pxP2, m_pxA})
            Link(m_pxP1, c_sParts, part);
    }

    static void SetText(MCObject* object, short type, const char* text) {
        MCSPropertyAccessorT<ZVTString> accessor{ZVTString(text)};
        object->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
    }
    /// The arguments of "a|b": "a" and "b"; "" gives one empty argument.
    static ZVMStringList List(const std::string& text) {
        ZVMStringList list;
        for (size_t start = 0, bar = 0; bar != std::string::npos; start = bar + 1) {
            bar = text.find('|', start);
            list.Append(text.substr(start, bar == std::string::npos ? bar : bar - start));
        }
        return list;
    }
    std::string Name(MCObject* object) { return m_xNames.count(object) ? m_xNames[object] : "?"; }

    // The top of the context stack and the variable v: "@P1 v=i1", "v=sxy", "v=oP2".
    std::string State(MCDataButlerBase& butler) {
        std::string text = "@" + (butler.GetContextStackCount() ? Name(butler.GetContext()) : "none");
        int number = 0;
        ZVTString string;
        MCObject* object = nullptr;
        if (butler.GetInteger("v", number))
            text += " v=i" + std::to_string(number);
        else if (butler.GetString("v", string))
            text += " v=s" + string.str();
        else if (butler.GetObjectA("v", object))
            text += " v=o" + Name(object);
        return text;
    }

    MCObject* m_pxA = nullptr;
    MCObject* m_pxP1 = nullptr;
    MCObject* m_pxP2 = nullptr;
    std::map<MCObject*, std::string> m_xNames;
};

// The preset of a row, tokens split by blanks: "@P1" pushes P1, "@-" pushes null, "i:v=1", "s:v=xy",
// "o:v=P1" and "o:v=" (null) create a variable.
struct Row {
    const char* m_pcPreset;
    const char* m_pcMacro;
    const char* m_pcArguments;  // split at '|'; null: no list; "": an empty list
    const char* m_pcExpected;   // "T|F result state [!message]"
    bool m_bIteration = false;  // through StartIteration, without a result
};

TEST_F(DataButlerTest, EveryMacroAnswersAsItsRowSays) {
    const Row rows[] = {
        {"@P1", "AnchorProperty", "Title", "T Top @P1"},
        {"", "AnchorProperty", "Nope|d", "T d @A"},
        {"", "AnchorProperty", "Nope", "F old @A"},
        {"", "Property", "Rank", "T 2 @A"},
        {"", "Property", "Tags", "T a, b @A"},
        {"", "Property", "Weight|d", "T d @A !60508"},
        {"", "Property", "Blob", "F old @A !60509"},
        {"", "Property", "Nope|d", "T d @A"},
        {"@-", "Property", "Title|", "T  @-"},
        {"@P2", "Property", "Rank", "F old @P2"},
        {"", "property", "Title", "F old @A !59000"},
        {"@P1", "OwnerProperty", "Title", "T Top @P1"},
        {"", "OwnerProperty", "Title|d", "T d @A"},
        {"", "ReferenceProperty", "Partner|Title", "T One @A"},
        {"", "ReferenceProperty", "Partner", "F old @A"},
        {"@P2", "ReferenceProperty", "Partner|Title|d", "F old @P2"},
        {"", "ReferenceProperty", "Partner|Tags|d", "T d @A"},
        {"", "NotEmptyProperty", "Title", "T Top @A"},
        {"", "NotEmptyProperty", "Label|d", "T d @A"},
        {"", "NotEmptyProperty", "Label|", "F  @A"},
        {"@P2", "NotEmptyProperty", "Rank|d", "T d @P2"},
        {"@P2", "NotEmptyProperty", "Rank", "F old @P2"},
        {"", "Lookup", "Rank|zero|one|two", "T two @A"},
        {"", "Lookup", "Rank|zero|one", "F old @A"},
        {"", "Lookup", "Title|zero", "T zero @A"},
        {"@P1", "Lookup", "Rank|zero|one", "F old @P1"},
        {"", "Equal", "Title|top", "F old @A"},
        {"", "Equal", "Nope|", "F old @A"},
        {"@-", "Equal", "Title|Top", "T old @-"},  // current falls back on the anchor
        {"", "NotEqual", "Title|Top", "F old @A"},
        {"", "NotEqual", "Title|x", "T old @A"},
        {"", "NotEqual", "Nope|", "T old @A"},
        {"", "HasProperty", "Title", "T old @A"},
        {"@P2", "HasProperty", "Rank", "F old @P2"},
        {"", "HasProperty", "Nope", "F old @A"},
        {"@-", "HasProperty", "Title", "F old @-"},
        {"", "NotHasProperty", "", "T old @A"},
        {"", "NotHasProperty", "Title", "F old @A"},
        {"", "NotHasProperty", "Nope", "T old @A"},
        {"@-", "NotHasProperty", "Title", "T old @-"},
        {"", "TypeNameEquals", "Shape", "F old @A"},
        {"@P1", "TypeNameEquals", "Shape", "T old @P1"},
        {"", "TypeNameEquals", "Box|x", "F old @A"},
        {"@-", "TypeNameEquals", "Box", "T old @-"},
        {"", "Pop", nullptr, "T old @none"},
        {"o:v=P1", "PushObject", "v", "T old @P1 v=oP1"},
        {"o:v=P1", "PushObject", "v|x", "F old @A v=oP1"},
        {"o:v=", "PushObject", "v", "F old @A v=o-"},
        {"i:v=1", "PushObject", "v", "F old @A v=i1"},
        {"@P1", "PushOwner", nullptr, "T old @A"},
        {"", "PushOwner", nullptr, "F old @A"},
        {"", "PushReference", "Partner", "T old @P1"},
        {"", "PushReference", "Title", "F old @A"},
        {"", "PushReference", "Parts", "F old @A"},
        {"o:v=P1", "ReferencePropertyEqual", "Partner|v", "T old @A v=oP1"},
        {"o:v=P2", "ReferencePropertyEqual", "Partner|v", "F old @A v=oP2"},
        {"i:v=1", "ReferencePropertyEqual", "Partner|v", "F old @A v=i1"},
        {"o:v=P1", "ReferencePropertyEqual", "Partner", "F old @A v=oP1"},
        {"", "Boolean", "v", "T old @A v=i0"},
        {"s:v=x", "Boolean", "v", "F old @A v=sx"},
        {"", "String", "v", "T old @A v=s"},
        {"i:v=1", "String", "v", "F old @A v=i1"},
        {"", "Object", "v", "T old @A v=o-"},
        {"i:v=1", "Destroy", "v", "T old @A"},
        {"", "Destroy", "v", "F old @A"},
        {"i:v=0", "SetBoolean", "v|TrUe", "T old @A v=i1"},
        {"i:v=1", "SetBoolean", "v|1", "T old @A v=i0"},
        {"s:v=x", "SetBoolean", "v|true", "F old @A v=sx"},
        {"o:v= @P1", "SetObject", "v", "T old @P1 v=oP1"},
        {"s:v=x", "SetObject", "v", "F old @A v=sx"},
        {"o:v=", "StoreCurrentObject", "v", "T old @A v=oA"},
        {"s:v=x", "SetString", "v|y", "T old @A v=sy"},
        {"s:v=x", "SetString", "v", "F old @A v=sx"},
        {"i:v=1", "SetString", "v|y", "F old @A v=i1"},
        {"s:v=x", "AppendString", "v|y", "T old @A v=sxy"},
        {"s:v=x", "AppendString", "v|y|z", "F old @A v=sx"},
        {"i:v=1", "AppendString", "v|y", "F old @A v=i1"},
        {"s:v=x", "StringEqual", "v|x", "T old @A v=sx"},
        {"s:v=x", "StringEqual", "v|X", "F old @A v=sx"},
        {"i:v=1", "StringEqual", "v|1", "F old @A v=i1"},
        {"s:v=x", "StringNotEqual", "v|X", "T old @A v=sx"},
        {"s:v=x", "StringNotEqual", "v|x", "F old @A v=sx"},
        {"s:v=x", "StringValue", "v", "T x @A v=sx"},
        {"s:v=x", "StringValue", "v|y", "F old @A v=sx"},
        {"i:v=1", "StringValue", "v", "F old @A v=i1"},
        {"i:v=1", "If", "v", "T old @A v=i1"},
        {"i:v=0", "If", "v", "F old @A v=i0"},
        {"i:v=1", "If", "v|yes|no", "T yes @A v=i1"},
        {"i:v=0", "If", "v|yes|no", "T no @A v=i0"},
        {"i:v=1", "If", "v|yes", "F old @A v=i1"},
        {"s:v=1", "If", "v", "F old @A v=s1"},
        {"i:v=0", "IfNot", "v", "T old @A v=i0"},
        {"i:v=1", "IfNot", "v|yes|no", "T no @A v=i1"},
        {"", "IfFirstIter", "first|later", "T first @A"},
        {"", "Comma", "|a||b", "T olda,b @A"},
        {"", "Comma", "|", "F old @A"},
        {"", "Comma", nullptr, "F old @A"},
        {"", "Concatenate", "a|b", "T oldab @A"},
        {"", "Concatenate", nullptr, "T old @A"},
        {"", "ForEach", "Parts", "T old @A #1"},
        {"", "ForEach", "Title", "F old @A"},
        {"@P2", "ForEach", "Parts", "F old @P2"},
        {"", "ForEach", "Nope", "F old @A"},
        {"", "Boolean", "v", "T old @A v=i0", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.m_pcMacro) + "(" + (row.m_pcArguments ? row.m_pcArguments : "no list") +
                     ") after '" + row.m_pcPreset + "'");
        MCDataButler butler(m_pxA);
        std::istringstream preset(row.m_pcPreset);
        for (std::string token; preset >> token;) {
            MCObject* object = nullptr;
            for (const auto& entry : m_xNames)
                object = entry.second == token.substr(token[0] == '@' ? 1 : 4) ? entry.first : object;
            const ZVTString name(token.substr(2, 1));
            bool made = true;
            if (token[0] == '@')
                butler.PushCurrentContext(object);
            else if (token[0] == 'i')
                made = butler.CreateInteger(name) && butler.SetInteger(name, std::stoi(token.substr(4)));
            else if (token[0] == 's')
                made = butler.CreateString(name) && butler.SetString(name, token.substr(4));
            else
                made = butler.CreateObject(name) && butler.SetObject(name, object);
            ASSERT_TRUE(made) << token;
        }
        const std::string text = row.m_pcArguments ? row.m_pcArguments : "";
        ZVMStringList arguments = text.empty() ? ZVMStringList() : List(text);
        HUBScopedMessageHandler messages;
        ZVTString result("old");
        ZVTBoolean answer;
        if (row.m_bIteration)
            answer = row.m_pcArguments ? butler.StartIteration(row.m_pcMacro, arguments)
                                       : butler.StartIteration(row.m_pcMacro);
        else
            answer = row.m_pcArguments ? butler.SubstituteValue(row.m_pcMacro, arguments, result)
                                       : butler.SubstituteValue(row.m_pcMacro, result);
        std::string seen = std::string(answer ? "T " : "F ") + result.str() + " " + State(butler);
        if (butler.GetIteratorStackCount())
            seen += " #" + std::to_string(butler.GetIteratorStackCount());
        for (const HUBMessageRecord& message : messages.GetMessages())
            seen += " !" + std::to_string(message.m_lMessageId);
        EXPECT_EQ(seen, row.m_pcExpected);
    }
    // Without the arguments it needs every macro refuses, and so does every text macro asked to iterate
    // ("*", no result to fill); neither touches the result, the contexts or the variables.
    std::istringstream macros(
        "AnchorProperty AppendString Boolean Destroy Equal ForEach HasProperty If IfFirstIter Lookup "
        "NotEmptyProperty NotEqual Object OwnerProperty Property PushObject PushReference ReferenceProperty "
        "ReferencePropertyEqual SetBoolean SetObject SetString String StringEqual StringValue TypeNameEquals "
        "*AnchorProperty *Comma *Concatenate *If *IfFirstIter *Lookup *NotEmptyProperty *OwnerProperty "
        "*Property *ReferenceProperty *StringValue");
    for (std::string macro; macros >> macro;) {
        SCOPED_TRACE(macro);
        MCDataButler butler(m_pxA);
        ASSERT_TRUE(butler.CreateString("v"));
        ZVTString result("old");
        ZVMStringList arguments = List("v|Title|x");
        EXPECT_FALSE(macro[0] == '*' ? butler.StartIteration(macro.substr(1), arguments)
                                     : butler.SubstituteValue(macro, result));
        EXPECT_EQ(result.str() + " " + State(butler), "old @A v=s");
    }
}

// Each pass runs on its target with its number; a break-on variable ends the iteration before its next
// pass; the context is left as it was.
TEST_F(DataButlerTest, AnIterationPassesOverEachTargetUntilItsBreakOnVariableIsZero) {
    const struct {
        const char* m_pcName;
        int m_nStart;  // -1: no such variable, -2: no break-on argument
        int m_nAfterFirst;
        const char* m_pcPasses;
    } cases[] = {{"no break-on variable", -2, 0, "1:One first 2:Two later "},
                 {"zero before the first pass", 0, 0, ""},
                 {"no integer variable", -1, 0, ""},
                 {"set to zero in the first pass", 1, 0, "1:One first "},
                 {"left at one", 1, 1, "1:One first 2:Two later "}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcName);
        MCDataButler butler(m_pxA);
        if (c.m_nStart >= 0) {
            ASSERT_TRUE(butler.CreateInteger("go") && butler.SetInteger("go", c.m_nStart));
        }
        ZVMStringList arguments = c.m_nStart == -2 ? List("Parts") : List("Parts|go");
        ASSERT_TRUE(butler.StartIteration("ForEach", arguments));
        EXPECT_EQ(butler.GetIteratorStackLast()->GetCurrent(), 0);
        std::string passes;
        while (butler.NextIteration("ForEach")) {
            passes += std::to_string(butler.GetIteratorStackLast()->GetCurrent()) + ":";
            for (auto [macro, list] : {std::pair<const char*, ZVMStringList>{"Property", List("Title")},
                                       {"IfFirstIter", List("first|later")}}) {
                ZVTString result;
                passes +=
                    std::string(butler.SubstituteValue(macro, list, result) ? "" : "!") + result.str() + " ";
            }
            butler.SetInteger("go", c.m_nAfterFirst);
        }
        EXPECT_EQ(passes, c.m_pcPasses);
        EXPECT_EQ(butler.GetContextStackCount(), 1);
        EXPECT_EQ(butler.GetContext(), m_pxA);
        EXPECT_EQ(butler.GetIteratorStackCount(), 0);
    }
}

TEST_F(DataButlerTest, NestedIterationsOfOneNameAndAnUnknownNameDeletingThemAll) {
    MCDataButler butler(m_pxA);
    ZVMStringList parts = List("Parts");
    ASSERT_TRUE(butler.StartIteration("ForEach", parts));
    ASSERT_TRUE(butler.NextIteration("ForEach"));  // outer on P1, whose Parts are P2 and A
    ASSERT_TRUE(butler.StartIteration("ForEach", parts));
    std::string inner;
    while (butler.NextIteration("ForEach"))
        inner +=
            Name(butler.GetCurrentContext(0)) + std::to_string(butler.GetIteratorStackLast()->GetCurrent());
    EXPECT_EQ(inner, "P21A2");
    ASSERT_EQ(butler.GetIteratorStackCount(), 1);
    ASSERT_TRUE(butler.NextIteration("ForEach"));
    EXPECT_EQ(butler.GetContext(), m_pxP2);
    EXPECT_EQ(butler.GetIteratorStackLast()->GetCurrent(), 2);

    // Abandoned iterations go at once; the objects they pushed stay.
    ZVTSList<MCObject*> hosts = ListOf({m_pxP1});
    butler.PushIter(new HostListProxy(hosts));
    butler.PushIter(butler.GetIteratorStackLast());  // entered once only, so deleted once
    butler.PushIter(nullptr);
    ASSERT_TRUE(butler.NextIteration("Host"));
    EXPECT_EQ(HostListProxy::c_nAlive, 1);
    EXPECT_EQ(butler.GetIterContext(Box::c_sType), nullptr);
    EXPECT_EQ(butler.GetIterContext(Shape::c_sType), m_pxP1);
    EXPECT_FALSE(butler.NextIteration("Other"));
    EXPECT_EQ(butler.GetIteratorStackCount(), 0);
    EXPECT_EQ(HostListProxy::c_nAlive, 0);
    EXPECT_EQ(butler.GetContextStackCount(), 3);
}

TEST_F(DataButlerTest, CopiesShareTheStateAndTheLastDeletesWhatTemplatesLeftRunning) {
    ZVTSList<MCObject*> hosts = ListOf({m_pxP2});
    {
        auto* first = new MCDataButler(m_pxA);
        MCDataButler copy(*first), assigned(nullptr);
        assigned = copy;
        first->CreateString("w");
        first->PushIter(new HostListProxy(hosts));
        delete first;
        EXPECT_TRUE(assigned.SetString("w", "kept"));
        EXPECT_TRUE(copy.NextIteration("Host"));
        EXPECT_EQ(copy.GetCurrentContext(0), m_pxP2);
        EXPECT_EQ(HostListProxy::c_nAlive, 1);
        EXPECT_EQ(copy.Clone(), nullptr);
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
    EXPECT_EQ(none.GetContextStackCount(), 2);
    ZVTSList<MCObject*> hosts = ListOf({m_pxP1});
    none.PushIter(new HostListProxy(hosts));
    ASSERT_TRUE(none.NextIteration("Host"));
    MCObject* generic = Make();
    m_xNames[generic] = "G";
    none.PushCurrentContext(generic);
    std::string found;
    for (short type : {short(0), Shape::c_sType, Box::c_sType, Crate::c_sType})
        found += Name(none.GetCurrentContext(type)) + " ";
    EXPECT_EQ(found, "G P1 A - ");
}

TEST_F(DataButlerTest, VariablesKeepTheirTypeAndHostsAddMacros) {
    MCDataButler butler(m_pxA);
    ASSERT_TRUE(butler.CreateInteger("v"));
    butler.SetInteger("v", 7);
    EXPECT_TRUE(butler.CreateObject("o"));
    EXPECT_TRUE(butler.CreateString("s") && butler.SetString("s", "x"));
    std::string types;
    for (const char* name : {"nope", "v", "s", "o"})
        types += std::to_string(butler.GetVariableType(name));
    EXPECT_EQ(types, "0123");
    EXPECT_EQ(butler.FindVariable("v")->GetAsString().str() + butler.FindVariable("s")->GetAsString().str() +
                  "|" + butler.FindVariable("o")->GetAsString().str(),
              "7x|");

    struct Twice : MCMacroHandlerBase {
        ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString&, ZVMStringList* arguments,
                               ZVTString* result) override {
            ZVTString once;
            if (!result || !RetrieveProperty(butler->GetAnchorContext(0), (*arguments)[0], once))
                return false;
            *result = (once += once);
            return true;
        }
    } twice;
    struct HostButler : MCDataButler {
        HostButler(MCObject* anchor, MCMacroHandlerBase* handler) : MCDataButler(anchor) {
            AddHandler("Twice", handler);
        }
    } host(m_pxA, &twice);
    ZVMStringList title = List("Title");
    ZVTString result;
    EXPECT_TRUE(host.KnowsMacro("Twice") && host.KnowsMacro("ForEach") && !host.KnowsMacro("forEach"));
    EXPECT_TRUE(host.SubstituteValue("Twice", title, result));
    EXPECT_EQ(result, "TopTop");
}

TEST_F(DataButlerTest, ACalculatedPropertyThatRefusesCountsAsUnreadable) {
    MCObject* box = Make(nullptr, Box::c_sType);
    SetLong(box, Shape::c_sWidth, 6);
    PropertyRule area("A", MCPropertySemantic::CalculateValue);
    area.m_xAct = [](MCPropertySemantic::mode, MCObject* object, MCProperty* property,
                     MCPropertySemanticContext*) {
        MCSPropertyRawAccessorT<long> width;
        object->GetProperty(Shape::c_sWidth, width);
        if (width.GetValue() < 0)
            return MCPropertySemantic::resultRefused;
        static_cast<MCSPropertyT<long>*>(property)->SetValue(width.GetValue() * width.GetValue());
        return MCPropertySemantic::resultContinue;
    };
    AddRule(Shape::c_sType, Shape::c_sArea, area);
    ASSERT_EQ(GetLong(box, Shape::c_sArea), "36");  // makes the calculated property
    MCDataButler butler(box);
    ZVMStringList arguments = List("Area|unknown");
    ZVTString result;
    SetLong(box, Shape::c_sWidth, 7);
    EXPECT_TRUE(butler.SubstituteValue("Property", arguments, result));
    EXPECT_EQ(result, "49");
    SetLong(box, Shape::c_sWidth, -1);
    EXPECT_TRUE(butler.SubstituteValue("Property", arguments, result));
    EXPECT_EQ(result, "unknown");
}

}  // namespace
