#include "CrontabText.h"

#include "Constants.h"
#include "Number.h"

#include <algorithm>
#include <cstring>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>

namespace orv {

namespace {

constexpr std::size_t lineCapacity = 500; // with the terminator
constexpr std::size_t shortestLineWithEnd = 3;
constexpr std::size_t maxIdCharacters = 15;
// The text that marks a task line: fixed, and deliberately not built from tmanagerPath.
constexpr std::string_view managerPath = "/usr/local/Quarno/Kestrelcore/TessaraTaskManager";
constexpr std::string_view managerName = managerPath.substr(managerPath.rfind('/') + 1);

constexpr std::string_view nullDevice = "/dev/null";
constexpr std::size_t redirectionEnd = 14; // the length of "/dev/null 2>&1"

// The id of a line has always been read 37 characters after the start of managerPath. Those are letters of the path
// itself ("TaskManager"), so it is 0 for every line. Kept on purpose: the refresh works with the schedule of task 0.
constexpr int refreshedTask = 0;

using LineBuffer = char[lineCapacity];

// "" at the end, at an empty line and when `in` has failed.
std::string_view readLine(std::istream& in, LineBuffer& buffer)
{
    std::memset(buffer, 0, sizeof buffer);
    in.getline(buffer, lineCapacity);
    return buffer; // up to the first zero byte
}

void writeLine(std::ostream& out, std::string_view line)
{
    out << line << '\n' << std::flush;
}

int taskIdIn(std::string_view line, std::size_t namePosition)
{
    const std::size_t begin = namePosition + managerName.size() + 1; // the separator is any one character
    const std::string_view id = line.substr(std::min(begin, line.size()), maxIdCharacters);
    return toInt(std::string(id.substr(0, id.find(' '))));
}

// Splits one line that contains the task manager's path, piece by piece from its start.
class LineSplitter {
public:
    LineSplitter(const CronTimeOf& cronTimeOf, std::string_view line, std::ostream& out)
        : m_cronTimeOf(cronTimeOf)
        , m_line(line)
        , m_out(out)
        , m_anchor(line.find(managerPath))
    {
    }

    void split()
    {
        while (splitStep()) { }
    }

private:
    // Writes the text before the next task line or, at a task line, up to the end of its redirection. False at the end
    // of the line.
    bool splitStep()
    {
        const std::string taskStart = m_cronTimeOf(refreshedTask) + ' ' + std::string(managerPath);
        const std::size_t schedule = m_line.find(taskStart, m_start);
        if (schedule != std::string_view::npos && schedule > m_start) {
            writeLine(m_out, m_line.substr(m_start, schedule - m_start - 1)); // drops the character before it
            m_start = schedule;
            return true;
        }
        // Look for the redirection from m_anchor. Before m_start, only one that ends after m_start counts.
        const std::size_t reaching = m_start - std::min(m_start, redirectionEnd);
        const std::size_t redirection = m_line.find(nullDevice, std::max(m_anchor, reaching));
        if (redirection == std::string_view::npos || redirection + redirectionEnd >= m_line.size()) {
            writeLine(m_out, m_line.substr(m_start));
            return false;
        }
        return splitAfter(redirection + redirectionEnd);
    }

    bool splitAfter(std::size_t end)
    {
        writeLine(m_out, m_line.substr(m_start, end - m_start));
        m_start = end;
        m_anchor = m_line.find(managerPath, end);
        if (m_anchor != std::string_view::npos)
            return true;
        const std::string_view rest = m_line.substr(end);
        if (rest.size() >= shortestLineWithEnd)
            writeLine(m_out, rest);
        else
            m_out << rest; // the next line written joins it, on purpose
        return false;
    }

    const CronTimeOf& m_cronTimeOf;
    const std::string_view m_line;
    std::ostream& m_out;
    std::size_t m_start = 0; ///< of the piece
    std::size_t m_anchor; ///< the path after which the redirection is searched; a later path may begin this piece
};

} // namespace

std::string taskManagerCommand(int id)
{
    return tmanagerPath + std::string(managerName) + ' ' + std::to_string(id);
}

void writeTaskLine(std::ostream& out, const std::string& cronTime, int id)
{
    writeLine(out, cronTime + ' ' + taskManagerCommand(id) + errorRedirection);
}

void dropTaskLines(std::istream& in, std::ostream& out)
{
    LineBuffer buffer;
    while (!in.fail()) {
        const std::string_view line = readLine(in, buffer);
        if (line.empty())
            break; // the jobs below an empty line are lost too: a clean has always done that
        if (line.find(managerPath) != std::string_view::npos)
            continue;
        if (line.size() >= shortestLineWithEnd)
            writeLine(out, line);
        else
            out << line; // no newline: the next kept line joins this one, on purpose
    }
}

void dropLinesOfTask(int id, std::istream& in, std::ostream& out)
{
    LineBuffer buffer;
    while (in.good()) {
        const std::string_view line = readLine(in, buffer);
        if (line.empty())
            break; // as in a clean
        const std::size_t name = line.find(managerName);
        if (name == std::string_view::npos || taskIdIn(line, name) != id)
            out << line << '\n';
    }
}

void splitTaskLines(const CronTimeOf& cronTimeOf, std::istream& in, std::ostream& out)
{
    LineBuffer buffer;
    for (;;) {
        const std::string_view line = readLine(in, buffer);
        if (line.empty())
            break;
        if (line.find(managerPath) != std::string_view::npos)
            LineSplitter(cronTimeOf, line, out).split();
        else
            writeLine(out, line);
    }
}

} // namespace orv
