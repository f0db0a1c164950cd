// The notification directory: the search from a type towards the root, shadowing by an event's own
// handler, duplicates, the ancestor links made through contexts and aliases, and events climbing the
// owner tree only for types that registered.

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "support/ModelTestSupport.h"

namespace {

// A reaction that writes its name and answers as told.
class Recording : public MCNotification {
public:
    Recording(const char* name, result answer) : m_pcName(name), m_eAnswer(answer) {}
    result Notify(MCObject* /*object*/, MCEvent& /*event*/) override {
        c_sLog += (c_sLog.empty() ? "" : " ") + std::string(m_pcName);
        return m_eAnswer;
    }
    static inline std::string c_sLog;

private:
    const char* m_pcName;
    result m_eAnswer;
};

constexpr short c_sBase = 9101;
constexpr short c_sMiddle = 9102;
constexpr short c_sLeaf = 9103;
constexpr short c_sAlias = 9110;

Recording g_xBaseDefault("base-default", MCNotification::resultHandled);
Recording g_xBaseOn4("base-4", MCNotification::resultHandled);
Recording g_xMiddleOn4("middle-4", MCNotification::resultNotHandled);
Recording g_xMiddleDefault("middle-default", MCNotification::resultHandled);
Recording g_xLeafOn1("leaf-1", MCNotification::resultHandled);

// An object class that registers no notifications of its own: its type has no entry.
class Silent : public MCObject {
public:
    static constexpr short c_sType = 9120;
    Silent(MCObject* owner, MCFactoryContext* context) : MCObject(c_sType, owner, context) {}
};

class NotificationTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        static bool registered = false;
        if (registered)
            return;
        registered = true;
        MCNotificationDirectory* directory = MCNotificationDirectory::GetInstance();
        directory->RegisterNotification(c_sBase, 0, 0, &g_xBaseDefault);
        directory->RegisterNotification(c_sBase, 0, MCEvent::SubjectDestroyed, &g_xBaseOn4);
        directory->RegisterNotification(c_sMiddle, c_sBase, MCEvent::SubjectDestroyed, &g_xMiddleOn4);
        directory->RegisterNotification(c_sMiddle, c_sBase, 0, &g_xMiddleDefault);
        directory->RegisterNotification(c_sLeaf, c_sMiddle, MCEvent::PropertySet, &g_xLeafOn1);
        new MCFactoryT<Silent, MCObject>(Silent::c_sType, "Silent", 1, 0, false, false);
        MCFactoryRegistry::RegisterAliasObject(c_sAlias, "NodeAlias", 0, TestNode::c_sType, false, false);
    }

    // What the directory does for an event of `eventType` on an object of `type`: the reactions in
    // order, then the result.
    std::string Ask(short type, long eventType) {
        MCObject* object = Make();
        MCEventUser holder(MCEvent::Instantiate(eventType, object, MCEvent::subscriberObserver));
        Recording::c_sLog.clear();
        const auto result = MCNotificationDirectory::GetInstance()->Notify(type, object, holder.GetEvent());
        return Recording::c_sLog + " -> " + std::to_string(result);
    }
};

}  // namespace

TEST_F(NotificationTest, SearchRunsTowardsTheRootAndAnEventsOwnHandlerShadowsTheDefault) {
    const struct {
        short sType;
        long lEvent;
        const char* pcExpected;
    } cases[] = {
        {c_sLeaf, MCEvent::PropertySet, "leaf-1 -> 1"},
        // The middle's handler for 4 answers 0: its default is not asked, the base is.
        {c_sLeaf, MCEvent::SubjectDestroyed, "middle-4 base-4 -> 1"},
        {c_sLeaf, MCEvent::PropertyNulled, "middle-default -> 1"},
        {c_sMiddle, MCEvent::PropertySet, "middle-default -> 1"},
        {c_sBase, MCEvent::ReferenceCleared, "base-default -> 1"},
        // No entry: no reaction, not even the root type's.
        {9199, MCEvent::PropertySet, " -> 0"},
    };
    for (const auto& rCase : cases) {
        SCOPED_TRACE(std::to_string(rCase.sType) + "/" + std::to_string(rCase.lEvent));
        EXPECT_EQ(Ask(rCase.sType, rCase.lEvent), rCase.pcExpected);
    }

    // A second registration is refused and the reaction still runs once.
    EXPECT_FALSE(MCNotificationDirectory::GetInstance()->RegisterNotification(
        c_sLeaf, c_sMiddle, MCEvent::PropertySet, &g_xLeafOn1));
    EXPECT_FALSE(MCNotificationDirectory::GetInstance()->RegisterNotification(c_sLeaf, 0, 7, nullptr));
    EXPECT_EQ(Ask(c_sLeaf, MCEvent::PropertySet), "leaf-1 -> 1");
}

