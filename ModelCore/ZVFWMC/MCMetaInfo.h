#ifndef MCMETAINFO_H
#define MCMETAINFO_H

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTVector.h"

class MCMetaInfo_i;

/// A second, host-filled table beside the type registry: a flag word per object type and the
/// pairs of object type and property type whose values are inherited.
///
/// The flags belong to the host, except that bit 0 marks a type GetObjectTypes may report and
/// bit 31 is never legal. Inheritance pairs hold for exactly the object type named, not for its
/// subtypes. All operations are static; the singleton is made by GetInstance, SetFlags and
/// RegisterPropertyInheritance, and the queries answer false while it does not exist.
class MODELCORE_API MCMetaInfo {
public:
    /// The singleton, created on first call.
    static MCMetaInfo* GetInstance();
    /// Deletes the singleton and its tables; called when the library terminates.
    static void DeleteInstance();

    /// Replaces the flag word of `code`; false (and nothing changed) when bit 31 is set.
    static ZVTBoolean SetFlags(short code, unsigned long flags);
    /// The codes whose flags have bit 0, every bit of `required` and no bit of `forbidden`.
    /// False when `forbidden` has bit 0 or either mask has bit 31.
    static ZVTBoolean GetObjectTypes(unsigned long required, unsigned long forbidden,
                                     ZVTOrderedVectorT<short>& types);
    /// Records that `propertyType` is inherited on `objectType`; a pair given twice stands twice.
    static ZVTBoolean RegisterPropertyInheritance(short objectType, short propertyType);
    /// Whether the pair was registered, for exactly this object type.
    static ZVTBoolean IsInheritable(short objectType, short propertyType);
    /// Appends the inherited property types of `objectType`, once per registration.
    static ZVTBoolean GetInheritableProperties(short objectType, ZVTOrderedVectorT<short>& properties);

    MCMetaInfo(const MCMetaInfo&) = delete;
    MCMetaInfo& operator=(const MCMetaInfo&) = delete;

private:
    MCMetaInfo();
    ~MCMetaInfo();

    static MCMetaInfo* c_pxSingleton;
    static MCMetaInfo_i* c_pxImplementation;
};

#endif
