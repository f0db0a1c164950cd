#ifndef MCSUBSCRIBER_H
#define MCSUBSCRIBER_H

// The observer core: a subject keeps counted subscriptions ordered by subscriber address and delivers
// events to them; subscribers may come and go while a delivery runs.
//
// Every model object is a subject, and a popular reference target may hold 10^5 subscriptions, so the
// list is laid out for both ends:
// - A subject is 48 bytes on a 64-bit build (vtable, one word for the list, the two counters, and the
//   node of its first subscriber, for an object its owner). Each further subscription is one 24-byte
//   heap node; all are linked in ascending subscriber address.
// - Beyond 16 entries the subject builds, once, an ordered index of its nodes plus a list of the nodes
//   gone stale, in a block hung off the list word. Add and Remove then cost O(log n) and a clean-up
//   O(stale log n); the block goes again when a clean-up leaves 8 entries or fewer.
// - Nodes never move and are unlinked only by a clean-up (no walk running) or RemoveAllSubscribers, so
//   a delivery standing on a node survives any Add or Remove. NotifySubscribers allocates nothing.

#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "ModelCore/ZVFWMC/MCDebug.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTIter.h"
#include "foundation/ZVTPool.h"

class MCEvent;
class MCSubject;
class MCSubscriber;
class MCiSubscriberListIter;

/// One subscription of a subscriber on a subject, owned by the subject's list; a count of 0 marks a stale
/// entry that stays in the list but counts for nothing.
class MODELCORE_API MCSubscriberReference {
public:
    /// No subscriber, count 0, no type.
    MCSubscriberReference() = default;
    /// pSubscriber (not owned) with count 1 and the low 8 bits of nType.
    MCSubscriberReference(MCSubscriber* pSubscriber, unsigned int nType) { Initialize(pSubscriber, nType); }
    /// Entries come from the small-block pool: there is one for every reference in a model.
    static void* operator new(std::size_t nSize) { return ZVTPool::AllocatePacked(nSize); }
    /// Gives the entry's block back to the pool.
    static void operator delete(void* pBlock, std::size_t nSize) noexcept {
        ZVTPool::ReleasePacked(pBlock, nSize);
    }
    /// Copies subscriber, count and type; the copy belongs to no list.
    MCSubscriberReference(const MCSubscriberReference& other)
        : m_pxSubscriber(other.m_pxSubscriber),
          m_nReferenceCount(other.m_nReferenceCount),
          m_nSubscriberType(other.m_nSubscriberType) {}
    /// Copies subscriber, count and type; this entry's place in a list is kept.
    MCSubscriberReference& operator=(const MCSubscriberReference& other) {
        m_pxSubscriber = other.m_pxSubscriber;
        m_nReferenceCount = other.m_nReferenceCount;
        m_nSubscriberType = other.m_nSubscriberType;
        return *this;
    }

    /// Raises the count, wrapping at 16 bits, and returns the new count.
    unsigned int AddReference() { return ++m_nReferenceCount; }
    /// Lowers the count, never below 0, and returns the new count.
    unsigned int RemoveReference() { return m_nReferenceCount == 0 ? 0 : --m_nReferenceCount; }
    /// The count; 0 for a stale entry.
    unsigned int GetReferenceCount() const { return m_nReferenceCount; }
    /// The subscriber, not owned; a stale entry's may already be gone.
    MCSubscriber* GetSubscriber() const { return m_pxSubscriber; }
    /// The mask of subscriber types (bits 1 owner, 2 observer, 4 reference holder).
    unsigned int GetSubscriberType() const { return m_nSubscriberType; }
    /// Sets subscriber and type (low 8 bits) with count 1.
    void Initialize(MCSubscriber* pSubscriber, unsigned int nType) {
        m_pxSubscriber = pSubscriber;
        m_nReferenceCount = 1;
        SetSubscriberType(nType);
    }
    /// Replaces the subscriber; never call it on an entry that sits in a subject's list.
    void SetSubscriber(MCSubscriber* pSubscriber) { m_pxSubscriber = pSubscriber; }
    /// Keeps the low 8 bits of nType as the mask. Like SetSubscriber, not for an entry that sits in a
    /// subject's list: what the subject remembers of its entries' types would not follow (a subject's
    /// entries change through AddSubscriber and RemoveSubscriber).
    void SetSubscriberType(unsigned int nType) { m_nSubscriberType = static_cast<std::uint8_t>(nType); }
    /// Equal when both name the same subscriber; count and type play no part.
    ZVTBoolean operator==(const MCSubscriberReference& other) const {
        return m_pxSubscriber == other.m_pxSubscriber;
    }

private:
    friend class MCSubject;
    friend class MCiSubscriberListIter;
    // An expunge reads ahead the lists of the objects it will end next.
    friend class MCObject;

