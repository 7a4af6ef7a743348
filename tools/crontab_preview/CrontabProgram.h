#pragma once

#include <cstddef>
#include <optional>
#include <string>

// What other programs of the machine are asked: crontab(1) and diff(1). All throw std::runtime_error if a process
// cannot be started. No file that has a name is made.

/// What `crontab -u NAME -l` says.
struct Listing {
    std::string text; ///< what it prints, which a run takes for the crontab, however it ends
    std::string stored; ///< the crontab itself, where that differs: some bytes are printed as two characters
    bool exists = false;
    bool forbidden = false; ///< the account may not use cron, and so crontab installs nothing for it either
    std::string failure; ///< why it could not be listed, for another reason than that there is none; else ""
};

Listing listCrontab(const std::string& account);

/// Why crontab would not install a text.
struct Refusal {
    std::size_t line; ///< the first one that it refuses, from 1
    std::string reason;
};

/// Asks crontab whether it would install a text, if it is one that can check a file without installing it.
class CrontabCheck {
public:
    CrontabCheck();

    /// Whether crontab can be asked; if not, refusal() finds nothing.
    bool possible() const { return m_option != nullptr; }

    std::optional<Refusal> refusal(const std::string& account, const std::string& text) const;

private:
    /// What crontab says against `text`; "" if it would take it.
    std::string complaint(const std::string& account, const std::string& text) const;

    const char* m_option; ///< of crontab, null if there is none
};

/// What turns `before` into `after`, as a unified diff for patch(1), with these names in its first two lines; "" if
/// they are equal. Throws std::runtime_error if diff fails.
std::string unifiedDiff(
    const std::string& before, const std::string& beforeName, const std::string& after, const std::string& afterName);
