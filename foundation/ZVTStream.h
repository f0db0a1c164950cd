#ifndef ZVTSTREAM_H
#define ZVTSTREAM_H

#include <cstddef>
#include <iosfwd>
#include <memory>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

/// Reads and writes scalars and strings over a file, a streambuf, an iostream or a read-only istream.
///
/// binary: little-endian, fixed widths on every platform. ZVTBoolean, char and unsigned char take 1 byte
/// (a ZVTBoolean byte other than 0 or 1 fails to read); short and unsigned short 2; int, unsigned int,
/// long, unsigned long and float 4; double 8, IEEE 754. A string is a 32-bit length and its bytes; the
/// null string has length 0xFFFFFFFF, the empty one 0.
/// text: every scalar as decimal text and one space (characters as their byte value 0-255, floating
/// values in the shortest form that reads back exactly); a string as its length (-1 for null), one space,
/// the bytes and one space. It reads back what it wrote and nothing more is promised.
///
/// A value that does not fit its width (a long outside 32 bits, say) is refused: nothing is written and
/// failbit is set. A read that fails leaves its target untouched. Running out of data sets eof and fail;
/// a successful read that leaves no more data sets eof (a later write or seek clears it). The stream
/// never trusts a stored length: a string is read in bounded chunks. State is that of the underlying
/// standard stream.
class MODELCORE_API ZVTStream {
public:
    /// The layout of values on the medium.
    enum stream_type { binary = 0, text = 1 };

    /// Opens the file at path with openMode (std::ios::openmode bits; binary is added for binary
    /// streams). protection and the last argument are accepted and ignored. Failure to open sets failbit.
    ZVTStream(const char* path, stream_type type, int openMode, int protection, ZVTBoolean unused);
    /// Works on buffer, which must outlive the stream.
    ZVTStream(std::streambuf& buffer, stream_type type);
    /// Works on stream and shares its state; stream must outlive this one.
    ZVTStream(std::iostream& stream, stream_type type);
    /// Reads from stream and shares its state; every write sets badbit. stream must outlive this one.
    ZVTStream(std::istream& stream, stream_type type);
    ZVTStream(const ZVTStream&) = delete;
    ZVTStream& operator=(const ZVTStream&) = delete;
    /// Closes a file that this stream opened.
    virtual ~ZVTStream();

    /// True once a read has reached the end of the data.
    virtual ZVTBoolean eof() const;
    /// True after a failed or refused operation (or a bad stream).
    virtual ZVTBoolean fail() const;
    /// True when the underlying medium failed.
    virtual ZVTBoolean bad() const;
    /// True when none of eof, fail and bad holds.
    virtual ZVTBoolean good() const;
    /// Sets the state to state (std::ios::iostate bits; 0 makes the stream good again).
    virtual void clear(int state = 0);
    /// Hands written data to the medium; sets badbit if that fails.
    virtual void flush();

    /// Moves the read position to an absolute byte offset; sets failbit if that is not possible.
    virtual void seekg(long position);
    /// Moves the write position to an absolute byte offset; sets failbit if that is not possible.
    virtual void seekp(long position);
    /// The read position, or -1 after a failure.
    virtual long tellg();
    /// The write position, or -1 after a failure or on a read-only stream.
    virtual long tellp();

    /// Writes a ZVTBoolean.
    virtual ZVTStream& operator<<(ZVTBoolean value);
    /// Writes a string, keeping null apart from empty.
    virtual ZVTStream& operator<<(const ZVTString& value);
    /// Writes a C text as a string; nullptr and ZVTString::c_pcNull write the null string.
    virtual ZVTStream& operator<<(const char* value);
    /// Writes a double.
    virtual ZVTStream& operator<<(double value);
    /// Writes a float.
    virtual ZVTStream& operator<<(float value);
    /// Writes an unsigned long; refused above 0xFFFFFFFF.
    virtual ZVTStream& operator<<(unsigned long value);
    /// Writes a long; refused outside the 32-bit signed range.
    virtual ZVTStream& operator<<(long value);
    /// Writes an unsigned short.
    virtual ZVTStream& operator<<(unsigned short value);
    /// Writes a short.
    virtual ZVTStream& operator<<(short value);
    /// Writes an unsigned int.
    virtual ZVTStream& operator<<(unsigned int value);
    /// Writes an int.
    virtual ZVTStream& operator<<(int value);
    /// Writes an unsigned char.
    virtual ZVTStream& operator<<(unsigned char value);
    /// Writes a char as its byte.
    virtual ZVTStream& operator<<(char value);

    /// Reads a ZVTBoolean.
    virtual ZVTStream& operator>>(ZVTBoolean& value);
    /// Reads a string, null or not as it was written.
    virtual ZVTStream& operator>>(ZVTString& value);
    /// Reads a double.
    virtual ZVTStream& operator>>(double& value);
    /// Reads a float.
    virtual ZVTStream& operator>>(float& value);
    /// Reads an unsigned long.
    virtual ZVTStream& operator>>(unsigned long& value);
    /// Reads a long.
    virtual ZVTStream& operator>>(long& value);
    /// Reads an unsigned short.
    virtual ZVTStream& operator>>(unsigned short& value);
    /// Reads a short.
    virtual ZVTStream& operator>>(short& value);
    /// Reads an unsigned int.
    virtual ZVTStream& operator>>(unsigned int& value);
    /// Reads an int.
    virtual ZVTStream& operator>>(int& value);
    /// Reads an unsigned char.
    virtual ZVTStream& operator>>(unsigned char& value);
    /// Reads a char.
    virtual ZVTStream& operator>>(char& value);

private:
    template <class T>
    ZVTStream& WriteInteger(T value);
    template <class T>
    ZVTStream& ReadInteger(T& value);
    template <class T>
    ZVTStream& ReadIntegerSlowly(T& value);
    template <class T>
    ZVTStream& WriteFloat(T value);
    template <class T>
    ZVTStream& ReadFloat(T& value);
    ZVTStream& WriteString(const char* data, size_t size, bool isNull);

    std::streambuf* Buffer() const;
    bool BeginWrite();
    void PutBytes(const void* data, size_t size);
    bool BeginRead();
    bool GetBytes(void* data, size_t size);
    bool GetToken(char* token, size_t capacity, size_t& length);
    void EndRead();
    ZVTStream& Refuse();

    std::unique_ptr<std::iostream> m_pxOwned;  // the file or the wrapper of a bare streambuf
    std::ios* m_pxIos;                         // whose state and buffer this stream uses
    stream_type m_eType;
    bool m_bWritable;
};

#endif
