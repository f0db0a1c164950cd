// Covers copy and paste: which objects a closure takes and at what level and owner, inherited
// references, the buffer's bytes, PostCopy and PostPaste rules, pasting under several targets, merge
// through a converter, damaged buffers, and copying across models.

#include <cctype>
#include <climits>
#include <cstring>
#include <tuple>

#include "support/FaultTestSupport.h"
#include "support/PersTestSupport.h"

namespace {

using R = MCFactoryRegistry;

// ClipNode's properties, one reference per clip value; Build names them by their last two digits.
constexpr short c_sFollow = 7811, c_sDepend = 7812, c_sConvert = 7813, c_sUndeclared = 7814,
                c_sUndecided = 7815, c_sList = 7816, c_sPlain = 7817, c_sCount = 7818, c_sCount2 = 7819;
// What the user hears of a ClipNode's undeclared reference, as the message handler formats it.
const std::string c_sTold = " !message 607 (style 0x30): 7801, 7814";

struct ClipNode : mc::HostClass<7801> {
    friend mc::FactoryOf<ClipNode>;
    using HostClass::HostClass;
};

/// Inherits Follow along the core's Parent.
struct ClipHeir : mc::HostClass<7802> {
    friend mc::FactoryOf<ClipHeir>;
    using HostClass::HostClass;
};

/// Logs what a rule sees: "name" on PostCopy, "name?" on any mode but PostPaste, and there "name:level" with
/// "+" once the object's Depend is bound. Then expunges the object if it is named `m_sDoomed`.
struct SeenRule : MCObjectSem {
    explicit SeenRule(unsigned long interests) : m_nInterests(interests) {}
    result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
        MCSRefRawAccessor ref;
        const bool bound = object->GetProperty(c_sDepend, ref) && ref.GetValue();
        m_sSeen += ModelTest::NameOf(object) + (nMode == PostCopy ? " " : nMode == PostPaste ? ":" : "? ");
        if (nMode == PostPaste)
            m_sSeen += std::to_string(static_cast<MCPasteObjectContext*>(context)->GetLevel()) +
                       (bound ? "+ " : " ");
        if (ModelTest::NameOf(object) == m_sDoomed)
            object->Expunge(true);
        return resultContinue;
    }
    unsigned long GetInterests() const override { return m_nInterests; }
    std::string m_sSeen, m_sDoomed;
    unsigned long m_nInterests;
};

/// Knows the ids it was told of; may be primed with ids it pretends to know.
struct Converter : MCClipIdConverter {
    long ConvertId(long id) override { return m_xMap.count(id) ? m_xMap[id] : 0; }
    void AddConversion(long oldId, long newId) override { m_xMap[oldId] = newId; }
    std::map<long, long> m_xMap;
};

class ClipTest : public PersTest {
protected:
    void SetUp() override {
        PersTest::SetUp();
        if (!R::IsRegistered(ClipNode::c_sType, nullptr)) {
            for (short type : {c_sFollow, c_sDepend, c_sConvert, c_sUndeclared, c_sUndecided, c_sPlain})
                R::RegisterAliasProperty(type, ("Ref" + std::to_string(type)).c_str(), MCCodes::pReference,
                                         false, false, false, false);
            R::RegisterAliasProperty(c_sList, "RefList", MCCodes::pReferenceList, false, false, false, false);
            R::RegisterAliasProperty(c_sCount, "Count", MCCodes::pInteger, true, false, false, false);
            R::RegisterAliasProperty(c_sCount2, "Count2", MCCodes::pInteger, true, false, false, false);
            mc::RegisterClass<ClipNode>("ClipNode", mc::ClassOptions().OwnedBy(PersRoot::c_sType).First());
            R::AddOwnerType(ClipNode::c_sType, ClipNode::c_sType);
            // Each property code with its clip value.
            using U = std::pair<short, R::clip_reference>;  // a property code and its clip value
            for (const U& u : {U{c_sFollow, R::clipFollow}, U{c_sDepend, R::clipDepend},
                               U{c_sList, R::clipFollow}, U{c_sConvert, R::clipFollowUnconverted},
                               U{c_sUndecided, R::clipUndecided}, U{c_sPlain, 0}, U{MCCodes::pParent, 0}})
                R::AddPropertyUsage(ClipNode::c_sType, u.first, u.second);
            mc::RegisterClass<ClipHeir>(
                "ClipHeir", mc::ClassOptions().Under(ClipNode::c_sType).OwnedBy(PersRoot::c_sType).First());
            MCMetaInfo::RegisterPropertyInheritance(ClipHeir::c_sType, c_sFollow);
        }
        m_pxSource = Root("S");
        m_pxTarget = Root("T");
    }
    void TearDown() override {
        // As a host must before a root goes: a later root at its address would hold its properties.
        R::RemoveUDPs(m_pxSource);
        R::RemoveUDPs(m_pxTarget);
        PersTest::TearDown();
    }

