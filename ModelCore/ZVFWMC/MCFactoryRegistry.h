#ifndef MCFACTORYREGISTRY_H
#define MCFACTORYREGISTRY_H

#include <cstdint>

#include "ModelCore/ZVFWMC/MCDebug.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"
#include "foundation/ZVTVector.h"

class MCCreationHook;
class MCFactory;
class MCFactoryContext;
class MCPropertyAccessor;
class MCItem;
class MCMetaInfoI;
class MCObject;
class MCUDPMap;
template <class T>
class ZVTHTableT;

/// A property that an object type declares, with the clip value that decides how the property
/// travels when a selection is copied. Two usages are equal when their property codes are.
struct MODELCORE_API MCPropertyUsage {
    MCPropertyUsage() = default;
    MCPropertyUsage(short propertyType, std::uint32_t clip) : m_sPropertyType(propertyType), m_uClip(clip) {}

    bool operator==(const MCPropertyUsage& other) const { return m_sPropertyType == other.m_sPropertyType; }
    bool operator!=(const MCPropertyUsage& other) const { return !(*this == other); }

    short m_sPropertyType = 0;
    std::uint32_t m_uClip = 0x2000;
};

/// The process-wide table of every object and property type the running system knows.
///
/// A type is a `short` code: positive for the host's and the core's fixed types, negative for
/// user-defined properties, 0 for none. Types may be registered in any order; a subtype or an
/// ownee registered before the type it names waits in a pending table until that type comes.
/// Every operation is static. Registering calls create the singleton on first use; all other
/// calls answer false, 0 or a null string while it does not exist. Nothing here throws for bad
/// input but a malformed global section: a refused registration answers false and changes nothing.
class MODELCORE_API MCFactoryRegistry : public MCGlobalStreamable, public MCDumpable {
public:
    /// 32-bit clip value of a property usage: a set of the bits 1 (follow), 2 (depend) and
    /// 4 (follow under conversion), or one of the two markers below.
    using clip_reference = std::uint32_t;

    /// Clip bits: the referred object joins the clip.
    static constexpr clip_reference clipFollow = 0x1;
    /// Clip bits: the referring object stays in the clip only with the referred one (or one a converter
    /// knows in its place).
    static constexpr clip_reference clipDepend = 0x2;
    /// Clip bits: with a converter, the referred object joins the clip when the converter does not know it.
    static constexpr clip_reference clipFollowUnconverted = 0x4;
    /// The answer of GetClipFlag for an undeclared pair.
    static constexpr clip_reference clipNoUsage = 0x1000;
    /// The clip value of a usage declared without a decision.
    static constexpr clip_reference clipUndecided = 0x2000;

    /// Bits of the type flag word. The values are stored in models: they must not change.
    static constexpr unsigned long flagObject = 0x0001;
    static constexpr unsigned long flagProperty = 0x0002;
    static constexpr unsigned long flagCore = 0x0004;
    static constexpr unsigned long flagUser = 0x0008;
    static constexpr unsigned long flagFirstOff = 0x0010;
    static constexpr unsigned long flagFirstOn = 0x0020;
    static constexpr unsigned long flagAbstract = 0x0100;
    static constexpr unsigned long flagConcrete = 0x0200;
    static constexpr unsigned long flagAlias = 0x0400;
    static constexpr unsigned long flagWithInherited = 0x0800;
    static constexpr unsigned long flagSecondOff = 0x1000;
    static constexpr unsigned long flagSecondOn = 0x2000;
    static constexpr unsigned long flagItemFlag100 = 0x4000;
    static constexpr unsigned long flagPreFetch = 0x8000;

    /// What GetPropertyUsages lists of a type: its core usages, its user-defined ones held by the model
    /// (with flagWithInherited, those of its supertypes too).
    static constexpr unsigned long usageCore = 0x10;
    static constexpr unsigned long usageUser = 0x20;

    /// Selection groups of the query masks: a type passes a mask when, in every group the
    /// query tests, the type and the mask share a bit.
    static constexpr unsigned long groupKind = flagObject | flagProperty;
    static constexpr unsigned long groupOrigin = flagCore | flagUser;
    static constexpr unsigned long groupFirst = flagFirstOff | flagFirstOn;
    static constexpr unsigned long groupTypeKind = flagAbstract | flagConcrete | flagAlias;
    static constexpr unsigned long groupSecond = flagSecondOff | flagSecondOn;
    /// The GetPropertyTypes mask of every user-defined property (held by the model asked about).
    static constexpr unsigned long selectUserProperties =
        flagProperty | flagUser | groupFirst | groupTypeKind;

