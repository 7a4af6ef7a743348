#include "Runs.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void fail(const std::string& call)
{
    throw std::runtime_error(call + " failed: " + std::strerror(errno));
}

timespec now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

double millisecondsBetween(const timespec& start, const timespec& end)
{
    return static_cast<double>(end.tv_sec - start.tv_sec) * 1e3
        + static_cast<double>(end.tv_nsec - start.tv_nsec) / 1e6;
}

// The child writes here when it starts the program, so that the fork, whose cost depends on this process, does not
// count.
timespec& startSharedWithChild()
{
    static void* const page
        = mmap(nullptr, sizeof(timespec), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        fail("mmap");
    return *static_cast<timespec*>(page);
}

[[noreturn]] void becomeProgram(const std::vector<char*>& arguments, int output, timespec& start)
{
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    start = now();
    execv(arguments.front(), arguments.data());
    _exit(127);
}

double milliseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

std::string contents(int file)
{
    std::string text;
    char block[4096];
    ssize_t size = 0;
    while ((size = pread(file, block, sizeof block, static_cast<off_t>(text.size()))) > 0)
        text.append(block, static_cast<std::size_t>(size));
    return text;
}

int statusOf(int waited)
{
    return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited);
}

} // namespace

Run timedRun(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str())); // execv does not write to them
    arguments.push_back(nullptr);
    timespec& start = startSharedWithChild();
    const int output = memfd_create("output", MFD_CLOEXEC);
    if (output < 0)
        fail("memfd_create");
    const pid_t child = fork(); // not posix_spawn: the child would start with this process's peak memory
    if (child < 0)
        fail("fork");
    if (child == 0)
        becomeProgram(arguments, output, start);
    int waited = 0;
    rusage usage{};
    if (wait4(child, &waited, 0, &usage) != child)
        fail("wait4");
    const timespec end = now();
    Run run{millisecondsBetween(start, end), milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime),
        usage.ru_maxrss, statusOf(waited), contents(output)};
    close(output);
    return run;
}

double quantile(std::vector<double> values, double part)
{
    std::sort(values.begin(), values.end());
    const double position = part * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(std::floor(position));
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (position - std::floor(position)) * (values[above] - values[below]);
}

double median(const std::vector<double>& values)
{
    return quantile(values, 0.5);
}

std::vector<double> ratios(const std::vector<double>& numerators, const std::vector<double>& denominators)
{
    std::vector<double> all;
    for (std::size_t i = 0; i < std::min(numerators.size(), denominators.size()); ++i)
        all.push_back(numerators[i] / denominators[i]);
    return all;
}
