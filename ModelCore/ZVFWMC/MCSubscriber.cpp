#include "ModelCore/ZVFWMC/MCSubscriber.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCEventPrivate.h"
#include "ModelCore/ZVFWMC/MCNotification.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "foundation/ZVTReference.h"

namespace {

// Stale entries are purged in batches once there are more than this many.
const unsigned int c_nStaleThreshold = 10;

// A list longer than this gets its ordered index; one at or below the lower mark after a clean-up loses
// it again. The gap keeps a list near the limit from building and dropping it in turn.
constexpr long c_nIndexAbove = 16;
constexpr std::size_t c_nUnindexAtOrBelow = 8;

// A stale list that grew for a mass removal is not kept at that size.
constexpr std::size_t c_nKeptStaleCapacity = 64;

// The only bit of a subscriber type that RemoveSubscriber never clears.
constexpr unsigned int c_nPermanentType = 4;

// The subscriber types whose entries the audibility memos count (MCObject::IsHeard remembers answers
// for events to owners and observers only): an entry of a reference holder alone changes none.
constexpr unsigned int c_nHeardTypes = MCEvent::subscriberOwner | MCEvent::subscriberObserver;

// Subscriber addresses are compared through std::less: a total order even for unrelated objects.
bool Before(const MCSubscriber* pLeft, const MCSubscriber* pRight) {
    return std::less<const MCSubscriber*>()(pLeft, pRight);
}

}  // namespace

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
static_assert(sizeof(MCSubscriberReference) <= 24, "a subscription is one small heap node");
static_assert(sizeof(MCSubject) <= 48, "every object carries a subject");
#endif

// The ordered index of a long list. It holds every entry, live or stale, ordered like the list, so the
// predecessor of an entry is its predecessor in the index; and the entries that went stale since the
// last clean-up, each once (m_bStaleListed), so a clean-up need not walk the list.
class MCSubject::SubscriberIndex {
public:
    struct BySubscriber {
        using is_transparent = void;
        bool operator()(const MCSubscriberReference* pLeft, const MCSubscriberReference* pRight) const {
            return Before(pLeft->GetSubscriber(), pRight->GetSubscriber());
        }
        bool operator()(const MCSubscriberReference* pLeft, const MCSubscriber* pRight) const {
            return Before(pLeft->GetSubscriber(), pRight);
        }
        bool operator()(const MCSubscriber* pLeft, const MCSubscriberReference* pRight) const {
            return Before(pLeft, pRight->GetSubscriber());
        }
    };
    using Order = std::set<MCSubscriberReference*, BySubscriber>;

    // The entry before the one at it, null for the first.
    MCSubscriberReference* Predecessor(Order::iterator it) const {
        return it == m_xOrder.begin() ? nullptr : *std::prev(it);
    }

    MCSubscriberReference* m_pxFirst = nullptr;
    Order m_xOrder;
    std::vector<MCSubscriberReference*> m_xStale;
};

MCSubject::~MCSubject() {
    RemoveAllSubscribers();
}

MCSubject::SubscriberIndex* MCSubject::GetIndex() const {
    return reinterpret_cast<SubscriberIndex*>(m_uSubscribers & ~static_cast<std::uintptr_t>(1));
}

MCSubscriberReference* MCSubject::First() const {
    return IsIndexed() ? GetIndex()->m_pxFirst : reinterpret_cast<MCSubscriberReference*>(m_uSubscribers);
}

void MCSubject::SetFirst(MCSubscriberReference* pEntry) {
    if (IsIndexed())
        GetIndex()->m_pxFirst = pEntry;
    else
        m_uSubscribers = reinterpret_cast<std::uintptr_t>(pEntry);
}

void MCSubject::Link(MCSubscriberReference* pBefore, MCSubscriberReference* pEntry) {
    if (pBefore != nullptr) {
        pEntry->m_pxNext = pBefore->m_pxNext;
        pBefore->m_pxNext = pEntry;
    } else {
        pEntry->m_pxNext = First();
        SetFirst(pEntry);
    }
}

