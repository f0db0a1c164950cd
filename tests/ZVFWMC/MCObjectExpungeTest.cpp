// The end of a tree: rules and events from the top down, memory from the leaves up, and the quiet ways of
// going (a persistence unit's root, a subtree marked to go without ceremony).

#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/RuleTestSupport.h"

namespace {

// Logs "PD@<id>" for PreDestructon of any object.
class DestructionRule : public MCObjectSem {
public:
    result Fire(mode nMode, MCObject* object, MCObjectSemContext*) override {
        if (nMode == PreDestructon)
            RuleLog() +=
                (RuleLog().empty() ? "" : " ") + std::string("PD@") + std::to_string(object->GetId());
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PreDestructon; }
};

// Logs "SD@<id>" for each SubjectDestroyed it hears, into the same log as the rules.
class DeathWatch : public MCSubscriber {
public:
    void Notify(MCEvent& event) override {
        if (event.GetEventType() == MCEvent::SubjectDestroyed)
            RuleLog() += (RuleLog().empty() ? "" : " ") + std::string("SD@") +
                         std::to_string(static_cast<MCObject*>(event.GetSubject())->GetId());
    }
};

// Expunges the next object of a row whenever one dies, and records the order of the deaths: nested
// expunges as deep as the row is long.
class Domino : public MCSubscriber {
public:
    void Notify(MCEvent& event) override {
        if (event.GetEventType() != MCEvent::SubjectDestroyed)
            return;
        const long dying = static_cast<MCObject*>(event.GetSubject())->GetId();
        m_xOrder.push_back(dying);
        auto next = m_xNext.find(dying);
        // By id: the next one may have gone already.
        if (next != m_xNext.end()) {
            if (MCObject* object = MCObject::ResolveId(next->second))
                object->Expunge(true);
        }
        if (dying == m_lThrowAt)
            throw std::runtime_error("stop");
    }
    std::unordered_map<long, long> m_xNext;  // id to id
    long m_lThrowAt = 0;
    std::vector<long> m_xOrder;
};

}  // namespace

class ObjectExpungeTest : public RuleTest {
protected:
    void TearDown() override {
        Crate::c_bUnit = false;
        RuleTest::TearDown();
    }
    // A under the fixture's root R, B and C under A, D under B; all watched and all with the rule.
    void BuildTree() {
        AddRule(1, m_xRule);
        m_pxRoot = Make();
        m_pxA = Make(m_pxRoot, Crate::c_sType);
        m_pxB = Make(m_pxA, Box::c_sType);
        m_pxC = Make(m_pxA, Box::c_sType);
        m_pxD = Make(m_pxB);
        for (MCObject* object : {m_pxA, m_pxB, m_pxC, m_pxD})
            object->AddSubscriber(&m_xWatch, MCEvent::subscriberObserver);
        RuleLog().clear();
    }
    std::string Id(MCObject* object) const { return std::to_string(object->GetId()); }

    DeathWatch m_xWatch;
    DestructionRule m_xRule;
    MCObject *m_pxRoot = nullptr, *m_pxA = nullptr, *m_pxB = nullptr, *m_pxC = nullptr, *m_pxD = nullptr;
};

// Rules and events go from the top down, ownees oldest first, unless the tree goes a quiet way.
TEST_F(ObjectExpungeTest, TreeGoesTopDownUnlessItGoesAQuietWay) {
    const struct {
        const char* pcName;
        bool bUnit;
        bool bMarkRoot;
        bool bMarkChild;
        const char* pcLog;  // A, B, C, D stand for the ids
    } cases[] = {
        {"a persistence unit fires only its own veto", true, false, false, "PD@A"},
        {"a marked subtree fires nothing", false, true, false, ""},
        {"a marked ownee of an ordinary owner goes the ordinary way, top down", false, false, true,
         "PD@A SD@A PD@B SD@B PD@D SD@D PD@C SD@C"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pcName);
        BuildTree();
        Crate::c_bUnit = c.bUnit;
        if (c.bMarkRoot)
            m_pxA->SetFlag(MCItem::itemTreeExpunge, true);
        if (c.bMarkChild)
            m_pxB->SetFlag(MCItem::itemTreeExpunge, true);
        std::string expected = c.pcLog;
        for (auto [letter, object] :
             {std::pair<char, MCObject*>{'A', m_pxA}, {'B', m_pxB}, {'C', m_pxC}, {'D', m_pxD}})
            for (size_t at; (at = expected.find(std::string("@") + letter)) != std::string::npos;)
                expected.replace(at + 1, 1, Id(object));
        m_pxA->Expunge(true);
        EXPECT_EQ(TakeLog(), expected);
        EXPECT_EQ(m_pxRoot->GetFirstOwnee(), nullptr);
        Crate::c_bUnit = false;
    }
}

