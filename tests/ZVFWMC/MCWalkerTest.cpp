// Walkers, agents and visitors as a host drives them: the depth-first order and its filter, the
// single-user rule and the ends of walker and visitor, agents that stop, edits during a walk, deep trees.

#include <memory>
#include <set>
#include <tuple>

#include "support/ModelTestSupport.h"

namespace {

// Renders every object it visits by its name, then runs an optional hook.
struct Recorder : MCVisitor {
    void Visit(MCObject* object) override {
        m_sLog += (m_sLog.empty() ? "" : " ") + ModelTest::NameOf(object);
        if (m_xHook)
            m_xHook(object);
    }
    std::string m_sLog;
    std::function<void(MCObject*)> m_xHook;
};

// Refuses the objects of its set; with `expunge`, it expunges each of them as it is asked, and with
// `accept` it answers yes all the same.
struct RefuseFilter : ZVTFilter<MCObject*> {
    RefuseFilter(std::set<const MCObject*> refused, bool expunge, bool accept)
        : m_xRefused(std::move(refused)), m_bExpunge(expunge), m_bAccept(accept) {}
    ZVTBoolean Test(MCObject*& object) override {
        const bool refused = m_xRefused.count(object) != 0;
        if (refused && m_bExpunge)
            object->Expunge(true);
        return !refused || m_bAccept;
    }
    std::set<const MCObject*> m_xRefused;
    bool m_bExpunge, m_bAccept;
};

struct ProbeUser : MCWalkerUser {
    ProbeUser() : MCWalkerUser(nullptr) {}
    void InvalidateWalker() override { ++m_nInvalidated; }
    int m_nInvalidated = 0;
};

// A: B (D, E), C -- ownees oldest first.
class WalkerTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        A = Named("A", nullptr);
        B = Named("B", A);
        C = Named("C", A);
        D = Named("D", B);
        E = Named("E", B);
    }
    MCObject *A, *B, *C, *D, *E;
};

TEST_F(WalkerTest, OrderIsPreOrderWithTheYoungestOwneeFirstAndAFilterCutsWholeSubtrees) {
    // A finished walk stays finished until Reset, which takes the start past the filter; its end keeps the
    // last object. A null Reset keeps the start.
    RefuseFilter refuseAD({A, D}, false, false);
    Recorder recorder;
    MCDepthFirstWalker walker(A, &refuseAD);
    MCVisitorAgent agent(walker, recorder);
    agent.Execute();
    walker.Reset(A);
    agent.Execute();
    agent.Execute();
    EXPECT_EQ(recorder.m_sLog, "A C B E");
    EXPECT_EQ(walker.GetValue(), E);
    walker.Reset(nullptr);
    EXPECT_FALSE(walker.Traverse());
    EXPECT_EQ(walker.GetStart(), A);

    // The start, the refused objects, whether the filter expunges what it refuses (last, as that changes
    // the tree) and whether it answers yes all the same, and the walk.
    const std::tuple<const char*, MCObject*, std::set<const MCObject*>, bool, bool, const char*> cases[] = {
        {"whole tree", A, {}, false, false, "A C B E D"},
        {"subtree", B, {}, false, false, "B E D"},
        {"refused inner object", A, {B}, false, false, "A C"},
        {"refused leaf", A, {D}, false, false, "A C B E"},
        {"refused start", A, {A}, false, false, ""},
        {"null start", nullptr, {}, false, false, ""},
        {"refused and expunged by the filter", A, {B}, true, false, "A C"},
        {"accepted but expunged by the filter", A, {C}, true, true, "A"},
    };
    for (const auto& [name, start, refused, expunge, accept, expected] : cases) {
        SCOPED_TRACE(name);
        RefuseFilter filter(refused, expunge, accept);
        Recorder seen;
        MCDepthFirstWalker cut(start, &filter);
        MCVisitorAgent(cut, seen).Execute();
        EXPECT_EQ(seen.m_sLog, expected);
    }
}

