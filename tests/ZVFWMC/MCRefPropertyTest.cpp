// References: the subscription counts behind single and list references through every kind of change,
// the clean-ups when a target or holder goes, save/restore/resolve with missing ids and converters,
// Rebind, and comparison by id across two models.

#include <algorithm>
#include <random>
#include <sstream>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include "support/ModelTestSupport.h"

namespace {

constexpr long c_lAdd = MCPropertyAccessor::accessAdd;
constexpr long c_lReplace = MCPropertyAccessor::accessReplace;
constexpr long c_lRemove = MCPropertyAccessor::accessRemove;
constexpr long c_lFlags = MCPropertyAccessor::accessFlags;
constexpr long c_lForce = MCPropertyAccessor::accessForce;
constexpr long c_lInherited = MCPropertyAccessor::accessInherited;

// The count of `holder`'s entry on `target`, 0 when stale or absent.
unsigned int Count(MCObject* target, MCObject* holder) {
    struct Probe : ZVTFilter<MCSubscriberReference*> {
        MCSubscriber* m_pxHolder = nullptr;
        unsigned int m_nCount = 0;
        ZVTBoolean Test(MCSubscriberReference*& pEntry) override {
            if (pEntry->GetSubscriber() == m_pxHolder)
                m_nCount = pEntry->GetReferenceCount();
            return false;
        }
    } probe;
    probe.m_pxHolder = holder;
    MCSubscriberListIter walk(target, &probe);
    return probe.m_nCount;
}

// The ids of a list reference as "1 2 3", "-" for a null entry.
std::string Ids(const MCObject* holder) {
    MCVRefRawAccessor accessor;
    if (!holder->GetProperty(MCCodes::pReferenceList, accessor))
        return "nulled";
    std::string text;
    for (size_t i = 0; i < accessor.GetList()->Entries(); ++i) {
        MCObject* target = accessor.GetList()->At(i);
        text += (i ? " " : "") + (target ? std::to_string(target->GetId()) : std::string("-"));
    }
    return text;
}

bool SetRef(MCObject* holder, MCObject* target, long flags = c_lAdd, bool active = true) {
    MCSRefRawAccessor raw(target);
    MCSRefAccessor live(target);
    return holder->SetProperty(MCCodes::pReference, active ? live : raw, flags);
}

bool SetRefs(MCObject* holder, std::vector<MCObject*> targets, long flags) {
    ZVTSList<MCObject*> list;
    for (MCObject* target : targets)
        list.Append(target);
    MCVRefAccessor accessor(&list);
    return holder->SetProperty(MCCodes::pReferenceList, accessor, flags);
}

MCObject* GetRef(const MCObject* holder) {
    MCSRefRawAccessor accessor;
    return holder->GetProperty(MCCodes::pReference, accessor) ? accessor.GetValue() : nullptr;
}

MCSRef* Single(MCObject* holder) {
    return dynamic_cast<MCSRef*>(const_cast<MCProperty*>(holder->FindProperty(MCCodes::pReference, true)));
}

MCVRef* List(MCObject* holder) {
    return dynamic_cast<MCVRef*>(
        const_cast<MCProperty*>(holder->FindProperty(MCCodes::pReferenceList, true)));
}

// Maps one id of a stored world to another.
struct Converter : MCIdConverter {
    Converter(long from, long to) : m_lFrom(from), m_lTo(to) {}
    long ConvertId(long id) override { return id == m_lFrom ? m_lTo : 0; }
    long m_lFrom, m_lTo;
};

}  // namespace

using RefPropertyTest = ModelTest;

