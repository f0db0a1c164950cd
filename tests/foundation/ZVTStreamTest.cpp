// ZVTStream in both layouts: every scalar and string reads back as written, the binary bytes are fixed,
// values too wide are refused, and short or hostile input fails cleanly without touching the target.

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/ZVTStream.h"

// The largest single allocation, so that a test can show that a stored length was not trusted.
static size_t g_nLargestAllocation = 0;

void* operator new(std::size_t size) {
    g_nLargestAllocation = std::max(g_nLargestAllocation, size);
    if (void* block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}
// Out of line, so that the optimizer does not see new'd memory reach free() and warn.
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

const ZVTStream::stream_type c_aModes[] = {ZVTStream::binary, ZVTStream::text};

template <class T>
bool Same(const T& a, const T& b) {
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(a) || std::isnan(b))
            return std::isnan(a) && std::isnan(b);
        return a == b && std::signbit(a) == std::signbit(b);
    } else if constexpr (std::is_same_v<T, ZVTString>) {
        return a.IsNullString() == b.IsNullString() && a.str() == b.str();
    } else {
        return a == b;
    }
}

// Writes the samples, reads them back one by one (eof turning true with the last), then reads once more:
// that read fails and leaves its target as it was.
template <class T>
void RoundTrip(const std::vector<T>& samples, const T& untouched) {
    for (ZVTStream::stream_type mode : c_aModes) {
        SCOPED_TRACE(std::string(typeid(T).name()) + (mode == ZVTStream::binary ? " binary" : " text"));
        std::stringstream medium;
        ZVTStream stream(medium, mode);
        for (const T& value : samples)
            stream << value;
        ASSERT_TRUE(stream.good());
        for (size_t i = 0; i < samples.size(); ++i) {
            T read = untouched;
            stream >> read;
            ASSERT_FALSE(stream.fail()) << "sample " << i;
            EXPECT_TRUE(Same(read, samples[i])) << "sample " << i;
            EXPECT_EQ(stream.eof(), i + 1 == samples.size()) << "sample " << i;
        }
        T beyond = untouched;
        stream >> beyond;
        EXPECT_TRUE(stream.fail() && stream.eof());
        EXPECT_TRUE(Same(beyond, untouched));
    }
}

TEST(ZVTStreamTest, EveryScalarAndStringReadsBackWhatWasWritten) {
    RoundTrip<bool>({true, false}, true);
    RoundTrip<char>({'\0', 'a', CHAR_MIN, CHAR_MAX}, '7');
    RoundTrip<unsigned char>({0, 255}, 7);
    RoundTrip<short>({0, -1, SHRT_MIN, SHRT_MAX}, 7);
    RoundTrip<unsigned short>({0, USHRT_MAX}, 7);
    RoundTrip<int>({0, -1, INT_MIN, INT_MAX}, 7);
    RoundTrip<unsigned int>({0, UINT_MAX}, 7);
    RoundTrip<long>({0, -1, INT_MIN, INT_MAX}, 7);
    RoundTrip<unsigned long>({0, 0xFFFFFFFFul}, 7);
    RoundTrip<float>({0.1f, -0.0f, FLT_MAX, FLT_MIN / 4, -INFINITY, NAN}, 7);
    RoundTrip<double>({0.1, -0.0, DBL_MAX, DBL_MIN / 4, INFINITY, NAN, 1e300 / 3}, 7);
    RoundTrip<ZVTString>({ZVTString(), ZVTString(""), ZVTString("two words"),
                          ZVTString(std::string("\0\n 9 ", 5)), ZVTString(std::string(100000, 'x'))},
                         ZVTString("untouched"));
}

std::string Hex(const std::string& data) {
    std::string hex;
    char digits[4];
    for (unsigned char c : data) {
        std::snprintf(digits, sizeof digits, "%02x ", c);
        hex += digits;
    }
    return hex;
}

