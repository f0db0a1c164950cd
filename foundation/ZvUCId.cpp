#include "foundation/ZvUCId.h"

#include <stdexcept>

#include "foundation/ZVTStream.h"

namespace {

// The stored id is four bytes longer than its words; the tail carries nothing.
constexpr int c_nPaddingBytes = 4;

void CheckIndex(int index) {
    if (index < 0 || index >= ZvUCId::c_nWordCount)
        throw std::out_of_range("ZvUCId word index out of range");
}

}  // namespace

ZvUCId::ZvUCId() : m_auWords{} {}

ZvUCId::~ZvUCId() = default;

std::uint32_t ZvUCId::GetWord(int index) const {
    CheckIndex(index);
    return m_auWords[index];
}

void ZvUCId::SetWord(int index, std::uint32_t value) {
    CheckIndex(index);
    m_auWords[index] = value;
}

ZVTBoolean ZvUCId::operator==(const ZvUCId& other) const {
    for (int i = 0; i < c_nWordCount; ++i) {
        if (m_auWords[i] != other.m_auWords[i])
            return false;
    }
    return true;
}

ZVTBoolean ZvUCId::operator!=(const ZvUCId& other) const {
    return !(*this == other);
}

ZVTStream& operator<<(ZVTStream& stream, const ZvUCObjectId& id) {
    for (int i = 0; i < ZvUCId::c_nWordCount; ++i) {
        const std::uint32_t word = id.GetWord(i);
        for (int shift = 0; shift < 32; shift += 8)
            stream << static_cast<unsigned char>(word >> shift);
    }
    for (int i = 0; i < c_nPaddingBytes; ++i)
        stream << static_cast<unsigned char>(0);
    return stream;
}

ZVTStream& operator>>(ZVTStream& stream, ZvUCObjectId& id) {
    ZvUCObjectId read;
    for (int i = 0; i < ZvUCId::c_nWordCount; ++i) {
        std::uint32_t word = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            unsigned char byte = 0;
            stream >> byte;
            word |= static_cast<std::uint32_t>(byte) << shift;
        }
        read.SetWord(i, word);
    }
    for (int i = 0; i < c_nPaddingBytes; ++i) {
        unsigned char ignored = 0;
        stream >> ignored;
    }
    // A short read fails every byte after the end, so one check at the close covers them all.
    if (!stream.fail())
        id = read;
    return stream;
}