TEST_F(RefPropertyTest, SingleReferenceMovesOneCountPerChange) {
    // Each case starts from a holder referring to `a`, then sets `b` (or what the case says) once.
    const struct {
        const char* pcName;
        int nTarget;  // 0 a, 1 b, 2 null
        long lFlags;
        bool bEvent;
        unsigned int nCountA, nCountB;
        int nValue;
    } cases[] = {
        {"same target changes nothing", 0, c_lAdd, false, 1, 0, 0},
        {"force fires and keeps the count", 0, c_lAdd | c_lForce, true, 1, 0, 0},
        {"another target", 1, c_lAdd, true, 0, 1, 1},
        {"null drops the old count only", 2, c_lReplace, true, 0, 0, 2},
        {"flags alone move nothing", 1, c_lFlags, false, 1, 0, 0},
        {"inherited moves nothing", 1, c_lAdd | c_lInherited, false, 1, 0, 0},
    };
    for (bool active : {true, false}) {
        for (const auto& rCase : cases) {
            SCOPED_TRACE(std::string(rCase.pcName) + (active ? " (active)" : " (raw)"));
            MCObject* holder = Make();
            MCObject* targets[] = {Make(), Make(), nullptr};
            ASSERT_TRUE(SetRef(holder, targets[0]));
            ASSERT_EQ(Count(targets[0], holder), 1u);
            holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
            EXPECT_TRUE(SetRef(holder, targets[rCase.nTarget], rCase.lFlags, active));
            EXPECT_EQ(m_xLog.Take(), active && rCase.bEvent
                                         ? "PropertySet(" + std::to_string(holder->GetId()) + ",89,0)"
                                         : "");
            EXPECT_EQ(Count(targets[0], holder), rCase.nCountA);
            EXPECT_EQ(Count(targets[1], holder), rCase.nCountB);
            EXPECT_EQ(GetRef(holder), targets[rCase.nValue]);
            holder->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
        }
    }
}

TEST_F(RefPropertyTest, ListCountsEachEntryAndEventsCarryHints) {
    MCObject* holder = Make();
    MCObject* a = Make();
    MCObject* b = Make();
    holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    static MCObject* s_pxHint;
    m_xLog.m_pxOnNotify = [](MCEvent& event) { s_pxHint = event.GetHintObject(); };
    const std::string head = "PropertySet(" + std::to_string(holder->GetId()) + ",90,";

    ASSERT_TRUE(SetRefs(holder, {a, b, a}, c_lAdd));
    EXPECT_EQ(s_pxHint, a);
    EXPECT_EQ(Count(a, holder), 2u);
    ASSERT_TRUE(SetRefs(holder, {a}, c_lRemove));
    EXPECT_EQ(Ids(holder), std::to_string(b->GetId()) + " " + std::to_string(a->GetId()));
    EXPECT_EQ(Count(a, holder), 1u);
    ASSERT_TRUE(SetRefs(holder, {b, nullptr}, c_lReplace));
    EXPECT_EQ(s_pxHint, nullptr);
    EXPECT_EQ(Ids(holder), std::to_string(b->GetId()) + " -");
    EXPECT_EQ(Count(a, holder), 0u);
    EXPECT_EQ(Count(b, holder), 1u);
    EXPECT_EQ(m_xLog.Take(), head + "1) " + head + "2) " + head + "3)");

    // Nulling drops the counts of single and list references alike; so does the holder's end.
    ASSERT_TRUE(SetRef(holder, b));
    EXPECT_EQ(Count(b, holder), 2u);
    MCVRefAccessor nulling;
    ASSERT_TRUE(holder->NullProperty(MCCodes::pReferenceList, nulling));
    EXPECT_EQ(Count(b, holder), 1u);
    holder->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
    holder->Expunge(true);
    EXPECT_EQ(Count(b, holder), 0u);
}

TEST_F(RefPropertyTest, DyingTargetIsTakenOutOfEveryHolderOnce) {
    MCObject* target = Make();
    MCObject* other = Make();
    MCObject* single = Make();
    MCObject* twice = Make();
    MCObject* both = Make();
    ASSERT_TRUE(SetRef(single, target));
    ASSERT_TRUE(SetRefs(twice, {target, other, target}, c_lAdd));
    ASSERT_TRUE(SetRef(both, target));
    ASSERT_TRUE(SetRefs(both, {other}, c_lAdd));
    EventLog logs[3];
    MCObject* holders[] = {single, twice, both};
    for (int i = 0; i < 3; ++i)
        holders[i]->AddSubscriber(&logs[i], MCEvent::subscriberObserver);
    static std::string s_sCauses;
    s_sCauses.clear();
    logs[0].m_pxOnNotify = [](MCEvent& event) {
        if (event.GetEventType() == MCEvent::ReferenceCleared)
            s_sCauses += std::to_string(event.GetChain(nullptr)->GetEventType());
    };
    const long eventsBefore = MCEvent::c_nInstanceCount;

    target->Expunge(true);
    auto set = [](MCObject* holder, int type, int hint) {
        const std::string id = std::to_string(holder->GetId());
        return "PropertySet(" + id + "," + std::to_string(type) + "," + std::to_string(hint) +
               ") ReferenceCleared(" + id + ")";
    };
    EXPECT_EQ(logs[0].Take(), set(single, 89, 0));
    EXPECT_EQ(logs[1].Take(), set(twice, 90, 2));  // both entries in one change
    EXPECT_EQ(logs[2].Take(), set(both, 89, 0) + " " + set(both, 90, 2));
    EXPECT_EQ(s_sCauses, "4");
    EXPECT_EQ(MCEvent::c_nInstanceCount, eventsBefore);
    EXPECT_EQ(GetRef(single), nullptr);
    EXPECT_EQ(GetRef(both), nullptr);
    EXPECT_EQ(Ids(twice), std::to_string(other->GetId()));
    EXPECT_EQ(Count(other, twice), 1u);
    EXPECT_EQ(Count(other, both), 1u);
    for (int i = 0; i < 3; ++i)
        holders[i]->RemoveSubscriber(&logs[i], MCEvent::subscriberObserver);
}