void MCSubject::Unlink(MCSubscriberReference* pBefore, MCSubscriberReference* pEntry) {
    // A saturated count stays so: the list is then counted by walking it.
    if (!IsIndexed() && IsShortCounted())
        m_nState = static_cast<std::uint8_t>(m_nState - c_nShortCountUnit);
    if (pBefore != nullptr)
        pBefore->m_pxNext = pEntry->m_pxNext;
    else
        SetFirst(pEntry->m_pxNext);
}

MCSubscriberReference* MCSubject::NewEntry(MCSubscriber* pSubscriber, unsigned int nType) {
    if (m_xOwnEntry.m_pxSubscriber != nullptr) {
        m_nState = static_cast<std::uint8_t>(m_nState | OtherTypeBits(nType));
        return new MCSubscriberReference(pSubscriber, nType);
    }
    m_xOwnEntry.Initialize(pSubscriber, nType);
    m_xOwnEntry.m_pxNext = nullptr;
    return &m_xOwnEntry;
}

void MCSubject::FreeEntry(MCSubscriberReference* pEntry) {
    if (pEntry == &m_xOwnEntry) {
        // Free again; the copy-assignment would keep the list fields.
        m_xOwnEntry.Initialize(nullptr, 0);
        m_xOwnEntry.m_nReferenceCount = 0;
        m_xOwnEntry.m_pxNext = nullptr;
        m_xOwnEntry.m_bStaleListed = 0;
    } else
        delete pEntry;
}

MCSubscriberReference* MCSubject::Find(MCSubscriber* pSubscriber) const {
    if (IsIndexed()) {
        const SubscriberIndex::Order& rOrder = GetIndex()->m_xOrder;
        auto it = rOrder.find(pSubscriber);
        return it == rOrder.end() ? nullptr : *it;
    }
    MCSubscriberReference* pBefore = nullptr;
    for (MCSubscriberReference* pEntry = WalkStart(pSubscriber, pBefore); pEntry != nullptr;
         pEntry = pEntry->m_pxNext) {
        if (pEntry->m_pxSubscriber == pSubscriber)
            return pEntry;
        if (Before(pSubscriber, pEntry->m_pxSubscriber))
            break;
    }
    return nullptr;
}

void MCSubject::SetShortCount(std::size_t nEntries) {
    const auto nCount =
        static_cast<std::uint8_t>(std::min<std::size_t>(nEntries, c_nShortCountKnown) << c_nShortCountShift);
    m_nState = static_cast<std::uint8_t>((m_nState & ~c_nShortCountBits) | nCount);
}

MCSubscriberReference* MCSubject::WalkStart(MCSubscriber* pSubscriber,
                                            MCSubscriberReference*& rpBefore) const {
    MCSubscriber* pOwn = m_xOwnEntry.m_pxSubscriber;
    if (pOwn != nullptr && Before(pOwn, pSubscriber)) {
        rpBefore = const_cast<MCSubscriberReference*>(&m_xOwnEntry);
        return m_xOwnEntry.m_pxNext;
    }
    rpBefore = nullptr;
    return First();
}

void MCSubject::Revive(MCSubscriberReference& rEntry, unsigned int nType) {
    const unsigned int nHeardBefore =
        rEntry.m_nReferenceCount == 0 ? 0 : rEntry.m_nSubscriberType & c_nHeardTypes;
    if (rEntry.m_nReferenceCount == 0)
        --m_nStaleEntries;
    if (&rEntry != &m_xOwnEntry)
        m_nState = static_cast<std::uint8_t>(m_nState | OtherTypeBits(nType));
    rEntry.AddReference();
    rEntry.SetSubscriberType(rEntry.m_nSubscriberType | nType);
    if ((rEntry.m_nSubscriberType & c_nHeardTypes) != nHeardBefore)
        ListChanged();
}

long MCSubject::Entries() const {
    if (IsIndexed())
        return static_cast<long>(GetIndex()->m_xOrder.size());
    long nEntries = 0;
    for (MCSubscriberReference* pEntry = First(); pEntry != nullptr; pEntry = pEntry->m_pxNext)
        ++nEntries;
    return nEntries;
}

