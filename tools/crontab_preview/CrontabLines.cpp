#include "CrontabLines.h"

#include "Constants.h"
#include "CrontabText.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace {

const std::string managerPath = tmanagerPath + "TessaraTaskManager";
constexpr auto blanks = " \t";

std::vector<std::string> fieldsOf(const std::string& text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// "@daily" or five fields, and nothing else.
bool isSchedule(const std::string& text)
{
    const std::vector<std::string> fields = fieldsOf(text);
    return fields.size() == 5 || (fields.size() == 1 && fields[0][0] == '@');
}

bool isJob(const std::string& line)
{
    const std::vector<std::string> fields = fieldsOf(line);
    const char first = fields.empty() ? '\0' : fields[0][0];
    return first == '@' ? fields.size() >= 2 : fields.size() >= 6 && (first == '*' || (first >= '0' && first <= '9'));
}

// The position of the "=" in a setting; npos in any other line.
std::size_t equalsIn(const std::string& line)
{
    const std::size_t equals = line.find('=');
    const std::size_t begin = line.find_first_not_of(blanks);
    if (equals == std::string::npos || equals == begin)
        return std::string::npos;
    const std::size_t nameEnd = line[begin] == '"' ? line.find('"', begin + 1) : line.find_first_of(" \t=", begin) - 1;
    return nameEnd != std::string::npos && line.find_first_not_of(blanks, nameEnd + 1) == equals ? equals
                                                                                                 : std::string::npos;
}

std::optional<int> idAfterManager(const std::string& line)
{
    const std::size_t path = line.find(managerPath);
    if (path == std::string::npos)
        return std::nullopt;
    const std::size_t begin = line.find_first_not_of(blanks, path + managerPath.size());
    if (begin == std::string::npos || begin == path + managerPath.size())
        return std::nullopt;
    int id = 0;
    const bool read = std::from_chars(line.data() + begin, line.data() + line.size(), id).ec == std::errc();
    return read ? std::optional<int>(id) : std::nullopt;
}

bool isTaskLine(const std::string& line)
{
    const std::optional<int> id = idAfterManager(line);
    if (!id)
        return false;
    const std::string schedule = line.substr(0, line.find(" " + managerPath));
    return line + "\n" == taskLine(schedule, *id) && isSchedule(schedule);
}

} // namespace

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t feed = text.find('\n', begin);
        const std::size_t end = feed == std::string::npos ? text.size() : feed + 1;
        lines.push_back(text.substr(begin, end - begin));
        begin = end;
    }
    return lines;
}

std::string withoutLineEnd(const std::string& line)
{
    return !line.empty() && line.back() == '\n' ? line.substr(0, line.size() - 1) : line;
}

Kind kindOf(const std::string& line)
{
    const std::size_t begin = line.find_first_not_of(blanks);
    if (begin == std::string::npos)
        return Kind::blank;
    if (line[begin] == '#')
        return Kind::comment;
    if (equalsIn(line) != std::string::npos)
        return Kind::setting;
    if (!isJob(line))
        return Kind::other;
    return isTaskLine(line) ? Kind::taskLine : Kind::job;
}

std::string settingIn(const std::string& line)
{
    const std::size_t begin = line.find_first_not_of(blanks);
    const std::string name = line.substr(begin, equalsIn(line) - begin);
    return name.substr(0, name.find_last_not_of(blanks) + 1);
}

std::optional<int> startedTask(const std::string& line)
{
    const Kind kind = kindOf(line);
    return kind == Kind::job || kind == Kind::taskLine ? idAfterManager(line) : std::nullopt;
}

std::string taskLine(const std::string& schedule, int id)
{
    std::ostringstream out;
    orv::writeTaskLine(out, schedule, id);
    return out.str();
}

std::size_t countTaskLines(const std::string& text)
{
    const std::vector<std::string> lines = linesOf(text);
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(),
        [](const std::string& line) { return kindOf(withoutLineEnd(line)) == Kind::taskLine; }));
}
