#include "SystemTest.h"

#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <vector>

// strace makes one system call of the program fail, or kills the program at one. The commands that the program starts
// are left alone. A call that fails is not made at all, so close() fails for scratch files only: a pipe that stays open
// would block the program for ever, which no failure of the real close() does. wait4() never fails here: the program
// would go on while crontab still installs, and no rule says what happens then.

using namespace support;

namespace {

const std::string foreign = "# jobs\nMAILTO=root\n0 1 * * * /bin/backup --all\n";

struct Fault {
    const char* call;
    const char* error;
    bool hidesCrontabs; // can make a crontab unreadable, so that it counts as empty
    bool scratchOnly = false; // fails for scratch files only
};

std::ostream& operator<<(std::ostream& out, const Fault& fault)
{
    return out << fault.call << " " << fault.error;
}

enum class Pass { clean, rebuild };
enum class From { once, thenOn };

std::string taskLines(const std::vector<int>& ids)
{
    std::string text;
    for (const int id : ids)
        text += taskLine(id);
    return text;
}

std::string before(Pass pass, const std::vector<int>& ids)
{
    return foreign + (pass == Pass::clean ? taskLines(ids) : "");
}

// What a rebuild appends, possibly without the lines of tasks that could not be read.
bool areTaskLines(std::string text, const std::vector<int>& ids)
{
    for (const int id : ids) {
        const std::string line = taskLine(id);
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

class UnderStrace : public SystemTest {
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        addTask({1, anna});
        addTask({2, ben});
        addTask({3, anna});
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

    static std::vector<std::string> commandFor(Pass pass)
    {
        return pass == Pass::rebuild ? rebuildCommand : cleanCommand;
    }

    std::vector<std::string> straceFor(Pass pass, const std::vector<std::string>& options) const
    {
        std::vector<std::string> command = {"/usr/bin/strace", "-o", log};
        command.insert(command.end(), options.begin(), options.end());
        for (const std::string& word : commandFor(pass))
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
    // Returns whether the call was made often enough to fail.
    bool runWithFault(const Fault& fault, Pass pass, int n, From from)
    {
        const std::string call = fault.call;
        const std::string when = std::to_string(n) + (from == From::thenOn ? "+" : "");
        std::vector<std::string> options
            = {"-e", "trace=" + call, "-e", "inject=" + call + ":error=" + fault.error + ":when=" + when};
        if (fault.scratchOnly)
            options.insert(options.end(), {"-P", crontabCopy, "-P", filteredCopy});
        const ProgramEnd end = run(pass, options);
        const bool loaded = end.errors.find("error while loading shared libraries") == std::string::npos;
        EXPECT_EQ(loaded ? 0 : 127, end.status) << end.errors; // the program has no say before main
        EXPECT_EQ(0, end.signal);
        EXPECT_TRUE(end.output.empty() || end.output == message) << end.output;
        return readFile(log).find("(INJECTED)") != std::string::npos;
    }

    // Returns how many calls failed.
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

bool onceOrTwice(const std::string& text, const std::string& lines)
{
    return text == foreign + lines || text == foreign + lines + lines;
}

constexpr int shares = 4; // of the calls, each in a test of its own, so that none takes long

class KilledRuns : public UnderStrace, public testing::WithParamInterface<int> {
public: // so that the tests can name the ways to kill
    void SetUp() override
    {
        UnderStrace::SetUp();
        ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1)); // become the parent of what a killed program leaves running
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
        calls.erase("execve"); // until it returns, the process is strace's
        return calls;
    }

    static std::vector<std::string> killedAt(const std::string& call, int n)
    {
        return {"-e", "trace=" + call, "-e", "inject=" + call + ":signal=KILL:when=" + std::to_string(n)};
    }

    // Waits until everything that a killed run started has ended.
    static void waitForOrphans()
    {
        while (wait(nullptr) > 0) { }
    }

    // Kills a run as it enters each of its calls, and starts another at once.
    void killThenRun(Pass pass, const std::string& call, int n)
    {
        run(pass, killedAt(call, n));
        runProgram(commandFor(pass));
        waitForOrphans();
    }

    // The same, but starts the other before the kill. Either of the two can get the lock first.
    void killBesideARun(Pass pass, const std::string& call, int n)
    {
        StartedProgram killed(straceFor(pass, killedAt(call, n)));
        StartedProgram other(commandFor(pass));
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

TEST_F(UnderStrace, ACrontabWhoseCopyCannotBeReadStaysAsItIs)
{
    setCrontabs(Pass::clean);
    run(Pass::clean, {"-P", crontabCopy, "-e", "trace=openat", "-e", "inject=openat:error=EMFILE:when=2"});
    EXPECT_TRUE(contains(readFile(log), "(INJECTED)"));
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
