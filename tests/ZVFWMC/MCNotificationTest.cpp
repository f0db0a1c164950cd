// The notification directory: the search from a type towards the root, shadowing by an event's own
// handler, duplicates, the ancestor links made through contexts and aliases, and events climbing the
// owner tree only for types that registered.

#include <algorithm>
#include <cctype>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "support/ModelTestSupport.h"

namespace {

// A reaction that writes its name and answers as told.
struct Recording : MCNotification {
    explicit Recording(const char* name, result answer = resultHandled) : m_pcName(name), m_eAnswer(answer) {}
    result Notify(MCObject* /*object*/, MCEvent& /*event*/) override {
        c_sLog += (c_sLog.empty() ? "" : " ") + std::string(m_pcName);
        return m_eAnswer;
    }
    static inline std::string c_sLog;
    const char* m_pcName;
    result m_eAnswer;
};

constexpr short c_sBase = 9101, c_sMiddle = 9102, c_sLeaf = 9103, c_sAlias = 9110;

Recording g_xBaseDefault("base-default"), g_xBaseOn4("base-4"), g_xMiddleDefault("middle-default"),
    g_xLeafOn1("leaf-1");
// The middle's handler for 4 lets the search go on; so does a reaction registered late on a type, to the
// default one.
Recording g_xMiddleOn4("middle-4", MCNotification::resultNotHandled),
    g_xLate("late", MCNotification::resultNotHandled);

// An object class that registers no notifications of its own: its type has no entry.
struct Silent : MCObject {
    static constexpr short c_sType = 9120;
    Silent(MCObject* owner, MCFactoryContext* context) : MCObject(c_sType, owner, context) {}
};

// An object class of type T with an entry of its own and only the reactions every object has; its Notify
// is MCObject's, which deliveries take without the virtual hop.
template <short T>
struct Host : MCObject {
    static constexpr short c_sType = T;
    Host(MCObject* owner, MCFactoryContext* context, short type = T) : MCObject(type, owner, context) {
        RegisterLevel(type, context);
    }
};

// Host<T>, or Base, with a Notify of its own, reached only through the hop: it runs c_xHook, then reacts as
// every object does.
template <short T, class Base = Host<T>>
struct Hooked : Base {
    using Base::Base;
    void Notify(MCEvent& event) override {
        if (c_xHook)
            c_xHook(event);
        MCObject::Notify(event);
    }
    static inline std::function<void(MCEvent&)> c_xHook;
};

using Eavesdropper = Hooked<9140>;
using Relay = Host<9150>;
using Climber = Host<9160>;
using Detour = Hooked<9161>;
using Keeper = Host<9162>;

// A class whose base edits an ownee before the class with its own Notify is done.
struct Builder : Relay {
    static constexpr short c_sType = 9152;
    Builder(MCObject* owner, MCFactoryContext* context) : Relay(owner, context, c_sType) {
        // Often enough for climbs to leave memos, if they could: on this level, then on the child's.
        Edit(this);
        m_pxChild = static_cast<MCObject*>(
            MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, this, nullptr, nullptr));
        Edit(m_pxChild);
    }
    static void Edit(MCObject* object) {
        for (long i = 0; i < 16; ++i) {
            MCSPropertyAccessorT<long> value(i);
            object->SetProperty(87, value, 1);
        }
    }
    MCObject* m_pxChild;
};
using Heeding = Hooked<Builder::c_sType, Builder>;

