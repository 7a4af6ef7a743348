#pragma once

#include <cstddef>
#include <optional>
#include <string>

// Asks crontab(1) and diff(1). All of this throws std::runtime_error if it can start no process or write no temporary
// file. Temporary files have no name.

/// What `crontab -u NAME -l` says.
struct Listing {
    std::string text; ///< its output; a run takes that for the crontab even if the command fails
    std::string stored; ///< the crontab as it is in its file; crontab prints some control characters as two characters
    bool exists = false;
    bool forbidden = false; ///< cron.allow or cron.deny forbids it, so crontab installs nothing for this user either
    std::string failure; ///< why there is no listing, if the user has a crontab and may use cron; else ""
};

Listing listCrontab(const std::string& account);

/// Why crontab refuses to install a text.
struct Refusal {
    std::size_t line; ///< number of the first line that it refuses, from 1
    std::string reason;
};

/// Asks crontab whether it would install a text. Not every crontab can check a file without installing it.
class CrontabCheck {
public:
    CrontabCheck();

    /// Whether this crontab can. If not, refusal() returns nothing.
    bool possible() const { return m_option != nullptr; }

    std::optional<Refusal> refusal(const std::string& account, const std::string& text) const;

private:
    /// The first line of crontab's message about `text`; "" if it accepts the text.
    std::string complaint(const std::string& account, const std::string& text) const;

    const char* m_option; ///< crontab's option for a check; null if it has none
};

/// The unified diff from `before` to `after`, with these names in its first two lines; "" if the texts are equal.
/// Throws std::runtime_error if diff fails.
std::string unifiedDiff(
    const std::string& before, const std::string& beforeName, const std::string& after, const std::string& afterName);
