// References: the subscription counts behind single and list references through every kind of change,
// the clean-ups when a target or holder goes, save/restore/resolve with missing ids and converters,
// Rebind, and comparison by id across two models.

#include <algorithm>
#include <random>
#include <sstream>

#include "support/ModelTestSupport.h"

namespace {

constexpr long c_lAdd = MCPropertyAccessor::accessAdd;
constexpr long c_lReplace = MCPropertyAccessor::accessReplace;
constexpr long c_lRemove = MCPropertyAccessor::accessRemove;

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

// Maps one id of a stored world to another.
struct Converter : MCIdConverter {
    Converter(long from, long to) : m_lFrom(from), m_lTo(to) {}
    long ConvertId(long id) override { return id == m_lFrom ? m_lTo : 0; }
    long m_lFrom, m_lTo;
};

// A host's own reference classes: resolution must still make the raw accessors of a derived class, and
// reading takes a derived class through the value class rather than the core's type information.
class CountedRef : public MCSRef {
public:
    using MCSRef::MCSRef;
    MCPropertyAccessor* CreateRawAccessor() const override {
        ++s_nMade;
        return MCSRef::CreateRawAccessor();
    }
    static inline int s_nMade = 0;
};
struct DerivedList : MCVRef {
    using MCVRef::MCVRef;
};

}  // namespace

class RefPropertyTest : public ModelTest {
protected:
    // The ids of a list reference as "1 2 3", "-" for a null entry.
    static std::string Ids(const MCObject* holder) {
        MCVRefRawAccessor accessor;
        if (!holder->GetProperty(MCCodes::pReferenceList, accessor))
            return "nulled";
        std::string text;
        for (size_t i = 0; i < accessor.GetList()->Entries(); ++i)
            text += (i ? " " : "") + Id(accessor.GetList()->At(i));
        return text;
    }
    static bool SetRef(MCObject* holder, MCObject* target, long flags = c_lAdd, bool active = true) {
        MCSRefRawAccessor raw(target);
        MCSRefAccessor live(target);
        return holder->SetProperty(MCCodes::pReference, active ? live : raw, flags);
    }
    static bool SetRefs(MCObject* holder, std::vector<MCObject*> targets, long flags = c_lAdd) {
        ZVTSList<MCObject*> list;
        for (MCObject* target : targets)
            list.Append(target);
        MCVRefAccessor accessor(&list);
        return holder->SetProperty(MCCodes::pReferenceList, accessor, flags);
    }
    static MCObject* GetRef(const MCObject* holder) {
        MCSRefRawAccessor accessor;
        return holder->GetProperty(MCCodes::pReference, accessor) ? accessor.GetValue() : nullptr;
    }
    static MCSRef* Single(MCObject* h) { return dynamic_cast<MCSRef*>(Find(h, MCCodes::pReference)); }
    static MCVRef* List(MCObject* h) { return dynamic_cast<MCVRef*>(Find(h, MCCodes::pReferenceList)); }
    static MCProperty* Find(MCObject* holder, short type) {
        return const_cast<MCProperty*>(holder->FindProperty(type, true));
    }
    template <class T>
    static T* Create(short type, MCObject* owner) {
        return static_cast<T*>(MCFactoryRegistry::CreateItem(type, owner, nullptr, nullptr));
    }
};

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
        {"force fires and keeps the count", 0, c_lAdd | MCPropertyAccessor::accessForce, true, 1, 0, 0},
        {"another target", 1, c_lAdd, true, 0, 1, 1},
        {"null drops the old count only", 2, c_lReplace, true, 0, 0, 2},
        {"flags alone move nothing", 1, MCPropertyAccessor::accessFlags, false, 1, 0, 0},
        {"inherited moves nothing", 1, c_lAdd | MCPropertyAccessor::accessInherited, false, 1, 0, 0},
    };
    for (bool active : {true, false}) {
        for (const auto& rCase : cases) {
            SCOPED_TRACE(std::string(rCase.pcName) + (active ? " (active)" : " (raw)"));
            MCObject* holder = Make();
            MCObject* targets[] = {Make(), Make(), nullptr};
            ASSERT_TRUE(SetRef(holder, targets[0]));
            holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
            EXPECT_TRUE(SetRef(holder, targets[rCase.nTarget], rCase.lFlags, active));
            EXPECT_EQ(m_xLog.Take(), active && rCase.bEvent ? "PropertySet(" + Id(holder) + ",89,0)" : "");
            EXPECT_EQ(Count(targets[0], holder), rCase.nCountA);
            EXPECT_EQ(Count(targets[1], holder), rCase.nCountB);
            EXPECT_EQ(GetRef(holder), targets[rCase.nValue]);
        }
    }
}