int MCSubject::CountHearers(unsigned int nMask, MCSubscriber*& rpHearer) const {
    if (IsIndexed() || (m_nUsers == 0 && m_nStaleEntries > c_nStaleThreshold))
        return 2;
    if ((m_nState & OtherTypeBits(nMask)) == 0) {
        // Only the own entry can share a bit with the mask: the other nodes, one cache miss each on a
        // popular target or a holder far away, stay unread.
        if (m_xOwnEntry.m_pxSubscriber == nullptr || m_xOwnEntry.m_nReferenceCount == 0 ||
            (m_xOwnEntry.m_nSubscriberType & nMask) == 0)
            return 0;
        rpHearer = m_xOwnEntry.m_pxSubscriber;
        return 1;
    }
    int nHearers = 0;
    for (const MCSubscriberReference* pEntry = First(); pEntry != nullptr; pEntry = pEntry->m_pxNext) {
        if (pEntry->m_nReferenceCount == 0 || (pEntry->m_nSubscriberType & nMask) == 0)
            continue;
        if (++nHearers == 2)
            return 2;
        rpHearer = pEntry->m_pxSubscriber;
    }
    return nHearers;
}

void MCSubject::Subscribe(MCSubscriber* pSubscriber, unsigned int nType) {
    // Nobody could be served through a null entry, and in the own slot it would read as free.
    if (pSubscriber == nullptr)
        return;
    MCSubjectUser xGuard(*this);
    if (IsIndexed()) {
        SubscriberIndex& rIndex = *GetIndex();
        auto it = rIndex.m_xOrder.lower_bound(pSubscriber);
        if (it != rIndex.m_xOrder.end() && (*it)->m_pxSubscriber == pSubscriber) {
            Revive(**it, nType);
            return;
        }
        MCSubscriberReference* pBefore = rIndex.Predecessor(it);
        MCSubscriberReference* pEntry = NewEntry(pSubscriber, nType);
        try {
            rIndex.m_xOrder.insert(it, pEntry);
        } catch (...) {
            FreeEntry(pEntry);
            throw;
        }
        Link(pBefore, pEntry);
        if (nType & c_nHeardTypes)
            ListChanged();
        return;
    }

    // A list of known length needs no index after one more entry, and its walk ends at the new entry's
    // place; a longer one is walked whole, to count it.
    const bool bCounted = !IsShortCounted();
    MCSubscriberReference* pBefore = nullptr;
    MCSubscriberReference* pEntry = bCounted ? First() : WalkStart(pSubscriber, pBefore);
    long nEntries = 0;
    for (; pEntry != nullptr; pBefore = pEntry, pEntry = pEntry->m_pxNext, ++nEntries) {
        if (pEntry->m_pxSubscriber == pSubscriber) {
            Revive(*pEntry, nType);
            return;
        }
        if (Before(pSubscriber, pEntry->m_pxSubscriber))
            break;
    }
    Link(pBefore, NewEntry(pSubscriber, nType));
    if (nType & c_nHeardTypes)
        ListChanged();
    if (!bCounted) {
        m_nState = static_cast<std::uint8_t>(m_nState + c_nShortCountUnit);
        return;
    }
    for (; pEntry != nullptr; pEntry = pEntry->m_pxNext)
        ++nEntries;
    if (nEntries + 1 > c_nIndexAbove)
        BuildIndex();
}

void MCSubject::BuildIndex() {
    std::unique_ptr<SubscriberIndex> pIndex(new SubscriberIndex);
    pIndex->m_pxFirst = First();
    for (MCSubscriberReference* pEntry = pIndex->m_pxFirst; pEntry != nullptr; pEntry = pEntry->m_pxNext) {
        pIndex->m_xOrder.insert(pIndex->m_xOrder.end(), pEntry);
        if (pEntry->m_nReferenceCount == 0) {
            pIndex->m_xStale.push_back(pEntry);
            pEntry->m_bStaleListed = 1;
        }
    }
    m_uSubscribers = reinterpret_cast<std::uintptr_t>(pIndex.release()) | 1u;
    // A long list counts as heard.
    ListChanged();
}

