// Property rules through the accessors of a host metamodel: calculated values, refused nulling, the
// object's end, refusals after the change and rules that throw, what registering and deregistering leave
// behind (also while a rule fires), and edits that only heirs hear.

#include <map>
#include <string>
#include <utility>

#include "support/RuleTestSupport.h"

using PS = MCPropertySemantic;
constexpr unsigned long c_nEdit = PS::PreEdit | PS::PostEdit;

class PropertySemanticsTest : public RuleTest {
protected:
    /// Sets `object`'s long of `type` to `value`; the rules fired.
    static std::string Edit(MCObject* object, long value, short type = Shape::c_sWidth) {
        SetLong(object, type, value);
        return TakeLog();
    }
};

TEST_F(PropertySemanticsTest, ReadsNullingAndTheObjectsEndTellTheRules) {
    MCObject* box = Make(nullptr, Box::c_sType);
    SetLong(box, Shape::c_sWidth, 6);
    // The area is calculated on every read; a rule for an absent property sees null.
    PropertyRule area("A", PS::CalculateValue), absent("R", PS::PreCalculateData);
    area.m_xAct = [](PS::mode, MCObject* object, MCProperty* property, MCPropertySemanticContext*) {
        const long width = std::stol(GetLong(object, Shape::c_sWidth));
        static_cast<MCSPropertyT<long>*>(property)->SetValue(width * width);
        return PS::resultContinue;
    };
    absent.m_pxLastProperty = reinterpret_cast<MCProperty*>(&absent);
    AddRule(Shape::c_sType, Shape::c_sArea, area);
    AddRule(Shape::c_sType, Shape::c_sLabel, absent);
    std::string seen = GetLong(box, Shape::c_sArea) + " ";
    SetLong(box, Shape::c_sWidth, 7);
    seen += GetLong(box, Shape::c_sArea) + " ";
    MCPropertySemanticRegistry::FireSemantics(PS::PreCalculateData, Shape::c_sLabel, box, nullptr, nullptr);
    EXPECT_EQ(seen + TakeLog() + (absent.m_pxLastProperty ? " set" : " null"), "36 49 A:20 A:20 R:8 null");

    // A refused nulling keeps the value. The end of the object is no nulling: the rules hear
    // ObjectPreDestruction and cannot refuse it.
    PropertyRule guard("G", PS::PreDestructon | PS::ObjectPreDestruction, PS::resultRefused);
    const std::map<const MCObject*, std::string> names{{box, "box"}};
    guard.m_pxNames = &names;
    AddRule(Box::c_sType, Shape::c_sWidth, guard);
    MCSPropertyAccessorT<long> accessor;
    seen = std::to_string(box->NullProperty(Shape::c_sWidth, accessor)) + " " + GetLong(box, Shape::c_sWidth);
    box->Expunge(true);
    EXPECT_EQ(seen + " " + TakeLog(), "0 7 G@box:4 G@box:80");
}

TEST_F(PropertySemanticsTest, ARefusalAfterTheChangeOrAThrowRefusesTheEdit) {
    // 'R': Shape's rule refuses after the change, which stays, unheard, and Box's rule is not told. 't': it
    // throws before the change; the host is told of a refusal, not of the throw, and no property is left.
    static char s_cHow;
    PropertyRule shape("S", c_nEdit), box("B", c_nEdit);
    shape.m_xAct = [](PS::mode m, MCObject*, MCProperty*, MCPropertySemanticContext*) {
        if (s_cHow == 't')
            throw EXInvalidIter();
        return s_cHow == 'R' && m == PS::PostEdit ? PS::resultRefused : PS::resultContinue;
    };
    AddRule(Shape::c_sType, Shape::c_sWidth, shape);
    AddRule(Box::c_sType, Shape::c_sWidth, box);
    for (const std::string expected : {"R 0 9 S:1 B:1 S:2", "t 0 - S:1"}) {
        s_cHow = expected[0];
        MCObject* object = Make(nullptr, Box::c_sType);
        object->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        const bool answer = SetLong(object, Shape::c_sWidth, 9);
        EXPECT_EQ(expected.substr(0, 2) + std::to_string(answer) + " " + GetLong(object, Shape::c_sWidth) +
                      " " + TakeLog() + m_xLog.Take(),
                  expected);
    }
}

