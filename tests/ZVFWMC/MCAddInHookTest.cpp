// Proxies of rules held by add-in components: which firings reach the component and with which ids, a
// missing component, answers that veto or refuse, the scope's death retiring its proxies, who deletes a
// proxy, and the add-in hook type.

#include <cstdio>
#include <memory>
#include <tuple>

#include "support/RuleTestSupport.h"

namespace {

/// Writes each call as "semantic(scope,object,property,mode)", ids by name, and answers m_lAnswer.
class Recorder : public ControllerInterface {
public:
    std::map<long, std::string> m_xNames{{0, "-"}};
    std::string m_sLog;
    long m_lAnswer = 0;

protected:
    long FireSemantic_(const ZVTString& semantic, long scope, long object, long property,
                       unsigned int mode) override {
        char text[128];
        std::snprintf(text, sizeof text, "%s(%s,%s,%ld,%x)", semantic.data(), m_xNames[scope].c_str(),
                      m_xNames[object].c_str(), property, mode);
        m_sLog += (m_sLog.empty() ? "" : " ") + std::string(text);
        return m_lAnswer;
    }
};

/// An object proxy that may want more modes than PostCreation, PreDestructon and CalculateData, and counts
/// its deletions.
class TestProxy : public MCExternalObjectSem {
public:
    TestProxy(const char* semantic, MCObject* scope, unsigned long more = 0)
        : MCExternalObjectSem("rec", semantic, scope), m_nMore(more) {}
    ~TestProxy() override { ++c_nDeleted; }
    unsigned long GetInterests() const override { return MCExternalObjectSem::GetInterests() | m_nMore; }
    unsigned long m_nMore;
    static inline int c_nDeleted = 0;
};

}  // namespace

/// R owns A, which owns A1 (a Box); O stands outside. The recorder is registered as "rec".
class AddInTest : public RuleTest {
protected:
    void SetUp() override {
        RuleTest::SetUp();
        ASSERT_TRUE(CComponentManager::RegisterComponent("rec", &m_xRecorder));
        m_pxA1 = Make(m_pxA = Make(m_pxR = Make(nullptr, Shape::c_sType), Shape::c_sType), Box::c_sType);
        m_pxO = Make(nullptr, Shape::c_sType);
        for (auto [object, name] :
             {std::pair<MCObject*, const char*>{m_pxR, "R"}, {m_pxA, "A"}, {m_pxA1, "A1"}, {m_pxO, "O"}})
            m_xRecorder.m_xNames[object->GetId()] = name;
    }
    void TearDown() override {
        CComponentManager::UnregisterComponent("rec");
        RuleTest::TearDown();
    }
    static std::unique_ptr<MCExternalPropertySemantic> Add(MCExternalPropertySemantic* proxy,
                                                           short type = Shape::c_sType,
                                                           short property = Shape::c_sWidth) {
        MCPropertySemanticRegistry::GetInstance()->RegisterExternalSemantic(type, property, proxy, false);
        return std::unique_ptr<MCExternalPropertySemantic>(proxy);
    }
    static std::unique_ptr<TestProxy> Add(TestProxy* proxy) {
        MCObjectSemReg::GetInstance()->RegisterExternalSemantic(Shape::c_sType, proxy, false);
        return std::unique_ptr<TestProxy>(proxy);
    }
    std::string Take() { return std::exchange(m_xRecorder.m_sLog, ""); }
    static MCObjectSem::result Fire(MCObjectSem::mode mode, MCObject* object,
                                    MCObjectSemContext* context = nullptr,
                                    MCObjectSem* expectFailed = nullptr) {
        MCObjectSem* failed = nullptr;
        const MCObjectSem::result result = MCObjectSemReg::FireSemantics(mode, object, failed, context, true);
        EXPECT_EQ(failed, expectFailed);
        return result;
    }

    Recorder m_xRecorder;
    MCObject *m_pxR, *m_pxA, *m_pxA1, *m_pxO;
};

TEST_F(AddInTest, ScopeDecidesWhatReachesTheComponent) {
    using PS = MCPropertySemantic;
    // Scoped to R or not, the scope included or not, what reaches the component.
    const std::tuple<bool, bool, const char*> cases[] = {
        {false, false,
         "w(-,R,7711,1) w(-,R,7711,2) w(-,A1,7711,1) w(-,A1,7711,2) w(-,O,7711,1) w(-,O,7711,2)"},
        {true, true, "w(R,R,7711,1) w(R,R,7711,2) w(R,A1,7711,1) w(R,A1,7711,2)"},
        {true, false, "w(R,A1,7711,1) w(R,A1,7711,2)"},
    };
    long value = 0;
    for (const auto& [scoped, includeScope, log] : cases) {
        auto proxy = Add(new MCExternalPropertySemantic("rec", "w", scoped ? m_pxR : nullptr, includeScope));
        for (MCObject* object : {m_pxR, m_pxA1, m_pxO}) {
            // Modes outside a property proxy's interests never reach the component.
            for (PS::mode mode : {PS::PreDestructon, PS::PostPaste, PS::ObjectPreDestruction,
                                  PS::InheritedPreEdit, PS::InheritedPostEdit})
                MCPropertySemanticRegistry::FireSemantics(mode, Shape::c_sWidth, object, nullptr, nullptr);
            EXPECT_TRUE(SetLong(object, Shape::c_sWidth, ++value));
        }
        EXPECT_EQ(Take(), log);
    }
    // An object proxy counts its scope in. PostPaste passes the external mask for the pasting proxy's sake,
    // but reaches only that one.
    auto proxy = Add(new TestProxy("o", m_pxA));
    for (MCObject* object : {m_pxR, m_pxA, m_pxA1, m_pxO})
        Fire(MCObjectSem::CalculateData, object);
    auto paste = Add(new TestProxy("paste", nullptr, 0x40));
    MCPasteObjectContext context;
    context.SetLevel(1);
    Fire(MCObjectSem::PostPaste, m_pxA, &context);
    EXPECT_EQ(Take(), "o(A,A,0,4) o(A,A1,0,4) paste(-,A,0,40)");
}

