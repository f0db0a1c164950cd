// Subjects and subscribers: list order and counts, stale entries and their purge, re-entrant delivery on
// short and indexed lists, the subscriber iterator and the subject dump.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>

#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"

namespace {

// Logs its number when notified and runs its action once. Elements of one array have ascending
// addresses, so the number is also the delivery rank.
struct Recorder : MCSubscriber {
    void Notify(MCEvent& rEvent) override {
        c_sLog += (c_sLog.empty() ? "" : " ") + std::to_string(m_nNumber);
        if (m_xAction)
            std::exchange(m_xAction, nullptr)(rEvent);
    }

    static inline std::string c_sLog;
    int m_nNumber = 0;
    std::function<void(MCEvent&)> m_xAction;
};

constexpr int c_nRecorders = 300;

struct SubjectTest : ::testing::Test {
    SubjectTest() {
        for (int i = 0; i < c_nRecorders; ++i)
            m_axRecorders[i].m_nNumber = i;
    }
    ~SubjectTest() override { m_xSubject.RemoveAllSubscribers(); }

    Recorder* R(int i) { return &m_axRecorders[i]; }
    /// Every entry, stale ones too, as "number:count/type" in list order.
    std::string Entries() {
        struct Probe : ZVTFilter<MCSubscriberReference*> {
            ZVTBoolean Test(MCSubscriberReference*& pEntry) override {
                m_sOut += (m_sOut.empty() ? "" : " ") +
                          std::to_string(static_cast<const Recorder*>(pEntry->GetSubscriber())->m_nNumber) +
                          ":" + std::to_string(pEntry->GetReferenceCount()) + "/" +
                          std::to_string(pEntry->GetSubscriberType());
                return false;
            }
            std::string m_sOut;
        } xProbe;
        MCSubscriberListIter xWalk(&m_xSubject, &xProbe, nullptr);
        return xProbe.m_sOut;
    }
    long RawCount() { return MCSubscriberListIter(&m_xSubject).GetCount(); }
    /// Delivers a new event to the subscribers of type 1 and returns who got it.
    std::string Deliver() {
        Recorder::c_sLog.clear();
        Apply("D");
        return Recorder::c_sLog;
    }
    /// Runs `sSteps`: "+N:T" adds recorder N with type T (default 1), "-N:T" removes it, "-A..B:T" removes a
    /// range, "+~:T" and "-~:T" add and remove a null subscriber, "n" re-delivers `pEvent` nested, "D"
    /// delivers a new event, and "@N ... @" makes the steps between the marks recorder N's action.
    void Apply(const std::string& sSteps, MCEvent* pEvent = nullptr) {
        std::istringstream xSteps(sSteps);
        for (std::string sStep; xSteps >> sStep;) {
            if (sStep[0] == '@') {
                std::string sAction;
                for (std::string sNext; xSteps >> sNext && sNext != "@";)
                    sAction += sNext + " ";
                R(std::stoi(sStep.substr(1)))->m_xAction = [this, sAction](MCEvent& e) {
                    Apply(sAction, &e);
                };
            } else if (sStep == "n" || sStep == "D") {
                m_xSubject.NotifySubscribers(
                    sStep == "n" ? *pEvent : MCEvent::Instantiate(MCEvent::PropertySet, &m_xSubject, 1));
            } else {
                int nFirst = -1, nLast = -1, nType = 1;  // -1: the null subscriber
                if (sStep[1] == '~')
                    std::sscanf(sStep.c_str() + 2, ":%i", &nType);
                else if (std::sscanf(sStep.c_str() + 1, "%d..%d:%i", &nFirst, &nLast, &nType) < 2)
                    nLast = nFirst, std::sscanf(sStep.c_str() + 1, "%d:%i", &nFirst, &nType);
                for (int i = nFirst; i <= nLast; ++i)
                    sStep[0] == '+'
                        ? m_xSubject.AddSubscriber(i < 0 ? nullptr : R(i), static_cast<unsigned>(nType))
                        : m_xSubject.RemoveSubscriber(i < 0 ? nullptr : R(i), static_cast<unsigned>(nType));
            }
        }
    }

