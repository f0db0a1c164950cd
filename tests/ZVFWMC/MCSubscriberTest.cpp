// Subjects and subscribers: list order and counts, stale entries and their purge, re-entrant delivery on
// short and indexed lists, the subscriber iterator and the subject dump.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"

namespace {

// Logs its number when notified and runs its action once. Elements of one array have ascending
// addresses, so the number is also the delivery rank.
class Recorder : public MCSubscriber {
public:
    void Notify(MCEvent& rEvent) override {
        *m_psLog += (m_psLog->empty() ? "" : " ") + std::to_string(m_nNumber);
        if (m_xAction) {
            std::function<void(MCEvent&)> xAction;
            xAction.swap(m_xAction);
            xAction(rEvent);
        }
    }

    int m_nNumber = 0;
    std::string* m_psLog = nullptr;
    std::function<void(MCEvent&)> m_xAction;
};

constexpr int c_nRecorders = 300;

// Renders every entry, stale ones too, as "number:count/type" in list order.
class EntryProbe : public ZVTFilter<MCSubscriberReference*> {
public:
    explicit EntryProbe(const Recorder* pFirst) : m_pxFirst(pFirst) {}
    ZVTBoolean Test(MCSubscriberReference*& pEntry) override {
        const auto* pRecorder = static_cast<const Recorder*>(pEntry->GetSubscriber());
        m_sOut += (m_sOut.empty() ? "" : " ") + std::to_string(pRecorder - m_pxFirst) + ":" +
                  std::to_string(pEntry->GetReferenceCount()) + "/" +
                  std::to_string(pEntry->GetSubscriberType());
        return false;
    }
    std::string m_sOut;

private:
    const Recorder* m_pxFirst;
};

class SubjectTest : public ::testing::Test {
public:
    SubjectTest() {
        for (int i = 0; i < c_nRecorders; ++i) {
            m_axRecorders[i].m_nNumber = i;
            m_axRecorders[i].m_psLog = &m_sLog;
        }
    }
    ~SubjectTest() override { m_xSubject.RemoveAllSubscribers(); }

    Recorder* R(int i) { return &m_axRecorders[i]; }
    std::string Entries() {
        EntryProbe xProbe(m_axRecorders);
        MCSubscriberListIter xWalk(&m_xSubject, &xProbe, nullptr);
        return xProbe.m_sOut;
    }
    long RawCount() { return MCSubscriberListIter(&m_xSubject).GetCount(); }
    // Delivers an event of mask 1 and returns who got it.
    std::string Deliver() {
        m_sLog.clear();
        m_xSubject.NotifySubscribers(MCEvent::Instantiate(MCEvent::PropertySet, &m_xSubject, 1));
        return m_sLog;
    }

