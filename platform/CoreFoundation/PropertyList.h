/// What reads, writes and copies property lists. All of it throws bad_alloc, and Refused at what is no list or beyond
/// the limits of one.

#ifndef ORV_CF_PROPERTY_LIST_H
#define ORV_CF_PROPERTY_LIST_H

#include "CFContainers.h" // IWYU pragma: export
#include "CFValues.h" // IWYU pragma: export

#include <cstddef> // IWYU pragma: export
#include <cstdint> // IWYU pragma: export
#include <limits> // IWYU pragma: export
#include <string> // IWYU pragma: export
#include <string_view> // IWYU pragma: export
#include <utility> // IWYU pragma: export
#include <variant> // IWYU pragma: export

namespace OrvCF {

/// Containers within one another, for reading, writing and copying alike.
constexpr size_t maxDepth = 512;

/// Whether the bytes start like a binary list.
bool isBinaryList(std::string_view bytes);

Owned<const Object> readBinary(std::string_view bytes, Mutability mutability);
Owned<const Object> readXml(std::string_view text, Mutability mutability);

/// `list` must be a property list.
std::string writtenXml(const Object& list);

/// `list` must be a property list. Containers anew, all else retained: nothing can change it.
Owned<const Object> deepCopy(const Object& list, Mutability mutability);

/// Space, tab, line feed, carriage return: what may stand between elements.
constexpr std::string_view xmlSpaces = " \t\n\r";

// Reading the text of a value, by CoreFoundation's rules. Each throws Refused unless all of `text` is such a value.

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

// Writing it.

/// The text with & < > escaped. Throws Refused at U+0000 and unpaired surrogates.
void appendEscaped(std::string& to, std::u16string_view units);

void appendReal(std::string& to, double value);

/// The date, cut to whole seconds. Throws Refused beyond the years 0 to 9999.
void appendDate(std::string& to, double seconds);

void appendBase64(std::string& to, std::string_view bytes);

} // namespace OrvCF

#endif
