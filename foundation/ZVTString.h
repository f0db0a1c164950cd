#ifndef ZVTSTRING_H
#define ZVTSTRING_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"

/// A text of 8-bit characters that also knows a null state, distinct from (but equal to) the empty text.
/// A text of up to c_nInline characters lives inside the string: a model holds a name per object, and most
/// names are short. A text has fewer than 2^32 - 1 characters, as a stored string does: whatever would make
/// a longer one throws std::length_error and leaves the string as it was.
class MODELCORE_API ZVTString {
public:
    /// How compareTo treats letters: exactly, or ignoring ASCII case.
    enum caseCompare { exact, ignoreCase };

    /// The text of the null string; a ZVTString made from this very pointer is null.
    static const char* const c_pcNull;
    /// The longest text held without a heap block.
    static constexpr std::size_t c_nInline = 14;

    /// The null string.
    ZVTString();
    /// A copy of the text; nullptr and c_pcNull give the null string.
    ZVTString(const char* text);
    /// A copy of the text; never null, even when empty.
    ZVTString(const std::string& text);
    /// The digits of value in the given radix (2 to 36, anything else counts as 10), "-" first if negative.
    ZVTString(long value, int radix);
    /// A copy, null if the other is null.
    ZVTString(const ZVTString& other);
    /// Takes the other's text; the other is left null.
    ZVTString(ZVTString&& other) noexcept;
    /// Virtual so that derived texts are destroyed whole.
    virtual ~ZVTString();

    /// Copies text and null state.
    ZVTString& operator=(const ZVTString& other);
    /// Takes the other's text; the other is left null.
    ZVTString& operator=(ZVTString&& other) noexcept;
    /// The decimal text of value.
    ZVTString& operator=(long value);

    /// True for the null string and for the empty text.
    ZVTBoolean IsNull() const { return length() == 0; }
    /// True only for the null string itself.
    ZVTBoolean IsNullString() const { return (Control() & c_uNullBit) != 0; }
    /// The number of characters.
    long Length() const { return static_cast<long>(length()); }
    /// The number of characters.
    size_t length() const { return IsHeap() ? HeapSize() : Control() & c_uSizeMask; }

    /// Puts c in front; the result is never null.
    void Prepend(char c);
    /// Removes up to count characters from pos on; throws std::out_of_range for a negative count or a pos
    /// outside 0..Length().
    void Remove(long pos, long count);
    /// Lower-cases the ASCII letters; other bytes stay as they are.
    void ToLower();

    /// The hash of every string-keyed container; the null and the empty string hash alike.
    static unsigned int Hash(const ZVTString& text);

    /// The characters, NUL-terminated; never nullptr ("" for the null string).
    operator const char*() const { return data(); }
    /// The characters, NUL-terminated; never nullptr (c_pcNull for the null string).
    const char* data() const { return IsHeap() ? HeapText() : IsNullString() ? c_pcNull : m_acBytes; }
    /// A copy of the characters as a standard string.
    std::string str() const { return std::string(view()); }
    /// The characters, valid until the string changes.
    std::string_view view() const { return std::string_view(data(), length()); }

    /// Appends the other's text; appending nothing leaves a null string null.
    ZVTString& operator+=(const ZVTString& other);
    /// Appends the text; nullptr counts as empty.
    ZVTString& operator+=(const char* text);
    /// Appends one character.
    ZVTString& operator+=(char c);

    /// Three-way comparison of the bytes as unsigned values: below, at or above 0.
    int compareTo(const ZVTString& other, caseCompare mode = exact) const;

private:
    // Sixteen bytes hold the text. The last says how: with c_uHeapBit the first eight point to a heap block
    // and the next four give the size; otherwise the text and its NUL lie inline, the size in the low bits.
    // c_uNullBit marks the null string (inline, empty). Fields are copied in and out, never punned.
    static constexpr unsigned char c_uHeapBit = 0x80, c_uNullBit = 0x40, c_uSizeMask = 0x0F;
    static constexpr std::size_t c_nControl = 15, c_nSizeAt = 8;

    unsigned char Control() const { return static_cast<unsigned char>(m_acBytes[c_nControl]); }
    bool IsHeap() const { return (Control() & c_uHeapBit) != 0; }
    char* HeapText() const {
        char* text;
        std::memcpy(&text, m_acBytes, sizeof text);
        return text;
    }
    std::uint32_t HeapSize() const {
        std::uint32_t size;
        std::memcpy(&size, m_acBytes + c_nSizeAt, sizeof size);
        return size;
    }
    char* Text() { return IsHeap() ? HeapText() : m_acBytes; }
    // Room for `count` characters and a NUL, the first `keep` characters kept; the size is the caller's.
    char* Reserve(size_t count, size_t keep);
    void SetSize(size_t count);
    void Assign(const char* text, size_t count);
    void Append(const char* text, size_t count);
    void Release() noexcept;
    void MakeNull() noexcept;

    alignas(char*) char m_acBytes[c_nControl + 1];
};

/// Exact equality; case counts and the null string equals the empty one.
MODELCORE_API bool operator==(const ZVTString& a, const ZVTString& b);
/// Exact equality with a C text; nullptr counts as empty.
MODELCORE_API bool operator==(const ZVTString& a, const char* b);
/// Exact equality with a C text; nullptr counts as empty.
MODELCORE_API bool operator==(const char* a, const ZVTString& b);
/// The negation of ==.
inline bool operator!=(const ZVTString& a, const ZVTString& b) {
    return !(a == b);
}
/// The negation of ==.
inline bool operator!=(const ZVTString& a, const char* b) {
    return !(a == b);
}
/// The negation of ==.
inline bool operator!=(const char* a, const ZVTString& b) {
    return !(a == b);
}
/// Exact byte order, so that a string can key an ordered container.
inline bool operator<(const ZVTString& a, const ZVTString& b) {
    return a.compareTo(b) < 0;
}
/// Exact byte order against a C text (spelled out so the implicit conversions do not clash).
inline bool operator<(const ZVTString& a, const char* b) {
    return a.compareTo(ZVTString(b)) < 0;
}
/// Exact byte order against a C text (spelled out so the implicit conversions do not clash).
inline bool operator<(const char* a, const ZVTString& b) {
    return ZVTString(a).compareTo(b) < 0;
}
/// Writes the characters; the null string writes nothing.
MODELCORE_API std::ostream& operator<<(std::ostream& out, const ZVTString& text);

#endif
