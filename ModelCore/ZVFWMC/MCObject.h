#ifndef MCOBJECT_H
#define MCOBJECT_H

// Items and objects: what objects and properties share, and the node of the model tree.
//
// Ownees are kept as a ring of sibling links inside the objects themselves rather than a list owned by
// the owner: adding, taking the first and removing any one ownee are O(1) and cost no allocation, which
// matters to owners of 10^5 objects and to expunging large trees.

#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "ModelCore/ZVFWMC/MCDebug.h"
#include "ModelCore/ZVFWMC/MCItem.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

class MCEvent;
class MCFactoryContext;
class MCFactorySignature;
class MCIdSpace;
class MCNotificationDirectory;
class MCObjectEqualStrategy;
class MCNotification;
class MCPropertyAccessor;
class MCPropertyEqualStrategy;
class MCVisitor;

/// A node of the model tree: owned by one owner (none for a root), owner of further objects, holder of
/// typed properties, observable as a subject and observing as a subscriber. Made only through
/// MCFactoryRegistry::CreateItem and ended only through Expunge; the destructor is protected.
class MODELCORE_API MCObject : public MCItem, public MCSubscriber, public MCSubject, public MCDumpable {
public:
    MCObject(const MCObject&) = delete;
    MCObject& operator=(const MCObject&) = delete;

    /// Mode of MCDumpable::Dump (the model-stream dump of a subtree): each object with its owner.
    static constexpr long dumpListing = 1;
    /// Mode of MCDumpable::Dump: one line per object of the subtree, indented by its depth.
    static constexpr long dumpOutline = 2;

    /// Writes the object's class, type, id and name (the Name property's text, even nulled), one line per
    /// property, a line per live subscriber and the effective size, with no newline at the end; returns
    /// that size: the registered item sizes of the object and its properties, plus for an alias of String
    /// or StringList its text lengths and for an alias of a list type 4 bytes per entry. A type without a
    /// size counts 0 after message 602. `level` is not read.
    unsigned int Dump(std::ofstream& stream, long level) override;

    /// Runs the creation semantics unless the context declines them or the type has none; true when they
    /// ran.
    ZVTBoolean InvokeCreationSemantics(MCFactoryContext* context) override;
    /// Whether the object roots a unit saved on its own; the base answers false.
    virtual ZVTBoolean IsPersistenceUnit();
    /// Host hook to take `other` out of this object; the base expunges this object and answers true.
    virtual ZVTBoolean Unlink(MCObject* other);

    // --- identity ---------------------------------------------------------------------------------

    /// The id; ids are positive and never reused.
    long GetId() const { return m_xId.GetValue(); }
    /// Writes the id property raw; the id spaces are the caller's business.
    void SetId(long id);
    /// The process-wide id space of the live model.
    static MCIdSpace* GetIdSpace();
    /// The live object under `id` in the global id space, null when none.
    static MCObject* ResolveId(long id);

    // --- ownership --------------------------------------------------------------------------------

    /// The direct owner for type 0, else the nearest owner above this object that is of `type`; null at
    /// the root.
    MCObject* GetOwner(short type, MCItem::rtti how) const;
    /// The unit this object is saved with: itself when it is of the persistence root type (530) or derives
    /// from it, else the nearest such owner; null when it stands in no persistence root.
    MCObject* GetPersistenceRoot() const;
    /// Appends `object` to the ownee list. An object stands in at most one list, its own owner's: a
    /// second add is ignored, the object of another owner is refused with EXNonOwnedObject.
    void AddOwnedObject(MCObject* object);
    /// Takes `object` out of the ownee list; false when it was not there.
    ZVTBoolean RemoveOwnedObject(MCObject* object);
    /// Expunges an ownee and nulls the pointer, even when the ownee refused to go; EXNonOwnedObject and
    /// nothing changed when `object` is not an ownee. A null pointer does nothing.
    void DestroyOwnedObject(MCObject*& object);
    /// The oldest ownee, null when there is none.
    MCObject* GetFirstOwnee() const { return m_pxFirstOwnee; }
    /// The youngest ownee, null when there is none.
    MCObject* GetLastOwnee() const { return m_pxFirstOwnee ? m_pxFirstOwnee->m_pxPrevSibling : nullptr; }
    /// The next younger sibling under the same owner, null after the youngest or outside any list.
    MCObject* GetNextSibling() const;
    /// The number of ownees; linear in that number.
    long GetOwneeCount() const;
    /// True when `address` lies within the object's registered size, both ends included, or for any
    /// address when the type has no registered size.
    ZVTBoolean IsContainedAddress(const void* address) const;

