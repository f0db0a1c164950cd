// Covers the model stream: which operator a pointer or a scalar meets, the token bytes, the one-token
// push-back, targets stored by name, the refused object pointers and the id space each stream owns.

#include "ModelCore/ZVFWMC/MCStreams.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "platform/TGT.h"

namespace {

// MCObject stays incomplete here: the operators under test only see the pointer.
alignas(16) char c_acObject[16];
MCObject* const c_pxDummy = reinterpret_cast<MCObject*>(c_acObject);

template <class T>
using WriteResult = decltype(std::declval<MCStream&>() << std::declval<T>());
template <class T>
using ReadResult = decltype(std::declval<MCStream&>() >> std::declval<T&>());
template <class T, class = void>
struct WritesToBase : std::false_type {};
template <class T>
struct WritesToBase<T, std::void_t<decltype(std::declval<ZVTStream&>() << std::declval<T>())>>
    : std::true_type {};

// Pointers meet the model stream's own operators rather than a conversion to ZVTBoolean; scalars, even a
// literal 0 that could be a null pointer, still reach the base; past the end of a chain, where the stream
// is a plain ZVTStream, a pointer does not compile.
static_assert(std::is_same_v<WriteResult<MCObject*>, MCStream&> &&
              std::is_same_v<ReadResult<MCObject*>, MCStream&>);
static_assert(std::is_same_v<WriteResult<tgt_target*>, MCStream&> &&
              std::is_same_v<ReadResult<tgt_target*>, MCStream&>);
static_assert(std::is_same_v<decltype(std::declval<MCStream&>() << 0), ZVTStream&>);
static_assert(std::is_same_v<WriteResult<long>, ZVTStream&> &&
              std::is_same_v<WriteResult<ZVTString>, ZVTStream&>);
static_assert(!WritesToBase<MCObject*>::value && !WritesToBase<tgt_target*>::value &&
              WritesToBase<long>::value);

std::string Bytes(const char* text, size_t length) {
    return std::string(text, length);
}

TEST(MCStreamTest, ScalarsAndTokensGoThroughTheBaseOperators) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    stream << 5L << ZVTString("ab") << 0;
    const MCStream::token_type tokens[] = {
        MCStream::tokenProperty,   MCStream::tokenObject,     MCStream::tokenRecord,
        MCStream::tokenGlobals,    MCStream::tokenObjectEnd,  MCStream::tokenGlobalsEnd,
        MCStream::tokenClipHead,   MCStream::tokenClipEntry0, MCStream::tokenClipEntry1,
        MCStream::tokenClipEntry2, MCStream::tokenClipLevel,  MCStream::tokenClipEnd,
        MCStream::tokenEndMark};
    for (MCStream::token_type token : tokens)
        stream << token;  // one byte each, not an int
    EXPECT_EQ(medium.str(), Bytes("\x05\0\0\0\x02\0\0\0ab\0\0\0\0"
                                  "\x01\x02\x04\x11\x12\x15\x20\x21\x22\x23\x24\x25\xFF",
                                  27));
    long number = 0;
    ZVTString text;
    int zero = -1;
    stream >> number >> text >> zero;
    EXPECT_EQ(number, 5);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(zero, 0);
    for (MCStream::token_type token : tokens) {
        char read = 0;
        stream >> read;
        EXPECT_EQ(read, token);
    }
}

TEST(MCStreamTest, PushBackHoldsOneToken) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    EXPECT_FALSE(stream.HasPendingToken());
    EXPECT_TRUE(stream.SetPendingToken(MCStream::tokenObject));
    EXPECT_FALSE(stream.SetPendingToken(MCStream::tokenGlobals));
    EXPECT_TRUE(stream.HasPendingToken());
    EXPECT_EQ(stream.GetPendingToken(), MCStream::tokenObject);
    EXPECT_FALSE(stream.HasPendingToken());
    EXPECT_EQ(stream.GetPendingToken(), MCStream::tokenObject);  // unchecked: the old token again
    EXPECT_TRUE(stream.SetPendingToken(MCStream::tokenEndMark));
    EXPECT_EQ(stream.GetPendingToken(), MCStream::tokenEndMark);
    EXPECT_TRUE(medium.str().empty());
}

TEST(MCStreamTest, TargetsTravelByNameAndComeBackThroughTheRegistry) {
    HUBTargetRegistry::Clear();
    tgt_target drive("Drive"), ghost("Ghost");  // ghost is never registered
    ASSERT_TRUE(HUBTargetRegistry::RegisterTarget(&drive));
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    stream << &drive << static_cast<tgt_target*>(nullptr) << &ghost;
    EXPECT_EQ(medium.str(), Bytes("\x05\0\0\0Drive\0\0\0\0\x05\0\0\0Ghost", 22));
    tgt_target* read[] = {&ghost, &ghost, &drive, &drive};
    stream >> read[0] >> read[1] >> read[2] >> read[3];
    EXPECT_EQ(read[0], &drive);
    EXPECT_EQ(read[1], nullptr);
    EXPECT_EQ(read[2], nullptr);
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(read[3], &drive);  // a failed read leaves the pointer alone
    HUBTargetRegistry::Clear();
}

TEST(MCStreamTest, ObjectPointersAreRefusedWithoutTouchingTheStream) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    stream << 7L;
    MCObject* pObject = c_pxDummy;
    ZVTString file;
    try {
        stream << static_cast<MCObject*>(nullptr);
    } catch (const EXUnexpected& e) {
        file = e.m_xFile;
    }
    EXPECT_EQ(file, "ModelCore/ZVFWMC/MCStreams");
    EXPECT_THROW(stream >> pObject, EXUnexpected);
    EXPECT_EQ(pObject, c_pxDummy);
    EXPECT_EQ(medium.str(), Bytes("\x07\0\0\0", 4));
    long first = 0;
    stream >> first;  // the refused read consumed nothing
    EXPECT_EQ(first, 7);
}

TEST(MCStreamTest, EveryConstructionHasItsOwnFreshIdSpaceAndNoPendingToken) {
    const std::string path = ::testing::TempDir() + "MCStreamsTest.bin";
    std::stringstream medium;
    std::istringstream input("");
    MCStream fromFile(path.c_str(), ZVTStream::binary, std::ios::out, 0);
    MCStream fromBuffer(*medium.rdbuf(), ZVTStream::binary);
    MCStream fromStream(medium, ZVTStream::text);
    MCStream fromInput(input, ZVTStream::binary);
    MCStream* const streams[] = {&fromFile, &fromBuffer, &fromStream, &fromInput};
    for (MCStream* pStream : streams) {
        SCOPED_TRACE(pStream - streams[0]);
        EXPECT_FALSE(pStream->HasPendingToken());
        EXPECT_EQ(pStream->GetUDPMap(), nullptr);
        EXPECT_NE(&pStream->GetIdSpace(), &MCIdSpace::Global());
        EXPECT_EQ(pStream->GetIdSpace().RequestId(), 1);  // a shared space would count on
        pStream->GetIdSpace().RegisterPointer(5, c_pxDummy);
    }
    fromBuffer.GetIdSpace().RemoveId(5);
    EXPECT_EQ(fromStream.GetIdSpace().ResolveId(5), c_pxDummy);
    EXPECT_FALSE(fromFile.fail());
    std::remove(path.c_str());
}

}  // namespace