    Recorder m_axRecorders[c_nRecorders];
    std::string m_sLog;
    MCSubject m_xSubject;
};

TEST_F(SubjectTest, CountsTypesAndStaleEntriesFollowAddAndRemove) {
    // Steps on subscriber 0: "+t" adds with type t, "-t" removes with type t.
    const struct {
        const char* pcName;
        const char* pcSteps;
        const char* pcExpected;
    } axCases[] = {
        {"second add counts and unions types", "+1 +2", "0:2/3"},
        {"types keep their low 8 bits", "+0x1FF", "0:1/255"},
        {"removing 1 of 1|4 keeps 4", "+1 +4 -1", "0:1/4"},
        {"bit 4 in a removal clears nothing", "+5 -4", "0:0/5"},
        {"0xFFFF clears all but bit 4", "+7 -0xFFFF", "0:0/4"},
        {"removing a stale entry changes nothing", "+1 -0 -1", "0:0/1"},
        {"revival counts 1 and ORs the types", "+1 -0 +2", "0:1/3"},
        {"removing the unsubscribed is harmless", "-1", ""},
    };
    for (const auto& rCase : axCases) {
        SCOPED_TRACE(rCase.pcName);
        std::istringstream xSteps(rCase.pcSteps);
        for (std::string sStep; xSteps >> sStep;) {
            const auto nType = static_cast<unsigned int>(std::stoul(sStep.substr(1), nullptr, 0));
            if (sStep[0] == '+')
                m_xSubject.AddSubscriber(R(0), nType);
            else
                m_xSubject.RemoveSubscriber(R(0), nType);
        }
        EXPECT_EQ(Entries(), rCase.pcExpected);
        m_xSubject.RemoveAllSubscribers();
    }
}

TEST_F(SubjectTest, DeliveryFollowsAddressesAndSharedTypeBits) {
    m_xSubject.AddSubscriber(R(3), 4);
    m_xSubject.AddSubscriber(R(1), 1);
    m_xSubject.AddSubscriber(R(2), 2);
    m_xSubject.AddSubscriber(R(0), 1);
    m_xSubject.AddSubscriber(R(0), 2);
    std::string sOut;
    for (unsigned int nMask : {1u, 2u, 3u, 4u, 7u, 8u}) {
        m_sLog.clear();
        m_xSubject.NotifySubscribers(MCEvent::Instantiate(MCEvent::PropertySet, &m_xSubject, nMask));
        sOut += std::to_string(nMask) + "[" + m_sLog + "] ";
    }
    EXPECT_EQ(sOut, "1[0 1] 2[0 2] 3[0 1 2] 4[3] 7[0 1 2 3] 8[] ");
}

// Random adds and removes against a plain model of the list, across the index threshold both ways: order,
// counts, types, revival and the purge of more than ten stale entries must agree at every checkpoint.
TEST_F(SubjectTest, LongListsBehaveLikeShortOnes) {
    std::map<int, std::pair<unsigned int, unsigned int>> xModel;  // number -> count, type
    auto Render = [&xModel] {
        std::string s;
        for (const auto& [nNumber, xEntry] : xModel)
            s += (s.empty() ? "" : " ") + std::to_string(nNumber) + ":" + std::to_string(xEntry.first) + "/" +
                 std::to_string(xEntry.second);
        return s;
    };
    std::mt19937 xRandom(7);
    const struct {
        int nOps;
        int nAddPercent;
        int nRange;
    } axPhases[] = {{3000, 70, 300}, {4000, 10, 300}, {1500, 60, 40}, {2000, 5, 40}};
    for (const auto& rPhase : axPhases) {
        for (int i = 0; i < rPhase.nOps; ++i) {
            const int nNumber = static_cast<int>(xRandom() % static_cast<unsigned>(rPhase.nRange));
            const unsigned int nType = 1u + xRandom() % 7u;
            if (static_cast<int>(xRandom() % 100) < rPhase.nAddPercent) {
                m_xSubject.AddSubscriber(R(nNumber), nType);
                auto& rEntry = xModel[nNumber];
                ++rEntry.first;
                rEntry.second |= nType;
            } else {
                m_xSubject.RemoveSubscriber(R(nNumber), nType);
                auto it = xModel.find(nNumber);
                if (it != xModel.end() && it->second.first > 0) {
                    --it->second.first;
                    it->second.second &= ~(nType & ~4u);
                }
            }
            int nStale = 0;
            for (const auto& rEntry : xModel)
                nStale += rEntry.second.first == 0;
            if (nStale > 10) {
                for (auto it = xModel.begin(); it != xModel.end();)
                    it = it->second.first == 0 ? xModel.erase(it) : std::next(it);
            }
        }
        ASSERT_EQ(Entries(), Render());
    }
}

TEST_F(SubjectTest, MoreThanTenStaleEntriesArePurgedWhenTheLastWalkEnds) {
    const struct {
        const char* pcName;
        int nEntries;
        int nRemoved;
        bool bUnderGuard;
        int nRevived;
        long nExpected;
    } axCases[] = {
        {"ten stale stay", 12, 10, false, 0, 12},
        {"eleven stale go", 12, 11, false, 0, 1},
        {"eleven stale go, indexed", 40, 11, false, 0, 29},
        {"a guard defers the purge", 40, 11, true, 0, 29},
        {"a revived entry stays", 40, 12, true, 1, 29},
        {"a revived entry stays, short list", 14, 12, true, 1, 3},
    };
    for (const auto& rCase : axCases) {
        SCOPED_TRACE(rCase.pcName);
        for (int i = 0; i < rCase.nEntries; ++i)
            m_xSubject.AddSubscriber(R(i), 1);
        {
            std::unique_ptr<MCSubjectUser> pGuard(rCase.bUnderGuard ? new MCSubjectUser(m_xSubject)
                                                                    : nullptr);
            for (int i = 0; i < rCase.nRemoved; ++i)
                m_xSubject.RemoveSubscriber(R(i), 1);
            for (int i = 0; i < rCase.nRevived; ++i)
                m_xSubject.AddSubscriber(R(0), 1);
            if (rCase.bUnderGuard) {
                EXPECT_EQ(RawCount(), rCase.nEntries);
            }
        }
        EXPECT_EQ(RawCount(), rCase.nExpected);
        std::string sExpected = rCase.nRevived > 0 ? "0" : "";
        for (int i = rCase.nRemoved; i < rCase.nEntries; ++i)
            sExpected += (sExpected.empty() ? "" : " ") + std::to_string(i);
        EXPECT_EQ(Deliver(), sExpected);
        m_xSubject.RemoveAllSubscribers();
    }
}

// Re-entrant changes during a delivery, on a short list, one that grows past the index threshold during
// the walk, and an indexed one. The padding entries have type 2 and so are walked but never called.
class ReentrantDeliveryTest : public SubjectTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReentrantDeliveryTest, ChangesDuringDeliveryReachTheWalkAsTheirAddressSays) {
    // 1, 2, 3 are subscribed; 0 lies before them, 4 after; padding from 10 on.
    using Fixture = ReentrantDeliveryTest;
    const struct {
        const char* pcName;
        int nActor;
        std::function<void(Fixture&, MCEvent&)> xAct;
        const char* pcExpected;
    } axCases[] = {
        {"self removal goes on", 2, [](Fixture& t, MCEvent&) { t.m_xSubject.RemoveSubscriber(t.R(2), 1); },
         "1 2 3 | 1 3"},
        {"a later one removed is not called", 1,
         [](Fixture& t, MCEvent&) { t.m_xSubject.RemoveSubscriber(t.R(3), 1); }, "1 2 | 1 2"},
        {"a later one added is called", 2,
         [](Fixture& t, MCEvent&) { t.m_xSubject.AddSubscriber(t.R(4), 1); }, "1 2 3 4 | 1 2 3 4"},
        {"an earlier one added is not", 2,
         [](Fixture& t, MCEvent&) { t.m_xSubject.AddSubscriber(t.R(0), 1); }, "1 2 3 | 0 1 2 3"},
        {"removed and re-added ahead is called", 1,
         [](Fixture& t, MCEvent&) {
             t.m_xSubject.RemoveSubscriber(t.R(3), 1);
             t.m_xSubject.AddSubscriber(t.R(3), 1);
         },
         "1 2 3 | 1 2 3"},
        {"nested delivery", 2, [](Fixture& t, MCEvent& e) { t.m_xSubject.NotifySubscribers(e); },
         "1 2 1 2 3 3 | 1 2 3"},
        {"mass removal in a nested delivery frees nothing under the walk", 2,
         [](Fixture& t, MCEvent&) {
             t.R(1)->m_xAction = [&t](MCEvent&) {
                 for (int i = 0; i < 14; ++i)
                     t.m_xSubject.RemoveSubscriber(t.R(i < 2 ? 2 * i + 1 : 8 + i), 0xFF);
             };
             t.m_xSubject.NotifySubscribers(MCEvent::Instantiate(MCEvent::PropertySet, &t.m_xSubject, 1));
         },
         "1 2 1 2 | 2"},
    };
    for (const auto& rCase : axCases) {
        SCOPED_TRACE(rCase.pcName);
        for (int i = 1; i <= 3; ++i)
            m_xSubject.AddSubscriber(R(i), 1);
        for (int i = 0; i < GetParam(); ++i)
            m_xSubject.AddSubscriber(R(10 + i), 2);
        R(rCase.nActor)->m_xAction = [this, &rCase](MCEvent& rEvent) { rCase.xAct(*this, rEvent); };
        const std::string sFirst = Deliver();
        EXPECT_EQ(sFirst + " | " + Deliver(), rCase.pcExpected);
        for (Recorder& rRecorder : m_axRecorders)
            rRecorder.m_xAction = nullptr;
        m_xSubject.RemoveAllSubscribers();
    }
}

