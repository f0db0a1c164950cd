// Covers saving and restoring trees through the controller: every result, the exceptions, files that end
// early or carry an end mark, id remapping, the order of resolving and firing (with a property rule
// registered during the restore), user-defined properties read under other codes, stored flags.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ModelCore/ZVFWMC/MCCodes.h"
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
    Bytes& Object(short type, long id, long owner, unsigned short flags = 0) {
        stream << static_cast<char>(MCStream::tokenObject) << type << id << owner << flags;
        return *this;
    }
    Bytes& Integer(short type, long value) {
        stream << static_cast<char>(MCStream::tokenProperty) << type << static_cast<unsigned short>(0)
               << value;
        return *this;
    }
    /// A global section that declares the Integer UDP `name` under `code`.
    Bytes& Globals(short code, const char* name) {
        Token(MCStream::tokenGlobals).Token(MCStream::tokenProperty);
        stream << code << ZVTString(name) << static_cast<short>(MCCodes::pInteger)
               << static_cast<unsigned short>(1) << 0L;
        return Token(MCStream::tokenGlobalsEnd);
    }
    Bytes& End() { return Token(MCStream::tokenObjectEnd); }
    std::string Str() const { return medium.str(); }
};

long IntegerOf(const MCObject* object, short type) {
    MCSPropertyRawAccessorT<long> accessor;
    return object->GetProperty(type, accessor) ? accessor.GetValue() : -999;
}

MCObject* RefOf(const MCObject* object) {
    MCSRefRawAccessor accessor;
    return object->GetProperty(MCCodes::pReference, accessor) ? accessor.GetValue() : nullptr;
}

void SetRef(MCObject* from, MCObject* to) {
    MCSRefRawAccessor ref(to);
    ASSERT_TRUE(from->SetProperty(MCCodes::pReference, ref, MCPropertyAccessor::accessAdd));
}

using C = MCPersController;

TEST_F(PersTest, EachRefusedHeadMapsToItsResultAndCreatesNothing) {
    const struct {
        MCPersHeader stored;
        C::result expected;
    } cases[] = {
        {MCPersHeader(5, 0, "Acme", "Tool", ""), C::resultNewerMajor},
        {MCPersHeader(4, 3, "Acme", "Tool", ""), C::resultNewerMinor},
        {MCPersHeader(4, 2, "Other", "Tool", ""), C::resultOtherCompany},
        {MCPersHeader(4, 2, "Acme", "Other", ""), C::resultOtherProduct},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        PersRestored r = Restore(Bytes(c.stored).Object(TestNode::c_sType, 1, 0).Str());
        EXPECT_EQ(r.result, c.expected);
        EXPECT_TRUE(r.created.empty());
    }
    EXPECT_EQ(Restore("MdlCorX" + std::string(40, '\0')).result, C::resultBadPrefix);
    // A head that ends inside the product code is a stream failure, not a refusal.
    EXPECT_THROW(Restore(Bytes().Str().substr(0, 20)), EXUnexpected);
}

TEST_F(PersTest, SaveFailsOnAnUnwritableHeadAndWithoutAPersistenceRoot) {
    MCObject* root = Make(nullptr, PersRoot::c_sType);
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    MCPersController controller;
    MCPersHeader tooWide(1L << 40, 0, "Acme", "Tool", "");
    EXPECT_EQ(controller.SaveTo(stream, root, tooWide), C::resultHeadNotWritten);
    MCPersHeader header = PersLimits();
    for (MCObject* object : {Make(), static_cast<MCObject*>(nullptr)}) {
        std::stringstream fresh;
        MCStream freshStream(fresh, ZVTStream::binary);
        EXPECT_THROW(controller.SaveTo(freshStream, object, header), EXUnexpected);
    }
}

TEST_F(PersTest, UnknownTopLevelTokenExpungesTheTreeAndLeavesTheOutputAlone) {
    const short node = TestNode::c_sType;
    std::stringstream medium(Bytes()
                                 .Object(node, 10, 0)
                                 .End()
                                 .Object(node, 11, 10)
                                 .End()
                                 .Object(node, 13, 99)  // no such owner: outside the tree
                                 .End()
                                 .Token(0x33)
                                 .Object(node, 12, 0)
                                 .End()
                                 .Str());
    MCStream stream(medium, ZVTStream::binary);
    MCPersHeader header = PersLimits();
    MCPersController controller;
    MCObject* out = reinterpret_cast<MCObject*>(&medium);
    EXPECT_EQ(controller.RestoreFrom(stream, out, header), C::resultUnknownToken);
    EXPECT_EQ(out, reinterpret_cast<MCObject*>(&medium));
    // Only the ownerless object outlives the root, and only it is left for the host to dispose of.
    ASSERT_EQ(controller.GetCreatedObjects().Entries(), 1u);
    EXPECT_EQ(TestNode::c_nAlive, m_nAliveAtStart + 1);
    MCObject* survivor = controller.GetCreatedObjects().At(0);
    EXPECT_EQ(survivor->GetOwner(0, MCItem::rttiDerived), nullptr);
    survivor->Expunge(true);
}

