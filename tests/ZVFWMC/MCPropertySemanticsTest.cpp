// Property rules through the accessors of a host metamodel: the firing order along the type chain,
// refusals before and after a change, the object going away inside a rule, calculated values, rules that
// throw, and what registering and deregistering leave behind.

#include <utility>

#include "support/RuleTestSupport.h"

namespace {

constexpr unsigned long c_nEdit = MCPropertySemantic::PreEdit | MCPropertySemantic::PostEdit;

bool SetWidth(MCObject* object, long value) {
    MCSPropertyAccessorT<long> accessor(value);
    return object->SetProperty(Shape::c_sWidth, accessor, MCPropertyAccessor::accessAdd);
}

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
    MCObject* shapeObject = Make(nullptr, Shape::c_sType);

    EXPECT_TRUE(SetWidth(crateObject, 3));
    EXPECT_EQ(TakeLog(), "Sx:1 S:1 B:1 Sx:2 S:2 B:2");
    EXPECT_TRUE(SetWidth(crateObject, 3));  // no change, no rule
    EXPECT_TRUE(SetWidth(shapeObject, 3));
    EXPECT_EQ(TakeLog(), "Sx:1 S:1 Sx:2 S:2");

    // A raw accessor runs nothing; a flags-only change neither.
    MCSPropertyRawAccessorT<long> raw(4);
    EXPECT_TRUE(crateObject->SetProperty(Shape::c_sWidth, raw, MCPropertyAccessor::accessAdd));
    MCSPropertyAccessorT<long> flags;
    EXPECT_TRUE(crateObject->SetProperty(Shape::c_sWidth, flags, MCPropertyAccessor::accessFlags));
    EXPECT_EQ(TakeLog(), "");

    // The id changes only through a raw accessor.
    const long id = crateObject->GetId();
    EXPECT_FALSE(SetLong(crateObject, 132, id + 1000));
    EXPECT_EQ(crateObject->GetId(), id);
    EXPECT_TRUE(SetLong(crateObject, 132, id + 1000, MCPropertyAccessor::accessAdd, false));
    EXPECT_EQ(crateObject->GetId(), id + 1000);
    SetLong(crateObject, 132, id, MCPropertyAccessor::accessAdd, false);  // the id space still knows `id`
}

