#ifndef ZVUCID_H
#define ZVUCID_H

#include <cstdint>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"

class ZVTStream;

/// A universal id: five 32-bit words the host fills in; the library only carries and compares it.
class MODELCORE_API ZvUCId {
public:
    /// The number of words in an id.
    static constexpr int c_nWordCount = 5;

    /// The zero id.
    ZvUCId();
    ZvUCId(const ZvUCId& other) = default;
    ZvUCId& operator=(const ZvUCId& other) = default;
    /// Virtual so that derived ids are destroyed whole.
    virtual ~ZvUCId();

    /// Word `index` (0 to 4); throws std::out_of_range for any other index.
    std::uint32_t GetWord(int index) const;
    /// Sets word `index` (0 to 4); throws std::out_of_range for any other index and changes nothing.
    void SetWord(int index, std::uint32_t value);

    /// True when all five words are equal.
    ZVTBoolean operator==(const ZvUCId& other) const;
    /// True when any word differs.
    ZVTBoolean operator!=(const ZvUCId& other) const;

private:
    std::uint32_t m_auWords[c_nWordCount];
};

/// The universal id of an object, as the origin-id property holds it.
class MODELCORE_API ZvUCObjectId : public ZvUCId {};

/// Writes `id` as 24 single bytes: each word little-endian, word 0 first, then 4 zero bytes, so a stored id
/// reads the same on every platform.
MODELCORE_API ZVTStream& operator<<(ZVTStream& stream, const ZvUCObjectId& id);
/// Reads 24 bytes, keeping the first 20 and dropping the last 4; when the stream runs short it is left
/// failed and `id` unchanged.
MODELCORE_API ZVTStream& operator>>(ZVTStream& stream, ZvUCObjectId& id);

#endif
