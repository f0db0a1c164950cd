#ifndef MCCLIPBOARDPRIVATE_H
#define MCCLIPBOARDPRIVATE_H

// The internals of the clipboard unit: the clip entries, the writer of the buffer and the paste stream.
// Included by MCClipboard.cpp and its tests only.

#include <cstdint>
#include <deque>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ModelCore/ZVFWMC/MCClipboard.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCPersistence.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "foundation/ZVTHSet.h"
#include "foundation/ZVTString.h"

/// One object of a clip.
struct MCClipEntry {
    MCObject* m_pxObject = nullptr;
    /// The object's id, to tell whether it still lives without touching it.
    long m_lId = 0;
    /// What brought the object in: its real owner, or the referring object; null only for a selected object
    /// that has no owner.
    MCObject* m_pxOwner = nullptr;
    /// The id of m_pxOwner, 0 for none.
    long m_lOwnerId = 0;
    /// Distance from the selection: 0 for a selected object, one more per step of ownership or reference.
    short m_sLevel = 0;
    MCClip::entry_type m_eType = MCClip::entryCopy;
    /// False once the purge has taken the entry out of the clip.
    bool m_bListed = true;
    /// Where the record prepared during the closure starts in block m_nBlock of the copy stream's store,
    /// -1 for none; it ends at m_lRecordEnd and holds the owner id at m_lOwnerAt, in the same block.
    std::size_t m_nBlock = 0;
    long m_lRecord = -1;
    long m_lRecordEnd = 0;
    long m_lOwnerAt = 0;
    bool m_bUndeletable = false;
};

/// A streambuf that appends what is written to a string of its owner's: no buffer of its own, no copy.
class MCClipAppendingBuffer : public std::streambuf {
protected:
    /// The string the bytes go to.
    virtual std::string& Tail() = 0;
    std::streamsize xsputn(const char* data, std::streamsize count) override;
    int_type overflow(int_type c) override;
};

/// The records a copy writes ahead, in blocks that are never moved: a store that grew by doubling would copy
/// every record again at each step and touch twice its size in fresh pages.
class MCClipRecordStore : public MCClipAppendingBuffer {
public:
    /// The block the next record goes to and where it starts there; a block near its end makes room for
    /// a new one first, so that a record stays in one block.
    std::size_t BeginRecord(long& offset);
    /// Where the writing stands in the current block.
    long Offset() const { return static_cast<long>(m_xBlocks.back().size()); }
    std::string& Block(std::size_t index) { return m_xBlocks[index]; }
    const std::string& Block(std::size_t index) const { return m_xBlocks[index]; }
    /// The bytes of all blocks.
    std::size_t Size() const;
    void Clear() { m_xBlocks.clear(); }

protected:
    std::string& Tail() override { return m_xBlocks.back(); }

private:
    std::vector<std::string> m_xBlocks;
};

/// A streambuf that appends to one string it owns, so that the bytes are taken without a copy.
class MCClipGrowingBuffer : public MCClipAppendingBuffer {
public:
    std::string& Bytes() { return m_sBytes; }
    const std::string& Bytes() const { return m_sBytes; }

protected:
    std::string& Tail() override { return m_sBytes; }
    pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode which) override;

private:
    std::string m_sBytes;
};

/// The closure's storage: every entry ever made, in creation order (the dictionary only points into it),
/// and the insertions still to run, so that the depth of a closure costs no call depth.
struct MCClipListWork {
    struct InsertCall {
        MCObject* m_pxOwner;
        MCObject* m_pxObject;
        short m_sLevel;
        MCClip::entry_type m_eType;
        ZVTBoolean m_bInherited;
    };
    std::deque<MCClipEntry> m_xEntries;
    std::vector<InsertCall> m_xPending;
    // The object and property types of each undeclared reference met, in order: the user hears of them
    // once the copy holds no object any more, as a message handler is host code that may edit the model.
    std::vector<std::pair<short, short>> m_xUndeclared;
};

/// The inheritable property types of each object type met by one copy, looked up once per type.
class MCClipInheritance {
public:
    const ZVTOrderedVectorT<short>& Of(short objectType);

private:
    std::unordered_map<short, ZVTOrderedVectorT<short>> m_xTypes;
    // Objects of one type tend to come together.
    short m_sLastType = 0;
    const ZVTOrderedVectorT<short>* m_pxLast = nullptr;
};