TEST_F(NotificationTest, EntriesChainThroughTheContextAndAliasesFollowTheirConcreteType) {
    MCNotificationDirectory* directory = MCNotificationDirectory::GetInstance();
    MCFactoryContext context;
    EXPECT_FALSE(MCObject::RegisterNotificationObject(1, nullptr, true));
    EXPECT_FALSE(MCObject::RegisterNotificationObject(1, &context, true));  // there since Initialize
    EXPECT_TRUE(MCObject::RegisterNotificationObject(9130, &context, true));
    EXPECT_FALSE(MCObject::RegisterNotificationObject(9130, 1));
    EXPECT_TRUE(MCObject::RegisterNotification(g_xLeafOn1, 9131, MCEvent::PropertySet, &context, false));
    EXPECT_EQ(context.GetAncestorType(MCFactoryContext::userNotifications), 9130);
    MCNotificationEntry* entry = directory->CreateEntry(9131, 0);
    ASSERT_NE(entry->GetAncestor(), nullptr);
    EXPECT_EQ(entry->GetAncestor(), directory->CreateEntry(9130, 0));
    EXPECT_EQ(entry->GetAncestor()->GetAncestor(), directory->CreateEntry(1, 0));

    // The alias takes TestNode's entry as ancestor, whatever its class level names.
    MCNotificationEntry* alias = directory->CreateEntry(c_sAlias, MCGenericObject::c_sType);
    EXPECT_EQ(alias->GetAncestor(), directory->CreateEntry(TestNode::c_sType, 0));
}

TEST_F(NotificationTest, EditsClimbToObserversButNotToReferenceHolders) {
    // An edit two levels down reaches the observers of every owner above it, through registered owner
    // types; owners' reference-holder subscriptions and a type without an entry stop it.
    const struct {
        const char* pcName;
        short sMiddleType;
        bool bClimbs;
    } cases[] = {
        {"generic owner", MCGenericObject::c_sType, true},
        {"host owner", TestNode::c_sType, true},
        {"owner without entry", Silent::c_sType, false},
    };
    for (const auto& rCase : cases) {
        SCOPED_TRACE(rCase.pcName);
        MCObject* root = Make();
        MCObject* middle = Make(root, rCase.sMiddleType);
        MCObject* leaf = Make(middle);
        EventLog observer;
        EventLog holder;
        root->AddSubscriber(&observer, MCEvent::subscriberObserver);
        root->AddSubscriber(&holder, MCEvent::subscriberReferenceHolder);
        middle->AddSubscriber(&holder, MCEvent::subscriberReferenceHolder);
        ASSERT_TRUE(SetLong(leaf, 87, 4));
        const std::string set = "PropertySet(" + std::to_string(leaf->GetId()) + ",87,0)";
        EXPECT_EQ(observer.Take(), rCase.bClimbs ? set : "");
        EXPECT_EQ(holder.Take(), "");

        // A death is told to the direct subscribers only.
        leaf->Expunge(true);
        EXPECT_EQ(observer.Take(), "");
        root->RemoveSubscriber(&observer, MCEvent::subscriberObserver);
        root->RemoveSubscriber(&holder, MCEvent::subscriberReferenceHolder);
        middle->RemoveSubscriber(&holder, MCEvent::subscriberReferenceHolder);
    }
}

