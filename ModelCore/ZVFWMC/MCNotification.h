#ifndef MCNOTIFICATION_H
#define MCNOTIFICATION_H

// What an object does with an event it hears of from a subject it subscribes to. The reactions are
// looked up per object type and event type in one directory, so a host attaches them to its types
// without touching the delivery; each type's entry links to its ancestor's, and a search runs from the
// object's own type towards the root.

#include <cstdint>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTRecent.h"
#include "foundation/ZVTSList.h"

class MCEvent;
class MCFactoryContext;
class MCObject;

/// A reaction of objects of a type to an event. Notifications are objects of static storage shared by
/// every object of the type; the directory does not own them and never deletes them through this class.
class MODELCORE_API MCNotification {
public:
    /// What a reaction answers; the values must not change.
    enum result { resultNotHandled = 0, resultHandled = 1 };

    /// Reacts to `rEvent` received by `pObject`; resultHandled ends the search.
    virtual result Notify(MCObject* pObject, MCEvent& rEvent) = 0;

protected:
    ~MCNotification() = default;
};

/// The notifications of one event on one type, in order of registration and each once.
class MODELCORE_API MCNotificationHandler : public ZVTSList<MCNotification*> {
public:
    /// Appends `pNotification` unless it is there already; false for a duplicate or null.
    ZVTBoolean Add(MCNotification* pNotification);
    /// Asks each notification in turn, the count taken anew at each step so that one may register
    /// another; the first resultHandled ends it.
    MCNotification::result Notify(MCObject* pObject, MCEvent& rEvent);
};

/// The notifications of one object type, per event type and a default for the other events, linked to
/// the entry of the ancestor type (not owned). Owns its handlers.
class MODELCORE_API MCNotificationEntry {
public:
    MCNotificationEntry();
    ~MCNotificationEntry();
    MCNotificationEntry(const MCNotificationEntry&) = delete;
    MCNotificationEntry& operator=(const MCNotificationEntry&) = delete;

    /// Adds `pNotification` for `nEventType`, or as a default with 0, making the handler first; false
    /// for null (the handler is made all the same) and for a notification already there.
    ZVTBoolean Register(long nEventType, MCNotification* pNotification);
    /// This entry's answer alone: the handler of the event type when there is one, even if it answers
    /// resultNotHandled, else the default handler, else resultNotHandled.
    MCNotification::result Notify(MCObject* pObject, MCEvent& rEvent);
    /// Whether this entry's chain answers events of `nEventType` with MCObjectNotification before any
    /// other notification could run, so that an object of the type only passes them on to its own
    /// subscribers. False for an event type beyond the library's own and for a chain that ends unanswered.
    ZVTBoolean PassesOnAlone(long nEventType) {
        if (m_nAnswersMadeAt == c_nRegistrations && nEventType > 0 && nEventType < c_nDirectEvents)
            return (m_nPassingOn & (1u << nEventType)) != 0;
        return PassesOnAloneAnew(nEventType);
    }
    /// PassesOnAlone for every event type below 8 at once, one bit per type (bit = type).
    std::uint8_t PassingOn() {
        if (m_nAnswersMadeAt != c_nRegistrations)
            PassesOnAloneAnew(1);
        return m_nPassingOn;
    }
    /// Whether this entry's chain answers events of `nEventType` with MCObjectSubjectDestNotification
    /// before any other notification could run; false as PassesOnAlone is.
    ZVTBoolean CleansUpAlone(long nEventType) {
        if (nEventType <= 0 || nEventType >= c_nDirectEvents)
            return false;
        if (m_nAnswersMadeAt != c_nRegistrations)
            PassesOnAloneAnew(nEventType);
        return (m_nCleaningUp & (1u << nEventType)) != 0;
    }
    /// The entry of the ancestor type, null for none.
    MCNotificationEntry* GetAncestor() const { return m_pxAncestor; }
    /// Links the ancestor's entry.
    void SetAncestor(MCNotificationEntry* pAncestor) { m_pxAncestor = pAncestor; }

private:
    ZVTBoolean PassesOnAloneAnew(long nEventType);

    // Counts the registrations on every entry, starting at 1, so that cached answers can tell they are
    // out of date.
    static std::uint64_t c_nRegistrations;

    // The handlers of the low event types, the library's own among them, also stand here by index: every
    // delivery asks each entry up the chain, and an index costs less than a hash probe.
    static constexpr long c_nDirectEvents = 8;

    ZVTHDict<long, MCNotificationHandler*> m_xHandlers;
    MCNotificationHandler* m_apxDirect[c_nDirectEvents] = {};
    MCNotificationHandler* m_pxDefaultHandler = nullptr;
    MCNotificationEntry* m_pxAncestor = nullptr;
    // PassesOnAlone's answers per low event type (bit = type), valid while no registration has happened
    // anywhere since: a registration on an ancestor changes the answer of every entry below it.
    std::uint64_t m_nAnswersMadeAt = 0;
    std::uint8_t m_nPassingOn = 0;
    // The same for CleansUpAlone, made along with them.
    std::uint8_t m_nCleaningUp = 0;
};

