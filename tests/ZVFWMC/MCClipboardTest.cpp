// Covers copy and paste: which objects a closure takes and at what level and owner, the exact bytes of a
// small buffer, paste under one and several targets with references rebound per copy, merge through a
// converter, the PostPaste pass, damaged buffers, and a paste that throws part-way leaving nothing behind.

#include <gtest/gtest.h>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/PersTestSupport.h"

namespace {

using R = MCFactoryRegistry;

/// A host class with one reference property per clip value.
class ClipNode : public MCObject {
public:
    static constexpr short c_sType = 7801;
    static constexpr short c_sFollow = 7811, c_sDepend = 7812, c_sConvert = 7813, c_sUndeclared = 7814,
                           c_sUndecided = 7815, c_sList = 7816, c_sPlain = 7817, c_sCount = 7818;
    static constexpr short c_sParent =
        MCCodes::pParent;  // the core's Parent, along which Follow is inherited

    static void Register() {
        if (R::IsRegistered(c_sType, nullptr))
            return;
        const short singles[] = {c_sFollow, c_sDepend, c_sConvert, c_sUndeclared, c_sUndecided, c_sPlain};
        for (short type : singles)
            R::RegisterAliasProperty(type, ("Ref" + std::to_string(type)).c_str(), 89, false, false, false,
                                     false);
        R::RegisterAliasProperty(c_sList, "RefList", MCCodes::pReferenceList, false, false, false, false);
        R::RegisterAliasProperty(c_sCount, "Count", MCCodes::pInteger, true, false, false, false);
        new MCObjectFactoryT<ClipNode, MCObject>(c_sType, "ClipNode", 1, PersRoot::c_sType, 10, 0, true,
                                                 false);
        R::AddOwnerType(c_sType, c_sType);
        R::AddPropertyUsage(c_sType, c_sFollow, R::clipFollow);
        R::AddPropertyUsage(c_sType, c_sDepend, R::clipDepend);
        R::AddPropertyUsage(c_sType, c_sConvert, R::clipFollowUnconverted);
        R::AddPropertyUsage(c_sType, c_sUndecided, R::clipUndecided);
        R::AddPropertyUsage(c_sType, c_sList, R::clipFollow);
        R::AddPropertyUsage(c_sType, c_sPlain, 0);
        R::AddPropertyUsage(c_sType, c_sParent, 0);
    }

private:
    friend class MCObjectFactoryT<ClipNode, MCObject>;
    ClipNode(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context) {
        RegisterLevel(c_sType, context);
    }
    ClipNode(MCObject* owner, MCFactoryContext* context) : MCObject(c_sType, owner, context) {
        RegisterLevel(c_sType, context);
    }
};

/// A ClipNode that inherits Follow along Parent; its clip values are ClipNode's.
class ClipHeir : public MCObject {
public:
    static constexpr short c_sType = 7802;

    static void Register() {
        if (R::IsRegistered(c_sType, nullptr))
            return;
        new MCObjectFactoryT<ClipHeir, MCObject>(c_sType, "ClipHeir", ClipNode::c_sType, PersRoot::c_sType,
                                                 10, 0, true, false);
        MCMetaInfo::RegisterPropertyInheritance(c_sType, ClipNode::c_sFollow);
    }

private:
    friend class MCObjectFactoryT<ClipHeir, MCObject>;
    ClipHeir(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context) {
        RegisterLevel(c_sType, context);
    }
    ClipHeir(MCObject* owner, MCFactoryContext* context) : MCObject(c_sType, owner, context) {
        RegisterLevel(c_sType, context);
    }
};

/// Knows the ids it was told of; may be primed with ids it pretends to know.
class Converter : public MCClipIdConverter {
public:
    long ConvertId(long id) override {
        auto it = m_xMap.find(id);
        return it == m_xMap.end() ? 0 : it->second;
    }
    void AddConversion(long oldId, long newId) override { m_xMap[oldId] = newId; }
    std::map<long, long> m_xMap;
};

std::string NameOf(const MCObject* object) {
    MCSPropertyRawAccessorT<ZVTString> name;
    return object->GetProperty(MCCodes::pName, name) ? name.GetValue().str() : "?";
}

class ClipTest : public PersTest {
public:
    MCObject* Node(MCObject* owner, const char* name) {
        MCObject* node = Make(owner, ClipNode::c_sType);
        Name(node, name);
        return node;
    }

protected:
    void SetUp() override {
        PersTest::SetUp();
        ClipNode::Register();
        ClipHeir::Register();
        m_pxSource = Make(nullptr, PersRoot::c_sType);
        m_pxTarget = Make(nullptr, PersRoot::c_sType);
        Name(m_pxSource, "S");
        Name(m_pxTarget, "T");
    }