    MCObject* Node(const char* name, MCObject* owner, short type = ClipNode::c_sType) {
        return Named(name, owner, type);
    }
    MCObject* Root(const char* name) { return Named(name, nullptr, PersRoot::c_sType); }

    /// Builds under `owner` the objects of `text`, written the way Tree renders them: "A{11=B 18=3}(a1) B"
    /// makes A owning a1, then B, with A's 7811 referring to B and its 7818 holding 3 (a ClipNode
    /// property by its last two digits); "~Q" makes Q with no owner. The objects by name.
    std::map<std::string, MCObject*> Build(MCObject* owner, const std::string& text) {
        std::string spaced;
        for (char c : text)
            spaced += std::strchr("(){}", c) ? std::string(" ") + c + " " : std::string(1, c);
        std::istringstream tokens(spaced);
        std::vector<MCObject*> owners{owner};
        std::vector<std::pair<MCObject*, std::string>> values;
        std::map<std::string, MCObject*> named;
        MCObject* last = nullptr;
        for (std::string token; tokens >> token;) {
            if (token == "(")
                owners.push_back(last);
            else if (token == ")")
                owners.pop_back();
            else if (token.find('=') != std::string::npos)
                values.emplace_back(last, token);
            else if (token[0] == '~')
                last = named[token.substr(1)] = Node(token.c_str() + 1, nullptr);
            else if (token != "{" && token != "}")
                last = named[token] = Node(token.c_str(), owners.back());
        }
        for (const auto& [object, value] : values) {
            const short type = static_cast<short>(7800 + std::stoi(value.substr(0, 2)));
            if (std::isdigit(static_cast<unsigned char>(value[3])))
                SetLong(object, type, std::stol(value.substr(3)));
            else
                Link(object, type, named.at(value.substr(3)));
        }
        return named;
    }

    /// The tree pasted from `bytes`, `times` over, under a fresh root T.
    std::string Pasted(const std::string& bytes, int times = 1) {
        MCObject* target = Root("T");
        while (times-- > 0)
            Paste(bytes, {target});
        return Tree(target);
    }

    /// The objects of `named` that `names` lists, in its order.
    static std::vector<MCObject*> Select(const std::map<std::string, MCObject*>& named,
                                         const std::string& names) {
        std::vector<MCObject*> selected;
        std::istringstream words(names);
        for (std::string name; words >> name;)
            selected.push_back(named.at(name));
        return selected;
    }

    /// The buffer's entries as "name/level<owner", owner by the name of the object its record names.
    std::string Entries(const std::string& bytes) {
        std::stringstream medium(bytes);
        MCStream stream(medium, ZVTStream::binary);
        MCPersRestoreVisitor visitor(stream);
        std::string out;
        char token = 0, flag = 0, object = 0;
        long id = 0, ownerId = 0;
        short level = 0, type = 0;
        ZVTString name;
        MCUDPMap* map = nullptr;
        stream >> token >> id >> id;  // the head: source id and address
        while (stream >> token, !stream.fail()) {
            if (token == MCStream::tokenGlobals)
                MCEnvironment::GetInstance()->RestoreGlobalToken(token, stream, &map);
            else if (token == MCStream::tokenClipLevel || token == MCStream::tokenClipEnd)
                out += token == MCStream::tokenClipLevel ? "| " : "end";
            else {
                stream >> level >> id >> flag >> name >> type >> object >> type >> id >> ownerId;
                visitor.SetFlush(true);
                visitor.Visit(Make(nullptr));
                MCObject* owner = MCObject::ResolveId(ownerId);
                out += name.str() + "/" + std::to_string(level) + "<" + (owner ? NameOf(owner) : "-") + " ";
            }
        }
        delete map;
        return out;
    }

