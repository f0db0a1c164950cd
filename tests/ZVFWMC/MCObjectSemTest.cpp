// Object rules along a three-level host hierarchy: both firing orders, failures and stops, the order across
// ownees, late rules reaching derived types, cycles refused, and the destruction veto of a rule and of an
// undeletable object.

#include <utility>
#include <vector>

#include "support/RegistryTestSupport.h"
#include "support/RuleTestSupport.h"

constexpr unsigned long c_nCalculate = MCObjectSem::CalculateData;

class ObjectSemTest : public RuleTest {
protected:
    /// Fires `mode` on `object`: the rules' log, then the result and the name of the rule that failed.
    static std::string Fire(MCObject* object, MCObjectSem::mode mode = MCObjectSem::CalculateData,
                            bool derivedFirst = false) {
        MCObjectSem* failed = nullptr;
        const auto result = MCObjectSemReg::FireSemantics(mode, object, failed, nullptr, derivedFirst);
        return TakeLog() + " -> " + std::to_string(result) + " " +
               (failed ? static_cast<ObjectRule*>(failed)->m_sName : "");
    }
};

TEST_F(ObjectSemTest, ChainFiresRootFirstAndDerivedFirstAndStopsAsTheResultsSay) {
    using R = MCObjectSem::result;
    const struct {
        const char* pcName;
        R eShape, eBox;
        bool bDerivedFirst;
        const char* pcExpected;  // the firing, then the result and the failed rule
    } cases[] = {
        {"root first", R::resultContinue, R::resultContinue, false, "S:4 B:4 C:4 -> 0 "},
        {"derived first", R::resultContinue, R::resultContinue, true, "C:4 B:4 S:4 -> 0 "},
        {"failure stops root first", R::resultContinue, R::resultFailed, false, "S:4 B:4 -> 1 B"},
        {"failure stops derived first", R::resultFailed, R::resultFailed, true, "C:4 B:4 -> 1 B"},
        {"stop only counts derived first", R::resultContinue, R::resultStop, true, "C:4 B:4 -> 0 "},
        {"stop goes on root first", R::resultStop, R::resultStop, false, "S:4 B:4 C:4 -> 0 "},
    };
    MCObject* crate = Make(nullptr, Crate::c_sType);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pcName);
        ObjectRule shape("S", c_nCalculate, c.eShape), box("B", c_nCalculate, c.eBox), cr("C", c_nCalculate);
        AddRule(Shape::c_sType, shape);
        AddRule(Box::c_sType, box);
        AddRule(Crate::c_sType, cr);
        EXPECT_EQ(Fire(crate, MCObjectSem::CalculateData, c.bDerivedFirst), c.pcExpected);
    }
    // The rules died with their scope and left the handlers; no object fails.
    EXPECT_EQ(Fire(crate) + "|" + Fire(nullptr), " -> 0 | -> 1 ");
}