    static void Name(MCObject* object, const char* name) {
        MCSPropertyRawAccessorT<ZVTString> accessor{ZVTString(name)};
        object->SetProperty(MCCodes::pName, accessor, MCPropertyAccessor::accessAdd);
    }
    static void Ref(MCObject* from, short type, MCObject* to) {
        if (R::Translate(type, false) == 90) {
            MCVRefAccessor accessor(to);
            from->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
            return;
        }
        MCSRefAccessor accessor(to);
        from->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
    }

    static std::string Copy(std::vector<MCObject*> selection, MCObject& source,
                            MCClipIdConverter* converter = nullptr) {
        ZVTSList<MCObject*> objects;
        for (MCObject* object : selection)
            objects.Append(object);
        MCClipList copy(objects, source, converter ? MCClipList::modeConvert : MCClipList::modeCopy,
                        converter);
        std::string bytes(static_cast<size_t>(copy.GetBufferSize()), '\0');
        copy.CopyBuffer(bytes.data());
        return bytes;
    }
    static std::vector<long> Paste(std::string bytes, std::vector<MCObject*> targets, MCObject& target,
                                   MCClipIdConverter* converter = nullptr) {
        ZVTSList<MCObject*> list;
        for (MCObject* object : targets)
            list.Append(object);
        ZVTOrderedVectorT<long> ids;
        MCClipList paste(list, target, bytes.data(), static_cast<int>(bytes.size()), &ids, converter);
        return std::vector<long>(ids.Data(), ids.Data() + ids.Length());
    }

    /// The buffer's entries as "name/level<owner", owner by the name of the object its record names.
    std::string Entries(const std::string& bytes) {
        std::stringstream medium(bytes);
        MCStream stream(medium, ZVTStream::binary);
        MCPersRestoreVisitor visitor(stream);
        std::string out;
        char token = 0;
        long id = 0;
        unsigned long address = 0;
        stream >> token >> id >> address;
        MCUDPMap* map = nullptr;
        while (stream >> token, !stream.fail()) {
            if (token == MCStream::tokenGlobals) {
                MCEnvironment::GetInstance()->RestoreGlobalToken(token, stream, &map);
                continue;
            }
            if (token == MCStream::tokenClipLevel || token == MCStream::tokenClipEnd) {
                out += token == MCStream::tokenClipLevel ? "| " : "end";
                continue;
            }
            short level = 0, type = 0;
            char flag = 0, object = 0;
            ZVTString name;
            long ownerId = 0;
            stream >> level >> id >> flag >> name >> type >> object >> type >> id >> ownerId;
            MCObject* scratch = Make(nullptr);
            visitor.SetFlush(true);
            visitor.Visit(scratch);
            MCObject* owner = MCObject::ResolveId(ownerId);
            out += name.str() + "/" + std::to_string(level) + "<" + (owner ? NameOf(owner) : "-") + " ";
        }
        delete map;
        return out;
    }

