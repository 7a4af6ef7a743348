#include "PassLock.h"

#include <filesystem>
#include <memory>

#include "Process.h"
#include "WorldTest.h"

using namespace support;

namespace {

class PassLockTest : public WorldTest {
protected:
    /// Whether another program could have the lock now.
    static bool free()
    {
        return runProgram({"/usr/bin/flock", "--exclusive", "--nonblock", scratchDirectory, "/bin/true"}).status == 0;
    }
};

TEST_F(PassLockTest, IsHeldAsLongAsItLives)
{
    {
        const PassLock lock;
        EXPECT_TRUE(lock.held());
        EXPECT_FALSE(free());
    }
    EXPECT_TRUE(free());
}

TEST_F(PassLockTest, LeavesNothingBehind)
{
    {
        const PassLock lock;
    }
    EXPECT_TRUE(std::filesystem::is_empty(scratchDirectory));
    EXPECT_TRUE(PassLock().held());
}

TEST_F(PassLockTest, IsNotInheritedByACommand)
{
    auto lock = std::make_unique<PassLock>();
    StartedProgram command({"/bin/sleep", "1000"});
    lock.reset();
    EXPECT_TRUE(free());
    kill(command.pid(), SIGKILL);
    command.wait();
}

TEST_F(PassLockTest, CannotBeHadWithoutTheScratchDirectory)
{
    std::filesystem::remove_all(scratchDirectory);
    EXPECT_FALSE(PassLock().held());
}

} // namespace
