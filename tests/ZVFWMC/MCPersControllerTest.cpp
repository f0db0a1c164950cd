// Covers saving and restoring trees through the controller: every result, the exceptions, files that end
// early or carry an end mark, id remapping, the order of resolving and firing (with a property rule
// registered during the restore), user-defined properties read under other codes, stored flags.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

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

using C = MCPersController;

TEST_F(PersTest, RefusedHeadsBadTreesAndUnwritableHeadsEachGiveTheirResult) {
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

    // Saving: a head too wide to write, no persistence root, no object at all; a null object reaching a
    // visitor either way is a bad tree.
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    MCPersController controller;
    MCPersHeader tooWide(1L << 40, 0, "Acme", "Tool", ""), header = PersLimits();
    EXPECT_EQ(controller.SaveTo(stream, Make(nullptr, PersRoot::c_sType), tooWide), C::resultHeadNotWritten);
    for (MCObject* object : {Make(), static_cast<MCObject*>(nullptr)}) {
        std::stringstream fresh;
        MCStream freshStream(fresh, ZVTStream::binary);
        EXPECT_THROW(controller.SaveTo(freshStream, object, header), EXUnexpected);
    }
    std::stringstream untouched;
    MCStream visited(untouched, ZVTStream::binary);
    MCPersSaveVisitor save(visited);
    MCPersRestoreVisitor restore(visited);
    EXPECT_THROW(save.Visit(nullptr), MCPersExBadTree);
    EXPECT_THROW(restore.Visit(nullptr), MCPersExBadTree);
    EXPECT_TRUE(untouched.str().empty());
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
    const short node = TestNode::c_sType;
    std::stringstream medium(Bytes()
                                 .Globals(code, "PersDropped")
                                 .Object(PersRoot::c_sType, 10, 0)
                                 .Integer(code, 31)
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
    MCFactoryRegistry::HookCreateItem(hook, true);
    EXPECT_EQ(controller.RestoreFrom(stream, out, header), C::resultUnknownToken);
    MCFactoryRegistry::HookCreateItem(hook, false);
    EXPECT_EQ(out, reinterpret_cast<MCObject*>(&medium));
    ASSERT_NE(hook.first, nullptr);
    EXPECT_FALSE(MCFactoryRegistry::IsRegistered(code, hook.first));
    // Only the ownerless object outlives the root, and only it is left for the host to dispose of.
    ASSERT_EQ(controller.GetCreatedObjects().Entries(), 1u);
    EXPECT_EQ(TestNode::c_nAlive, m_nAliveAtStart + 1);
    MCObject* survivor = controller.GetCreatedObjects().At(0);
    EXPECT_EQ(survivor->GetOwner(0, MCItem::rttiDerived), nullptr);
    survivor->Expunge(true);

    // A failing factory throws with the type and keeps what was made.
    try {
        Restore(
            Bytes().Object(node, 10, 0).End().Object(node, 11, 10).End().Object(4321, 12, 10).End().Str());
        FAIL() << "no exception";
    } catch (const MCPersExObjectCreation& e) {
        EXPECT_EQ(e.GetObjectType(), 4321);
    }
    ASSERT_EQ(m_xRestored.size(), 1u);
    EXPECT_EQ(m_xRestored[0]->GetOwneeCount(), 1);
}

TEST_F(PersTest, FileWithoutObjectsGivesNullRootAndEndMarkStopsReading) {
    Bytes headOnly;
    MCEnvironment::GetInstance()->SaveGlobals(headOnly.stream, Make(nullptr, PersRoot::c_sType));
    PersRestored r = Restore(headOnly.Str());
    EXPECT_EQ(r.result, C::resultOk);
    EXPECT_EQ(r.root, nullptr);
    // Nothing after the end mark is read, not even a token that would be refused.
    const short node = TestNode::c_sType;
    r = Restore(Bytes().Object(node, 10, 0).End().Token(-1).Token(0x33).Object(node, 11, 0).Str());
    EXPECT_EQ(r.result, C::resultOk);
    EXPECT_EQ(r.created.size(), 1u);
}

TEST_F(PersTest, TruncatedFileAtAnyByteRestoresThePartReadWithoutFailing) {
    MCObject* model = Make(nullptr, PersRoot::c_sType);
    MCObject* a = Make(model, Shape::c_sType);
    SetLong(a, MCCodes::pInteger, 7);
    Link(a, MCCodes::pReference, Make(model, Shape::c_sType));
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
    Link(Make(model, Shape::c_sType), MCCodes::pReference,
         target);  // the holder is saved, and so made, before its target
    ObjectRule objectRule("obj", MCObjectSem::PostCreation | MCObjectSem::CalculateData);
    AddRule(Shape::c_sType, objectRule);
    PropertyRule propertyRule("prop", MCPropertySemantic::PostCalculateData);
    propertyRule.m_xAct = [](MCPropertySemantic::mode, MCObject* object, MCProperty*,
                             MCPropertySemanticContext*) {
        MCSRefRawAccessor ref;
        object->GetProperty(MCCodes::pReference, ref);
        MCObject* seen = ref.GetValue();
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
    static PropertyRule* s_pxLate = nullptr;
    std::string traces[2];
    for (int late = 1; late >= 0; --late) {  // late first: a type's interests outlive its rules
        SCOPED_TRACE(late);
        PropertyRule propertyRule("prop", MCPropertySemantic::PostCalculateData);
        propertyRule.m_xAct = [](MCPropertySemantic::mode, MCObject* object, MCProperty*,
                                 MCPropertySemanticContext*) {
            Record(GetLong(object, MCCodes::pInteger), 0);
            return MCPropertySemantic::resultContinue;
        };
        ObjectRule objectRule("obj", MCObjectSem::CalculateData);
        AddRule(TestNode::c_sType, objectRule);
        // The object rule's own firing is logged before this runs, so the registration stays silent.
        struct : ObjectRule {
            using ObjectRule::ObjectRule;
            result Fire(mode nMode, MCObject*, MCObjectSemContext*) override {
                if ((nMode & MCObjectSem::CalculateData) && s_pxLate)
                    RuleTest::AddRule(TestNode::c_sType, MCCodes::pInteger,
                                      *std::exchange(s_pxLate, nullptr));
                return resultContinue;
            }
        } registering{"reg", MCObjectSem::CalculateData};
        AddRule(TestNode::c_sType, registering);
        s_pxLate = late ? &propertyRule : nullptr;
        if (!late)
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
    EXPECT_TRUE(MCFactoryRegistry::IsRegistered(current, r.root));
    // Saved again, the property goes out under its current code and comes back the same.
    PersRestored again = Restore(Save(r.root));
    ASSERT_NE(again.root, nullptr);
    EXPECT_EQ(GetLong(r.root, current) + " " + GetLong(again.root, current), "31 31");
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
