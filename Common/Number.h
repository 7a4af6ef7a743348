#pragma once

#include <string>

namespace orv {

/// The decimal number at the start of `text`, after white space; 0 if there is none. A number beyond int is cut to its
/// low 32 bits, after one beyond long has become the nearest long. SqliteDb cuts integers in the same way.
int toInt(const std::string& text);

} // namespace orv
