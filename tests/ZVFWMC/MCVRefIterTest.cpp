// Reference walks and the reference-setting visitor: sorted walks that outlive their targets, copies, walks
// that have nothing to walk, and one visitor writing one target into both kinds of reference.

#include <algorithm>

#include "support/ModelTestSupport.h"

namespace {

// Newest first, so a sorted walk is told apart from the list's order.
struct ByIdDescending : ZVTSorter<MCObject*> {
    void Sort(MCObject** list, long count) override {
        std::sort(list, list + count, [](MCObject* a, MCObject* b) { return a->GetId() > b->GetId(); });
    }
};

// The walk as "id id ...", "-" for a dead first target; `during` runs after the first step.
std::string Walk(MCVRefIter& walk, const std::function<void()>& during = {}) {
    std::string text;
    for (bool first = true; ++walk; first = false) {
        text += (text.empty() ? "" : " ") + ModelTest::Id(walk.GetValue());
        if (first && during)
            during();
    }
    return text;
}

// A holder whose list refers to three targets, oldest first.
class RefIterTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        m_pxHolder = Make();
        for (MCObject*& target : m_apxTargets) {
            MCVRefAccessor accessor(target = Make());
            m_pxHolder->SetProperty(MCCodes::pReferenceList, accessor, c_lAdd);
        }
    }
    using ModelTest::Id;
    std::string Id(int index) const { return Id(m_apxTargets[index]); }

    MCObject* m_pxHolder = nullptr;
    MCObject* m_apxTargets[3] = {};
    ByIdDescending m_xSorter;
};

// A sorted walk works on a snapshot taken by GetCount or the first step: it passes over targets that die
// during the walk, but takes its first one unchecked (no read outside the snapshot before the first step).
TEST_F(RefIterTest, SortedWalksPassOverTargetsThatDieAndTakeTheFirstUnchecked) {
    MCVRefIter walk(m_pxHolder, MCCodes::pReferenceList, nullptr, &m_xSorter);
    EXPECT_EQ(walk.GetCount(), 3);
    EXPECT_EQ(Walk(walk, [this] { m_apxTargets[1]->Expunge(true); }), Id(2) + " " + Id(0));
    MCVRefIter again(m_pxHolder, MCCodes::pReferenceList, nullptr, &m_xSorter);
    ASSERT_EQ(again.GetCount(), 2);
    EXPECT_EQ(again.GetValue(), nullptr);
    m_apxTargets[2]->Expunge(true);
    EXPECT_EQ(Walk(again), "- " + Id(0));
}

// A walk over a list goes again through a copy; without an object or a type a walk has nothing to walk,
// and says so rather than reading anything.
TEST_F(RefIterTest, WalksFromAListThroughACopyAndNothingWithoutAnObjectOrAType) {
    ZVTSList<MCObject*> list = ListOf({m_apxTargets[2], m_apxTargets[0]});
    MCVRefIter overList(&list, nullptr, &m_xSorter);
    ASSERT_TRUE(++overList);
    MCVRefIter copy(overList);
    EXPECT_EQ(Walk(copy), Id(2) + " " + Id(0));
    for (MCObject* object : {static_cast<MCObject*>(nullptr), m_pxHolder}) {
        MCVRefIter walk(object, object ? 0 : MCCodes::pReferenceList, nullptr, &m_xSorter);
        EXPECT_EQ(walk.GetCount(), 0);
        EXPECT_FALSE(++walk);
        EXPECT_THROW(walk.GetValue(), EXInvalidIter);
    }
}

// The visitor replaces a single reference and adds to a list, through the rules (events fire), and passes
// over other properties; without an owner it leaves every reference alone.
TEST_F(RefIterTest, RefSettingVisitorWritesOneTargetIntoEitherKind) {
    MCObject* holder = Make();
    MCSRefAccessor single(m_apxTargets[0]);
    MCVRefAccessor list(m_apxTargets[0]);
    ASSERT_TRUE(holder->SetProperty(MCCodes::pReference, single, c_lAdd) &&
                holder->SetProperty(MCCodes::pReferenceList, list, c_lAdd));
    SetLong(holder, MCCodes::pInteger, 1);
    holder->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    auto visit = [holder](MCRefSettingVisitor& visitor, std::initializer_list<short> types) {
        for (short type : types)
            PropertyOf(holder, type, false)->AcceptVisitor(&visitor);
    };
    MCRefSettingVisitor visitor(holder, m_apxTargets[1]);
    visit(visitor, {MCCodes::pReference, MCCodes::pReferenceList, MCCodes::pInteger});
    EXPECT_EQ(m_xLog.Take(), "PropertySet(" + Id(holder) + ",89,0) PropertySet(" + Id(holder) + ",90,1)");
    visitor.SetValue(m_apxTargets[2]);
    visit(visitor, {MCCodes::pReferenceList, MCCodes::pReference});
    MCRefSettingVisitor ownerless(nullptr, holder);
    visit(ownerless, {MCCodes::pReference});
    ownerless.VisitType(static_cast<MCVRef*>(nullptr));
    MCSRefRawAccessor singleNow;
    holder->GetProperty(MCCodes::pReference, singleNow);
    MCVRefIter listNow(holder, MCCodes::pReferenceList);
    EXPECT_EQ(Id(singleNow.GetValue()) + " [" + Walk(listNow) + "]",
              Id(2) + " [" + Id(0) + " " + Id(1) + " " + Id(2) + "]");
}

}  // namespace
