// Gives any text as a crontab to the three functions that edit crontabs, and compares the results with those of a
// second implementation, which uses C's string functions.
//
// Input: a byte that chooses the function; for the removal of one task a byte with its id, for the split a line with
// the schedule of task 0; then the crontab.
#include "CrontabText.h"
#include "Expect.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return 0;
}

namespace {

const char* const marker = "/usr/local/Quarno/Kestrelcore/TessaraTaskManager";

// Lines as the editing functions see them.
class Lines {
public:
    explicit Lines(const std::string& text)
        : m_text(text)
    {
    }

    // "" after the last one
    std::string next()
    {
        if (m_cut || m_at == m_text.size())
            return "";
        std::size_t end = m_at;
        while (end < m_text.size() && m_text[end] != '\n' && end - m_at < 499)
            ++end;
        const std::string line = m_text.substr(m_at, end - m_at);
        m_cut = end < m_text.size() && m_text[end] != '\n';
        m_at = end < m_text.size() ? end + 1 : end;
        return line.c_str(); // up to the first zero byte
    }

private:
    const std::string& m_text;
    std::size_t m_at = 0;
    bool m_cut = false;
};

std::string expectedDrop(const std::string& text)
{
    Lines lines(text);
    std::string out;
    for (std::string line = lines.next(); !line.empty(); line = lines.next())
        if (strstr(line.c_str(), marker) == nullptr)
            out += line.size() < 3 ? line : line + "\n";
    return out;
}

bool runsTask(const std::string& line, int id)
{
    const char* name = strstr(line.c_str(), "TessaraTaskManager");
    if (name == nullptr)
        return false;
    char text[16] = "";
    const char* from = name + strlen("TessaraTaskManager");
    if (*from != '\0')
        ++from;
    for (int i = 0; i < 15 && *from != '\0' && *from != ' '; ++i)
        text[i] = *from++;
    return static_cast<int>(strtoll(text, nullptr, 10)) == id;
}

std::string expectedDropOfTask(const std::string& text, int id)
{
    Lines lines(text);
    std::string out;
    for (std::string line = lines.next(); !line.empty(); line = lines.next())
        if (!runsTask(line, id))
            out += line + "\n";
    return out;
}

std::string expectedPieces(const std::string& line, const std::string& schedule)
{
    const std::string pattern = schedule + " " + marker;
    const char* const end = line.c_str() + line.size();
    const char* piece = line.c_str();
    const char* anchor = strstr(piece, marker);
    std::string out;
    for (;;) {
        const char* found = strstr(piece, pattern.c_str());
        if (found != nullptr && found != piece) {
            out.append(piece, found - 1).append("\n");
            piece = found;
            continue;
        }
        const char* null = strstr(anchor, "/dev/null");
        while (null != nullptr && null + 14 < piece)
            null = strstr(null + 1, "/dev/null");
        if (null == nullptr || end - null <= 14)
            return out + piece + "\n";
        out.append(piece, null + 14).append("\n");
        piece = null + 14;
        anchor = strstr(piece, marker);
        if (anchor == nullptr)
            return out + piece + (strlen(piece) < 3 ? "" : "\n");
    }
}

std::string expectedSplit(const std::string& text, const std::string& schedule)
{
    Lines lines(text);
    std::string out;
    for (std::string line = lines.next(); !line.empty(); line = lines.next())
        out += strstr(line.c_str(), marker) == nullptr ? line + "\n" : expectedPieces(line, schedule);
    return out;
}

std::string takeLine(std::string& text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string line = text.substr(0, end).c_str(); // the second implementation ends at a zero byte
    text.erase(0, end + 1);
    return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const int choice = data[0] % 3;
    const int id = static_cast<std::int8_t>(data[1]);
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::ostringstream out;
    if (choice == 0) {
        std::istringstream in(text);
        orv::dropTaskLines(in, out);
        EXPECT_SAME(out.str(), expectedDrop(text));
    } else if (choice == 1) {
        text.erase(0, 1);
        std::istringstream in(text);
        orv::dropLinesOfTask(id, in, out);
        EXPECT_SAME(out.str(), expectedDropOfTask(text, id));
    } else {
        const std::string schedule = takeLine(text);
        std::istringstream in(text);
        orv::splitTaskLines(
            [&schedule](int asked) {
                EXPECT(asked == 0);
                return schedule;
            },
            in, out);
        EXPECT_SAME(out.str(), expectedSplit(text, schedule));
    }
    return 0;
}