void MCSubject::RemoveSubscriber(MCSubscriber* pSubscriber, unsigned int nType) {
    if (pSubscriber == nullptr)
        return;
    MCSubjectUser xGuard(*this);
    MCSubscriberReference* pEntry = Find(pSubscriber);
    if (pEntry == nullptr || pEntry->m_nReferenceCount == 0)
        return;
    ListChanged();
    if (pEntry->RemoveReference() == 0) {
        ++m_nStaleEntries;
        if (IsIndexed() && !pEntry->m_bStaleListed) {
            // Callers rely on a removal that cannot fail. Out of memory, the entry stays off the purge list:
            // a stale entry is never read, and it goes once the list is short again or with the subject.
            try {
                GetIndex()->m_xStale.push_back(pEntry);
                pEntry->m_bStaleListed = 1;
            } catch (const std::bad_alloc&) {
            }
        }
    }
    pEntry->SetSubscriberType(pEntry->m_nSubscriberType & ~(nType & ~c_nPermanentType));
}

void MCSubject::ForgetHeardMemos() {
    mc_detail::ForgetHeard();
}

void MCSubject::RemoveAllSubscribers() {
    ListChanged();
    MCSubscriberReference* pEntry = First();
    while (pEntry != nullptr) {
        MCSubscriberReference* pNext = pEntry->m_pxNext;
        FreeEntry(pEntry);
        pEntry = pNext;
    }
    if (IsIndexed())
        delete GetIndex();
    m_uSubscribers = 0;
    m_nStaleEntries = 0;
    m_nState = static_cast<std::uint8_t>(m_nState & ~(OtherTypeBits(~0u) | c_nShortCountBits));
}

unsigned int MCSubject::AddReference() {
    return ++m_nUsers & ~c_nDeleteUnused;
}

unsigned int MCSubject::RemoveReference() {
    const unsigned int nUsers = --m_nUsers;
    if (nUsers == 0) {
        // Only here, with no walk left on the list, may entries be unlinked.
        if (m_nStaleEntries > c_nStaleThreshold)
            CleanUpList();
        return 0;
    }
    // An object ended while its list was walked: the last walk out frees it.
    if (__builtin_expect(nUsers == c_nDeleteUnused, 0)) {
        DeleteUnused();
        return 0;
    }
    return nUsers & ~c_nDeleteUnused;
}

// Out of line, so that the delivery the guard's end is inlined into keeps its short path.
__attribute__((noinline, cold)) void MCSubject::DeleteUnused() {
    delete this;
}

void MCSubject::CleanUpList() {
    // Nothing for the memos: it frees entries that count for nothing, and a list that loses its index
    // counts fewer hearers, never more, so an answer taken before stays right or errs towards heard.
    if (!IsIndexed()) {
        MCSubscriberReference* pBefore = nullptr;
        MCSubscriberReference* pEntry = First();
        while (pEntry != nullptr && m_nStaleEntries != 0) {
            MCSubscriberReference* pNext = pEntry->m_pxNext;
            if (pEntry->m_nReferenceCount == 0) {
                Unlink(pBefore, pEntry);
                FreeEntry(pEntry);
                --m_nStaleEntries;
            } else {
                pBefore = pEntry;
            }
            pEntry = pNext;
        }
        m_nStaleEntries = 0;
        return;
    }

    SubscriberIndex& rIndex = *GetIndex();
    for (MCSubscriberReference* pEntry : rIndex.m_xStale) {
        pEntry->m_bStaleListed = 0;
        if (pEntry->m_nReferenceCount != 0)
            continue;  // revived since
        auto it = rIndex.m_xOrder.find(pEntry);
        Unlink(rIndex.Predecessor(it), pEntry);
        rIndex.m_xOrder.erase(it);
        FreeEntry(pEntry);
    }
    m_nStaleEntries = 0;
    if (rIndex.m_xStale.capacity() > c_nKeptStaleCapacity)
        std::vector<MCSubscriberReference*>().swap(rIndex.m_xStale);
    else
        rIndex.m_xStale.clear();
    if (rIndex.m_xOrder.size() <= c_nUnindexAtOrBelow) {
        MCSubscriberReference* pFirst = rIndex.m_pxFirst;
        const std::size_t nEntries = rIndex.m_xOrder.size();
        delete &rIndex;
        m_uSubscribers = reinterpret_cast<std::uintptr_t>(pFirst);
        SetShortCount(nEntries);
    }
}