TEST_F(PropertySemanticsTest, RegisteringAndDeregistering) {
    MCPropertySemanticRegistry* registry = MCPropertySemanticRegistry::GetInstance();
    MCObject* box = Make(nullptr, Box::c_sType);
    PropertyRule internal("I", PS::PreEdit), external("X", PS::PreEdit);
    AddRule(Box::c_sType, Shape::c_sWidth, internal);
    AddRule(Box::c_sType, Shape::c_sWidth, internal);
    registry->RegisterExternalSemantic(Box::c_sType, Shape::c_sWidth, &external, false);
    registry->RegisterExternalSemantic(Box::c_sType, Shape::c_sWidth, &external, false);
    std::string trace = Edit(box, 1);
    trace += Edit(box, 1) + "|";  // no change: no rule
    registry->Deregister(&external);
    registry->RegisterExternalSemantic(Box::c_sType, 0, &external, false);  // no property type: no rule
    EXPECT_FALSE(registry->IsRegistered(&external));
    trace += Edit(box, 2) + "|";
    registry->Deregister(Box::c_sType, Shape::c_sWidth);
    EXPECT_FALSE(registry->IsRegistered(Box::c_sType, Shape::c_sWidth));
    EXPECT_TRUE(registry->IsRegistered(Box::c_sType));
    EXPECT_EQ(trace + Edit(box, 3), "X:1 X:1 I:1|I:1|");
    AddRule(Crate::c_sType, Shape::c_sWidth, internal);
    registry->Deregister(Crate::c_sType);  // a leaf type: nothing derives from it
    registry->Deregister(Crate::c_sType);  // once it is gone, both forms are no-ops
    registry->Deregister(Crate::c_sType, Shape::c_sWidth);
    EXPECT_FALSE(registry->IsRegistered(Crate::c_sType));

    EXPECT_THROW(AddRule(MCGenericObject::c_sType, Shape::c_sWidth, internal), EXGenericObject);
    EXPECT_EQ(registry->GetModeName(PS::InheritedPostEdit), ZVTString("InheritedPostEdit"));
    EXPECT_EQ(registry->GetModeName(PS::InheritedPreEdit), ZVTString("Invalid mode"));
}

// A level taken out of the middle of a chain: the levels below it go on to the one above it, and none
// reaches the handler that was deleted.
TEST_F(PropertySemanticsTest, DeregisteringALevelKeepsTheLevelsAboveAndBelow) {
    MCPropertySemanticRegistry* registry = MCPropertySemanticRegistry::GetInstance();
    const std::pair<short, const char*> cases[] = {
        {0, "S:1 B:1 C:1"},
        {Shape::c_sType, "B:1 C:1"},
        {Box::c_sType, "S:1 C:1"},
    };
    for (const auto& [removed, expected] : cases) {
        SCOPED_TRACE(expected);
        for (short type : {Crate::c_sType, Box::c_sType, Shape::c_sType})
            registry->Deregister(type);  // each row links its levels afresh
        PropertyRule shape("S", PS::PreEdit), box("B", PS::PreEdit), crate("C", PS::PreEdit);
        AddRule(Shape::c_sType, Shape::c_sWidth, shape);
        AddRule(Box::c_sType, Shape::c_sWidth, box);
        AddRule(Crate::c_sType, Shape::c_sWidth, crate);
        MCObject* object = Make(nullptr, Crate::c_sType);  // links the levels
        Edit(object, 1);                                   // builds the chains that go through them
        registry->Deregister(removed);
        EXPECT_EQ(Edit(object, 2), expected);
    }
    // A level made again is no ancestor of the levels that outlived it: link them all afresh for the
    // tests that follow.
    for (short type : {Crate::c_sType, Box::c_sType, Shape::c_sType})
        registry->Deregister(type);
    Make(nullptr, Crate::c_sType);
}