    /// The subtree as "name{type=target ...}(ownees)"; a target outside the subtree shows as ^name.
    static std::string Tree(MCObject* root) {
        std::vector<MCObject*> objects;
        fault_detail::Subtree(root, objects);
        const std::set<const MCObject*> inside(objects.begin(), objects.end());
        std::function<std::string(MCObject*)> render = [&](MCObject* o) {
            std::string refs, kids;
            for (MCPropertyListIter properties(o); ++properties;) {
                MCProperty* p = properties.GetValue();
                std::vector<MCObject*> targets;
                bool bound = true;
                if (p->GetFlag(MCItem::itemNulled) || !fault_detail::Targets(p, targets, bound))
                    continue;
                if (!bound)
                    targets.push_back(nullptr);
                for (MCObject* t : targets)
                    refs += std::string(refs.empty() ? "" : " ") + std::to_string(p->GetType() % 100) + "=" +
                            (!t ? "-" : (inside.count(t) ? "" : "^") + NameOf(t));
            }
            for (MCObject* c = o->GetFirstOwnee(); c; c = c->GetNextSibling())
                kids += (kids.empty() ? "" : " ") + render(c);
            return NameOf(o) + (refs.empty() ? "" : "{" + refs + "}") +
                   (kids.empty() ? "" : "(" + kids + ")");
        };
        return render(root);
    }

    MCObject* m_pxSource = nullptr;
    MCObject* m_pxTarget = nullptr;
};

TEST_F(ClipTest, ClosureTakesOwneesAndFollowsOrDropsByClipValue) {
    // Each case builds its tree under a fresh S and copies the selected objects, through a converter that
    // knows the object `known` when one is named; entries and messages are compared as one string. The
    // reference codes: 11 follow, 12 depend, 13 follow unconverted, 14 undeclared, 15 undecided, 16 a
    // followed list, 17 never followed; 18 is an undeclared integer. The user hears of an undeclared
    // reference once the buffer is written, so a message handler may expunge `doomed`: the buffer is the one
    // of the model as the copy found it, while Entries names owners by the model after the copy.
    const std::tuple<const char*, const char*, const char*, const char*, std::string> cases[] = {
        // Ownees come along a level deeper.
        {"A(a1(a11))", "A", nullptr, nullptr, "| A/0<S a1/1<A a11/2<a1 end"},
        // A followed object, single or in a list, joins under its referrer; selected too, it keeps level 0
        // and its owner.
        {"A{11=C 16=B} C B", "A C", nullptr, nullptr, "| A/0<S C/0<S B/1<A end"},
        // A ring of follows ends with each object once.
        {"A{11=B} B{11=A}", "A", nullptr, nullptr, "| A/0<S B/1<A end"},
        // A dependent on an outside object goes, its ownees stay; the chain loses every link.
        {"A(B{12=Out}(b1) C{15=B}) Out", "A", nullptr, nullptr, "| A/0<S b1/2<B end"},
        // Without a converter bit 4 brings nothing in, and a value of 0 never follows.
        {"A{13=B 17=C} B C", "A", nullptr, nullptr, "| A/0<S end"},
        // A converter keeps dependents on what it knows and follows what it does not.
        {"A{12=Known 13=Unknown} Known Unknown", "A", "Known", nullptr, "| A/0<S Unknown/1<A end"},
        // An undeclared reference tells the user and follows; an undeclared value tells nobody.
        {"A{14=B 18=3} B", "A", nullptr, nullptr, "| A/0<S B/1<A end" + c_sTold},
        // The handler expunges the referrer, the object it refers to, an ownee still to be taken.
        {"A{14=B}(a1) B", "A", nullptr, "A", "| A/0<S a1/1<- B/1<- end" + c_sTold},
        {"A{14=B}(a1) B", "A", nullptr, "B", "| A/0<S a1/1<A B/1<A end" + c_sTold},
        {"A{14=B}(a1) B", "A", nullptr, "a1", "| A/0<S a1/1<A B/1<A end" + c_sTold},
        // An empty selection writes the frame alone.
        {"", "", nullptr, nullptr, "end"},
    };
    struct Expunging : HUBScopedMessageHandler {
        int HandleMessage(const HUBMessageRecord& record) override {
            if (MCObject* victim = std::exchange(m_pxVictim, nullptr))
                victim->Expunge(true);
            return HUBScopedMessageHandler::HandleMessage(record);
        }
        MCObject* m_pxVictim = nullptr;
    };
    for (const auto& [tree, selected, known, doomed, entries] : cases) {
        SCOPED_TRACE(tree + std::string(doomed ? doomed : ""));
        Expunging messages;
        MCObject* source = Root("S");
        const auto named = Build(source, tree);
        Converter converter;
        if (known)
            converter.m_xMap[named.at(known)->GetId()] = 4242;
        if (doomed)
            messages.m_pxVictim = named.at(doomed);
        const std::string out = Entries(Copy(Select(named, selected), *source, known ? &converter : nullptr));
        EXPECT_EQ(out + (messages.Log().empty() ? "" : " !" + messages.Log()), entries);
    }
}