    MCSubscriber* m_pxSubscriber = nullptr;
    MCSubscriberReference* m_pxNext = nullptr;  // next higher address in the subject's list
    std::uint16_t m_nReferenceCount = 0;
    std::uint8_t m_nSubscriberType = 0;
    std::uint8_t m_bStaleListed = 0;  // already on the index's stale list
};

/// Something that can be observed: owns its subscriptions (not the subscribers) and delivers events to them
/// in ascending subscriber address. It must not be destroyed, nor RemoveAllSubscribers called, while a walk
/// (an MCSubjectUser) is running on it; an object expunged then keeps its memory until the last walk ends.
class MODELCORE_API MCSubject : public MCDebug {
public:
    /// No subscribers.
    MCSubject() = default;
    /// A copy starts without subscribers: subscriptions belong to one subject.
    MCSubject(const MCSubject&) : MCSubject() {}
    /// Leaves this subject's subscriptions as they are.
    MCSubject& operator=(const MCSubject&) { return *this; }
    /// Writes one line per live entry: two tabs, the subscriber's class, for an object ":\tId: <id>,
    /// Name='<name>'" (the Name property's text, "<can't find name>" without one), ", RefCnt=" and the
    /// count. Returns 0.
    unsigned int Dump(std::ofstream& stream, long level) override;
    /// Frees every subscription without telling the subscribers.
    ~MCSubject() override;

    /// Subscribes pSubscriber with the types nType; subscribing again raises the count and ORs the types,
    /// and revives a stale entry. A null pSubscriber is never entered: the call does nothing. The subject
    /// does not own the subscriber, which must leave (RemoveSubscriber) before it dies; mc::Observe gives a
    /// handle that leaves by itself.
    void AddSubscriber(MCSubscriber* pSubscriber, unsigned int nType) {
        // An empty list that no audibility memo relies on (every new object's, which its owner joins)
        // takes the subscriber in its own entry, with nothing to walk or to tell.
        if (m_uSubscribers == 0 && (m_nState & c_nHeardRelied) == 0 &&
            m_xOwnEntry.m_pxSubscriber == nullptr && pSubscriber != nullptr) {
            m_xOwnEntry.Initialize(pSubscriber, nType);
            m_xOwnEntry.m_pxNext = nullptr;
            m_uSubscribers = reinterpret_cast<std::uintptr_t>(&m_xOwnEntry);
            if (IsShortCounted())
                m_nState = static_cast<std::uint8_t>(m_nState + c_nShortCountUnit);
            return;
        }
        Subscribe(pSubscriber, nType);
    }
    /// Lowers pSubscriber's count and clears the bits of nType from its types, except bit 4 which stays; at
    /// count 0 the entry turns stale. Removing what is not subscribed, or a null pSubscriber, does nothing.
    void RemoveSubscriber(MCSubscriber* pSubscriber, unsigned int nType);
    /// Frees every subscription, stale or live, without telling the subscribers.
    void RemoveAllSubscribers();
    /// Calls Notify on every live entry whose types share a bit with the event's mask, then releases the
    /// event, which this destroys when nothing else holds it. Allocates nothing unless a climb runs deeper
    /// than any before it on this thread.
    void NotifySubscribers(MCEvent& rEvent);
    /// NotifySubscribers for an event passed on by a subscriber (an owner hearing of its ownee). Deep inside
    /// nested deliveries it is queued instead, to run as soon as the current subscriber returns and before
    /// that delivery goes on, so an event climbing an owner chain of any depth takes bounded call depth.
    void PassOnToSubscribers(MCEvent& rEvent);

private:
    friend class MCSubjectUser;
    friend class MCiSubscriberListIter;
    // An object asks its list, and its owners' lists, whether an event could be heard at all.
    friend class MCObject;
    class SubscriberIndex;