    // --- properties -------------------------------------------------------------------------------

    /// The property of `type`, the embedded id property for 132; a nulled one only with `withNulled`,
    /// a calculated one always. Null when there is none.
    virtual const MCProperty* FindProperty(short type, ZVTBoolean withNulled) const;
    /// Moves the property of `type` into `accessor`; false for an absent or nulled property. Reading an
    /// absent calculated type makes the property.
    virtual ZVTBoolean GetProperty(short type, MCPropertyAccessor& accessor) const;
    /// Sets the property of `type` through `accessor` with `flags` (accessAdd, ...), making it on first
    /// use; false when refused or when the type cannot be made (message 601).
    ZVTBoolean SetProperty(short type, MCPropertyAccessor& accessor, long flags);
    /// Nulls the property of `type` through `accessor`; false when there is none or a rule refused.
    ZVTBoolean NullProperty(short type, MCPropertyAccessor& accessor);
    /// Nulls `property` through `accessor`, or through its own active accessor when `accessor` is null;
    /// false for null or for a property of another object.
    ZVTBoolean NullProperty(MCProperty* property, MCPropertyAccessor* accessor);
    /// The value of the property of `type` as text, read through the concrete type its type is an alias of;
    /// false when absent, nulled, not convertible or of a type that is no alias (String itself, say).
    ZVTBoolean GetPropertyString(short type, ZVTString& text) const;
    /// Sets or clears item flags of `property` without firing anything; refuses itemNulled and itemNL,
    /// which belong to the value operations.
    ZVTBoolean SetPropertyFlag(MCProperty* property, unsigned short flag, ZVTBoolean on);
    /// The object's property set.
    const MCPropertySet& GetPropertySet() const { return m_xProperties; }
    /// Resolves the stored ids of every property through `space`.
    virtual void ResolveIds(MCIdSpace& space);

    // --- visitors ---------------------------------------------------------------------------------

    /// Lets `visitor` visit this object.
    virtual void AcceptVisitor(MCVisitor* visitor);
    /// Lets `visitor` visit the property of `type`, nulled or not, if there is one.
    void VisitProperty(short type, MCVisitor* visitor);
    /// The same, making the property first when it is absent.
    void CreateAndVisitProperty(short type, MCVisitor* visitor);

    // --- the subtree as a whole (defined with the traversal, MCTreeCloner.cpp) ----------------------

    /// Adds to `ids` the id of every object of the subtree under `start`, or under this object when
    /// `start` is null, the start included; the set is not emptied first.
    void GetAllIdsFromTree(ZVTHSetT<long>& ids, MCObject* start);
    /// Deep-copies the subtree under this object into a new root that the caller owns (it ends through
    /// Expunge): each clone is made by its type's factory with a fresh id and no creation semantics, its
    /// valued properties but the id are copied through active accessors (rules fire, PropertySet goes
    /// out), CloneId names its source, and a reference to an object of the copied subtree is moved to
    /// that object's clone while one to any other object is kept. `filter` (not owned, may be null)
    /// leaves out the whole subtree of each object it refuses; null when it refuses this object. A clone
    /// that the copy's rules or a host's rebinding expunge (itself, an earlier clone, an owner) is left
    /// out with its subtree; null when the root clone went. An exception
    /// ends the copy: the clones made so far are expunged (their PreDestructon rules run as at any
    /// expunge) and the exception passes on.
    MCObject* CloneTree(ZVTFilter<MCObject*>* filter);

    // --- equality and inheritance -----------------------------------------------------------------