    Recorder m_axRecorders[c_nRecorders];
    MCSubject m_xSubject;
};

// Random adds and removes against a plain model of the list, across the index threshold both ways and on a
// list that stays short, with subscribers on both sides of the subject's own entry: order, counts, types,
// revival and the purge of more than ten stale entries must agree at every checkpoint.
TEST_F(SubjectTest, LongListsBehaveLikeShortOnes) {
    std::map<int, std::pair<unsigned int, unsigned int>> xModel;  // number -> count, type
    std::mt19937 xRandom(7);
    const struct {
        int nOps, nAddPercent, nRange;
    } axPhases[] = {{1500, 55, 12}, {3000, 70, 300}, {4000, 10, 300}, {1500, 60, 40}, {2000, 5, 40}};
    for (const auto& rPhase : axPhases) {
        for (int i = 0; i < rPhase.nOps; ++i) {
            const int nNumber = static_cast<int>(xRandom() % static_cast<unsigned>(rPhase.nRange));
            const unsigned int nType = 1u + xRandom() % 7u;
            auto it = xModel.find(nNumber);
            if (static_cast<int>(xRandom() % 100) < rPhase.nAddPercent) {
                // A type keeps its low 8 bits.
                m_xSubject.AddSubscriber(R(nNumber), nType | (i % 2 ? 0x300u : 0u));
                auto& rEntry = xModel[nNumber];
                ++rEntry.first;
                rEntry.second |= nType;
            } else {
                m_xSubject.RemoveSubscriber(R(nNumber), nType);
                if (it != xModel.end() && it->second.first > 0) {
                    --it->second.first;
                    it->second.second &= ~(nType & ~4u);
                }
            }
            if (std::count_if(xModel.begin(), xModel.end(),
                              [](const auto& e) { return e.second.first == 0; }) > 10)
                for (it = xModel.begin(); it != xModel.end();)
                    it = it->second.first == 0 ? xModel.erase(it) : std::next(it);
            if (i % 50 == 0 || i + 1 == rPhase.nOps) {
                std::string sModel;
                for (const auto& [nAt, xEntry] : xModel)
                    sModel += (sModel.empty() ? "" : " ") + std::to_string(nAt) + ":" +
                              std::to_string(xEntry.first) + "/" + std::to_string(xEntry.second);
                ASSERT_EQ(Entries(), sModel);
            }
        }
    }
}

// Re-entrant changes during a delivery, on a short list, one that grows past the index threshold during
// the walk, and an indexed one; the padding entries from 10 on are walked but never called. Each row runs as
// it is and with a stale entry that once had the event's type, which makes every walk a full one: a list only
// its first entry can hear is walked by a shortcut that must not differ.
class ReentrantDeliveryTest : public SubjectTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReentrantDeliveryTest, ChangesDuringDeliveryReachTheWalkAsTheirAddressSays) {
    const char* const pcAllHear = "+1 +2 +3";              // 0 lies before them, 4 after; padding of type 2
    const char* const pcFirstHears = "+2 +0:4 +3:4 +9:4";  // 2 came first: its entry is the subject's own
    const struct {
        const char* pcName;
        const char* pcSetup;
        int nActor;
        const char* pcAct;
        const char* pcExpected;
    } axCases[] = {
        {"self removal goes on", pcAllHear, 2, "-2", "1 2 3 | 1 3"},
        {"a later one removed is not called", pcAllHear, 1, "-3", "1 2 | 1 2"},
        {"a later one added is called", pcAllHear, 2, "+4", "1 2 3 4 | 1 2 3 4"},
        {"an earlier one added is not", pcAllHear, 2, "+0", "1 2 3 | 0 1 2 3"},
        {"removed and re-added ahead is called", pcAllHear, 1, "-3 +3", "1 2 3 | 1 2 3"},
        {"nested delivery", pcAllHear, 2, "n", "1 2 1 2 3 3 | 1 2 3"},
        {"mass removal in a nested delivery frees nothing under the walk", pcAllHear, 2,
         "@1 -1:0xFF -3:0xFF -10..21:0xFF @ D", "1 2 1 2 | 2"},
        {"first alone: a later one added with the event's type is called", pcFirstHears, 2, "+4",
         "2 4 | 2 4"},
        {"first alone: a later one added with another type is not", pcFirstHears, 2, "+4:2", "2 | 2"},
        {"first alone: an earlier one added is not called", pcFirstHears, 2, "+1", "2 | 1 2"},
        {"first alone: a later holder taking the event's type is called", pcFirstHears, 2, "+9", "2 9 | 2 9"},
        {"first alone: removing itself", pcFirstHears, 2, "-2", "2 | "},
        {"first alone: nested delivery", pcFirstHears, 2, "n", "2 2 | 2"},
        // Entered in the subject's own slot, a null subscriber would read as free and be linked twice.
        {"a null subscriber is never entered", "+~:0 +1 +2", 1, "-~:1", "1 2 | 1 2"},
    };
    for (const auto& rCase : axCases) {
        for (const char* pcFull : {"", " +299 -299"}) {
            SCOPED_TRACE(std::string(rCase.pcName) + pcFull);
            Apply(rCase.pcSetup + std::string(pcFull));
            if (GetParam())
                Apply("+10.." + std::to_string(9 + GetParam()) + (rCase.pcSetup == pcAllHear ? ":2" : ":4"));
            R(rCase.nActor)->m_xAction = [this, &rCase](MCEvent& rEvent) { Apply(rCase.pcAct, &rEvent); };
            const std::string sFirst = Deliver();
            EXPECT_EQ(sFirst + " | " + Deliver(), rCase.pcExpected);
            for (Recorder& rRecorder : m_axRecorders)
                rRecorder.m_xAction = nullptr;
            m_xSubject.RemoveAllSubscribers();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ListLengths, ReentrantDeliveryTest, ::testing::Values(0, 13, 60));

TEST_F(SubjectTest, AThrowingSubscriberEndsDeliveryAndReleasesTheGuards) {
    const long nEventsBefore = MCEvent::c_nInstanceCount;
    Apply("+0..19");
    R(1)->m_xAction = [](MCEvent&) { throw 42; };
    EXPECT_THROW(Deliver(), int);
    // Subscriber 2 and on were not reached, the event is gone, and the subject is free to purge again: a
    // guard defers the purge of more than ten stale entries only until it goes.
    std::string sRaw;
    {
        MCSubjectUser xGuard(m_xSubject);
        Apply("-3..13");
        sRaw = std::to_string(RawCount());
    }
    EXPECT_EQ(Recorder::c_sLog + " | " + std::to_string(MCEvent::c_nInstanceCount - nEventsBefore) + " | " +
                  sRaw + " " + std::to_string(RawCount()),
              "0 1 | 0 | 20 9");
}

TEST_F(SubjectTest, SubscriberIteratorSkipsStaleEntriesFiltersAndSorts) {
    Apply("+0:3 +1:3 +2:2 +3:1 -1:0");
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
    Apply("+0 +0 +1 -1 +2:4");
    const std::string sPath = ::testing::TempDir() + "subject_dump.txt";
    std::ofstream xOut(sPath);
    EXPECT_EQ(m_xSubject.Dump(xOut, 0), 0u);
    xOut.close();
    std::stringstream xText;
    xText << std::ifstream(sPath).rdbuf();
    std::remove(sPath.c_str());
    EXPECT_EQ(xText.str(),
              "\t\t(anonymous namespace)::Recorder, RefCnt=2\n"
              "\t\t(anonymous namespace)::Recorder, RefCnt=1\n");
}

}  // namespace