// A rule that takes a rule out while the chain fires, an object rule or a property rule: every other rule
// that stood when the firing began and still stands fires; the one taken out fires no more.
TEST_F(ObjectSemTest, ARuleLeavingDuringAFiringSkipsNoOtherObjectOrPropertyRule) {
    static MCObjectSem* s_pxObjectRule = nullptr;
    static MCPropertySemantic* s_pxPropertyRule = nullptr;
    struct Leaving : ObjectRule {
        using ObjectRule::ObjectRule;
        result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
            if (s_pxObjectRule)
                MCObjectSemReg::GetInstance()->Deregister(std::exchange(s_pxObjectRule, nullptr));
            return ObjectRule::Fire(nMode, object, context);
        }
    };
    const struct {
        const char* pcName;
        int nLeaving;  // which of a, b, c b takes out
        // The first firing | the second, of the object rules; then of the property rules.
        const char* pcExpected;
    } rows[] = {
        {"an earlier rule", 0, "A:4 B:4 C:4 -> 0 |B:4 C:4 -> 0 ; A:1 B:1 C:1|B:1 C:1"},
        {"itself", 1, "A:4 B:4 C:4 -> 0 |A:4 C:4 -> 0 ; A:1 B:1 C:1|A:1 C:1"},
        {"a later rule", 2, "A:4 B:4 -> 0 |A:4 B:4 -> 0 ; A:1 B:1|A:1 B:1"},
    };
    MCObject* crate = Make(nullptr, Crate::c_sType);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pcName);
        MCObject* shape = Make(nullptr, Shape::c_sType);
        ObjectRule a("A", c_nCalculate), c("C", c_nCalculate);
        Leaving b("B", c_nCalculate);
        ObjectRule* objectRules[] = {&a, &b, &c};
        PropertyRule pa("A", MCPropertySemantic::PreEdit), pb("B", MCPropertySemantic::PreEdit),
            pc("C", MCPropertySemantic::PreEdit);
        PropertyRule* propertyRules[] = {&pa, &pb, &pc};
        pb.m_xAct = [](MCPropertySemantic::mode, MCObject*, MCProperty*, MCPropertySemanticContext*) {
            if (s_pxPropertyRule)
                MCPropertySemanticRegistry::GetInstance()->Deregister(
                    std::exchange(s_pxPropertyRule, nullptr));
            return MCPropertySemantic::resultContinue;
        };
        for (int i = 0; i < 3; ++i) {
            AddRule(Shape::c_sType, *objectRules[i]);
            AddRule(Shape::c_sType, Shape::c_sWidth, *propertyRules[i]);
        }
        s_pxObjectRule = objectRules[row.nLeaving];
        s_pxPropertyRule = propertyRules[row.nLeaving];
        std::string trace = Fire(crate);
        trace += "|" + Fire(crate) + "; ";
        SetLong(shape, Shape::c_sWidth, 1);
        trace += TakeLog() + "|";
        SetLong(shape, Shape::c_sWidth, 2);
        EXPECT_EQ(trace + TakeLog(), row.pcExpected);
    }
}

TEST_F(ObjectSemTest, AnObjectsRulesFireBeforeItsOwneesAndAQuietCreationIsNotAnnounced) {
    const unsigned long life = MCObjectSem::PostCreation | MCObjectSem::PreDestructon;
    ObjectRule shape("S", life), box("B", life), crate("C", MCObjectSem::PreDestructon);
    AddRule(Shape::c_sType, shape);
    AddRule(Box::c_sType, box);
    AddRule(Crate::c_sType, crate);
    MCObject* root = Make(nullptr, Box::c_sType);
    MCObject* leaf = Make(Make(root, Crate::c_sType));
    root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    QuietContext quiet;
    MCFactoryRegistry::CreateItem(Box::c_sType, leaf, &quiet, nullptr);
    EXPECT_EQ(TakeLog() + "|" + m_xLog.Take(), "S:1 B:1 S:1 B:1|");
    // Each object's rules, derived level first, before its ownees'.
    root->Expunge(true);
    EXPECT_EQ(TakeLog(), "B:2 S:2 C:2 B:2 S:2 B:2 S:2");
}

TEST_F(ObjectSemTest, LateRuleOnBaseReachesLinkedDerivedTypesAndLinksNeverCloseACycle) {
    MCObjectSemReg* registry = MCObjectSemReg::GetInstance();
    MCObject* crate = Make(nullptr, Crate::c_sType);
    ObjectRule late("L", MCObjectSem::PostCopy);
    AddRule(Shape::c_sType, late);
    AddRule(Shape::c_sType, late);  // stands once
    EXPECT_EQ(Fire(crate, MCObjectSem::PostCopy), "L:80 -> 0 ");
    EXPECT_TRUE(registry->IsRegistered(Shape::c_sType, &late) &&
                !registry->IsRegistered(Box::c_sType, &late));
    EXPECT_EQ(registry->GetModeName(MCObjectSem::PostPaste), ZVTString("Invalid mode"));
    EXPECT_EQ(registry->GetModeName(MCObjectSem::PreDestructon), ZVTString("PreDestructon"));

    // Registers `type` below `ancestor`.
    const auto link = [](short type, short ancestor) {
        MCFactoryContext context;
        context.SetAncestorType(MCFactoryContext::userObjectSemantics, ancestor);
        MCObjectSemReg::Register(type, &context, nullptr, true);
    };
    MCFactoryContext fresh;
    MCObjectSemReg::Register(7791, &fresh, nullptr, true);  // a root: nothing above it
    link(7792, 7791);
    EXPECT_THROW(link(7791, 7792), EXUnexpected);
    // Linking to itself or to no type leaves a root a root: a late rule on 7792 does not reach 7791.
    link(7791, 7791);
    ObjectRule rule("R", c_nCalculate);
    MCObjectSemReg::Register(7792, &fresh, &rule, false);
    EXPECT_TRUE(registry->IsRegistered(&rule));
    registry->Deregister(7792);
    EXPECT_FALSE(registry->IsRegistered(&rule));
    // A late rule above spreads its interests to the levels below, which no longer include the removed
    // one (the sanitizer build sees a write to it).
    ObjectRule above("A", MCObjectSem::PostCreation);
    MCObjectSemReg::Register(7791, &fresh, &above, false);
    EXPECT_TRUE(registry->IsRegistered(&above));
}