    /// The subtree as "name{type=target ...}(ownees)"; a target outside the subtree shows as ^name.
    static std::string Tree(MCObject* root) {
        std::set<const MCObject*> inside;
        std::function<void(MCObject*)> collect = [&](MCObject* o) {
            inside.insert(o);
            for (MCObject* c = o->GetFirstOwnee(); c; c = c->GetNextSibling())
                collect(c);
        };
        collect(root);
        std::function<std::string(MCObject*)> render = [&](MCObject* o) {
            std::string s = NameOf(o), refs;
            MCPropertyListIter properties(o);
            while (++properties) {
                MCProperty* p = properties.GetValue();
                if (!p->IsReference() || p->GetFlag(MCItem::itemNulled))
                    continue;
                std::vector<MCObject*> targets;
                if (auto* single = dynamic_cast<MCSRef*>(p))
                    targets.push_back(single->IsBound() ? single->GetValue() : nullptr);
                else if (auto* list = dynamic_cast<MCVRef*>(p); list && list->IsBound())
                    for (size_t i = 0; i < list->GetValue().Entries(); ++i)
                        targets.push_back(list->GetValue().At(i));
                for (MCObject* t : targets)
                    refs += std::string(refs.empty() ? "" : " ") + std::to_string(p->GetType() % 100) + "=" +
                            (!t ? "-" : (inside.count(t) ? "" : "^") + NameOf(t));
            }
            if (!refs.empty())
                s += "{" + refs + "}";
            std::string kids;
            for (MCObject* c = o->GetFirstOwnee(); c; c = c->GetNextSibling())
                kids += (kids.empty() ? "" : " ") + render(c);
            return kids.empty() ? s : s + "(" + kids + ")";
        };
        return render(root);
    }