    /// The singleton, created on first call.
    static MCFactoryRegistry* GetInstance();
    /// Deletes the singleton with every entry and factory it owns; a later registering call
    /// starts an empty registry. Called when the library terminates.
    static void DeleteInstance();

    // Registering types.

    /// Registers an abstract object type under `supertype` (0 for a root type).
    static ZVTBoolean RegisterAbstractObject(short code, const ZVTString& name, short supertype);
    /// Registers a concrete object type; on success the registry owns `factory`.
    static ZVTBoolean RegisterConcreteObject(short code, const ZVTString& name, short supertype,
                                             short ownerType, MCFactory* factory, ZVTBoolean first,
                                             ZVTBoolean second);
    /// Registers an object type that stands for `concreteType`; the target need not exist yet.
    static ZVTBoolean RegisterAliasObject(short code, const ZVTString& name, short unused, short concreteType,
                                          ZVTBoolean first, ZVTBoolean second);
    /// Registers a concrete property type; on success the registry owns `factory`.
    static ZVTBoolean RegisterConcreteProperty(short code, const ZVTString& name, MCFactory* factory,
                                               ZVTBoolean first, ZVTBoolean second, ZVTBoolean preFetch,
                                               ZVTBoolean itemFlag100);
    /// Registers a property type that stands for `concreteType`.
    static ZVTBoolean RegisterAliasProperty(short code, const ZVTString& name, short concreteType,
                                            ZVTBoolean first, ZVTBoolean second, ZVTBoolean preFetch,
                                            ZVTBoolean itemFlag100);

    // Relating types.

    /// Adds an owner type to a concrete object type; 0 leaves the owner undefined.
    static ZVTBoolean AddOwnerType(short code, short ownerType);
    /// Declares that `objectType` uses `propertyType`; a second declaration keeps the first clip value.
    static ZVTBoolean AddPropertyUsage(short objectType, short propertyType, clip_reference clip);
    /// Declares `count` usages from `pairs`: property code, then its clip value (sign-extended).
    static ZVTBoolean AddPropertyUsages(short objectType, const short* pairs, long count);
    /// Takes a usage away; true whether or not it was there. `model` is not read.
    static ZVTBoolean RemovePropertyUsage(short objectType, short propertyType, MCObject* model);
    /// The clip value of the nearest declaration along the supertypes, or clipNoUsage.
    static clip_reference GetClipFlag(short objectType, short propertyType);
    /// Decides an undecided usage of the type itself, once; false when there is none.
    static ZVTBoolean SetClipFlag(short objectType, short propertyType, clip_reference clip);

    // Facts about one type.

    /// Whether the code is registered; for a negative code with a model, whether that model holds it.
    static ZVTBoolean IsRegistered(short code, MCObject* model);
    /// With a model, whether the default name is registered for that model; with none, whether a
    /// nomenclature of that name exists.
    static ZVTBoolean IsRegistered(const ZVTString& name, MCObject* model);
    /// True exactly for negative codes.
    static ZVTBoolean IsUserDefined(short code) { return code < 0; }
    /// Whether `ownerType` was added as an owner type of `code`, by exact comparison.
    static ZVTBoolean IsValidOwner(short code, short ownerType);
    /// Whether new properties of the type are calculated on read.
    static ZVTBoolean IsPreFetch(short code);
    /// Marks a property type as calculated on read (whatever `want` says); existing properties keep their
    /// flags.
    static ZVTBoolean SetWantPreFetch(short code, ZVTBoolean want);
    /// The item size of a concrete type or of an alias of one; message 602 and 0 for an unknown type.
    static unsigned int GetItemSize(short code);
    /// Free text attached to a type.
    static ZVTBoolean SetDefinition(short code, const ZVTString& text);
    static ZVTBoolean GetDefinition(short code, ZVTString& text);

    // Names.

    /// Adds the type's name in a nomenclature, which comes into being on first use. A type keeps
    /// its first name per nomenclature: the result tells whether `name` equals the name it has.
    static ZVTBoolean AddName(short code, const ZVTString& nomenclature, const ZVTString& name);
    /// The code of `name` in a nomenclature, falling back to the default one; 0 if none. A null
    /// nomenclature means the default nomenclature "Logical".
    static short Lookup(const ZVTString& name, ZVTString nomenclature = ZVTString());
    /// The name of `code` in a nomenclature, falling back to its default name; null if none.
    static ZVTString Lookup(short code, ZVTString nomenclature = ZVTString());
    /// Whether a nomenclature of that name exists.
    static ZVTBoolean ContainsNomenclature(const ZVTString& name);
    /// The concrete code of an alias (one step only); for any other code, the code itself when
    /// `keep` is true and 0 when it is false.
    static short Translate(short code, ZVTBoolean keep);

