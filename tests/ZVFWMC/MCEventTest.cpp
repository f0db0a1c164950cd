// Events: lifetime by counting, the chain with its root subject and its lookup, and that a fire-and-forget
// delivery allocates nothing once warm.

#include <gtest/gtest.h>

#include <string>

#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"
#include "support/AllocationHook.h"

// Counts every global allocation of the process, the library's included; sanitizer builds keep their own
// allocator, give every event its own heap block and count nothing.
static long g_nAllocations = 0;
bool OnAllocate(std::size_t) {
#if !defined(__SANITIZE_ADDRESS__)
    ++g_nAllocations;
#endif
    return true;
}

namespace {

TEST(EventTest, ChainsFindTheNearestEventAboutASubjectAndLiveUntilTheLastHolderGoes) {
    const long nBefore = MCEvent::c_nInstanceCount;
    MCSubject s1, s2, s3, sOther;
    {
        // Alive although nobody holds it, until a holder lets go.
        MCEvent& rEvent = MCEvent::Instantiate(MCEvent::PropertyNulled, &s1, 3);
        EXPECT_TRUE(rEvent.GetReferenceCount() == 0 && MCEvent::c_nInstanceCount == nBefore + 1 &&
                    rEvent.GetRootSubject() == &s1 && rEvent.GetHintPointer() == nullptr);
        MCEventUser xHolder(rEvent);
    }
    // A chain fired and forgotten goes, cause and all, once delivered; once warm it allocates nothing, even
    // for a subscriber that leaves and comes back (its entry is revived, no node made or freed).
    struct Rejoiner : MCSubscriber {
        void Notify(MCEvent& rEvent) override {
            rEvent.GetSubject()->RemoveSubscriber(this, 2);
            rEvent.GetSubject()->AddSubscriber(this, 2);
            ++m_nCalls;
        }
        int m_nCalls = 0;
    } xRejoiner;
    s1.AddSubscriber(&xRejoiner, 2);
    long nAllocated = 0;
    for (int i = 0; i < 3; ++i) {
        const long nStart = g_nAllocations;
        s1.NotifySubscribers(MCEvent::Instantiate(MCEvent::ReferenceCleared, &s1, 2, nullptr,
                                                  &MCEvent::Instantiate(MCEvent::SubjectDestroyed, &s1, 7)));
        nAllocated = g_nAllocations - nStart;
    }
    s1.RemoveSubscriber(&xRejoiner, 2);
    EXPECT_EQ(std::to_string(MCEvent::c_nInstanceCount - nBefore) + " events, " + std::to_string(nAllocated) +
                  " allocations, " + std::to_string(xRejoiner.m_nCalls) + " calls",
              "0 events, 0 allocations, 3 calls");

    // Caused in the order e1 (s1) -> e2 (s2) -> e3 (s1) -> e4 (s3).
    MCEventUser x1(MCEvent::Instantiate(MCEvent::SubjectDestroyed, &s1, 7));
    MCEvent& e1 = x1.GetEvent();
    MCEvent& e2 = MCEvent::Instantiate(MCEvent::ReferenceCleared, &s2, 2, nullptr, &e1);
    MCEvent& e3 = MCEvent::Instantiate(MCEvent::ReferenceCleared, &s1, 2, nullptr, &e2);
    MCEventUser x4(MCEvent::Instantiate(MCEvent::ReferenceCleared, &s3, 2, nullptr, &e3));
    MCEvent& e4 = x4.GetEvent();
    // What GetChain finds ("-" for nothing); an event's own subject is not compared.
    const std::pair<MCEvent*, MCSubject*> asked[] = {{&e4, nullptr}, {&e4, &s1},    {&e4, &s2},
                                                     {&e3, &s1},     {&e4, &s3},    {&e4, &sOther},
                                                     {&e1, &s1},     {&e1, nullptr}};
    std::string found;
    for (const auto& [from, subject] : asked) {
        const MCEvent* chain = from->GetChain(subject);
        found += chain == &e1 ? "1" : chain == &e2 ? "2" : chain == &e3 ? "3" : chain ? "?" : "-";
    }
    // Letting go of the first cause keeps it alive as long as the chain holds it.
    x1 = MCEventUser(e4);
    EXPECT_EQ(found + " " + std::to_string(MCEvent::c_nInstanceCount - nBefore), "3321---- 4");
    EXPECT_TRUE(e4.GetRootSubject() == &s1 && e2.GetRootSubject() == &s1);
}

}  // namespace
