#ifndef MCPERSISTENCE_H
#define MCPERSISTENCE_H

#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCObjectSem.h"
#include "ModelCore/ZVFWMC/MCVisitor.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTString.h"

class MCIdSpace;
class MCObject;
class MCProperty;
class MCStream;
class MCUDPMap;

// The head is the prefix "MdlCore" with its terminating zero (one char each), the file major and minor
// versions (long), then company code, product code and product version (strings). A header used for
// reading holds the limits, normally the running product's, and takes over each stored field as its check
// passes.

/// The head of a stored model: what wrote it, and on reading whether this installation may open it.
class MODELCORE_API MCPersHeader {
public:
    /// Outcome of SaveTo and RestoreFrom; the controller maps these values, so they must not change.
    enum result {
        resultOk = 0,
        resultStreamFailed = 1,  ///< an exception or a failed stream operation while reading or writing
        resultBadPrefix = 2,
        resultNewerMajor = 3,
        resultNewerMinor = 4,
        resultOtherCompany = 5,
        resultOtherProduct = 6
    };

    /// The header of the running product; throws EXUnexpected when the host has set no product identity.
    MCPersHeader();
    /// Stores the five values as given.
    MCPersHeader(long major, long minor, ZVTString company, ZVTString product, ZVTString version);

    /// Writes the head; resultStreamFailed when a write fails (a version outside 32 bits, say), and what
    /// was written stays written.
    result SaveTo(MCStream& stream);
    /// Reads and checks the head, stopping at the first check that fails; a head that ends early or holds
    /// a string longer than the stream gives resultStreamFailed.
    result RestoreFrom(MCStream& stream);

    /// The file major version: the limit before a read, the file's after a successful one.
    long GetFileMajorVersion() const { return m_lFileMajorVersion; }
    /// The file minor version, as the major one.
    long GetFileMinorVersion() const { return m_lFileMinorVersion; }
    /// The company code.
    ZVTString GetCompanyCode() const { return m_xCompanyCode; }
    /// The product code.
    ZVTString GetProductCode() const { return m_xProductCode; }
    /// The product version; informational, never compared.
    ZVTString GetProductVersion() const { return m_xProductVersion; }

private:
    long m_lFileMajorVersion;
    long m_lFileMinorVersion;
    ZVTString m_xCompanyCode;
    ZVTString m_xProductCode;
    ZVTString m_xProductVersion;

    static const char* const m_pcHeaderPrefix;
};

/// The record each stored object begins with; a plain value copied freely.
struct MODELCORE_API MCPersObjectHeader {
    short m_sType = 0;             ///< the object's type code
    long m_lId = 0;                ///< the object's id
    long m_lOwnerId = 0;           ///< the owner's id, 0 for none
    unsigned short m_usFlags = 0;  ///< the object's flags
};

// A stored model is the head, the global section, then one record per object in depth-first order (owner
// before ownees): token 2, the object header (type short, id long, owner id long, flags unsigned short),
// per property token 1, the type short and the property's own record, and the end token 0x12. Property
// records carry no length, so every property type met must be creatable on reading.

/// Factory context of a restore: no creation semantics, and an id handed to it serves one creation only.
class MODELCORE_API MCPersFactoryContext : public MCFactoryContext {
public:
    /// A context with no requested id.
    MCPersFactoryContext() = default;
    ~MCPersFactoryContext() override;

    /// False: restored objects fire no creation semantics.
    ZVTBoolean SemanticsNeeded() override;
    /// The requested id, then 0 again; 0 lets the object take a fresh id.
    long RequestId() override;

private:
    long m_lRequestedId = 0;
};

/// Semantic context of a restore: the object's properties exist already.
class MODELCORE_API MCPersSemanticContext : public MCObjectSemContext {
public:
    /// A context without a factory context.
    MCPersSemanticContext() = default;
    ~MCPersSemanticContext() override;

    /// True.
    ZVTBoolean PropsExist() const override;
};

/// Thrown by value when a null object reaches a save or restore visitor; no EXBase.
class MODELCORE_API MCPersExBadTree {};