TEST_F(NotificationTest, AClimbIsDepthFirstInSubscriberOrder) {
    // Each subject tells its subscribers in ascending address, and an owner's whole climb comes at the
    // owner's place in that order, before the ownee's later subscribers. The chain is deep enough for the
    // far end of the climb to be queued rather than called, which must not change the order.
    struct Named : MCSubscriber {
        Named(std::string* log, char name) : m_psLog(log), m_cName(name) {}
        void Notify(MCEvent& /*event*/) override { *m_psLog += m_cName; }
        std::string* m_psLog;
        char m_cName;
    };
    std::string log;
    std::vector<std::unique_ptr<Named>> observers;
    std::map<MCSubject*, std::vector<std::pair<void*, char>>> subscribers;  // '^' marks the owner
    std::vector<MCObject*> chain{Make()};
    for (int i = 1; i < 200; ++i) {
        chain.push_back(Make(chain.back()));
        subscribers[chain.back()].push_back({chain[chain.size() - 2], '^'});
    }
    const std::pair<MCObject*, const char*> placed[] = {
        {chain[199], "abc"}, {chain[150], "de"}, {chain[100], "gh"}, {chain[20], "ij"}, {chain[0], "f"}};
    for (const auto& [object, names] : placed) {
        for (const char* name = names; *name; ++name) {
            observers.push_back(std::make_unique<Named>(&log, *name));
            object->AddSubscriber(observers.back().get(), MCEvent::subscriberObserver);
            subscribers[object].push_back({observers.back().get(), *name});
        }
    }
    std::string expected;
    std::function<void(MCSubject*)> climb = [&](MCSubject* subject) {
        auto entries = subscribers[subject];
        std::sort(entries.begin(), entries.end());
        for (const auto& [address, name] : entries) {
            if (name == '^')
                climb(static_cast<MCObject*>(address));
            else
                expected += name;
        }
    };
    climb(chain[199]);
    ASSERT_TRUE(SetLong(chain[199], 87, 4));
    EXPECT_EQ(log, expected);
    for (const auto& [object, names] : placed)
        for (const auto& observer : observers)
            object->RemoveSubscriber(observer.get(), MCEvent::subscriberObserver);
}

TEST_F(NotificationTest, EventsClimbAChainOfAnyDepth) {
    // 10^5 levels: an edit at the bottom reaches the root's observer without a call per level. The chain
    // is made quietly, as a creation announced at depth d would climb d levels.
    MCObject* root = Make();
    MCObject* last = MakeChain(root, 100000);
    root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    ASSERT_TRUE(SetLong(last, 87, 4));
    EXPECT_EQ(m_xLog.Take(), "PropertySet(" + std::to_string(last->GetId()) + ",87,0)");
    root->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
}

namespace {

// An owner class whose Notify is its own: it logs, then reacts as every object does.
class Eavesdropper : public MCObject {
public:
    static constexpr short c_sType = 9140;
    static inline std::string* c_psLog = nullptr;
    void Notify(MCEvent& event) override {
        if (c_psLog)
            *c_psLog += " own-notify(" + std::to_string(event.GetEventType()) + ")";
        MCObject::Notify(event);
    }
    Eavesdropper(MCObject* owner, MCFactoryContext* context) : MCObject(c_sType, owner, context) {
        RegisterLevel(c_sType, context);
    }
};

// Logs "<event type>@<place>" of each event it hears into a shared log, the place being the subject's
// index among the tree's objects ("new" for one made since); with no log it hears and says nothing, and
// subscribed on an object it forces every event there to be made and to climb the whole way.
struct PlaceLog : MCSubscriber {
    void Notify(MCEvent& event) override {
        if (!m_psLog)
            return;
        const auto at = std::find(m_pxPlaces->begin(), m_pxPlaces->end(), event.GetSubject());
        *m_psLog += " " + std::to_string(event.GetEventType()) + "@" +
                    (at == m_pxPlaces->end() ? "new" : std::to_string(at - m_pxPlaces->begin()));
    }
    std::string* m_psLog = nullptr;
    const std::vector<MCObject*>* m_pxPlaces = nullptr;
};

}  // namespace