TEST_F(RefPropertyTest, ListCountsEachEntryAndEventsCarryHints) {
    MCObject* holder = Make();
    MCObject* a = Make();
    MCObject* b = Make();
    holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    static std::string s_sHints;
    s_sHints.clear();
    m_xLog.m_pxOnNotify = [](MCEvent& event) { s_sHints += Id(event.GetHintObject()) + " "; };
    const std::string head = "PropertySet(" + Id(holder) + ",90,";

    ASSERT_TRUE(SetRefs(holder, {a, b, a}));
    EXPECT_EQ(Count(a, holder), 2u);
    ASSERT_TRUE(SetRefs(holder, {a}, c_lRemove));
    EXPECT_EQ(Ids(holder), Id(b) + " " + Id(a));
    EXPECT_EQ(Count(a, holder), 1u);
    ASSERT_TRUE(SetRefs(holder, {b, nullptr}, c_lReplace));
    EXPECT_EQ(Ids(holder), Id(b) + " -");
    EXPECT_EQ(Count(a, holder), 0u);
    EXPECT_EQ(Count(b, holder), 1u);
    EXPECT_EQ(m_xLog.Take(), head + "1) " + head + "2) " + head + "3)");
    EXPECT_EQ(s_sHints, Id(a) + " " + Id(a) + " - ");

    // Nulling drops the counts of single and list references alike; so does the holder's end.
    ASSERT_TRUE(SetRef(holder, b));
    EXPECT_EQ(Count(b, holder), 2u);
    MCVRefAccessor nulling;
    ASSERT_TRUE(holder->NullProperty(MCCodes::pReferenceList, nulling));
    EXPECT_EQ(Count(b, holder), 1u);
    holder->Expunge(true);
    EXPECT_EQ(Count(b, holder), 0u);
}