    MCObject* m_pxSource = nullptr;
    MCObject* m_pxTarget = nullptr;
};

TEST_F(ClipTest, ClosureTakesOwneesAndFollowsOrDropsByClipValue) {
    // Each case builds under S and copies `selected`; the entries are compared as one string.
    struct Case {
        const char* name;
        std::function<std::vector<MCObject*>(ClipTest&, MCObject*)> build;
        const char* entries;
    };
    const Case cases[] = {
        {"ownees come along a level deeper",
         [](ClipTest& t, MCObject* s) {
             MCObject* a = t.Node(s, "A");
             t.Node(t.Node(a, "a1"), "a11");
             return std::vector<MCObject*>{a};
         },
         "| A/0<S a1/1<A a11/2<a1 end"},
        {"a followed object joins under its referrer; selected too, it keeps level 0 and its owner",
         [](ClipTest& t, MCObject* s) {
             MCObject* a = t.Node(s, "A");
             MCObject* b = t.Node(s, "B");
             MCObject* c = t.Node(s, "C");
             Ref(a, ClipNode::c_sFollow, b);
             Ref(a, ClipNode::c_sList, c);
             return std::vector<MCObject*>{a, c};
         },
         "| A/0<S C/0<S B/1<A end"},
        {"a ring of follows ends with each object once",
         [](ClipTest& t, MCObject* s) {
             MCObject* a = t.Node(s, "A");
             MCObject* b = t.Node(s, "B");
             Ref(a, ClipNode::c_sFollow, b);
             Ref(b, ClipNode::c_sFollow, a);
             return std::vector<MCObject*>{a};
         },
         "| A/0<S B/1<A end"},
        {"a dependent on an outside object goes, its ownees stay; the chain loses every link",
         [](ClipTest& t, MCObject* s) {
             MCObject* a = t.Node(s, "A");
             MCObject* b = t.Node(a, "B");
             MCObject* c = t.Node(a, "C");
             t.Node(b, "b1");
             Ref(c, ClipNode::c_sUndecided, b);
             Ref(b, ClipNode::c_sDepend, t.Node(s, "Out"));
             return std::vector<MCObject*>{a};
         },
         "| A/0<S b1/2<B end"},
        {"without a converter bit 4 brings nothing in, and a value of 0 never follows",
         [](ClipTest& t, MCObject* s) {
             MCObject* a = t.Node(s, "A");
             Ref(a, ClipNode::c_sConvert, t.Node(s, "B"));
             Ref(a, ClipNode::c_sPlain, t.Node(s, "C"));
             return std::vector<MCObject*>{a};
         },
         "| A/0<S end"},
        {"an empty selection writes the frame alone",
         [](ClipTest&, MCObject*) { return std::vector<MCObject*>{}; }, "end"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        MCObject* source = Make(nullptr, PersRoot::c_sType);
        Name(source, "S");
        std::vector<MCObject*> selected = c.build(*this, source);
        EXPECT_EQ(Entries(Copy(selected, *source)), c.entries);
    }
}

TEST_F(ClipTest, ConverterKeepsDependentsAndFollowsWhatItDoesNotKnow) {
    MCObject* a = Node(m_pxSource, "A");
    MCObject* known = Node(m_pxSource, "Known");
    MCObject* unknown = Node(m_pxSource, "Unknown");
    Ref(a, ClipNode::c_sDepend, known);
    Ref(a, ClipNode::c_sConvert, unknown);
    Converter converter;
    converter.m_xMap[known->GetId()] = 4242;
    EXPECT_EQ(Entries(Copy({a}, *m_pxSource, &converter)), "| A/0<S Unknown/1<A end");
}

TEST_F(ClipTest, UndeclaredReferenceTellsTheUserAndFollows) {
    HUBScopedMessageHandler messages;
    MCObject* a = Node(m_pxSource, "A");
    Ref(a, ClipNode::c_sUndeclared, Node(m_pxSource, "B"));
    SetLong(a, ClipNode::c_sCount, 3);  // undeclared too, but no reference: nobody is told
    EXPECT_EQ(Entries(Copy({a}, *m_pxSource)), "| A/0<S B/1<A end");
    ASSERT_EQ(messages.GetMessages().size(), 1u);
    EXPECT_EQ(messages.GetMessages()[0].m_lMessageId, MCCodes::msgUndeclaredClip);
}

TEST_F(ClipTest, InheritedReferencesTravelAsOwnValuesUnlessTheParentComesAlong) {
    // C inherits Follow from P along Parent; P's Follow leads to X.
    MCObject* p = Node(m_pxSource, "P");
    MCObject* c = Make(m_pxSource, ClipHeir::c_sType);
    Name(c, "C");
    Ref(p, ClipNode::c_sFollow, Node(m_pxSource, "X"));
    Ref(c, ClipNode::c_sParent, p);
    const struct {
        std::vector<MCObject*> selected;
        const char* entries;
        const char* pasted;
    } cases[] = {
        {{c}, "| C/0<S X/1<C end", "T(C{11=X}(X))"},
        {{p, c}, "| P/0<S C/0<S X/1<P end", "T(P{11=X}(X) C{52=P})"},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.entries);
        const std::string bytes = Copy(k.selected, *m_pxSource);
        EXPECT_EQ(Entries(bytes), k.entries);
        Paste(bytes, {m_pxTarget}, *m_pxTarget);
        EXPECT_EQ(Tree(m_pxTarget), k.pasted);
        while (MCObject* pasted = m_pxTarget->GetFirstOwnee())
            pasted->Expunge(true);
    }
}

TEST_F(ClipTest, BufferBytesArePinned) {
    MCObject* a = Node(m_pxSource, "A");
    SetLong(a, ClipNode::c_sCount, 5, MCPropertyAccessor::accessAdd, false);
    std::string bytes = Copy({a}, *m_pxSource);
    // The source's address token is the run's own; everything else is fixed.
    ASSERT_GT(bytes.size(), 9u);
    bytes.replace(5, 4, 4, '\xAA');
    auto hex = [](const std::string& raw) {
        std::string out;
        for (unsigned char c : raw)
            out += std::string(1, "0123456789abcdef"[c >> 4]) + "0123456789abcdef"[c & 15];
        return out;
    };
    auto le32 = [&](long value) {
        std::string raw;
        for (int i = 0; i < 4; ++i)
            raw += static_cast<char>((value >> (8 * i)) & 0xFF);
        return hex(raw);
    };
    const std::string source = le32(m_pxSource->GetId()), id = le32(a->GetId());
    EXPECT_EQ(hex(bytes), "20" + source + "aaaaaaaa" +  // head: source id, address token
                              "11" + "15" +             // global section, no user properties
                              "24" +                    // level mark
                              "21" + "0000" + id + "00" + "0100000041" +    // entry: level, id, flag, name
                              "791e" +                                      // object type 7801
                              "02" + "791e" + id + source + "0000" +        // record head: owner S, no flags
                              "01" + "8400" + "0000" + id +                 // Id
                              "01" + "9300" + "0001" + "0100000041" +       // Name, itemFlag100
                              "01" + "8a1e" + "0000" + "05000000" + "12" +  // Count 5, record end
                              "25");
}

TEST_F(ClipTest, PostCopyRulesSeeEachEntryInBufferOrderAndChangeNoByte) {
    MCObject* a = Node(m_pxSource, "A");
    MCObject* b = Node(a, "B");
    Node(b, "b1");
    Ref(Node(a, "C"), ClipNode::c_sDepend, b);
    // X is reached by reference before the selection names it, so its owner changes after its record
    // was first written.
    MCObject* x = Node(m_pxSource, "X");
    Ref(a, ClipNode::c_sFollow, x);
    // Without any PostCopy rule the records are written while the closure walks; with one, each after
    // its rule has run. A host must not be able to tell the two apart.
    const std::string quiet = Copy({a, x}, *m_pxSource);
    static std::string seen;
    seen.clear();
    struct Rule : MCObjectSem {
        result Fire(mode nMode, MCObject* object, MCObjectSemContext*) override {
            if (nMode == PostCopy)
                seen += NameOf(object) + " ";
            return resultContinue;
        }
        unsigned long GetInterests() const override { return PostCopy; }
    } rule;
    AddRule(ClipNode::c_sType, rule);
    const std::string watched = Copy({a, x}, *m_pxSource);
    EXPECT_EQ(seen, "A X B C b1 ");
    EXPECT_EQ(Entries(watched), "| A/0<S X/0<S B/1<A C/1<A b1/2<B end");
    EXPECT_EQ(watched, quiet);
}

TEST_F(ClipTest, PasteRebindsInnerReferencesPerTargetAndClearsOuterOnes) {
    MCObject* a = Node(m_pxSource, "A");
    MCObject* b = Node(a, "B");
    MCObject* c = Node(a, "C");
    MCObject* out = Node(m_pxSource, "Out");
    Ref(b, ClipNode::c_sDepend, c);
    Ref(c, ClipNode::c_sList, b);
    Ref(c, ClipNode::c_sPlain, out);
    const std::string bytes = Copy({a}, *m_pxSource);

    MCObject* t1 = Node(m_pxTarget, "T1");
    MCObject* t2 = Node(m_pxTarget, "T2");
    const std::vector<long> ids = Paste(bytes, {t1, t2}, *m_pxTarget);
    const std::string copy = "A(B{12=C} C{16=B})";  // Out is not in the buffer: cleared
    EXPECT_EQ(Tree(m_pxTarget), "T(T1(" + copy + ") T2(" + copy + "))");
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(MCObject::ResolveId(ids[0])->GetOwner(0, MCItem::rttiDerived), t1);
    EXPECT_EQ(MCObject::ResolveId(ids[1])->GetOwner(0, MCItem::rttiDerived), t2);
    EXPECT_NE(ids[0], a->GetId());
    // The source is left as it was.
    EXPECT_EQ(Tree(a), "A(B{12=C} C{16=B 17=^Out})");
}

TEST_F(ClipTest, ARecordWithoutAPlaceIsDiscardedWithWhatItOwns) {
    // D is purged (it depends on an object left out), so B1, which no target may own, has no owner in
    // the buffer and is discarded; F, on B1's level, is pasted next. B2 must not follow B1 into the
    // model it was copied from, nor land anywhere else.
    MCObject* a = Node(m_pxSource, "A");
    MCObject* d = Node(a, "D");
    Ref(d, ClipNode::c_sDepend, Node(m_pxSource, "Out"));
    MCObject* b1 = MakeNode(d);
    Name(b1, "B1");
    Name(MakeNode(b1), "B2");
    Node(Node(a, "E"), "F");
    const std::string source = Tree(m_pxSource);
    const std::string bytes = Copy({a}, *m_pxSource);
    EXPECT_EQ(Entries(bytes), "| A/0<S E/1<A B1/2<D F/2<E B2/3<B1 end");
    Paste(bytes, {m_pxTarget}, *m_pxTarget);
    EXPECT_EQ(Tree(m_pxTarget), "T(A(E(F)))");
    EXPECT_EQ(Tree(m_pxSource), source);
}

TEST_F(ClipTest, PostPasteRunsAfterEveryReferenceIsBoundAndAnnouncesOnlyTheTop) {
    MCObject* a = Node(m_pxSource, "A");
    MCObject* b = Node(a, "B");
    Ref(b, ClipNode::c_sDepend, Node(a, "C"));
    const std::string bytes = Copy({a}, *m_pxSource);

    static std::string seen;
    seen.clear();
    struct Rule : MCObjectSem {
        result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
            if (nMode != PostPaste)
                return resultContinue;
            MCSRefRawAccessor ref;
            const bool bound = object->GetProperty(ClipNode::c_sDepend, ref) && ref.GetValue();
            seen += NameOf(object) + ":" +
                    std::to_string(static_cast<MCPasteObjectContext*>(context)->GetLevel()) +
                    (bound ? "+" : "") + " ";
            return resultContinue;
        }
        unsigned long GetInterests() const override { return PostPaste; }
    } rule;
    AddRule(ClipNode::c_sType, rule);
    m_pxTarget->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    Paste(bytes, {}, *m_pxTarget);
    EXPECT_EQ(seen, "");  // no target in the list: nothing behind the level mark is read
    const std::vector<long> ids = Paste(bytes, {m_pxTarget}, *m_pxTarget);
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_EQ(seen, "A:0 B:1+ C:1 ");
    EXPECT_EQ(m_xLog.Take(), "ObjectCreated(" + std::to_string(ids[0]) + ")");
    m_pxTarget->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
}