    // How many live entries share a bit with `nMask`, counted up to 2, the first of them in `rpHearer`.
    // 2 also when a delivery here could change the list by itself (it would purge stale entries) or the
    // list is too long to count cheaply.
    int CountHearers(unsigned int nMask, MCSubscriber*& rpHearer) const;

    unsigned int AddReference();
    unsigned int RemoveReference();
    // The end of an object whose end came while its list was walked.
    void DeleteUnused();
    void CleanUpList();
    static void Deliver(std::size_t nBase);

    ZVTBoolean IsIndexed() const { return (m_uSubscribers & 1u) != 0; }
    SubscriberIndex* GetIndex() const;
    MCSubscriberReference* First() const;
    void SetFirst(MCSubscriberReference* pEntry);
    MCSubscriberReference* Find(MCSubscriber* pSubscriber) const;
    // Where a walk of the short list for pSubscriber may start: past the own entry when that is listed
    // below it (its node shares the subject's lines, the ones before it would each be a miss), else at the
    // first entry. rpBefore receives the entry before the start, null for the first.
    MCSubscriberReference* WalkStart(MCSubscriber* pSubscriber, MCSubscriberReference*& rpBefore) const;
    void Link(MCSubscriberReference* pBefore, MCSubscriberReference* pEntry);
    void Unlink(MCSubscriberReference* pBefore, MCSubscriberReference* pEntry);
    // Whether the short count below tells the length of a short list exactly.
    bool IsShortCounted() const { return (m_nState & c_nShortCountBits) != c_nShortCountBits; }
    void SetShortCount(std::size_t nEntries);
    void Revive(MCSubscriberReference& rEntry, unsigned int nType);
    void BuildIndex();
    long Entries() const;

    // The own entry while it is in the list, else null.
    MCSubscriberReference* OwnEntry() {
        return m_xOwnEntry.m_pxSubscriber != nullptr ? &m_xOwnEntry : nullptr;
    }

    // AddSubscriber past its inline case.
    void Subscribe(MCSubscriber* pSubscriber, unsigned int nType);
    MCSubscriberReference* NewEntry(MCSubscriber* pSubscriber, unsigned int nType);
    void FreeEntry(MCSubscriberReference* pEntry);
    // Called after a change of the list that could alter what CountHearers answers: a subject that an
    // audibility memo relies on drops them all.
    void ListChanged() {
        if (m_nState & c_nHeardRelied) {
            m_nState = static_cast<std::uint8_t>(m_nState & ~c_nHeardRelied);
            ForgetHeardMemos();
        }
    }
    static void ForgetHeardMemos();

    // Bits of m_nState. For MCObject::IsHeard: a memo taken since the last forgetting relies on this list;
    // the object is fully made (its class, and so its Notify, is final). Bits 2 and 3: the short count
    // below. For CountHearers, from c_nOtherTypesShift up: every subscriber type an entry other than
    // m_xOwnEntry has had since the list was last emptied. Bits only ever leave an entry, so a type missing
    // there is on no such entry and CountHearers need not load them.
    static constexpr std::uint8_t c_nHeardRelied = 1;
    static constexpr std::uint8_t c_nHeardMade = 2;
    // How many entries a short list links, up to 3, which stands for three or more: a list known to be
    // shorter needs no index after one more entry, so an insert need not walk past its place to count.
    // Kept beside the list word, on the line every change of the list loads anyway.
    static constexpr unsigned int c_nShortCountKnown = 3;
    static constexpr unsigned int c_nShortCountShift = 2;
    static constexpr std::uint8_t c_nShortCountUnit = 1u << c_nShortCountShift;
    static constexpr std::uint8_t c_nShortCountBits = c_nShortCountKnown << c_nShortCountShift;
    static constexpr unsigned int c_nOtherTypesShift = 4;
    // The bits of m_nState that stand for subscriber types `nType`: the library's three types one each,
    // any other type bit all in one.
    static constexpr std::uint8_t OtherTypeBits(unsigned int nType) {
        return static_cast<std::uint8_t>(((nType & 7u) | ((nType & ~7u) != 0 ? 8u : 0u))
                                         << c_nOtherTypesShift);
    }

