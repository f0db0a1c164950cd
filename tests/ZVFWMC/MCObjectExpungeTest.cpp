// The end of a tree: nested expunges of any depth, ownees made and taken down during it, a throw in the
// middle of one, and the quiet ways of going (a persistence unit's root, a subtree marked to go without
// ceremony).

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/RuleTestSupport.h"

namespace {

// Appends "<tag>@<name of object>" to the log the rules write.
void Note(const char* tag, const MCObject* object) {
    RuleLog() += (RuleLog().empty() ? "" : " ") + std::string(tag) + "@" + ModelTest::NameOf(object);
}

// Logs "PD@<name>" for the PreDestructon rule of any object and "SD@<name>" for each SubjectDestroyed it
// hears.
struct EndWatch : MCObjectSem, MCSubscriber {
    result Fire(mode nMode, MCObject* object, MCObjectSemContext*) override {
        if (nMode == PreDestructon)
            Note("PD", object);
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PreDestructon; }
    void Notify(MCEvent& event) override {
        if (event.GetEventType() == MCEvent::SubjectDestroyed)
            Note("SD", static_cast<MCObject*>(event.GetSubject()));
    }
};

// Expunges the next object of a row whenever one dies, and records the order of the deaths: nested
// expunges as deep as the row is long.
struct Domino : MCSubscriber {
    void Notify(MCEvent& event) override {
        if (event.GetEventType() != MCEvent::SubjectDestroyed)
            return;
        const long dying = static_cast<MCObject*>(event.GetSubject())->GetId();
        m_xOrder.push_back(dying);
        // By id: the next one may have gone already.
        if (MCObject* next = MCObject::ResolveId(m_xNext.count(dying) ? m_xNext[dying] : 0))
            next->Expunge(true);
        if (dying == m_lThrowAt)
            throw std::runtime_error("stop");
    }
    /// Makes `length` objects under `root`, each under the one before when `nested`, watched and each set
    /// to take the next one down; their ids.
    std::vector<long> MakeRow(MCObject* root, int length, bool nested, MCFactoryContext* context) {
        std::vector<long> ids;
        for (MCObject* owner = root; length-- > 0;) {
            auto* object = static_cast<MCObject*>(
                MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, owner, context, nullptr));
            object->AddSubscriber(this, MCEvent::subscriberObserver);
            if (!ids.empty())
                m_xNext[ids.back()] = object->GetId();
            ids.push_back(object->GetId());
            owner = nested ? object : root;
        }
        return ids;
    }

    std::map<long, long> m_xNext;  // id to id
    long m_lThrowAt = 0;
    std::vector<long> m_xOrder;
};

// Expunges `m_pxVictim` once, from the PreDestructon rule of `m_pxAt` (`m_lEvent` 0) or on hearing an event
// of `m_lEvent` as an observer of `m_pxAt`.
struct Striker : EndWatch {
    Striker(long event, const MCObject* at, MCObject* victim)
        : m_lEvent(event), m_pxAt(at), m_pxVictim(victim) {}
    result Fire(mode, MCObject* object, MCObjectSemContext*) override {
        if (m_lEvent == 0 && object == m_pxAt)
            Strike();
        return resultContinue;
    }
    void Notify(MCEvent& event) override {
        if (event.GetEventType() == m_lEvent)
            Strike();
    }
    void Strike() {
        if (MCObject* victim = std::exchange(m_pxVictim, nullptr)) {
            const long id = victim->GetId();
            victim->Expunge(true);
            // An expunge asked for from inside another's end waits for it; any other is gone for everyone
            // at once, even while a delivery still walks the object's list and so keeps its memory.
            RuleLog() += MCObject::ResolveId(id) ? " waits" : " gone";
        }
    }

    long m_lEvent;
    const MCObject* m_pxAt;
    MCObject* m_pxVictim;
};

}  // namespace

class ObjectExpungeTest : public RuleTest {
protected:
    EndWatch m_xWatch;
};

