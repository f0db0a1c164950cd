#ifndef MCFACTORYREGISTRYPRIVATE_H
#define MCFACTORYREGISTRYPRIVATE_H

// The registry's storage: the entry family and the implementation object. Not installed.

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCRegistrationPrivate.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTHSet.h"
#include "foundation/ZVTRecent.h"
#include "foundation/ZVTSList.h"

class MCMetaInfoObjectEntry;
class MCMetaInfoAbstractObjectEntry;
class MCMetaInfoConcreteObjectEntry;
class MCMetaInfoPropertyEntry;
class MCMetaInfoAliasPropertyEntry;
class MCMetaInfoConcreteEntry;
class MCMetaInfoAliasEntry;

/// The bookkeeping of one item size: how many items the factories expect, and a pool handle that
/// stays 0.
struct MCPoolRecord {
    long m_lCount = 1;
    unsigned long m_ulPool = 0;
};

/// A type's name in one nomenclature; id 0 is the default nomenclature.
struct MCNameTranslation {
    MCNameTranslation() = default;
    MCNameTranslation(const ZVTString& name, unsigned short id) : m_xName(name), m_usId(id) {}
    bool operator==(const MCNameTranslation& other) const {
        return m_usId == other.m_usId && m_xName == other.m_xName;
    }

    ZVTString m_xName;
    unsigned short m_usId = 0;
};

/// One vocabulary of type names.
class MCNomenclature {
public:
    /// Takes the next nomenclature id when `numbered`; the default nomenclature keeps 0.
    MCNomenclature(const ZVTString& name, ZVTBoolean numbered);

    ZVTString m_xName;
    ZVTHDict<ZVTString, short> m_xCodes;
    unsigned short m_usId = 0;

private:
    static unsigned short c_usLastId;
};

/// Root of the entry family. What an entry is follows from its class; the As... queries stand
/// in for the downcasts so that a look-up pays one virtual call, not a cross-cast.
class MCMetaInfoEntry {
public:
    virtual ~MCMetaInfoEntry();
    virtual unsigned long GetFlags() const { return m_ulFlags; }

    virtual MCMetaInfoObjectEntry* AsObject() { return nullptr; }
    virtual MCMetaInfoAbstractObjectEntry* AsAbstractObject() { return nullptr; }
    virtual MCMetaInfoConcreteObjectEntry* AsConcreteObject() { return nullptr; }
    virtual MCMetaInfoPropertyEntry* AsProperty() { return nullptr; }
    virtual MCMetaInfoAliasPropertyEntry* AsAliasProperty() { return nullptr; }
    virtual MCMetaInfoConcreteEntry* AsConcrete() { return nullptr; }
    virtual MCMetaInfoAliasEntry* AsAlias() { return nullptr; }

    unsigned long m_ulFlags = 0;
    ZVTSList<MCNameTranslation> m_xNames;
    ZVTString m_xDefinition;
};

/// An object type of any kind: the usages it declares itself, in order of declaration.
class MCMetaInfoObjectEntry : public MCMetaInfoEntry {
public:
    MCMetaInfoObjectEntry* AsObject() override { return this; }

    ZVTOrderedVectorT<MCPropertyUsage> m_xPropertyUsages{10};
};

/// An object type that has a place in the hierarchy.
class MCMetaInfoAbstractObjectEntry : public MCMetaInfoObjectEntry {
public:
    MCMetaInfoAbstractObjectEntry* AsAbstractObject() override { return this; }

    short m_sSupertype = 0;
    MCMetaInfoAbstractObjectEntry* m_pxSupertypeEntry = nullptr;
    ZVTOrderedVectorT<short> m_xSubtypes{1};
    ZVTOrderedVectorT<short> m_xOwneeTypes{3};
};

/// What a creatable type adds: its item size and factory (owned by the registry, not here).
class MCMetaInfoConcreteEntry {
public:
    virtual ~MCMetaInfoConcreteEntry();

    unsigned int m_uItemSize = 0;
    ZVTOrderedVectorT<MCFactory*> m_xFactories{1};
};

/// What an alias adds: the type it stands for.
class MCMetaInfoAliasEntry {
public:
    virtual ~MCMetaInfoAliasEntry();

    short m_sConcreteType = 0;
};

class MCMetaInfoConcreteObjectEntry : public MCMetaInfoAbstractObjectEntry, public MCMetaInfoConcreteEntry {
public:
    MCMetaInfoConcreteObjectEntry* AsConcreteObject() override { return this; }
    MCMetaInfoConcreteEntry* AsConcrete() override { return this; }

    short m_sOwnerType = 0;
    ZVTOrderedVectorT<short> m_xOwnerTypes{1};
};

class MCMetaInfoAliasObjectEntry : public MCMetaInfoObjectEntry,
                                   public MCMetaInfoConcreteEntry,
                                   public MCMetaInfoAliasEntry {
public:
    MCMetaInfoConcreteEntry* AsConcrete() override { return this; }
    MCMetaInfoAliasEntry* AsAlias() override { return this; }
};

class MCMetaInfoPropertyEntry : public MCMetaInfoEntry {
public:
    MCMetaInfoPropertyEntry* AsProperty() override { return this; }

    ZVTOrderedVectorT<short> m_xUsingObjectTypes{5};
};