// The clean-up takes the dying subject as an object from a single reference that names it, and asks for
// it otherwise: a list behind a single reference to something else must still lose its entries.
TEST_F(RefPropertyTest, AListLosesADyingTargetThatNoSingleReferenceNames) {
    MCObject* target = Make();
    MCObject* other = Make();
    MCObject* elsewhere = Make();
    ASSERT_TRUE(SetRef(elsewhere, other));
    ASSERT_TRUE(SetRefs(elsewhere, {target, other, target}, c_lAdd));
    EventLog log;
    elsewhere->AddSubscriber(&log, MCEvent::subscriberObserver);

    target->Expunge(true);
    const std::string id = std::to_string(elsewhere->GetId());
    EXPECT_EQ(log.Take(), "PropertySet(" + id + ",90,2) ReferenceCleared(" + id + ")");
    EXPECT_EQ(GetRef(elsewhere), other);
    EXPECT_EQ(Ids(elsewhere), std::to_string(other->GetId()));
    EXPECT_EQ(Count(other, elsewhere), 2u);
    elsewhere->RemoveSubscriber(&log, MCEvent::subscriberObserver);
}

// ReferenceCleared goes to the holder's observers only and is not made when it has none: a holder with a
// silent observer, which forces the event, and one without must show the same to everything else.
TEST_F(RefPropertyTest, AnUnheardReferenceClearedChangesNothingElse) {
    struct Silent : MCSubscriber {
        void Notify(MCEvent& /*event*/) override {}
    } silent;
    auto run = [&](bool forced) {
        MCObject* root = Make();
        MCObject* holder = Make(root);
        MCObject* target = Make();
        MCObject* other = Make();
        EXPECT_TRUE(SetRef(holder, target));
        EXPECT_TRUE(SetRefs(holder, {target, other, target}, c_lAdd));
        root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        if (forced)
            holder->AddSubscriber(&silent, MCEvent::subscriberObserver);
        m_xLog.Take();
        const long eventsBefore = MCEvent::c_nInstanceCount;
        target->Expunge(true);
        // Ids differ between the runs: the holder and the other target are named by letters.
        std::string seen = m_xLog.Take();
        const std::string id = "(" + std::to_string(holder->GetId()) + ",";
        for (size_t at = seen.find(id); at != std::string::npos; at = seen.find(id))
            seen.replace(at, id.size(), "(H,");
        const std::string left = Ids(holder);
        seen += " | " + (left == std::to_string(other->GetId()) ? "O" : left) + " | " +
                std::to_string(Count(other, holder)) + (GetRef(holder) ? " bound" : " null") +
                (MCEvent::c_nInstanceCount == eventsBefore ? "" : " leaked");
        holder->RemoveSubscriber(&silent, MCEvent::subscriberObserver);
        root->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
        return seen;
    };
    const std::string plain = run(false);
    EXPECT_EQ(plain, "PropertySet(H,89,0) PropertySet(H,90,2) | O | 1 null");
    EXPECT_EQ(run(true), plain);
}

