// Covers saving and restoring trees through the controller: every result, the exceptions, files that end
// early or carry an end mark, an unknown token, user-defined properties stored under other codes, the
// order of resolving and firing, and damaged saves of random trees.

#include <random>
#include <tuple>

#include "support/PersTestSupport.h"

namespace {

/// A file written field by field.
struct Bytes {
    std::stringstream medium;
    MCStream stream{medium, ZVTStream::binary};

    explicit Bytes(MCPersHeader header = PersLimits()) { header.SaveTo(stream); }
    Bytes& Token(int token) {
        stream << static_cast<char>(token);
        return *this;
    }
    /// An object record and its end.
    Bytes& Object(short type, long id, long owner, unsigned short flags = 0, long udp = 0, long value = 0) {
        stream << static_cast<char>(MCStream::tokenObject) << type << id << owner << flags;
        if (udp)  // an Integer property
            stream << static_cast<char>(MCStream::tokenProperty) << static_cast<short>(udp)
                   << static_cast<unsigned short>(0) << value;
        return Token(MCStream::tokenObjectEnd);
    }
    /// A global section that declares the Integer UDP `name` under `code`.
    Bytes& Globals(short code, const char* name) {
        Token(MCStream::tokenGlobals).Token(MCStream::tokenProperty);
        stream << code << ZVTString(name) << static_cast<short>(MCCodes::pInteger)
               << static_cast<unsigned short>(1) << 0L;
        return Token(MCStream::tokenGlobalsEnd);
    }
    std::string Str() const { return medium.str(); }
};

using C = MCPersController;
template <class T>
using Raw = MCSPropertyRawAccessorT<T>;
const short c_sNode = TestNode::c_sType;
const int c_nUnknownToken = 0x33;  // no token of the format
const short c_sNoFactory = 4321;   // a type nobody registered

TEST_F(PersTest, RefusedHeadsBadTreesAndUnwritableHeadsEachGiveTheirResult) {
    const std::pair<MCPersHeader, C::result> cases[] = {
        {MCPersHeader(5, 0, "Acme", "Tool", ""), C::resultNewerMajor},
        {MCPersHeader(4, 3, "Acme", "Tool", ""), C::resultNewerMinor},
        {MCPersHeader(4, 2, "Other", "Tool", ""), C::resultOtherCompany},
        {MCPersHeader(4, 2, "Acme", "Other", ""), C::resultOtherProduct},
    };
    for (const auto& [stored, expected] : cases) {
        const PersRestored r = Restore(Bytes(stored).Object(c_sNode, 1, 0).Str());
        EXPECT_EQ(std::to_string(r.result) + " made " + std::to_string(r.created.size()),
                  std::to_string(expected) + " made 0");
    }
    EXPECT_EQ(Restore("MdlCorX" + std::string(40, '\0')).result, C::resultBadPrefix);
    // A head that ends inside the product code is a stream failure, not a refusal.
    EXPECT_THROW(Restore(Bytes().Str().substr(0, 20)), EXUnexpected);

    // Saving: a head too wide to write, no persistence root, no object at all; a null object reaching a
    // visitor either way is a bad tree.
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    MCPersController controller;
    MCPersHeader tooWide(1L << 40, 0, "Acme", "Tool", ""), header = PersLimits();
    EXPECT_EQ(controller.SaveTo(stream, Make(nullptr, PersRoot::c_sType), tooWide), C::resultHeadNotWritten);
    for (MCObject* object : {Make(), static_cast<MCObject*>(nullptr)}) {
        Bytes fresh;
        EXPECT_THROW(controller.SaveTo(fresh.stream, object, header), EXUnexpected);
    }
    EXPECT_THROW(MCPersSaveVisitor(stream).Visit(nullptr), MCPersExBadTree);
    EXPECT_THROW(MCPersRestoreVisitor(stream).Visit(nullptr), MCPersExBadTree);
}

TEST_F(PersTest, UnknownTopLevelTokenExpungesTheTreeAndItsUserDefinedPropertiesAndLeavesTheOutputAlone) {
    // The host never sees the dropped root; only its address tells whether the registry still counts its
    // property, and a later root at that address would otherwise hold the property and save it.
    struct FirstMade : MCCreationHook {
        MCObject* first = nullptr;
        void ItemCreated(MCObject* object) override { first = first ? first : object; }
    } hook;
    const short code = MCFactoryRegistry::RegisterUDP("PersDropped", MCCodes::pInteger, nullptr, true);
    ASSERT_LT(code, 0);
    std::stringstream medium(Bytes()
                                 .Globals(code, "PersDropped")
                                 .Object(PersRoot::c_sType, 10, 0, 0, code, 31)
                                 .Object(c_sNode, 11, 10)
                                 .Object(c_sNode, 13, 99)  // no such owner: outside the tree
                                 .Token(c_nUnknownToken)
                                 .Object(c_sNode, 12, 0)
                                 .Str());
    MCStream stream(medium, ZVTStream::binary);
    MCPersHeader header = PersLimits();
    MCPersController controller;
    MCObject* out = reinterpret_cast<MCObject*>(&medium);
    MCFactoryRegistry::HookCreateItem(hook, true);
    EXPECT_EQ(controller.RestoreFrom(stream, out, header), C::resultUnknownToken);
    MCFactoryRegistry::HookCreateItem(hook, false);
    EXPECT_EQ(out, reinterpret_cast<MCObject*>(&medium));
    ASSERT_NE(hook.first, nullptr);
    EXPECT_FALSE(MCFactoryRegistry::IsRegistered(code, hook.first));
    // Only the ownerless object outlives the root, and only it is left for the host to dispose of.
    ASSERT_EQ(controller.GetCreatedObjects().Entries(), 1u);
    EXPECT_EQ(TestNode::c_nAlive, m_nAliveAtStart + 1);
    controller.GetCreatedObjects().At(0)->Expunge(true);

    // A failing factory throws with the type and keeps what was made, and so does a creation hook that
    // takes a restored object back: its record cannot be skipped. The type thrown, 0 for none.
    const auto failedType = [this](short third) -> short {
        try {
            Restore(Bytes().Object(c_sNode, 10, 0).Object(c_sNode, 11, 10).Object(third, 12, 10).Str());
        } catch (const MCPersExObjectCreation& e) {
            return e.GetObjectType();
        }
        return 0;
    };
    EXPECT_EQ(failedType(c_sNoFactory), c_sNoFactory);
    struct TakesThird : MCCreationHook {
        int made = 0;
        void ItemCreated(MCObject* object) override {
            if (++made == 3)
                object->Expunge(true);
        }
    } taker;
    MCFactoryRegistry::HookCreateItem(taker, true);
    EXPECT_EQ(failedType(c_sNode), c_sNode);
    MCFactoryRegistry::HookCreateItem(taker, false);
    ASSERT_EQ(m_xRestored.size(), 2u);
    EXPECT_EQ(m_xRestored[0]->GetOwneeCount() * 10 + m_xRestored[1]->GetOwneeCount(), 11);
}

TEST_F(PersTest, FileWithoutObjectsGivesNullRootEndMarkStopsReadingAndCodesAreThisProcesss) {
    Bytes headOnly;
    MCEnvironment::GetInstance()->SaveGlobals(headOnly.stream, Make(nullptr, PersRoot::c_sType));
    PersRestored r = Restore(headOnly.Str());
    EXPECT_TRUE(r.result == C::resultOk && r.root == nullptr);
    // Nothing after the end mark is read, not even a token that would be refused. A user-defined property
    // is read under the code this process gave its name, not the one stored.
    const short current = MCFactoryRegistry::RegisterUDP("PersColour", MCCodes::pInteger, nullptr, true);
    const short stored = static_cast<short>(current - 40);
    const unsigned short kept = 0x0100;  // no object flag of the library's: the host's own, and stored
    const unsigned short expunge = MCItem::itemTreeExpunge | MCItem::itemExpunging;
    r = Restore(Bytes()
                    .Globals(stored, "PersColour")
                    .Object(PersRoot::c_sType, 10, 0, kept | expunge, stored, 31)
                    .Token(-1)
                    .Token(c_nUnknownToken)
                    .Object(c_sNode, 11, 0)
                    .Str());
    ASSERT_TRUE(r.result == C::resultOk && r.created.size() == 1u);
    // Expunge flags are not taken from a file.
    EXPECT_EQ(std::to_string(r.root->GetFlags()) + " " + GetLong(r.root, current),
              std::to_string(kept) + " 31");
}

// Rules fire once every reference is resolved, and no creation rule runs. The property rules are looked
// up only for a type that has one, asked after its object rules: one that an object rule registers fires
// for that very object. TestNode, since no other test here gives it a property rule.
TEST_F(PersTest, RulesFireOnceReferencesAreResolvedAndOneRegisteredOnTheWayFires) {
    MCObject* model = Make(nullptr, PersRoot::c_sType);
    MCObject* target = Make(model, Shape::c_sType);
    Link(Make(model, Shape::c_sType), MCCodes::pReference, target);  // saved, and so made, before its target
    SetLong(Make(model, c_sNode), MCCodes::pInteger, 7);
    const std::string bytes = Save(model);
    PropertyRule resolved("prop", MCPropertySemantic::PostCalculateData);
    resolved.m_xAct = [](auto, MCObject* object, auto, auto) {
        MCSRefRawAccessor ref;
        const MCObject* seen = object->GetProperty(MCCodes::pReference, ref) ? ref.GetValue() : nullptr;
        const MCObject* owner = object->GetOwner(0, MCItem::rttiDerived);
        const bool bound = seen && seen != object && seen->GetOwner(0, MCItem::rttiDerived) == owner;
        Record(bound ? "bound" : "unbound", 0);
        return MCPropertySemantic::resultContinue;
    };
    AddRule(Shape::c_sType, MCCodes::pReference, resolved);
    PropertyRule late("late", MCPropertySemantic::PostCalculateData);
    struct Registering : ObjectRule {
        using ObjectRule::ObjectRule;
        result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
            const result answer = ObjectRule::Fire(nMode, object, context);
            if ((nMode & MCObjectSem::CalculateData) && m_pxLate)
                RuleTest::AddRule(c_sNode, MCCodes::pInteger, *std::exchange(m_pxLate, nullptr));
            return answer;
        }
        PropertyRule* m_pxLate = nullptr;
    } registering{"reg", MCObjectSem::PostCreation | MCObjectSem::CalculateData};
    registering.m_pxLate = &late;
    AddRule(c_sNode, registering);
    TakeLog();
    ASSERT_EQ(Restore(bytes).result, C::resultOk);
    EXPECT_EQ(TakeLog(), "reg:4 late:10 prop:10 bound:0");
}

