#include "Process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace support {

namespace {

[[noreturn]] void fail(const std::string& what, int error)
{
    throw std::runtime_error(what + " failed: " + std::strerror(error));
}

/// A file in memory, closed on exec.
int memoryFile()
{
    const int file = memfd_create("output", MFD_CLOEXEC);
    if (file < 0)
        fail("memfd_create", errno);
    return file;
}

std::string contents(int file)
{
    std::string text;
    char buffer[4096];
    for (off_t offset = 0;;) {
        const ssize_t count = pread(file, buffer, sizeof buffer, offset);
        if (count < 0)
            fail("pread", errno);
        if (count == 0)
            return text;
        text.append(buffer, static_cast<size_t>(count));
        offset += count;
    }
}

/// The writing end of a pipe that nobody reads, closed on exec.
int pipeWithoutReader()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe2", errno);
    close(ends[0]);
    return ends[1];
}

class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&m_actions); }
    ~FileActions() { posix_spawn_file_actions_destroy(&m_actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    void open(int descriptor, const char* path, int flags)
    {
        posix_spawn_file_actions_addopen(&m_actions, descriptor, path, flags, 0);
    }
    void use(int descriptor, int file) { posix_spawn_file_actions_adddup2(&m_actions, file, descriptor); }
    void close(int descriptor) { posix_spawn_file_actions_addclose(&m_actions, descriptor); }
    const posix_spawn_file_actions_t* get() const { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions;
};

std::vector<char*> pointers(const std::vector<std::string>& texts)
{
    std::vector<char*> all;
    for (const auto& text : texts)
        all.push_back(const_cast<char*>(text.c_str())); // posix_spawn does not write to them
    all.push_back(nullptr);
    return all;
}

bool sets(const std::string& entry, const std::string& other)
{
    return entry.compare(0, entry.find('=') + 1, other, 0, other.find('=') + 1) == 0;
}

/// Programs differ in which of two entries with the same name they take, so that there must be only one.
std::vector<std::string> withOwnEnvironment(std::vector<std::string> environment)
{
    const std::vector<std::string> given = environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (std::none_of(given.begin(), given.end(), [&](const std::string& other) { return sets(other, *entry); }))
            environment.emplace_back(*entry);
    return environment;
}

} // namespace

StartedProgram::StartedProgram(const std::vector<std::string>& arguments, StandardOutput standardOutput,
    const std::vector<std::string>& environment)
    : m_output(standardOutput == StandardOutput::withoutReader ? pipeWithoutReader() : memoryFile())
    , m_errors(memoryFile())
{
    FileActions actions;
    actions.open(STDIN_FILENO, "/dev/null", O_RDONLY);
    actions.use(STDERR_FILENO, m_errors);
    if (standardOutput == StandardOutput::closed)
        actions.close(STDOUT_FILENO);
    else if (standardOutput == StandardOutput::full)
        actions.open(STDOUT_FILENO, "/dev/full", O_WRONLY);
    else
        actions.use(STDOUT_FILENO, m_output);
    const auto variables = withOwnEnvironment(environment);
    const int error = posix_spawn(&m_pid, arguments.at(0).c_str(), actions.get(), nullptr, pointers(arguments).data(),
        pointers(variables).data());
    if (error == 0)
        return;
    close(m_output);
    close(m_errors);
    fail("starting " + arguments.at(0), error);
}

StartedProgram::~StartedProgram()
{
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    close(m_output);
    close(m_errors);
}

bool StartedProgram::running() const
{
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        fail("waitid", errno);
    return info.si_pid == 0;
}

ProgramEnd StartedProgram::wait()
{
    int status = 0;
    if (waitpid(m_pid, &status, 0) != m_pid)
        fail("waitpid", errno);
    m_pid = -1;
    ProgramEnd end;
    if (WIFEXITED(status))
        end.status = WEXITSTATUS(status);
    else
        end.signal = WTERMSIG(status);
    // A pipe that nobody reads cannot be read, and has nothing for anybody.
    end.output = fcntl(m_output, F_GETPIPE_SZ) < 0 ? contents(m_output) : "";
    end.errors = contents(m_errors);
    return end;
}

ProgramEnd runProgram(const std::vector<std::string>& arguments, StandardOutput standardOutput,
    const std::vector<std::string>& environment)
{
    return StartedProgram(arguments, standardOutput, environment).wait();
}

} // namespace support