TEST_F(ClipTest, InheritedReferencesTravelAsOwnValuesUnlessTheParentComesAlong) {
    // C inherits Follow from P along Parent; P's Follow leads to X.
    MCObject* p = Node("P", m_pxSource);
    MCObject* c = Node("C", m_pxSource, ClipHeir::c_sType);
    Link(p, c_sFollow, Node("X", m_pxSource));
    Link(c, MCCodes::pParent, p);
    const std::tuple<std::vector<MCObject*>, const char*, const char*> cases[] = {
        {{c}, "| C/0<S X/1<C end", "T(C{11=X}(X))"},
        {{p, c}, "| P/0<S C/0<S X/1<P end", "T(P{11=X}(X) C{52=P})"},
    };
    for (const auto& [selected, entries, pasted] : cases) {
        SCOPED_TRACE(entries);
        const std::string bytes = Copy(selected, *m_pxSource);
        EXPECT_EQ(Entries(bytes) + " " + Pasted(bytes), std::string(entries) + " " + pasted);
    }
}

// Runs before any PostCopy rule: once one was registered the interest stays, and records are no longer
// prepared in blocks as the closure walks.
TEST_F(ClipTest, DeepChainsCostNoCallDepth) {
    MCObject* a = Node("A", m_pxSource);
    MCObject* previous = a;
    for (int i = 0; i < 20000; ++i) {
        MCObject* next = Node("n", m_pxSource);
        Link(std::exchange(previous, next), c_sFollow, next);
    }
    std::string bytes;
    ASSERT_TRUE(RunOnStack(256 * 1024, [&] { bytes = Copy({a}, *m_pxSource); }));
    EXPECT_GT(bytes.size(), 20000u * 20);
}

