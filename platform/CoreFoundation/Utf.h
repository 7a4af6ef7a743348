/// Between UTF-8 and UTF-16, strictly: what is not valid gives nothing.

#ifndef ORV_CF_UTF_H
#define ORV_CF_UTF_H

#include <optional>
#include <string>
#include <string_view>

namespace OrvCF {

/// Nothing for overlong forms, surrogates, values beyond U+10FFFF and truncated sequences.
std::optional<std::u16string> utf16FromUtf8(std::string_view bytes);

/// Nothing if a surrogate is unpaired.
std::optional<std::string> utf8FromUtf16(std::u16string_view units);

/// Whether libplist can carry the text: its strings are UTF-8 and end at U+0000, so there may be neither that nor an
/// unpaired surrogate.
bool isWritableText(std::u16string_view units);

/// The first unit of a pair (D800 to DBFF), the second (DC00 to DFFF).
constexpr bool isHighSurrogate(char32_t unit)
{
    return unit >= 0xd800 && unit < 0xdc00;
}
constexpr bool isLowSurrogate(char32_t unit)
{
    return unit >= 0xdc00 && unit < 0xe000;
}

} // namespace OrvCF

#endif