// A rule may expunge restored objects, its own or one not yet fired: none is fired on after it went, and a
// root that went comes back null.
TEST_F(PersTest, NoRuleFiresOnARestoredObjectARuleExpunged) {
    MCObject* model = Named("M", nullptr, PersRoot::c_sType);
    for (const char* name : {"A", "B"})
        SetLong(Named(name, model, Shape::c_sType), Shape::c_sWidth, 1);
    const std::string bytes = Save(model);
    // The object named `victim` in the restored tree of `object`: an ownee of the root, or the root.
    static const auto find = [](MCObject* object, const std::string& victim) {
        while (MCObject* owner = object->GetOwner(0, MCItem::rttiDerived))
            object = owner;
        for (MCObject* ownee : mc::Ownees(object))
            object = NameOf(ownee) == victim ? ownee : object;
        return object;
    };
    static std::string log, on, victim;
    struct Expunging : MCObjectSem {
        result Fire(mode nMode, MCObject* object, MCObjectSemContext*) override {
            if (nMode != CalculateData)  // the victims' ends come here too
                return resultContinue;
            log += NameOf(object) + " ";
            if (NameOf(object) == on)
                find(object, victim)->Expunge(true);
            return resultContinue;
        }
        unsigned long GetInterests() const override { return CalculateData; }
    } objectRule;
    PropertyRule propertyRule("", MCPropertySemantic::PostCalculateData);
    propertyRule.m_xAct = [](auto, MCObject* object, MCProperty* property, auto) {
        log += NameOf(object) + "." + std::to_string(property->GetType()) + " ";
        if (on != "." + NameOf(object))
            return MCPropertySemantic::resultContinue;
        object->Expunge(true);
        return MCPropertySemantic::resultObjectDestroyed;
    };
    for (short type : {PersRoot::c_sType, Shape::c_sType})
        AddRule(type, objectRule);
    for (short code : {short{MCCodes::pName}, Shape::c_sWidth})
        AddRule(Shape::c_sType, code, propertyRule);

    // The object whose object rule expunges the victim (".X": X's first property rule), the victim, and
    // what fired with whether a root came back.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"", "", "M B B.147 B.7711 A A.147 A.7711 root"},
        {"B", "A", "M B B.147 B.7711 root"},
        {"B", "B", "M B A A.147 A.7711 root"},
        {".B", "", "M B B.147 A A.147 A.7711 root"},
        {"B", "M", "M B null"},
    };
    for (const auto& [at, doomed, expected] : cases) {
        SCOPED_TRACE(std::string(at) + " takes " + doomed);
        on = at;
        victim = doomed;
        log.clear();
        const PersRestored restored = Restore(bytes);
        EXPECT_EQ(restored.result, C::resultOk);
        EXPECT_EQ(log + (restored.root ? "root" : "null"), expected);
    }
}

