#include "foundation/ZVTStream.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <istream>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using Traits = std::char_traits<char>;

static_assert(sizeof(int) == 4 && sizeof(float) == 4 && sizeof(double) == 8, "fixed widths assumed");
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559,
              "IEEE 754 floating point assumed");

// A string length that means "the null string".
constexpr std::uint32_t c_nNullLength = 0xFFFFFFFFu;
// Largest piece of a string allocated before its bytes have actually arrived.
constexpr size_t c_nChunk = 64 * 1024;
// Reads up to this many bytes (the widest scalar) may be taken byte by byte from the get area.
constexpr size_t c_nSmallRead = 8;
// No number this stream writes is longer; a longer token is garbage.
constexpr size_t c_nMaxToken = 32;

// Bytes on the medium for T: the natural width, capped at 4 so that long is the same everywhere.
template <class T>
constexpr size_t StoredWidth = sizeof(T) < 4 ? sizeof(T) : 4;

// An integer of type T travels as Wide<T> and must lie in [StoredMin<T>, StoredMax<T>].
template <class T>
using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;

template <class T>
constexpr Wide<T> StoredMin() {
    if constexpr (std::is_signed_v<T>)
        return -(Wide<T>(1) << (8 * StoredWidth<T> - 1));
    return 0;
}

template <class T>
constexpr Wide<T> StoredMax() {
    if constexpr (std::is_same_v<T, bool>)
        return 1;
    if constexpr (std::is_signed_v<T>)
        return (Wide<T>(1) << (8 * StoredWidth<T> - 1)) - 1;
    return (Wide<T>(1) << (8 * StoredWidth<T>)) - 1;
}

template <class T>
bool Fits(Wide<T> value) {
    return value >= StoredMin<T>() && value <= StoredMax<T>();
}

bool IsSpace(int c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\r' || c == '\f' || c == '\v';
}

void EncodeLittleEndian(std::uint64_t bits, unsigned char* out, size_t width) {
    for (size_t i = 0; i < width; ++i)
        out[i] = static_cast<unsigned char>(bits >> (8 * i));
}

std::uint64_t DecodeLittleEndian(const unsigned char* in, size_t width) {
    std::uint64_t bits = 0;
    for (size_t i = 0; i < width; ++i)
        bits |= static_cast<std::uint64_t>(in[i]) << (8 * i);
    return bits;
}

// The get area's bounds and its advance are protected in std::streambuf; member pointers named through
// a derived class reach them on any buffer, without a virtual call.
class GetArea : public std::streambuf {
public:
    static const char* Next(std::streambuf& buffer) { return (buffer.*&GetArea::gptr)(); }
    static const char* End(std::streambuf& buffer) { return (buffer.*&GetArea::egptr)(); }
    static void Advance(std::streambuf& buffer, int count) { (buffer.*&GetArea::gbump)(count); }
};

// The `width` little-endian bytes at `in` as the value type T stores them: sign-extended for a signed T.
template <class T>
std::uint64_t DecodeStored(const unsigned char* in, size_t width) {
    std::uint64_t bits = DecodeLittleEndian(in, width);
    if constexpr (std::is_signed_v<T>) {
        const std::uint64_t sign = std::uint64_t(1) << (8 * width - 1);
        bits = (bits ^ sign) - sign;
    }
    return bits;
}

// The unsigned integer type with the bits of a floating type.
template <class F>
using BitsOf = std::conditional_t<sizeof(F) == 4, std::uint32_t, std::uint64_t>;

}  // namespace

ZVTStream::ZVTStream(const char* path, stream_type type, int openMode, int, ZVTBoolean)
    : m_eType(type), m_bWritable((openMode & (std::ios::out | std::ios::app)) != 0) {
    auto file = std::make_unique<std::fstream>();
    std::ios::openmode mode = static_cast<std::ios::openmode>(openMode);
    if (type == binary)
        mode |= std::ios::binary;
    if (path != nullptr)
        file->open(path, mode);
    if (!file->is_open())
        file->setstate(std::ios::failbit);
    m_pxIos = file.get();
    m_pxOwned = std::move(file);
}