TEST_F(PersTest, RootDroppedForAnUnknownTokenLeavesItsUserDefinedProperties) {
    // The host never sees the dropped root; only its address tells whether the registry still counts it,
    // and a later root at that address would otherwise hold the property and save it.
    struct FirstMade : MCCreationHook {
        MCObject* first = nullptr;
        void ItemCreated(MCObject* object) override { first = first ? first : object; }
    } hook;
    const short code = MCFactoryRegistry::RegisterUDP("PersDropped", MCCodes::pInteger, nullptr, true);
    ASSERT_LT(code, 0);
    const std::string bytes = Bytes()
                                  .Globals(code, "PersDropped")
                                  .Object(PersRoot::c_sType, 10, 0)
                                  .Integer(code, 31)
                                  .End()
                                  .Token(0x33)
                                  .Str();
    MCFactoryRegistry::HookCreateItem(hook, true);
    const PersRestored r = Restore(bytes);
    MCFactoryRegistry::HookCreateItem(hook, false);
    ASSERT_EQ(r.result, C::resultUnknownToken);
    ASSERT_NE(hook.first, nullptr);
    EXPECT_FALSE(MCFactoryRegistry::IsRegistered(code, hook.first));
}

TEST_F(PersTest, FailingFactoryThrowsWithTheTypeAndKeepsWhatWasMade) {
    const std::string bytes = Bytes()
                                  .Object(TestNode::c_sType, 10, 0)
                                  .End()
                                  .Object(TestNode::c_sType, 11, 10)
                                  .End()
                                  .Object(4321, 12, 10)
                                  .End()
                                  .Str();
    try {
        Restore(bytes);
        FAIL() << "no exception";
    } catch (const MCPersExObjectCreation& e) {
        EXPECT_EQ(e.GetObjectType(), 4321);
    }
    ASSERT_EQ(m_xRestored.size(), 1u);
    EXPECT_EQ(m_xRestored[0]->GetOwneeCount(), 1);
}

TEST_F(PersTest, NullObjectReachingAVisitorIsABadTree) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    MCPersSaveVisitor save(stream);
    MCPersRestoreVisitor restore(stream);
    EXPECT_THROW(save.Visit(nullptr), MCPersExBadTree);
    EXPECT_THROW(restore.Visit(nullptr), MCPersExBadTree);
    EXPECT_TRUE(medium.str().empty());
}

TEST_F(PersTest, FileWithoutObjectsGivesNullRootAndEndMarkStopsReading) {
    Bytes headOnly;
    MCEnvironment::GetInstance()->SaveGlobals(headOnly.stream, Make(nullptr, PersRoot::c_sType));
    PersRestored r = Restore(headOnly.Str());
    EXPECT_EQ(r.result, C::resultOk);
    EXPECT_EQ(r.root, nullptr);
    // Nothing after the end mark is read, not even a token that would be refused.
    r = Restore(Bytes()
                    .Object(TestNode::c_sType, 10, 0)
                    .End()
                    .Token(-1)
                    .Token(0x33)
                    .Object(TestNode::c_sType, 11, 0)
                    .Str());
    EXPECT_EQ(r.result, C::resultOk);
    EXPECT_EQ(r.created.size(), 1u);
}

TEST_F(PersTest, TruncatedFileAtAnyByteRestoresThePartReadWithoutFailing) {
    MCObject* model = Make(nullptr, PersRoot::c_sType);
    MCObject* a = Make(model, Shape::c_sType);
    SetLong(a, MCCodes::pInteger, 7);
    SetRef(a, Make(model, Shape::c_sType));
    const std::string full = Save(model);
    size_t previous = 0;
    for (size_t cut = Bytes().Str().size(); cut <= full.size(); ++cut) {
        SCOPED_TRACE(cut);
        PersRestored r = Restore(full.substr(0, cut));
        ASSERT_EQ(r.result, C::resultOk);
        EXPECT_EQ(r.root, r.created.empty() ? nullptr : r.created.front());
        EXPECT_GE(r.created.size(), previous);
        previous = r.created.size();
    }
    EXPECT_EQ(previous, 3u);
}