TEST_F(ClipTest, PostCopyRulesSeeEachEntryInBufferOrderChangeNoByteAndMayExpunge) {
    // Without any PostCopy rule the records are written while the closure walks; with one, each after
    // its rule has run. A host must not be able to tell the two apart, not even where the selection
    // names an object after a reference reached it, which changes its owner after its record was first
    // written: X takes its real owner, Q, which has none, takes none. The tree, the selection, and what
    // the rule sees followed by the entries.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"A{11=X}(B(b1) C{12=B}) X", "A X", "A X B C b1 | A/0<S X/0<S B/1<A C/1<A b1/2<B end"},
        {"P{11=Q} ~Q", "P Q", "P Q | P/0<S Q/0<- end"},
    };
    // Every quiet copy goes before the rule: its interest, once registered, stays.
    std::vector<std::tuple<MCObject*, std::vector<MCObject*>, std::string>> quiet;
    for (const auto& [tree, selected, seen] : cases) {
        MCObject* source = Root("S");
        const std::vector<MCObject*> selection = Select(Build(source, tree), selected);
        quiet.emplace_back(source, selection, Copy(selection, *source));
    }
    SeenRule rule(MCObjectSem::PostCopy);
    AddRule(ClipNode::c_sType, rule);
    for (size_t i = 0; i < quiet.size(); ++i) {
        const auto& [source, selection, bytes] = quiet[i];
        SCOPED_TRACE(std::get<0>(cases[i]));
        rule.m_sSeen.clear();
        EXPECT_EQ(Copy(selection, *source), bytes);
        EXPECT_EQ(rule.m_sSeen + Entries(bytes), std::get<2>(cases[i]));
    }
    // The rule may take its object down, and the object's subtree with it: the buffer is then the one of
    // the selection that is left. The object, what is left, the paste.
    const std::tuple<const char*, const char*, const char*> doomed[] = {
        {"A", "B C", "T(B(b1) C)"},  // the first entry, which wrote the level mark
        {"B", "A C", "T(A C)"},
        {"b1", "A B C", "T(A B C)"},
        {"C", "A B", "T(A B(b1))"},
    };
    for (const auto& [victim, left, pasted] : doomed) {
        SCOPED_TRACE(victim);
        MCObject* source = Root("S");
        const auto named = Build(source, "A B(b1) C");
        const std::vector<MCObject*> kept = Select(named, left);
        rule.m_sDoomed = victim;
        const std::string bytes = Copy(Select(named, "A B C"), *source);
        rule.m_sDoomed.clear();
        EXPECT_EQ(bytes, Copy(kept, *source));
        EXPECT_EQ(Pasted(bytes), pasted);
    }
}

// Each target gets its own copy, inner references rebound onto it and outer ones cleared. D depends on
// Out, left out, so it is purged; B1, which no target may own, then has no owner in the buffer and goes
// with B2, while F, on B1's level, is placed next. PostPaste runs once every reference is bound, and each
// target hears of its top object only.
TEST_F(ClipTest, PasteRebindsPerTargetDiscardsWhatHasNoPlaceAndAnnouncesOnlyTheTop) {
    const auto named = Build(m_pxSource, "A(B{12=C} C{16=B 17=Out} D{12=Out} E(F)) Out");
    Node("B2", Node("B1", named.at("D"), TestNode::c_sType), TestNode::c_sType);
    const std::string source = Tree(m_pxSource), bytes = Copy({named.at("A")}, *m_pxSource);
    EXPECT_EQ(Entries(bytes), "| A/0<S B/1<A C/1<A E/1<A B1/2<D F/2<E B2/3<B1 end");
    MCObject *t1 = Node("T1", m_pxTarget), *t2 = Node("T2", m_pxTarget);
    SeenRule rule(MCObjectSem::PostPaste);
    AddRule(ClipNode::c_sType, rule);
    // A property's PostPaste rule is told its object's level too.
    PropertyRule depend("Depend", MCPropertySemantic::PostPaste);
    depend.m_xAct = [](MCPropertySemantic::mode, MCObject*, MCProperty*, MCPropertySemanticContext* context) {
        RuleLog() += "/" + std::to_string(static_cast<MCPastePropertyContext*>(context)->GetLevel());
        return MCPropertySemantic::resultContinue;
    };
    AddRule(ClipNode::c_sType, c_sDepend, depend);
    Subscription hear1(t1, &m_xLog), hear2(t2, &m_xLog);
    Paste(bytes, {}, m_pxTarget);  // no target: nothing behind the level mark is read
    const std::vector<long> ids = Paste(bytes, {t1, t2}, m_pxTarget);
    ASSERT_EQ(ids.size(), 2u);
    const std::string copy = "A(B{12=C} C{16=B} E(F))";
    EXPECT_EQ(Tree(m_pxTarget), "T(T1(" + copy + ") T2(" + copy + "))");
    EXPECT_EQ(rule.m_sSeen, "A:0 B:1+ C:1 E:1 F:2 A:0 B:1+ C:1 E:1 F:2 ");
    EXPECT_EQ(TakeLog(), "Depend:40/1 Depend:40/1");
    EXPECT_EQ(m_xLog.Take(),
              "ObjectCreated(" + std::to_string(ids[0]) + ") ObjectCreated(" + std::to_string(ids[1]) + ")");
    EXPECT_EQ(Tree(m_pxSource), source);
}

