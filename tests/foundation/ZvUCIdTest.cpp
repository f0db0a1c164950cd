// Universal ids: word access and its bounds, equality word by word, and reading the 24-byte stored form.

#include "foundation/ZvUCId.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

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
    for (int i = 0; i < ZvUCId::c_nWordCount; ++i) {
        SCOPED_TRACE(i);
        ZvUCObjectId other(zero);
        other.SetWord(i, 0x80000000u);
        EXPECT_EQ(zero.GetWord(i), 0u);
        EXPECT_TRUE(other != zero && !(other == zero));
        other = zero;
        EXPECT_TRUE(other == zero && !(other != zero));
    }
    ZvUCObjectId id;
    for (int index : {-1, ZvUCId::c_nWordCount}) {
        EXPECT_THROW(id.GetWord(index), std::out_of_range);
        EXPECT_THROW(id.SetWord(index, 7), std::out_of_range);
    }
    EXPECT_TRUE(id == zero);
}

// Twenty little-endian bytes, then four written as zeros and dropped on reading; a short stream leaves
// the id as it was.
TEST(ZvUCIdTest, StoredAsTwentyLittleEndianBytesAndFourDroppedOnes) {
    const std::string stored(
        "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14"
        "\xAA\xBB\xCC\xDD");
    std::stringbuf written;
    ZVTStream writer(written, ZVTStream::binary);
    writer << MakeId(0x04030201u);
    EXPECT_EQ(written.str(), stored.substr(0, 20) + std::string(4, '\0'));
    for (size_t length : {0u, 1u, 19u, 20u, 23u, 24u}) {
        SCOPED_TRACE(length);
        std::stringstream input(stored.substr(0, length));
        ZVTStream reader(input, ZVTStream::binary);
        ZvUCObjectId id = MakeId(0x77);
        reader >> id;
        EXPECT_EQ(reader.fail(), length < stored.size());
        EXPECT_TRUE(id == MakeId(length < stored.size() ? 0x77 : 0x04030201u));
    }
}

}  // namespace
