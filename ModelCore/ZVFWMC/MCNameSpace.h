#ifndef MCNAMESPACE_H
#define MCNAMESPACE_H

// Name spaces: which names are taken among objects of chosen types. Name spaces form a tree of their own
// through property 583; a name taken in one is taken in its ancestors and descendants, and free in a
// sibling's branch. Each taken name is an MCStringInfo owned by the name space that refers to the object.

#include <vector>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTIter.h"
#include "foundation/ZVTString.h"

class MCStringInfo;

/// A model object that hands out names unique across its branch of the name-space tree. It owns its
/// MCStringInfo objects; its dictionary (not saved, owning nothing) maps each name of this name space and
/// of its ancestors to the info that holds it.
class MODELCORE_API MCNameSpace : public MCObject {
public:
    /// The type code of name spaces.
    static constexpr short c_sType = MCCodes::tNameSpace;

    /// Enters `object` under its Name (147): false when its exact type is not valid here or the name is
    /// null; without `makeUnique` false when the name is taken; with it, a taken name is made unique
    /// (separator, number, cut to `maxLength` when not 0) and written back, and false says it was renamed.
    /// False, with nothing entered, when a rule run by the rename or by the info's creation expunged it.
    virtual ZVTBoolean Insert(MCObject* object, char separator, long maxLength, ZVTBoolean makeUnique);
    /// Expunges the info under `object`'s current name when it refers to `object`; false otherwise.
    virtual ZVTBoolean Delete(MCObject* object);
    /// Whether `name` is taken in this name space, a descendant or an ancestor.
    ZVTBoolean Contains(ZVTString& name);
    /// The object under `name` in this dictionary alone (own and ancestors' names), or null.
    MCObject* FindObject(ZVTString& name);
    /// The info under `name` in this dictionary, or a new one owned by this name space; null when the
    /// creation failed.
    MCStringInfo* CreateStringInfo(ZVTString& name);
    /// Maps `name` to `info` here and in every descendant, replacing what was there.
    void InsertIntoDictionary(ZVTString& name, MCStringInfo* info);
    /// Removes `name` here and in every descendant; true only if it was here and every removal succeeded.
    ZVTBoolean DeleteFromDictionary(ZVTString& name);
    /// Drops from this name space and its descendants the names pushed down from above it, so none points
    /// at an info of a former ancestor; the rule on property 583 calls it as the name space leaves.
    void DropInheritedNames();
    /// Admits objects of exactly `type` (property 304, raw).
    virtual void AddValidType(short type);
    /// No longer admits objects of `type`; names already entered stay.
    virtual void RemoveValidType(short type);
    /// Whether property 304 holds `type`; an empty list admits nothing.
    virtual ZVTBoolean IsValidFor(short type) const;
    /// Whether `space` is this name space or lies below it along the ancestor references.
    ZVTBoolean Encloses(MCNameSpace* space);
    /// Makes this the ancestor of `child` (its property 583, active); nothing for null.
    virtual void AddChild(MCNameSpace* child);
    /// Clears the ancestor of `child` (its property 583, active); nothing for null.
    virtual void RemoveChild(MCNameSpace* child);
    /// Expunges the infos of this name space whose object is exactly of `type`, then, with
    /// `removeValidType`, takes `type` out of property 304.
    virtual void ClearType(short type, ZVTBoolean removeValidType);

protected:
    ZVTBoolean IsType_(short type) const override;

private:
    friend class MCFactoryT<MCNameSpace, MCObject>;

    MCNameSpace(short type, MCFactorySignature& signature, MCFactoryContext* context);
    MCNameSpace(MCObject* owner, MCFactoryContext* context);
    ~MCNameSpace() override;

    void RegisterRules(MCFactoryContext* context);
    MCNameSpace* Ancestor() const;
    // The walks visit each name space once, without recursion: a damaged file can make the tree a ring.
    // `visit(space, levels from here)` returns true to stop; the walk then returns true.
    template <class Visit>
    ZVTBoolean WalkDown(Visit visit);
    template <class Visit>
    ZVTBoolean WalkUp(Visit visit);
    ZVTBoolean TestAndSetCount_(ZVTString const& name, long& count);
    ZVTBoolean SetCountFromSelf(ZVTString const& name, ZVTBoolean found, long& count);

    MCVRef m_xStringInfoList;
    MCVRef m_xNameSpaces;
    MCSRef m_xAncestorNameSpace;
    MCVPropertyT<long> m_xValidTypeList;
    ZVTHDict<ZVTString, MCStringInfo*> m_xDictionary;
};

/// One taken name: owned by its name space, it refers to the named object (305) and keeps the counters
/// of unique naming (306: Count in the low 16 bits, DiffCount in the high 16, both unsigned).
class MODELCORE_API MCStringInfo : public MCObject {
public:
    /// The type code of string infos.
    static constexpr short c_sType = MCCodes::tStringInfo;

    /// The named object, or null.
    MCObject* GetObjectA();
    /// Sets the named object through an active accessor, which enters its name in the dictionaries.
    void SetObject(MCObject* object);
    /// The highest number handed out for this base name so far.
    long GetCount();
    /// Replaces the Count half, keeping DiffCount; a count outside 0..65535 is refused and changes nothing
    /// (a name made unique past it still is, the search for a free number just starts lower).
    void SetCount(long count);
    /// The number this object's name got when made unique; 1 for a name that was free.
    long GetDiffCount();
    /// Replaces the DiffCount half, keeping Count; outside 0..65535 it is refused and changes nothing.
    void SetDiffCount(long diffCount);
    /// The name the dictionaries hold this info under; null while they do not hold it.
    const ZVTString& GetEnteredName() const { return m_xEnteredName; }

protected:
    ZVTBoolean IsType_(short type) const override;

private:
    friend class MCFactoryT<MCStringInfo, MCObject>;
    friend class MCNameSpace;

    MCStringInfo(short type, MCFactorySignature& signature, MCFactoryContext* context);
    MCStringInfo(MCObject* owner, MCFactoryContext* context);
    ~MCStringInfo() override;

    void RegisterRules(MCFactoryContext* context);
    void SetCounters(unsigned long value);

    MCSRef m_xObject;
    MCSPropertyT<long> m_xCount;
    // Not saved: lets the name go even when the object was renamed behind the name space's back.
    ZVTString m_xEnteredName;
};

/// Sorts MCStringInfo pointers by ascending DiffCount; equal ones keep their order.
class MODELCORE_API MCStringInfoSortOnDiffCount : public ZVTSorter<MCObject*> {
public:
    /// Sorts the `count` infos of `items` in place.
    void Sort(MCObject** items, long count) override;

protected:
    /// -1, 0 or 1 on the DiffCount of the two infos.
    static int Compare(MCObject** a, MCObject** b);
};

#endif