// A walk whose other entries never had the event's type reads only the first subscriber's entry; changes
// made while it hears must reach the walk as on a list where a stale entry once had that type.
TEST_P(ReentrantDeliveryTest, AWalkOnlyTheFirstEntryCanHearMatchesTheFullWalk) {
    // 2 came first, so its entry is the subject's own; holders (type 4) lie around it and from 10 on.
    using Fixture = ReentrantDeliveryTest;
    const struct {
        const char* pcName;
        std::function<void(Fixture&, MCEvent&)> xAct;
        const char* pcExpected;
    } axCases[] = {
        {"a later one added with the event's type is called",
         [](Fixture& t, MCEvent&) { t.m_xSubject.AddSubscriber(t.R(4), 1); }, "2 4 | 2 4"},
        {"a later one added with another type is not",
         [](Fixture& t, MCEvent&) { t.m_xSubject.AddSubscriber(t.R(4), 2); }, "2 | 2"},
        {"an earlier one added is not called",
         [](Fixture& t, MCEvent&) { t.m_xSubject.AddSubscriber(t.R(1), 1); }, "2 | 1 2"},
        {"a later holder taking the event's type is called",
         [](Fixture& t, MCEvent&) { t.m_xSubject.AddSubscriber(t.R(9), 1); }, "2 9 | 2 9"},
        {"the first removing itself", [](Fixture& t, MCEvent&) { t.m_xSubject.RemoveSubscriber(t.R(2), 1); },
         "2 | "},
        {"nested delivery", [](Fixture& t, MCEvent& e) { t.m_xSubject.NotifySubscribers(e); }, "2 2 | 2"},
    };
    for (const auto& rCase : axCases) {
        SCOPED_TRACE(rCase.pcName);
        std::string asTraces[2];
        for (int nFull = 0; nFull < 2; ++nFull) {
            m_xSubject.AddSubscriber(R(2), 1);
            for (int i : {0, 3, 9})
                m_xSubject.AddSubscriber(R(i), 4);
            for (int i = 0; i < GetParam(); ++i)
                m_xSubject.AddSubscriber(R(10 + i), 4);
            if (nFull) {
                // A stale entry that once had the event's type makes every walk a full one.
                m_xSubject.AddSubscriber(R(299), 1);
                m_xSubject.RemoveSubscriber(R(299), 1);
            }
            R(2)->m_xAction = [this, &rCase](MCEvent& rEvent) { rCase.xAct(*this, rEvent); };
            const std::string sFirst = Deliver();
            asTraces[nFull] = sFirst + " | " + Deliver();
            for (Recorder& rRecorder : m_axRecorders)
                rRecorder.m_xAction = nullptr;
            m_xSubject.RemoveAllSubscribers();
        }
        EXPECT_EQ(asTraces[0], rCase.pcExpected);
        EXPECT_EQ(asTraces[1], asTraces[0]);
    }
}

