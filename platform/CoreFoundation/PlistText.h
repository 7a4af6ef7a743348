/// The text of values in an XML list, read and written by CoreFoundation's rules.

#ifndef ORV_CF_PLIST_TEXT_H
#define ORV_CF_PLIST_TEXT_H

#include "CFValues.h"

#include <string>
#include <string_view>

namespace OrvCF {

/// Thrown at what is no property list, or beyond the limits of one.
struct Refused { };

inline void require(bool condition)
{
    if (!condition)
        throw Refused();
}

/// Space, tab, line feed, carriage return: what may stand between elements.
constexpr std::string_view xmlSpaces = " \t\n\r";

// Reading. Each throws Refused unless all of `text` is such a value.

/// Appends `text` with its references (&amp; &#38; &#x26;) decoded. The bytes are not checked otherwise.
void appendDecoded(std::string& bytes, std::string_view text);

/// A decimal integer, or a hexadecimal one after 0x, from -2^63 to 2^64 - 1.
OrvCFNumber::Value integerFrom(std::string_view text);

/// A decimal number, nan, or an infinity. One that is too large is infinite, whatever the locale says of commas.
double realFrom(std::string_view text);

/// The seconds since 2001 of YYYY-MM-DDThh:mm:ssZ. A month may have 31 days: the last ones roll over.
double secondsFrom(std::string_view text);

/// The bytes that base64 stands for. Other characters are skipped, and so is an incomplete group at the end.
std::string bytesFrom(std::string_view text);

// Writing.

/// The text with & < > escaped. Throws Refused at U+0000 and unpaired surrogates.
void appendEscaped(std::string& to, std::u16string_view units);

void appendReal(std::string& to, double value);

/// The date, cut to whole seconds. Throws Refused beyond the years 0 to 9999.
void appendDate(std::string& to, double seconds);

void appendBase64(std::string& to, std::string_view bytes);

} // namespace OrvCF

#endif
