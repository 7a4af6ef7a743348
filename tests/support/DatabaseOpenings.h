#pragma once

#include "Process.h"

#include <cstddef>
#include <string>
#include <vector>

namespace support {

/// Runs a program to its end. Returns how often it opened the task database.
std::size_t databaseOpenings(const std::vector<std::string>& command);

/// Runs a program. When it has opened the task database for the `opening`th time (from 1), and before it reads from it,
/// runs `sql`.
ProgramEnd runWithChange(const std::vector<std::string>& command, std::size_t opening, const std::string& sql);

} // namespace support