INSTANTIATE_TEST_SUITE_P(ListLengths, ReentrantDeliveryTest, ::testing::Values(0, 13, 60));

TEST_F(SubjectTest, AThrowingSubscriberEndsDeliveryAndReleasesTheGuards) {
    const long nEventsBefore = MCEvent::c_nInstanceCount;
    for (int i = 0; i < 20; ++i)
        m_xSubject.AddSubscriber(R(i), 1);
    R(1)->m_xAction = [](MCEvent&) { throw 42; };
    EXPECT_THROW(Deliver(), int);
    // Subscriber 2 and on were not reached, the event is gone, and the subject is free to purge again.
    for (int i = 3; i < 14; ++i)
        m_xSubject.RemoveSubscriber(R(i), 1);
    EXPECT_EQ(m_sLog + " | " + std::to_string(MCEvent::c_nInstanceCount - nEventsBefore) + " | " +
                  std::to_string(RawCount()),
              "0 1 | 0 | 9");
}

TEST_F(SubjectTest, SubscriberIteratorSkipsStaleEntriesFiltersAndSorts) {
    for (int i = 0; i < 4; ++i)
        m_xSubject.AddSubscriber(R(i), i == 2 ? 2u : i == 3 ? 1u : 3u);
    m_xSubject.RemoveSubscriber(R(1), 0);
    struct TypeTwo : ZVTFilter<MCSubscriberReference*> {
        ZVTBoolean Test(MCSubscriberReference*& p) override { return (p->GetSubscriberType() & 2) != 0; }
    } xTypeTwo;
    struct Descending : ZVTSorter<MCSubscriberReference*> {
        void Sort(MCSubscriberReference** pEntries, long nCount) override {
            std::reverse(pEntries, pEntries + nCount);
        }
    } xDescending;
    auto Walk = [](MCSubscriberListIter& rIter) {
        std::string s = std::to_string(rIter.GetCount()) + ":";
        while (++rIter)
            s += " " + std::to_string(static_cast<Recorder*>(rIter.GetValue())->m_nNumber);
        return s;
    };
    MCSubscriberListIter xPlain(&m_xSubject), xFiltered(&m_xSubject, &xTypeTwo, nullptr),
        xSorted(&m_xSubject, nullptr, &xDescending), xBoth(&m_xSubject, &xTypeTwo, &xDescending);
    m_xSubject.AddSubscriber(R(4), 2);       // seen live, not by a snapshot
    EXPECT_EQ(xSorted.GetValue(), nullptr);  // nothing before the first step
    EXPECT_EQ(Walk(xPlain) + " | " + Walk(xFiltered) + " | " + Walk(xSorted) + " | " + Walk(xBoth),
              "5: 0 2 3 4 | 3: 0 2 4 | 4: 3 2 0 | 3: 2 0");

    // Copies, made or assigned, share one cursor, and a reset of one takes every copy back to the start.
    MCSubscriberListIter xFirst(&m_xSubject);
    ++xFirst;
    MCSubscriberListIter xSecond(xFirst);
    ++xSecond;
    xPlain = xSecond;
    ++xPlain;
    EXPECT_EQ(static_cast<Recorder*>(xFirst.GetValue())->m_nNumber, 3);
    xSecond.Reset(true);
    EXPECT_EQ(Walk(xFirst), "5: 0 2 3 4");
}

TEST_F(SubjectTest, DumpListsLiveEntriesWithTypeAndCount) {
    m_xSubject.AddSubscriber(R(0), 1);
    m_xSubject.AddSubscriber(R(0), 1);
    m_xSubject.AddSubscriber(R(1), 1);
    m_xSubject.RemoveSubscriber(R(1), 1);
    m_xSubject.AddSubscriber(R(2), 4);
    const std::string sPath = ::testing::TempDir() + "subject_dump.txt";
    {
        std::ofstream xOut(sPath);
        EXPECT_EQ(m_xSubject.Dump(xOut, 0), 0u);
    }
    std::ifstream xIn(sPath);
    const std::string sText((std::istreambuf_iterator<char>(xIn)), std::istreambuf_iterator<char>());
    std::remove(sPath.c_str());
    EXPECT_EQ(sText,
              "\t\t(anonymous namespace)::Recorder, RefCnt=2\n"
              "\t\t(anonymous namespace)::Recorder, RefCnt=1\n");
}

}  // namespace
