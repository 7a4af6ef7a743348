#pragma once

#include <string>
#include <vector>

/// The lines of `text`, each with its line feed; the last one without, if it has none.
std::vector<std::string> linesOf(const std::string& text);

/// What turns `before` into `after`, as a unified diff with three lines of context that patch(1) takes; "" if they are
/// equal. The two names go into its first two lines.
std::string unifiedDiff(
    const std::string& before, const std::string& beforeName, const std::string& after, const std::string& afterName);
