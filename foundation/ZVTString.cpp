#include "foundation/ZVTString.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
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

ZVTString::ZVTString() {
    MakeNull();
}

ZVTString::ZVTString(const char* text) {
    MakeNull();
    if (text != nullptr && text != c_pcNull)
        Assign(text, std::strlen(text));
}

ZVTString::ZVTString(const std::string& text) {
    MakeNull();
    Assign(text.data(), text.size());
}

ZVTString::ZVTString(long value, int radix) {
    MakeNull();
    const std::string text = NumberText(value, radix);
    Assign(text.data(), text.size());
}

ZVTString::ZVTString(const ZVTString& other) {
    if (!other.IsHeap()) {
        std::memcpy(m_acBytes, other.m_acBytes, sizeof m_acBytes);
        return;
    }
    MakeNull();
    Assign(other.HeapText(), other.HeapSize());
}

ZVTString::ZVTString(ZVTString&& other) noexcept {
    std::memcpy(m_acBytes, other.m_acBytes, sizeof m_acBytes);
    other.MakeNull();
}

ZVTString::~ZVTString() {
    Release();
}

ZVTString& ZVTString::operator=(const ZVTString& other) {
    if (this == &other)
        return *this;
    if (!other.IsHeap()) {
        Release();
        std::memcpy(m_acBytes, other.m_acBytes, sizeof m_acBytes);
    } else {
        Assign(other.HeapText(), other.HeapSize());
    }
    return *this;
}

ZVTString& ZVTString::operator=(ZVTString&& other) noexcept {
    if (this != &other) {
        Release();
        std::memcpy(m_acBytes, other.m_acBytes, sizeof m_acBytes);
        other.MakeNull();
    }
    return *this;
}

ZVTString& ZVTString::operator=(long value) {
    const std::string text = NumberText(value, 10);
    Assign(text.data(), text.size());
    return *this;
}

void ZVTString::MakeNull() noexcept {
    std::memset(m_acBytes, 0, sizeof m_acBytes);
    m_acBytes[c_nControl] = static_cast<char>(c_uNullBit);
}

void ZVTString::Release() noexcept {
    if (IsHeap())
        ::operator delete(HeapText() - sizeof(std::size_t));
}

char* ZVTString::Reserve(size_t count, size_t keep) {
    // The stored form gives a string a 32-bit length; a longer text could not be written back.
    if (count >= std::numeric_limits<std::uint32_t>::max())
        throw std::length_error("ZVTString: text too long");
    std::size_t capacity = c_nInline;
    if (IsHeap())
        std::memcpy(&capacity, HeapText() - sizeof capacity, sizeof capacity);
    if (count <= capacity)
        return Text();
    // Doubling keeps a string built a character at a time linear.
    const std::size_t grown = std::max(count, std::min<std::size_t>(2 * capacity, UINT32_MAX - 1));
    char* block = static_cast<char*>(::operator new(sizeof grown + grown + 1));
    std::memcpy(block, &grown, sizeof grown);
    char* text = block + sizeof grown;
    std::memcpy(text, data(), keep);
    const std::uint32_t size = static_cast<std::uint32_t>(keep);
    Release();
    std::memset(m_acBytes, 0, sizeof m_acBytes);
    std::memcpy(m_acBytes, &text, sizeof text);
    std::memcpy(m_acBytes + c_nSizeAt, &size, sizeof size);
    m_acBytes[c_nControl] = static_cast<char>(c_uHeapBit);
    return text;
}

void ZVTString::SetSize(size_t count) {
    if (IsHeap()) {
        const std::uint32_t size = static_cast<std::uint32_t>(count);
        std::memcpy(m_acBytes + c_nSizeAt, &size, sizeof size);
        HeapText()[count] = '\0';
    } else {
        m_acBytes[count] = '\0';
        m_acBytes[c_nControl] = static_cast<char>(count);
    }
}

void ZVTString::Assign(const char* text, size_t count) {
    char* room = Reserve(count, 0);
    std::memmove(room, text, count);
    SetSize(count);
}

void ZVTString::Prepend(char c) {
    const size_t size = length();
    char* text = Reserve(size + 1, size);
    std::memmove(text + 1, text, size);
    text[0] = c;
    SetSize(size + 1);
}

void ZVTString::Remove(long pos, long count) {
    if (pos < 0 || count < 0 || pos > Length())
        throw std::out_of_range("ZVTString::Remove: bad position");
    const size_t size = length();
    const size_t at = static_cast<size_t>(pos);
    const size_t gone = std::min(static_cast<size_t>(count), size - at);
    if (gone == 0)
        return;
    char* text = Text();
    std::memmove(text + at, text + at + gone, size - at - gone);
    SetSize(size - gone);
}

void ZVTString::ToLower() {
    char* text = Text();
    for (size_t i = 0, size = length(); i < size; ++i)
        text[i] = AsciiLower(text[i]);
}

unsigned int ZVTString::Hash(const ZVTString& text) {
    // 32-bit FNV-1a: cheap, and the containers mix the result again.
    std::uint32_t hash = 2166136261u;
    for (unsigned char c : text.view()) {
        hash ^= c;
        hash *= 16777619u;
    }
    return hash;
}

void ZVTString::Append(const char* text, size_t count) {
    if (count == 0)
        return;
    const size_t size = length();
    // The text may be this string's own, which a new block would leave behind.
    const char* own = data();
    const bool inside = text >= own && text < own + size + 1;
    const size_t offset = inside ? static_cast<size_t>(text - own) : 0;
    char* room = Reserve(size + count, size);
    std::memmove(room + size, inside ? room + offset : text, count);
    SetSize(size + count);
}

ZVTString& ZVTString::operator+=(const ZVTString& other) {
    Append(other.data(), other.length());
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
    const std::string_view mine = view(), theirs = other.view();
    if (mode == exact) {
        const int order = mine.compare(theirs);
        return (order > 0) - (order < 0);
    }
    const size_t common = std::min(mine.size(), theirs.size());
    for (size_t i = 0; i < common; ++i) {
        const unsigned char a = static_cast<unsigned char>(AsciiLower(mine[i]));
        const unsigned char b = static_cast<unsigned char>(AsciiLower(theirs[i]));
        if (a != b)
            return a < b ? -1 : 1;
    }
    if (mine.size() == theirs.size())
        return 0;
    return mine.size() < theirs.size() ? -1 : 1;
}

bool operator==(const ZVTString& a, const ZVTString& b) {
    return a.view() == b.view();
}

bool operator==(const ZVTString& a, const char* b) {
    return a.view() == std::string_view(b != nullptr ? b : "");
}

bool operator==(const char* a, const ZVTString& b) {
    return b == a;
}

std::ostream& operator<<(std::ostream& out, const ZVTString& text) {
    return out.write(text.data(), static_cast<std::streamsize>(text.length()));
}