TEST(ZVTStreamTest, BinaryBytesAreLittleEndianWithFixedWidths) {
    struct Case {
        std::function<void(ZVTStream&)> write;
        const char* bytes;
    };
    const Case cases[] = {
        {[](ZVTStream& s) { s << true << '\xfe'; }, "01 fe "},
        {[](ZVTStream& s) { s << short(0x1234) << static_cast<unsigned short>(0xfffe); }, "34 12 fe ff "},
        {[](ZVTStream& s) { s << 0x01020304; }, "04 03 02 01 "},
        {[](ZVTStream& s) { s << -2L << 0xfffffffful; }, "fe ff ff ff ff ff ff ff "},
        {[](ZVTStream& s) { s << 1.0f; }, "00 00 80 3f "},
        {[](ZVTStream& s) { s << -2.0; }, "00 00 00 00 00 00 00 c0 "},
        {[](ZVTStream& s) { s << ZVTString("ab") << "c"; }, "02 00 00 00 61 62 01 00 00 00 63 "},
        {[](ZVTStream& s) { s << ZVTString("") << ZVTString(); }, "00 00 00 00 ff ff ff ff "},
        {[](ZVTStream& s) { s << static_cast<const char*>(nullptr); }, "ff ff ff ff "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        std::stringbuf buffer;
        ZVTStream stream(buffer, ZVTStream::binary);
        c.write(stream);
        EXPECT_TRUE(stream.good());
        EXPECT_EQ(Hex(buffer.str()), c.bytes);
    }
}

TEST(ZVTStreamTest, ValuesWiderThanTheirSlotAreRefused) {
    const std::function<void(ZVTStream&)> writes[] = {
        [](ZVTStream& s) { s << static_cast<long>(INT_MAX) + 1; },
        [](ZVTStream& s) { s << static_cast<long>(INT_MIN) - 1; },
        [](ZVTStream& s) { s << 0x100000000ul; },
    };
    for (ZVTStream::stream_type mode : c_aModes) {
        for (size_t i = 0; i < std::size(writes); ++i) {
            SCOPED_TRACE(std::to_string(mode) + "/" + std::to_string(i));
            std::stringbuf buffer;
            ZVTStream stream(buffer, mode);
            writes[i](stream);
            EXPECT_TRUE(stream.fail());
            stream << 1L;  // a failed stream writes nothing more until cleared
            EXPECT_EQ(buffer.str(), "");
            stream.clear();
            stream << 1L;
            EXPECT_NE(buffer.str(), "");
        }
    }
}

TEST(ZVTStreamTest, MalformedInputFailsAndLeavesTheTargetAlone) {
    // What is read: 'b' a ZVTBoolean, 'd' a double, 's' a string, 'u' an unsigned long.
    const struct {
        ZVTStream::stream_type m_eMode;
        char m_cKind;
        std::string m_sInput;
    } cases[] = {
        {ZVTStream::binary, 'b', std::string("\x02", 1)},      // a ZVTBoolean byte other than 0 or 1
        {ZVTStream::binary, 'b', std::string("\x02\x01", 2)},  // the same with more bytes behind it
        {ZVTStream::text, 'b', "2 "},                          // the same in text
        {ZVTStream::text, 'b', "x "},
        {ZVTStream::text, 'b', "1x "},
        {ZVTStream::text, 'b', std::string(200, '1')},  // an endless token
        {ZVTStream::text, 'b', "   "},
        {ZVTStream::text, 'b', "\t\r\f\v\n x "},  // every blank is skipped before the token
        {ZVTStream::text, 'b', "-1 "},            // the length of a null string, not a number of this type
        {ZVTStream::text, 'd', "x "},
        {ZVTStream::text, 'd', "1.5x "},
        {ZVTStream::text, 's', "x "},  // a string length that is no number, or one no string has
        {ZVTStream::text, 's', "1x "},
        {ZVTStream::text, 's', "-2 "},
        {ZVTStream::text, 's', "4294967295 "},
        {ZVTStream::text, 'u', "4294967296 "},  // text numbers obey the stored widths too
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_sInput.substr(0, 10));
        std::stringbuf buffer(c.m_sInput);
        ZVTStream stream(buffer, c.m_eMode);
        bool flag = true;
        double number = 7;
        ZVTString text("?");
        unsigned long wide = 7;
        if (c.m_cKind == 'b')
            stream >> flag;
        else if (c.m_cKind == 'd')
            stream >> number;
        else if (c.m_cKind == 's')
            stream >> text;
        else
            stream >> wide;
        EXPECT_TRUE(stream.fail());
        EXPECT_EQ(std::to_string(flag) + " " + std::to_string(number) + " " + text.str() + " " +
                      std::to_string(wide),
                  "1 " + std::to_string(7.0) + " ? 7");
    }
}

