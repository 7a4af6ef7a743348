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
constexpr std::string_view managerName = "TessaraTaskManager";
constexpr std::string_view managerPath = "/usr/local/Quarno/Kestrelcore/TessaraTaskManager";

constexpr std::string_view nullDevice = "/dev/null";
constexpr std::size_t redirectionEnd = 14; // from the start of "/dev/null" to behind its " 2>&1"

// This is 11 less than the length of managerPath, so the id is read from the letters of "TessaraTaskManager" and always
// comes out as 0. It is kept: crontabs are split at the schedule of row 0, and where there is no row 0, the refresh of
// a crontab with task lines ends with the store's exception and leaves the crontab alone.
constexpr std::size_t idOffset = 37;
constexpr std::size_t maxRefreshIdCharacters = 9;

using LineBuffer = char[lineCapacity];

// "" at the end, at an empty line and when `in` has failed.
std::string_view readLine(std::istream& in, LineBuffer& buffer)
{
    std::memset(buffer, 0, sizeof buffer);
    in.getline(buffer, lineCapacity);
    return buffer; // up to the first zero byte
}

bool mentions(std::string_view line, std::string_view text)
{
    return line.find(text) != std::string_view::npos;
}

void writeLine(std::ostream& out, std::string_view line)
{
    out << line << '\n' << std::flush;
}

int taskIdIn(std::string_view line, std::size_t namePosition)
{
    const std::size_t begin = namePosition + managerName.size() + 1; // the separator is any one character
    if (begin >= line.size())
        return toInt("");
    const std::string_view rest = line.substr(begin);
    return toInt(std::string(rest.substr(0, std::min(rest.find(' '), maxIdCharacters))));
}

int refreshIdIn(std::string_view segment)
{
    const std::string_view id = segment.substr(std::min(segment.find(managerPath) + idOffset, segment.size()));
    return toInt(std::string(id.substr(0, std::min(id.find(' '), maxRefreshIdCharacters))));
}

// Takes apart one line that mentions the task manager's path, piece by piece from its start.
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
    // Writes what stands before the next schedule, or else what stands up to the end of the next redirection. False
    // when the line is done.
    bool splitStep()
    {
        const std::string taskStart
            = m_cronTimeOf(refreshIdIn(m_line.substr(m_start))) + ' ' + std::string(managerPath);
        const std::size_t schedule = m_line.find(taskStart, m_start);
        if (schedule != std::string_view::npos && schedule > m_start) {
            writeLine(
                m_out, m_line.substr(m_start, schedule - m_start - 1)); // without the character before the schedule
            m_start = schedule;
            return true;
        }
        // The anchor can lie before the start: the schedule may have been found behind a later mention of the path. A
        // redirection that is over before the piece begins does not end it.
        const std::size_t reaching = m_start - std::min(m_start, redirectionEnd);
        const std::size_t redirection = m_line.find(nullDevice, std::max(m_anchor, reaching));
        if (redirection == std::string_view::npos || redirection + redirectionEnd >= m_line.size()) {
            writeLine(m_out, m_line.substr(m_start));
            return false;
        }
        return splitBehind(redirection + redirectionEnd);
    }

    bool splitBehind(std::size_t end)
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
    std::size_t m_anchor; ///< the mention of the path behind which the redirection is looked for
};

} // namespace

void writeTaskLine(std::ostream& out, const std::string& cronTime, int id)
{
    writeLine(out, cronTime + ' ' + tmanagerPath + "TessaraTaskManager " + std::to_string(id) + errorRedirection);
}

void dropTaskLines(std::istream& in, std::ostream& out)
{
    LineBuffer buffer;
    while (!in.fail()) {
        const std::string_view line = readLine(in, buffer);
        if (line.empty())
            break; // the jobs below a blank line go too: that is how the pass has always cleaned
        if (mentions(line, managerPath))
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
            break; // the same rule as in the cleaning pass
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
        if (mentions(line, managerPath))
            LineSplitter(cronTimeOf, line, out).split();
        else
            writeLine(out, line);
    }
}

} // namespace orv