ZVTStream::ZVTStream(std::streambuf& buffer, stream_type type)
    : m_pxOwned(std::make_unique<std::iostream>(&buffer)),
      m_pxIos(m_pxOwned.get()),
      m_eType(type),
      m_bWritable(true) {}

ZVTStream::ZVTStream(std::iostream& stream, stream_type type)
    : m_pxIos(&stream), m_eType(type), m_bWritable(true) {}

ZVTStream::ZVTStream(std::istream& stream, stream_type type)
    : m_pxIos(&stream), m_eType(type), m_bWritable(false) {}

ZVTStream::~ZVTStream() = default;

ZVTBoolean ZVTStream::eof() const {
    return m_pxIos->eof();
}
ZVTBoolean ZVTStream::fail() const {
    return m_pxIos->fail();
}
ZVTBoolean ZVTStream::bad() const {
    return m_pxIos->bad();
}
ZVTBoolean ZVTStream::good() const {
    return m_pxIos->good();
}
void ZVTStream::clear(int state) {
    m_pxIos->clear(static_cast<std::ios::iostate>(state));
}

void ZVTStream::flush() {
    // Unlike std::ostream::flush, an earlier end of input does not stop it.
    if (m_bWritable && Buffer() != nullptr && Buffer()->pubsync() == -1)
        m_pxIos->setstate(std::ios::badbit);
}

void ZVTStream::seekg(long position) {
    m_pxIos->clear(m_pxIos->rdstate() & ~std::ios::eofbit);
    if (m_pxIos->fail())
        return;
    if (position < 0 || Buffer()->pubseekpos(position, std::ios::in) == std::streampos(-1)) {
        m_pxIos->setstate(std::ios::failbit);
    }
}

void ZVTStream::seekp(long position) {
    m_pxIos->clear(m_pxIos->rdstate() & ~std::ios::eofbit);
    if (m_pxIos->fail())
        return;
    if (!m_bWritable || position < 0 || Buffer()->pubseekpos(position, std::ios::out) == std::streampos(-1)) {
        m_pxIos->setstate(std::ios::failbit);
    }
}

long ZVTStream::tellg() {
    if (m_pxIos->fail())
        return -1;
    return static_cast<long>(std::streamoff(Buffer()->pubseekoff(0, std::ios::cur, std::ios::in)));
}

long ZVTStream::tellp() {
    if (!m_bWritable || m_pxIos->fail())
        return -1;
    return static_cast<long>(std::streamoff(Buffer()->pubseekoff(0, std::ios::cur, std::ios::out)));
}

// ---- writing

ZVTStream& ZVTStream::operator<<(ZVTBoolean value) {
    return WriteInteger(value);
}
ZVTStream& ZVTStream::operator<<(const ZVTString& value) {
    return WriteString(value.data(), value.length(), value.IsNullString());
}
ZVTStream& ZVTStream::operator<<(const char* value) {
    if (value == nullptr || value == ZVTString::c_pcNull)
        return WriteString("", 0, true);
    return WriteString(value, std::strlen(value), false);
}
ZVTStream& ZVTStream::operator<<(double value) {
    return WriteFloat(value);
}
ZVTStream& ZVTStream::operator<<(float value) {
    return WriteFloat(value);
}
ZVTStream& ZVTStream::operator<<(unsigned long value) {
    return WriteInteger(value);
}
ZVTStream& ZVTStream::operator<<(long value) {
    return WriteInteger(value);
}
ZVTStream& ZVTStream::operator<<(unsigned short value) {
    return WriteInteger(value);
}
ZVTStream& ZVTStream::operator<<(short value) {
    return WriteInteger(value);
}
ZVTStream& ZVTStream::operator<<(unsigned int value) {
    return WriteInteger(value);
}
ZVTStream& ZVTStream::operator<<(int value) {
    return WriteInteger(value);
}
ZVTStream& ZVTStream::operator<<(unsigned char value) {
    return WriteInteger(value);
}
// The byte, not the signed value: char's signedness differs between platforms.
ZVTStream& ZVTStream::operator<<(char value) {
    return WriteInteger(static_cast<unsigned char>(value));
}

