/// What has to be known about a list before libplist may have it. libplist recurses as deep as a list is nested; copies
/// an object of a binary list as often as it is used, and looks through all the containers around it each time; takes
/// time in the square of the entities in a string; ends a string at U+0000, drops unpaired surrogates, and stops
/// decoding data and dates at a comment. Such a list could take the process down, or would say something else when it
/// has been read.

#ifndef ORV_CF_PLIST_SCAN_H
#define ORV_CF_PLIST_SCAN_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace OrvCF {

/// Containers within one another, for reading, writing and copying alike. At this depth libplist and the stand-in
/// together take less than 1 MB of stack.
constexpr size_t maxDepth = 1000;

/// Whether the text starts like a binary list.
bool isBinaryList(std::string_view bytes);

/// Whether libplist can read this binary list in time and memory proportional to its size, and without loss.
bool isHarmlessBinary(std::string_view bytes);

/// The XML list in a form that libplist reads to the same result in time proportional to its size; nothing if it has a
/// zero byte, is nested too deep, or has a comment or CDATA within data or a date. What is not well-formed comes back
/// as such.
std::optional<std::string> harmlessXml(std::string_view text);

} // namespace OrvCF

#endif