// A dying target leaves every holder in one change per reference, then one ReferenceCleared for the
// holder's own observers, caused by the death. The clean-up takes the subject as an object from a single
// reference that names it and asks for it otherwise: a list behind a single reference to something else
// ("elsewhere") must still lose its entries. A holder heard only through its owner gets no
// ReferenceCleared; one with a silent observer, which forces the event, must show its owner the same. No
// event may be left behind.
TEST_F(RefPropertyTest, DyingTargetIsTakenOutOfEveryHolderOnce) {
    MCObject* target = Make();
    MCObject* other = Make();
    MCObject* roots[] = {Make(), Make()};
    MCObject* single = Make();
    MCObject* twice = Make();
    MCObject* both = Make();
    MCObject* elsewhere = Make();
    MCObject* unheard = Make(roots[0]);
    MCObject* forced = Make(roots[1]);
    for (MCObject* holder : {single, both, unheard, forced, elsewhere})
        ASSERT_TRUE(SetRef(holder, holder == elsewhere ? other : target));
    ASSERT_TRUE(SetRefs(both, {other}));
    for (MCObject* holder : {twice, elsewhere, unheard, forced})
        ASSERT_TRUE(SetRefs(holder, {target, other, target}));
    struct Silent : MCSubscriber {
        void Notify(MCEvent& /*event*/) override {}
    } silent;
    forced->AddSubscriber(&silent, MCEvent::subscriberObserver);
    EventLog logs[6];
    MCObject* heard[] = {single, twice, both, elsewhere, roots[0], roots[1]};
    for (int i = 0; i < 6; ++i)
        heard[i]->AddSubscriber(&logs[i], MCEvent::subscriberObserver);
    static std::string s_sCauses;
    s_sCauses.clear();
    logs[0].m_pxOnNotify = [](MCEvent& event) {
        if (event.GetEventType() == MCEvent::ReferenceCleared)
            s_sCauses += std::to_string(event.GetChain(nullptr)->GetEventType());
    };
    const long eventsBefore = MCEvent::c_nInstanceCount;

    target->Expunge(true);
    auto set = [](MCObject* holder, int type, int hint) {
        return "PropertySet(" + Id(holder) + "," + std::to_string(type) + "," + std::to_string(hint) + ")";
    };
    auto cleared = [](MCObject* holder) { return " ReferenceCleared(" + Id(holder) + ")"; };
    EXPECT_EQ(logs[0].Take(), set(single, 89, 0) + cleared(single));
    EXPECT_EQ(logs[1].Take(), set(twice, 90, 2) + cleared(twice));  // both entries in one change
    EXPECT_EQ(logs[2].Take(), set(both, 89, 0) + cleared(both) + " " + set(both, 90, 2) + cleared(both));
    EXPECT_EQ(logs[3].Take(), set(elsewhere, 90, 2) + cleared(elsewhere));
    EXPECT_EQ(logs[4].Take(), set(unheard, 89, 0) + " " + set(unheard, 90, 2));
    EXPECT_EQ(logs[5].Take(), set(forced, 89, 0) + " " + set(forced, 90, 2));
    EXPECT_EQ(s_sCauses, "4");
    EXPECT_EQ(MCEvent::c_nInstanceCount, eventsBefore);
    std::string state;
    for (MCObject* holder : {single, twice, both, elsewhere, unheard, forced})
        state += Id(GetRef(holder)) + "/" + Ids(holder) + "/" + std::to_string(Count(other, holder)) + " ";
    const std::string o = Id(other);
    EXPECT_EQ(state,
              "-/nulled/0 -/" + o + "/1 -/" + o + "/1 " + o + "/" + o + "/2 -/" + o + "/1 -/" + o + "/1 ");
    for (MCObject* holder : {forced, unheard})  // the second was never subscribed
        holder->RemoveSubscriber(&silent, MCEvent::subscriberObserver);
    for (int i = 0; i < 6; ++i)
        heard[i]->RemoveSubscriber(&logs[i], MCEvent::subscriberObserver);
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
    ASSERT_TRUE(SetRefs(holder, model));
    holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    const std::string set = "PropertySet(" + Id(holder) + ",90,";
    for (int step = 0; step < 150 && !model.empty(); ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        MCObject* target = model[draw() % model.size()];
        std::string expected = set + "2)";
        if (step % 10 == 9) {
            MCObject* added = pool[draw() % pool.size()];
            ASSERT_TRUE(SetRefs(holder, {added, target}));
            model.insert(model.end(), {added, target});
            expected = set + "1)";
        } else if (step % 3 == 0) {
            target->Expunge(true);
            model.erase(std::remove(model.begin(), model.end(), target), model.end());
            std::replace(pool.begin(), pool.end(), target, Make());
            expected += " ReferenceCleared(" + Id(holder) + ")";
        } else {
            ASSERT_TRUE(SetRefs(holder, {target}, c_lRemove));
            model.erase(std::find(model.begin(), model.end(), target));
        }
        std::string text;
        for (size_t i = 0; i < model.size(); ++i)
            text += (i ? " " : "") + Id(model[i]);
        ASSERT_EQ(Ids(holder), text);
        EXPECT_EQ(m_xLog.Take(), expected);
    }
    for (MCObject* target : pool)
        EXPECT_EQ(static_cast<long>(Count(target, holder)), std::count(model.begin(), model.end(), target))
            << Id(target);
}