TEST_F(PropertySemanticsTest, RulesRegisteredOrDeregisteredDuringFiringCountFromTheNextEdit) {
    MCObject* crate = Make(nullptr, Crate::c_sType);
    static PropertyRule* late = nullptr;
    PropertyRule lateRule("L", PS::PreEdit), first("F", PS::PreEdit);
    late = &lateRule;
    // The first edit adds a rule to Shape; the second takes Crate's handler away, the running rule's own, so
    // the third, without a handler to start from, hears no rule.
    first.m_xAct = [](PS::mode, MCObject*, MCProperty*, MCPropertySemanticContext*) {
        if (late)
            AddRule(Shape::c_sType, Shape::c_sWidth, *std::exchange(late, nullptr));
        else
            MCPropertySemanticRegistry::GetInstance()->Deregister(Crate::c_sType);
        return PS::resultContinue;
    };
    AddRule(Crate::c_sType, Shape::c_sWidth, first);
    std::string trace;
    for (long width : {1, 2, 3})
        trace += Edit(crate, width) + "|";
    EXPECT_EQ(trace, "F:1|L:1 F:1||");
}

TEST_F(PropertySemanticsTest, AnEditWithoutRulesOfItsOwnReachesTheHeirsAsAnyOther) {
    // The same edits twice: with no rule for them on the edited object's chain, so that only its heirs
    // react, then with a silent rule there that takes every edit the whole way. The property is one no
    // other rule names: a list keeps the interests of every rule it ever held.
    constexpr short c_sFresh = 87;
    struct Silent : PropertyRule {
        Silent() : PropertyRule("", c_nEdit) {}
        result Fire(mode, MCObject*, MCProperty*, MCPropertySemanticContext*) override {
            ++m_nFired;
            return resultContinue;
        }
        int m_nFired = 0;
    } silent;
    auto* source = static_cast<Box*>(Make(nullptr, Box::c_sType));
    auto* heir = static_cast<Box*>(Make(nullptr, Box::c_sType));
    MCObject* alone = Make(nullptr, Box::c_sType);
    MCObject* heirOfHeir = Make(nullptr, Crate::c_sType);
    source->AddHeir(heir);
    heir->AddHeir(heirOfHeir);
    PropertyRule inherited("inh", PS::InheritedPreEdit | PS::InheritedPostEdit);
    AddRule(Box::c_sType, c_sFresh, inherited);
    long value = 0;
    auto run = [&]() {
        std::string trace;
        for (auto answer : {PS::resultContinue, PS::resultRefused}) {
            inherited.m_eAnswer = answer;
            for (MCObject* object : {static_cast<MCObject*>(source), alone}) {
                trace += SetLong(object, c_sFresh, ++value) ? " set " : " refused ";
                trace += TakeLog() + " |";
            }
        }
        return trace;
    };
    const std::string heirsOnly = run();
    AddRule(Shape::c_sType, c_sFresh, silent);
    EXPECT_EQ(run(), heirsOnly);
    EXPECT_EQ(silent.m_nFired, 7);  // before and after each edit but the refused one
    EXPECT_EQ(heirsOnly, " set inh:10000 inh:10000 inh:20000 inh:20000 | set  | refused inh:10000 | set  |");

    // An inherited edit runs the inherited rules on the object itself, tells nobody and leaves its value
    // alone; a dying heir leaves its source's set.
    inherited.m_eAnswer = PS::resultContinue;
    heir->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    EXPECT_TRUE(SetLong(heir, c_sFresh, 9, MCPropertyAccessor::accessInherited));
    heirOfHeir->Expunge(true);
    EXPECT_EQ(TakeLog() + "|" + GetLong(heir, c_sFresh) + m_xLog.Take() + "|" +
                  std::to_string(heir->Heirs().GetCount()),
              "inh:10000 inh:10000 inh:20000 inh:20000|-|0");
}