TEST_F(ClipTest, ConverterMergesASecondPasteIntoTheFirstOnesObjects) {
    const std::string bytes = Copy({Build(m_pxSource, "A{18=1 16=B}(B)").at("A")}, *m_pxSource);
    Converter converter;
    const std::vector<long> first = Paste(bytes, {m_pxTarget}, m_pxTarget, &converter);
    ASSERT_EQ(first.size(), 1u);
    MCObject* pasted = MCObject::ResolveId(first[0]);
    SetLong(pasted, c_sCount, 9);
    Link(pasted, c_sFollow, m_pxTarget);  // not in the buffer: nulled by the merge
    Link(pasted, c_sList, m_pxTarget);    // replaced by the buffer's list
    MCObject* other = Build(m_pxTarget, "Other{18=7}").at("Other");
    const std::vector<long> second = Paste(bytes, {m_pxTarget}, m_pxTarget, &converter);
    EXPECT_EQ(Tree(m_pxTarget), "T(A{16=B}(B) Other)");
    // Both objects merged, none made.
    EXPECT_EQ(
        GetLong(pasted, c_sCount) + "," + GetLong(other, c_sCount) + " " + std::to_string(second.size()),
        "1,7 2");
}

// A host's rule or converter may expunge an object or remove a property while a paste runs: the paste
// touches nothing that went, an object whose owner went is placed as if it had none, and a target that
// went stops the paste as damage does. "Mold" is the object the converter merges `into` into.
TEST_F(ClipTest, HostCodeThatExpungesMidPasteTouchesNothingGone) {
    enum Act { expungeItself, nullCount2, expungePastedX, expungeTarget, converterExpungesNew };
    // What happens, the tree and selection copied, the molds built in the target (M merges into Mold), what
    // the rule (on PostPaste for expungeItself, else on PostEdit) or converter does, and the target with the
    // number of ids and Mold's counts.
    const std::tuple<const char*, const char*, const char*, const char*, Act, const char*> rows[] = {
        {"a PostPaste rule expunges its object", "A{18=1 19=2}", "A", "", expungeItself, "T n=1"},
        {"a merge's edit rule removes a later property", "M{18=6}", "M", "Mold{18=5 19=7}", nullCount2,
         "T(Mold) n=1 Mold:6/-"},
        {"a merge's edit rule expunges the owner of a later record", "X(x1) M{18=6}", "X M", "Mold{18=5}",
         expungePastedX, "T(Mold x1) n=1 Mold:6/-"},
        {"a merge's edit rule expunges the target of a merged reference", "X M{11=X 18=6}", "X M",
         "Mold{18=5}", expungePastedX, "T(Mold) n=1 Mold:6/-"},
        {"a converter expunges the owner of a later record", "A(a1)", "A", "", converterExpungesNew,
         "T(a1) n=0"},
        {"a merge's edit rule expunges the target", "M{18=6} Y", "M Y", "Mold{18=5}", expungeTarget,
         "gone n=1 Mold:6/-"},
    };
    static Act s_act;
    static bool s_armed;
    static Converter* s_converter;
    static long s_victim;  // the source id of the pasted object to expunge, or the target's id
    struct Expunging : Converter {
        void AddConversion(long oldId, long newId) override {
            Converter::AddConversion(oldId, newId);
            if (s_act == converterExpungesNew && std::exchange(s_armed, false))
                MCObject::ResolveId(newId)->Expunge(true);
        }
    };
    PropertyRule rule("act", MCPropertySemantic::PostEdit | MCPropertySemantic::PostPaste);
    rule.m_xAct = [](MCPropertySemantic::mode mode, MCObject* object, MCProperty*,
                     MCPropertySemanticContext*) {
        const unsigned long acting =
            s_act == expungeItself ? MCPropertySemantic::PostPaste : MCPropertySemantic::PostEdit;
        if (!s_armed || mode != acting || s_act == converterExpungesNew)
            return MCPropertySemantic::resultContinue;
        s_armed = false;
        MCSPropertyAccessorT<long> value;
        if (s_act == expungeItself) {
            object->Expunge(true);
            return MCPropertySemantic::resultObjectDestroyed;
        }
        if (s_act == nullCount2)
            object->NullProperty(c_sCount2, value);
        else
            MCObject::ResolveId(s_act == expungePastedX ? s_converter->m_xMap.at(s_victim) : s_victim)
                ->Expunge(true);
        return MCPropertySemantic::resultContinue;
    };
    AddRule(ClipNode::c_sType, c_sCount, rule);
    for (const auto& [name, tree, selected, mold, act, pasted] : rows) {
        SCOPED_TRACE(name);
        MCObject* source = Root("S");
        MCObject* target = Root("T");
        const auto named = Build(source, tree);
        // A target that goes does not hold the merged object.
        const auto molds = Build(act == expungeTarget ? Root("U") : target, mold);
        Expunging converter;
        if (molds.count("Mold"))
            converter.m_xMap[named.at("M")->GetId()] = molds.at("Mold")->GetId();
        const std::string bytes = Copy(Select(named, selected), *source, &converter);
        s_act = act;
        s_converter = &converter;
        s_victim = act == expungeTarget ? target->GetId() : named.count("X") ? named.at("X")->GetId() : 0;
        s_armed = true;
        const long targetId = target->GetId();
        const std::vector<long> ids = Paste(bytes, {target}, target, &converter);
        s_armed = false;
        std::string out = (MCObject::ResolveId(targetId) == target ? Tree(target) : "gone") +
                          " n=" + std::to_string(ids.size());
        if (molds.count("Mold"))
            out +=
                " Mold:" + GetLong(molds.at("Mold"), c_sCount) + "/" + GetLong(molds.at("Mold"), c_sCount2);
        EXPECT_EQ(out, pasted);
    }
}