TEST_F(RefPropertyTest, RestoredIdsResolveThroughTheSpaceOrAConverter) {
    MCObject* holder = Make();
    MCObject* a = Make();
    MCObject* b = Make();
    ASSERT_TRUE(SetRef(holder, b));
    ASSERT_TRUE(SetRefs(holder, {a, b}));
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
        EXPECT_EQ(Ids(holder), Id(a) + " " + Id(b));
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
        auto* single = Create<MCSRef>(MCCodes::pReference, restored);
        auto* list = Create<MCVRef>(MCCodes::pReferenceList, restored);
        std::stringstream in(saved), again;
        MCStream stream(in, ZVTStream::binary), resave(again, ZVTStream::binary);
        single->RestoreFrom(stream);
        list->RestoreFrom(stream);
        // Unresolved, they save the ids they hold; only the flag words (at 0 and 6) now carry itemNL.
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
        EXPECT_EQ(Ids(restored),
                  rCase.bStrict ? "nulled" : Id(copyOfA) + (rCase.bConvert ? " " + Id(copyOfB) : ""));
        EXPECT_EQ(list->GetFlag(MCItem::itemNL), rCase.bStrict);
        EXPECT_EQ(std::to_string(Count(copyOfA, restored)) + std::to_string(Count(copyOfB, restored)) +
                      std::to_string(Count(a, restored) + Count(b, restored)),
                  std::string(rCase.bStrict ? "0" : "1") + (rCase.bConvert ? "2" : "0") + "0");
        // A single reference left without its target is null and nulled; the next call ends the id state.
        EXPECT_EQ(single->GetFlag(MCItem::itemNulled | MCItem::itemNL), !rCase.bConvert);
        EXPECT_TRUE(single->ResolveIds(space, *restored, false, nullptr));
        EXPECT_FALSE(single->GetFlag(MCItem::itemNL));
    }
}

// The core's classes and a host's derived ones must read alike (nulled, then set) and resolve alike; only
// the derived single reference is asked for a raw accessor.
TEST_F(RefPropertyTest, ACoreAndADerivedReferenceReadAndResolveAlike) {
    MCObject* target = Make();
    std::string seen[2];
    for (int derived = 0; derived < 2; ++derived) {
        SCOPED_TRACE(derived ? "derived" : "core");
        MCObject* holder = Make();
        MCSRef* single = derived ? new CountedRef(MCCodes::pReference, holder)
                                 : Create<MCSRef>(MCCodes::pReference, holder);
        MCVRef* list = derived ? new DerivedList(MCCodes::pReferenceList, holder)
                               : Create<MCVRef>(MCCodes::pReferenceList, holder);
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
        ASSERT_TRUE(SetRefs(holder, {target, target}));
        seen[derived] += read();

        std::stringstream medium;
        MCStream stream(medium, ZVTStream::binary);
        single->SaveTo(stream);
        MCObject* copy = Make();
        MCSRef* restored =
            derived ? new CountedRef(MCCodes::pReference, copy) : Create<MCSRef>(MCCodes::pReference, copy);
        restored->RestoreFrom(stream);
        MCIdSpace space;
        space.RegisterPointer(target->GetId(), holder);
        CountedRef::s_nMade = 0;
        const bool bound = restored->ResolveIds(space, *copy, false, nullptr);
        EXPECT_EQ(CountedRef::s_nMade, derived);
        seen[derived] += std::to_string(bound) + std::to_string(restored->GetValue() == holder) + " " +
                         std::to_string(restored->GetFlags()) + " " + std::to_string(Count(holder, copy));
        holder->Expunge(true);  // the dying target is found in a derived reference too
        seen[derived] += restored->GetValue() ? " bound" : " cleared";
    }
    EXPECT_EQ(seen[1], seen[0]);
    const std::string nulled = std::to_string(MCItem::itemNulled);
    EXPECT_EQ(seen[0], "1:0:" + nulled + " 1:0:" + nulled + " 1:1:0 1:2:0 11 0 1 cleared");
}

TEST_F(RefPropertyTest, RebindMovesToCopiesAndComparisonGoesById) {
    MCObject* holder = Make();
    MCObject* a = Make();
    MCObject* b = Make();
    MCObject* copy = Make();
    ASSERT_TRUE(SetRef(holder, a));
    ASSERT_TRUE(SetRefs(holder, {a, b}));
    MCIdSpace space;
    space.RegisterPointer(a->GetId(), copy);
    Single(holder)->Rebind(space, *holder);
    List(holder)->Rebind(space, *holder);
    EXPECT_EQ(Id(GetRef(holder)) + " [" + Ids(holder) + "]", Id(copy) + " [" + Id(copy) + " " + Id(b) + "]");
    EXPECT_EQ(std::to_string(Count(a, holder)) + std::to_string(Count(copy, holder)) +
                  std::to_string(Count(b, holder)),
              "021");

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
        EXPECT_TRUE(SetRefs(root, {target, root}));
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