namespace {

// A delivery under way: the subject whose subscribers hear the event and the entry last handed it. Both
// subject and event are counted while it stands, so its entries stay put and the event alive.
struct Delivery {
    MCSubject* m_pxSubject;
    MCEvent* m_pxEvent;
    MCSubscriberReference* m_pxCurrent;  // null until the first entry is reached
};

// A climb passes an event from owner to owner by plain calls while it is shallow, which costs nothing
// extra. From c_nCallDepth nested deliveries on, an owner queues its delivery instead, to run as soon as
// the current subscriber returns, so a chain of any depth takes no more call depth than that. Only a
// delivery that deep can find anything queued after its subscriber returns.
constexpr unsigned c_nCallDepth = 64;

// Plain data, so an access is one load (initial-exec) with no initialization check.
__attribute__((tls_model("initial-exec"))) thread_local unsigned t_nDepth = 0;

std::vector<Delivery>& Queued() {
    static thread_local std::vector<Delivery> queued;
    return queued;
}

// Whether the subscriber of `entry` is to hear `event`: a live entry sharing a type bit with it.
bool Hears(const MCSubscriberReference& entry, const MCEvent& event) {
    return entry.GetReferenceCount() != 0 && (entry.GetSubscriberType() & event.GetSubscriberType()) != 0;
}

// MCObject::Notify's reaction, written out where deliveries can take it without a call per step: the
// directory's search for the object's type, or when that would end at once in MCObjectNotification, the
// event passed on to the object's own subscribers, held as the search holds it.
inline void Hear(MCObject& object, MCEvent& event) {
    MCNotificationDirectory* directory = MCNotificationDirectory::FindInstance();
    if (!directory)
        return;
    if (!directory->PassesOnAlone(object.GetType(), event.GetEventType())) {
        if (directory->CleansUpAlone(object.GetType(), event.GetEventType())) {
            // The search would end at once in the reference clean-up (an owner or holder hearing of a
            // death): go there directly, holding the event as the directory would.
            const mc_detail::EventHold holder(event);
            MCObjectSubjectDestNotification::c_xInstance.Notify(&object, event);
            return;
        }
        // The directory holds the event while it searches.
        directory->Notify(object.GetType(), &object, event);
        return;
    }
    const mc_detail::EventHold holder(event);
    // PassOnToSubscribers, which calls at this depth and queues beyond it.
    if (t_nDepth < c_nCallDepth)
        object.NotifySubscribers(event);
    else
        object.PassOnToSubscribers(event);
}

// Hands `event` to the subscriber of one entry as its Notify would. An object that keeps MCObject::Notify
// reacts here without the virtual hop, so that an owner passing an event on delivers it from this very
// frame; whatever it does is what its Notify would have done.
inline void HandTo(MCSubscriber* subscriber, MCEvent& event) {
    if (mc_detail::KeepsObjectNotify(subscriber))
        Hear(*static_cast<MCObject*>(subscriber), event);
    else
        subscriber->Notify(event);
}

struct DepthGuard {
    DepthGuard() : m_nDepth(++t_nDepth) {}
    ~DepthGuard() { --t_nDepth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
    const unsigned m_nDepth;
};

}  // namespace

void MCSubject::Deliver(std::size_t nBase) {
    std::vector<Delivery>& rQueued = Queued();
    auto finishTop = [&rQueued] {
        const Delivery done = rQueued.back();
        rQueued.pop_back();
        // Subject first, event last: the event may be what keeps the subject alive.
        done.m_pxSubject->RemoveReference();
        done.m_pxEvent->RemoveReference();
    };
    try {
        while (rQueued.size() > nBase) {
            // By index: a Notify below may grow the vector.
            Delivery& rTop = rQueued[rQueued.size() - 1];
            // The next link is read only now, after the previous Notify returned.
            MCSubscriberReference* pEntry =
                rTop.m_pxCurrent == nullptr ? rTop.m_pxSubject->First() : rTop.m_pxCurrent->m_pxNext;
            if (pEntry == nullptr) {
                finishTop();
                continue;
            }
            rTop.m_pxCurrent = pEntry;
            const MCSubscriberReference xEntry(*pEntry);
            MCEvent& rEvent = *rTop.m_pxEvent;
            if (Hears(xEntry, rEvent))
                HandTo(xEntry.GetSubscriber(), rEvent);
        }
    } catch (...) {
        while (rQueued.size() > nBase)
            finishTop();
        throw;
    }
}

void MCSubject::NotifySubscribers(MCEvent& rEvent) {
    // Declared in this order so they are released subject first, event last: the event may die with it.
    const mc_detail::EventHold xEventGuard(rEvent);
    MCSubjectUser xSubjectGuard(*this);
    const DepthGuard xDepth;
    std::vector<Delivery>* pQueued = xDepth.m_nDepth < c_nCallDepth ? nullptr : &Queued();
    const std::size_t nBase = pQueued ? pQueued->size() : 0;
    // The guard keeps every node in place, so the walk may stand on a node across a Notify that adds or
    // removes subscribers; the next link is read only after the call. While no entry but the own one has
    // ever had a type of the event, the others cannot hear it: the walk starts at the own entry and ends
    // after it, leaving the other nodes (a cache miss each, holders far away) unread. The types only
    // grow while a walk runs, so once one is added the walk goes on exactly as a full one would.
    const std::uint8_t nOtherBits = OtherTypeBits(rEvent.GetSubscriberType());
    MCSubscriberReference* pEntry = (m_nState & nOtherBits) != 0 ? First() : OwnEntry();
    while (pEntry != nullptr) {
        const MCSubscriberReference xEntry(*pEntry);
        if (Hears(xEntry, rEvent)) {
            HandTo(xEntry.GetSubscriber(), rEvent);
            if (pQueued && pQueued->size() > nBase)
                Deliver(nBase);
        }
        pEntry = (m_nState & nOtherBits) != 0 ? pEntry->m_pxNext : nullptr;
    }
}

void MCSubject::PassOnToSubscribers(MCEvent& rEvent) {
    if (t_nDepth < c_nCallDepth) {
        NotifySubscribers(rEvent);
        return;
    }
    rEvent.AddReference();
    AddReference();
    Queued().push_back(Delivery{this, &rEvent, nullptr});
}

void mc_detail::HearAsObject(MCObject& object, MCEvent& event) {
    Hear(object, event);
}

unsigned int MCSubject::Dump(std::ofstream& stream, long /*level*/) {
    MCSubjectUser xGuard(*this);
    for (MCSubscriberReference* pEntry = First(); pEntry != nullptr; pEntry = pEntry->m_pxNext) {
        if (pEntry->m_nReferenceCount == 0)
            continue;  // its subscriber may be gone
        MCSubscriber& rSubscriber = *pEntry->m_pxSubscriber;
        stream << "\t\t" << ClassName(typeid(rSubscriber));
        // Only a model object has an id and a name to show.
        if (auto* pObject = dynamic_cast<MCObject*>(&rSubscriber))
            stream << ":\tId: " << pObject->GetId() << ", Name='" << pObject->DumpName() << "'";
        stream << ", RefCnt=" << pEntry->m_nReferenceCount << '\n';
    }
    return 0;
}

MCSubscriber::~MCSubscriber() {
    ZVTBoolean bDelete = false;
    // In a destructor this is the base operation, so by itself it finds no subjects.
    MCSubjectListIter* pSubjects = GetSubjectIterator(bDelete);
    if (pSubjects == nullptr)
        return;
    while (++*pSubjects) {
        if (MCSubject* pSubject = pSubjects->GetValue())
            pSubject->RemoveSubscriber(this, 0);
    }
    if (bDelete)
        delete pSubjects;
}

MCSubjectListIter* MCSubscriber::GetSubjectIterator(ZVTBoolean& bDelete) {
    bDelete = false;
    return nullptr;
}

// The counted cursor behind MCSubscriberListIter: a raw walk over the subject's nodes, stale ones
// included; the handle skips those.
class MCiSubscriberListIter : public ZVTIter<MCSubscriberReference*>, public ZVTReference {
public:
    MCiSubscriberListIter(MCSubject& rSubject, ZVTFilter<MCSubscriberReference*>* pFilter,
                          ZVTSorter<MCSubscriberReference*>* pSorter)
        : ZVTIter<MCSubscriberReference*>(pFilter, pSorter), m_xSubject(rSubject) {
        Reset(true);
    }