TEST_F(ClipTest, ConverterMergesASecondPasteIntoTheFirstOnesObjects) {
    MCObject* a = Node(m_pxSource, "A");
    SetLong(a, ClipNode::c_sCount, 1);
    Ref(a, ClipNode::c_sList, Node(a, "B"));
    const std::string bytes = Copy({a}, *m_pxSource);
    Converter converter;
    const std::vector<long> first = Paste(bytes, {m_pxTarget}, *m_pxTarget, &converter);
    ASSERT_EQ(first.size(), 1u);
    MCObject* pasted = MCObject::ResolveId(first[0]);
    SetLong(pasted, ClipNode::c_sCount, 9);
    Ref(pasted, ClipNode::c_sFollow, m_pxTarget);  // not in the buffer: nulled by the merge
    MCObject* untouched = Node(m_pxTarget, "Other");
    SetLong(untouched, ClipNode::c_sCount, 7);

    const std::vector<long> second = Paste(bytes, {m_pxTarget}, *m_pxTarget, &converter);
    EXPECT_EQ(Tree(m_pxTarget), "T(A{16=B}(B) Other)");
    EXPECT_EQ(GetLong(pasted, ClipNode::c_sCount), "1");
    EXPECT_EQ(GetLong(untouched, ClipNode::c_sCount), "7");
    EXPECT_EQ(pasted->GetId(), first[0]);
    EXPECT_EQ(second.size(), 2u);  // both objects merged, none made
}

