#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

/// Where a started program's standard output goes.
enum class StandardOutput {
    captured, ///< kept, to be compared
    closed, ///< file descriptor 1 is not open
    full, ///< /dev/full: every write fails, as on a full disk
    withoutReader ///< a pipe whose reading end is closed
};

/// How a program ended.
struct ProgramEnd {
    int status = -1; ///< exit status; -1 if a signal ended the program
    int signal = 0; ///< the signal that ended the program, or 0
    std::string output; ///< what it wrote to standard output, if that was captured
    std::string errors; ///< what it and its children wrote to standard error
};

/// Its constructor starts a program in the test's own environment, changed by `environment` ("NAME=value"), with
/// standard input from /dev/null. It throws std::runtime_error if the program cannot be started.
class StartedProgram {
public:
    explicit StartedProgram(const std::vector<std::string>& arguments,
        StandardOutput standardOutput = StandardOutput::captured, const std::vector<std::string>& environment = {});
    /// Kills the program, and waits for it, unless wait() has been called.
    ~StartedProgram();
    StartedProgram(const StartedProgram&) = delete;
    StartedProgram& operator=(const StartedProgram&) = delete;

    pid_t pid() const { return m_pid; }
    /// Whether the program has not ended yet.
    bool running() const;
    /// Waits for the end. Call it once.
    ProgramEnd wait();

private:
    pid_t m_pid = -1;
    int m_output = -1;
    int m_errors = -1;
};

/// Runs a program, arguments[0] being its path, to its end.
ProgramEnd runProgram(const std::vector<std::string>& arguments,
    StandardOutput standardOutput = StandardOutput::captured, const std::vector<std::string>& environment = {});

} // namespace support