// A long list that is searched often finds its entries through an index. Whatever mix of dying targets,
// single removals and adds (which make the index go stale) it meets, it must hold what a scan leaves,
// with the same events and subscription counts.
TEST_F(RefPropertyTest, ALongListRemovesWhatAScanWouldRemove) {
    MCObject* holder = Make();
    std::vector<MCObject*> pool;
    for (int i = 0; i < 60; ++i)
        pool.push_back(Make());
    std::mt19937 draw(7);
    std::vector<MCObject*> model;
    for (int i = 0; i < 400; ++i)
        model.push_back(pool[draw() % pool.size()]);
    ASSERT_TRUE(SetRefs(holder, model, c_lAdd));
    holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    const std::string set = "PropertySet(" + std::to_string(holder->GetId()) + ",90,";
    auto render = [&model] {
        std::string text;
        for (size_t i = 0; i < model.size(); ++i)
            text += (i ? " " : "") + std::to_string(model[i]->GetId());
        return text;
    };

    for (int step = 0; step < 150 && !model.empty(); ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        MCObject* target = model[draw() % model.size()];
        std::string expected;
        if (step % 10 == 9) {
            MCObject* added = pool[draw() % pool.size()];
            ASSERT_TRUE(SetRefs(holder, {added, target}, c_lAdd));
            model.insert(model.end(), {added, target});
            expected = set + "1)";
        } else if (step % 3 == 0) {
            target->Expunge(true);
            model.erase(std::remove(model.begin(), model.end(), target), model.end());
            std::replace(pool.begin(), pool.end(), target, Make());
            expected = set + "2) ReferenceCleared(" + std::to_string(holder->GetId()) + ")";
        } else {
            ASSERT_TRUE(SetRefs(holder, {target}, c_lRemove));
            model.erase(std::find(model.begin(), model.end(), target));
            expected = set + "2)";
        }
        ASSERT_EQ(Ids(holder), render());
        EXPECT_EQ(m_xLog.Take(), expected);
    }
    for (MCObject* target : pool) {
        SCOPED_TRACE(target->GetId());
        EXPECT_EQ(Count(target, holder),
                  static_cast<unsigned int>(std::count(model.begin(), model.end(), target)));
    }
    holder->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
}

TEST_F(RefPropertyTest, RestoredIdsResolveThroughTheSpaceOrAConverter) {
    MCObject* holder = Make();
    MCObject* a = Make();
    MCObject* b = Make();
    ASSERT_TRUE(SetRef(holder, b));
    ASSERT_TRUE(SetRefs(holder, {a, b}, c_lAdd));
    std::stringstream medium;
    MCStream out(medium, ZVTStream::binary);
    Single(holder)->SaveTo(out);
    List(holder)->SaveTo(out);
    const std::string saved = medium.str();

    // Through accessors the stored ids arrive as carried values for the accessor to resolve, the property
    // left as it is; a list accessor saves and restores its objects by id in the global space.
    {
        std::stringstream in(saved), again;
        MCStream stream(in, ZVTStream::binary), resave(again, ZVTStream::binary);
        MCSRefAccessor one;
        MCVRefAccessor many;
        Single(holder)->RestoreFrom(stream, one);
        List(holder)->RestoreFrom(stream, many);
        MCIdSpace space;
        space.RegisterPointer(a->GetId(), b);
        EXPECT_EQ(std::to_string(one.ResolveIds(space)) + std::to_string(many.ResolveIds(space)), "01");
        many.SaveTo(resave);
        MCVRefRawAccessor back;
        back.RestoreFrom(resave);
        EXPECT_EQ(back.GetList()->Entries() == 1 ? back.GetList()->At(0) : nullptr, b);
        EXPECT_EQ(Ids(holder), std::to_string(a->GetId()) + " " + std::to_string(b->GetId()));
    }

    // In the new model `copyOfA` stands for `a`; `b` is found only through the converter.
    const struct {
        const char* pcName;
        bool bConvert, bStrict;
    } cases[] = {
        {"b missing", false, false}, {"b missing, strict", false, true}, {"converter finds b", true, false}};
    for (const auto& rCase : cases) {
        SCOPED_TRACE(rCase.pcName);
        MCObject* restored = Make();
        MCObject* copyOfA = Make();
        MCObject* copyOfB = Make();
        auto* single = static_cast<MCSRef*>(
            MCFactoryRegistry::CreateItem(MCCodes::pReference, restored, nullptr, nullptr));
        auto* list = static_cast<MCVRef*>(
            MCFactoryRegistry::CreateItem(MCCodes::pReferenceList, restored, nullptr, nullptr));
        std::stringstream in(saved);
        MCStream stream(in, ZVTStream::binary);
        single->RestoreFrom(stream);
        list->RestoreFrom(stream);

        // Unresolved, they save the ids they hold; only the flag words (at 0 and 6) now carry itemNL.
        std::stringstream again;
        MCStream resave(again, ZVTStream::binary);
        single->SaveTo(resave);
        list->SaveTo(resave);
        std::string unresolved = saved;
        for (size_t at : {0, 6})
            unresolved[at] = static_cast<char>(unresolved[at] | MCItem::itemNL);
        EXPECT_EQ(again.str(), unresolved);

        MCIdSpace space;
        space.RegisterPointer(a->GetId(), copyOfA);
        space.RegisterPointer(900, copyOfB);
        Converter converter(b->GetId(), 900);
        MCIdConverter* used = rCase.bConvert ? &converter : nullptr;
        EXPECT_EQ(single->ResolveIds(space, *restored, false, used), rCase.bConvert);
        EXPECT_EQ(list->ResolveIds(space, *restored, rCase.bStrict, used), rCase.bConvert);
        EXPECT_EQ(single->GetValue(), rCase.bConvert ? copyOfB : nullptr);
        const std::string ids =
            std::to_string(copyOfA->GetId()) + (rCase.bConvert ? " " + std::to_string(copyOfB->GetId()) : "");
        EXPECT_EQ(Ids(restored), rCase.bStrict ? "nulled" : ids);
        EXPECT_EQ(list->GetFlag(MCItem::itemNL), rCase.bStrict);
        EXPECT_EQ(Count(copyOfA, restored), rCase.bStrict ? 0u : 1u);
        EXPECT_EQ(Count(copyOfB, restored), rCase.bConvert ? 2u : 0u);
        EXPECT_EQ(Count(a, restored) + Count(b, restored), 0u);

        // A single reference left without its target is null and nulled; the next call ends the id state.
        EXPECT_EQ(single->GetFlag(MCItem::itemNulled | MCItem::itemNL), !rCase.bConvert);
        EXPECT_TRUE(single->ResolveIds(space, *restored, false, nullptr));
        EXPECT_FALSE(single->GetFlag(MCItem::itemNL));
    }
}