TEST_F(NotificationTest, EventsNobodyCanHearAreSkippedWithoutChangingWhatAnyoneHears) {
    // The same edits on the same tree twice: first as it is, where most events have nobody to reach
    // and most owners only pass events on; then with a silent observer on every object and a reaction
    // on every type, which force the full climb everywhere. The hosts hear the same in the same order.
    static bool registered = false;
    if (!registered) {
        new MCFactoryT<Eavesdropper, MCObject>(Eavesdropper::c_sType, "Eavesdropper", 1, 0, false, false);
        registered = true;
    }
    std::string log;
    Eavesdropper::c_psLog = &log;
    auto run = [&](bool forced) {
        // root - spy (own Notify) - one; root - watched (observer) - w1 - one; root - quiet (a reference
        // holder) - one.
        MCObject* root = Make();
        MCObject* spy = Make(root, Eavesdropper::c_sType);
        MCObject* watched = Make(root);
        MCObject* w1 = Make(watched);
        MCObject* quiet = Make(root);
        const std::vector<MCObject*> all{root, spy, Make(spy), watched, w1, Make(w1), quiet, Make(quiet)};
        PlaceLog observer;
        observer.m_psLog = &log;
        observer.m_pxPlaces = &all;
        PlaceLog holder;
        PlaceLog forcing;
        quiet->AddSubscriber(&holder, MCEvent::subscriberReferenceHolder);
        watched->AddSubscriber(&observer, MCEvent::subscriberObserver);
        // Logs elsewhere and lets the search go on to the default reaction.
        static Recording late("late", MCNotification::resultNotHandled);
        if (forced) {
            for (MCObject* object : all)
                object->AddSubscriber(&forcing, MCEvent::subscriberObserver);
            for (short type : {MCGenericObject::c_sType, Eavesdropper::c_sType})
                for (long event : {MCEvent::PropertySet, MCEvent::PropertyNulled, MCEvent::ObjectCreated})
                    MCNotificationDirectory::GetInstance()->RegisterNotification(type, 0, event, &late);
        }
        log.clear();
        for (std::size_t i = 0; i < all.size(); ++i) {
            log += " [" + std::to_string(i) + "]";
            SetLong(all[i], 87, static_cast<long>(i));
            MCSPropertyAccessorT<long> nulled;
            all[i]->NullProperty(87, nulled);
            Make(all[i]);
        }
        for (MCObject* object : all)
            object->RemoveSubscriber(&forcing, MCEvent::subscriberObserver);
        watched->RemoveSubscriber(&observer, MCEvent::subscriberObserver);
        quiet->RemoveSubscriber(&holder, MCEvent::subscriberReferenceHolder);
        return log;
    };
    const std::string plain = run(false);
    const std::string forced = run(true);
    EXPECT_EQ(forced, plain);
    EXPECT_EQ(plain,
              " [0] [1] own-notify(3) [2] own-notify(1) own-notify(2) own-notify(3) [3] 1@3 2@3 3@new"
              " [4] 1@4 2@4 3@new [5] 1@5 2@5 3@new [6] [7]");
    Eavesdropper::c_psLog = nullptr;
}