TEST_F(ClipTest, DamagedBuffersStopThePasteAndKeepOnlyWholeObjects) {
    MCObject* a = Node(m_pxSource, "A");
    MCObject* b = Node(a, "B");
    Ref(b, ClipNode::c_sDepend, Node(a, "C"));
    const std::string good = Copy({a}, *m_pxSource);
    // Head (9 bytes), an empty global section (2), the level mark.
    const size_t mark = 11;
    ASSERT_EQ(good[mark], MCStream::tokenClipLevel);
    struct Case {
        const char* name;
        std::string bytes;
        const char* tree;
        int pastes = 1;
    };
    std::string noMark = good, foreign = good, shared = good, byName = good;
    noMark.erase(mark, 1);
    foreign[mark + 1] = MCStream::tokenClipEntry1;
    shared[mark + 1] = MCStream::tokenClipEntry2;
    byName[mark + 8] = 1;  // the entry's flag: match by name
    std::string sharedByName = byName;
    sharedByName[mark + 1] = MCStream::tokenClipEntry2;
    const Case cases[] = {
        {"empty", "", "T"},
        {"no head token", good.substr(1), "T"},
        {"without a level mark all is prelude, placed once", noMark, "T(A(B{12=C} C))"},
        {"0x22 is read nowhere", foreign, "T"},
        {"0x23 only before the mark", shared, "T"},
        {"cut inside the last record", good.substr(0, good.size() - 3), "T(A(B))"},
        {"cut before the end token", good.substr(0, good.size() - 1), "T(A(B{12=C} C))"},
        {"by name, nothing to match", byName, "T(A(B{12=C} C))"},
        {"by name, the second lands in the first", byName, "T(A(B{12=C} C B{12=C} C))", 2},
        {"by name before the mark", sharedByName, "T"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (int i = 0; i < c.pastes; ++i)
            Paste(c.bytes, {m_pxTarget}, *m_pxTarget);
        EXPECT_EQ(Tree(m_pxTarget), c.tree);
        while (MCObject* pasted = m_pxTarget->GetFirstOwnee())
            pasted->Expunge(true);
    }
}

TEST_F(ClipTest, UserDefinedPropertiesTravelWithTheBufferIntoTheTargetModel) {
    const short colour = R::RegisterUDP("ClipColour", MCCodes::pInteger, m_pxSource, true);
    ASSERT_LT(colour, 0);
    MCObject* a = Node(m_pxSource, "A");
    SetLong(a, colour, 12);
    const std::string bytes = Copy({a}, *m_pxSource);
    ASSERT_FALSE(R::IsRegistered(colour, m_pxTarget));
    const std::vector<long> ids = Paste(bytes, {m_pxTarget}, *m_pxTarget);
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_TRUE(R::IsRegistered(colour, m_pxTarget)) << "the target's model now holds the property";
    EXPECT_EQ(GetLong(MCObject::ResolveId(ids[0]), colour), "12");
}

TEST_F(ClipTest, CopyToAnswersWhetherAnyIdResulted) {
    MCObject* a = Node(m_pxSource, "A");
    ZVTSList<MCObject*> selection, targets, none;
    selection.Append(a);
    targets.Append(m_pxTarget);
    ZVTOrderedVectorT<long> ids;
    EXPECT_TRUE(MCClip::CopyTo(selection, *m_pxSource, targets, *m_pxTarget, nullptr, &ids));
    EXPECT_EQ(ids.Length(), 1u);
    EXPECT_FALSE(MCClip::CopyTo(selection, *m_pxSource, none, *m_pxTarget, nullptr, nullptr));
    MCObject* rootless = Make(nullptr);
    selection.Clear();
    EXPECT_THROW(MCClip::CopyTo(selection, *rootless, targets, *m_pxTarget, nullptr, nullptr), EXUnexpected);
}

TEST_F(ClipTest, DeepChainsCostNoCallDepth) {
    MCObject* a = Node(m_pxSource, "A");
    MCObject* previous = a;
    for (int i = 0; i < 20000; ++i) {
        MCObject* next = Node(m_pxSource, "n");
        Ref(previous, ClipNode::c_sFollow, next);
        previous = next;
    }
    std::string bytes;
    ASSERT_TRUE(RunOnStack(256 * 1024, [&] { bytes = Copy({a}, *m_pxSource); }));
    EXPECT_GT(bytes.size(), 20000u * 20);
}

}  // namespace
