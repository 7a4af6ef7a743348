#pragma once

#include "Preview.h"

#include <string>
#include <vector>

/// The two passes, by what a reader calls them.
enum class Pass { clean, rebuild };

/// How `pass` would change the crontab of `owner`, whole and byte for byte, for patch(1); "" if it would not.
std::string diffOf(const OwnerPreview& owner, Pass pass);

/// Everything about `owners` for a reader, in 80 columns: longer lines go on in the next one, only descriptions are
/// cut, and what is no text is made visible. With `colour`, with the terminal's colours.
std::string report(const std::vector<OwnerPreview>& owners, bool colour);
