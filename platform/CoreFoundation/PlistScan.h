/// What has to be known about a list before libplist may have it. libplist recurses as deep as a list is nested, copies
/// an object of a binary list as often as it is used, takes time in the square of the entities in a string, ends a
/// string at U+0000 and drops unpaired surrogates: harmless lists apart, each would take the process down or change
/// what was said.

#ifndef ORV_CF_PLIST_SCAN_H
#define ORV_CF_PLIST_SCAN_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace OrvCF {

/// Containers within one another, for reading, writing and copying alike. At this depth libplist and the stand-in
/// together take about 2 MB of stack.
constexpr size_t maxDepth = 2000;

/// Whether the text starts like a binary list.
bool isBinaryList(std::string_view bytes);

/// Whether libplist can read this binary list in time and memory proportional to its size, and without loss.
bool isHarmlessBinary(std::string_view bytes);

/// The XML list in a form that libplist reads to the same result in time proportional to its size; nothing if it has a
/// zero byte or is nested too deep. What is not well-formed comes back as such.
std::optional<std::string> harmlessXml(std::string_view text);

} // namespace OrvCF

#endif