/// The object record writer of a clip buffer: the owner id of an object that has a clip entry is the
/// entry's owner, and references an object inherits from above the clip are written as its own.
class MCClipSaveVisitor : public MCPersSaveVisitor {
public:
    MCClipSaveVisitor(MCStream& stream, ZVTHDict<MCObject*, MCClipEntry*>* entries,
                      MCClipInheritance& inheritance)
        : MCPersSaveVisitor(stream), m_pxEntries(entries), m_pxInheritance(&inheritance) {}
    ~MCClipSaveVisitor() override;

    /// The entry of the object visited next, so that its header needs no look-up; null looks it up.
    void SetEntry(MCClipEntry* entry) { m_pxEntry = entry; }

protected:
    void SaveObjectHeader(MCPersObjectHeader& header, MCObject& object) override;
    void SaveProperties(MCObject& object) override;

private:
    ZVTHDict<MCObject*, MCClipEntry*>* m_pxEntries;
    MCClipInheritance* m_pxInheritance;
    MCClipEntry* m_pxEntry = nullptr;
};

/// Writes the frame and the entries of a clip buffer into memory.
class MCCopyStream {
public:
    /// A writer whose records take the owners of entries from `entries`, which it does not own.
    explicit MCCopyStream(ZVTHDict<MCObject*, MCClipEntry*>* entries);
    MCCopyStream(const MCCopyStream&) = delete;
    MCCopyStream& operator=(const MCCopyStream&) = delete;
    virtual ~MCCopyStream();

    /// The head token, the source's id and address token, and the global section of its persistence root;
    /// EXUnexpected when there is no such root or no environment.
    void WriteHead(MCObject& source);
    /// The level mark before the first entry of level 0 or more, the entry's frame, the PostCopy rules of
    /// its object, and the object record; nothing at all for an object that is gone, or that its rules take
    /// down. True.
    ZVTBoolean WriteEntry(MCClipEntry& entry);
    /// The end token; from then on the bytes are final.
    void WriteEnd();
    /// With `prepare`, Prepare writes records ahead: only when nothing listens to PostCopy, so that no
    /// rule can change an object between the closure and the writing.
    void SetPrepare(ZVTBoolean prepare) { m_bPrepare = prepare; }
    /// Writes the name, type and record of a new entry's object while the closure has it at hand, for
    /// WriteEntry to copy; objects that inherit properties wait, as their records depend on the clip.
    void Prepare(MCClipEntry& entry);
    /// Loads the prepared record of an entry that is written soon; changes nothing.
    void Prefetch(const MCClipEntry& entry) const;
    /// Makes room for `entries` entries beside the prepared records, so that the buffer grows once.
    void Reserve(std::size_t entries);

    /// The bytes written; empty when a write was refused (a value that does not fit its width).
    const std::string& GetBytes() const { return m_sBytes; }
    /// The inheritable property types by object type, shared with the closure.
    MCClipInheritance& Inheritance() { return m_xInheritance; }

private:
    MCClipInheritance m_xInheritance;
    MCClipGrowingBuffer m_xBuffer;
    std::unique_ptr<MCStream> m_pxStream;
    ZVTBoolean m_bLevelMarkPending = true;
    std::unique_ptr<MCClipSaveVisitor> m_pxVisitor;
    std::string m_sBytes;
    // Records written ahead, on a stream of their own.
    ZVTBoolean m_bPrepare = false;
    MCClipRecordStore m_xPrepared;
    std::unique_ptr<MCStream> m_pxPreparedStream;
    std::unique_ptr<MCClipSaveVisitor> m_pxPreparedVisitor;
};

/// The factory context of pasted objects: no creation rules, fresh ids, and the pasting flag set.
class MCClipCreateContext : public MCFactoryContext {
public:
    ~MCClipCreateContext() override;
    ZVTBoolean SemanticsNeeded() override;
    long RequestId() override;
};

/// Reads a buffer in place: a streambuf over memory the caller keeps, with seeking for the passes.
class MCClipMemoryBuffer : public std::streambuf {
public:
    MCClipMemoryBuffer(const char* data, std::size_t size);

protected:
    pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
};

/// Reads one clip buffer and pastes it under a target: head, prelude, entries for each target, finish.
class MCPasteStream {
public:
    MCPasteStream(MCObject& target, void* buffer, int size, ZVTOrderedVectorT<long>* ids,
                  MCClipIdConverter* converter);
    MCPasteStream(const MCPasteStream&) = delete;
    MCPasteStream& operator=(const MCPasteStream&) = delete;
    virtual ~MCPasteStream();