/// Thrown by value when the factory fails or declines to make a stored object; no EXBase.
class MODELCORE_API MCPersExObjectCreation {
public:
    /// The exception for the object type `type`.
    explicit MCPersExObjectCreation(short type) : m_sObjectType(type) {}
    /// The type code that could not be made.
    short GetObjectType() const { return m_sObjectType; }

private:
    short m_sObjectType;
};

/// Writes one object record per visited object to a stream that outlives it.
class MODELCORE_API MCPersSaveVisitor : public MCVisitor {
public:
    /// A visitor writing to `stream`.
    explicit MCPersSaveVisitor(MCStream& stream) : m_pxStream(&stream) {}
    ~MCPersSaveVisitor() override;

    /// Writes `object`'s record; MCPersExBadTree for null.
    void Visit(MCObject* object) override;

protected:
    /// Writes the header fields in their stored order.
    virtual void SaveObjectHeader(MCPersObjectHeader& header, MCObject& object);
    /// Writes a property entry for each property the unfiltered property iterator shows.
    virtual void SaveProperties(MCObject& object);
    /// Writes `type` and the property's own record.
    virtual void SaveProperty(short type, MCProperty& property, MCObject& object);

    MCStream* m_pxStream;
};

/// Reads the flags and properties of one object record into an object that already exists.
class MODELCORE_API MCPersRestoreVisitor : public MCVisitor {
public:
    /// A visitor reading from `stream`, which outlives it.
    explicit MCPersRestoreVisitor(MCStream& stream) : m_pxStream(&stream) {}
    ~MCPersRestoreVisitor() override;

    /// Reads the rest of a record into `object`, which keeps its run-time id; MCPersExBadTree for null,
    /// EXUnexpected for a property type that can be neither found nor made.
    void Visit(MCObject* object) override;
    /// In flush mode the stored id is overwritten in the id property directly, not through SetId; it
    /// holds for the next Visit only.
    void SetFlush(ZVTBoolean flush) { m_bFlush = flush; }
    /// Whether the last Visit read its record up to the object end token; false for a record cut off or
    /// broken by a foreign token, which the visit consumed.
    ZVTBoolean IsRecordComplete() const { return m_bRecordComplete; }

private:
    MCStream* m_pxStream;
    ZVTBoolean m_bFlush = false;
    ZVTBoolean m_bRecordComplete = false;
};

/// Saves a tree to a stream and restores one from it. One controller serves one restore: the list of
/// created objects is never emptied.
class MODELCORE_API MCPersController {
public:
    /// Outcome of SaveTo and RestoreFrom; 2 and 4 are unused. The values must not change.
    enum result {
        resultOk = 0,
        resultHeadNotWritten = 1,
        resultUnknownToken = 3,  ///< a top-level token other than 2, 0x11 or -1; the read tree is expunged
        resultBadPrefix = 5,
        resultNewerMajor = 6,
        resultNewerMinor = 7,
        resultOtherCompany = 8,
        resultOtherProduct = 9
    };

    /// A controller that has saved and restored nothing.
    MCPersController() = default;
    MCPersController(const MCPersController&) = delete;
    MCPersController& operator=(const MCPersController&) = delete;
    virtual ~MCPersController();

    /// Writes the head, the global section of `object`'s persistence root (the type 530 at or above it)
    /// and the subtree of `object`; EXUnexpected, head written, when there is no such root. Only the
    /// head's failure is a result (resultHeadNotWritten): a write that fails later leaves the stream
    /// failed, which the caller checks, and what went out before it stays written.
    result SaveTo(MCStream& stream, MCObject* object, MCPersHeader& header);
    /// Reads a model; `header` holds the limits going in and the file's values coming out. On resultOk
    /// `object` is the first object read (null for a file without objects); otherwise untouched. A stream
    /// failure in the head throws EXUnexpected; a failing factory MCPersExObjectCreation, leaving the objects
    /// made so far alive (see GetCreatedObjects). A truncated file, or a stream that fails after the head,
    /// restores what it holds with resultOk; the stream's state tells the two apart from a whole file. An
    /// exception of a CalculateData rule passes on and leaves the objects to the host in the same way. No
    /// rule fires on an object a rule has expunged, nor on after a property rule answers
    /// resultObjectDestroyed; a root a rule has expunged comes back as null. The
    /// stream must outlive the restored tree's use of its id space. The root belongs to the caller, who
    /// ends it with Expunge(true) (mc::ExpungeModel); every other object read belongs to its owner
    /// (mc::Restore wraps all of this).
    result RestoreFrom(MCStream& stream, MCObject*& object, MCPersHeader& header);

