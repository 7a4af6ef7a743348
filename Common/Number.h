#pragma once

#include <string>

namespace orv {

/// The number that `text` begins with: white space is skipped, then an optional sign and decimal digits up to the first
/// other character; no digits give 0. Of a number beyond the range of int, the low 32 bits; of one beyond the range of
/// long, those of the nearest long. SqliteDb cuts integers in the same way, so lists and records agree.
int toInt(const std::string& text);

} // namespace orv
