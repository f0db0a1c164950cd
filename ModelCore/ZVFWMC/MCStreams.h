#ifndef MCSTREAMS_H
#define MCSTREAMS_H

#include <iosfwd>
#include <memory>

#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTStream.h"

class MCObject;
class MCUDPMap;
class tgt_target;

/// The channel of every model transfer: a ZVTStream that also carries the transfer's own id space, the map
/// of the stored user-defined property codes and a one-token push-back; the stream owns its id space and
/// the map it adopts, and no two streams share one.
class MODELCORE_API MCStream : public ZVTStream {
public:
    /// The one-byte tokens of every model format, written with operator<<(char); stored values, they must
    /// not change.
    enum token_type : char {
        tokenProperty = 1,       ///< before each property of an object record and each type of the globals
        tokenObject = 2,         ///< before each object record
        tokenRecord = 4,         ///< first byte of a record of the record manager
        tokenGlobals = 0x11,     ///< start of the global section
        tokenObjectEnd = 0x12,   ///< end of an object record
        tokenGlobalsEnd = 0x15,  ///< end of the global section
        tokenClipHead = 0x20,    ///< first byte of a clip buffer
        tokenClipEntry0 = 0x21,  ///< before a clip entry of type 0
        tokenClipEntry1 = 0x22,  ///< before a clip entry of type 1
        tokenClipEntry2 = 0x23,  ///< before a clip entry of type 2
        tokenClipLevel = 0x24,   ///< once, before the first entry of level 0 or more
        tokenClipEnd = 0x25,     ///< last byte of a clip buffer
        /// Never written; a reader that meets it takes it for the end of the stream.
        tokenEndMark = static_cast<char>(-1)
    };

    /// Opens the file at `path` as ZVTStream does (`openMode` in std::ios::openmode bits, `protection`
    /// handed on); the stream owns the file and closes it when it goes.
    MCStream(const char* path, ZVTStream::stream_type type, int openMode, int protection);
    /// Works on `buffer`, which stays the caller's, is never closed and must outlive the stream.
    MCStream(std::streambuf& buffer, ZVTStream::stream_type type);
    /// Works on `stream`, which stays the caller's, is never closed and must outlive this one.
    MCStream(std::iostream& stream, ZVTStream::stream_type type);
    /// Reads from `stream`, which stays the caller's and must outlive this one; writes fail.
    MCStream(std::istream& stream, ZVTStream::stream_type type);
    /// Destroys the id space with the stream.
    ~MCStream() override;

    // Brought in so that a scalar written to an MCStream matches the base operator exactly and never meets
    // the pointer operators below as an equal candidate (`stream << 0` stays an int).
    using ZVTStream::operator<<;
    using ZVTStream::operator>>;

    /// The adopted map of stored user-defined property codes, null until AdoptUDPMap.
    MCUDPMap* GetUDPMap();
    /// Takes ownership of `map` until the stream ends; a map adopted earlier is not deleted but goes back
    /// to its adopter, so adopt once per stream.
    void AdoptUDPMap(MCUDPMap* map);
    /// The current code of the stored user-defined property code `type`: the map's target when the map
    /// knows `type`, else `type` itself; without a map a negative code answers 0, as nothing says which
    /// property it meant, and any other code answers itself.
    short TranslateUDPType(short type);

    /// The id space that maps ids stored in this stream to the objects made from them; it starts empty.
    MCIdSpace& GetIdSpace();

    /// True while a token is pushed back.
    ZVTBoolean HasPendingToken() const;
    /// Pushes `token` back; when one is already pending, nothing changes and the result is false.
    ZVTBoolean SetPendingToken(char token);
    /// Takes the pushed-back token and clears the flag; it does not check the flag, so a second call gives
    /// the same token again.
    char GetPendingToken();

private:
    std::unique_ptr<MCIdSpace> m_pxIdSpace;
    // Declared after the id space so that it goes first.
    std::unique_ptr<MCUDPMap> m_pxUDPMap;
    char m_cPendingToken;
    ZVTBoolean m_bHasPendingToken;
};

/// What a model stream's global section is written from and read into; the metamodel registry is the one
/// implementation.
class MODELCORE_API MCGlobalStreamable {
public:
    virtual ~MCGlobalStreamable();
    /// Writes the global section of the persistence root `model`.
    virtual void SaveTo(MCStream& stream, MCObject* model) = 0;
    /// Reads a global section whose opening token the caller has consumed into `map`.
    virtual void RestoreFrom(MCStream& stream, MCUDPMap* map, MCObject* model) = 0;
};

/// Writes the target's name as a string; a null target writes the empty string.
MODELCORE_API MCStream& operator<<(MCStream& stream, tgt_target* pTarget);
/// Reads a name and sets `pTarget` to the registered target of that name, null when none is registered; a
/// failed read leaves `pTarget` as it was.
MODELCORE_API MCStream& operator>>(MCStream& stream, tgt_target*& pTarget);
/// Object pointers are not streamable (a reference travels as the object's id): throws EXUnexpected and
/// writes nothing.
MODELCORE_API MCStream& operator<<(MCStream& stream, MCObject* pObject);
/// Object pointers are not streamable: throws EXUnexpected, reads nothing and leaves `pObject` as it was.
MODELCORE_API MCStream& operator>>(MCStream& stream, MCObject*& pObject);

/// Refused at compile time: on a plain ZVTStream, as at the end of a chain like `stream << 1L << pTarget`,
/// the pointer would otherwise go out as a boolean.
ZVTStream& operator<<(ZVTStream& stream, tgt_target* pTarget) = delete;
ZVTStream& operator<<(ZVTStream& stream, MCObject* pObject) = delete;

#endif