namespace {

// A host's own single reference class, whose raw accessors resolution must still make.
class CountedRef : public MCSRef {
public:
    using MCSRef::MCSRef;
    MCPropertyAccessor* CreateRawAccessor() const override {
        ++s_nMade;
        return MCSRef::CreateRawAccessor();
    }
    static int s_nMade;
};
int CountedRef::s_nMade = 0;

}  // namespace

// The core's class resolves without asking for an accessor; a derived class is asked, with the same end.
TEST_F(RefPropertyTest, ADerivedSingleReferenceResolvesAsTheCoreClassDoes) {
    MCObject* source = Make();
    MCObject* target = Make();
    ASSERT_TRUE(SetRef(source, target));
    std::stringstream medium;
    MCStream out(medium, ZVTStream::binary);
    Single(source)->SaveTo(out);

    std::string outcomes[2];
    for (int derived = 0; derived < 2; ++derived) {
        SCOPED_TRACE(derived ? "derived" : "core");
        MCObject* restored = Make();
        MCObject* copy = Make();
        MCSRef* single = derived ? new CountedRef(MCCodes::pReference, restored)
                                 : static_cast<MCSRef*>(MCFactoryRegistry::CreateItem(
                                       MCCodes::pReference, restored, nullptr, nullptr));
        std::stringstream in(medium.str());
        MCStream stream(in, ZVTStream::binary);
        single->RestoreFrom(stream);
        MCIdSpace space;
        space.RegisterPointer(target->GetId(), copy);
        CountedRef::s_nMade = 0;
        const bool bound = single->ResolveIds(space, *restored, false, nullptr);
        EXPECT_EQ(CountedRef::s_nMade, derived);
        outcomes[derived] = std::to_string(bound) + " " + std::to_string(single->GetValue() == copy) + " " +
                            std::to_string(single->GetFlags()) + " " + std::to_string(Count(copy, restored));
    }
    EXPECT_EQ(outcomes[1], outcomes[0]);
    EXPECT_EQ(outcomes[0].substr(0, 4), "1 1 ");
}