// Logs "<event type>@<place>" of each event it hears, the place being the subject's index among m_pxPlaces
// ("new" for one made since); with no log it hears and says nothing, and subscribed on an object it forces
// every event there to be made and to climb the whole way.
struct PlaceLog : MCSubscriber {
    explicit PlaceLog(std::string* log = nullptr, const std::vector<MCObject*>* places = nullptr)
        : m_psLog(log), m_pxPlaces(places) {}
    void Notify(MCEvent& event) override {
        if (!m_psLog)
            return;
        const auto at = std::find(m_pxPlaces->begin(), m_pxPlaces->end(), event.GetSubject());
        *m_psLog += " " + std::to_string(event.GetEventType()) + "@" +
                    (at == m_pxPlaces->end() ? "new" : std::to_string(at - m_pxPlaces->begin()));
    }
    std::string* m_psLog;
    const std::vector<MCObject*>* m_pxPlaces;
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

constexpr unsigned c_nClimbing = MCEvent::subscriberOwner | MCEvent::subscriberObserver;

class NotificationTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        static bool registered = false;
        if (std::exchange(registered, true))
            return;
        MCNotificationDirectory* directory = MCNotificationDirectory::GetInstance();
        directory->RegisterNotification(c_sBase, 0, 0, &g_xBaseDefault);
        directory->RegisterNotification(c_sBase, 0, MCEvent::SubjectDestroyed, &g_xBaseOn4);
        directory->RegisterNotification(c_sMiddle, c_sBase, MCEvent::SubjectDestroyed, &g_xMiddleOn4);
        directory->RegisterNotification(c_sMiddle, c_sBase, 0, &g_xMiddleDefault);
        directory->RegisterNotification(c_sLeaf, c_sMiddle, MCEvent::PropertySet, &g_xLeafOn1);
        MCFactoryRegistry::RegisterAliasObject(c_sAlias, "NodeAlias", 0, TestNode::c_sType, false, false);
        Register<Silent, Eavesdropper, Relay, Heeding, Climber, Detour, Keeper>();
    }
    template <class... Hosts>
    static void Register() {
        ((void)new MCFactoryT<Hosts, MCObject>(Hosts::c_sType,
                                               ZVTString(("Host" + std::to_string(Hosts::c_sType)).c_str()),
                                               1, 0, false, false),
         ...);
    }
    static void Late(short type, long event) {
        MCNotificationDirectory::GetInstance()->RegisterNotification(type, 0, event, &g_xLate);
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

// Declared first: after the other cases here the edit is answered without the deep climb it is meant to make.
TEST_F(NotificationTest, EventsClimbAChainOfAnyDepth) {
    // 10^5 levels: an edit at the bottom reaches the root's observer without a call per level. The chain
    // is made quietly, as a creation announced at depth d would climb d levels.
    MCObject* root = Make();
    MCObject* last = MakeChain(root, 100000);
    root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    ASSERT_TRUE(SetLong(last, 87, 4));
    EXPECT_EQ(m_xLog.Take(), "PropertySet(" + std::to_string(last->GetId()) + ",87,0)");
}

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
    MCNotificationEntry* entry = directory->CreateEntry(9131, 0)->GetAncestor();
    ASSERT_EQ(entry, directory->CreateEntry(9130, 0));
    EXPECT_EQ(entry->GetAncestor(), directory->CreateEntry(1, 0));

    // The alias takes TestNode's entry as ancestor, whatever its class level names.
    MCNotificationEntry* alias = directory->CreateEntry(c_sAlias, MCGenericObject::c_sType);
    EXPECT_EQ(alias->GetAncestor(), directory->CreateEntry(TestNode::c_sType, 0));
}

TEST_F(NotificationTest, EditsClimbToObserversButNotToReferenceHoldersAndDeathsDoNotClimb) {
    // An edit two levels down reaches the observers of every owner above it, through registered owner
    // types; owners' reference-holder subscriptions and a type without an entry stop it.
    for (short type : {MCGenericObject::c_sType, TestNode::c_sType, Silent::c_sType}) {
        SCOPED_TRACE(type);
        MCObject* root = Make();
        MCObject* middle = Make(root, type);
        MCObject* leaf = Make(middle);
        EventLog observer, holder;
        Subscription watching(root, &observer),
            holding[] = {{root, &holder, MCEvent::subscriberReferenceHolder},
                         {middle, &holder, MCEvent::subscriberReferenceHolder}};
        const std::string set = "PropertySet(" + std::to_string(leaf->GetId()) + ",87,0)|";
        ASSERT_TRUE(SetLong(leaf, 87, 4));
        leaf->Expunge(true);
        EXPECT_EQ(observer.Take() + "|" + holder.Take(), type == Silent::c_sType ? "|" : set);
    }
}