    using MCItem::IsEqualTo;
    /// With `objectStrategy`, its answer alone. Otherwise true when both objects hold pairwise equal
    /// properties, in type order, among those that pass the property strategy's filter (all of them when
    /// it gives null) or, without a property strategy, among the types registered with `first`, which
    /// leaves out the id and the references. Ownees are not compared; false for a null `other`.
    ZVTBoolean IsEqualTo(const MCObject* other, MCObjectEqualStrategy* objectStrategy,
                         MCPropertyEqualStrategy* propertyStrategy) const;
    /// Compares `mine` of this object with `theirs` of `other` by the property comparison with `flag`,
    /// calculating calculated values first; false when any of the three is null.
    ZVTBoolean IsEqualTo(MCProperty* mine, MCObject* other, MCProperty* theirs, ZVTBoolean flag) const;
    /// Compares the properties of `type` of both objects, nulled ones counting as absent and two absent
    /// ones as equal; false for a null `other`.
    ZVTBoolean IsPropertyEqual(short type, const MCObject* other, MCPropertyEqualStrategy* strategy) const;
    /// Compares `mine` of this object with `theirs` of `other`: two nulls are equal, one null or different
    /// types are not; then `strategy` decides, or without one the objects' types must match and the values
    /// are compared, calculated ones calculated first. False for a null `other`.
    ZVTBoolean IsPropertyEqual(const MCProperty* mine, const MCObject* other, const MCProperty* theirs,
                               MCPropertyEqualStrategy* strategy) const;
    /// How well `first` pairs with this object, for a host that matches two models: 10 for null, or for
    /// an object of this type with the same clone id (with `useCloneId`) or an equal Name; 5 for any other
    /// object of this type; 0 otherwise. `second` is not read.
    long GetParallelism(MCItem* first, MCItem* second, ZVTBoolean useCloneId) const override;
    /// The set of objects that inherit from this one, into `heirs`; the base has none and gives null.
    virtual void GetHeirs(const MCHeirSet*& heirs);
    /// Whether `other` defines this object; the base answers true for itself alone and ignores `kind`.
    virtual ZVTBoolean IsDefinedBy(MCObject* other, long kind);

    // --- notifications ----------------------------------------------------------------------------

    /// Registers `notification` for `eventType` (0: the default) on `type`, whose entry links to the
    /// context's notification ancestor; with `setAncestor` the ancestor becomes `type`. False without a
    /// context or a directory, and for a notification already registered there.
    static ZVTBoolean RegisterNotification(MCNotification& notification, short type, long eventType,
                                           MCFactoryContext* context, ZVTBoolean setAncestor);
    /// The same for the default notification of `type`.
    static ZVTBoolean RegisterNotification(MCNotification& notification, short type,
                                           MCFactoryContext* context, ZVTBoolean setAncestor);
    /// What a class level calls in both constructors: makes the entry of `type` linked to the context's
    /// notification ancestor, which becomes `type` with `setAncestor`. True only when the entry is new;
    /// false without a context.
    static ZVTBoolean RegisterNotificationObject(short type, MCFactoryContext* context,
                                                 ZVTBoolean setAncestor);
    /// Makes the entry of `type` linked to `ancestorType`; true only when the directory exists and the
    /// entry is new.
    static ZVTBoolean RegisterNotificationObject(short type, short ancestorType);

    // --- events and the end -----------------------------------------------------------------------

