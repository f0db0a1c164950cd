// Property rules through the accessors of a host metamodel: the firing order along the type chain,
// refusals before and after a change, the object going away inside a rule, calculated values, rules that
// throw, and what registering and deregistering leave behind.

#include <map>
#include <string>
#include <utility>

#include "support/RuleTestSupport.h"

namespace {

using PS = MCPropertySemantic;
constexpr unsigned long c_nEdit = PS::PreEdit | PS::PostEdit;

}  // namespace

class PropertySemanticsTest : public RuleTest {};

TEST_F(PropertySemanticsTest, EditFiresRootLevelFirstAndExternalBeforeInternal) {
    PropertyRule shape("S", c_nEdit), shapeExternal("Sx", c_nEdit), box("B", c_nEdit), crate("C", c_nEdit);
    AddRule(Shape::c_sType, Shape::c_sWidth, shape);
    MCPropertySemanticRegistry::GetInstance()->RegisterExternalSemantic(Shape::c_sType, Shape::c_sWidth,
                                                                        &shapeExternal, false);
    AddRule(Box::c_sType, Shape::c_sWidth, box);
    AddRule(Crate::c_sType, Shape::c_sLabel, crate);  // another property: never fires here
    MCObject* crateObject = Make(nullptr, Crate::c_sType);
    EXPECT_TRUE(SetLong(crateObject, Shape::c_sWidth, 3));
    EXPECT_EQ(TakeLog(), "Sx:1 S:1 B:1 Sx:2 S:2 B:2");
    EXPECT_TRUE(SetLong(Make(nullptr, Shape::c_sType), Shape::c_sWidth, 3));
    EXPECT_EQ(TakeLog(), "Sx:1 S:1 Sx:2 S:2");

    // No change, a raw accessor and a flags-only change run no rule.
    MCSPropertyRawAccessorT<long> raw(4);
    MCSPropertyAccessorT<long> flags;
    EXPECT_TRUE(SetLong(crateObject, Shape::c_sWidth, 3) &&
                crateObject->SetProperty(Shape::c_sWidth, raw, MCPropertyAccessor::accessAdd) &&
                crateObject->SetProperty(Shape::c_sWidth, flags, MCPropertyAccessor::accessFlags));
    EXPECT_EQ(TakeLog(), "");

    // The id changes only through a raw accessor.
    const long id = crateObject->GetId();
    const bool active = SetLong(crateObject, MCCodes::pId, id + 1000);
    const bool direct = SetLong(crateObject, MCCodes::pId, id + 1000, MCPropertyAccessor::accessAdd, false);
    EXPECT_EQ(
        std::to_string(active) + std::to_string(direct) + " " + std::to_string(crateObject->GetId() - id),
        "01 1000");
    // Back to the id its space still knows.
    SetLong(crateObject, MCCodes::pId, id, MCPropertyAccessor::accessAdd, false);
}