// A buffer that shows at most `window` bytes in its get area (0: none, every byte through uflow), so
// that a scalar read finds its bytes in the area, with or without one more, or has to ask the buffer.
class NarrowBuf : public std::streambuf {
public:
    NarrowBuf(std::string bytes, size_t window) : m_xBytes(std::move(bytes)), m_nWindow(window) {}

protected:
    int_type underflow() override {
        if (m_nWindow == 0 || m_nNext == m_xBytes.size())
            return m_nNext == m_xBytes.size() ? traits_type::eof()
                                              : traits_type::to_int_type(m_xBytes[m_nNext]);
        const size_t shown = std::min(m_nWindow, m_xBytes.size() - m_nNext);
        char* begin = &m_xBytes[m_nNext];
        setg(begin, begin, begin + shown);
        m_nNext += shown;
        return traits_type::to_int_type(*begin);
    }
    int_type uflow() override {
        if (m_nWindow != 0)
            return std::streambuf::uflow();
        return m_nNext == m_xBytes.size() ? traits_type::eof()
                                          : traits_type::to_int_type(m_xBytes[m_nNext++]);
    }

private:
    std::string m_xBytes;
    size_t m_nWindow;
    size_t m_nNext = 0;
};

// What reading every kind of value from `buffer` leaves in targets that start at 0 or "?", then the
// state: a failed read must leave its target and every later one untouched.
std::string ReadAll(std::streambuf& buffer) {
    ZVTStream reader(buffer, ZVTStream::binary);
    char c = 0, last = 0;
    short s = 0;
    unsigned short us = 0;
    long l = 0;
    ZVTString text("?"), null("?");
    double d = 0;
    bool flag = false;
    reader >> c >> s >> us >> l >> text >> d >> null >> flag >> last;
    std::ostringstream out;
    out << int(c) << ' ' << s << ' ' << us << ' ' << l << ' ' << text.str() << ' ' << d << ' '
        << (null.IsNullString() ? "null" : null.str()) << ' ' << flag << ' ' << int(last)
        << (reader.fail() ? " fail" : "") << (reader.eof() ? " eof" : "");
    return out.str();
}

// Every cut of the bytes, whether a scalar's bytes lie in the get area or not.
TEST(ZVTStreamTest, TruncationAtEveryCutFailsWithoutTouchingLaterTargets) {
    std::stringbuf full;
    ZVTStream(full, ZVTStream::binary)
        << char(-7) << short(-3) << static_cast<unsigned short>(65000) << -123456L << ZVTString("abcdef")
        << 2.5 << ZVTString() << true << char(9);
    const std::string bytes = full.str();
    const size_t ends[] = {1, 3, 5, 9, 19, 27, 31, 32, 33};  // where each value's bytes end
    const char* const read[] = {"-7", "-3", "65000", "-123456", "abcdef", "2.5", "null", "1", "9"};
    const char* const untouched[] = {"0", "0", "0", "0", "?", "0", "?", "0", "0"};
    ASSERT_EQ(bytes.size(), ends[8]);
    for (size_t cut = 0; cut <= bytes.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        std::string expected;
        for (size_t item = 0; item < std::size(ends); ++item)
            expected += std::string(item ? " " : "") + (ends[item] <= cut ? read[item] : untouched[item]);
        expected += cut < bytes.size() ? " fail eof" : " eof";
        std::stringbuf whole(bytes.substr(0, cut));
        EXPECT_EQ(ReadAll(whole), expected);
        for (size_t window : {0, 1, 3, 4, 5}) {
            SCOPED_TRACE("window " + std::to_string(window));
            NarrowBuf narrow(bytes.substr(0, cut), window);
            EXPECT_EQ(ReadAll(narrow), expected);
        }
    }
}