    /// Receives the events of the objects this one observes (its ownees, its reference targets) and
    /// lets the notification directory react for its type; by default the event climbs to this
    /// object's own subscribers.
    void Notify(MCEvent& event) override;
    /// Whether an event of `eventType` with the subscriber mask `mask`, delivered on this object, could
    /// reach anything: false only when its climb would pass nothing but owners without a reaction or a
    /// Notify of their own and without a subscriber beside their owner, up to a level where nobody hears
    /// it. The library makes no event that nobody could hear; true whenever it cannot tell.
    ZVTBoolean IsHeard(long eventType, unsigned int mask) const;
    /// Destroys the object and its subtree: the rules may refuse when `top` is true; always true, so
    /// ResolveId of the old id tells whether it went. Only Expunge_ passes `top` false. Called from a
    /// rule or subscriber 64 expunges deep, or on an owner above an object whose end is under way (from
    /// that end's rules or subscribers), the object is asked for its veto at once but goes only when the
    /// outermost expunge has finished its own object. A call on an object that is already going (its own
    /// rules or subscribers asking again) does nothing. An object ended while a delivery of its own events
    /// runs (its subscriber expunged it, or an owner's) no longer resolves, and its owner hears nothing
    /// more of it, but its memory stays until that delivery is over. An exception of a PreDestructon rule of
    /// the object asked for is a refusal that passes on: the object stays as it was. One thrown later, by
    /// a subscriber or an ownee's rule, does not stop the expunge: the whole subtree goes, reference
    /// holders that the throw kept from hearing are told again, and the first exception then passes on.
    ZVTBoolean Expunge(ZVTBoolean top);
    /// True while this object or any owner above it is being expunged.
    ZVTBoolean IsExpunging() const;
    /// Whether the type has creation semantics registered.
    ZVTBoolean HasCreationSemantics() const;

protected:
    /// The prototype constructor: no owner, no id, in no table; it only teaches the registries the
    /// class's rules.
    MCObject(short type, MCFactorySignature& signature, MCFactoryContext* context);
    /// The working constructor: enters the owner's list and subscription, takes an id from the context
    /// or its id space, and enters the table of live objects. EXDuplicateResolution when the id is taken.
    MCObject(short type, MCObject* owner, MCFactoryContext* context);
    /// Frees the free properties and leaves the id space and the live-object table; fires nothing.
    ~MCObject() override;

    /// Enters the class level `type` into the rule and notification chains through `context`, under the
    /// level registered before it: every constructor of a derived class calls this for its own type, so
    /// that the type inherits its ancestors' rules and reactions. Nothing without a context.
    static void RegisterLevel(short type, MCFactoryContext* context);

    /// The destruction without the veto.
    ZVTBoolean Expunge_(ZVTBoolean top);

    /// Answers true for AbstractObject, the root type of every object.
    ZVTBoolean IsType_(short type) const override;
    /// The text of `property` of `type` whose concrete type is `concreteType`.
    virtual ZVTBoolean GetPropertyString_(short type, short concreteType, const MCProperty* property,
                                          ZVTString& text) const;

private:
    friend class MCProperty;
    friend class MCPropertyAccessor;
    // The subject's dump names a subscribing object as the object's own dump does.
    friend class MCSubject;
    // The registry says when a made object's class is final (MarkMade).
    friend class MCFactoryRegistry;

    // From now on this object's class is final, so an audibility memo may rely on its Notify.
    void MarkMade() { m_nState = static_cast<std::uint8_t>(m_nState | c_nHeardMade); }
    // IsHeard without memos, for any event type and mask.
    ZVTBoolean IsHeardClimb(const MCNotificationDirectory& directory, long eventType,
                            unsigned int mask) const;
    // The event types (bit = type) among those the memos hold that nobody could hear from this object,
    // found by a climb that stops at the first level with a memo of `stamp` and leaves one on the levels
    // it passed when every owner on the way is fully made.
    std::uint8_t FindQuietEvents(const MCNotificationDirectory& directory, std::uint32_t stamp) const;

    // Writes the subtree in `mode` (dumpListing or dumpOutline; any other mode writes nothing) to a model
    // stream; a host reaches it through MCDumpable. The text goes out one character at a time, so a binary
    // stream holds it byte for byte. The outline indents by `pParameter->m_lDepth`, which it leaves as it
    // found it; there a null `pParameter` throws EXUnexpected before anything is written. Each ownee
    // writes itself through this virtual operation, except more than 64 dumps deep, where the rest of a
    // branch is written in this class's format so that no tree costs more call depth.
    void Dump(MCStream& stream, long mode, MCDumpableParameter* pParameter) override;
    // The listing and the outline of the subtree.
    void Dump1(MCStream& stream, MCDumpableParameter* pParameter);
    void Dump2(MCStream& stream, MCDumpableParameter* pParameter);
    void DumpOwnees(MCStream& stream, long mode, MCDumpableParameter* pParameter);
    // The name in the file-stream dumps: the Name property's text, nulled or not, "<can't find name>"
    // without one.
    ZVTString DumpName() const;