    // Queries over the table. Result vectors are appended to, never cleared.

    /// Types that pass `mask` in all five groups. flagObject is added to the mask, so object types
    /// are selected by default; a mask that also names flagProperty selects property types too.
    /// Alias object types carry no origin bit and never pass.
    static ZVTBoolean GetObjectTypes(ZVTOrderedVectorT<short>& types, unsigned long mask);
    /// The property types of a type: usageCore its own core usages, usageUser its user-defined ones held by
    /// `model`, flagWithInherited also those of every supertype up to the root, own ones first.
    static ZVTBoolean GetPropertyUsages(short objectType, ZVTOrderedVectorT<short>& types, unsigned long mask,
                                        MCObject* model);
    /// Property types passing `mask` by kind of type, origin and first pair; user-defined ones
    /// only for a model that holds them.
    static ZVTBoolean GetPropertyTypes(ZVTOrderedVectorT<short>& types, unsigned long mask, MCObject* model);
    /// The object types that declared a usage of `propertyType` (not their subtypes).
    static ZVTBoolean GetUsingObjectTypes(short propertyType, ZVTOrderedVectorT<short>& types,
                                          MCObject* model);
    /// The type flag word of a registered type.
    static ZVTBoolean GetFlags(short code, unsigned long& flags);
    /// The supertype of an abstract or concrete object type; 0 for a root or any other type.
    static short GetSupertype(short code);
    static ZVTBoolean GetSubtypes(short code, ZVTOrderedVectorT<short>& types);
    /// The owner type most recently added to a concrete object type.
    static short GetOwnerType(short code);
    static ZVTBoolean GetOwnerTypes(short code, ZVTOrderedVectorT<short>& types);
    static ZVTBoolean GetOwneeTypes(short code, ZVTOrderedVectorT<short>& types);

    // User-defined properties: property types made at run time by name, with negative codes given by this
    // process, held per persistence root (the object at or above a given one that is of type 530).

    /// The code of the user-defined property `name` of value type `concreteType` (a concrete property
    /// type), made on first use with the next free negative code; `model`, when not null, then holds it.
    /// 0 when the name is empty or names a fixed type, when a known name has another concrete type, or
    /// when the negative codes are used up.
    static short RegisterUDP(const ZVTString& name, short concreteType, MCObject* model, ZVTBoolean first);
    /// Registers the records of `map` that the process did not know for the persistence root at or above
    /// `object`, maps their stored codes to the new ones (0 for a refused record) and has the root hold
    /// every mapped property; false without a map or a root.
    static ZVTBoolean RegisterUDPs(MCObject& object, MCUDPMap* map);
    /// Lets `model` stop holding the user-defined property `code`; the code and its usages stay. False
    /// when `code` is no user-defined property.
    static ZVTBoolean RemoveUDP(short code, MCObject* model);
    /// Lets `model` stop holding every user-defined property it holds, as RemoveUDP does for each; for a
    /// root about to go, which the registry would otherwise keep counting (and a later root at the same
    /// address would inherit).
    static void RemoveUDPs(MCObject* model);
    /// Has `model` hold the user-defined property `code`; false without a registry, for a code that is no
    /// user-defined property, or for a null model.
    static ZVTBoolean ValidatePersistenceUnit(short code, MCObject* model);

    /// Writes the global section of the persistence root `model`: one record per user-defined property it
    /// holds; throws EXUnexpected for a property without a default name, leaving a partial section.
    void SaveTo(MCStream& stream, MCObject* model) override;
    /// Reads records until the globals end token, the end mark or the end of the stream: known names go
    /// into `map` with their usages, unknown ones into its list of records; bytes that are no token are
    /// skipped. Throws EXUnexpected for a null map or a record with a code of 0 or above. `model` is not
    /// read.
    void RestoreFrom(MCStream& stream, MCUDPMap* map, MCObject* model) override;

    // --- creation -----------------------------------------------------------------------------------