// Damaged saves of random trees end in a result or one of the documented exceptions; the sanitizer build
// checks the rest.
TEST_F(PersTest, DamagedFilesNeverCrash) {
    for (unsigned seed : {1u, 7u, 42u, 2024u, 99991u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        // Thirty nodes under a root, each owned by a random earlier one and given each kind of value with a
        // chance of one in three; stored longs are 32 bits wide.
        MCObject* root = Make(nullptr, PersRoot::c_sType);
        std::vector<MCObject*> nodes{root};
        for (int i = 0; i < 30; ++i)
            nodes.push_back(Make(nodes[random() % nodes.size()]));
        auto chance = [&] { return random() % 3 == 0; };
        auto any = [&] { return nodes[random() % nodes.size()]; };
        for (MCObject* node : nodes) {
            auto set = [&](short type, MCPropertyAccessor&& accessor) {
                EXPECT_TRUE(node->SetProperty(type, accessor, MCPropertyAccessor::accessAdd));
            };
            if (chance())
                set(MCCodes::pInteger, Raw<long>(static_cast<long>(random() % 2000000000u) - 1000000000L));
            if (chance())
                set(MCCodes::pDouble, Raw<double>(std::uniform_real_distribution<double>(-1e9, 1e9)(random)));
            if (chance())
                set(MCCodes::pString, Raw<ZVTString>(std::string(random() % 20, 'a' + random() % 26)));
            if (chance()) {
                ZVTSList<long> values;
                for (unsigned i = random() % 5; i > 0; --i)
                    values.Append(static_cast<long>(random() % 1000));
                set(MCCodes::pIntegerList, MCVPropertyRawAccessorT<long>(values));
            }
            if (chance())
                set(MCCodes::pReference, MCSRefRawAccessor(any()));
            if (chance()) {
                ZVTSList<MCObject*> targets;
                for (unsigned i = 1 + random() % 4; i > 0; --i)
                    targets.Append(any());
                set(MCCodes::pReferenceList, MCVRefRawAccessor(&targets));
            }
        }
        const std::string bytes = Save(root);
        const size_t head = 40;  // the head is checked on its own
        for (int round = 0; round < 200; ++round) {
            std::string damaged = bytes;
            for (int flips = 1 + random() % 3; flips > 0; --flips)
                damaged[head + random() % (damaged.size() - head)] = static_cast<char>(random());
            try {
                Restore(damaged);
            } catch (const MCPersExObjectCreation&) {
            } catch (const EXBase&) {
            }
        }
    }
}

}  // namespace