TEST_F(PropertySemanticsTest, RefusalsThrowsAndDestructionDecideWhatStaysAndWhatIsTold) {
    // How Shape's rule acts: 'r' refuses before the change, 'R' after it, 't' throws, 'd' destroys the object
    // after the change.
    static char s_cHow;
    const struct {
        char cHow;
        bool bStartSet;
        const char* pcOutcome;  // answer, width, rules heard
    } cases[] = {
        {'r', true, "0 1 S:1"},                  // nothing changes
        {'R', true, "0 9 S:1 B:1 S:2"},          // the value stays, nobody hears
        {'t', false, "0 - S:1"},                 // a throw refuses and leaves no property
        {'d', true, "1 destroyed S:1 B:1 S:2"},  // the change ends
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cHow);
        MCObject* root = Make();
        MCObject* box = Make(root, Box::c_sType);
        if (c.bStartSet)
            SetLong(box, Shape::c_sWidth, 1);
        root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        PropertyRule shape("S", c_nEdit), boxRule("B", c_nEdit);
        s_cHow = c.cHow;
        shape.m_xAct = [](PS::mode m, MCObject* object, MCProperty*, MCPropertySemanticContext*) {
            if (s_cHow == 't')
                throw EXInvalidIter();
            if (s_cHow == 'd' && m == PS::PostEdit)
                object->Expunge(true);
            return s_cHow == (m == PS::PreEdit ? 'r' : 'R') ? PS::resultRefused
                   : s_cHow == 'd' && m == PS::PostEdit     ? PS::resultObjectDestroyed
                                                            : PS::resultContinue;
        };
        AddRule(Shape::c_sType, Shape::c_sWidth, shape);
        AddRule(Box::c_sType, Shape::c_sWidth, boxRule);
        MCSPropertyAccessorT<long> accessor(9);
        const bool answer = box->SetProperty(Shape::c_sWidth, accessor, MCPropertyAccessor::accessAdd);
        const std::string width = accessor.GetObjectDestroyed() && !root->GetFirstOwnee()
                                      ? "destroyed"
                                      : GetLong(box, Shape::c_sWidth);
        EXPECT_EQ(std::to_string(answer) + " " + width + " " + TakeLog() + m_xLog.Take(), c.pcOutcome);
    }
}