TEST_F(PropertySemanticsTest, RefusalsThrowsAndDestructionDecideWhatStaysAndWhatIsTold) {
    using M = MCPropertySemantic;
    const struct {
        const char* pcName;
        M::result (*xAct)(M::mode, MCObject*, MCProperty*, MCPropertySemanticContext*);
        bool bStartSet;
        const char* pcOutcome;  // answer, width, rules heard
    } cases[] = {
        {"pre-edit refusal: nothing changes",
         [](M::mode m, MCObject*, MCProperty*, MCPropertySemanticContext*) {
             return m == M::PreEdit ? M::resultRefused : M::resultContinue;
         },
         true, "0 1 S:1"},
        {"post-edit refusal: the value stays, nobody hears",
         [](M::mode m, MCObject*, MCProperty*, MCPropertySemanticContext*) {
             return m == M::PostEdit ? M::resultRefused : M::resultContinue;
         },
         true, "0 9 S:1 B:1 S:2"},
        {"a throw refuses and leaves no property",
         [](M::mode, MCObject*, MCProperty*, MCPropertySemanticContext*) -> M::result {
             throw EXInvalidIter();
         },
         false, "0 - S:1"},
        {"destroying the object ends the change",
         [](M::mode m, MCObject* object, MCProperty*, MCPropertySemanticContext*) {
             if (m != M::PostEdit)
                 return M::resultContinue;
             object->Expunge(true);
             return M::resultObjectDestroyed;
         },
         true, "1 destroyed S:1 B:1 S:2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pcName);
        MCObject* root = Make();
        MCObject* box = Make(root, Box::c_sType);
        if (c.bStartSet)
            SetLong(box, Shape::c_sWidth, 1);
        root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        PropertyRule shape("S", c_nEdit), boxRule("B", c_nEdit);
        shape.m_xAct = c.xAct;
        AddRule(Shape::c_sType, Shape::c_sWidth, shape);
        AddRule(Box::c_sType, Shape::c_sWidth, boxRule);
        MCSPropertyAccessorT<long> accessor(9);
        const bool answer = box->SetProperty(Shape::c_sWidth, accessor, MCPropertyAccessor::accessAdd);
        const std::string width = accessor.GetObjectDestroyed() && !root->GetFirstOwnee()
                                      ? "destroyed"
                                      : GetLong(box, Shape::c_sWidth);
        EXPECT_EQ(std::to_string(answer) + " " + width + " " + TakeLog(), c.pcOutcome);
        EXPECT_EQ(m_xLog.Take(), "");
        root->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
    }
}

TEST_F(PropertySemanticsTest, CalculatedPropertyIsComputedOnEveryRead) {
    MCObject* box = Make(nullptr, Box::c_sType);
    SetLong(box, Shape::c_sWidth, 6);
    PropertyRule area("A", MCPropertySemantic::CalculateValue);
    area.m_xAct = [](MCPropertySemantic::mode, MCObject* object, MCProperty* property,
                     MCPropertySemanticContext*) {
        MCSPropertyRawAccessorT<long> width;
        object->GetProperty(Shape::c_sWidth, width);
        static_cast<MCSPropertyT<long>*>(property)->SetValue(width.GetValue() * width.GetValue());
        return MCPropertySemantic::resultContinue;
    };
    AddRule(Shape::c_sType, Shape::c_sArea, area);
    EXPECT_EQ(GetLong(box, Shape::c_sArea), "36");
    SetLong(box, Shape::c_sWidth, 7);
    EXPECT_EQ(GetLong(box, Shape::c_sArea), "49");
    EXPECT_EQ(TakeLog(), "A:20 A:20");
}

TEST_F(PropertySemanticsTest, NullingAndDestructionTellTheRules) {
    MCObject* box = Make(nullptr, Box::c_sType);
    SetLong(box, Shape::c_sWidth, 6);
    PropertyRule guard("G", MCPropertySemantic::PreDestructon | MCPropertySemantic::ObjectPreDestruction,
                       MCPropertySemantic::resultRefused);
    guard.m_bWithObject = true;
    AddRule(Box::c_sType, Shape::c_sWidth, guard);
    MCSPropertyAccessorT<long> accessor;
    EXPECT_FALSE(box->NullProperty(Shape::c_sWidth, accessor));
    EXPECT_EQ(GetLong(box, Shape::c_sWidth), "6");
    const std::string id = std::to_string(box->GetId());
    EXPECT_EQ(TakeLog(), "G@" + id + ":4");

    // The end of the object is no nulling: the rules hear ObjectPreDestruction and cannot refuse it.
    box->Expunge(true);
    EXPECT_EQ(TakeLog(), "G@" + id + ":80");
}

// The end of an object is not offered property by property when its type chain has no rule for it; its
// heirs must still hear it in the inherited mode.
TEST_F(PropertySemanticsTest, ObjectEndReachesTheHeirsWhenTheObjectsTypeHasNoRuleForIt) {
    auto* source = static_cast<Box*>(Make(nullptr, Box::c_sType));
    MCObject* heir = Make(nullptr, Box::c_sType);
    MCObject* alone = Make(nullptr, Box::c_sType);
    source->AddHeir(heir);
    for (MCObject* object : {static_cast<MCObject*>(source), alone})
        SetLong(object, Shape::c_sWidth, 1);
    PropertyRule inherited("H", static_cast<unsigned long>(MCPropertySemantic::ObjectPreDestruction) << 16);
    inherited.m_bWithObject = true;
    AddRule(Box::c_sType, Shape::c_sWidth, inherited);
    TakeLog();
    alone->Expunge(true);
    EXPECT_EQ(TakeLog(), "");
    source->Expunge(true);
    EXPECT_EQ(TakeLog(), "H@" + std::to_string(heir->GetId()) + ":800000");
}

TEST_F(PropertySemanticsTest, RuleForAnAbsentPropertySeesNull) {
    MCObject* box = Make(nullptr, Box::c_sType);
    PropertyRule rule("R", MCPropertySemantic::PreCalculateData);
    rule.m_pxLastProperty = reinterpret_cast<MCProperty*>(&rule);
    AddRule(Shape::c_sType, Shape::c_sLabel, rule);
    MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::PreCalculateData, Shape::c_sLabel, box,
                                              nullptr, nullptr);
    EXPECT_EQ(TakeLog(), "R:8");
    EXPECT_EQ(rule.m_pxLastProperty, nullptr);
}

