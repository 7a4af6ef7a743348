/// Strict conversion between UTF-8 and UTF-16: invalid text gives nothing.

#ifndef ORV_CF_UTF_H
#define ORV_CF_UTF_H

#include <cstddef> // IWYU pragma: export
#include <optional> // IWYU pragma: export
#include <string> // IWYU pragma: export
#include <string_view> // IWYU pragma: export

namespace OrvCF {

/// Nothing for overlong forms, surrogates, values beyond U+10FFFF and truncated sequences. One byte-order mark at the
/// front is dropped.
std::optional<std::u16string> utf16FromUtf8(std::string_view bytes);

/// Nothing if a surrogate is unpaired.
std::optional<std::string> utf8FromUtf16(std::u16string_view units);

void appendUtf8(std::string& bytes, char32_t value);

bool isAscii(std::string_view bytes);

/// Whether the unit is the first of a pair (D800 to DBFF), or the second (DC00 to DFFF).
constexpr bool isHighSurrogate(char32_t unit)
{
    return unit >= 0xd800 && unit < 0xdc00;
}
constexpr bool isLowSurrogate(char32_t unit)
{
    return unit >= 0xdc00 && unit < 0xe000;
}

/// Whether the number is a code point, and not a surrogate.
constexpr bool isCharacter(char32_t value)
{
    return value <= 0x10ffff && !isHighSurrogate(value) && !isLowSurrogate(value);
}

} // namespace OrvCF

#endif
