#include "DatabaseOpenings.h"

#include "PrivateWorld.h"
#include "Process.h"

#include <cstddef>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace support {

namespace {

const std::string openingsLog = testDirectory + "openings";

std::size_t loggedOpenings()
{
    std::istringstream lines(readFile(openingsLog));
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line);)
        count += line.find("openat(") == 0 && line.find(") = ") != std::string::npos ? 1 : 0;
    return count;
}

StartedProgram startUnderStrace(const std::vector<std::string>& command, const std::string& delay)
{
    writeFile(openingsLog, "");
    std::vector<std::string> strace = {"/usr/bin/strace", "-o", openingsLog, "-P", databasePath, "-e", "trace=openat",
        "-e", "inject=openat:delay_exit=" + delay};
    strace.insert(strace.end(), command.begin(), command.end());
    return StartedProgram(
        strace, StandardOutput::captured, {"ASAN_OPTIONS=detect_leaks=0"}); // strace leaves no way to look for leaks
}

} // namespace

std::size_t databaseOpenings(const std::vector<std::string>& command)
{
    startUnderStrace(command, "1").wait();
    return loggedOpenings();
}

ProgramEnd runWithChange(const std::vector<std::string>& command, std::size_t opening, const std::string& sql)
{
    StartedProgram program = startUnderStrace(command, "2000000:when=" + std::to_string(opening));
    while (loggedOpenings() < opening && program.running())
        usleep(1000);
    execSql(sql);
    return program.wait();
}

} // namespace support