    ZVTBoolean Next_() override {
        if (m_lIndex < 0)
            m_pxCurrent = m_xSubject.First();
        else if (m_pxCurrent != nullptr)
            m_pxCurrent = m_pxCurrent->m_pxNext;
        else
            return false;
        if (m_pxCurrent == nullptr)
            return false;
        ++m_lIndex;
        return true;
    }
    // ZVTIter only steps; nothing seeks a cursor that lives behind a handle.
    ZVTBoolean Seek_(long /*index*/) override { return false; }
    long Entries_() const override { return m_xSubject.Entries(); }
    long Index_() const override { return m_lIndex; }
    MCSubscriberReference* Current_() const override { return m_pxCurrent; }
    void CurrentTo_(MCSubscriberReference*& value) const override { value = m_pxCurrent; }
    void Rewind_() override {
        m_pxCurrent = nullptr;
        m_lIndex = -1;
    }
    // Before the first step and past the end there is no entry rather than a read outside the snapshot.
    MCSubscriberReference* GetBufferValue_(void* pBuffer, long index) const override {
        if (pBuffer == nullptr || index < 0 || index >= m_lBufferCount)
            return nullptr;
        return ZVTIter<MCSubscriberReference*>::GetBufferValue_(pBuffer, index);
    }

private:
    MCSubject& m_xSubject;
    MCSubscriberReference* m_pxCurrent = nullptr;
    long m_lIndex = -1;
};

MCSubscriberListIter::MCSubscriberListIter(MCSubject* pSubject, ZVTFilter<MCSubscriberReference*>* pFilter,
                                           ZVTSorter<MCSubscriberReference*>* pSorter)
    : MCSubjectUser(*pSubject), m_pxImplementation(new MCiSubscriberListIter(*pSubject, pFilter, pSorter)) {
    m_pxImplementation->AddReference();
}

MCSubscriberListIter::MCSubscriberListIter(const MCSubscriberListIter& other)
    : MCSubjectUser(other), m_pxImplementation(other.m_pxImplementation) {
    m_pxImplementation->AddReference();
}

MCSubscriberListIter& MCSubscriberListIter::operator=(const MCSubscriberListIter& other) {
    // Count the new one first: it may be the one being released.
    other.m_pxImplementation->AddReference();
    m_pxImplementation->RemoveReference();
    m_pxImplementation = other.m_pxImplementation;
    return *this;
}

MCSubscriberListIter::~MCSubscriberListIter() {
    m_pxImplementation->RemoveReference();
}

long MCSubscriberListIter::GetCount() const {
    return m_pxImplementation->GetCount();
}

MCSubscriber* MCSubscriberListIter::GetValue() const {
    MCSubscriberReference* pEntry = m_pxImplementation->GetValue();
    return pEntry == nullptr ? nullptr : pEntry->GetSubscriber();
}

void MCSubscriberListIter::Reset(ZVTBoolean rebuild) {
    m_pxImplementation->Reset(rebuild);
}

ZVTBoolean MCSubscriberListIter::operator++() {
    while (++*m_pxImplementation) {
        MCSubscriberReference* pEntry = m_pxImplementation->GetValue();
        if (pEntry != nullptr && pEntry->GetReferenceCount() != 0)
            return true;
    }
    return false;
}