TEST_F(AddInTest, MissingComponentShowsMessage603EachTimeAndTheOperationGoesOn) {
    HUBScopedMessageHandler messages;
    auto proxy = Add(new MCExternalPropertySemantic("absent", "w", nullptr, false));
    auto object = Add(new TestProxy("o", nullptr));
    CComponentManager::UnregisterComponent("rec");
    EXPECT_TRUE(SetLong(m_pxA, Shape::c_sWidth, 3));
    EXPECT_EQ(Fire(MCObjectSem::PreDestructon, m_pxO), MCObjectSem::resultContinue);
    EXPECT_EQ(messages.Log(),
              "message 603 (style 0x30): absent\nmessage 603 (style 0x30): absent\n"
              "message 603 (style 0x30): rec");
}

TEST_F(AddInTest, AnswersVetoAndRefuseTheOrdinaryWay) {
    m_xRecorder.m_lAnswer = MCObjectSem::resultFailed;
    auto lock = Add(new TestProxy("lock", nullptr));
    const long id = m_pxO->GetId();
    m_pxO->Expunge(true);
    ASSERT_EQ(MCObject::ResolveId(id), m_pxO);
    EXPECT_EQ(Fire(MCObjectSem::PreDestructon, m_pxO, nullptr, lock.get()), MCObjectSem::resultFailed);
    lock.reset();

    SetLong(m_pxO, Shape::c_sWidth, 4, MCPropertyAccessor::accessAdd, false);
    auto proxy = Add(new MCExternalPropertySemantic("rec", "w", nullptr, false));
    // Runs after the proxy on its level, unless the proxy stopped the firing.
    PropertyRule internal("I", MCPropertySemantic::PreEdit | MCPropertySemantic::PostEdit);
    AddRule(Shape::c_sType, Shape::c_sWidth, internal);
    EXPECT_FALSE(SetLong(m_pxO, Shape::c_sWidth, 8));
    EXPECT_EQ(GetLong(m_pxO, Shape::c_sWidth) + " " + TakeLog(), "4 ");
    m_xRecorder.m_lAnswer = 77;  // no result at all: taken as going on
    EXPECT_TRUE(SetLong(m_pxO, Shape::c_sWidth, 9));
    EXPECT_EQ(TakeLog() + " | " + Take(),
              "I:1 I:2 | lock(-,O,0,2) lock(-,O,0,2) w(-,O,7711,1) w(-,O,7711,1) w(-,O,7711,2)");
}

TEST_F(AddInTest, ExpungingTheScopeRetiresItsProxiesBeforeItsOwneesGo) {
    auto object = Add(new TestProxy("o", m_pxR));
    auto property = Add(new MCExternalPropertySemantic("rec", "w", m_pxR, true));
    m_pxR->Expunge(true);
    EXPECT_EQ(Take(), "o(R,R,0,2)");  // A and A1 are no longer asked
    EXPECT_FALSE(object->GetOwner() || property->GetOwner() ||
                 MCObjectSemReg::GetInstance()->IsRegistered(object.get()) ||
                 MCPropertySemanticRegistry::GetInstance()->IsRegistered(property.get()));
}

TEST_F(AddInTest, AHandlerDeletesItsObjectProxiesAndADeletedProxyEndsItsSubscription) {
    TestProxy::c_nDeleted = 0;
    auto* object = new TestProxy("o", nullptr);
    MCObjectSemReg* registry = MCObjectSemReg::GetInstance();
    registry->RegisterExternalSemantic(7791, object, false);  // types of no class
    registry->RegisterExternalSemantic(7792, object, false);  // owned by the first handler: ignored
    registry->Deregister(7791);
    registry->Deregister(7792);
    EXPECT_EQ(TestProxy::c_nDeleted, 1);

    auto* proxy = new MCExternalPropertySemantic("rec", "w", m_pxO, true);
    MCSubscriberListIter before(m_pxO);
    EXPECT_TRUE(++before && before.GetValue() == proxy);
    delete proxy;
    EXPECT_FALSE(++MCSubscriberListIter(m_pxO));
}

TEST_F(AddInTest, AddInHooksStandInTheChainsOfTheirType) {
    MCObject* hook = Make(m_pxR, MCAddInHook::c_sType);
    m_xRecorder.m_xNames[hook->GetId()] = "H";
    auto proxy = Add(new MCExternalPropertySemantic("rec", "n", m_pxR, false), MCAddInHook::c_sType, 147);
    MCSPropertyAccessorT<ZVTString> name(ZVTString("hook"));
    EXPECT_TRUE(hook->SetProperty(MCCodes::pName, name, MCPropertyAccessor::accessAdd));
    EXPECT_FALSE(SetLong(hook, 132, 99));  // the root type's id rule reaches the hook
    EXPECT_EQ(Take(), "n(R,H,147,1) n(R,H,147,2)");
}