TEST_F(NotificationTest, EventsNobodyCanHearAreSkippedWithoutChangingWhatAnyoneHears) {
    // The same edits on the same tree twice: first as it is, where most events have nobody to reach
    // and most owners only pass events on; then with a silent observer on every object and a reaction
    // on every type, which force the full climb everywhere. The hosts hear the same in the same order.
    std::string log;
    Eavesdropper::c_xHook = [&log](MCEvent& event) {
        log += " own-notify(" + std::to_string(event.GetEventType()) + ")";
    };
    auto run = [&](bool forced) {
        // root - spy (own Notify) - one; root - watched (observer) - w1 - one; root - quiet (a reference
        // holder) - one.
        MCObject* root = Make();
        MCObject* spy = Make(root, Eavesdropper::c_sType);
        MCObject* watched = Make(root);
        MCObject* w1 = Make(watched);
        MCObject* quiet = Make(root);
        const std::vector<MCObject*> all{root, spy, Make(spy), watched, w1, Make(w1), quiet, Make(quiet)};
        PlaceLog observer(&log, &all), holder, forcing;
        Subscription holding(quiet, &holder, MCEvent::subscriberReferenceHolder),
            watching(watched, &observer);
        std::vector<std::unique_ptr<Subscription>> forcings;
        if (forced) {
            for (MCObject* object : all)
                forcings.push_back(std::make_unique<Subscription>(object, &forcing));
            for (short type : {MCGenericObject::c_sType, Eavesdropper::c_sType})
                for (long event : {MCEvent::PropertySet, MCEvent::PropertyNulled, MCEvent::ObjectCreated})
                    Late(type, event);
        }
        log.clear();
        for (std::size_t i = 0; i < all.size(); ++i) {
            log += " [" + std::to_string(i) + "]";
            SetLong(all[i], 87, static_cast<long>(i));
            MCSPropertyAccessorT<long> nulled;
            all[i]->NullProperty(87, nulled);
            Make(all[i]);
        }
        return log;
    };
    const std::string plain = run(false);
    EXPECT_EQ(run(true), plain);
    EXPECT_EQ(plain,
              " [0] [1] own-notify(3) [2] own-notify(1) own-notify(2) own-notify(3) [3] 1@3 2@3 3@new"
              " [4] 1@4 2@4 3@new [5] 1@5 2@5 3@new [6] [7]");
    Eavesdropper::c_xHook = nullptr;
}