TEST_F(NotificationTest, AnEventIsHeardWhenAnythingOnItsClimbCouldReact) {
    // Of a type no other test gives reactions, so that only this test's registration counts.
    MCObject* root = MakeNode();
    MCObject* middle = MakeNode(root);
    MCObject* leaf = MakeNode(middle);
    constexpr unsigned mask = MCEvent::subscriberOwner | MCEvent::subscriberObserver;
    PlaceLog listener;
    const struct {
        const char* pcName;
        MCObject* pxOn;
        unsigned nType;
        bool bHeard;
    } cases[] = {
        {"nobody", nullptr, 0, false},
        {"reference holder on the middle", middle, MCEvent::subscriberReferenceHolder, false},
        // The next case revives this stale entry as an observer: its new bit must count.
        {"reference holder on the leaf", leaf, MCEvent::subscriberReferenceHolder, false},
        {"observer on the leaf", leaf, MCEvent::subscriberObserver, true},
        {"observer on the root", root, MCEvent::subscriberObserver, true},
        {"owner-type subscriber on the root", root, MCEvent::subscriberOwner, true},
    };
    for (const auto& rCase : cases) {
        SCOPED_TRACE(rCase.pcName);
        if (rCase.pxOn)
            rCase.pxOn->AddSubscriber(&listener, rCase.nType);
        EXPECT_EQ(leaf->IsHeard(MCEvent::PropertySet, mask), rCase.bHeard);
        if (rCase.pxOn)
            rCase.pxOn->RemoveSubscriber(&listener, 0xFFFF);
    }
    // A reaction registered on the owners' type makes their events heard from then on.
    EXPECT_FALSE(leaf->IsHeard(MCEvent::ObjectCreated, mask));
    static Recording reaction("node-3", MCNotification::resultNotHandled);
    MCNotificationDirectory::GetInstance()->RegisterNotification(TestNode::c_sType, 0, MCEvent::ObjectCreated,
                                                                 &reaction);
    EXPECT_TRUE(leaf->IsHeard(MCEvent::ObjectCreated, mask));
    EXPECT_FALSE(leaf->IsHeard(MCEvent::PropertySet, mask));
}

namespace {

// An owner type of this test alone, for the reactions it registers late; and a class whose base edits an
// ownee before the class with its own Notify is done.
struct Relay : MCObject {
    Relay(MCObject* owner, MCFactoryContext* context, short type = 9150) : MCObject(type, owner, context) {
        RegisterLevel(type, context);
    }
};
struct Builder : Relay {
    Builder(MCObject* owner, MCFactoryContext* context) : Relay(owner, context, 9152) {
        // Often enough for climbs to leave memos, if they could: on this level, then on the child's.
        for (long i = 0; i < 16; ++i) {
            MCSPropertyAccessorT<long> value(i);
            SetProperty(87, value, 1);
        }
        m_pxChild = static_cast<MCObject*>(
            MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, this, nullptr, nullptr));
        for (long i = 0; i < 16; ++i) {
            MCSPropertyAccessorT<long> value(i);
            m_pxChild->SetProperty(87, value, 1);
        }
    }
    MCObject* m_pxChild;
};
struct Heeding : Builder {
    Heeding(MCObject* owner, MCFactoryContext* context) : Builder(owner, context) {}
    void Notify(MCEvent& event) override {
        c_sLog += std::to_string(event.GetEventType());
        MCObject::Notify(event);
    }
    static inline std::string c_sLog;
};

}  // namespace

