// Rules and observers that throw at their Kth call, for K = 1, 2, ... until the operation completes: an
// EXBase from a property rule is a refusal, every other exception reaches the host, and either way the
// model stays sound, with nothing made by the failed operation left outside it.

#include <functional>
#include <tuple>

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

    ThrowingObjectRule m_xObjectRule;
    ThrowingPropertyRule m_xPropertyRule;
    ThrowingObserver m_xObserver;
};

TEST_F(ThrowLoopTest, ARuleOrObserverThrowingAtAnyCallLeavesASoundModel) {
    // Each runs on a fresh model; what it makes that the model does not own goes to `made`.
    std::vector<MCObject*> made;
    std::string buffer;
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"create",
         [&] {
             MCObject* node = Make(Find("A"), RelNode::c_sType);
             SetLong(node, RelNode::c_sCount, 1);
             Link(node, RelNode::c_sLink, Find("E"));
         }},
        {"edit",
         [&] {
             SetLong(Find("E"), RelNode::c_sCount, 7);
             Link(Find("B"), RelNode::c_sLink, Find("E"));
             Link(Find("E"), RelNode::c_sLinks, Find("D"));
             MCSPropertyAccessorT<ZVTString> name{ZVTString("Z")};
             Find("C")->SetProperty(MCCodes::pName, name, MCPropertyAccessor::accessReplace);
         }},
        {"expunge", [&] { Find("C")->Expunge(true); }},
        // The model saved and read back as a second tree.
        {"restore", [&] { EXPECT_EQ(Restore(Save(m_pxModel)).result, MCPersController::resultOk); }},
        {"paste", [&] { Paste(buffer, {Find("E")}); }},
        {"clone",
         [&] {
             if (MCObject* clone = Find("A")->CloneTree(nullptr))
                 made.push_back(clone);
         }},
    };
    ThrowCountdown* const propertyRule = &m_xPropertyRule.m_xCountdown;
    // Who throws, and whether what it throws is foreign to the library.
    const std::tuple<const char*, ThrowCountdown*, bool> throwers[] = {
        {"object rule", &m_xObjectRule.m_xCountdown, false},
        {"object rule, foreign", &m_xObjectRule.m_xCountdown, true},
        {"property rule", propertyRule, false},
        {"property rule, foreign", propertyRule, true},
        {"observer", &m_xObserver.m_xCountdown, false},
    };
    std::string calls;
    for (const auto& [name, run] : operations) {
        for (const auto& [thrower, countdown, foreign] : throwers) {
            int k = 1;
            const int failures = FailureCount();
            for (;; ++k) {
                SCOPED_TRACE(std::string(name) + ", " + thrower + " throws at call " + std::to_string(k));
                made.clear();
                Build();
                m_pxModel->AddSubscriber(&m_xObserver, MCEvent::subscriberObserver);
                buffer = Copy({Find("A")}, *m_pxModel);
                countdown->Arm(k, foreign);
                bool threw = false;
                try {
                    run();
                } catch (const EXUnexpected&) {
                    threw = !foreign;
                } catch (const std::runtime_error&) {
                    threw = foreign;
                }
                const bool fired = countdown->Disarm();
                made.insert(made.end(), m_xRestored.begin(), m_xRestored.end());
                m_xRestored.clear();
                // A property rule's EXBase is its refusal; anything else thrown reaches the host.
                EXPECT_EQ(threw, fired && (foreign || countdown != propertyRule));
                EXPECT_EQ(CheckModel(Scope(made, {&m_xObserver})), "");
                for (MCObject* object : made)
                    object->Expunge(true);
                if (!fired || FailureCount() > failures)
                    break;
            }
            calls += std::string(" ") + name + "/" + thrower + "=" + std::to_string(k - 1);
        }
    }
    RecordProperty("calls", calls);
}

}  // namespace