// Reading takes the core's reference classes by their type information and a derived class through the
// value class; both ways must read the same value and flags, nulled and set.
TEST_F(RefPropertyTest, ACoreAndADerivedReferenceReadAlike) {
    struct DerivedList : MCVRef {
        using MCVRef::MCVRef;
    };
    MCObject* target = Make();
    std::string seen[2];
    for (int derived = 0; derived < 2; ++derived) {
        SCOPED_TRACE(derived ? "derived" : "core");
        MCObject* holder = Make();
        MCProperty* single = derived ? new CountedRef(MCCodes::pReference, holder)
                                     : static_cast<MCProperty*>(MCFactoryRegistry::CreateItem(
                                           MCCodes::pReference, holder, nullptr, nullptr));
        MCProperty* list = derived ? new DerivedList(MCCodes::pReferenceList, holder)
                                   : static_cast<MCProperty*>(MCFactoryRegistry::CreateItem(
                                         MCCodes::pReferenceList, holder, nullptr, nullptr));
        auto read = [&] {
            MCSRefRawAccessor one;
            MCVRefAccessor many;
            const bool readOne = one.GetPropertyValue(single, holder);
            const bool readMany = many.GetPropertyValue(list, holder);
            return std::to_string(readOne) + ":" + std::to_string(one.GetValue() == target) + ":" +
                   std::to_string(one.GetFlags()) + " " + std::to_string(readMany) + ":" +
                   std::to_string(many.GetList()->Entries()) + ":" + std::to_string(many.GetFlags()) + " ";
        };
        seen[derived] = read();
        ASSERT_TRUE(SetRef(holder, target));
        ASSERT_TRUE(SetRefs(holder, {target, target}, c_lAdd));
        seen[derived] += read();
    }
    EXPECT_EQ(seen[1], seen[0]);
    const std::string nulled = std::to_string(MCItem::itemNulled);
    EXPECT_EQ(seen[0], "1:0:" + nulled + " 1:0:" + nulled + " 1:1:0 1:2:0 ");
}

TEST_F(RefPropertyTest, RebindMovesToCopiesAndComparisonGoesById) {
    MCObject* holder = Make();
    MCObject* a = Make();
    MCObject* b = Make();
    MCObject* copy = Make();
    ASSERT_TRUE(SetRef(holder, a));
    ASSERT_TRUE(SetRefs(holder, {a, b}, c_lAdd));
    MCIdSpace space;
    space.RegisterPointer(a->GetId(), copy);
    Single(holder)->Rebind(space, *holder);
    List(holder)->Rebind(space, *holder);
    EXPECT_EQ(GetRef(holder), copy);
    EXPECT_EQ(Ids(holder), std::to_string(copy->GetId()) + " " + std::to_string(b->GetId()));
    EXPECT_EQ(Count(a, holder), 0u);
    EXPECT_EQ(Count(copy, holder), 2u);
    EXPECT_EQ(Count(b, holder), 1u);

    // Two models with the same ids at different addresses compare equal.
    MCIdSpace first, second;
    auto build = [&](MCIdSpace& ids) {
        struct Context : MCFactoryContext {
            MCIdSpace* m_pxSpace;
            MCIdSpace* GetIdSpace() override { return m_pxSpace; }
        } context;
        context.m_pxSpace = &ids;
        auto make = [&](MCObject* owner) {
            return static_cast<MCObject*>(
                MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, owner, &context, nullptr));
        };
        MCObject* root = make(nullptr);
        MCObject* target = make(root);
        EXPECT_TRUE(SetRef(root, target));
        EXPECT_TRUE(SetRefs(root, {target, root}, c_lAdd));
        return root;
    };
    MCObject* left = build(first);
    MCObject* right = build(second);
    EXPECT_TRUE(Single(left)->IsEqualTo(*Single(right), false));
    EXPECT_TRUE(List(left)->IsEqualTo(*List(right), false));
    ASSERT_TRUE(SetRef(right, nullptr, c_lReplace));
    ASSERT_TRUE(SetRefs(right, {right}, c_lRemove));
    EXPECT_FALSE(Single(left)->IsEqualTo(*Single(right), false));
    EXPECT_FALSE(List(left)->IsEqualTo(*List(right), false));
    EXPECT_FALSE(Single(left)->IsEqualTo(List(left), false));
    left->Expunge(true);
    right->Expunge(true);
}