    ZVTBoolean SetFlag_(unsigned short& flag, ZVTBoolean on) override;
    ZVTBoolean SetFlags_(unsigned short& flags) override;

    // The steps of an object's end: the rules' veto (false when it is heeded, only with `top`), the
    // event to the subscribers, and after the ownees the clean-up and the memory.
    ZVTBoolean PrepareExpunge(ZVTBoolean top);
    // Whether an object whose end is under way on this thread lies below this one, so that this one's
    // end has to wait for it.
    ZVTBoolean IsAboveAnEnd() const;
    void AnnounceEnd();
    // What the end's delivery does for the reference holders, done directly, for an end that could not be
    // delivered: each holder lets go of this object.
    void LetGoOfHolders() noexcept;
    // Deletes the object, or while a walk of its subscriber list runs, leaves the deletion to the last
    // walk out.
    void FinishExpunge(ZVTBoolean top);
    // What an object's end changes beyond its memory: the end count, the wait list, the id space.
    void Ended();
    // Asks the memory for what the ends of the next few objects after `walked` in the expunge of `top`
    // will read; changes nothing. Only when `trusted` does it read the holders and targets they name.
    static void PrefetchEnds(const MCObject* walked, const MCObject* top, ZVTBoolean trusted);

    MCProperty* FindProperty_(short type, ZVTBoolean withNulled) const;
    // Whether this object's class keeps MCObject's FindProperty and GetHeirs, so that a factory's search
    // finds what the object's own does and the rules find no heirs; false with a compiler whose classes
    // cannot be read so.
    ZVTBoolean KeepsObjectSearch() const;
    // Makes the property of `type` on this object; null after message 601 when it cannot be made, also
    // for an object type.
    MCProperty* CreateProperty_(short type);
    // Enters a new property into the set; `absent` when its type is known not to be there, which skips the
    // search for a duplicate (EXDuplicateProperty otherwise).
    void AddProperty(MCProperty* property, bool absent = false);
    void NullProperty_(MCProperty* property);
    ZVTBoolean SetPropertyFlag_(MCProperty* property, unsigned short flag, ZVTBoolean on);
    MCObject* RemoveFirstOwnee();
    void UnlinkOwnee(MCObject* object);
    ZVTBoolean IsListedBy(const MCObject* owner) const;

    MCObject* m_pxOwner;
    // The ownee ring: the owner holds the oldest; siblings link both ways, the oldest's previous is the
    // youngest. Null links mean "in no list".
    MCObject* m_pxFirstOwnee = nullptr;
    MCObject* m_pxPrevSibling = nullptr;
    MCObject* m_pxNextSibling = nullptr;
    MCPropertySet m_xProperties;
    MCSPropertyT<long> m_xId;
    // The live objects of one type, oldest first, from which the registry makes the type's table when a
    // host first asks for it. A link to itself means "in no list".
    MCObject* m_pxPrevOfType = this;
    MCObject* m_pxNextOfType = this;
};

namespace mc_detail {
/// Asks for every cache line of `object`, for a walk that reads it a few steps later; changes nothing.
inline void PrefetchObject(const MCObject* object) {
#if defined(__GNUC__)
    const char* bytes = reinterpret_cast<const char*>(object);
    for (std::size_t at = 0; at < sizeof(MCObject); at += 64)
        __builtin_prefetch(bytes + at);
#else
    (void)object;
#endif
}
/// How many objects have ended on this thread so far: a change that runs host code asks whether an object
/// it holds may have gone only when this moved.
MODELCORE_API std::uint64_t ObjectEnds();
/// Expunges an object without an owner that an exception is about to leave where nothing the caller gets
/// leads to it; an exception of the expunge itself gives way to the one already on its way.
void ExpungeOrphan(MCObject& object) noexcept;
}  // namespace mc_detail

#endif
