#include "foundation/ZVTString.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <stdexcept>

namespace {

// Its address, not its text, marks the null string.
const char s_acNull[] = "";

char AsciiLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string NumberText(long value, int radix) {
    if (radix < 2 || radix > 36)
        radix = 10;
    char buffer[72];  // 64 binary digits and a sign fit
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value, radix);
    return std::string(buffer, result.ptr);
}

}  // namespace

const char* const ZVTString::c_pcNull = s_acNull;

ZVTString::ZVTString() : m_bNull(true) {}

ZVTString::ZVTString(const char* text) : m_bNull(text == nullptr || text == c_pcNull) {
    if (!m_bNull)
        m_xText = text;
}

ZVTString::ZVTString(const std::string& text) : m_xText(text), m_bNull(false) {}

ZVTString::ZVTString(long value, int radix) : m_xText(NumberText(value, radix)), m_bNull(false) {}

ZVTString::ZVTString(const ZVTString& other) = default;

ZVTString::ZVTString(ZVTString&& other) noexcept : m_xText(std::move(other.m_xText)), m_bNull(other.m_bNull) {
    other.m_xText.clear();
    other.m_bNull = true;
}

ZVTString::~ZVTString() = default;

ZVTString& ZVTString::operator=(const ZVTString& other) = default;

ZVTString& ZVTString::operator=(ZVTString&& other) noexcept {
    if (this != &other) {
        m_xText = std::move(other.m_xText);
        m_bNull = other.m_bNull;
        other.m_xText.clear();
        other.m_bNull = true;
    }
    return *this;
}

ZVTString& ZVTString::operator=(long value) {
    m_xText = NumberText(value, 10);
    m_bNull = false;
    return *this;
}

void ZVTString::Prepend(char c) {
    m_xText.insert(m_xText.begin(), c);
    m_bNull = false;
}

void ZVTString::Remove(long pos, long count) {
    if (pos < 0 || count < 0 || pos > Length())
        throw std::out_of_range("ZVTString::Remove: bad position");
    m_xText.erase(static_cast<size_t>(pos), static_cast<size_t>(count));
}

void ZVTString::ToLower() {
    for (char& c : m_xText)
        c = AsciiLower(c);
}

unsigned int ZVTString::Hash(const ZVTString& text) {
    // 32-bit FNV-1a: cheap, and the containers mix the result again.
    std::uint32_t hash = 2166136261u;
    for (unsigned char c : text.m_xText) {
        hash ^= c;
        hash *= 16777619u;
    }
    return hash;
}

void ZVTString::Append(const char* text, size_t count) {
    if (count == 0)
        return;
    m_xText.append(text, count);
    m_bNull = false;
}

ZVTString& ZVTString::operator+=(const ZVTString& other) {
    Append(other.m_xText.data(), other.m_xText.size());
    return *this;
}

ZVTString& ZVTString::operator+=(const char* text) {
    if (text != nullptr)
        Append(text, std::strlen(text));
    return *this;
}

ZVTString& ZVTString::operator+=(char c) {
    Append(&c, 1);
    return *this;
}

int ZVTString::compareTo(const ZVTString& other, caseCompare mode) const {
    if (mode == exact)
        return m_xText.compare(other.m_xText);
    const size_t common = std::min(m_xText.size(), other.m_xText.size());
    for (size_t i = 0; i < common; ++i) {
        const unsigned char a = static_cast<unsigned char>(AsciiLower(m_xText[i]));
        const unsigned char b = static_cast<unsigned char>(AsciiLower(other.m_xText[i]));
        if (a != b)
            return a < b ? -1 : 1;
    }
    if (m_xText.size() == other.m_xText.size())
        return 0;
    return m_xText.size() < other.m_xText.size() ? -1 : 1;
}

bool operator==(const ZVTString& a, const ZVTString& b) {
    return a.str() == b.str();
}

bool operator==(const ZVTString& a, const char* b) {
    return a.str() == (b != nullptr ? b : "");
}

bool operator==(const char* a, const ZVTString& b) {
    return b == a;
}

std::ostream& operator<<(std::ostream& out, const ZVTString& text) {
    return out.write(text.data(), static_cast<std::streamsize>(text.length()));
}