    /// Every object made by restores of this controller, in creation order, for a host that disposes of
    /// a partial tree after an exception. The pointers are not owned. After resultUnknownToken only the
    /// objects that outlived the root's expunge are listed (those that found no owner in the file);
    /// an object the host expunges itself dangles here.
    const ZVTSList<MCObject*>& GetCreatedObjects() const { return m_xCreatedObjects; }

protected:
    /// Reads an object header from the restore stream, makes the object under its resolved owner,
    /// registers the stored id and lets `visitor` read the rest; null, with nothing made, when the header
    /// is cut off. A non-null `map` (first object only) is adopted by the stream with the root's
    /// user-defined properties. MCPersExObjectCreation when the factory raises or makes no object, which
    /// includes an object a creation hook or PostCreation rule expunged: its record cannot be skipped.
    MCObject* CreateObject(MCPersRestoreVisitor& visitor, MCUDPMap* map);

private:
    // Expunges the tree of a failed restore and keeps listed only the objects that outlived it.
    void DropPartialTree(MCObject* root);

    MCStream* m_pxSaveStream = nullptr;
    MCIdSpace* m_pxIdSpace = nullptr;
    MCStream* m_pxRestoreStream = nullptr;
    ZVTSList<MCObject*> m_xCreatedObjects;
    MCPersFactoryContext m_xFactoryContext;
    MCPersSemanticContext m_xSemanticContext;
};

// A record of the chain is the record token 4 (char), the id of the previous record and the id of the next
// (long each, c_nNoPos for none), then the host's payload, whose length only the host knows. A record's id
// is the stream position of its token; the chain starts at position 0.

class MCRecMgr;

/// A saved position of a record manager: its current record, the links it holds for that record and its
/// stream's get and put positions; a plain value.
class MODELCORE_API MCRecMgrState {
public:
    /// A state with all five fields at MCRecMgr::c_nNoPos.
    MCRecMgrState();
    /// Where `manager` stands now: its three ids and its stream's tellg and tellp (-1 when they fail).
    explicit MCRecMgrState(MCRecMgr& manager);

    /// True exactly when all five fields are equal.
    int operator==(const MCRecMgrState& other) const;
    /// The opposite of operator==.
    int operator!=(const MCRecMgrState& other) const;

private:
    friend class MCRecMgr;

    long m_lCurrent;
    long m_lPrevious;
    long m_lNext;
    long m_lGetPosition;
    long m_lPutPosition;
};

/// Keeps a doubly linked chain of records on a host's stream so that the host can append records and move
/// among them. The stream is not owned and must outlive the manager; it must be binary and seekable for
/// reading and writing (a head is rewritten in place). The manager reads and writes only the record heads;
/// after a write or a move both stream positions stand at the payload, which the host writes or reads
/// through GetStream().
///
/// Nothing raises. A move or write that fails clears the stream's error state, leaves the manager and the
/// stream positions as they were, and says why:
/// - a position outside the stream (negative, or at or past its end), a head cut short by the end of the
///   stream, a stream that fails or cannot tell its positions: eStreamFailed;
/// - a byte other than the record token at the position: eBadRecord;
/// - a step (MoveNext, MovePrev) that reaches a record whose link back does not name the record it came from
///   (a crossed link, or the chain cut by writing behind a record that had a successor): eBadRecord;
/// - a step that comes round to the record where the walk in that direction began (a ring): eBadRecord.
/// So every walk over any bytes visits each record once at most and ends; the walk of the constructor ends
/// at the first damage, and first and last cover the records before it.
class MODELCORE_API MCRecMgr {
public:
    /// Outcome of a write or a move; the values must not change.
    enum eResult {
        eOk = 0,
        eAtEnd = 1,         ///< MoveNext on the last record
        eBadRecord = 2,     ///< no record at the position, or one that does not belong after this step
        eStreamFailed = 3,  ///< the stream failed or the position lies outside it
        eNoRecord = 4       ///< the manager now stands before the chain: there is no current record
    };

