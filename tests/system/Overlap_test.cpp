#include "SystemTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

using namespace support;

// Two runs at the same time.
namespace {

const std::string go = testDirectory + "go";
const std::string waiting = testDirectory + "waiting";
const std::string gone = testDirectory + "gone";
// Makes a crontab command wait until it is told to go, or for a minute if nobody is left to tell it.
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
        setCrontab("anna", backup + taskLine(3));
    }
};

/// Asks the kernel which system call the process is in. Its list of locks would not do: in a process namespace, that
/// leaves out a lock whose first owner was killed, and everybody who waits for it.
bool waitsForALock(pid_t process)
{
    const std::string call = std::to_string(SYS_flock) + " ";
    return readFile("/proc/" + std::to_string(process) + "/syscall").compare(0, call.size(), call) == 0;
}

/// Waits until the condition holds, if need be until CTest's time limit ends the test.
template <typename Condition> void waitUntil(const Condition& condition)
{
    while (!condition())
        usleep(1000);
}

} // namespace

TEST_F(OverlapRecorded, ASecondRunWaitsForTheFirstToEnd)
{
    onCrontabCall(waitForGo);
    StartedProgram first(cleanCommand);
    waitUntil([&] { return std::filesystem::exists(waiting) || !first.running(); });
    StartedProgram second(rebuildCommand);
    waitUntil([&] { return waitsForALock(second.pid()) || crontabCalls().size() > 1 || !second.running(); });
    EXPECT_EQ(Calls{"-u anna -l"}, crontabCalls());
    writeFile(go, "");
    EXPECT_EQ(0, first.wait().status);
    EXPECT_EQ(0, second.wait().status);
    EXPECT_EQ((Calls{"-u anna -l", "-u anna " + filteredCopy, "-u anna -l", "-u anna " + crontabCopy}), crontabCalls());
    EXPECT_EQ(backup + taskLine(3), crontabOf("anna"));
}

