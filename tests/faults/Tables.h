#pragma once

#include <string>
#include <vector>

namespace support {

using Rows = std::vector<std::string>;

bool contains(const Rows& rows, const std::string& row);

/// Whether `rows` can be what an operation has left that was to turn `before` into `after` by a statement of its own
/// and then the removal of tasks one by one: each of these done whole or not at all, the removals in their order.
bool isBetweenStatements(const Rows& rows, const Rows& before, const Rows& after);

} // namespace support