template <class T>
ZVTStream& ZVTStream::WriteInteger(T value) {
    constexpr size_t width = StoredWidth<T>;
    const Wide<T> wide = static_cast<Wide<T>>(value);
    if (!Fits<T>(wide))
        return Refuse();
    if (!BeginWrite())
        return *this;
    if (m_eType == binary) {
        unsigned char bytes[width];
        EncodeLittleEndian(static_cast<std::uint64_t>(wide), bytes, width);
        PutBytes(bytes, width);
    } else {
        char digits[c_nMaxToken];
        char* end = std::to_chars(digits, digits + sizeof digits - 1, wide).ptr;
        *end++ = ' ';
        PutBytes(digits, static_cast<size_t>(end - digits));
    }
    return *this;
}

template <class T>
ZVTStream& ZVTStream::WriteFloat(T value) {
    if (!BeginWrite())
        return *this;
    if (m_eType == binary) {
        BitsOf<T> bits;
        std::memcpy(&bits, &value, sizeof bits);
        unsigned char bytes[sizeof bits];
        EncodeLittleEndian(bits, bytes, sizeof bits);
        PutBytes(bytes, sizeof bits);
    } else {
        char digits[c_nMaxToken];
        char* end = std::to_chars(digits, digits + sizeof digits - 1, value).ptr;
        *end++ = ' ';
        PutBytes(digits, static_cast<size_t>(end - digits));
    }
    return *this;
}

ZVTStream& ZVTStream::WriteString(const char* data, size_t size, bool isNull) {
    if (size >= c_nNullLength)
        return Refuse();
    if (!BeginWrite())
        return *this;
    if (m_eType == binary) {
        unsigned char head[4];
        EncodeLittleEndian(isNull ? c_nNullLength : size, head, sizeof head);
        PutBytes(head, sizeof head);
        PutBytes(data, size);
    } else {
        char head[c_nMaxToken];
        char* end = std::to_chars(head, head + sizeof head - 1, isNull ? -1L : static_cast<long>(size)).ptr;
        *end++ = ' ';
        PutBytes(head, static_cast<size_t>(end - head));
        if (!isNull) {
            PutBytes(data, size);
            PutBytes(" ", 1);
        }
    }
    return *this;
}

std::streambuf* ZVTStream::Buffer() const {
    return m_pxIos->rdbuf();
}

bool ZVTStream::BeginWrite() {
    if (!m_bWritable) {
        m_pxIos->setstate(std::ios::badbit);
        return false;
    }
    if (m_pxIos->fail())
        return false;
    // Writing moves the end of the data, so an end met by an earlier read no longer holds.
    m_pxIos->clear(m_pxIos->rdstate() & ~std::ios::eofbit);
    return true;
}

void ZVTStream::PutBytes(const void* data, size_t size) {
    if (size == 0 || m_pxIos->bad())
        return;
    const auto count = static_cast<std::streamsize>(size);
    if (Buffer()->sputn(static_cast<const char*>(data), count) != count)
        m_pxIos->setstate(std::ios::badbit);
}

ZVTStream& ZVTStream::Refuse() {
    m_pxIos->setstate(std::ios::failbit);
    return *this;
}

// ---- reading

