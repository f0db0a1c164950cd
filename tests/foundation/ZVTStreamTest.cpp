// ZVTStream in both layouts: every scalar and string reads back as written, the binary bytes are fixed,
// values too wide are refused, and short or hostile input fails cleanly without touching the target.

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <sstream>
#include <typeinfo>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/ZVTStream.h"
#include "support/AllocationHook.h"

// The largest single allocation, so that a test can show that a stored length was not trusted.
static size_t g_nLargestAllocation = 0;

bool OnAllocate(std::size_t size) {
    g_nLargestAllocation = std::max(g_nLargestAllocation, size);
    return true;
}

namespace {

// Writes the samples and reads them back one by one (eof turning true with the last), then reads once
// more: that read fails and leaves its target as it was. Writing what was read gives the same bytes as
// writing the samples and the untouched value, which tells NaN, -0.0 and the null string apart.
template <class T>
void RoundTrip(const std::vector<T>& samples, const T& untouched) {
    for (ZVTStream::stream_type mode : {ZVTStream::binary, ZVTStream::text}) {
        SCOPED_TRACE(std::string(typeid(T).name()) + (mode == ZVTStream::binary ? " binary" : " text"));
        std::stringbuf written, expected, reread;
        ZVTStream stream(written, mode), model(expected, mode), copy(reread, mode);
        for (const T& value : samples) {
            stream << value;
            model << value;
        }
        model << untouched;
        for (size_t i = 0; i <= samples.size(); ++i) {
            T read = untouched;
            stream >> read;
            copy << read;
            EXPECT_EQ(stream.fail(), i == samples.size()) << "sample " << i;
            EXPECT_EQ(stream.eof(), i + 1 >= samples.size()) << "sample " << i;
        }
        EXPECT_EQ(reread.str(), expected.str());
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
    for (unsigned char c : data)
        hex += {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15], ' '};
    return hex;
}

// Values too wide for their slot are refused, and a failed stream writes nothing more until cleared.
TEST(ZVTStreamTest, BinaryBytesAreLittleEndianWithFixedWidthsAndWiderValuesAreRefused) {
    const std::pair<std::function<void(ZVTStream&)>, const char*> cases[] = {
        {[](ZVTStream& s) { s << true << '\xfe'; }, "01 fe "},
        {[](ZVTStream& s) { s << short(0x1234) << static_cast<unsigned short>(0xfffe); }, "34 12 fe ff "},
        {[](ZVTStream& s) { s << 0x01020304; }, "04 03 02 01 "},
        {[](ZVTStream& s) { s << -2L << 0xfffffffful; }, "fe ff ff ff ff ff ff ff "},
        {[](ZVTStream& s) { s << 1.0f; }, "00 00 80 3f "},
        {[](ZVTStream& s) { s << -2.0; }, "00 00 00 00 00 00 00 c0 "},
        {[](ZVTStream& s) { s << ZVTString("ab") << "c"; }, "02 00 00 00 61 62 01 00 00 00 63 "},
        {[](ZVTStream& s) { s << ZVTString("") << ZVTString(); }, "00 00 00 00 ff ff ff ff "},
        {[](ZVTStream& s) { s << static_cast<const char*>(nullptr); }, "ff ff ff ff "},
        {[](ZVTStream& s) { s << static_cast<long>(INT_MAX) + 1 << 1L; }, ""},
        {[](ZVTStream& s) { s << static_cast<long>(INT_MIN) - 1 << 1.0; }, ""},
        {[](ZVTStream& s) { s << 0x100000000ul << "x"; }, ""},
    };
    for (const auto& [write, bytes] : cases) {
        SCOPED_TRACE(bytes);
        std::stringbuf buffer;
        ZVTStream stream(buffer, ZVTStream::binary);
        write(stream);
        EXPECT_EQ(stream.fail(), *bytes == '\0');
        EXPECT_EQ(Hex(buffer.str()), bytes);
    }
}

// Text: each value (a character too) a number and a blank, a string its length, a blank, its bytes and a
// blank, the null string only its length. A reader takes any blank between tokens.
TEST(ZVTStreamTest, TextTokensEndInABlankAndEveryKindOfBlankSeparatesThem) {
    std::stringbuf buffer;
    ZVTStream writer(buffer, ZVTStream::text);
    writer << true << short(-3) << 7ul << 1.5 << ZVTString("a b") << ZVTString() << 'c';
    EXPECT_EQ(buffer.str(), "1 -3 7 1.5 3 a b -1 99 ");
    std::stringbuf blanks("1\t2\r3\f4\v5\n6 ");
    ZVTStream reader(blanks, ZVTStream::text);
    long read[6] = {};
    for (long& value : read)
        reader >> value;
    EXPECT_EQ(testing::PrintToString(read) + (reader.fail() ? " fail" : ""), "{ 1, 2, 3, 4, 5, 6 }");
}

// Reads a T that starts as `start` from `input`; true when the read failed, left it as it was and
// allocated no more than a reader that never trusts a stored length beyond the bytes present would.
template <class T>
bool FailsUntouched(ZVTStream::stream_type mode, const std::string& input, const T& start) {
    std::stringbuf buffer(input);
    ZVTStream stream(buffer, mode);
    T value = start;
    g_nLargestAllocation = 0;
    stream >> value;
    return stream.fail() && value == start && g_nLargestAllocation < (1u << 20);
}

TEST(ZVTStreamTest, MalformedInputFailsAndLeavesTheTargetAlone) {
    const ZVTStream::stream_type binary = ZVTStream::binary, text = ZVTStream::text;
    const ZVTString string("?");
    const std::pair<const char*, bool> cases[] = {
        {"a flag byte other than 0 or 1", FailsUntouched(binary, std::string("\x02\x01", 2), true)},
        {"the same alone", FailsUntouched(binary, std::string("\x02", 1), true)},
        {"the same in text", FailsUntouched(text, "2 ", true)},
        {"a flag that is no number", FailsUntouched(text, "x ", true)},
        {"the null length as a flag", FailsUntouched(text, "-1 ", true)},
        {"an unsigned long wider than stored", FailsUntouched(text, "4294967296 ", 7ul)},
        {"a number and more", FailsUntouched(text, "1x ", true)},
        {"an endless token", FailsUntouched(text, std::string(200, '1'), true)},
        {"only blanks", FailsUntouched(text, "   ", true)},
        {"every blank skipped before the token", FailsUntouched(text, "\t\r\f\v\n x ", true)},
        {"no floating number", FailsUntouched(text, "x ", 7.0)},
        {"a floating number and more", FailsUntouched(text, "1.5x ", 7.0)},
        {"a string length that is no number", FailsUntouched(text, "x ", string)},
        {"a string length and more", FailsUntouched(text, "1x ", string)},
        {"a length below the null one", FailsUntouched(text, "-2 ", string)},
        {"the null length as a count", FailsUntouched(text, "4294967295 ", string)},
        {"a huge length, three bytes",
         FailsUntouched(binary, std::string("\xfe\xff\xff\xff") + "abc", string)},
        {"the same in text", FailsUntouched(text, "4294967294 abc", string)},
    };
    for (const auto& [name, failedUntouched] : cases)
        EXPECT_TRUE(failedUntouched) << name;
}

// Shows at most `window` bytes in its get area (0: none, every byte through uflow), so that a scalar
// finds its bytes in the area, with or without one more, split over two areas, or has to ask the buffer.
struct NarrowBuf : std::streambuf {
    NarrowBuf(std::string bytes, size_t window) : m_xBytes(std::move(bytes)), m_nWindow(window) {}