TEST_F(ObjectSemTest, AVetoOrTheUndeletableFlagKeepsTheObjectWholeUntilItsOwnerGoes) {
    for (bool veto : {true, false}) {
        SCOPED_TRACE(veto ? "veto" : "undeletable");
        ObjectRule rule("V", MCObjectSem::PreDestructon, MCObjectSem::resultFailed);
        if (veto)
            AddRule(Box::c_sType, rule);
        MCObject* root = Make();
        MCObject* box = Make(root, Box::c_sType);
        MCObject* inner = Make(box);
        const long boxId = box->GetId(), innerId = inner->GetId();
        box->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        // An undeletable root stays too, until its flag is cleared.
        std::string trace;
        for (MCObject* object : veto ? std::vector<MCObject*>{box} : std::vector<MCObject*>{root, box}) {
            object->SetFlag(MCItem::itemUndeletable, !veto);
            MessageLog messages;
            trace += std::to_string(object->Expunge(true));
            trace += messages.Text() + " ";
        }
        // Then whether both objects are still there, whole, in place, unheard of.
        trace += std::to_string(MCObject::ResolveId(boxId) == box) +
                 std::to_string(MCObject::ResolveId(innerId) == inner) +
                 std::to_string(!box->GetFlag(MCItem::itemExpunging | MCItem::itemTreeExpunge) &&
                                !inner->IsExpunging() && box->GetOwner(0, MCItem::rttiExact) == root);
        EXPECT_EQ(trace + m_xLog.Take(), veto ? "1 111" : "1606(0x30) 1606(0x30) 111");

        root->SetFlag(MCItem::itemUndeletable, false);
        MessageLog messages;
        root->Expunge(true);
        EXPECT_EQ(std::to_string(MCObject::ResolveId(boxId) || MCObject::ResolveId(innerId)) +
                      messages.Text() + " " + TakeLog(),
                  veto ? "0 V:2 V:2" : "0 ");
        m_xLog.Take();
    }
}

