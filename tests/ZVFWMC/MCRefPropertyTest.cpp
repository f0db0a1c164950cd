// References: the subscription counts behind list references, the clean-ups when a target goes,
// save/restore/resolve with missing ids and converters, comparison by id across two models, and
// targets that a rule ends during a change.

#include <algorithm>
#include <random>
#include <sstream>
#include <utility>

#include "support/ModelTestSupport.h"
#include "support/RuleTestSupport.h"

namespace {

// The count of `holder`'s entry on `target`, 0 when stale or absent.
unsigned int Count(MCObject* target, MCObject* holder) {
    struct Probe : ZVTFilter<MCSubscriberReference*> {
        ZVTBoolean Test(MCSubscriberReference*& entry) override {
            m_nCount = entry->GetSubscriber() == m_pxHolder ? entry->GetReferenceCount() : m_nCount;
            return false;
        }
        MCSubscriber* m_pxHolder = nullptr;
        unsigned int m_nCount = 0;
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

class RefPropertyTest : public RuleTest {
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
    static bool SetRef(MCObject* holder, MCObject* target, long flags = c_lAdd) {
        MCSRefAccessor accessor(target);
        return holder->SetProperty(MCCodes::pReference, accessor, flags);
    }
    static bool SetRefs(MCObject* holder, const std::vector<MCObject*>& targets, long flags = c_lAdd) {
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
    static MCSRef* Single(MCObject* h) { return dynamic_cast<MCSRef*>(PropertyOf(h, MCCodes::pReference)); }
    static MCVRef* List(MCObject* h) { return dynamic_cast<MCVRef*>(PropertyOf(h, MCCodes::pReferenceList)); }
    template <class T>
    static T* Create(short type, MCObject* owner) {
        return static_cast<T*>(MCFactoryRegistry::CreateItem(type, owner, nullptr, nullptr));
    }
};

// Each entry of a list counts on its target; each change's event carries its hint code and hint object,
// and nulling drops the counts.
TEST_F(RefPropertyTest, ListCountsEachEntryAndEventsCarryHints) {
    MCObject *holder = Make(), *a = Make(), *b = Make();
    holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    static std::string s_sHints;
    s_sHints.clear();
    m_xLog.m_pxOnNotify = [](MCEvent& event) { s_sHints += " " + Id(event.GetHintObject()); };
    auto counts = [&] { return " #" + std::to_string(Count(a, holder)) + std::to_string(Count(b, holder)); };
    ASSERT_TRUE(SetRefs(holder, {a, b, a}));
    EXPECT_EQ(counts(), " #21");
    ASSERT_TRUE(SetRefs(holder, {a}, c_lRemove));
    EXPECT_EQ(Ids(holder) + counts(), Id(b) + " " + Id(a) + " #11");
    ASSERT_TRUE(SetRefs(holder, {b, nullptr}, c_lReplace));
    EXPECT_EQ(Ids(holder) + counts(), Id(b) + " - #01");
    const std::string head = "PropertySet(" + Id(holder) + ",90,";
    EXPECT_EQ(m_xLog.Take() + s_sHints,
              head + "1) " + head + "2) " + head + "3) " + Id(a) + " " + Id(a) + " -");
    MCVRefAccessor nulling;
    ASSERT_TRUE(holder->NullProperty(MCCodes::pReferenceList, nulling));
    EXPECT_EQ(counts(), " #00");
}

// A rule may end a target while a change of a reference runs: one ended by a pre-edit rule is written as
// null (left out of a list), and one ended by a post-edit rule reaches the subscribers as no hint object.
TEST_F(RefPropertyTest, ATargetThatARuleEndsIsNeitherWrittenNorHinted) {
    using PS = MCPropertySemantic;
    static MCObject* s_pxVictim = nullptr;
    static long s_lVictim = 0;
    static std::string s_sHints;
    const struct {
        const char* pcName;
        bool bList;
        long lFlags;
        unsigned long nMode;
        const char* pcExpected;  // answer, what the reference holds, each event's hint object
    } rows[] = {
        {"pre-edit, single", false, c_lAdd, PS::PreEdit, "1 - -"},
        {"pre-edit, list add", true, c_lAdd, PS::PreEdit, "1  -"},
        {"pre-edit, list replace", true, c_lReplace, PS::PreEdit, "1  -"},
        // The target's end takes it out again in an edit of its own, which names it while it is there.
        {"post-edit, list add", true, c_lAdd, PS::PostEdit, "1  t-"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pcName);
        MCObject* holder = Make(nullptr, Shape::c_sType);
        s_pxVictim = Make(nullptr, Shape::c_sType);
        s_lVictim = s_pxVictim->GetId();
        s_sHints.clear();
        // "t" for the target, "-" for none, one per PropertySet.
        m_xLog.m_pxOnNotify = [](MCEvent& event) {
            if (event.GetEventType() == MCEvent::PropertySet) {
                const auto* hint = static_cast<const MCObject*>(event.GetHintObject());
                s_sHints += !hint ? "-" : hint->GetId() == s_lVictim ? "t" : "?";
            }
        };
        holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        PropertyRule rule("R", row.nMode);
        rule.m_xAct = [](PS::mode, MCObject*, MCProperty*, MCPropertySemanticContext*) {
            if (s_pxVictim)
                std::exchange(s_pxVictim, nullptr)->Expunge(true);
            return PS::resultContinue;
        };
        AddRule(Shape::c_sType, row.bList ? MCCodes::pReferenceList : MCCodes::pReference, rule);
        const bool answer =
            row.bList ? SetRefs(holder, {s_pxVictim}, row.lFlags) : SetRef(holder, s_pxVictim, row.lFlags);
        EXPECT_EQ(
            std::to_string(answer) + " " + (row.bList ? Ids(holder) : Id(GetRef(holder))) + " " + s_sHints,
            row.pcExpected);
    }
}

// A dying target leaves each holder in one change per reference, each followed by one ReferenceCleared
// for the holder's own observers, caused by the death. A holder heard only through its owner gets no
// ReferenceCleared; one with a silent observer, which forces the event, must show its owner the same. No
// event may be left behind.
TEST_F(RefPropertyTest, DyingTargetIsTakenOutOfEveryHolderOnce) {
    MCObject* target = Make();
    MCObject* roots[] = {Make(), Make()};
    MCObject* holders[] = {Make(), Make(roots[0]), Make(roots[1])};  // heard, unheard, forced
    for (MCObject* holder : holders)
        ASSERT_TRUE(SetRef(holder, target) && SetRefs(holder, {target, target}));
    EventLog silent, logs[3];
    Subscription forcing(holders[2], &silent), heard(holders[0], &logs[0]), first(roots[0], &logs[1]),
        second(roots[1], &logs[2]);
    static std::string s_sCauses;
    s_sCauses.clear();
    logs[0].m_pxOnNotify = [](MCEvent& event) {
        if (event.GetEventType() == MCEvent::ReferenceCleared)
            s_sCauses += std::to_string(event.GetChain(nullptr)->GetEventType());
    };
    const long eventsBefore = MCEvent::c_nInstanceCount;

    target->Expunge(true);
    std::string state;
    for (int i = 0; i < 3; ++i) {
        const std::string set = "PropertySet(" + Id(holders[i]) + ",";
        const std::string cleared = i ? "" : " ReferenceCleared(" + Id(holders[i]) + ")";
        EXPECT_EQ(logs[i].Take(), set + "89,0)" + cleared + " " + set + "90,2)" + cleared) << i;
        state += Id(GetRef(holders[i])) + "[" + Ids(holders[i]) + "]";
    }
    EXPECT_EQ(state, "-[]-[]-[]");
    EXPECT_EQ(s_sCauses,
              std::to_string(MCEvent::SubjectDestroyed) + std::to_string(MCEvent::SubjectDestroyed));
    EXPECT_EQ(MCEvent::c_nInstanceCount, eventsBefore);
}

// A long list that is searched often finds its entries through an index. Whatever mix of dying targets,
// single removals and adds (which make the index go stale) it meets, it must hold what a scan leaves,
// with the same events and subscription counts.
TEST_F(RefPropertyTest, ALongListRemovesWhatAScanWouldRemove) {
    MCObject* holder = Make();
    std::vector<MCObject*> pool(60), model(400);
    std::generate(pool.begin(), pool.end(), [this] { return Make(); });
    std::mt19937 draw(7);
    std::generate(model.begin(), model.end(), [&] { return pool[draw() % pool.size()]; });
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
    MCObject *holder = Make(), *a = Make(), *b = Make();
    ASSERT_TRUE(SetRef(holder, b) && SetRefs(holder, {a, b}));
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
        MCObject *restored = Make(), *copyOfA = Make(), *copyOfB = Make();
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

// A host's derived references must read (nulled, then set) and resolve as the core's do, the single one
// through a raw accessor of its own, and a dying target must be found in them too.
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
            const std::string readOne = std::to_string(one.GetPropertyValue(single, holder));
            const std::string readMany = std::to_string(many.GetPropertyValue(list, holder));
            return readOne + Id(one.GetValue()) + "/" + std::to_string(one.GetFlags()) + " " + readMany +
                   std::to_string(many.GetList()->Entries()) + "/" + std::to_string(many.GetFlags()) + " ";
        };
        seen[derived] = read();
        ASSERT_TRUE(SetRef(holder, target) && SetRefs(holder, {target, target}));
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
        holder->Expunge(true);
        seen[derived] += restored->GetValue() ? " bound" : " cleared";
    }
    EXPECT_EQ(seen[1], seen[0]);
    const std::string nulled = std::to_string(MCItem::itemNulled);
    EXPECT_EQ(seen[0], "1-/" + nulled + " 10/" + nulled + " 1" + Id(target) + "/0 12/0 11 0 1 cleared");
}

// Two models with the same ids at different addresses compare equal; another value or length differs.
TEST_F(RefPropertyTest, ComparisonGoesByIdAcrossModels) {
    MCIdSpace first, second;
    auto build = [&](MCIdSpace& ids) {
        MCObject *root = MakeWith(0, ids, nullptr), *target = MakeWith(0, ids, root);
        EXPECT_TRUE(SetRef(root, target) && SetRefs(root, {target, root}));
        return root;
    };
    MCObject *left = build(first), *right = build(second);
    EXPECT_TRUE(Single(left)->IsEqualTo(*Single(right), false));
    EXPECT_TRUE(List(left)->IsEqualTo(*List(right), false));
    ASSERT_TRUE(SetRef(right, nullptr, c_lReplace) && SetRefs(right, {right}, c_lRemove));
    EXPECT_FALSE(Single(left)->IsEqualTo(*Single(right), false));
    EXPECT_FALSE(List(left)->IsEqualTo(*List(right), false));
    EXPECT_FALSE(Single(left)->IsEqualTo(List(left), false));
    left->Expunge(true);
    right->Expunge(true);
    // Another class is another kind of value, even where both are empty.
    MCObject *core = Make(), *host = Make();
    const MCProperty* coreSingle = Create<MCSRef>(MCCodes::pReference, core);
    const MCProperty* coreList = Create<MCVRef>(MCCodes::pReferenceList, core);
    EXPECT_FALSE(coreSingle->IsEqualTo(new CountedRef(MCCodes::pReference, host), false));
    EXPECT_FALSE(coreList->IsEqualTo(new DerivedList(MCCodes::pReferenceList, host), false));
}