    int_type underflow() override {
        if (m_nNext == m_xBytes.size())
            return traits_type::eof();
        char* begin = &m_xBytes[m_nNext];
        if (m_nWindow != 0) {
            m_nNext += std::min(m_nWindow, m_xBytes.size() - m_nNext);
            setg(begin, begin, m_xBytes.data() + m_nNext);
        }
        return traits_type::to_int_type(*begin);
    }
    int_type uflow() override {
        if (m_nWindow != 0 || m_nNext == m_xBytes.size())
            return std::streambuf::uflow();
        return traits_type::to_int_type(m_xBytes[m_nNext++]);
    }

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
        for (size_t window : {size_t{0}, size_t{1}, size_t{3}, size_t{4}, size_t{5}, SIZE_MAX}) {
            SCOPED_TRACE("window " + std::to_string(window));
            NarrowBuf narrow(bytes.substr(0, cut), window);
            EXPECT_EQ(ReadAll(narrow), expected);
        }
    }
}

// The state as letters: e(of), f(ail), b(ad), g(ood).
std::string Flags(const ZVTStream& stream) {
    return std::string(stream.eof() ? "e" : "") + (stream.fail() ? "f" : "") + (stream.bad() ? "b" : "") +
           (stream.good() ? "g" : "");
}

// Writing clears an end met by reading, as there is more to read then; a read-only stream refuses
// writes, a file reads back what was written, one that cannot open fails, and so does a seek to a
// negative position.
TEST(ZVTStreamTest, EofClearsOnWriteAndStreamsThatCannotWriteOrSeekFail) {
    std::stringstream medium;
    ZVTStream stream(medium, ZVTStream::binary);
    long value = 0;
    stream << 5L;
    stream >> value;
    std::string seen = Flags(stream);
    stream << 6L;
    seen += " " + Flags(stream);
    stream >> value;
    seen += " " + std::to_string(value) + " " + std::to_string(stream.tellg());
    stream.seekg(-1);
    EXPECT_EQ(seen + " " + std::to_string(stream.tellg()), "e g 6 8 -1");

    std::istringstream input(std::string("\x09\x00\x00\x00", 4));
    ZVTStream reader(input, ZVTStream::binary);
    reader << 1L;
    seen = Flags(reader) + " " + std::to_string(reader.tellp());
    reader.clear();
    reader >> value;
    reader.flush();  // nothing to write: no failure
    seen += " " + std::to_string(value) + " " + Flags(reader);
    reader.seekp(0);
    EXPECT_EQ(seen + " " + Flags(reader), "fb -1 9 e f");

    const std::string path = ::testing::TempDir() + "zvtstream.bin";
    ZVTStream(path.c_str(), ZVTStream::binary, std::ios::out | std::ios::trunc, 0644, false) << 10L << 20L;
    ZVTStream reread(path.c_str(), ZVTStream::binary, std::ios::in, 0, false);
    long values[2] = {};
    reread >> values[0] >> values[1];
    seen = std::to_string(values[0]) + " " + std::to_string(values[1]) + " " + Flags(reread);
    std::remove(path.c_str());
    ZVTStream missing(path.c_str(), ZVTStream::binary, std::ios::in, 0, false);
    missing >> value;
    EXPECT_EQ(seen + " " + Flags(missing) + " " + std::to_string(value), "10 20 e f 9");
}

}  // namespace