// The first user keeps the walker and hears of every later attempt; a refused user was not stored. A
// second agent takes over; every agent stops when its walker or visitor ends, whether it was recorded as
// the user or not, and an invalid agent does not step the walker.
TEST_F(WalkerTest, UsersAndAgentsYieldToTheFirstAndStopWithWhatTheyUse) {
    ProbeUser first, second;  // attached by hand, so they must outlive the walker
    {
        MCDepthFirstWalker walker(A, nullptr);
        EXPECT_TRUE(walker.Use(&first, true) && !walker.Use(&second, true));
        EXPECT_EQ(first.m_nInvalidated * 10 + second.m_nInvalidated, 10);
        EXPECT_TRUE(!walker.Use(&second, false) && walker.Use(&first, false) && walker.Use(&second, true));
    }
    for (bool sharedWalker : {true, false}) {
        Recorder recorder1, recorder2;
        MCDepthFirstWalker walker1(A, nullptr), walker2(B, nullptr);
        MCVisitorAgent agent1(walker1, recorder1);
        MCVisitorAgent agent2(sharedWalker ? walker1 : walker2, sharedWalker ? recorder2 : recorder1);
        EXPECT_FALSE(agent1.IsValid());
        agent1.Execute();
        agent2.Execute();
        EXPECT_EQ(recorder1.m_sLog + "|" + recorder2.m_sLog, sharedWalker ? "|A C B E D" : "B E D|");
    }
    auto recorder = std::make_unique<Recorder>();
    auto walker = std::make_unique<MCDepthFirstWalker>(A, nullptr);
    MCVisitorAgent agent1(*walker, *recorder), agent2(*walker, *recorder);
    walker.reset();
    EXPECT_TRUE(!agent2.IsValid() && agent2.GetWalker() == nullptr);
    agent2.Execute();
    MCDepthFirstWalker walker3(A, nullptr);
    MCVisitorAgent agent3(walker3, *recorder);
    EXPECT_TRUE(agent3.IsValid());
    recorder.reset();
    EXPECT_TRUE(!agent3.IsValid() && agent3.GetVisitor() == nullptr);
    agent3.Execute();
    EXPECT_TRUE(walker3.Traverse() && walker3.GetValue() == A);
}

// In turn on one tree, each case keeping what the one before did: an ownee added under the current object
// is not reached, one added under an object still to come is; the current leaf may expunge itself, also
// once it made a second agent on the walker, which takes the rest of the walk from the first.
TEST_F(WalkerTest, EditsDuringTheWalkFollowTheLoadingOfOwneesAtEachStep) {
    // The object that acts, the name it adds under B (none: it expunges itself), whether it hands over, and
    // the walk, the successor's after "|".
    const std::tuple<MCObject*, const char*, bool, const char*> cases[] = {
        {B, "X", false, "A C B E D"},
        {C, "Y", false, "A C B Y X E D"},
        {C, nullptr, false, "A C B Y X E D"},
        {E, nullptr, true, "A B Y X E|A B Y X E D"},
        {nullptr, nullptr, false, "A B Y X D"}};
    for (const auto& [on, add, handOver, expected] : cases) {
        SCOPED_TRACE(expected);
        Recorder recorder;
        MCDepthFirstWalker walker(A, nullptr);
        std::unique_ptr<MCVisitorAgent> successor;
        recorder.m_xHook = [&, on = on, add = add, handOver = handOver](MCObject* o) {
            if (o == on && handOver)
                successor = std::make_unique<MCVisitorAgent>(walker, recorder);
            if (o == on)
                add ? void(Named(add, B)) : void(o->Expunge(true));
        };
        MCVisitorAgent(walker, recorder).Execute();
        std::string log = recorder.m_sLog;
        if (successor)
            successor->Execute();
        EXPECT_EQ(log + (successor ? "|" + recorder.m_sLog : ""), expected);
    }
}

TEST_F(WalkerTest, ADeepChainIsWalkedWithoutRecursion) {
    constexpr long c_lDepth = 100000;
    MCObject* root = Make();
    MCObject* last = MakeChain(root, c_lDepth - 1);
    ZVTHSetT<long> ids([](const long& id) { return static_cast<unsigned int>(id); });
    ids.Insert(-1);
    MCTreeVisitor visitor(ids);
    MCDepthFirstWalker walker(root, nullptr);
    MCVisitorAgent(walker, visitor).Execute();
    EXPECT_EQ(ids.Entries(), static_cast<size_t>(c_lDepth) + 1) << "the set is not emptied first";
    EXPECT_EQ(walker.GetValue(), last);
    EXPECT_THROW(visitor.Visit(nullptr), EXUnexpected);
}

}  // namespace