TEST(ZVTStreamTest, AHugeStoredLengthCostsOnlyTheBytesPresent) {
    for (ZVTStream::stream_type mode : c_aModes) {
        SCOPED_TRACE(mode);
        // A length of 0xFFFFFFFE with three bytes behind it.
        std::stringbuf buffer(mode == ZVTStream::binary ? std::string("\xfe\xff\xff\xff") + "abc"
                                                        : "4294967294 abc");
        ZVTStream stream(buffer, mode);
        ZVTString text("untouched");
        g_nLargestAllocation = 0;
        stream >> text;
        EXPECT_LT(g_nLargestAllocation, 1u << 20);
        EXPECT_TRUE(stream.fail() && stream.eof());
        EXPECT_EQ(text, "untouched");
    }
}

TEST(ZVTStreamTest, EofClearsOnWriteAndReadOnlyStreamsRefuseWrites) {
    std::stringstream medium;
    ZVTStream stream(medium, ZVTStream::binary);
    long value = 0;
    stream << 5L;
    stream >> value;
    EXPECT_TRUE(stream.eof());
    EXPECT_FALSE(stream.good() || stream.fail());
    stream << 6L;  // appending is allowed and means there is more to read
    EXPECT_TRUE(stream.good());
    stream >> value;
    EXPECT_EQ(value, 6);

    std::istringstream input(std::string("\x09\x00\x00\x00", 4));
    ZVTStream reader(input, ZVTStream::binary);
    reader << 1L;
    EXPECT_TRUE(reader.bad());
    EXPECT_EQ(reader.tellp(), -1);
    reader.clear();
    reader >> value;
    EXPECT_EQ(value, 9);
    reader.flush();  // nothing to write: no failure
    EXPECT_FALSE(reader.fail());
    reader.seekp(0);
    EXPECT_TRUE(reader.fail());
}

TEST(ZVTStreamTest, FilePositionsAreLongs) {
    const std::string path = ::testing::TempDir() + "zvtstream_positions.bin";
    {
        ZVTStream file(path.c_str(), ZVTStream::binary, std::ios::in | std::ios::out | std::ios::trunc, 0644,
                       false);
        ASSERT_TRUE(file.good());
        file << 10L << 20L << 30L;
        EXPECT_EQ(file.tellp(), 12);
        file.seekp(4);
        file << 21L;
        file.seekg(4);
        long value = 0;
        file >> value;
        EXPECT_EQ(value, 21);
        EXPECT_EQ(file.tellg(), 8);
        file.seekg(-1);
        EXPECT_EQ(file.tellg(), -1);
        file.clear();
        file.flush();
        EXPECT_TRUE(file.good());
    }
    ZVTStream reread(path.c_str(), ZVTStream::binary, std::ios::in, 0, false);
    long values[3] = {};
    reread >> values[0] >> values[1] >> values[2];
    EXPECT_EQ(std::vector<long>(values, values + 3), (std::vector<long>{10, 21, 30}));
    EXPECT_TRUE(reread.eof());
    std::remove(path.c_str());

    ZVTStream missing((path + ".absent").c_str(), ZVTStream::binary, std::ios::in, 0, false);
    missing >> values[0];
    EXPECT_TRUE(missing.fail());
    EXPECT_EQ(values[0], 10);
}

}  // namespace
