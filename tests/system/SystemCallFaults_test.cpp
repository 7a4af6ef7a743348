#include "Process.h"
#include "TaskLine.h"
#include "WorldTest.h"

#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <vector>

// The built program with one of its system calls failing, or killed at one, from outside, by strace. Its children are
// not touched. A call that is made to fail is not made at all; a pipe that is not closed would hold the program up for
// ever, as the system itself never does, so closing fails for the scratch files only.
// Nor does waiting for a child fail before the child has ended: what is then still being installed is nobody's rule.

using namespace support;

namespace {

const std::string foreign = "# jobs\nMAILTO=root\n0 1 * * * /bin/backup --all\n";

struct Fault {
    const char* call;
    const char* error;
    bool hidesCrontabs; // a crontab that cannot be read counts as empty, and this fault can have that effect
    bool scratchOnly = false; // only where the call is for a scratch file
};

std::ostream& operator<<(std::ostream& out, const Fault& fault)
{
    return out << fault.call << " " << fault.error;
}

enum class Pass { clean, rebuild };
enum class From { once, thenOn };

std::string before(Pass pass, const std::vector<int>& ids)
{
    std::string text = foreign;
    if (pass == Pass::clean)
        for (const int id : ids)
            text += taskLine(id, "7 * * * *");
    return text;
}

// What a rebuild appends, possibly without the lines of tasks that could not be read.
bool areTaskLines(std::string text, const std::vector<int>& ids)
{
    for (const int id : ids) {
        const std::string line = taskLine(id, "7 * * * *");
        if (text.compare(0, line.size(), line) == 0)
            text.erase(0, line.size());
    }
    return text.empty();
}

bool explained(Pass pass, const std::string& text, const std::vector<int>& ids, bool hidden)
{
    const std::string old = before(pass, ids);
    if (text == old || (hidden && text.empty()))
        return true;
    if (pass == Pass::clean)
        return text == foreign;
    if (text.compare(0, old.size(), old) == 0)
        return areTaskLines(text.substr(old.size()), ids);
    return hidden && areTaskLines(text, ids);
}

class UnderStrace : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        execSql(createTaskTable);
        execSql("insert into TaskTable(description, crontime, userId) values"
                "('a', '7 * * * *', 501), ('b', '7 * * * *', 502), ('c', '7 * * * *', 501)");
    }

    void setCrontabs(Pass pass)
    {
        setCrontab("anna", before(pass, annas));
        setCrontab("ben", before(pass, bens));
        setCrontab("carla", before(Pass::clean, {9}));
    }

    void expectCarlasCrontabUntouched(const std::string& where)
    {
        EXPECT_EQ(before(Pass::clean, {9}), crontabOf("carla")) << where;
    }

    static std::vector<std::string> programFor(Pass pass)
    {
        if (pass == Pass::rebuild)
            return {ORV_CRON_CLEANER, "rebuild"};
        return {ORV_CRON_CLEANER};
    }

    std::vector<std::string> straceFor(Pass pass, const std::vector<std::string>& options) const
    {
        std::vector<std::string> command = {"/usr/bin/strace", "-o", log};
        command.insert(command.end(), options.begin(), options.end());
        for (const std::string& word : programFor(pass))
            command.push_back(word);
        return command;
    }

    ProgramEnd run(Pass pass, const std::vector<std::string>& straceOptions)
    {
        return runProgram(straceFor(pass, straceOptions));
    }

    const std::string log = testDirectory + "strace";
    const std::vector<int> annas = {1, 3};
    const std::vector<int> bens = {2};
};

class SystemCallFaults : public UnderStrace, public testing::WithParamInterface<Fault> {
protected:
    // True if the fault was met.
    bool runWithFault(const Fault& fault, Pass pass, int n, From from)
    {
        const std::string call = fault.call;
        const std::string when = std::to_string(n) + (from == From::thenOn ? "+" : "");
        std::vector<std::string> options
            = {"-e", "trace=" + call, "-e", "inject=" + call + ":error=" + fault.error + ":when=" + when};
        if (fault.scratchOnly)
            options.insert(
                options.end(), {"-P", scratchDirectory + "crontemp.txt", "-P", scratchDirectory + "temp2.txt"});
        const ProgramEnd end = run(pass, options);
        const bool loaded = end.errors.find("error while loading shared libraries") == std::string::npos;
        EXPECT_EQ(loaded ? 0 : 127, end.status) << end.errors; // what fails before main is not the program's
        EXPECT_EQ(0, end.signal);
        EXPECT_TRUE(end.output.empty() || end.output == "Exception while cleaning cron") << end.output;
        return readFile(log).find("(INJECTED)") != std::string::npos;
    }