TEST_F(NotificationTest, RememberedAudibilityFollowsEveryChangeThatCouldAlterIt) {
    // Two trees root - a - b - {leaf, sibling}: made through the registry, where climbs leave memos, and by
    // hand, where no memo may rely on an owner. After each step, done to both, the answers for the sibling
    // (whose climb meets the leaf's memos) and the leaf must match, asked a few rounds so memos are left,
    // and so must those of a child then born under the leaf.
    std::vector<MCObject*> made{Make(nullptr, Relay::c_sType)}, hand{new Relay(nullptr, nullptr)};
    m_xRoots.emplace_back(hand[0], hand[0]->GetId());
    for (int i : {0, 1, 2, 2}) {
        made.push_back(Make(made[i], Relay::c_sType));
        hand.push_back(new Relay(hand[i], nullptr));
    }
    PlaceLog one;
    std::vector<PlaceLog> many(17);
    using T = std::vector<MCObject*>;  // root, a, b, leaf, sibling
    // Each step is done to both trees. "oN", "hN" and "wN" subscribe `one` to t[N] as observer, reference
    // holder and owner; "sN" removes it with no type (the entry goes stale and keeps its bits: a later "h"
    // revives it), "xN" with every type; "M+"/"M-" add and remove 17 holders on the root; "L" registers a
    // reaction on the trees' type; "T"/"R" take a's type to one without an entry and back ("T3"/"R3" the
    // leaf's: its own answers stay, those of what is born under it do not).
    const char* const steps[] = {"o1", "s1", "h1", "x1", "M+", "M-", "h2", "x2", "h3", "x3",
                                 "o3", "x3", "w0", "x0", "L",  "T",  "R",  "T3", "R3"};
    const auto apply = [&](const std::string& step, const T& t) {
        MCObject* at = t[std::isdigit(static_cast<unsigned char>(step.back())) ? step.back() - '0' : 1];
        const char c = step[0];
        if (c == 'o' || c == 'h' || c == 'w')
            at->AddSubscriber(&one, c == 'o'   ? MCEvent::subscriberObserver
                                    : c == 'h' ? MCEvent::subscriberReferenceHolder
                                               : MCEvent::subscriberOwner);
        else if (c == 's' || c == 'x')
            at->RemoveSubscriber(&one, c == 's' ? 0 : 0xFFFF);
        else if (c == 'M')
            for (PlaceLog& each : many)
                step[1] == '+' ? t[0]->AddSubscriber(&each, MCEvent::subscriberReferenceHolder)
                               : t[0]->RemoveSubscriber(&each, 0xFFFF);
        else if (c == 'L' && t == made)
            Late(Relay::c_sType, MCEvent::PropertyNulled);
        else if (c != 'L')
            at->SetType(c == 'T' ? Silent::c_sType : Relay::c_sType);
    };
    auto answers = [&](const T& t) {
        std::string bits;
        for (int round = 0; round < 4; ++round) {
            bits = " |";
            SetLong(t[3], 87, round);
            for (MCObject* object : {t[4], t[3]})
                for (long event : {MCEvent::PropertySet, MCEvent::PropertyNulled, MCEvent::ObjectCreated})
                    bits += object->IsHeard(event, c_nClimbing) ? '1' : '0';
        }
        // Through the registry the child starts from the leaf's memo; then it is observed.
        MCObject* child = t == made ? Make(t[3], Relay::c_sType) : new Relay(t[3], nullptr);
        for (bool observed : {false, true}) {
            if (observed)
                child->AddSubscriber(&one, MCEvent::subscriberObserver);
            for (long event : {MCEvent::PropertySet, MCEvent::PropertyNulled, MCEvent::ObjectCreated})
                bits += child->IsHeard(event, c_nClimbing) ? '1' : '0';
        }
        child->RemoveSubscriber(&one, 0xFFFF);
        return bits;
    };
    std::string trace = answers(made);
    for (const char* step : steps) {
        apply(step, made);
        apply(step, hand);
        const std::string now = answers(made);
        trace += now;
        EXPECT_EQ(now, answers(hand)) << step;
    }
    EXPECT_EQ(
        trace,
        " |000000000111 |111111111111 |000000000111 |111111111111 |000000000111 |111111111111 |000000000111"
        " |000000000111 |000000000111 |000000000111 |000000000111 |000111111111 |000000000111 |111111111111"
        " |000000000111 |010010010111 |111111111111 |010010010111 |010010111111 |010010010111");

    // An owner whose class gets its own Notify only after its base class has edited an ownee.
    std::string heeded;
    Heeding::c_xHook = [&heeded](MCEvent& event) { heeded += std::to_string(event.GetEventType()); };
    for (Heeding* owner :
         {static_cast<Heeding*>(Make(made[2], Heeding::c_sType)), new Heeding(hand[2], nullptr)}) {
        EXPECT_TRUE(owner->m_pxChild->IsHeard(MCEvent::PropertySet, c_nClimbing));
        SetLong(owner->m_pxChild, 87, 16);
    }
    EXPECT_EQ(heeded, "11");
    Heeding::c_xHook = nullptr;
}

TEST_F(NotificationTest, ADeathReachesTheCleanUpAlikeDirectlyOrThroughTheSearch) {
    // The same death twice: the holders' type answers it with the clean-up alone, called directly; then a
    // reaction registered since lets the search run on to it. A single reference and a list lose the
    // target; the owner's list, without it, hears of the death through a change that removes nothing.
    auto run = [this] {
        const std::vector<MCObject*> places{Make(nullptr, Keeper::c_sType), Make(nullptr, Keeper::c_sType),
                                            Make(nullptr, Keeper::c_sType)};
        MCObject* target = Make(places[0]);
        ZVTSList<MCObject*> targets = ListOf({target}), others = ListOf({Make()});
        MCSRefAccessor single(target);
        MCVRefAccessor list(&targets), elsewhere(&others);
        places[0]->SetProperty(MCCodes::pReferenceList, elsewhere, c_lAdd);
        places[1]->SetProperty(MCCodes::pReference, single, c_lAdd);
        places[2]->SetProperty(MCCodes::pReferenceList, list, c_lAdd);
        std::string trace;
        PlaceLog observer(&trace, &places);
        Subscription watching[] = {{places[0], &observer}, {places[1], &observer}, {places[2], &observer}};
        Recording::c_sLog.clear();
        target->Expunge(true);
        trace = Recording::c_sLog + trace + " |";
        for (MCObject* place : places) {
            MCVRefRawAccessor entries;
            MCSRefRawAccessor value;
            place->GetProperty(MCCodes::pReferenceList, entries);
            place->GetProperty(MCCodes::pReference, value);
            trace += " " + std::to_string(entries.GetList()->Entries()) + (value.GetValue() ? "+" : "-");
        }
        return trace;
    };
    const std::string direct = run();
    Late(Keeper::c_sType, MCEvent::SubjectDestroyed);
    EXPECT_EQ(run(), "late late late" + direct);
    EXPECT_EQ(direct, " 1@0 5@0 1@1 5@1 1@2 5@2 | 1- 0- 0-");
}