TEST_F(ClipTest, DamagedBuffersStopThePasteAndKeepOnlyWholeObjects) {
    const std::string good = Copy({Build(m_pxSource, "A(B{12=C} C)").at("A")}, *m_pxSource);
    // Head (9 bytes), an empty global section (2), the level mark.
    const size_t mark = 11;
    ASSERT_EQ(good[mark], MCStream::tokenClipLevel);
    // `good` with the bytes at `at` replaced; the first entry's token follows the mark, and its flag, 8
    // bytes on, set to 1 matches by name.
    const auto with = [&good](size_t at, std::string values) {
        return std::string(good).replace(at, values.size(), values);
    };
    const std::string byName = with(mark + 8, "\1"), noMark = std::string(good).erase(mark, 1);
    const std::string sharedByName = std::string(byName).replace(mark + 1, 1, 1, MCStream::tokenClipEntry2);
    // What is wrong, the bytes, the target after pasting them the given number of times.
    const std::tuple<const char*, std::string, const char*, int> cases[] = {
        {"empty", "", "T", 1},
        {"no head token", good.substr(1), "T", 1},
        {"without a level mark all is prelude, placed once", noMark, "T(A(B{12=C} C))", 1},
        {"0x22 is read nowhere", with(mark + 1, {MCStream::tokenClipEntry1}), "T", 1},
        {"0x23 only before the mark", with(mark + 1, {MCStream::tokenClipEntry2}), "T", 1},
        {"cut inside the last record", good.substr(0, good.size() - 3), "T(A(B))", 1},
        {"cut before the end token", good.substr(0, good.size() - 1), "T(A(B{12=C} C))", 1},
        {"by name, nothing to match", byName, "T(A(B{12=C} C))", 1},
        {"by name, the second lands in the first", byName, "T(A(B{12=C} C B{12=C} C))", 2},
        {"by name before the mark", sharedByName, "T", 1},
    };
    for (const auto& [name, bytes, tree, pastes] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Pasted(bytes, pastes), tree);
    }
}