TEST_F(NotificationTest, RememberedAudibilityFollowsEveryChangeThatCouldAlterIt) {
    // Two trees root - a - b - {leaf, sibling}: made through the registry, where climbs leave memos, and by
    // hand, where no memo may rely on an owner. After each step, done to both, the answers for the sibling
    // (whose climb meets the leaf's memos) and the leaf must match, asked a few rounds so memos are left,
    // and so must those of a child then born under the leaf.
    static const bool registered = new MCFactoryT<Relay, MCObject>(9150, "Relay", 1, 0, false, false) &&
                                   new MCFactoryT<Heeding, MCObject>(9152, "Heeding", 1, 0, false, false);
    (void)registered;
    std::vector<MCObject*> made{Make(nullptr, 9150)}, hand{new Relay(nullptr, nullptr)};
    m_xRoots.emplace_back(hand[0], hand[0]->GetId());
    for (int i : {0, 1, 2, 2}) {
        made.push_back(Make(made[i], 9150));
        hand.push_back(new Relay(hand[i], nullptr));
    }
    PlaceLog one;
    std::vector<PlaceLog> many(17);
    static Recording late("late", MCNotification::resultNotHandled);
    using T = std::vector<MCObject*>;  // root, a, b, leaf, sibling
    const std::function<void(const T&)> steps[] = {
        [&](const T& t) { t[1]->AddSubscriber(&one, MCEvent::subscriberObserver); },
        [&](const T& t) { t[1]->RemoveSubscriber(&one, 0); },  // stale, still observer
        [&](const T& t) { t[1]->AddSubscriber(&one, MCEvent::subscriberReferenceHolder); },  // revived
        [&](const T& t) { t[1]->RemoveSubscriber(&one, 0xFFFF); },
        [&](const T& t) {
            for (PlaceLog& each : many)
                t[0]->AddSubscriber(&each, MCEvent::subscriberReferenceHolder);
        },
        [&](const T& t) {
            for (PlaceLog& each : many)
                t[0]->RemoveSubscriber(&each, 0xFFFF);
        },
        [&](const T& t) {
            if (t == made)
                MCNotificationDirectory::GetInstance()->RegisterNotification(9150, 0, MCEvent::PropertyNulled,
                                                                             &late);
        },
        [](const T& t) { t[1]->SetType(Silent::c_sType); },
        [](const T& t) { t[1]->SetType(9150); },
        // The leaf's own answers stay; those of what is born under it do not.
        [](const T& t) { t[3]->SetType(Silent::c_sType); },
        [](const T& t) { t[3]->SetType(9150); },
    };
    constexpr unsigned mask = MCEvent::subscriberOwner | MCEvent::subscriberObserver;
    auto answers = [&](const T& t) {
        std::string bits;
        for (int round = 0; round < 4; ++round) {
            bits = " |";
            SetLong(t[3], 87, round);
            for (MCObject* object : {t[4], t[3]})
                for (long event : {MCEvent::PropertySet, MCEvent::PropertyNulled, MCEvent::ObjectCreated})
                    bits += object->IsHeard(event, mask) ? '1' : '0';
        }
        // Through the registry the child starts from the leaf's memo; then it is observed.
        MCObject* child = t == made ? Make(t[3], 9150) : new Relay(t[3], nullptr);
        for (bool observed : {false, true}) {
            if (observed)
                child->AddSubscriber(&one, MCEvent::subscriberObserver);
            for (long event : {MCEvent::PropertySet, MCEvent::PropertyNulled, MCEvent::ObjectCreated})
                bits += child->IsHeard(event, mask) ? '1' : '0';
        }
        child->RemoveSubscriber(&one, 0xFFFF);
        return bits;
    };
    std::string trace = answers(made);
    for (const auto& step : steps) {
        step(made);
        step(hand);
        const std::string now = answers(made);
        trace += now;
        EXPECT_EQ(now, answers(hand)) << trace;
    }
    EXPECT_EQ(trace,
              " |000000000111 |111111111111 |000000000111 |111111111111 |000000000111 |111111111111"
              " |000000000111 |010010010111 |111111111111 |010010010111 |010010111111 |010010010111");

    // An owner whose class gets its own Notify only after its base class has edited an ownee.
    for (Heeding* owner : {static_cast<Heeding*>(Make(made[2], 9152)), new Heeding(hand[2], nullptr)}) {
        EXPECT_TRUE(owner->m_pxChild->IsHeard(MCEvent::PropertySet, mask));
        SetLong(owner->m_pxChild, 87, 16);
    }
    EXPECT_EQ(Heeding::c_sLog, "11");
}

namespace {

// A type with an entry of its own and only the reactions every object has.
class Keeper : public MCObject {
public:
    static constexpr short c_sType = 9160;
    Keeper(MCObject* owner, MCFactoryContext* context) : MCObject(c_sType, owner, context) {
        RegisterLevel(c_sType, context);
    }
};

}  // namespace