    // The number of calls that were made to fail.
    int sweep(const Fault& fault, Pass pass, From from)
    {
        int n = 0;
        bool met = true;
        while (met && !HasFailure()) {
            setCrontabs(pass);
            met = runWithFault(fault, pass, ++n, from);
            const std::string where = std::string(fault.call) + " " + std::to_string(n) + "\n";
            EXPECT_TRUE(explained(pass, crontabOf("anna"), annas, fault.hidesCrontabs)) << where << crontabOf("anna");
            EXPECT_TRUE(explained(pass, crontabOf("ben"), bens, fault.hidesCrontabs)) << where << crontabOf("ben");
            expectCarlasCrontabUntouched(where);
        }
        RecordProperty("points", n - 1);
        return n - 1;
    }
};

std::string taskLines(const std::vector<int>& ids)
{
    std::string text;
    for (const int id : ids)
        text += taskLine(id, "7 * * * *");
    return text;
}

bool onceOrTwice(const std::string& text, const std::string& lines)
{
    return text == foreign + lines || text == foreign + lines + lines;
}

constexpr int shares = 4; // so that none takes long

class KilledRuns : public UnderStrace, public testing::WithParamInterface<int> {
public: // as the tests name its ways to kill
    void SetUp() override
    {
        UnderStrace::SetUp();
        ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1)); // what a killed program leaves running comes to this process
    }

    // How often an undisturbed run makes each system call.
    std::map<std::string, int> callsOf(Pass pass)
    {
        setCrontabs(pass);
        EXPECT_EQ(0, run(pass, {}).status);
        std::istringstream lines(readFile(log));
        std::map<std::string, int> calls;
        for (std::string line; std::getline(lines, line);)
            if (line.find('(') != std::string::npos && line.compare(0, 1, "-") != 0 && line.compare(0, 1, "+") != 0)
                ++calls[line.substr(0, line.find('('))];
        calls.erase("execve"); // is strace's own until it has returned
        return calls;
    }

    static std::vector<std::string> killedAt(const std::string& call, int n)
    {
        return {"-e", "trace=" + call, "-e", "inject=" + call + ":signal=KILL:when=" + std::to_string(n)};
    }

    // Waits for the end of all that a killed run had started.
    static void waitForOrphans()
    {
        while (wait(nullptr) > 0) { }
    }

    // Kills a run as it enters each of its calls, and starts another at once.
    void killThenRun(Pass pass, const std::string& call, int n)
    {
        run(pass, killedAt(call, n));
        runProgram(programFor(pass));
        waitForOrphans();
    }

    // The same with the other started before. Which of the two is the first to get the lock, is chance.
    void killBesideARun(Pass pass, const std::string& call, int n)
    {
        StartedProgram killed(straceFor(pass, killedAt(call, n)));
        StartedProgram other(programFor(pass));
        killed.wait();
        EXPECT_EQ(0, other.wait().status);
        waitForOrphans();
    }

    using Kill = void (KilledRuns::*)(Pass, const std::string&, int);

    // Every `step`-th of this test's share of the calls.
    template <class Check> void killEverywhere(Pass pass, Kill kill, int step, const Check& check)
    {
        int point = 0;
        int points = 0;
        for (const auto& [call, count] : callsOf(pass)) {
            for (int n = 1; n <= count && !HasFailure(); ++n) {
                if (point++ % (shares * step) != GetParam())
                    continue;
                ++points;
                setCrontabs(pass);
                (this->*kill)(pass, call, n);
                check(call + " " + std::to_string(n) + "\n");
            }
        }
        RecordProperty("points", points);
        EXPECT_GT(points, 100 / shares / step);
    }

    void expectCleanCrontabs(const std::string& where)
    {
        EXPECT_EQ(foreign, crontabOf("anna")) << where;
        EXPECT_EQ(foreign, crontabOf("ben")) << where;
        expectCarlasCrontabUntouched(where);
    }

    void expectLinesOnceOrTwice(const std::string& where)
    {
        EXPECT_TRUE(onceOrTwice(crontabOf("anna"), taskLines(annas))) << where << crontabOf("anna");
        EXPECT_TRUE(onceOrTwice(crontabOf("ben"), taskLines(bens))) << where << crontabOf("ben");
        expectCarlasCrontabUntouched(where);
    }
};

} // namespace