    void ReadHead();
    void ReadPrelude();
    void ReadEntries(ZVTSList<MCObject*>& targets);
    /// Binds the references of what was made and lists the ids of the top objects; an exception here
    /// still leaves everything to Rollback, as nobody has heard of the objects yet.
    void Resolve();
    /// Sets the references of merged records and runs the PostPaste rules, which nothing can undo.
    void Finish();
    /// After an exception: takes every object the paste made out of the model again, without rules or
    /// events, as nobody has heard of them.
    void Rollback();

    ZVTBoolean HasFailed() const { return m_bFailed; }

private:
    struct Frame {
        short m_sLevel = 0;
        long m_lId = 0;
        char m_cFlag = 0;
        ZVTString m_xName;
        short m_sType = 0;
    };
    struct Created {
        MCObject* m_pxObject;
        long m_lId;  // the object's own id, to tell whether it still lives
        long m_lLevel;
        bool m_bResolved;  // also true for an object without references, which has nothing to resolve
    };
    // A reference of a merged record, set once every id of the buffer is bound.
    struct MergedReference {
        MCObject* m_pxObject;
        long m_lObjectId;
        short m_sType;
        bool m_bList;
        std::vector<long> m_xIds;
    };

    // A buffer id bound in the stream's id space, with the model id that tells whether its object lives.
    struct Binding {
        long m_lBufferId;
        MCObject* m_pxObject;
        long m_lObjectId;
        bool m_bPass;  // bound by the current target's pass, and let go after it unless placed once
    };

    ZVTBoolean CreateFromRecord(long level, MCObject* targetObject);
    ZVTBoolean MergeRecord(MCObject* existing);
    // Reads a record and keeps only the binding of its id to the model's object of that id (or `id`);
    // without `mayOwn` the binding serves references only, and entries below the record find no owner.
    void DiscardRecord(ZVTBoolean headRead, long id, ZVTBoolean mayOwn = true);
    void MatchByName(long id, short type, const ZVTString& name);

    // The entry frame and the object token behind it; false, with failed set, otherwise.
    ZVTBoolean ReadFrame(Frame& frame);
    // Reads the rest of a record, from the flags on, into a new scratch object; null with failed set when
    // the record is cut off or broken.
    MCObject* ReadScratch();
    // Expunges a scratch object, or an object no one has heard of yet, silently: no rule, no event.
    void DropScratch(MCObject* scratch);
    // Binds a buffer id in the stream's id space and notes it for the unbinding between targets.
    void Bind(long id, MCObject* object);
    // Unbinds the buffer ids whose objects host code expunged, before the id space is read again; one
    // load while no object has ended since the last look.
    void DropGoneBindings() {
        if (mc_detail::t_nObjectEnds != m_nBindingEnds)
            DropGoneBindingsSlow();
    }
    void DropGoneBindingsSlow();
    // Whether the fallback target and `targetObject` (the pass's target, or null) are still there.
    ZVTBoolean TargetsAlive(MCObject* targetObject);
    // Resolves the references of the objects made so far.
    void ResolveCreated();
    // Asks early for what the pass over m_xCreated needs a few objects after `index`.
    void Prefetch(std::size_t index) const;
    void SetMergedReferences();

    ZVTBoolean m_bFailed = false;
    MCObject* m_pxTarget;
    long m_lTargetId;
    long m_lPassTargetId = 0;
    // ObjectEnds when the bindings, and the targets, were last found alive.
    std::uint64_t m_nBindingEnds;
    std::uint64_t m_nTargetEnds;
    MCClipMemoryBuffer m_xBuffer;
    std::unique_ptr<MCStream> m_pxStream;
    MCIdSpace* m_pxIdSpace;
    ZVTBoolean m_bSamePlace = false;
    std::vector<Created> m_xCreated;
    ZVTHSetT<long> m_xPlacedOnce;
    // Buffer ids bound to objects of the model for the references to them only.
    ZVTHSetT<long> m_xReferenceOnly;
    ZVTOrderedVectorT<long>* m_pxIds;
    MCClipIdConverter* m_pxConverter;
    std::unique_ptr<MCPersRestoreVisitor> m_pxVisitor;
    // The buffer ids bound: before the entries, while pasting under the current target of the list, and
    // kept from earlier targets' passes.
    std::vector<Binding> m_xBindings;
    std::vector<MergedReference> m_xMergedReferences;
};

#endif
