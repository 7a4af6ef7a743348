#pragma once

#include "Constants.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace orv {

/// The right to edit crontabs, as long as it lives: OrvCronCleaner holds it for each run, and every program that calls
/// operations which read or install crontabs should. Two at once would install one user's jobs for another, because
/// the scratch files have fixed names.
///
/// It is a lock on the scratch directory itself, so it leaves nothing behind, whatever ends the program. A second lock
/// waits for the first, without a limit; also on the same thread, which then waits for ever.
class [[nodiscard]] PassLock {
public:
    /// What the commands that the program starts have of the lock.
    enum class Commands {
        none, ///< The lock ends with the program, even if a crontab command that the program started still runs.
        hold, ///< Each holds it too, until it has ended itself: for a program that starts nothing else meanwhile.
    };

    /// Waits until no other program, and no other PassLock of this one, has the lock.
    ///
    /// With Commands::hold, a program that is killed leaves the lock to the crontab commands that it has started, so no
    /// other program changes the scratch files under them. But so do all other programs that it starts meanwhile, on
    /// any thread: a task manager that createTask starts would keep the lock for as long as it runs. With
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

    /// False if the lock failed: there is no scratch directory, or this user may not open it. Without the directory no
    /// crontab is changed either.
    bool held() const { return m_held; }

private:
    static int openDirectory(int closeOnExec)
    {
        const int directory = open(tempPath.c_str(), O_RDONLY | O_DIRECTORY | closeOnExec);
        if (directory < 0 || directory > STDERR_FILENO)
            return directory;
        // A standard descriptor was closed. A command would get the lock for that one, and replace it by its own.
        const int moved = fcntl(directory, closeOnExec == 0 ? F_DUPFD : F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(directory);
        return moved;
    }

    const int m_directory;
    bool m_held;
};

} // namespace orv
