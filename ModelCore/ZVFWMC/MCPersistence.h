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
    /// and the subtree of `object`; EXUnexpected, head written, when there is no such root.
    result SaveTo(MCStream& stream, MCObject* object, MCPersHeader& header);
    /// Reads a model; `header` holds the limits going in and the file's values coming out. On resultOk
    /// `object` is the first object read (null for a file without objects); otherwise untouched. A stream
    /// failure in the head throws EXUnexpected; a failing factory MCPersExObjectCreation, leaving the objects
    /// made so far alive (see GetCreatedObjects). A truncated file restores what it holds. The stream must
    /// outlive the restored tree's use of its id space.
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
    /// user-defined properties. MCPersExObjectCreation when the factory raises or makes no object.
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

#endif