class MCMetaInfoConcretePropertyEntry : public MCMetaInfoPropertyEntry, public MCMetaInfoConcreteEntry {
public:
    MCMetaInfoConcreteEntry* AsConcrete() override { return this; }
};

/// A property alias; for a user-defined property also the persistence roots that hold it.
class MCMetaInfoAliasPropertyEntry : public MCMetaInfoPropertyEntry,
                                     public MCMetaInfoConcreteEntry,
                                     public MCMetaInfoAliasEntry {
public:
    MCMetaInfoAliasPropertyEntry();

    MCMetaInfoAliasPropertyEntry* AsAliasProperty() override { return this; }
    MCMetaInfoConcreteEntry* AsConcrete() override { return this; }
    MCMetaInfoAliasEntry* AsAlias() override { return this; }

    ZVTHSetT<MCObject*> m_xModels;
};

/// The registry's state. Owns the entries, the nomenclatures and every registered factory.
class MCMetaInfoI {
public:
    MCMetaInfoI();
    ~MCMetaInfoI();
    MCMetaInfoI(const MCMetaInfoI&) = delete;
    MCMetaInfoI& operator=(const MCMetaInfoI&) = delete;

    MCMetaInfoEntry* FindEntry(short code) const;
    /// The entry of `code`, or for an alias the entry of its concrete type, whose code goes to `concrete`
    /// in either case: Translate and FindEntry in one, with one look-up for a code that is no alias.
    MCMetaInfoEntry* FindTranslated(short code, short& concrete) const;
    /// The second half of FindTranslated, for an entry already found under `code`: an alias's concrete
    /// entry, with its code going to `code`; any other entry (or null) as it is.
    MCMetaInfoEntry* Translated(MCMetaInfoEntry* entry, short& code) const {
        MCMetaInfoAliasEntry* alias = entry ? entry->AsAlias() : nullptr;
        if (!alias)
            return entry;
        code = alias->m_sConcreteType;
        return FindEntry(code);
    }
    /// Drops what FindEntry remembers; every change of m_xEntries calls it.
    void ForgetRecent() const {
        m_xRecent.Forget();
        m_xRecentSized.Forget();
        mc_detail::RegistriesChanged();
    }
    /// The concrete entry behind `code` that GetItemSize last found, null when it has none remembered.
    MCMetaInfoConcreteEntry* FindRecentSized(short code) const { return m_xRecentSized.Find(code); }
    /// Remembers the concrete entry behind `code` until the next change of m_xEntries.
    void RememberSized(short code, MCMetaInfoConcreteEntry* entry) const {
        m_xRecentSized.Remember(code, entry);
    }
    /// The supertype entry of `entry`, resolved through the table and cached on first need.
    MCMetaInfoAbstractObjectEntry* SupertypeOf(MCMetaInfoAbstractObjectEntry* entry) const;
    MCNomenclature* FindNomenclature(const ZVTString& name) const;

    ZVTHDict<short, MCMetaInfoEntry*> m_xEntries;
    ZVTHDict<ZVTString, MCNomenclature*> m_xNomenclatures;
    MCNomenclature* m_pxDefaultNomenclature = nullptr;
    long m_lLastUDP = 0;
    ZVTHSetT<MCFactory*> m_xFactories;
    ZVTHDict<short, ZVTSList<short>> m_xPendingSubtypes;
    ZVTHDict<short, ZVTSList<short>> m_xPendingOwnees;
    // The live objects of one type code: a list through the objects, and the table a host reads them
    // from, owned and made on its first ask (kept from then on, as the host may hold it); with the type's
    // item size as it was at the first object, for reading ahead where the next one goes.
    struct InstanceTable {
        ZVTHTableT<MCObject*>* m_pxTable = nullptr;
        MCObject* m_pxFirst = nullptr;
        MCObject* m_pxLast = nullptr;
        unsigned int m_uItemSize = 0;
    };
    ZVTHDict<short, InstanceTable*> m_xInstances;  // owned, each where it was made
    /// The instances of `code`, null when none was ever made; a type's are asked for on every making and
    /// ending of one of its objects.
    InstanceTable* FindInstances(short code) {
        InstanceTable* found = m_xRecentInstances.Find(code);
        if (!found && m_xInstances.Find(code, found))
            m_xRecentInstances.Remember(code, found);
        return found;
    }
    // Expected item counts per item size.
    ZVTHDict<unsigned int, MCPoolRecord> m_xPools;
    ZVTSList<MCCreationHook*> m_xCreationHooks;

private:
    // The entries FindEntry found lately: making one object asks for the same few codes a dozen times.
    mutable ZVTRecentT<MCMetaInfoEntry> m_xRecent;
    // The concrete entries behind the codes GetItemSize answered lately: every property made asks for
    // its object's size, and every object ended for its own.
    mutable ZVTRecentT<MCMetaInfoConcreteEntry> m_xRecentSized;
    // The instances of the codes FindInstances answered lately; they never move and never go, so nothing
    // is forgotten.
    ZVTRecentT<InstanceTable, 8> m_xRecentInstances;
};

namespace mc_detail {

/// Set by the short way of a first set while it makes a property of a type its owner was just found not
/// to hold, and cleared when that is done; the property's constructor, made by `new` under it, enters
/// itself without searching the owner's set for a duplicate.
inline __attribute__((tls_model("initial-exec"))) thread_local bool t_bAbsentType = false;

}  // namespace mc_detail

#endif
