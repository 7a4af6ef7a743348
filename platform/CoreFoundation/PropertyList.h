/// Reads, writes and copies property lists. All functions may throw bad_alloc, and Refused for anything that is not a
/// list or exceeds the limits of one.

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

/// The most containers within one another, for reading, writing and copying.
constexpr size_t maxDepth = 512;

/// Whether the bytes begin like a binary list.
bool isBinaryList(std::string_view bytes);

Owned<const Object> readBinary(std::string_view bytes, Mutability mutability);
Owned<const Object> readXml(std::string_view text, Mutability mutability);

/// `list` must be a property list.
std::string writtenXml(const Object& list);

/// `list` must be a property list. Its containers are copied. All other objects are immutable, and are retained.
Owned<const Object> deepCopy(const Object& list, Mutability mutability);

// These read the text of a value by CoreFoundation's rules, and throw Refused unless all of `text` is such a value.

/// Appends `text` with its references (&amp; &#38; &#x26;) decoded. Checks nothing else.
void appendDecoded(std::string& bytes, std::string_view text);

/// A decimal integer, or a hexadecimal one after 0x, from -2^63 to 2^64 - 1.
OrvCFNumber::Value integerFrom(std::string_view text);

/// A decimal number with a point, whatever the locale, or nan or an infinity. A number that is too large is infinite.
double realFrom(std::string_view text);

/// The seconds from 2001 to YYYY-MM-DDThh:mm:ssZ. Any month may have a day 31: April 31 is May 1.
double secondsFrom(std::string_view text);

/// The bytes of a base64 text. Other characters are skipped, and so is an incomplete group at the end.
std::string bytesFrom(std::string_view text);

// These write the text of a value.

/// Appends the text with & < > escaped. Throws Refused for U+0000 and unpaired surrogates.
void appendEscaped(std::string& to, std::u16string_view units);

void appendReal(std::string& to, double value);

/// Appends the date, cut to whole seconds. Throws Refused beyond the years 0 to 9999.
void appendDate(std::string& to, double seconds);

void appendBase64(std::string& to, std::string_view bytes);

} // namespace OrvCF

#endif
