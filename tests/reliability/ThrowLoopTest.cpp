// Rules and observers that throw at their Kth call, for K = 1, 2, ... until the operation completes: an
// EXBase from a property rule is a refusal, every other exception reaches the host, and either way the
// model stays sound, with nothing made by the failed operation left outside it.

#include "reliability/ReliabilityModel.h"

namespace {

class ThrowLoopTest : public ReliabilityTest {
public:
    void SetUp() override {
        ReliabilityTest::SetUp();
        AddRule(RelNode::c_sType, m_xObjectRule);
        MCFactoryContext context;
        for (short type : {RelNode::c_sCount, RelNode::c_sLink, RelNode::c_sLinks, short(MCCodes::pName)})
            MCPropertySemanticRegistry::Register(RelNode::c_sType, &context, type, &m_xPropertyRule, false,
                                                 false);
    }
    void TearDown() override {
        m_pxModel->RemoveSubscriber(&m_xObserver, MCEvent::subscriberObserver);
        ReliabilityTest::TearDown();
    }

    // The operations, each on a fresh model; they leave what they made that the model does not own in
    // m_xMade, for the check and the clean-up.
    void Create() {
        MCObject* made = Make(Find("A"), RelNode::c_sType);
        SetLong(made, RelNode::c_sCount, 1);
        Link(made, RelNode::c_sLink, Find("E"));
    }
    void Edit() {
        SetLong(Find("E"), RelNode::c_sCount, 7);
        Link(Find("B"), RelNode::c_sLink, Find("E"));
        Link(Find("E"), RelNode::c_sLinks, Find("D"));
        MCSPropertyAccessorT<ZVTString> name{ZVTString("Z")};
        Find("C")->SetProperty(MCCodes::pName, name, MCPropertyAccessor::accessReplace);
    }
    void ExpungeC() { Find("C")->Expunge(true); }
    void Restore() {
        EXPECT_EQ(PersTest::Restore(PersTest::Save(m_pxModel)).result, MCPersController::resultOk);
    }
    void PasteA() { Paste(m_sBuffer, {Find("E")}); }
    void Clone() {
        if (MCObject* clone = Find("A")->CloneTree(nullptr))
            m_xMade.push_back(clone);
    }

    ThrowingObjectRule m_xObjectRule;
    ThrowingPropertyRule m_xPropertyRule;
    ThrowingObserver m_xObserver;
    std::vector<MCObject*> m_xMade;
    std::string m_sBuffer;
};

TEST_F(ThrowLoopTest, ARuleOrObserverThrowingAtAnyCallLeavesASoundModel) {
    const std::pair<const char*, void (ThrowLoopTest::*)()> operations[] = {
        {"create", &ThrowLoopTest::Create},
        {"edit", &ThrowLoopTest::Edit},
        {"expunge", &ThrowLoopTest::ExpungeC},
        {"restore", &ThrowLoopTest::Restore},  // the model saved and read back as a second tree
        {"paste", &ThrowLoopTest::PasteA},
        {"clone", &ThrowLoopTest::Clone},
    };
    ThrowCountdown* const propertyRule = &m_xPropertyRule.m_xCountdown;
    const struct {
        const char* name;
        ThrowCountdown* countdown;
        bool foreign;
    } throwers[] = {
        {"object rule", &m_xObjectRule.m_xCountdown, false},
        {"object rule, foreign", &m_xObjectRule.m_xCountdown, true},
        {"property rule", propertyRule, false},
        {"property rule, foreign", propertyRule, true},
        {"observer", &m_xObserver.m_xCountdown, false},
    };
    std::string calls;
    for (const auto& [name, run] : operations) {
        for (const auto& thrower : throwers) {
            ThrowCountdown& countdown = *thrower.countdown;
            int k = 1;
            const int failures = FailureCount();
            for (;; ++k) {
                SCOPED_TRACE(std::string(name) + ", " + thrower.name + " throws at call " +
                             std::to_string(k));
                m_xMade.clear();
                Build();
                m_pxModel->AddSubscriber(&m_xObserver, MCEvent::subscriberObserver);
                m_sBuffer = Copy({Find("A")}, *m_pxModel);
                countdown.Arm(k, thrower.foreign);
                bool threw = false;
                try {
                    (this->*run)();
                } catch (const EXUnexpected&) {
                    threw = !thrower.foreign;
                } catch (const std::runtime_error&) {
                    threw = thrower.foreign;
                }
                const bool fired = countdown.Disarm();
                m_xMade.insert(m_xMade.end(), m_xRestored.begin(), m_xRestored.end());
                m_xRestored.clear();
                // A property rule's EXBase is its refusal; anything else thrown reaches the host.
                EXPECT_EQ(threw, fired && (thrower.foreign || thrower.countdown != propertyRule));
                EXPECT_EQ(CheckModel(Scope(m_xMade, {&m_xObserver})), "");
                for (MCObject* made : m_xMade)
                    made->Expunge(true);
                if (!fired || FailureCount() > failures)
                    break;
            }
            calls += std::string(" ") + name + "/" + thrower.name + "=" + std::to_string(k - 1);
        }
    }
    RecordProperty("calls", calls);
}

}  // namespace