// Deep nesting must cost bounded call depth (a small stack makes a recursion fail) and change nothing a
// host sees: every object goes once, rules once, in order. In the nested row an object that waits for its
// expunge is taken down by its owner first; in the ring, short enough that nothing waits, the last one's
// death asks again for the first while it is still going.
TEST_F(ObjectExpungeTest, NestedExpungesOfAnyDepthEachGoOnceInOrder) {
    AddRule(1, m_xWatch);
    // Made without creation rules: a creation event climbing the nested row would cost its square.
    QuietContext quiet;
    enum class Row { siblings, nested, ring };
    for (Row shape : {Row::siblings, Row::nested, Row::ring}) {
        SCOPED_TRACE(static_cast<int>(shape));
        const int length = shape == Row::ring ? 40 : 5000;
        MCObject* root = Make();
        Domino domino;
        const std::vector<long> ids = domino.MakeRow(root, length, shape == Row::nested, &quiet);
        if (shape == Row::ring)
            domino.m_xNext[ids.back()] = ids.front();
        RuleLog().clear();
        ASSERT_TRUE(RunOnStack(1 << 20, [&] { MCObject::ResolveId(ids[0])->Expunge(true); }));
        EXPECT_EQ(domino.m_xOrder, ids);
        // The log holds the rule's entries only, one '@' each.
        const std::string log = TakeLog();
        const auto alive =
            std::count_if(ids.begin(), ids.end(), [](long id) { return MCObject::ResolveId(id); });
        EXPECT_EQ(std::to_string(std::count(log.begin(), log.end(), '@')) + " rules, " +
                      std::to_string(alive) + " alive, root " + Id(MCObject::ResolveId(root->GetId())),
                  std::to_string(length) + " rules, 0 alive, root " + Id(root));
    }
}

// Hearing the first ownee die, its observer takes down the next one and makes a new one: the owner's end
// still takes every ownee, the late one too (the fixture counts them), each exactly once.
TEST_F(ObjectExpungeTest, OwneesMadeAndTakenDownDuringTheEndAllGoOnce) {
    MCObject* root = Make();
    const int destroyedBefore = TestNode::c_nDestroyed;
    MCObject* first = MakeNode(root);
    static long s_lNext;
    s_lNext = MakeNode(root)->GetId();
    MakeNode(root);
    m_xLog.m_pxOnNotify = [](MCEvent& event) {
        // By id: a dying ownee is already unlinked from its siblings.
        if (MCObject* next = MCObject::ResolveId(s_lNext))
            next->Expunge(true);
        MCFactoryRegistry::CreateItem(
            TestNode::c_sType, static_cast<MCObject*>(event.GetSubject())->GetOwner(0, MCItem::rttiExact),
            nullptr, nullptr);
    };
    first->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    const std::string heard = "SubjectDestroyed(" + Id(first) + ")";
    root->Expunge(true);
    EXPECT_EQ(std::to_string(TestNode::c_nDestroyed - destroyedBefore) + " " + m_xLog.Take(), "4 " + heard);
}

// A subscriber that throws ends the whole expunge where it stands; an object that was waiting stays as it
// was, and a later, unrelated expunge does not take it along.
TEST_F(ObjectExpungeTest, AThrowDropsWhatWaitsForTheExpungeItEnds) {
    MCObject* root = Make();
    Domino domino;
    const std::vector<long> ids = domino.MakeRow(root, 100, false, nullptr);
    // The 64th expunge deep asks for the next object, which waits, and then its subscriber throws.
    domino.m_lThrowAt = ids[63];
    EXPECT_THROW(MCObject::ResolveId(ids[0])->Expunge(true), std::runtime_error);
    MCObject* waiting = MCObject::ResolveId(ids[64]);
    ASSERT_NE(waiting, nullptr);

    Make()->Expunge(true);
    // Nothing of it went, so it is not marked as going and goes when asked on its own.
    EXPECT_TRUE(MCObject::ResolveId(ids[64]) && MCObject::ResolveId(ids[65]) &&
                !waiting->GetFlag(MCItem::itemExpunging));
    waiting->Expunge(true);
    EXPECT_EQ(MCObject::ResolveId(ids[99]), nullptr);

    // What the throw left half gone still goes with its owner, while the observer is there to hear it.
    domino.m_lThrowAt = 0;
    root->Expunge(true);
    EXPECT_EQ(std::count_if(ids.begin(), ids.end(), [](long id) { return MCObject::ResolveId(id); }), 0);
}