TEST_F(OverlapRecorded, TheLockMakesNoFile)
{
    onCrontabCall("ls -A " + scratchDirectory + " | tr '\\n' ' ' >>" + testDirectory + "seen");
    clean();
    // The copy may or may not be there while the crontab is listed.
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

namespace {

struct SecondRun {
    const char* name;
    bool rebuild;
    bool waitsAlready; // when the first one is killed
};

std::ostream& operator<<(std::ostream& out, const SecondRun& second)
{
    return out << second.name;
}

/// A run is killed before its crontab command has read the file to install.
class KilledWhileInstalling : public OverlapRecorded, public testing::WithParamInterface<SecondRun> {
protected:
    void SetUp() override
    {
        OverlapRecorded::SetUp();
        addTask({4, ben});
        setCrontab("anna", backup);
        setCrontab("ben", report);
        onCrontabCall("if [ $number = 2 ]; then " + waitForGo + "; fi");
    }

    static std::unique_ptr<StartedProgram> start()
    {
        return std::make_unique<StartedProgram>(GetParam().rebuild ? rebuildCommand : cleanCommand);
    }

    static std::unique_ptr<StartedProgram> startAndLetItWait()
    {
        auto run = start();
        waitUntil([&] { return waitsForALock(run->pid()) || crontabCalls().size() > 2 || !run->running(); });
        return run;
    }
};

} // namespace

TEST_P(KilledWhileInstalling, ItKeepsTheNextRunWaitingUntilTheCommandHasEnded)
{
    const auto first = start();
    waitUntil([&] { return std::filesystem::exists(waiting) || !first->running(); });
    auto second = GetParam().waitsAlready ? startAndLetItWait() : nullptr;
    kill(first->pid(), SIGKILL);
    EXPECT_EQ(SIGKILL, first->wait().signal);
    if (!GetParam().waitsAlready)
        second = startAndLetItWait();
    EXPECT_EQ(2u, crontabCalls().size());
    writeFile(go, "");
    EXPECT_EQ(0, second->wait().status);
    EXPECT_TRUE(std::filesystem::exists(gone));
    const std::string annasTask = taskLine(3);
    EXPECT_EQ(GetParam().rebuild ? backup + annasTask + annasTask : backup, crontabOf("anna"));
    EXPECT_EQ(GetParam().rebuild ? report + taskLine(4) : report, crontabOf("ben"));
    EXPECT_EQ(Files{}, scratchFiles());
}

INSTANTIATE_TEST_SUITE_P(And, KilledWhileInstalling,
    testing::Values(SecondRun{"ACleanStarts", false, false}, SecondRun{"ARebuildStarts", true, false},
        SecondRun{"ACleanWaits", false, true}, SecondRun{"ARebuildWaits", true, true}),
    [](const auto& instance) { return std::string(instance.param.name); });

namespace {

/// Ten users, each with a job and a task of their own.
class TenUsers : public Overlap {
protected:
    static constexpr int users = 10;
    static constexpr int runs = 20;

    void SetUp() override
    {
        Overlap::SetUp();
        for (int user = 0; user < users; ++user) {
            addAccount(nameOf(user), 1000 + user);
            addTask({10 + user, 1000 + user});
            setCrontab(nameOf(user), jobOf(user));
        }
    }

    static std::string nameOf(int user) { return "user" + std::to_string(user); }
    static std::string jobOf(int user) { return "0 1 * * * /bin/job-of-" + std::to_string(user) + "\n"; }
    static std::string taskOf(int user) { return taskLine(10 + user); }

    void start(const std::vector<std::string>& command) { m_runs.push_back(std::make_unique<StartedProgram>(command)); }

    /// Checks every crontab, over and over, until the last run has ended. Returns how often.
    int watchUntilTheEnd()
    {
        int rounds = 0;
        for (; anyRunning() && !HasFailure(); ++rounds)
            for (int user = 0; user < users; ++user)
                expectOwnJobs(user);
        for (const auto& run : m_runs) {
            const ProgramEnd end = run->wait();
            EXPECT_EQ(0, end.status);
            EXPECT_EQ("", end.output + end.errors);
        }
        EXPECT_EQ(Files{}, scratchFiles());
        return rounds;
    }

private:
    bool anyRunning() const
    {
        return std::any_of(m_runs.begin(), m_runs.end(), [](const auto& run) { return run->running(); });
    }

    /// The job comes first, then the task's line any number of times, and nobody else's lines.
    static void expectOwnJobs(int user)
    {
        std::string rest = crontabOf(nameOf(user));
        EXPECT_EQ(jobOf(user), rest.substr(0, jobOf(user).size())) << nameOf(user);
        rest.erase(0, jobOf(user).size());
        for (; rest.compare(0, taskOf(user).size(), taskOf(user)) == 0; rest.erase(0, taskOf(user).size())) { }
        EXPECT_EQ("", rest) << nameOf(user);
    }

    std::vector<std::unique_ptr<StartedProgram>> m_runs;
};

} // namespace

TEST_F(TenUsers, HaveAllOfTheirLinesAndNoOthersWhenTwentyRebuildsOverlap)
{
    for (int run = 0; run < runs; ++run)
        start(rebuildCommand);
    EXPECT_GT(watchUntilTheEnd(), 2);
    for (int user = 0; user < users; ++user) {
        std::string expected = jobOf(user);
        for (int run = 0; run < runs; ++run)
            expected += taskOf(user);
        EXPECT_EQ(expected, crontabOf(nameOf(user)));
    }
}

TEST_F(TenUsers, HaveNobodyElsesLinesWhenCleansAndRebuildsOverlap)
{
    for (int run = 0; run < runs; ++run)
        start(run % 2 == 0 ? cleanCommand : rebuildCommand);
    EXPECT_GT(watchUntilTheEnd(), 2);
    clean(); // the last run may have been either
    for (int user = 0; user < users; ++user)
        EXPECT_EQ(jobOf(user), crontabOf(nameOf(user)));
}
