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
    /// Whether the commands that the program starts inherit the lock.
    enum class Commands {
        none, ///< The lock ends with the program, even while a crontab command that it started still runs.
        hold, ///< The lock lasts until those commands have ended too.
    };

    /// Waits until no other PassLock exists, in this program or another.
    ///
    /// Commands::hold is for a program that starts nothing but crontab commands. If it is killed, its last command
    /// keeps the lock, so no other program changes the scratch files under it. But every program started meanwhile, on
    /// any thread, keeps the lock: a task manager that createTask starts would do so as long as it runs. With
    /// Commands::none, a killed program's crontab command can install a file that another program has just written.
    [[nodiscard]] explicit PassLock(Commands commands = Commands::none)
        : m_directory(openDirectory(commands == Commands::hold ? 0 : O_CLOEXEC))
    {
        int locked = -1;
        while (m_directory >= 0 && (locked = flock(m_directory, LOCK_EX)) != 0 && errno == EINTR) { }
        m_held = locked == 0;
    }

    PassLock(const PassLock&) = delete;
    PassLock& operator=(const PassLock&) = delete;

    ~PassLock()
    {
        if (m_directory >= 0)
            close(m_directory);
    }

    /// False if the lock failed: the scratch directory does not exist, or this user may not open it. If it does not
    /// exist, no crontab is changed either.
    bool held() const { return m_held; }

private:
    static int openDirectory(int closeOnExec)
    {
        const int directory = open(tempPath.c_str(), O_RDONLY | O_DIRECTORY | closeOnExec);
        if (directory < 0 || directory > STDERR_FILENO)
            return directory;
        // A standard descriptor was closed, and the lock got its number: a command would replace it by its own.
        const int moved = fcntl(directory, closeOnExec == 0 ? F_DUPFD : F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(directory);
        return moved;
    }

    const int m_directory;
    bool m_held;
};

} // namespace orv