TEST_F(PropertySemanticsTest, RegisteringAndDeregistering) {
    MCPropertySemanticRegistry* registry = MCPropertySemanticRegistry::GetInstance();
    MCObject* box = Make(nullptr, Box::c_sType);
    PropertyRule internal("I", MCPropertySemantic::PreEdit), external("X", MCPropertySemantic::PreEdit);
    AddRule(Box::c_sType, Shape::c_sWidth, internal);
    AddRule(Box::c_sType, Shape::c_sWidth, internal);
    registry->RegisterExternalSemantic(Box::c_sType, Shape::c_sWidth, &external, false);
    registry->RegisterExternalSemantic(Box::c_sType, Shape::c_sWidth, &external, false);
    SetWidth(box, 1);
    EXPECT_EQ(TakeLog(), "X:1 X:1 I:1");

    registry->Deregister(&external);
    registry->RegisterExternalSemantic(Box::c_sType, 0, &external, false);  // no property type: no rule
    EXPECT_FALSE(registry->IsRegistered(&external));
    SetWidth(box, 2);
    EXPECT_EQ(TakeLog(), "I:1");
    registry->Deregister(Box::c_sType, Shape::c_sWidth);
    EXPECT_FALSE(registry->IsRegistered(Box::c_sType, Shape::c_sWidth));
    EXPECT_TRUE(registry->IsRegistered(Box::c_sType));
    SetWidth(box, 3);
    EXPECT_EQ(TakeLog(), "");
    AddRule(Crate::c_sType, Shape::c_sWidth, internal);
    registry->Deregister(Crate::c_sType);  // a leaf type: nothing derives from it
    registry->Deregister(Crate::c_sType);  // once it is gone, both forms are no-ops
    registry->Deregister(Crate::c_sType, Shape::c_sWidth);
    EXPECT_FALSE(registry->IsRegistered(Crate::c_sType));

    EXPECT_THROW(AddRule(MCGenericObject::c_sType, Shape::c_sWidth, internal), EXGenericObject);
    EXPECT_EQ(registry->GetModeName(MCPropertySemantic::InheritedPostEdit), ZVTString("InheritedPostEdit"));
    EXPECT_EQ(registry->GetModeName(MCPropertySemantic::InheritedPreEdit), ZVTString("Invalid mode"));
}

TEST_F(PropertySemanticsTest, RulesRegisteredOrDeregisteredDuringFiringCountFromTheNextEdit) {
    MCObject* crate = Make(nullptr, Crate::c_sType);
    static PropertyRule* late = nullptr;
    PropertyRule lateRule("L", MCPropertySemantic::PreEdit);
    late = &lateRule;
    PropertyRule first("F", MCPropertySemantic::PreEdit);
    // The first edit adds a rule to Shape; the second takes Crate's handler away, the running rule's own, so
    // the third, without a handler to start from, hears no rule.
    first.m_xAct = [](MCPropertySemantic::mode, MCObject*, MCProperty*, MCPropertySemanticContext*) {
        MCFactoryContext context;
        if (late)
            MCPropertySemanticRegistry::Register(Shape::c_sType, &context, Shape::c_sWidth,
                                                 std::exchange(late, nullptr), false, false);
        else
            MCPropertySemanticRegistry::GetInstance()->Deregister(Crate::c_sType);
        return MCPropertySemantic::resultContinue;
    };
    AddRule(Crate::c_sType, Shape::c_sWidth, first);
    for (long width : {1, 2, 3})
        SetWidth(crate, width);
    EXPECT_EQ(TakeLog(), "F:1 L:1 F:1");
}