ZVTStream& ZVTStream::operator>>(ZVTBoolean& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(double& value) {
    return ReadFloat(value);
}
ZVTStream& ZVTStream::operator>>(float& value) {
    return ReadFloat(value);
}
ZVTStream& ZVTStream::operator>>(unsigned long& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(long& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(unsigned short& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(short& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(unsigned int& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(int& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(unsigned char& value) {
    return ReadInteger(value);
}
ZVTStream& ZVTStream::operator>>(char& value) {
    unsigned char byte = 0;
    if (ReadInteger(byte).fail())
        return *this;
    value = static_cast<char>(byte);
    return *this;
}

template <class T>
ZVTStream& ZVTStream::ReadInteger(T& value) {
    constexpr size_t width = StoredWidth<T>;
    // Most binary reads find their bytes, and one more, in the get area: such a read can neither fail
    // nor reach the end, so the bytes are decoded where they lie and nothing else is asked.
    if (m_eType == binary && m_pxIos->rdstate() == std::ios::goodbit) {
        std::streambuf& buffer = *Buffer();
        const char* next = GetArea::Next(buffer);
        if (next && GetArea::End(buffer) - next > static_cast<std::ptrdiff_t>(width)) {
            const auto wide =
                static_cast<Wide<T>>(DecodeStored<T>(reinterpret_cast<const unsigned char*>(next), width));
            GetArea::Advance(buffer, static_cast<int>(width));
            if (!Fits<T>(wide))
                return Refuse();
            value = static_cast<T>(wide);
            return *this;
        }
    }
    return ReadIntegerSlowly(value);
}

// Out of line, so that the common read above stays short.
template <class T>
[[gnu::noinline]] ZVTStream& ZVTStream::ReadIntegerSlowly(T& value) {
    constexpr size_t width = StoredWidth<T>;
    if (!BeginRead())
        return *this;
    Wide<T> wide = 0;
    if (m_eType == binary) {
        unsigned char bytes[width];
        if (!GetBytes(bytes, width))
            return *this;
        wide = static_cast<Wide<T>>(DecodeStored<T>(bytes, width));
    } else {
        char token[c_nMaxToken];
        size_t length = 0;
        if (!GetToken(token, sizeof token, length))
            return *this;
        const auto parsed = std::from_chars(token, token + length, wide);
        if (parsed.ec != std::errc() || parsed.ptr != token + length)
            return Refuse();
    }
    if (!Fits<T>(wide))
        return Refuse();
    value = static_cast<T>(wide);
    EndRead();
    return *this;
}

template <class T>
ZVTStream& ZVTStream::ReadFloat(T& value) {
    if (!BeginRead())
        return *this;
    T result;
    if (m_eType == binary) {
        unsigned char bytes[sizeof(T)];
        if (!GetBytes(bytes, sizeof bytes))
            return *this;
        const BitsOf<T> bits = static_cast<BitsOf<T>>(DecodeLittleEndian(bytes, sizeof bytes));
        std::memcpy(&result, &bits, sizeof result);
    } else {
        char token[c_nMaxToken];
        size_t length = 0;
        if (!GetToken(token, sizeof token, length))
            return *this;
        const auto parsed = std::from_chars(token, token + length, result);
        if (parsed.ec != std::errc() || parsed.ptr != token + length)
            return Refuse();
    }
    value = result;
    EndRead();
    return *this;
}

ZVTStream& ZVTStream::operator>>(ZVTString& value) {
    // As for a scalar: a short string whose length, bytes and one more byte lie in the get area is
    // taken from there.
    if (m_eType == binary && m_pxIos->rdstate() == std::ios::goodbit) {
        std::streambuf& buffer = *Buffer();
        const char* next = GetArea::Next(buffer);
        const std::ptrdiff_t available = next ? GetArea::End(buffer) - next : 0;
        constexpr std::ptrdiff_t head = 4;
        if (available > head) {
            const std::uint64_t size = DecodeLittleEndian(reinterpret_cast<const unsigned char*>(next), head);
            if (size == c_nNullLength) {
                GetArea::Advance(buffer, head);
                value = ZVTString();
                return *this;
            }
            const auto behind = static_cast<std::uint64_t>(available - head);
            if (size < c_nChunk && behind > size) {
                const std::string bytes(next + head, static_cast<size_t>(size));
                GetArea::Advance(buffer, static_cast<int>(head + size));
                value = ZVTString(bytes);
                return *this;
            }
        }
    }
    if (!BeginRead())
        return *this;
    std::uint64_t size = 0;
    bool isNull = false;
    if (m_eType == binary) {
        unsigned char head[4];
        if (!GetBytes(head, sizeof head))
            return *this;
        size = DecodeLittleEndian(head, sizeof head);
        isNull = size == c_nNullLength;
    } else {
        char token[c_nMaxToken];
        size_t length = 0;
        if (!GetToken(token, sizeof token, length))
            return *this;
        long stored = 0;
        const auto parsed = std::from_chars(token, token + length, stored);
        if (parsed.ec != std::errc() || parsed.ptr != token + length || stored < -1 ||
            stored >= c_nNullLength) {
            return Refuse();
        }
        isNull = stored == -1;
        size = isNull ? 0 : static_cast<std::uint64_t>(stored);
        if (!isNull) {
            const int separator = Buffer()->sbumpc();
            if (separator != ' ') {
                m_pxIos->setstate(Traits::eq_int_type(separator, Traits::eof())
                                      ? std::ios::eofbit | std::ios::failbit
                                      : std::ios::failbit);
                return *this;
            }
        }
    }
    std::string bytes;
    // The stored size is not trusted: memory grows only as the bytes actually arrive.
    while (!isNull && bytes.size() < size) {
        const size_t done = bytes.size();
        const size_t chunk = static_cast<size_t>(std::min<std::uint64_t>(size - done, c_nChunk));
        bytes.resize(done + chunk);
        if (!GetBytes(&bytes[done], chunk))
            return *this;
    }
    value = isNull ? ZVTString() : ZVTString(bytes);
    EndRead();
    return *this;
}

bool ZVTStream::BeginRead() {
    if (m_pxIos->good())
        return true;
    m_pxIos->setstate(std::ios::failbit);
    return false;
}

bool ZVTStream::GetBytes(void* data, size_t size) {
    std::streambuf* buffer = Buffer();
    const auto count = static_cast<std::streamsize>(size);
    // A scalar's few bytes mostly lie in the get area already: taking them from there spares the virtual
    // block read, which costs more than the bytes. in_avail asks the buffer itself only when the area is
    // empty; a buffer that promised more than it gives fails the read as the block read would.
    if (size <= c_nSmallRead && buffer->in_avail() >= count) {
        auto* bytes = static_cast<char*>(data);
        size_t got = 0;
        for (int c; got < size && !Traits::eq_int_type(c = buffer->sbumpc(), Traits::eof()); ++got)
            bytes[got] = Traits::to_char_type(c);
        if (got == size)
            return true;
        m_pxIos->setstate(std::ios::eofbit | std::ios::failbit);
        return false;
    }
    if (buffer->sgetn(static_cast<char*>(data), count) == count)
        return true;
    m_pxIos->setstate(std::ios::eofbit | std::ios::failbit);
    return false;
}

bool ZVTStream::GetToken(char* token, size_t capacity, size_t& length) {
    std::streambuf* buffer = Buffer();
    int c = buffer->sgetc();
    while (!Traits::eq_int_type(c, Traits::eof()) && IsSpace(c))
        c = buffer->snextc();
    length = 0;
    while (!Traits::eq_int_type(c, Traits::eof()) && !IsSpace(c)) {
        if (length == capacity) {
            Refuse();
            return false;
        }
        token[length++] = Traits::to_char_type(c);
        c = buffer->snextc();
    }
    if (length > 0)
        return true;
    m_pxIos->setstate(std::ios::eofbit | std::ios::failbit);
    return false;
}

void ZVTStream::EndRead() {
    std::streambuf* buffer = Buffer();
    int c = buffer->sgetc();
    // Text separators belong to the value just read; skipping them lets eof turn true after the last one.
    if (m_eType == text) {
        while (!Traits::eq_int_type(c, Traits::eof()) && IsSpace(c))
            c = buffer->snextc();
    }
    if (Traits::eq_int_type(c, Traits::eof()))
        m_pxIos->setstate(std::ios::eofbit);
}