TEST_F(ObjectSemTest, RepeatedClassLevelRegistrationsAreSkippedWithoutChangingWhatAnyoneSees) {
    // After the first object of a type a class level's registration is skipped while no registry has
    // changed. Each case runs so and with a registry change before every creation (every level registers
    // in full); both must give the same trace: rules fired, ancestor types a rule sees, events heard.
    // Box's rule, which also logs the ancestor types it sees.
    struct AncestorProbe : ObjectRule {
        AncestorProbe() : ObjectRule("B", MCObjectSem::PostCreation) {}
        result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
            for (auto user : {MCFactoryContext::userObjectSemantics, MCFactoryContext::userPropertySemantics,
                              MCFactoryContext::userNotifications})
                if (nMode == PostCreation)
                    RuleLog() += (user == MCFactoryContext::userObjectSemantics ? " ctx:" : "/") +
                                 std::to_string(context->GetFactoryContext()->GetAncestorType(user));
            return ObjectRule::Fire(nMode, object, context);
        }
    };
    const struct {
        const char* pcName;
        void (*pfnBetween)();  // each removed handler must come back with the next crate, under Box
    } cases[] = {
        {"nothing between", [] {}},
        {"object-rule handler removed", [] { MCObjectSemReg::GetInstance()->Deregister(Crate::c_sType); }},
        {"property-rule handler removed",
         [] { MCPropertySemanticRegistry::GetInstance()->Deregister(Crate::c_sType); }},
    };
    for (const auto& c : cases) {
        for (bool forced : {false, true}) {
            SCOPED_TRACE(std::string(c.pcName) + (forced ? ", full registration" : ", skipped"));
            AncestorProbe probe;
            PropertyRule width("W", MCPropertySemantic::PostEdit), idle("I", 0);
            AddRule(Box::c_sType, probe);
            AddRule(Box::c_sType, Shape::c_sWidth, width);
            MCObject* root = Make();
            root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
            TakeLog();
            for (int i = 0; i < 3; ++i) {
                if (i > 0)
                    c.pfnBetween();
                MCFactoryContext context;  // registering a rule again changes the registry's count alone
                if (forced)
                    MCPropertySemanticRegistry::Register(7799, &context, Shape::c_sWidth, &idle, false, true);
                MCObject* crate = Make(root, Crate::c_sType);
                SetLong(crate, Shape::c_sWidth, i);
                RuleLog() +=
                    m_xLog.Take().rfind("ObjectCreated(" + std::to_string(crate->GetId()) + ") Prop", 0) == 0
                        ? " heard"
                        : " unheard";
            }
            const std::string made = " ctx:7703/7703/7703 B:1 W:2 heard";
            EXPECT_EQ(TakeLog(), made + made + made);
        }
    }
}

TEST_F(ObjectSemTest, CreationAndEndRulesRunAlikeWhetherTheCoreRuleStandsAloneOrAmongOthers) {
    // A tree is made and goes with only the core rule on its types, which then runs without the walk, and
    // with a silent rule on Box, which makes every creation and end walk. The crate's announcement registers
    // creation rules on the core rule's level and on the crate's own, which the walk reaches after the core
    // rule. A property's end rule registers an object rule on the root type while the core rule runs: the
    // object going then and every later one hear it.
    static ObjectRule *s_pxLate = nullptr, *s_pxSame = nullptr, *s_pxBelow = nullptr;
    auto run = [this](bool walked) {
        ObjectRule silent("Q", 0), late("L", MCObjectSem::PreDestructon);
        ObjectRule same("N", MCObjectSem::PostCreation), below("K", MCObjectSem::PostCreation);
        if (walked)
            AddRule(Box::c_sType, silent);
        s_pxLate = &late;
        PropertyRule end("P", MCPropertySemantic::ObjectPreDestruction);
        end.m_xAct = [](MCPropertySemantic::mode, MCObject*, MCProperty*, MCPropertySemanticContext*) {
            if (s_pxLate)
                AddRule(MCCodes::tAbstractObject, *std::exchange(s_pxLate, nullptr));
            return MCPropertySemantic::resultContinue;
        };
        AddRule(Box::c_sType, Shape::c_sWidth, end);
        MCObject* root = Make(nullptr, Box::c_sType);
        SetLong(root, Shape::c_sWidth, 1);
        MCObject* middle = Make(root);
        s_pxSame = &same;
        s_pxBelow = &below;
        m_xLog.m_pxOnNotify = [](MCEvent& event) {
            if (event.GetEventType() == MCEvent::ObjectCreated && s_pxSame) {
                AddRule(MCCodes::tAbstractObject, *std::exchange(s_pxSame, nullptr));
                AddRule(Crate::c_sType, *s_pxBelow);
            }
        };
        root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        SetLong(Make(middle, Crate::c_sType), Shape::c_sWidth, 1);
        Make(middle, Crate::c_sType);
        root->Expunge(true);
        return TakeLog();
    };
    const std::string alone = run(false);
    EXPECT_EQ(run(true), alone);
    EXPECT_EQ(alone, "N:1 K:1 N:1 K:1 P:80 L:2 L:2 P:80 L:2 L:2");
}
