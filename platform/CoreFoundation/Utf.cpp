#include "Utf.h"

#include <algorithm>

namespace OrvCF {
namespace {

constexpr char32_t firstBeyondBmp = 0x10000;
constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

/// The number of bytes in a sequence with this first byte; 0 if no sequence begins with it.
size_t sequenceLength(unsigned char first)
{
    if (first < 0x80)
        return 1;
    if (first < 0xc2) // continuation bytes, and first bytes of overlong forms only
        return 0;
    return first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf5 ? 4 : 0;
}

/// Takes one code point off the front of `bytes`; nothing if there is no valid one.
std::optional<char32_t> takeCodePoint(std::string_view& bytes)
{
    const auto first = static_cast<unsigned char>(bytes.front());
    const size_t length = sequenceLength(first);
    if (length == 0 || length > bytes.size())
        return std::nullopt;
    char32_t value = length == 1 ? first : first & (0x7fU >> length);
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(bytes[i]);
        if ((next & 0xc0) != 0x80)
            return std::nullopt;
        value = value << 6 | (next & 0x3f);
    }
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < firstBeyondBmp);
    if (overlong || !isCharacter(value))
        return std::nullopt;
    bytes.remove_prefix(length);
    return value;
}

void appendUtf16(std::u16string& units, char32_t value)
{
    if (value < firstBeyondBmp) {
        units += static_cast<char16_t>(value);
        return;
    }
    units += static_cast<char16_t>(0xd800 + ((value - firstBeyondBmp) >> 10));
    units += static_cast<char16_t>(0xdc00 + ((value - firstBeyondBmp) & 0x3ff));
}

/// Takes one code point off the front of `units`; nothing if it is an unpaired surrogate.
std::optional<char32_t> takeCodePoint(std::u16string_view& units)
{
    const char32_t first = units.front();
    units.remove_prefix(1);
    if (!isHighSurrogate(first))
        return isLowSurrogate(first) ? std::nullopt : std::optional(first);
    if (units.empty() || !isLowSurrogate(units.front()))
        return std::nullopt;
    const char32_t second = units.front();
    units.remove_prefix(1);
    return firstBeyondBmp + ((first - 0xd800) << 10) + (second - 0xdc00);
}

} // namespace

bool isAscii(std::string_view bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

void appendUtf8(std::string& bytes, char32_t value)
{
    if (value < 0x80) {
        bytes += static_cast<char>(value);
        return;
    }
    const unsigned more = value < 0x800 ? 1 : value < firstBeyondBmp ? 2 : 3; // bytes, of six bits each
    bytes += static_cast<char>(0xff80U >> more | value >> 6 * more);
    for (unsigned left = more; left-- > 0;)
        bytes += static_cast<char>(0x80 | (value >> 6 * left & 0x3f));
}

std::optional<std::u16string> utf16FromUtf8(std::string_view bytes)
{
    if (bytes.substr(0, byteOrderMark.size()) == byteOrderMark)
        bytes.remove_prefix(byteOrderMark.size());
    std::u16string units;
    units.reserve(bytes.size());
    while (!bytes.empty()) {
        const auto value = takeCodePoint(bytes);
        if (!value)
            return std::nullopt;
        appendUtf16(units, *value);
    }
    return units;
}

std::optional<std::string> utf8FromUtf16(std::u16string_view units)
{
    std::string bytes;
    bytes.reserve(units.size());
    while (!units.empty()) {
        const auto value = takeCodePoint(units);
        if (!value)
            return std::nullopt;
        appendUtf8(bytes, *value);
    }
    return bytes;
}

} // namespace OrvCF