    /// The one door in: makes an item of `code` (an alias is made by its concrete type's factory and
    /// keeps the alias's code) under `owner`, runs its creation semantics, gives a property its
    /// registered flags and tells the creation hooks of an object. `owner` may be null for an object,
    /// `context` null for a default one; `model` is not read. Null after message 601 when the type is
    /// unknown, abstract, without a factory, or its factory declines (a property that has a value, an
    /// owner of no allowed type); null without a message for a concrete type under a negative code, and
    /// for an object its PostCreation rules or a creation hook expunged (no later hook hears of it).
    /// An item made under an owner belongs to it and goes with it; a root object belongs to the caller,
    /// who ends it with Expunge(true), never delete.
    static MCItem* CreateItem(short code, MCObject* owner, MCFactoryContext* context, MCObject* model);
    /// Adds (`add`) or removes a creation hook, which stays with its maker; false when the registry does
    /// not exist, when adding a hook that is there or removing one that is not.
    static ZVTBoolean HookCreateItem(MCCreationHook& hook, ZVTBoolean add);
    /// The live objects of `code` (by the code of their class) into `table`; false when none was ever
    /// made. The table is made on the first ask (std::bad_alloc when it cannot be), stays with the
    /// registry and changes as objects come and go.
    static ZVTBoolean GetInstances(short code, ZVTHTableT<MCObject*>*& table, MCObject* model);
    /// Adds `count` to the expected number of items of `itemSize` (a new record starts at 1); creates the
    /// registry if need be.
    static ZVTBoolean RegisterInitialPoolCount(unsigned int itemSize, long count);
    /// The pool handle of `itemSize`, entering a record for it; always 0, as items come from the global
    /// heap.
    static unsigned long GetPool(unsigned int itemSize);
    /// The expected number of items of `itemSize`; 0 when there is no record.
    static long GetPoolCount(unsigned int itemSize);

    /// Hash of the type-code tables: the code sign-extended.
    static unsigned int HashFactoryKey(const short& code) { return static_cast<unsigned int>(code); }
    /// Hash of the pointer-keyed tables.
    static unsigned int HashPointer(MCObject* const& object);

    // --- dumps ---------------------------------------------------------------------------------------

    /// Dump mode of the object types with their supertypes and own property usages.
    static constexpr long dumpMetamodel = 4;
    /// Dump mode of the concrete and alias object types with their owner types and flattened usages.
    static constexpr long dumpConcreteMetamodel = 5;

    /// Writes the dump of `mode` (dumpMetamodel or dumpConcreteMetamodel; any other mode writes nothing),
    /// types and properties sorted by default name, one operator<<(char) per character so that a binary
    /// stream holds exactly the text; `pParameter` is not read.
    void Dump(MCStream& stream, long mode, MCDumpableParameter* pParameter) override;

    MCFactoryRegistry(const MCFactoryRegistry&) = delete;
    MCFactoryRegistry& operator=(const MCFactoryRegistry&) = delete;

private:
    friend class MCObject;

    // CreateItem; with `propertyOnly`, as MCObject makes a property, the code of an object type is refused
    // with message 601 before anything is made, since its factory would make an ownee.
    static MCItem* CreateItem_(short code, MCObject* owner, MCFactoryContext* context,
                               ZVTBoolean propertyOnly);
    // The first set of `code` on `owner`, whose own search found no property of it: when the property is
    // one the core's own factory makes, the accessor the core's active one for its value class, and
    // nothing could tell (no registered flags to set, no rule on the owner's chain for it, no heirs, the
    // owner's class searching as MCObject does), makes the property and sets it without looking for
    // rules: 1 when the set succeeded, 0 when it failed. -1, with nothing done, for every other case.
    static int SetFirstValue(short code, MCObject* owner, MCPropertyAccessor& accessor, long flags);
    // SetFirstValue past its quick refusal; `slot` is the way remembered for `code`, of a type private to
    // it, which FindFirstSetWay fills.
    static int SetFirstValueBy(void* slot, short code, MCObject* owner, MCPropertyAccessor& accessor,
                               long flags);
    static void FindFirstSetWay(void* way, short code);
    // SetFirstValue's making and setting for one of the core's single-value property classes, through
    // the raw accessor class the active one derives from.
    template <class Property, class RawAccessor>
    static ZVTBoolean SetMadeValue(short code, MCObject* owner, MCPropertyAccessor& accessor, long flags);
    // Enters (`add`) or removes an object in the list of live objects of its type, and in the type's
    // table once a host has asked for it.
    static void RegisterInstance(MCObject* object, ZVTBoolean add);
    // Takes every live object out of its type's list, as the registry ends before them: their ends must
    // touch no other object.
    static void UnlistInstances();
    // Shows numbered message `messageId` with `code` in decimal, as the registry reports a type it
    // cannot serve.
    static void ShowCodeMessage(long messageId, short code);

    MCFactoryRegistry();
    ~MCFactoryRegistry() override;

    static MCFactoryRegistry* c_pxSingleton;
    static MCMetaInfoI* c_pxImplementation;
};

#endif