TEST_F(PropertySemanticsTest, ChainsRulingFewOrManyPropertyTypesFireAlike) {
    // A chain ruling at most four property types (the id and the three here) is answered from a short
    // table, a longer one from its chains: the same edits, one rule registered late, fire alike both ways.
    constexpr short c_sFresh = 87;
    MCPropertySemanticRegistry* registry = MCPropertySemanticRegistry::GetInstance();
    for (short type : {Crate::c_sType, Box::c_sType, Shape::c_sType})
        registry->Deregister(type);  // lists outlive their rules: drop those earlier tests left
    long value = 0;
    auto run = [&]() {
        MCObject* crate = Make(nullptr, Crate::c_sType);
        PropertyRule shape("S", PS::PreEdit), external("X", PS::PostEdit), late("L", c_nEdit);
        AddRule(Shape::c_sType, Shape::c_sWidth, shape);
        registry->RegisterExternalSemantic(Box::c_sType, Shape::c_sArea, &external, false);
        std::string trace;
        for (bool withLate : {false, true}) {
            if (withLate)
                AddRule(Box::c_sType, c_sFresh, late);
            for (short type : {Shape::c_sWidth, Shape::c_sArea, c_sFresh})
                trace += Edit(crate, ++value, type) + ";";
        }
        return trace;
    };
    const std::string few = run();
    PropertyRule silent("-", c_nEdit);  // for types nobody edits
    for (short type : {Shape::c_sLabel, short{88}})
        AddRule(Shape::c_sType, type, silent);
    EXPECT_EQ(run(), few);
    EXPECT_EQ(few, "S:1;X:2;;S:1;X:2;L:1 L:2;");
}

// The heirs belong to the edited object: an heir's rule that ends it ends the firing there, as destroyed,
// and the next heir hears nothing. What an heir's rule does to the heir's own properties ends nothing.
TEST_F(PropertySemanticsTest, AnHeirsRuleThatEndsTheSourceEndsTheFiring) {
    // An Integer of the test's own, which no other test's rule reaches.
    constexpr short c_sFresh = 7731;
    static const bool registered = MCFactoryRegistry::RegisterAliasProperty(
        c_sFresh, "Fresh", MCCodes::pInteger, true, false, false, false);
    ASSERT_TRUE(registered);
    // The source the heir's rule ends; without one, the rule nulls the heir's own width.
    static MCObject* s_pxSource = nullptr;
    const struct {
        unsigned long nMode;
        bool bEndsSource;
        const char* pcExpected;  // answer, destroyed, the rules heard
    } rows[] = {
        {PS::InheritedPreEdit, true, "0 1 E:10000"},
        {PS::InheritedPostEdit, true, "1 1 E:20000"},
        {PS::InheritedPostEdit, false, "1 0 E:20000 E:20000"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pcExpected);
        MCObject* root = Make(nullptr, Shape::c_sType);
        auto* source = static_cast<Box*>(Make(root, Box::c_sType));
        s_pxSource = row.bEndsSource ? source : nullptr;
        for (MCObject* heir : {Make(root, Shape::c_sType), Make(root, Shape::c_sType)}) {
            SetLong(heir, Shape::c_sWidth, 1);
            source->AddHeir(heir);
        }
        PropertyRule ending("E", row.nMode);
        ending.m_xAct = [](PS::mode, MCObject* heir, MCProperty*, MCPropertySemanticContext*) {
            MCSPropertyAccessorT<long> accessor;
            if (s_pxSource)
                std::exchange(s_pxSource, nullptr)->Expunge(true);
            else
                heir->NullProperty(Shape::c_sWidth, accessor);
            return PS::resultContinue;
        };
        AddRule(Shape::c_sType, c_sFresh, ending);
        MCSPropertyAccessorT<long> accessor(3);
        const bool answer = source->SetProperty(c_sFresh, accessor, MCPropertyAccessor::accessAdd);
        EXPECT_EQ(
            std::to_string(answer) + " " + std::to_string(accessor.GetObjectDestroyed()) + " " + TakeLog(),
            row.pcExpected);
    }
}
