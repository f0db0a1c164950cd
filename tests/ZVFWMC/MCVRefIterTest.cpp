// Reference walks and the reference-setting visitor: sorted walks that outlive their targets, walks that
// have nothing to walk, and one visitor writing one target into both kinds of reference.

#include <functional>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include "support/ModelTestSupport.h"

namespace {

// Newest first, so a sorted walk is told apart from the list's order.
struct ByIdDescending : ZVTSorter<MCObject*> {
    void Sort(MCObject** elements, long count) override {
        std::sort(elements, elements + count,
                  [](MCObject* a, MCObject* b) { return a->GetId() > b->GetId(); });
    }
};

struct AllButId : ZVTFilter<MCObject*> {
    explicit AllButId(long id) : m_lId(id) {}
    ZVTBoolean Test(MCObject*& element) override { return element && element->GetId() != m_lId; }
    long m_lId;
};

class RefIterTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        m_pxHolder = Make();
        for (MCObject*& target : m_apxTargets)
            target = Make();
        ZVTSList<MCObject*> list;
        for (MCObject* target : m_apxTargets)
            list.Append(target);
        MCVRefAccessor accessor(&list);
        m_pxHolder->SetProperty(MCCodes::pReferenceList, accessor, MCPropertyAccessor::accessReplace);
    }

    // The walk as "id id ...", "null" for a dead first target; `during` runs after the first step.
    static std::string Walk(MCVRefIter& walk, const std::function<void()>& during = {}) {
        std::string text;
        for (bool first = true; ++walk; first = false) {
            MCObject* value = walk.GetValue();
            text +=
                (text.empty() ? "" : " ") + (value ? std::to_string(value->GetId()) : std::string("null"));
            if (first && during)
                during();
        }
        return text;
    }
    std::string Id(int index) const { return std::to_string(m_apxTargets[index]->GetId()); }

    MCObject* m_pxHolder = nullptr;
    MCObject* m_apxTargets[3] = {};
    ByIdDescending m_xSorter;
};

TEST_F(RefIterTest, SortedWalkPassesOverTargetsThatDie) {
    MCVRefIter walk(m_pxHolder, MCCodes::pReferenceList, nullptr, &m_xSorter);
    EXPECT_EQ(walk.GetCount(), 3);
    EXPECT_EQ(Walk(walk, [this] { m_apxTargets[1]->Expunge(true); }), Id(2) + " " + Id(0));
}

TEST_F(RefIterTest, SortedWalkTakesItsFirstTargetUnchecked) {
    MCVRefIter walk(m_pxHolder, MCCodes::pReferenceList, nullptr, &m_xSorter);
    ASSERT_EQ(walk.GetCount(), 3);        // the snapshot is taken here
    EXPECT_EQ(walk.GetValue(), nullptr);  // before the first step, no read outside the snapshot
    m_apxTargets[2]->Expunge(true);
    EXPECT_EQ(Walk(walk), "null " + Id(1) + " " + Id(0));
}

TEST_F(RefIterTest, WalksFilteredUnsortedFromAListAndAgainThroughACopy) {
    AllButId skipMiddle(m_apxTargets[1]->GetId());
    MCVRefIter filtered(m_pxHolder, MCCodes::pReferenceList, &skipMiddle);
    EXPECT_EQ(filtered.GetCount(), 2);
    EXPECT_EQ(Walk(filtered), Id(0) + " " + Id(2));

    ZVTSList<MCObject*> list;
    list.Append(m_apxTargets[2]);
    list.Append(m_apxTargets[0]);
    MCVRefIter overList(&list, nullptr, &m_xSorter);
    ASSERT_TRUE(++overList);
    MCVRefIter copy(overList);
    EXPECT_EQ(Walk(copy), Id(2) + " " + Id(0));
}

TEST_F(RefIterTest, HasNothingToWalkWithoutAListOfObjects) {
    SetLong(m_pxHolder, MCCodes::pInteger, 5);
    MCVPropertyAccessorT<long> numbers(7L);
    m_pxHolder->SetProperty(MCCodes::pIntegerList, numbers, MCPropertyAccessor::accessAdd);
    const struct {
        const char* m_pcName;
        MCObject* m_pxObject;
        short m_sType;
    } cases[] = {
        {"null object", nullptr, MCCodes::pReferenceList},
        {"type 0", m_pxHolder, 0},
        {"no such property", Make(), MCCodes::pReferenceList},
        {"a single reference", m_pxHolder, MCCodes::pReference},
        {"a list of numbers", m_pxHolder, MCCodes::pIntegerList},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcName);
        MCVRefIter walk(c.m_pxObject, c.m_sType, nullptr, &m_xSorter);
        EXPECT_EQ(walk.GetCount(), 0);
        EXPECT_FALSE(++walk);
        EXPECT_THROW(walk.GetValue(), EXInvalidIter);
    }
}

class RefSettingTest : public ModelTest {};

TEST_F(RefSettingTest, WritesOneTargetIntoEitherKindThroughTheRules) {
    MCObject* holder = Make();
    MCObject* first = Make();
    MCObject* second = Make();
    MCSRefAccessor single(first);
    holder->SetProperty(MCCodes::pReference, single, MCPropertyAccessor::accessAdd);
    MCVRefAccessor list(first);
    holder->SetProperty(MCCodes::pReferenceList, list, MCPropertyAccessor::accessAdd);
    SetLong(holder, MCCodes::pInteger, 1);
    holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);

    MCRefSettingVisitor visitor(holder, second);
    for (short type : {MCCodes::pReference, MCCodes::pReferenceList, MCCodes::pInteger})
        const_cast<MCProperty*>(holder->FindProperty(type, false))->AcceptVisitor(&visitor);
    const std::string holderId = std::to_string(holder->GetId());
    EXPECT_EQ(m_xLog.Take(), "PropertySet(" + holderId + ",89,0) PropertySet(" + holderId + ",90,1)");

    MCObject* third = Make();
    visitor.SetValue(third);
    const_cast<MCProperty*>(holder->FindProperty(MCCodes::pReferenceList, false))->AcceptVisitor(&visitor);
    const_cast<MCProperty*>(holder->FindProperty(MCCodes::pReference, false))->AcceptVisitor(&visitor);

    MCSRefRawAccessor singleNow;
    holder->GetProperty(MCCodes::pReference, singleNow);
    EXPECT_EQ(singleNow.GetValue(), third);
    MCVRefIter listNow(holder, MCCodes::pReferenceList);
    std::string ids;
    while (++listNow)
        ids += std::to_string(listNow.GetValue()->GetId()) + " ";
    EXPECT_EQ(ids, std::to_string(first->GetId()) + " " + std::to_string(second->GetId()) + " " +
                       std::to_string(third->GetId()) + " ");
    holder->RemoveSubscriber(&m_xLog, MCEvent::subscriberObserver);
}

TEST_F(RefSettingTest, WithoutOwnerLeavesEveryReferenceAlone) {
    MCObject* holder = Make();
    MCObject* target = Make();
    MCSRefAccessor single(target);
    holder->SetProperty(MCCodes::pReference, single, MCPropertyAccessor::accessAdd);
    MCRefSettingVisitor visitor(nullptr, holder);
    const_cast<MCProperty*>(holder->FindProperty(MCCodes::pReference, false))->AcceptVisitor(&visitor);
    visitor.VisitType(static_cast<MCVRef*>(nullptr));
    MCSRefRawAccessor now;
    holder->GetProperty(MCCodes::pReference, now);
    EXPECT_EQ(now.GetValue(), target);
}

}  // namespace