TEST_F(NotificationTest, ADeathReachesTheCleanUpAlikeDirectlyOrThroughTheSearch) {
    // The same death twice: the holders' type answers it with the clean-up alone, called directly; then a
    // reaction registered since lets the search run on to it. A single reference and a list lose the
    // target; the owner's list, without it, hears of the death through a change that removes nothing.
    static bool registered = false;
    if (!registered)
        new MCFactoryT<Keeper, MCObject>(Keeper::c_sType, "Keeper", 1, 0, false, false);
    registered = true;
    static Recording late("late", MCNotification::resultNotHandled);
    auto run = [this] {
        const std::vector<MCObject*> places{Make(nullptr, Keeper::c_sType), Make(nullptr, Keeper::c_sType),
                                            Make(nullptr, Keeper::c_sType)};
        MCObject* target = Make(places[0]);
        ZVTSList<MCObject*> targets, others;
        targets.Append(target);
        others.Append(Make());
        MCSRefAccessor single(target);
        MCVRefAccessor list(&targets), elsewhere(&others);
        places[0]->SetProperty(MCCodes::pReferenceList, elsewhere, MCPropertyAccessor::accessAdd);
        places[1]->SetProperty(MCCodes::pReference, single, MCPropertyAccessor::accessAdd);
        places[2]->SetProperty(MCCodes::pReferenceList, list, MCPropertyAccessor::accessAdd);
        std::string logs[3];
        PlaceLog observers[3];
        for (int i = 0; i < 3; ++i) {
            observers[i].m_psLog = &logs[i];
            observers[i].m_pxPlaces = &places;
            places[i]->AddSubscriber(&observers[i], MCEvent::subscriberObserver);
        }
        Recording::c_sLog.clear();
        target->Expunge(true);
        std::string trace = Recording::c_sLog;
        for (int i = 0; i < 3; ++i) {
            MCVRefRawAccessor entries;
            MCSRefRawAccessor value;
            places[i]->GetProperty(MCCodes::pReferenceList, entries);
            places[i]->GetProperty(MCCodes::pReference, value);
            trace += "|" + logs[i] + " " + std::to_string(entries.GetList()->Entries()) +
                     (value.GetValue() ? "+" : "-");
            places[i]->RemoveSubscriber(&observers[i], MCEvent::subscriberObserver);
        }
        return trace;
    };
    const std::string direct = run();
    MCNotificationDirectory::GetInstance()->RegisterNotification(Keeper::c_sType, 0,
                                                                 MCEvent::SubjectDestroyed, &late);
    EXPECT_EQ(run(), "late late late" + direct);
    EXPECT_EQ(direct, "| 1@0 5@0 1-| 1@1 5@1 0-| 1@2 5@2 0-");
}

namespace {

// Owners alike but for Notify: Straight keeps MCObject's, which deliveries take without the virtual hop;
// Detour's calls MCObject's, reached only through the hop, and counts the edits it hears.
struct Straight : MCObject {
    static constexpr short c_sType = 9170;
    Straight(MCObject* owner, MCFactoryContext* context, short type = c_sType)
        : MCObject(type, owner, context) {
        RegisterLevel(type, context);
    }
};
struct Detour : Straight {
    static constexpr short c_sType = 9171;
    Detour(MCObject* owner, MCFactoryContext* context) : Straight(owner, context, c_sType) {}
    void Notify(MCEvent& event) override {
        c_nEdits += event.GetEventType() == MCEvent::PropertySet;
        MCObject::Notify(event);
    }
    static inline int c_nEdits = 0;
};

// Logs its name, the event type and the event's holders among the reactions, and runs its action once.
struct Tracer : MCSubscriber {
    explicit Tracer(char name) : m_cName(name) {}
    void Notify(MCEvent& event) override {
        Recording::c_sLog += std::string(" ") + m_cName + std::to_string(event.GetEventType()) + "#" +
                             std::to_string(event.GetReferenceCount());
        if (auto act = std::exchange(m_xAct, nullptr))
            act();
    }
    char m_cName;
    std::function<void()> m_xAct;
};

}  // namespace