TEST_F(PersTest, RulesFireAfterEveryReferenceIsResolvedAndNoCreationRuleRuns) {
    MCObject* model = Make(nullptr, PersRoot::c_sType);
    MCObject* target = Make(model, Shape::c_sType);
    SetRef(Make(model, Shape::c_sType), target);  // the holder is saved, and so made, before its target
    ObjectRule objectRule("obj", MCObjectSem::PostCreation | MCObjectSem::CalculateData);
    AddRule(Shape::c_sType, objectRule);
    PropertyRule propertyRule("prop", MCPropertySemantic::PostCalculateData);
    propertyRule.m_xAct = [](MCPropertySemantic::mode, MCObject* object, MCProperty*,
                             MCPropertySemanticContext*) {
        MCObject* seen = RefOf(object);
        const bool resolved =
            seen && seen != object &&
            seen->GetOwner(0, MCItem::rttiDerived) == object->GetOwner(0, MCItem::rttiDerived);
        Record(resolved ? "resolved" : "unresolved", 0);
        return MCPropertySemantic::resultContinue;
    };
    AddRule(Shape::c_sType, MCCodes::pReference, propertyRule);
    const std::string bytes = Save(model);
    TakeLog();
    ASSERT_EQ(Restore(bytes).result, C::resultOk);
    EXPECT_EQ(TakeLog(), "obj:4 prop:10 resolved:0 obj:4");
}

// The property rules are looked up only for an object whose type has one, asked after its object rules:
// one that an object rule registers fires for that very object, as if it had been there from the start.
// TestNode, since no other test gives it a rule for this mode.
TEST_F(PersTest, APropertyRuleThatAnObjectRuleRegistersFiresForThatObject) {
    MCObject* model = Make(nullptr, PersRoot::c_sType);
    SetLong(Make(model, TestNode::c_sType), MCCodes::pInteger, 7);
    SetLong(Make(model, TestNode::c_sType), MCCodes::pInteger, 8);
    const std::string bytes = Save(model);
    struct Registering : ObjectRule {
        using ObjectRule::ObjectRule;
        result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
            if (m_pxLate) {
                MCFactoryContext registration;
                MCPropertySemanticRegistry::Register(TestNode::c_sType, &registration, MCCodes::pInteger,
                                                     m_pxLate, false, false);
                m_pxLate = nullptr;
            }
            return ObjectRule::Fire(nMode, object, context);
        }
        PropertyRule* m_pxLate = nullptr;
    };
    std::string traces[2];
    for (int late = 1; late >= 0; --late) {  // late first: a type's interests outlive its rules
        SCOPED_TRACE(late);
        PropertyRule propertyRule("prop", MCPropertySemantic::PostCalculateData);
        propertyRule.m_xAct = [](MCPropertySemantic::mode, MCObject* object, MCProperty*,
                                 MCPropertySemanticContext*) {
            Record(std::to_string(IntegerOf(object, MCCodes::pInteger)), 0);
            return MCPropertySemantic::resultContinue;
        };
        Registering objectRule("obj", MCObjectSem::CalculateData);
        AddRule(TestNode::c_sType, objectRule);
        if (late)
            objectRule.m_pxLate = &propertyRule;
        else
            AddRule(TestNode::c_sType, MCCodes::pInteger, propertyRule);
        TakeLog();
        ASSERT_EQ(Restore(bytes).result, C::resultOk);
        traces[late] = TakeLog();
    }
    EXPECT_EQ(traces[0], "obj:4 prop:10 8:0 obj:4 prop:10 7:0");
    EXPECT_EQ(traces[1], traces[0]);
}

TEST_F(PersTest, UserDefinedPropertiesAreReadUnderTheCodesOfThisProcess) {
    const short current = MCFactoryRegistry::RegisterUDP("PersColour", MCCodes::pInteger, nullptr, true);
    ASSERT_LT(current, 0);
    const short stored = static_cast<short>(current - 40);  // as another process numbered it
    PersRestored r = Restore(Bytes()
                                 .Globals(stored, "PersColour")
                                 .Object(PersRoot::c_sType, 10, 0)
                                 .Integer(stored, 31)
                                 .End()
                                 .Str());
    ASSERT_EQ(r.result, C::resultOk);
    ASSERT_NE(r.root, nullptr);
    EXPECT_EQ(IntegerOf(r.root, current), 31);
    EXPECT_TRUE(MCFactoryRegistry::IsRegistered(current, r.root));
    // Saved again, the property goes out under its current code and comes back the same.
    PersRestored again = Restore(Save(r.root));
    ASSERT_NE(again.root, nullptr);
    EXPECT_EQ(IntegerOf(again.root, current), 31);
}

TEST_F(PersTest, ExpungeFlagsAreNeitherStoredNorTakenFromAFile) {
    MCObject* model = Make(nullptr, PersRoot::c_sType);
    MCObject* child = Make(model, Shape::c_sType);
    const unsigned short kept = 0x0100;
    ASSERT_TRUE(child->SetFlag(kept | MCItem::itemTreeExpunge, true));
    const std::string bytes = Save(model);
    child->SetFlag(MCItem::itemTreeExpunge, false);
    PersRestored r = Restore(bytes);
    ASSERT_EQ(r.created.size(), 2u);
    EXPECT_EQ(r.created[1]->GetFlags(), child->GetFlags());
    r = Restore(Bytes().Object(TestNode::c_sType, 10, 0, 0xC000 | kept).End().Str());
    ASSERT_EQ(r.created.size(), 1u);
    EXPECT_EQ(r.root->GetFlags(), kept);
}

}  // namespace