    // The first entry, or the address of the SubscriberIndex with bit 0 set once the list is long.
    std::uintptr_t m_uSubscribers = 0;
    std::uint32_t m_nStaleEntries = 0;
    // The walks running on the list; with c_nDeleteUnused, the last one to end deletes the subject.
    std::uint16_t m_nUsers = 0;
    static constexpr std::uint16_t c_nDeleteUnused = 0x8000;
    // In room the layout leaves anyway: the state bits above, and for an object the event types
    // (bit = type) its audibility memo says nobody hears.
    mutable std::uint8_t m_nState = 0;
    mutable std::uint8_t m_nQuietEvents = 0;
    // The node of the first subscriber while it lasts (for an object, its owner): it shares the subject's
    // cache lines, so an event climbing an owner chain loads no separate node per level.
    MCSubscriberReference m_xOwnEntry;
};

/// What a subscriber hands out to list its subjects; this library only uses it, hosts implement it.
class MODELCORE_API MCSubjectListIter {
public:
    /// Virtual: the subscriber may hand it out for deletion.
    virtual ~MCSubjectListIter() = default;
    /// Advances; true while there is a next subject.
    virtual ZVTBoolean operator++() = 0;
    /// The current subject, which may be null.
    virtual MCSubject* GetValue() const = 0;
};

/// Something that can observe subjects; it must be out of every subject's list (RemoveSubscriber) before
/// it is destroyed, or a subject later delivers to a dead object. mc::Subscription does that for a host.
class MODELCORE_API MCSubscriber {
public:
    /// No state.
    MCSubscriber() = default;
    /// No state to copy.
    MCSubscriber(const MCSubscriber&) = default;
    /// No state to copy.
    MCSubscriber& operator=(const MCSubscriber&) = default;
    /// Removes itself from the subjects GetSubjectIterator lists; in this base there are none, so a
    /// subscriber removes itself explicitly before it goes.
    virtual ~MCSubscriber();

    /// Receives an event from a subject this subscribes to; may add, remove or deliver re-entrantly.
    virtual void Notify(MCEvent& rEvent) = 0;
    /// The subscriber's subjects, or null (this base); bDelete says whether the caller deletes the iterator.
    virtual MCSubjectListIter* GetSubjectIterator(ZVTBoolean& bDelete);
};

/// Marks a walk of a subject's list for a scope: while one is alive stale entries stay in the list, and
/// when the last goes a clean-up may free them.
class MODELCORE_API MCSubjectUser {
public:
    /// Guards rSubject.
    explicit MCSubjectUser(MCSubject& rSubject) : m_xSubject(rSubject) { m_xSubject.AddReference(); }
    /// A second guard on the same subject.
    MCSubjectUser(const MCSubjectUser& other) : MCSubjectUser(other.m_xSubject) {}
    MCSubjectUser& operator=(const MCSubjectUser&) = delete;
    /// Lets go; the last guard may purge stale entries.
    ~MCSubjectUser() { m_xSubject.RemoveReference(); }

    /// The guarded subject.
    MCSubject& GetSubject() const { return m_xSubject; }

private:
    MCSubject& m_xSubject;
};

/// Walks the live subscribers of a subject in ascending address, with an optional filter and sorter over
/// the entries (not owned). Holds the subject guarded, so entries stay put while it lives; copies share
/// one cursor. Without filter and sorter GetCount counts stale entries too. The guard does not keep the
/// subject alive: a walk must end before its subject is expunged.
class MODELCORE_API MCSubscriberListIter : public MCSubjectUser {
public:
    /// An iterator before the first subscriber of pSubject, which must not be null.
    explicit MCSubscriberListIter(MCSubject* pSubject, ZVTFilter<MCSubscriberReference*>* pFilter = nullptr,
                                  ZVTSorter<MCSubscriberReference*>* pSorter = nullptr);
    /// Shares the other's cursor and guards the same subject.
    MCSubscriberListIter(const MCSubscriberListIter& other);
    /// Shares the other's cursor; the subject guard stays that of this iterator.
    MCSubscriberListIter& operator=(const MCSubscriberListIter& other);
    /// Lets go of the cursor, then of the subject.
    virtual ~MCSubscriberListIter();

    /// The raw entry count without filter and sorter, else the matches at the last rebuild.
    long GetCount() const;
    /// The current subscriber; null before the first step and past the end.
    MCSubscriber* GetValue() const;
    /// Goes back before the first entry; rebuild recounts and re-sorts.
    void Reset(ZVTBoolean rebuild);
    /// Steps to the next live entry; false past the end.
    ZVTBoolean operator++();

private:
    MCiSubscriberListIter* m_pxImplementation;
};

#endif