// Units that go quietly keep the subscriptions of their references: a holder in the first is gone while
// its target in the second still lists it, and the walk reaches that target before the second is known to
// go quietly. The ends are what they were, and nothing reads the holder gone (an address sanitizer run
// tells). A tree marked to go without ceremony fires nothing at all.
TEST_F(ObjectExpungeTest, ReferencesBetweenQuietUnitsLeaveNothingToReadAhead) {
    AddRule(1, m_xWatch);
    enum Way { units, marked, ordinary };
    for (Way way : {units, marked, ordinary}) {
        SCOPED_TRACE(way);
        MCObject* root = Named("R");
        MCObject* first = Named("F", root, Crate::c_sType);
        MCObject* holder = Named("H", first, Box::c_sType);
        std::vector<MCObject*> ends{first, holder, Named("S", root, Crate::c_sType)};
        for (const char* name : {"T", "U", "V"})
            ends.push_back(Named(name, ends[2], Box::c_sType));
        Link(holder, MCCodes::pReference, ends[3]);
        for (MCObject* object : ends)
            object->AddSubscriber(&m_xWatch, MCEvent::subscriberObserver);
        RuleLog().clear();
        Crate::c_bUnit = way == units;
        root->SetFlag(MCItem::itemTreeExpunge, way == marked);
        root->Expunge(true);
        Crate::c_bUnit = false;
        EXPECT_EQ(TakeLog(), way == units ? "PD@R PD@F PD@S"
                             : way == marked
                                 ? ""
                                 : "PD@R PD@F SD@F PD@H SD@H PD@S SD@S PD@T SD@T PD@U SD@U PD@V SD@V");
    }
}

// A rule or observer that expunges an object while that object's end, or a delivery on it, is under way:
// an owner above a dying object waits until that end is done, and an object whose own delivery is running
// keeps its memory until the delivery is over. Every object goes once.
TEST_F(ObjectExpungeTest, AnObjectExpungedFromItsOwnEndOrDeliveryGoesOnceAfterIt) {
    const struct {
        const char* name;
        long event;        // heard by the striker as an observer of `at`; 0: its PreDestructon rule
        char at;           // R, M under it, or L under M beside S
        char victim;       // what the striker expunges
        const char* act;   // "-X" expunges X; "set", "null" edit L's integer
        const char* ends;  // the log (the striker says "waits" or "gone" after its expunge), then who lives
    } rows[] = {
        {"rule of the leaf takes its owner", 0, 'L', 'M', "-L", "PD@L PD@M waits SD@L SD@M PD@S SD@S; R"},
        {"observer of the leaf takes its owner", MCEvent::SubjectDestroyed, 'L', 'M', "-L",
         "PD@L SD@L PD@M waits SD@M PD@S SD@S; R"},
        {"rule of an ownee takes the root above", 0, 'L', 'R', "-M",
         "PD@M SD@M PD@L PD@R waits SD@L PD@S SD@S SD@R; "},
        {"observer takes the object it hears set", MCEvent::PropertySet, 'L', 'L', "set",
         "PD@L SD@L gone; MRS"},
        {"observer of the owner takes it as the edit climbs", MCEvent::PropertySet, 'M', 'M', "set",
         "PD@M SD@M PD@L SD@L PD@S SD@S gone; R"},
        {"observer of the root takes the level just passed", MCEvent::PropertySet, 'R', 'M', "set",
         "PD@M SD@M PD@L SD@L PD@S SD@S gone; R"},
        {"observer of the root takes the object it hears nulled", MCEvent::PropertyNulled, 'R', 'L', "null",
         "PD@L SD@L gone; MRS"},
    };
    AddRule(MCCodes::tAbstractObject, m_xWatch);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::map<char, MCObject*> objects{{'R', Named("R")}};
        objects['M'] = Named("M", objects['R']);
        for (const char* name : {"L", "S"})
            objects[name[0]] = Named(name, objects['M']);
        objects['R']->SetFlag(MCItem::itemUndeletable, false);
        SetLong(objects['L'], MCCodes::pInteger, 1, c_lAdd, false);
        std::map<char, long> ids;
        for (auto& [name, object] : objects) {
            object->AddSubscriber(&m_xWatch, MCEvent::subscriberObserver);
            ids[name] = object->GetId();
        }
        Striker striker(row.event, objects[row.at], objects[row.victim]);
        AddRule(MCCodes::tAbstractObject, striker);
        objects[row.at]->AddSubscriber(&striker, MCEvent::subscriberObserver);
        RuleLog().clear();
        MCSPropertyAccessorT<long> value(2);
        if (row.act[0] == '-')
            objects[row.act[1]]->Expunge(true);
        else if (row.act[0] == 's')
            objects['L']->SetProperty(MCCodes::pInteger, value, c_lReplace);
        else
            objects['L']->NullProperty(MCCodes::pInteger, value);
        std::string alive;
        for (auto& [name, id] : ids)
            alive += MCObject::ResolveId(id) ? std::string(1, name) : "";
        EXPECT_EQ(TakeLog() + "; " + alive, row.ends);
        if (MCObject* at = MCObject::ResolveId(ids[row.at]))
            at->RemoveSubscriber(&striker, MCEvent::subscriberObserver);
    }
}
