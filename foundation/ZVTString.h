#ifndef ZVTSTRING_H
#define ZVTSTRING_H

#include <cstddef>
#include <iosfwd>
#include <string>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"

/// A text of 8-bit characters that also knows a null state, distinct from (but equal to) the empty text.
class MODELCORE_API ZVTString {
public:
    /// How compareTo treats letters: exactly, or ignoring ASCII case.
    enum caseCompare { exact, ignoreCase };

    /// The text of the null string; a ZVTString made from this very pointer is null.
    static const char* const c_pcNull;

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
    ZVTBoolean IsNull() const { return m_xText.empty(); }
    /// True only for the null string itself.
    ZVTBoolean IsNullString() const { return m_bNull; }
    /// The number of characters.
    long Length() const { return static_cast<long>(m_xText.size()); }
    /// The number of characters.
    size_t length() const { return m_xText.size(); }

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
    const char* data() const { return m_bNull ? c_pcNull : m_xText.c_str(); }
    /// The characters as a standard string.
    const std::string& str() const { return m_xText; }

    /// Appends the other's text; appending nothing leaves a null string null.
    ZVTString& operator+=(const ZVTString& other);
    /// Appends the text; nullptr counts as empty.
    ZVTString& operator+=(const char* text);
    /// Appends one character.
    ZVTString& operator+=(char c);

    /// Three-way comparison of the bytes as unsigned values: below, at or above 0.
    int compareTo(const ZVTString& other, caseCompare mode = exact) const;

private:
    void Append(const char* text, size_t count);

    std::string m_xText;
    ZVTBoolean m_bNull;
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