TEST_F(NotificationTest, AnOwnerThatKeepsTheCommonNotifyIsPassedEventsWithoutItYetNobodyCanTell) {
    static const bool registered =
        new MCFactoryT<Straight, MCObject>(Straight::c_sType, "Straight", 1, 0, false, false) &&
        new MCFactoryT<Detour, MCObject>(Detour::c_sType, "Detour", 1, 0, false, false);
    (void)registered;
    // Each case on a chain of Straight and one of Detour, edited twice at the leaf, tracer r on the root, m
    // in the middle, l on the leaf: on the stack, tracers sort after every object, so both see one order.
    static Recording late("late", MCNotification::resultNotHandled);
    using Chain = std::vector<MCObject*>;
    // In one array, so that their addresses, and with them the order in which a subject serves them, are
    // the same in every build: l before x.
    Tracer tracers[] = {Tracer('r'), Tracer('m'), Tracer('l'), Tracer('x')};
    Tracer &r = tracers[0], &m = tracers[1], &l = tracers[2], &x = tracers[3];
    const struct {
        const char* pcName;
        int nLevels;
        std::function<void(const Chain&, short)> act;  // m's action, given the chain and its type
        const char* pcExpected;
    } cases[] = {
        {"plain climb", 4, nullptr, " r1#8 m1#4 l1#2 | r1#8 m1#4 l1#2 |"},
        {"deeper than the calls go", 100, nullptr, " r1#164 m1#100 l1#2 | r1#164 m1#100 l1#2 |"},
        {"subscriber added on the way", 4,
         [&](const Chain& c, short) { c.back()->AddSubscriber(&x, MCEvent::subscriberObserver); },
         " r1#8 m1#4 l1#2 x1#2 | r1#8 m1#4 l1#2 x1#2 |"},
        {"subscriber removed on the way", 4,
         [&](const Chain& c, short) { c.back()->RemoveSubscriber(&l, 0); }, " r1#8 m1#4 | r1#8 m1#4 |"},
        // Last: the reaction stays registered on both types.
        {"reaction registered on the way", 4,
         [&](const Chain&, short type) {
             MCNotificationDirectory::GetInstance()->RegisterNotification(type, 0, MCEvent::PropertySet,
                                                                          &late);
         },
         " r1#8 m1#4 l1#2 | late late late r1#8 m1#4 l1#2 |"},
    };
    for (const auto& rCase : cases) {
        SCOPED_TRACE(rCase.pcName);
        std::string traces[2];
        for (short type : {Straight::c_sType, Detour::c_sType}) {
            Chain chain{Make(nullptr, type)};
            while (static_cast<int>(chain.size()) < rCase.nLevels)
                chain.push_back(Make(chain.back(), type));
            chain.front()->AddSubscriber(&r, MCEvent::subscriberObserver);
            chain[chain.size() / 2]->AddSubscriber(&m, MCEvent::subscriberObserver);
            chain.back()->AddSubscriber(&l, MCEvent::subscriberObserver);
            m.m_xAct = [&] {
                if (rCase.act)
                    rCase.act(chain, type);
            };
            Recording::c_sLog.clear();
            for (long value : {1, 2}) {
                SetLong(chain.back(), 87, value);
                Recording::c_sLog += " |";
            }
            traces[type == Detour::c_sType] = Recording::c_sLog;
            m.m_xAct = nullptr;
            for (MCObject* object : chain)
                for (Tracer* tracer : {&r, &m, &l, &x})
                    object->RemoveSubscriber(tracer, 0xFFFF);
        }
        EXPECT_EQ(traces[0], rCase.pcExpected);
        EXPECT_EQ(traces[1], traces[0]);
    }
    // The detour was taken on every hop of every edit's climb: 3 + 99 + 3 + 3 + 3 hops, twice each.
    EXPECT_EQ(Detour::c_nEdits, 2 * (3 + 99 + 3 + 3 + 3));
}
