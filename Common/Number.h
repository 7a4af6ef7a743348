#pragma once

#include <string_view>

namespace orv {

/// The number that `text` begins with, read as atoi does: white space is skipped, then an optional sign and decimal
/// digits up to the first other character; no digits give 0. A number beyond the range of int gives the nearest int:
/// atoi is undefined there, and the task id 4294967308 must not become 12.
int toInt(std::string_view text);

} // namespace orv