/// The process-wide table of notification entries by object type. Made on first use, deleted by
/// MdlCore::Terminate; owns its entries. Nothing removes a notification or an entry.
class MODELCORE_API MCNotificationDirectory {
public:
    /// The directory, made on first use.
    static MCNotificationDirectory* GetInstance();
    /// The directory if it was made, null otherwise; never makes one.
    static MCNotificationDirectory* FindInstance() { return c_pxSingleton; }
    /// Deletes the directory and its entries; nothing when there is none.
    static void DeleteInstance();

    /// The constructors' form: makes the directory if needed; with a context, makes the entry of
    /// `nType` linked to the context's notification ancestor and registers `pNotification` for
    /// `nEventType` (0: the default); `bSetContext` then records `nType` as that ancestor. Nothing without
    /// a context, or for a non-zero event type without a notification.
    static void Register(short nType, MCFactoryContext* pContext, long nEventType,
                         MCNotification* pNotification, ZVTBoolean bSetContext);
    /// Makes the entry of `nType` if needed and registers `pNotification` for `nEventType` on it; false
    /// for null or a notification already registered there.
    ZVTBoolean RegisterNotification(short nType, short nAncestorType, long nEventType,
                                    MCNotification* pNotification);
    /// The entry of `nType`, made when missing. A new entry is linked to the entry of `nAncestorType`, or
    /// for an alias type to that of its concrete type whatever ancestor is passed; an ancestor without an
    /// entry yet is not linked, then or later.
    MCNotificationEntry* CreateEntry(short nType, short nAncestorType);
    /// Whether `nType` has an entry.
    ZVTBoolean ContainsEntry(short nType) const;
    /// Lets the entries of `pObject`'s type chain, starting at `nType`, react to `rEvent` until one
    /// handles it; resultNotHandled for a type without an entry (there is no fallback to the root type).
    MCNotification::result Notify(short nType, MCObject* pObject, MCEvent& rEvent);

    /// Whether an object of `nType` does nothing with an event of `nEventType` but pass it on to its own
    /// subscribers (the default reaction, reached before any other); false for a type without an entry.
    ZVTBoolean PassesOnAlone(short nType, long nEventType) const {
        // Asked at every level of every climb: the recent entry's answer comes without a null test.
        if (MCNotificationEntry* known = m_xRecent.Find(nType))
            return known->PassesOnAlone(nEventType);
        MCNotificationEntry* entry = FindEntry(nType);
        return entry && entry->PassesOnAlone(nEventType);
    }

    /// PassesOnAlone for every event type below 8 at once, one bit per type (bit = type); 0 for a type
    /// without an entry.
    std::uint8_t PassingOn(short nType) const {
        MCNotificationEntry* entry = EntryOf(nType);
        return entry ? entry->PassingOn() : 0;
    }
    /// Whether an object of `nType` answers an event of `nEventType` with the reference clean-up
    /// (MCObjectSubjectDestNotification) before anything else; false for a type without an entry.
    ZVTBoolean CleansUpAlone(short nType, long nEventType) const {
        MCNotificationEntry* entry = EntryOf(nType);
        return entry && entry->CleansUpAlone(nEventType);
    }

    /// The hash of the table: the type itself, as unsigned int.
    static unsigned int HashId(const short& nType);

private:
    MCNotificationDirectory();
    ~MCNotificationDirectory();
    MCNotificationDirectory(const MCNotificationDirectory&) = delete;
    MCNotificationDirectory& operator=(const MCNotificationDirectory&) = delete;

    // The entry of `nType`, from the recent ones or else the table; null when there is none.
    MCNotificationEntry* EntryOf(short nType) const {
        MCNotificationEntry* known = m_xRecent.Find(nType);
        return known ? known : FindEntry(nType);
    }
    // The entry of `nType` through the table, remembered for the next look-up; null when there is none.
    MCNotificationEntry* FindEntry(short nType) const;

    static MCNotificationDirectory* c_pxSingleton;
    ZVTHDict<short, MCNotificationEntry*> m_xEntries;
    // The entries PassesOnAlone found lately: a climb asks for the same few types over and over, and an
    // entry lives as long as the directory, so nothing is ever forgotten.
    mutable ZVTRecentT<MCNotificationEntry> m_xRecent;
};

/// The default reaction of every object, registered on the root type: pass the event on to the
/// object's own subscribers, so that an event climbs the owner tree with its subject and mask unchanged.
class MODELCORE_API MCObjectNotification : public MCNotification {
public:
    /// Delivers `rEvent` on `pObject`'s subject; always resultHandled.
    result Notify(MCObject* pObject, MCEvent& rEvent) override;

    /// The one instance that MCObject registers.
    static MCObjectNotification c_xInstance;
};

/// The reaction of every object to SubjectDestroyed, registered on the root type: the dying subject is
/// taken out of the object's references through active accessors, each change followed by a
/// ReferenceCleared event chained to the death. Does not climb.
class MODELCORE_API MCObjectSubjectDestNotification : public MCNotification {
public:
    /// Clears `pObject`'s references to the event's subject; stops at once when a rule reports that
    /// `pObject` is gone. Always resultHandled.
    result Notify(MCObject* pObject, MCEvent& rEvent) override;

    /// The one instance that MCObject registers.
    static MCObjectSubjectDestNotification c_xInstance;
};

#endif
