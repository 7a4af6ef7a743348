#include "SystemTest.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

using namespace support;

// Two runs at the same time.
namespace {

const std::string backup = "0 1 * * * /bin/backup\n";
const std::string report = "30 6 * * 1 /bin/report --all\n";
const std::string go = testDirectory + "go";
const std::string waiting = testDirectory + "waiting";
const std::string gone = testDirectory + "gone";
// A crontab command that does not go on before it is told to, or for a minute if nobody is left to tell it.
const std::string waitForGo = ": >" + waiting + "; turn=0; while [ ! -e " + go + " ] && [ $turn -lt 6000 ]; do"
    + " turn=$((turn + 1)); sleep 0.01; done; : >" + gone;
const Calls oneClean = {"-u anna -l", "-u anna " + filteredCopy};

class Overlap : public SystemTest { };

class OverlapRecorded : public RecordedSystemTest {
protected:
    void SetUp() override
    {
        RecordedSystemTest::SetUp();
        addTask({3, anna});
        setCrontab("anna", backup + taskLine("0 3 * * *", 3));
    }
};

/// The kernel's list of locks shows who waits: "12: -> FLOCK  ADVISORY  WRITE 4711 ...".
bool waitsForALock(pid_t process)
{
    std::istringstream locks(readFile("/proc/locks"));
    for (std::string line; std::getline(locks, line);)
        if (line.find("-> FLOCK") != std::string::npos
            && line.find(" " + std::to_string(process) + " ") != std::string::npos)
            return true;
    return false;
}

/// Waits until the condition holds. A test that waits in vain ends by CTest's time limit.
template <typename Condition> void waitUntil(const Condition& condition)
{
    while (!condition())
        usleep(1000);
}

/// Holds the scratch directory as a run of the program does.
class ScratchLock {
public:
    ScratchLock()
        : m_directory(open(scratchDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (m_directory < 0 || flock(m_directory, LOCK_EX | LOCK_NB) != 0)
            throw std::runtime_error("the scratch directory cannot be locked");
    }
    ~ScratchLock() { close(m_directory); }
    ScratchLock(const ScratchLock&) = delete;
    ScratchLock& operator=(const ScratchLock&) = delete;

private:
    int m_directory;
};

} // namespace

TEST_F(OverlapRecorded, ASecondRunWaitsForTheFirstToEnd)
{
    onCrontabCall(waitForGo);
    StartedProgram first({program});
    waitUntil([&] { return std::filesystem::exists(waiting) || !first.running(); });
    StartedProgram second({program, "x"});
    waitUntil([&] { return waitsForALock(second.pid()) || crontabCalls().size() > 1 || !second.running(); });
    EXPECT_EQ(Calls{"-u anna -l"}, crontabCalls());
    writeFile(go, "");
    EXPECT_EQ(0, first.wait().status);
    EXPECT_EQ(0, second.wait().status);
    EXPECT_EQ((Calls{"-u anna -l", "-u anna " + filteredCopy, "-u anna -l", "-u anna " + crontabCopy}), crontabCalls());
    EXPECT_EQ(backup + taskLine("0 3 * * *", 3), crontabOf("anna"));
}

TEST_F(OverlapRecorded, ACleanAndARebuildWaitForWhoeverHoldsTheScratchDirectory)
{
    for (const auto& arguments : {std::vector<std::string>{program}, std::vector<std::string>{program, "x"}}) {
        auto lock = std::make_unique<ScratchLock>();
        StartedProgram run(arguments);
        waitUntil([&] { return waitsForALock(run.pid()) || !run.running(); });
        EXPECT_TRUE(run.running());
        lock.reset();
        EXPECT_EQ(0, run.wait().status);
    }
    EXPECT_EQ(4u, crontabCalls().size());
}

TEST_F(OverlapRecorded, TheLockMakesNoFile)
{
    onCrontabCall("ls -A " + scratchDirectory + " | tr '\\n' ' ' >>" + testDirectory + "seen");
    clean();
    // While it is listed, the copy may be there already or not.
    const std::string seen = readFile(testDirectory + "seen");
    EXPECT_TRUE(seen == "crontemp.txt temp2.txt " || seen == "crontemp.txt crontemp.txt temp2.txt ") << seen;
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(OverlapRecorded, ARunThatCannotLockTheScratchDirectoryGoesOn)
{
    ASSERT_EQ(0, runProgram({"/bin/rmdir", scratchDirectory}).status);
    clean();
    EXPECT_EQ(oneClean, crontabCalls());
}

TEST_F(OverlapRecorded, AKilledRunKeepsNobodyWaiting)
{
    onCrontabCall(waitForGo);
    StartedProgram killed({program});
    waitUntil([&] { return std::filesystem::exists(waiting) || !killed.running(); });
    kill(killed.pid(), SIGKILL);
    EXPECT_EQ(SIGKILL, killed.wait().signal);
    onCrontabCall(":"); // its crontab command still waits and must not hold the lock
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(Files{}, scratchFiles());
    writeFile(go, "");
    waitUntil([] { return std::filesystem::exists(gone); });
}

TEST_F(Overlap, ManyRunsAtOnceNeverMixCrontabs)
{
    const std::vector<std::string> names = {"anna", "ben", "carla"};
    for (int user = 0; user < 3; ++user) {
        addTask({10 + user, anna + user});
        setCrontab(names.at(static_cast<size_t>(user)), "0 1 * * * /bin/job-of-" + std::to_string(user) + "\n");
    }
    std::vector<std::unique_ptr<StartedProgram>> runs;
    for (int run = 0; run < 8; ++run)
        runs.push_back(std::make_unique<StartedProgram>(std::vector<std::string>{program, "x"}));
    for (const auto& run : runs)
        EXPECT_EQ("", run->wait().errors);
    for (int user = 0; user < 3; ++user) {
        std::string expected = "0 1 * * * /bin/job-of-" + std::to_string(user) + "\n";
        for (int run = 0; run < 8; ++run)
            expected += taskLine("0 3 * * *", 10 + user);
        EXPECT_EQ(expected, crontabOf(names.at(static_cast<size_t>(user))));
    }
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Overlap, CleansAndRebuildsAtOnceLeaveEveryForeignJob)
{
    addTask({3, anna});
    addTask({4, ben});
    setCrontab("anna", backup);
    setCrontab("ben", report);
    std::vector<std::unique_ptr<StartedProgram>> runs;
    for (int run = 0; run < 8; ++run)
        runs.push_back(std::make_unique<StartedProgram>(
            run % 2 == 0 ? std::vector<std::string>{program} : std::vector<std::string>{program, "x"}));
    for (const auto& run : runs)
        EXPECT_EQ("", run->wait().errors);
    clean(); // whatever order they came in
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(report, crontabOf("ben"));
}
