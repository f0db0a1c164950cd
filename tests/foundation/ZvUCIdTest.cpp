// Covers universal ids: word access and its bounds, equality word by word, and the 24-byte stored form
// (fixed byte order, padding dropped on reading, a short stream leaving the id untouched).

#include "foundation/ZvUCId.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "foundation/ZVTStream.h"

namespace {

// Words 0x04030201, 0x08070605, ... so that the stored bytes count up from first's low byte.
ZvUCObjectId MakeId(std::uint32_t first) {
    ZvUCObjectId id;
    for (int i = 0; i < ZvUCId::c_nWordCount; ++i)
        id.SetWord(i, first + 0x04040404u * static_cast<std::uint32_t>(i));
    return id;
}

TEST(ZvUCIdTest, StartsAtZeroRefusesStrayIndexesAndIsEqualOnlyWhenEveryWordIs) {
    const ZvUCObjectId zero;
    std::string seen;
    for (int i = 0; i < ZvUCId::c_nWordCount; ++i) {
        ZvUCObjectId other(zero);
        other.SetWord(i, 0x80000000u);
        seen += std::to_string(zero.GetWord(i)) + (other != zero ? "!" : "") + (other == zero ? "=" : "");
        other = zero;
        seen += other == zero ? "= " : " ";
    }
    EXPECT_EQ(seen, "0!= 0!= 0!= 0!= 0!= ");
    ZvUCObjectId id;
    for (int index : {-1, 5}) {
        SCOPED_TRACE(index);
        EXPECT_THROW(id.GetWord(index), std::out_of_range);
        EXPECT_THROW(id.SetWord(index, 7), std::out_of_range);
    }
    EXPECT_TRUE(id == zero);
}

TEST(ZvUCIdTest, StoredAsTwentyLittleEndianBytesAndFourDroppedOnes) {
    std::stringstream medium;
    ZVTStream stream(medium, ZVTStream::binary);
    stream << MakeId(0x04030201u) << 9L;
    std::string stored(
        "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14"
        "\x00\x00\x00\x00\x09\x00\x00\x00",
        28);
    EXPECT_EQ(medium.str(), stored);

    stored.replace(20, 4, "\xAA\xBB\xCC\xDD");
    std::stringstream input(stored);
    ZVTStream reader(input, ZVTStream::binary);
    ZvUCObjectId id;
    long after = 0;
    reader >> id >> after;
    EXPECT_FALSE(reader.fail());
    EXPECT_TRUE(id == MakeId(0x04030201u));
    EXPECT_EQ(after, 9);
}

TEST(ZvUCIdTest, AShortStreamFailsAndLeavesTheIdAsItWas) {
    const std::string full(24, '\x01');
    for (size_t length : {0u, 1u, 19u, 20u, 23u}) {
        SCOPED_TRACE(length);
        std::stringstream input(full.substr(0, length));
        ZVTStream reader(input, ZVTStream::binary);
        ZvUCObjectId id = MakeId(0x77);
        reader >> id;
        EXPECT_TRUE(reader.fail());
        EXPECT_TRUE(id == MakeId(0x77));
    }
}

}  // namespace
