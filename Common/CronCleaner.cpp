#include "CronCleaner.h"

#include "Constants.h"
#include "TaskEditor.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

// Two passes at once would install one user's jobs for another, because the scratch files have fixed names. The lock is
// on their directory itself, so that it leaves nothing behind; a run that cannot have it goes on without.
class PassLock {
public:
    PassLock()
        : m_directory(open(tempPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        while (m_directory >= 0 && flock(m_directory, LOCK_EX) != 0 && errno == EINTR) { }
    }

    PassLock(const PassLock&) = delete;
    PassLock& operator=(const PassLock&) = delete;

    ~PassLock()
    {
        if (m_directory >= 0)
            close(m_directory);
    }

private:
    const int m_directory;
};

void runPass(bool rebuild)
{
    SqliteDb::setUpForOneThread();
    TaskEditor* editor = TaskEditor::getInstance();
    const PassLock lock;
    if (rebuild)
        editor->putCronFromDB();
    else
        editor->cleanCron();
}

} // namespace

int main(int argc, char**)
{
    try {
        runPass(argc >= 2); // any argument at all
    } catch (...) {
        std::signal(SIGPIPE, SIG_IGN); // nobody may be reading; nothing is run from here on
        std::fputs("Exception while cleaning cron", stdout); // without a line break, as it has always been
        std::fflush(stdout);
    }
    return 0;
}