TEST_F(NotificationTest, AnOwnerThatKeepsTheCommonNotifyIsPassedEventsWithoutItYetNobodyCanTell) {
    // Each case on a chain of Climber, whose owners keep MCObject::Notify and are passed events without it,
    // and one of Detour, whose own Notify calls it: the same trace, holds included. Tracer r on the root, m
    // in the middle and l on the leaf; the chain is edited twice at the leaf. On the stack the tracers sort
    // after every object, so a subject serves its owner's whole climb before them, also where the climb is
    // too deep to be called and is queued; in one array l sorts before x.
    int detours = 0;
    Detour::c_xHook = [&detours](MCEvent& event) { detours += event.GetEventType() == MCEvent::PropertySet; };
    Tracer tracers[] = {Tracer('r'), Tracer('m'), Tracer('l'), Tracer('x')};
    Tracer &r = tracers[0], &m = tracers[1], &l = tracers[2], &x = tracers[3];
    const struct {
        const char* pcName;
        int nLevels;
        char cAct;  // m's action: '+' adds x on the leaf, '-' removes l, 'R' registers a reaction on the type
        const char* pcExpected;
    } cases[] = {
        {"plain climb", 4, 0, " r1#8 m1#4 l1#2 | r1#8 m1#4 l1#2 |"},
        {"deeper than the calls go", 100, 0, " r1#164 m1#100 l1#2 | r1#164 m1#100 l1#2 |"},
        {"subscriber added on the way", 4, '+', " r1#8 m1#4 l1#2 x1#2 | r1#8 m1#4 l1#2 x1#2 |"},
        {"subscriber removed on the way", 4, '-', " r1#8 m1#4 | r1#8 m1#4 |"},
        // Last: the reaction stays registered on both types.
        {"reaction registered on the way", 4, 'R', " r1#8 m1#4 l1#2 | late late late r1#8 m1#4 l1#2 |"},
    };
    for (const auto& rCase : cases) {
        SCOPED_TRACE(rCase.pcName);
        std::string traces[2];
        for (short type : {Climber::c_sType, Detour::c_sType}) {
            std::vector<MCObject*> chain{Make(nullptr, type)};
            while (static_cast<int>(chain.size()) < rCase.nLevels)
                chain.push_back(Make(chain.back(), type));
            for (auto [at, tracer] :
                 {std::pair{chain.front(), &r}, {chain[chain.size() / 2], &m}, {chain.back(), &l}})
                at->AddSubscriber(tracer, MCEvent::subscriberObserver);
            m.m_xAct = [&] {
                if (rCase.cAct == '+')
                    chain.back()->AddSubscriber(&x, MCEvent::subscriberObserver);
                else if (rCase.cAct == '-')
                    chain.back()->RemoveSubscriber(&l, 0);
                else if (rCase.cAct == 'R')
                    Late(type, MCEvent::PropertySet);
            };
            Recording::c_sLog.clear();
            for (long value : {1, 2}) {
                SetLong(chain.back(), 87, value);
                Recording::c_sLog += " |";
            }
            traces[type == Detour::c_sType] = Recording::c_sLog;
            chain.front()->Expunge(true);  // the tracers hear it and are let go
        }
        EXPECT_EQ(traces[0] + "/" + traces[1], rCase.pcExpected + std::string("/") + rCase.pcExpected);
    }
    // The detour was taken on every hop of every edit's climb: 3 + 99 + 3 + 3 + 3 hops, twice each.
    EXPECT_EQ(detours, 2 * (3 + 99 + 3 + 3 + 3));
    Detour::c_xHook = nullptr;
}
