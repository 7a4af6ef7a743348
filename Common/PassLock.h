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
/// It is a lock on the scratch directory itself, so that it leaves nothing behind, whatever ends the program. Not to
/// be had twice at once, not even in one thread: the second would wait for the first for ever.
class PassLock {
public:
    /// Waits until no other program, and no other PassLock of this one, has it.
    PassLock()
        : m_directory(open(tempPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
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

    /// False if it could not be had: there is no scratch directory, or this user may not open it. Without the directory
    /// no crontab is changed either.
    bool held() const { return m_held; }

private:
    const int m_directory;
    bool m_held;
};

} // namespace orv
