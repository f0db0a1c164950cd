// Events: lifetime by counting, the chain with its root subject and its lookup, and that a fire-and-forget
// delivery allocates nothing once warm.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"

#if !defined(__SANITIZE_ADDRESS__)
// Counts every global allocation of the process, the library's included.
static long g_nAllocations = 0;

void* operator new(std::size_t nSize) {
    ++g_nAllocations;
    if (void* p = std::malloc(nSize == 0 ? 1 : nSize))
        return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
#endif

namespace {

class Remover : public MCSubscriber {
public:
    void Notify(MCEvent&) override {
        // Removing and re-adding itself revives its entry: no node is made or freed.
        m_pxSubject->RemoveSubscriber(this, 1);
        m_pxSubject->AddSubscriber(this, 1);
        ++m_nCalls;
    }
    MCSubject* m_pxSubject = nullptr;
    int m_nCalls = 0;
};

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
    // A chain fired and forgotten goes, cause and all, once delivered.
    MCEvent& rCause = MCEvent::Instantiate(MCEvent::SubjectDestroyed, &s1, 7);
    s1.NotifySubscribers(MCEvent::Instantiate(MCEvent::ReferenceCleared, &s1, 2, nullptr, &rCause));
    EXPECT_EQ(MCEvent::c_nInstanceCount, nBefore);

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
    EXPECT_EQ(found, "3321----");
    EXPECT_TRUE(e4.GetRootSubject() == &s1 && e2.GetRootSubject() == &s1);

    // Letting go of the first cause keeps it alive as long as the chain holds it.
    x1 = MCEventUser(e4);
    EXPECT_EQ(MCEvent::c_nInstanceCount - nBefore, 4);
}

TEST(EventTest, FireAndForgetAllocatesNothingOnceWarm) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "sanitizer builds give every event its own heap block";
#else
    MCSubject xSubject;
    Remover xRemover;
    xRemover.m_pxSubject = &xSubject;
    xSubject.AddSubscriber(&xRemover, 1);
    auto Fire = [&xSubject] {
        MCEvent& rCause = MCEvent::Instantiate(MCEvent::SubjectDestroyed, &xSubject, 7);
        xSubject.NotifySubscribers(
            MCEvent::Instantiate(MCEvent::PropertySet, &xSubject, 1, nullptr, &rCause));
    };
    Fire();
    const long nBefore = g_nAllocations;
    for (int i = 0; i < 100; ++i)
        Fire();
    EXPECT_EQ(std::to_string(g_nAllocations - nBefore) + " allocations, " +
                  std::to_string(xRemover.m_nCalls) + " calls",
              "0 allocations, 101 calls");
    xSubject.RemoveSubscriber(&xRemover, 1);
#endif
}

}  // namespace
