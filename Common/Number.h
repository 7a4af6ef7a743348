#pragma once

#include <string>

namespace orv {

/// The decimal number at the start of `text`, as strtol reads it; 0 if there is none. A number beyond int is cut to its
/// low 32 bits, as in SqliteDb.
int toInt(const std::string& text);

} // namespace orv