// A value its stored width cannot hold is refused, never cut: a copy gives no buffer, on the prepared path
// of a plain node and on the direct one of a type with an inherited property, and a save fails its stream.
TEST_F(ClipTest, AValueTooWideToStoreGivesNoBufferAndFailsTheSave) {
    for (short type : {ClipNode::c_sType, ClipHeir::c_sType}) {
        SCOPED_TRACE(type);
        MCObject* a = Node("A", m_pxSource, type);
        for (long count : {static_cast<long>(INT_MAX) + 1, static_cast<long>(INT_MAX)}) {
            const bool fits = count == INT_MAX;
            SetLong(a, c_sCount, count);
            EXPECT_EQ(Copy({a}, *m_pxSource).empty(), !fits);
            std::stringstream medium;
            MCStream stream(medium, ZVTStream::binary);
            MCPersHeader header = PersLimits();
            EXPECT_EQ(MCPersController().SaveTo(stream, m_pxSource, header), MCPersController::resultOk);
            EXPECT_EQ(stream.fail(), !fits);
        }
        a->Expunge(true);
    }
}

// The bytes of a one-object buffer are fixed; CopyTo then carries a user-defined property into the
// target's model and answers whether any id resulted.
TEST_F(ClipTest, BufferBytesArePinnedAndCopyToCarriesUserDefinedProperties) {
    MCObject* a = Node("A", m_pxSource);
    SetLong(a, c_sCount, 5, MCPropertyAccessor::accessAdd, false);
    std::string bytes = Copy({a}, *m_pxSource);
    bytes.replace(5, 4, 4, '\xAA');  // the source's address token is the run's own; all else is fixed
    const auto le32 = [](long v) { return HexOf({char(v), char(v >> 8), char(v >> 16), char(v >> 24)}); };
    const std::string source = le32(m_pxSource->GetId()), id = le32(a->GetId());
    EXPECT_EQ(HexOf(bytes),
              "20" + source + "aaaaaaaa" + "11" + "15" + "24" +        // head, no UDPs, level mark
                  "21" + "0000" + id + "00" + "0100000041" + "791e" +  // entry: level, id, flag, name, type
                  "02" + "791e" + id + source + "0000" +               // record head: owner S, no flags
                  "01" + "8400" + "0000" + id +                        // Id
                  "01" + "9300" + "0001" + "0100000041" +              // Name, itemFlag100
                  "01" + "8a1e" + "0000" + "05000000" + "12" + "25");  // Count 5, record end, end

    const short colour = R::RegisterUDP("ClipColour", MCCodes::pInteger, m_pxSource, true);
    ASSERT_LT(colour, 0);
    SetLong(a, colour, 12);
    ASSERT_FALSE(R::IsRegistered(colour, m_pxTarget));
    ZVTSList<MCObject*> selection = ListOf({a}), targets = ListOf({m_pxTarget}), none;
    ZVTOrderedVectorT<long> ids;
    EXPECT_TRUE(MCClip::CopyTo(selection, *m_pxSource, targets, *m_pxTarget, nullptr, &ids));
    ASSERT_EQ(ids.Length(), 1u);
    EXPECT_TRUE(R::IsRegistered(colour, m_pxTarget)) << "the target's model now holds the property";
    EXPECT_EQ(GetLong(MCObject::ResolveId(ids.Data()[0]), colour), "12");
    EXPECT_FALSE(MCClip::CopyTo(selection, *m_pxSource, none, *m_pxTarget, nullptr, nullptr));
    selection.Clear();
    EXPECT_THROW(MCClip::CopyTo(selection, *Make(nullptr), targets, *m_pxTarget, nullptr, nullptr),
                 EXUnexpected);
}

}  // namespace
