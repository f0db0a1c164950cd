#ifndef MCEVENT_H
#define MCEVENT_H

// Events are made for every delivered change, so they come from the small-block pool: after warm-up,
// firing and forgetting an event touches no global heap. Sanitizer builds bypass the pool so that a late
// use of a dead event is caught.

#include <cstddef>

#include "foundation/ZVTExport.h"
#include "foundation/ZVTReference.h"

class MCObject;
class MCProperty;
class MCSubject;

/// The counted record of one change, delivered along subscriber lists and destroyed by its last holder
/// (never deleted by hand). It may hold the event that caused it (its chain) and keeps that alive. A
/// subscriber gets it by reference for the length of Notify; one that keeps it longer holds an
/// MCEventUser, and even then the subject, property and hints it names are not kept alive by it.
class MODELCORE_API MCEvent : public ZVTReference {
public:
    /// Event types; the values are part of the interface and must not change.
    enum event_type : long {
        PropertySet = 1,
        PropertyNulled = 2,
        ObjectCreated = 3,
        SubjectDestroyed = 4,
        ReferenceCleared = 5
    };
    /// Subscriber type bits, shared by events and subscriptions; the values must not change.
    enum subscriber_type : unsigned int {
        subscriberOwner = 1,
        subscriberObserver = 2,
        subscriberReferenceHolder = 4
    };

    /// Makes an event with count 0: the first MCEventUser (usually NotifySubscribers's) takes it, and an
    /// event nobody ever holds stays alive. A chain, when given, is counted until this event goes.
    static MCEvent& Instantiate(long nEventType, MCSubject* pSubject, unsigned int nSubscriberType,
                                const MCProperty* pProperty = nullptr, MCEvent* pChain = nullptr);

    /// One of event_type.
    long GetEventType() const { return m_lEventType; }
    /// The mask of subscriber types the event goes to.
    unsigned int GetSubscriberType() const { return m_nSubscriberType; }
    /// Where the event started; after delivery it may be gone (SubjectDestroyed).
    MCSubject* GetSubject() const { return m_pxSubject; }
    /// The property concerned, null for an event about a whole object.
    const MCProperty* GetProperty() const { return m_pxProperty; }
    /// The subject at the far end of the chain, or this event's subject without a chain.
    MCSubject* GetRootSubject() const { return m_pxRootSubject; }
    /// The nearest event up the chain about pSubject (this event's own subject is not compared), the direct
    /// cause for a null pSubject, null when none.
    MCEvent* GetChain(MCSubject* pSubject) const;

    /// The firer's hint object, null unless set; not owned, and not read inside the library.
    MCObject* GetHintObject() const { return m_pxHintObject; }
    /// Sets the hint object.
    void SetHintObject(MCObject* pObject) { m_pxHintObject = pObject; }
    /// The firer's hint pointer, null unless set; not owned and valid only while the event is delivered
    /// (a PropertySet of the library points at the change's rule context, a local of the change).
    void* GetHintPointer() const { return m_pHintPointer; }
    /// Sets the hint pointer, which the event does not own; it must stay valid until delivery ends.
    void SetHintPointer(void* pHint) { m_pHintPointer = pHint; }
    /// The firer's hint code, 0 unless set.
    long GetHintCode() const { return m_lHintCode; }
    /// Sets the hint code.
    void SetHintCode(long nCode) { m_lHintCode = nCode; }

    /// The number of events alive; nothing in the library reads it.
    static long c_nInstanceCount;

private:
    MCEvent(long nEventType, MCSubject* pSubject, unsigned int nSubscriberType, const MCProperty* pProperty,
            MCEvent* pChain);
    // Only the last RemoveReference destroys an event.
    ~MCEvent() override;
    MCEvent(const MCEvent&) = delete;
    MCEvent& operator=(const MCEvent&) = delete;

    static void* operator new(std::size_t nSize);
    static void operator delete(void* pBlock, std::size_t nSize) noexcept;

    long m_lEventType;
    unsigned int m_nSubscriberType;
    MCSubject* m_pxSubject;
    const MCProperty* m_pxProperty;
    MCEvent* m_pxChain;
    MCSubject* m_pxRootSubject;
    MCObject* m_pxHintObject = nullptr;
    void* m_pHintPointer = nullptr;
    long m_lHintCode = 0;
};

/// Holds one counted reference on an event for a scope; the last holder destroys the event.
class MODELCORE_API MCEventUser : public ZVTReferenceUser {
public:
    /// Holds rEvent.
    explicit MCEventUser(MCEvent& rEvent);
    /// Holds the other's event too.
    MCEventUser(const MCEventUser& other) = default;
    /// Holds the other's event instead.
    MCEventUser& operator=(const MCEventUser& other) = default;
    /// Lets go of the event.
    virtual ~MCEventUser();

    /// The held event.
    MCEvent& GetEvent() const { return *static_cast<MCEvent*>((*this)()); }
};

#endif