TEST_P(SystemCallFaults, ACleanLeavesEveryCrontabWholeWhicheverCallFailsOnce)
{
    EXPECT_GT(sweep(GetParam(), Pass::clean, From::once), 0);
}

TEST_P(SystemCallFaults, ACleanLeavesEveryCrontabWholeWhicheverCallIsTheFirstToFail)
{
    EXPECT_GT(sweep(GetParam(), Pass::clean, From::thenOn), 0);
}

TEST_P(SystemCallFaults, ARebuildLeavesEveryCrontabWholeWhicheverCallFailsOnce)
{
    EXPECT_GT(sweep(GetParam(), Pass::rebuild, From::once), 0);
}

TEST_P(SystemCallFaults, ARebuildLeavesEveryCrontabWholeWhicheverCallIsTheFirstToFail)
{
    EXPECT_GT(sweep(GetParam(), Pass::rebuild, From::thenOn), 0);
}

INSTANTIATE_TEST_SUITE_P(Of, SystemCallFaults,
    testing::Values(Fault{"openat", "EMFILE", true}, Fault{"read", "EIO", false}, Fault{"write", "ENOSPC", false},
        Fault{"close", "EIO", false, true}, Fault{"unlink", "EACCES", false}, Fault{"pipe2", "EMFILE", true},
        Fault{"clone3", "EAGAIN", true}, Fault{"fcntl", "EIO", true}, Fault{"flock", "ENOLCK", false},
        Fault{"lseek", "EIO", false}, Fault{"newfstatat", "EACCES", true}),
    [](const auto& instance) { return std::string(instance.param.call); });

TEST_F(UnderStrace, ACopyThatWasMadeAndCannotBeOpenedForReadingIsNotInstalled)
{
    setCrontabs(Pass::clean);
    run(Pass::clean,
        {"-P", scratchDirectory + "crontemp.txt", "-e", "trace=openat", "-e", "inject=openat:error=EMFILE:when=2"});
    EXPECT_NE(std::string::npos, readFile(log).find("(INJECTED)"));
    EXPECT_EQ(before(Pass::clean, annas), crontabOf("anna"));
    EXPECT_EQ(foreign, crontabOf("ben"));
}

TEST_P(KilledRuns, ACleanRightAfterAKilledCleanEndsAsACleanDoes)
{
    killEverywhere(Pass::clean, &KilledRuns::killThenRun, 1, [this](const std::string& where) {
        expectCleanCrontabs(where);
        EXPECT_TRUE(scratchFiles().empty()) << where;
    });
}

TEST_P(KilledRuns, ARebuildRightAfterAKilledRebuildLeavesTheLinesOnceOrTwice)
{
    killEverywhere(Pass::rebuild, &KilledRuns::killThenRun, 1, [this](const std::string& where) {
        expectLinesOnceOrTwice(where);
        EXPECT_TRUE(scratchFiles().empty()) << where;
    });
}

TEST_P(KilledRuns, ACleanBesideAKilledCleanEndsAsACleanDoes)
{
    killEverywhere(
        Pass::clean, &KilledRuns::killBesideARun, 4, [this](const std::string& where) { expectCleanCrontabs(where); });
}

TEST_P(KilledRuns, ARebuildBesideAKilledRebuildLeavesTheLinesOnceOrTwice)
{
    killEverywhere(Pass::rebuild, &KilledRuns::killBesideARun, 4,
        [this](const std::string& where) { expectLinesOnceOrTwice(where); });
}

INSTANTIATE_TEST_SUITE_P(Share, KilledRuns, testing::Range(0, shares));
