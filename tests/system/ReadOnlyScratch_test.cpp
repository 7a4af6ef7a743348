#include "SystemTest.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

// The scratch directory becomes read-only while the program runs, as it does after a disk error.

using namespace support;

namespace {

/// A run of the program that stops at each of its system calls. Its child processes do not stop.
class SteppedRun {
public:
    explicit SteppedRun(bool rebuild)
        : m_pid(fork())
    {
        if (m_pid == 0) {
            dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO); // crontab complains of missing files
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            execl(program.c_str(), program.c_str(), rebuild ? "rebuild" : nullptr, nullptr);
            _exit(126);
        }
        waitpid(m_pid, &m_status, 0);
        ptrace(PTRACE_SETOPTIONS, m_pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    }
    SteppedRun(const SteppedRun&) = delete;
    SteppedRun& operator=(const SteppedRun&) = delete;

    ~SteppedRun()
    {
        if (!WIFSTOPPED(m_status))
            return;
        ptrace(PTRACE_DETACH, m_pid, nullptr, nullptr);
        waitpid(m_pid, &m_status, 0);
    }

    /// Continues until the program enters its next call. Returns the call's number, or -1 if the program has ended.
    long toNextCall()
    {
        for (int signal = 0;;) {
            ptrace(PTRACE_SYSCALL, m_pid, nullptr, signal);
            waitpid(m_pid, &m_status, 0);
            if (!WIFSTOPPED(m_status))
                return -1;
            __ptrace_syscall_info info{};
            signal = WSTOPSIG(m_status) == (SIGTRAP | 0x80) ? 0 : WSTOPSIG(m_status);
            if (signal == 0 && ptrace(PTRACE_GET_SYSCALL_INFO, m_pid, sizeof info, &info) > 0
                && info.op == PTRACE_SYSCALL_INFO_ENTRY)
                return static_cast<long>(info.entry.nr);
        }
    }

    bool toCall(long number)
    {
        long call = 0;
        while (call != -1 && call != number)
            call = toNextCall();
        return call == number;
    }

private:
    const pid_t m_pid;
    int m_status = 0;
};

bool remount(unsigned long flags)
{
    return mount(nullptr, scratchDirectory.c_str(), nullptr, MS_REMOUNT | flags, nullptr) == 0;
}

struct Owner {
    const char* name;
    int uid;
};
const Owner owners[] = {{"anna", anna}, {"ben", ben}, {"carla", carla}};

std::string jobOf(const Owner& owner)
{
    return std::string("0 1 * * * /bin/job-of-") + owner.name + "\n";
}

std::string taskOf(const Owner& owner)
{
    return taskLine(owner.uid);
}

class ReadOnlyScratch : public SystemTest, public testing::WithParamInterface<bool> {
protected:
    static void setCrontabs()
    {
        for (const Owner& owner : owners)
            setCrontab(owner.name, jobOf(owner) + taskOf(owner));
    }

    static std::string done(const Owner& owner)
    {
        return jobOf(owner) + (GetParam() ? taskOf(owner) + taskOf(owner) : "");
    }

    /// Makes the file system read-only at the first call after the one for the lock, from number `first` on, at which
    /// it can: it cannot while a file is open for writing. Returns the number of that call, or 0 if the run ended
    /// before.
    static int runUntilReadOnly(int first)
    {
        SteppedRun run(GetParam());
        if (!run.toCall(SYS_flock))
            throw std::runtime_error("a run without a lock");
        for (int call = 1; run.toNextCall() != -1; ++call)
            if (call >= first && remount(MS_RDONLY))
                return call;
        return 0;
    }
};

} // namespace

TEST_P(ReadOnlyScratch, FromAnyCallOnLeavesEachCrontabAsItWasOrShouldBe)
{
    for (const Owner& owner : owners)
        addTask({owner.uid, owner.uid});
    setCrontabs();
    limitScratchDirectory(0, 0);
    int points = 0;
    for (int call = 0; (call = runUntilReadOnly(call + 1)) != 0 && !HasFailure(); ++points) {
        for (const Owner& owner : owners) {
            const std::string text = crontabOf(owner.name);
            EXPECT_TRUE(text == jobOf(owner) + taskOf(owner) || text == done(owner)) << owner.name << call << text;
        }
        ASSERT_TRUE(remount(0));
        setCrontabs();
    }
    RecordProperty("points", points);
    EXPECT_GT(points, 100);
}

INSTANTIATE_TEST_SUITE_P(In, ReadOnlyScratch, testing::Bool(),
    [](const auto& instance) { return std::string(instance.param ? "ARebuild" : "AClean"); });
