#ifndef MCPERSISTENCE_H
#define MCPERSISTENCE_H

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

class MCStream;

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

#endif
