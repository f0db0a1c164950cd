#ifndef MCCLIPBOARD_H
#define MCCLIPBOARD_H

// Copy and paste: the closure of a selection over ownership and references, the clip buffer that carries
// it, and the paste that makes, merges or binds each entry of a buffer under one or more targets.
//
// A clip buffer is a block of bytes with the fixed widths and byte order of a model file: a frame (head,
// global section, level mark, entries, end token) around object records as a file has them. A host may
// keep it, put it on the system clipboard or hand it to another process; docs/stream-format.md gives its
// bytes.

#include <cstdint>
#include <memory>

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCObjectSem.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTVector.h"

class MCClipList;
class MCCopyStream;
struct MCClipListWork;
class MCObject;
class MCProperty;
struct MCClipEntry;

/// The host's mapping from the ids of a buffer to the ids of the model pasted into, for instance to merge
/// a buffer pasted a second time into the objects it made the first time. The host owns it.
class MODELCORE_API MCClipIdConverter : public MCIdConverter {
public:
    /// The id in the target model that stands for `id` of the buffer, 0 when there is none.
    long ConvertId(long id) override = 0;
    /// Called after each new object with its id in the buffer and its id now.
    virtual void AddConversion(long oldId, long newId) = 0;

protected:
    ~MCClipIdConverter() = default;
};

/// Copy and paste in one call.
class MODELCORE_API MCClip {
public:
    /// The kind of a clip entry; it selects the entry's token in the buffer, so the values must not change.
    /// The closure makes only entryCopy; a reader also takes entryShared, before the level mark.
    enum entry_type {
        entryCopy = 0,      ///< token 0x21: made anew (or bound by name) under a target
        entryReserved = 1,  ///< token 0x22: accepted by no reader
        entryShared = 2     ///< token 0x23: bound to the existing object when pasted into its own source
    };

    MCClip() = delete;

    /// Copies the closure of `objects` (in the tree whose copy source is `source`) and pastes it as the
    /// paste form of MCClipList does, under each of `targets` or once under `target`. With a converter the
    /// copy also follows references whose clip value has bit 4, and entries the converter knows are merged
    /// into their existing objects. `ids`, when not null, is emptied and receives the ids of the pasted
    /// objects at level 0 and of the merged ones. True exactly when at least one id resulted. Throws what
    /// the paste form of MCClipList throws.
    static ZVTBoolean CopyTo(ZVTSList<MCObject*>& objects, MCObject& source, ZVTSList<MCObject*>& targets,
                             MCObject& target, MCClipIdConverter* converter, ZVTOrderedVectorT<long>* ids);
};

/// One requirement of the closure: `dependent` stays in the clip only if `provider` is in it or the id
/// converter knows it. A plain value.
class MODELCORE_API MCClipDependency {
public:
    /// Null objects, property type 0 and reference type clipUndecided.
    MCClipDependency() = default;
    MCClipDependency(MCObject* dependent, MCObject* provider, short propertyType,
                     MCFactoryRegistry::clip_reference referenceType)
        : m_pxDependent(dependent),
          m_pxProvider(provider),
          m_sPropertyType(propertyType),
          m_uReferenceType(referenceType) {}
    virtual ~MCClipDependency();

    /// Equal when all four fields are.
    bool operator==(const MCClipDependency& other) const {
        return m_pxDependent == other.m_pxDependent && m_pxProvider == other.m_pxProvider &&
               m_sPropertyType == other.m_sPropertyType && m_uReferenceType == other.m_uReferenceType;
    }
    bool operator!=(const MCClipDependency& other) const { return !(*this == other); }

    MCObject* GetDependent() const { return m_pxDependent; }
    void SetDependent(MCObject* object) { m_pxDependent = object; }
    MCObject* GetProvider() const { return m_pxProvider; }
    void SetProvider(MCObject* object) { m_pxProvider = object; }
    short GetPropertyType() const { return m_sPropertyType; }
    void SetPropertyType(short type) { m_sPropertyType = type; }
    MCFactoryRegistry::clip_reference GetReferenceType() const { return m_uReferenceType; }
    void SetReferenceType(MCFactoryRegistry::clip_reference type) { m_uReferenceType = type; }

private:
    MCObject* m_pxDependent = nullptr;
    MCObject* m_pxProvider = nullptr;
    short m_sPropertyType = 0;
    MCFactoryRegistry::clip_reference m_uReferenceType = MCFactoryRegistry::clipUndecided;
};

/// The dependencies met while a closure runs.
class MODELCORE_API MCClipDependencyList : public ZVTOrderedVectorT<MCClipDependency> {
public:
    explicit MCClipDependencyList(size_t capacity) : ZVTOrderedVectorT<MCClipDependency>(capacity) {}
};