// A subscriber that, hearing an ownee die, expunges that ownee's next sibling and makes a new ownee: the
// owner's end still takes every ownee, the one made late included, and each goes exactly once.
TEST_F(ObjectExpungeTest, OwneesMadeAndTakenDownDuringTheEndAllGoOnce) {
    struct Meddler : MCSubscriber {
        void Notify(MCEvent& event) override {
            auto* dying = static_cast<MCObject*>(event.GetSubject());
            if (event.GetEventType() != MCEvent::SubjectDestroyed || m_nActions++ != 0)
                return;
            MCObject* owner = dying->GetOwner(0, MCItem::rttiExact);
            if (MCObject* next = dying->GetNextSibling())
                next->Expunge(true);
            MCFactoryRegistry::CreateItem(TestNode::c_sType, owner, nullptr, nullptr);
        }
        int m_nActions = 0;
    } meddler;
    MCObject* root = Make();
    const int aliveBefore = TestNode::c_nAlive;
    const int destroyedBefore = TestNode::c_nDestroyed;
    MCObject* first = MakeNode(root);
    MakeNode(root);
    MakeNode(root);
    first->AddSubscriber(&meddler, MCEvent::subscriberObserver);
    root->Expunge(true);
    EXPECT_EQ(meddler.m_nActions, 1);
    EXPECT_EQ(TestNode::c_nAlive, aliveBefore);
    EXPECT_EQ(TestNode::c_nDestroyed - destroyedBefore, 4);
}

// A chain of 10^5 objects goes the ordinary way, rules and events included, without a call per level.
TEST_F(ObjectExpungeTest, DeepChainGoesWithoutDeepRecursion) {
    MCObject* root = Make();
    MCObject* last = MakeChain(root, 100000);
    last->AddSubscriber(&m_xWatch, MCEvent::subscriberObserver);
    const long lastId = last->GetId();
    root->Expunge(true);
    EXPECT_EQ(MCObject::ResolveId(lastId), nullptr);
    EXPECT_EQ(TakeLog(), "SD@" + std::to_string(lastId));
}

// Deep nesting must cost bounded call depth (a small stack makes a recursion fail) and change nothing a
// host sees: every object goes once, rules once, in order. In the nested row an object that waits for its
// expunge is taken down by its owner first; in the ring, short enough that nothing waits, the last one's
// death asks again for the first while it is still going.
TEST_F(ObjectExpungeTest, NestedExpungesOfAnyDepthEachGoOnceInOrder) {
    AddRule(1, m_xRule);
    // Made without creation rules: a creation event climbing the nested row would cost its square.
    QuietContext quiet;
    enum class Row { siblings, nested, ring };
    for (Row shape : {Row::siblings, Row::nested, Row::ring}) {
        SCOPED_TRACE(static_cast<int>(shape));
        const bool nested = shape == Row::nested;
        const int length = shape == Row::ring ? 40 : 5000;
        MCObject* root = Make();
        std::vector<MCObject*> row;
        std::vector<long> ids;
        Domino domino;
        for (int i = 0; i < length; ++i) {
            row.push_back(static_cast<MCObject*>(MCFactoryRegistry::CreateItem(
                MCGenericObject::c_sType, nested && i > 0 ? row.back() : root, &quiet, nullptr)));
            ids.push_back(row.back()->GetId());
            row.back()->AddSubscriber(&domino, MCEvent::subscriberObserver);
            if (i > 0)
                domino.m_xNext[ids[i - 1]] = ids[i];
        }
        if (shape == Row::ring)
            domino.m_xNext[ids.back()] = ids.front();
        RuleLog().clear();
        ASSERT_TRUE(RunOnStack(1 << 20, [&] { row[0]->Expunge(true); }));
        EXPECT_EQ(domino.m_xOrder, ids);
        const std::string log = TakeLog();
        long rules = 0;
        for (std::size_t at = log.find("PD@"); at != std::string::npos; at = log.find("PD@", at + 1))
            ++rules;
        EXPECT_EQ(rules, length);
        long alive = 0;
        for (long id : ids)
            alive += MCObject::ResolveId(id) != nullptr;
        EXPECT_EQ(alive, 0);
        ASSERT_NE(MCObject::ResolveId(root->GetId()), nullptr);
        root->Expunge(true);
    }
}

// A subscriber that throws ends the whole expunge where it stands; an object that was waiting stays, and a
// later, unrelated expunge does not take it along.
TEST_F(ObjectExpungeTest, AThrowDropsWhatWaitsForTheExpungeItEnds) {
    MCObject* root = Make();
    std::vector<long> ids;
    Domino domino;
    for (int i = 0; i < 100; ++i) {
        MCObject* object = Make(root);
        ids.push_back(object->GetId());
        object->AddSubscriber(&domino, MCEvent::subscriberObserver);
        if (i > 0)
            domino.m_xNext[ids[i - 1]] = ids[i];
    }
    // The 64th expunge deep asks for the next object, which waits, and then its subscriber throws.
    domino.m_lThrowAt = ids[63];
    EXPECT_THROW(MCObject::ResolveId(ids[0])->Expunge(true), std::runtime_error);
    ASSERT_NE(MCObject::ResolveId(ids[64]), nullptr);

    Make()->Expunge(true);
    EXPECT_NE(MCObject::ResolveId(ids[64]), nullptr);
    EXPECT_NE(MCObject::ResolveId(ids[65]), nullptr);

    // What the throw left half gone still goes with its owner, while the observer is there to hear it.
    domino.m_lThrowAt = 0;
    root->Expunge(true);
    for (long id : ids)
        ASSERT_EQ(MCObject::ResolveId(id), nullptr);
}