TEST_F(PropertySemanticsTest, HeirsHearEditsInTheInheritedModeAndMayRefuse) {
    auto* source = static_cast<Box*>(Make(nullptr, Box::c_sType));
    auto* heir = static_cast<Box*>(Make(nullptr, Box::c_sType));
    MCObject* heirOfHeir = Make(nullptr, Crate::c_sType);
    source->AddHeir(heir);
    heir->AddHeir(heirOfHeir);
    const std::string s = std::to_string(source->GetId()), h = std::to_string(heir->GetId()),
                      hh = std::to_string(heirOfHeir->GetId());

    PropertyRule own("own", c_nEdit);
    own.m_bWithObject = true;
    AddRule(Shape::c_sType, Shape::c_sWidth, own);
    EXPECT_TRUE(SetWidth(source, 1));
    EXPECT_EQ(TakeLog(), "own@" + s + ":1 own@" + s + ":2");  // heirs fire only for rules that ask

    PropertyRule inherited(
        "inh", c_nEdit | MCPropertySemantic::InheritedPreEdit | MCPropertySemantic::InheritedPostEdit);
    inherited.m_bWithObject = true;
    AddRule(Box::c_sType, Shape::c_sWidth, inherited);
    EXPECT_TRUE(SetWidth(source, 2));
    EXPECT_EQ(TakeLog(), "own@" + s + ":1 inh@" + s + ":1 inh@" + h + ":10000 inh@" + hh + ":10000 own@" + s +
                             ":2 inh@" + s + ":2 inh@" + h + ":20000 inh@" + hh + ":20000");
    // The heirs see the source's property, whether or not they have one.
    EXPECT_EQ(inherited.m_pxLastProperty, source->FindProperty(Shape::c_sWidth, false));

    // An heir refuses its source's edit; a refusal on the source's own chain keeps the heirs out of it.
    inherited.m_xAct = [](MCPropertySemantic::mode m, MCObject*, MCProperty*, MCPropertySemanticContext*) {
        return m == MCPropertySemantic::InheritedPreEdit ? MCPropertySemantic::resultRefused
                                                         : MCPropertySemantic::resultContinue;
    };
    EXPECT_FALSE(SetWidth(source, 3));
    EXPECT_EQ(GetLong(source, Shape::c_sWidth), "2");
    EXPECT_EQ(TakeLog(), "own@" + s + ":1 inh@" + s + ":1 inh@" + h + ":10000");
    own.m_eAnswer = MCPropertySemantic::resultRefused;
    EXPECT_FALSE(SetWidth(source, 3));
    EXPECT_EQ(TakeLog(), "own@" + s + ":1");

    // An inherited edit runs the inherited rules on the object itself and leaves its value alone.
    own.m_eAnswer = MCPropertySemantic::resultContinue;
    inherited.m_xAct = nullptr;
    heir->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    MCSPropertyAccessorT<long> accessor(9);
    EXPECT_TRUE(heir->SetProperty(Shape::c_sWidth, accessor, MCPropertyAccessor::accessInherited));
    EXPECT_EQ(TakeLog(), "inh@" + h + ":10000 inh@" + hh + ":10000 inh@" + h + ":20000 inh@" + hh + ":20000");
    EXPECT_EQ(GetLong(heir, Shape::c_sWidth), "-");
    EXPECT_EQ(m_xLog.Take(), "");
    heir->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);

    // A dying heir leaves its source's set, and the source's edits no longer reach it.
    heirOfHeir->Expunge(true);
    EXPECT_EQ(heir->Heirs().GetCount(), 0);
    TakeLog();
    EXPECT_TRUE(SetWidth(heir, 5));
    EXPECT_EQ(TakeLog(), "own@" + h + ":1 inh@" + h + ":1 own@" + h + ":2 inh@" + h + ":2");
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
    PropertyRule inherited("inh",
                           MCPropertySemantic::InheritedPreEdit | MCPropertySemantic::InheritedPostEdit);
    AddRule(Box::c_sType, c_sFresh, inherited);
    long value = 0;
    auto run = [&]() {
        std::string trace;
        for (auto answer : {MCPropertySemantic::resultContinue, MCPropertySemantic::resultRefused}) {
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
        PropertyRule shape("S", MCPropertySemantic::PreEdit), external("X", MCPropertySemantic::PostEdit),
            late("L", c_nEdit);
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