/// A clip list in one of two forms. The copying form computes, in its constructor, the closure of a
/// selection from the metamodel's clip values and writes it to a buffer that the host then takes with
/// GetBufferSize and CopyBuffer. The paste form reads a buffer, in its constructor, and pastes it.
class MODELCORE_API MCClipList {
public:
    /// How the closure treats bit 4 (follow under conversion) of a clip value.
    enum mode {
        modeCopy = 0,    ///< bit 4 brings nothing in
        modeConvert = 1  ///< bit 4 brings in what the converter does not know
    };

    /// Computes the closure of `objects` in the tree whose copy source is `source` and writes the buffer.
    /// The converter, not owned, may be null. Throws EXUnexpected when there is no persistence root at or
    /// above `source` or no environment is installed; the rules' PostCopy run while entries are written, and
    /// an object they expunge, with what it owned, is left out of the buffer. Message 607 for each
    /// undeclared reference comes once the buffer is written, in the order the closure met them, so its
    /// handler may edit the model. An exception, std::bad_alloc included, passes on with no buffer made
    /// and the model untouched.
    MCClipList(ZVTSList<MCObject*>& objects, MCObject& source, mode nMode, MCClipIdConverter* converter);
    /// Pastes the `size` bytes at `buffer`: the buffer is read once for each of `targets`, and each
    /// selected object is made under that target, or, when it can't be placed there, once under `target`
    /// (list `target` itself to paste only there). An empty list pastes only what stands before the level
    /// mark. A reference to an object outside the buffer is cleared (a list loses that entry). `ids`, when
    /// not null, is emptied and receives the ids of the pasted objects at level 0 and of the merged ones.
    /// A damaged buffer stops the paste, and what was pasted whole before the damage stays, resolved and
    /// announced; so does a target that host code (a merge's rule, the converter) expunged mid-paste. An
    /// object the paste made or bound that such code expunged is not touched again: a record it owned is
    /// placed as one without an owner, a reference to it is cleared. A factory, the record reader
    /// (EXUnexpected) or a duplicate id in the buffer (EXDuplicateResolution) throws through the constructor,
    /// and then every object the paste had made is gone again; so does any exception (std::bad_alloc too)
    /// until every reference is bound. One thrown later, by a PostPaste rule, a subscriber of the
    /// announcement or the memory running out, passes on with the pasted objects left in place, whole and
    /// bound. The bytes are copied, so `buffer` stays the caller's; each pasted object belongs to the target
    /// it was made under, and `ids` and the converter stay the caller's.
    MCClipList(ZVTSList<MCObject*>& targets, MCObject& target, void* buffer, int size,
               ZVTOrderedVectorT<long>* ids, MCClipIdConverter* converter);
    MCClipList(const MCClipList&) = delete;
    MCClipList& operator=(const MCClipList&) = delete;
    virtual ~MCClipList();

    /// The number of bytes the copying form wrote; 0 for the paste form, and 0 when a value did not fit
    /// its stored width (the buffer is then not given out at all).
    long GetBufferSize() const;
    /// Copies the buffer to `target`, which holds at least GetBufferSize() bytes; the list keeps its own
    /// copy until it is destroyed. Nothing for a null `target`.
    void CopyBuffer(void* target);

private:
    ZVTBoolean Insert(MCObject* owner, MCObject* object, short level, MCClip::entry_type type,
                      ZVTBoolean inherited);
    void AddOwnees(MCObject* object, short level, MCClip::entry_type type);
    void AddReferences(MCObject* object, short level, MCClip::entry_type type);
    void AddReference(MCObject* object, const MCProperty* property, short level, MCClip::entry_type type,
                      ZVTBoolean inherited);
    void AddReferenceObject(MCObject* referrer, MCObject* referred, short propertyType, short level,
                            MCClip::entry_type type, MCFactoryRegistry::clip_reference clip,
                            ZVTBoolean inherited);
    void AddDependency(MCObject* dependent, MCObject* provider, short propertyType,
                       MCFactoryRegistry::clip_reference clip);
    void PurgeUnresolved();
    // Runs the expansions that Insert queued, depth first, in the order a recursion would.
    void Expand();

    mode m_eMode;
    ZVTHDict<MCObject*, MCClipEntry*> m_xEntries;
    std::unique_ptr<MCCopyStream> m_pxCopyStream;
    std::unique_ptr<MCClipDependencyList> m_pxDependencies;
    long m_lSelectionSize = 0;
    MCClipIdConverter* m_pxConverter;
    // Entry storage, in creation order, and the work of the closure still to do.
    std::unique_ptr<MCClipListWork> m_pxWork;
};

/// The context a host may hand its own rules about a clip list: a code, the list and a counter that
/// starts at 0. The library makes none.
class MODELCORE_API MCClipContext : public MCObjectSemContext {
public:
    MCClipContext(short code, MCClipList& list) : m_sCode(code), m_pxList(&list) {}
    ~MCClipContext() override;

    short GetCode() const { return m_sCode; }
    MCClipList& GetList() const { return *m_pxList; }
    long GetCount() const { return m_lCount; }
    void SetCount(long count) { m_lCount = count; }

private:
    short m_sCode;
    MCClipList* m_pxList;
    long m_lCount = 0;
};

#endif