TEST_F(PropertySemanticsTest, ReadsNullingAndTheObjectsEndTellTheRules) {
    MCObject* box = Make(nullptr, Box::c_sType);
    SetLong(box, Shape::c_sWidth, 6);
    // The area is calculated on every read; a rule for an absent property sees null.
    PropertyRule area("A", PS::CalculateValue), absent("R", PS::PreCalculateData);
    area.m_xAct = [](PS::mode, MCObject* object, MCProperty* property, MCPropertySemanticContext*) {
        MCSPropertyRawAccessorT<long> width;
        object->GetProperty(Shape::c_sWidth, width);
        static_cast<MCSPropertyT<long>*>(property)->SetValue(width.GetValue() * width.GetValue());
        return PS::resultContinue;
    };
    absent.m_pxLastProperty = reinterpret_cast<MCProperty*>(&absent);
    AddRule(Shape::c_sType, Shape::c_sArea, area);
    AddRule(Shape::c_sType, Shape::c_sLabel, absent);
    std::string seen = GetLong(box, Shape::c_sArea) + " ";
    SetLong(box, Shape::c_sWidth, 7);
    seen += GetLong(box, Shape::c_sArea) + " ";
    MCPropertySemanticRegistry::FireSemantics(PS::PreCalculateData, Shape::c_sLabel, box, nullptr, nullptr);
    EXPECT_EQ(seen + TakeLog(), "36 49 A:20 A:20 R:8");
    EXPECT_EQ(absent.m_pxLastProperty, nullptr);

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

TEST_F(PropertySemanticsTest, RegisteringAndDeregistering) {
    MCPropertySemanticRegistry* registry = MCPropertySemanticRegistry::GetInstance();
    MCObject* box = Make(nullptr, Box::c_sType);
    PropertyRule internal("I", PS::PreEdit), external("X", PS::PreEdit);
    AddRule(Box::c_sType, Shape::c_sWidth, internal);
    AddRule(Box::c_sType, Shape::c_sWidth, internal);
    registry->RegisterExternalSemantic(Box::c_sType, Shape::c_sWidth, &external, false);
    registry->RegisterExternalSemantic(Box::c_sType, Shape::c_sWidth, &external, false);
    SetLong(box, Shape::c_sWidth, 1);
    std::string trace = TakeLog() + "|";
    registry->Deregister(&external);
    registry->RegisterExternalSemantic(Box::c_sType, 0, &external, false);  // no property type: no rule
    EXPECT_FALSE(registry->IsRegistered(&external));
    SetLong(box, Shape::c_sWidth, 2);
    trace += TakeLog() + "|";
    registry->Deregister(Box::c_sType, Shape::c_sWidth);
    EXPECT_FALSE(registry->IsRegistered(Box::c_sType, Shape::c_sWidth));
    EXPECT_TRUE(registry->IsRegistered(Box::c_sType));
    SetLong(box, Shape::c_sWidth, 3);
    EXPECT_EQ(trace + TakeLog(), "X:1 X:1 I:1|I:1|");
    AddRule(Crate::c_sType, Shape::c_sWidth, internal);
    registry->Deregister(Crate::c_sType);  // a leaf type: nothing derives from it
    registry->Deregister(Crate::c_sType);  // once it is gone, both forms are no-ops
    registry->Deregister(Crate::c_sType, Shape::c_sWidth);
    EXPECT_FALSE(registry->IsRegistered(Crate::c_sType));

    EXPECT_THROW(AddRule(MCGenericObject::c_sType, Shape::c_sWidth, internal), EXGenericObject);
    EXPECT_EQ(registry->GetModeName(PS::InheritedPostEdit), ZVTString("InheritedPostEdit"));
    EXPECT_EQ(registry->GetModeName(PS::InheritedPreEdit), ZVTString("Invalid mode"));
}

TEST_F(PropertySemanticsTest, RulesRegisteredOrDeregisteredDuringFiringCountFromTheNextEdit) {
    MCObject* crate = Make(nullptr, Crate::c_sType);
    static PropertyRule* late = nullptr;
    PropertyRule lateRule("L", PS::PreEdit), first("F", PS::PreEdit);
    late = &lateRule;
    // The first edit adds a rule to Shape; the second takes Crate's handler away, the running rule's own, so
    // the third, without a handler to start from, hears no rule.
    first.m_xAct = [](PS::mode, MCObject*, MCProperty*, MCPropertySemanticContext*) {
        MCFactoryContext context;
        if (late)
            MCPropertySemanticRegistry::Register(Shape::c_sType, &context, Shape::c_sWidth,
                                                 std::exchange(late, nullptr), false, false);
        else
            MCPropertySemanticRegistry::GetInstance()->Deregister(Crate::c_sType);
        return PS::resultContinue;
    };
    AddRule(Crate::c_sType, Shape::c_sWidth, first);
    for (long width : {1, 2, 3})
        SetLong(crate, Shape::c_sWidth, width);
    EXPECT_EQ(TakeLog(), "F:1 L:1 F:1");
}

TEST_F(PropertySemanticsTest, HeirsHearEditsInTheInheritedModeAndMayRefuse) {
    auto* source = static_cast<Box*>(Make(nullptr, Box::c_sType));
    auto* heir = static_cast<Box*>(Make(nullptr, Box::c_sType));
    MCObject* heirOfHeir = Make(nullptr, Crate::c_sType);
    source->AddHeir(heir);
    heir->AddHeir(heirOfHeir);
    const std::map<const MCObject*, std::string> names{{source, "s"}, {heir, "h"}, {heirOfHeir, "hh"}};
    PropertyRule own("own", c_nEdit);
    own.m_pxNames = &names;
    AddRule(Shape::c_sType, Shape::c_sWidth, own);
    EXPECT_TRUE(SetLong(source, Shape::c_sWidth, 1));
    EXPECT_EQ(TakeLog(), "own@s:1 own@s:2");  // heirs fire only for rules that ask

    PropertyRule inherited("inh", c_nEdit | PS::InheritedPreEdit | PS::InheritedPostEdit);
    inherited.m_pxNames = &names;
    AddRule(Box::c_sType, Shape::c_sWidth, inherited);
    EXPECT_TRUE(SetLong(source, Shape::c_sWidth, 2));
    EXPECT_EQ(TakeLog(), "own@s:1 inh@s:1 inh@h:10000 inh@hh:10000 own@s:2 inh@s:2 inh@h:20000 inh@hh:20000");
    // The heirs see the source's property, whether or not they have one.
    EXPECT_EQ(inherited.m_pxLastProperty, source->FindProperty(Shape::c_sWidth, false));

    // An heir refuses its source's edit; a refusal on the source's own chain keeps the heirs out of it.
    inherited.m_xAct = [](PS::mode m, MCObject*, MCProperty*, MCPropertySemanticContext*) {
        return m == PS::InheritedPreEdit ? PS::resultRefused : PS::resultContinue;
    };
    EXPECT_FALSE(SetLong(source, Shape::c_sWidth, 3));
    std::string refusals = TakeLog() + "|";
    own.m_eAnswer = PS::resultRefused;
    EXPECT_FALSE(SetLong(source, Shape::c_sWidth, 3));
    EXPECT_EQ(refusals + TakeLog() + "|" + GetLong(source, Shape::c_sWidth),
              "own@s:1 inh@s:1 inh@h:10000|own@s:1|2");

    // An inherited edit runs the inherited rules on the object itself and leaves its value alone.
    own.m_eAnswer = PS::resultContinue;
    inherited.m_xAct = nullptr;
    heir->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    MCSPropertyAccessorT<long> accessor(9);
    EXPECT_TRUE(heir->SetProperty(Shape::c_sWidth, accessor, MCPropertyAccessor::accessInherited));
    EXPECT_EQ(TakeLog() + "|" + GetLong(heir, Shape::c_sWidth) + m_xLog.Take(),
              "inh@h:10000 inh@hh:10000 inh@h:20000 inh@hh:20000|-");

    // A dying heir leaves its source's set, and the source's edits no longer reach it. The end of an
    // object is not offered property by property when its type chain has no rule for it, yet its heirs
    // hear it in the inherited mode; one without heirs tells nobody.
    PropertyRule end("end", static_cast<unsigned long>(PS::ObjectPreDestruction) << 16);
    end.m_pxNames = &names;
    AddRule(Box::c_sType, Shape::c_sWidth, end);
    SetLong(heirOfHeir, Shape::c_sWidth, 1, MCPropertyAccessor::accessAdd, false);
    heirOfHeir->Expunge(true);
    EXPECT_EQ(heir->Heirs().GetCount(), 0);
    std::string trace = TakeLog() + "|";
    EXPECT_TRUE(SetLong(heir, Shape::c_sWidth, 5));
    trace += TakeLog() + "|";
    source->Expunge(true);
    EXPECT_EQ(trace + TakeLog(), "|own@h:1 inh@h:1 own@h:2 inh@h:2|end@h:800000");
}

TEST_F(PropertySemanticsTest, AnEditWithoutRulesOfItsOwnReachesTheHeirsAsAnyOther) {
    // The same edits twice: with no rule for them on the edited object's chain, so that only its heirs
    // react, then with a silent rule there that takes every edit the whole way. The property is one no
    // other rule names: a list keeps the interests of every rule it ever held.
    constexpr short c_sFresh = 87;
    struct Silent : MCPropertySemantic {
        ~Silent() { MCPropertySemanticRegistry::GetInstance()->Deregister(this); }
        result Fire(mode, MCObject*, MCProperty*, MCPropertySemanticContext*) override {
            ++m_nFired;
            return resultContinue;
        }
        unsigned long GetInterests() const override { return c_nEdit; }
        int m_nFired = 0;
    } silent;
    auto* source = static_cast<Box*>(Make(nullptr, Box::c_sType));
    auto* heir = static_cast<Box*>(Make(nullptr, Box::c_sType));
    MCObject* alone = Make(nullptr, Box::c_sType);
    source->AddHeir(heir);
    heir->AddHeir(Make(nullptr, Crate::c_sType));
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
    MCFactoryContext context;
    MCPropertySemanticRegistry::Register(Shape::c_sType, &context, c_sFresh, &silent, false, false);
    EXPECT_EQ(run(), heirsOnly);
    EXPECT_EQ(silent.m_nFired, 7);  // before and after each edit but the refused one
    EXPECT_EQ(heirsOnly, " set inh:10000 inh:10000 inh:20000 inh:20000 | set  | refused inh:10000 | set  |");
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
            for (short type : {Shape::c_sWidth, Shape::c_sArea, c_sFresh}) {
                SetLong(crate, type, ++value);
                trace += TakeLog() + ";";
            }
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
