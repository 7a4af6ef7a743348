#pragma once

#include "Constants.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace orv {

/// Held while crontabs are edited. OrvCronCleaner holds one for each run; so should every program that reads or
/// installs crontabs through TaskEditor. The scratch files have fixed names: two programs at once would install one
/// user's jobs for another.
///
/// It locks the scratch directory itself, so a killed program leaves no lock file. A second PassLock waits for the
/// first without a limit; on the same thread, that is for ever.
class [[nodiscard]] PassLock {
public:
    /// Whether the commands that the program starts inherit the lock. `hold` is for a program that starts nothing but
    /// crontab commands: a task manager that createTask starts, on any thread, would keep the lock as long as it runs.
    enum class Commands {
        none, ///< No. A crontab command that outlives its killed program can install another program's scratch file.
        hold, ///< Yes: the lock lasts until they have ended, too.
    };

    /// Waits until no other PassLock exists, in this program or another.
    [[nodiscard]] explicit PassLock(Commands commands = Commands::none)
        : m_directory(openDirectory(commands == Commands::hold ? 0 : O_CLOEXEC))
    {
        do
            m_held = m_directory >= 0 && flock(m_directory, LOCK_EX) == 0;
        while (!m_held && m_directory >= 0 && errno == EINTR);
    }

    PassLock(const PassLock&) = delete;
    PassLock& operator=(const PassLock&) = delete;

    ~PassLock()
    {
        if (m_directory >= 0)
            close(m_directory);
    }

    /// False if the scratch directory cannot be opened or locked. If it does not exist, no crontab is changed either.
    bool held() const { return m_held; }

private:
    static int openDirectory(int closeOnExec)
    {
        const int directory = open(tempPath.c_str(), O_RDONLY | O_DIRECTORY | closeOnExec);
        if (directory < 0 || directory > STDERR_FILENO)
            return directory;
        // Never 0, 1 or 2, even if they are closed: a command would replace the lock with its own input or output.
        const int moved = fcntl(directory, closeOnExec == 0 ? F_DUPFD : F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(directory);
        return moved;
    }

    const int m_directory;
    bool m_held;
};

} // namespace orv
