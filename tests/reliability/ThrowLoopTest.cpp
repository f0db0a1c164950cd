// Rules and observers that throw at their Kth call, for K = 1, 2, ... until the operation completes: an
// EXBase from a property rule is a refusal, every other exception reaches the host, and either way the
// model stays sound, with nothing made by the failed operation left outside it.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "reliability/ReliabilityModel.h"

namespace {

class ThrowLoopTest : public ReliabilityTest {
public:
    void SetUp() override {
        ReliabilityTest::SetUp();
        m_xObjectRule.m_pxCountdown = &m_xObjectCountdown;
        m_xPropertyRule.m_pxCountdown = &m_xPropertyCountdown;
        m_xObserver.m_pxCountdown = &m_xObserverCountdown;
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

    ThrowCountdown m_xObjectCountdown, m_xPropertyCountdown, m_xObserverCountdown;
    ThrowingObjectRule m_xObjectRule;
    ThrowingPropertyRule m_xPropertyRule;
    ThrowingObserver m_xObserver;
    std::vector<MCObject*> m_xMade;
    std::string m_sBuffer;
};

TEST_F(ThrowLoopTest, ARuleOrObserverThrowingAtAnyCallLeavesASoundModel) {
    const struct {
        const char* name;
        void (ThrowLoopTest::*run)();
    } operations[] = {
        {"create", &ThrowLoopTest::Create},    {"edit", &ThrowLoopTest::Edit},
        {"expunge", &ThrowLoopTest::ExpungeC}, {"restore", &ThrowLoopTest::Restore},
        {"paste", &ThrowLoopTest::PasteA},     {"clone", &ThrowLoopTest::Clone},
    };
    const struct {
        const char* name;
        ThrowCountdown ThrowLoopTest::*countdown;
        bool foreign;
    } throwers[] = {
        {"object rule", &ThrowLoopTest::m_xObjectCountdown, false},
        {"object rule, foreign", &ThrowLoopTest::m_xObjectCountdown, true},
        {"property rule", &ThrowLoopTest::m_xPropertyCountdown, false},
        {"property rule, foreign", &ThrowLoopTest::m_xPropertyCountdown, true},
        {"observer", &ThrowLoopTest::m_xObserverCountdown, false},
    };
    std::string calls;
    for (const auto& operation : operations) {
        for (const auto& thrower : throwers) {
            ThrowCountdown& countdown = this->*thrower.countdown;
            int k = 1;
            const int failures = FailureCount();
            for (;; ++k) {
                SCOPED_TRACE(std::string(operation.name) + ", " + thrower.name + " throws at call " +
                             std::to_string(k));
                m_xMade.clear();
                Build();
                m_pxModel->AddSubscriber(&m_xObserver, MCEvent::subscriberObserver);
                m_sBuffer = Copy({Find("A")}, *m_pxModel);
                countdown.Arm(k, thrower.foreign);
                bool threw = false;
                try {
                    (this->*operation.run)();
                } catch (const EXUnexpected&) {
                    threw = !thrower.foreign;
                } catch (const std::runtime_error&) {
                    threw = thrower.foreign;
                }
                const bool fired = countdown.Disarm();
                m_xMade.insert(m_xMade.end(), m_xRestored.begin(), m_xRestored.end());
                m_xRestored.clear();
                // A property rule's EXBase is its refusal; anything else thrown reaches the host.
                EXPECT_EQ(threw, fired && (thrower.foreign ||
                                           thrower.countdown != &ThrowLoopTest::m_xPropertyCountdown));
                ModelScope scope = Scope(m_xMade);
                scope.m_xObservers.insert(&m_xObserver);
                EXPECT_EQ(CheckModel(scope), "");
                for (MCObject* made : m_xMade)
                    made->Expunge(true);
                if (!fired || FailureCount() > failures)
                    break;
            }
            calls += std::string(" ") + operation.name + "/" + thrower.name + "=" + std::to_string(k - 1);
        }
    }
    RecordProperty("calls", calls);
}

}  // namespace