    /// The id of no record.
    static constexpr long c_nNoPos = -1;
    /// The bytes of a record head in a binary stream: the token and two 32-bit links.
    static constexpr long c_nHeadSize = 9;

    /// Walks the chain once from position 0 to learn its first and last records, then stands before it.
    explicit MCRecMgr(MCStream& stream);
    MCRecMgr(const MCRecMgr&) = delete;
    MCRecMgr& operator=(const MCRecMgr&) = delete;
    /// Leaves the stream alone.
    virtual ~MCRecMgr();

    /// Writes a new record head at the stream's put position and links it behind the current record, whose
    /// next link it replaces (hosts append from the last record, at the end of its payload); the new record
    /// becomes current and last. eBadRecord, with nothing written, when the current record is no longer in
    /// the stream or the new head would overlap its head; on eStreamFailed a head may stand unlinked at
    /// the put position, where the next write goes again.
    eResult WriteRec();

    /// Moves to the lowest record seen; eNoRecord when none was.
    eResult MoveFirst();
    /// Moves to the highest record seen; eNoRecord when none was.
    eResult MoveLast();
    /// Moves to the next record (from before the chain, to position 0); eAtEnd on the last.
    eResult MoveNext();
    /// Moves to the previous record; from the first, eNoRecord and the manager stands before the chain.
    eResult MovePrev();
    /// Moves to the record at `id`, which the chain's links need not reach; c_nNoPos stands before the
    /// chain with eNoRecord.
    eResult MoveToRecId(long id);

    /// The current record's id, c_nNoPos before the chain.
    long GetCurrRecId() const { return m_lCurrent; }
    /// True when the current record has no previous one, and before the chain.
    int bof() const { return m_lPrevious == c_nNoPos; }
    /// True when the current record has no next one, and before an empty chain.
    int eof() const { return m_lNext == c_nNoPos; }

    /// Where the manager stands now.
    MCRecMgrState GetState();
    /// Returns to `state`: reads its record again, then takes its links and stream positions (one of
    /// c_nNoPos leaves that position alone); nothing happens when the manager stands there already, or when
    /// the record cannot be read.
    void SetState(MCRecMgrState& state);

    /// The stream the records live on, for the payloads.
    MCStream* GetStream() const { return m_pxStream; }

protected:
    /// Makes the record at `id` current and leaves the stream at its payload (eOk), or for c_nNoPos stands
    /// before the chain with the stream at 0 (eNoRecord); records the id as first or last when it lies
    /// beyond them. A failure changes nothing but the stream's error state, which it clears.
    eResult ReadRec(long id);
    /// Flushes the stream; true when it has neither failed nor gone bad and can tell its put position. An
    /// end of data met by a whole read is no failure: the stream reports a short read as a failure too.
    int StreamOk();

private:
    friend class MCRecMgrState;

    enum walk_type { walkNone, walkForward, walkBackward };

    // Reads the record a step in `direction` reaches and refuses it unless it links back and closes no ring.
    eResult Step(long id, walk_type direction);
    // Clears the stream, goes back to `saved` and answers `result`.
    eResult Fail(const MCRecMgrState& saved, eResult result);
    // Takes the three ids and the known stream positions of `state`.
    void Restore(const MCRecMgrState& state);

    MCStream* m_pxStream;
    long m_lFirst;
    long m_lPrevious;
    long m_lNext;
    long m_lLast;
    long m_lCurrent;
    // Where the current run of steps in one direction began; a step that comes back there closes a ring.
    long m_lWalkStart;
    walk_type m_eWalk;
};

#endif
