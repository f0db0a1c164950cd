// Covers the model stream: which operator a pointer or a scalar meets, the one-token push-back, targets
// stored by name, the refused object pointers and the id space each stream owns.

#include "ModelCore/ZVFWMC/MCStreams.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

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
static_assert(!WritesToBase<MCObject*>::value && !WritesToBase<tgt_target*>::value &&
              WritesToBase<long>::value);

TEST(MCStreamTest, TargetsTravelByNameAndComeBackThroughTheRegistry) {
    HUBTargetRegistry::Clear();
    tgt_target drive("Drive"), ghost("Ghost");  // ghost is never registered
    ASSERT_TRUE(HUBTargetRegistry::RegisterTarget(&drive));
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    stream << &drive << static_cast<tgt_target*>(nullptr) << &ghost;
    EXPECT_EQ(medium.str(), std::string("\x05\0\0\0Drive\0\0\0\0\x05\0\0\0Ghost", 22));
    tgt_target* read[] = {&ghost, &ghost, &drive, &drive};
    stream >> read[0] >> read[1] >> read[2] >> read[3];
    EXPECT_TRUE(stream.fail());
    // A failed read gives no target, as an unknown name does.
    EXPECT_EQ(std::vector<tgt_target*>(read, read + 4),
              (std::vector<tgt_target*>{&drive, nullptr, nullptr, nullptr}));
    HUBTargetRegistry::Clear();
}

// The push-back holds one token and writes nothing; object pointers are refused without touching the
// stream.
TEST(MCStreamTest, PushBackHoldsOneTokenAndObjectPointersAreRefusedWithoutTouchingTheStream) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    EXPECT_TRUE(stream.SetPendingToken(MCStream::tokenObject));
    EXPECT_FALSE(stream.SetPendingToken(MCStream::tokenGlobals)) << "a second token would lose the first";
    EXPECT_EQ(stream.GetPendingToken(), MCStream::tokenObject);
    EXPECT_FALSE(stream.HasPendingToken());
    stream << 7L;
    MCObject* pObject = c_pxDummy;
    EXPECT_THROW(stream << static_cast<MCObject*>(nullptr), EXUnexpected);
    EXPECT_THROW(stream >> pObject, EXUnexpected);
    EXPECT_EQ(pObject, c_pxDummy);
    long first = 0;
    stream >> first;  // neither wrote nor consumed anything
    EXPECT_EQ(std::to_string(first) + " " + std::to_string(medium.str().size()), "7 4");
}

TEST(MCStreamTest, EveryConstructionHasItsOwnFreshIdSpaceAndNoPendingToken) {
    const std::string path = ::testing::TempDir() + "MCStreamsTest.bin";
    std::stringstream medium;
    std::istringstream input("");
    MCStream fromFile(path.c_str(), ZVTStream::binary, std::ios::out, 0);
    MCStream fromBuffer(*medium.rdbuf(), ZVTStream::binary);
    MCStream fromStream(medium, ZVTStream::text);
    MCStream fromInput(input, ZVTStream::binary);
    int index = 0;
    for (MCStream* pStream : {&fromFile, &fromBuffer, &fromStream, &fromInput}) {
        SCOPED_TRACE(index++);
        EXPECT_FALSE(pStream->HasPendingToken());
        EXPECT_EQ(pStream->GetUDPMap(), nullptr);
        EXPECT_EQ(pStream->GetIdSpace().RequestId(), 1);  // a shared space would count on
        pStream->GetIdSpace().RegisterPointer(5, c_pxDummy);
    }
    fromBuffer.GetIdSpace().RemoveId(5);
    EXPECT_EQ(fromStream.GetIdSpace().ResolveId(5), c_pxDummy);
    EXPECT_FALSE(fromFile.fail());
    std::remove(path.c_str());
}

}  // namespace
