#include "PassLock.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/time.h>
#include <unistd.h>

#include "Process.h"
#include "WorldTest.h"

using namespace support;

namespace {

class PassLockTest : public WorldTest {
protected:
    /// Whether another program could have the lock now or, with "--timeout=SECONDS", within that time.
    static bool free(const char* wait = "--nonblock")
    {
        return runProgram({"/usr/bin/flock", "--exclusive", wait, scratchDirectory, "/bin/true"}).status == 0;
    }
};

TEST_F(PassLockTest, IsHeldAsLongAsItLives)
{
    {
        const orv::PassLock lock;
        EXPECT_TRUE(lock.held());
        EXPECT_FALSE(free());
    }
    EXPECT_TRUE(free());
}

TEST_F(PassLockTest, LeavesNoFile)
{
    {
        const orv::PassLock lock;
    }
    EXPECT_TRUE(std::filesystem::is_empty(scratchDirectory));
    EXPECT_TRUE(orv::PassLock().held());
}

TEST_F(PassLockTest, IsNotInheritedByACommand)
{
    auto lock = std::make_unique<orv::PassLock>();
    StartedProgram command({"/bin/sleep", "1000"});
    lock.reset();
    EXPECT_TRUE(free("--timeout=10")); // the command may not have closed its copy of the lock yet
    kill(command.pid(), SIGKILL);
    command.wait();
}

TEST_F(PassLockTest, IsHeldByACommandUntilItEndsIfTheProgramSaysSo)
{
    auto lock = std::make_unique<orv::PassLock>(orv::PassLock::Commands::hold);
    StartedProgram command({"/bin/sleep", "1000"});
    lock.reset();
    EXPECT_FALSE(free());
    kill(command.pid(), SIGKILL);
    command.wait();
    EXPECT_TRUE(free());
}

TEST_F(PassLockTest, IsHeldByACommandWhenStandardDescriptorsAreClosed)
{
    const auto lockedBeside = [](int descriptor) {
        const int kept = fcntl(descriptor, F_DUPFD_CLOEXEC, 10);
        close(descriptor);
        auto lock = std::make_unique<orv::PassLock>(orv::PassLock::Commands::hold);
        const bool untouched = fcntl(descriptor, F_GETFD) == -1;
        dup2(kept, descriptor);
        StartedProgram command({"/bin/sleep", "1000"}); // its standard descriptors are replaced
        lock.reset();
        const bool locked = !free();
        kill(command.pid(), SIGKILL);
        command.wait();
        close(kept);
        return untouched && locked;
    };
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        EXPECT_TRUE(lockedBeside(descriptor)) << descriptor;
}

volatile std::sig_atomic_t gSignals = 0;
const std::string heldFile = testDirectory + "held";

TEST_F(PassLockTest, KeepsWaitingWhenASignalComes)
{
    StartedProgram holder({"/usr/bin/flock", "--exclusive", scratchDirectory, "/bin/sh", "-c",
        "echo >" + heldFile + "; while [ -e " + heldFile + " ]; do sleep 0.01; done"});
    while (free()) { }
    struct sigaction action = {};
    action.sa_handler = [](int) {
        gSignals = gSignals + 1;
        if (gSignals == 3)
            unlink(heldFile.c_str()); // lets the holder go
    };
    sigaction(SIGALRM, &action, nullptr); // without SA_RESTART, so that the wait is broken off each time
    const itimerval often = {{0, 10000}, {0, 10000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_TRUE(orv::PassLock().held());
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GE(gSignals, 3);
}

TEST_F(PassLockTest, CannotBeTakenWithoutTheScratchDirectory)
{
    std::filesystem::remove_all(scratchDirectory);
    EXPECT_FALSE(orv::PassLock().held());
}

} // namespace
