#include "Report.h"

#include "Constants.h"
#include "UnifiedDiff.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::size_t columns = 80;
constexpr std::size_t descriptionColumns = 34;

constexpr auto bold = "1";
constexpr auto red = "31";
constexpr auto green = "32";
constexpr auto yellow = "33";
constexpr auto cyan = "36";
constexpr auto faint = "2";

bool continuesCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The bytes of the UTF-8 character at `position`, 0 if there is none or if it is a control character.
std::size_t characterAt(const std::string& text, std::size_t position)
{
    const auto byteAt = [&text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const unsigned first = byteAt(position);
    if (first < 0x80)
        return first >= ' ' && first != 0x7f ? 1 : 0;
    const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || (first == 0xc2 && byteAt(position + 1) < 0xa0))
        return 0;
    for (std::size_t i = position + 1; i < position + size; ++i)
        if (byteAt(i) < 0x80 || byteAt(i) > 0xbf)
            return 0;
    return size;
}

// A crontab is its owner's text, and it is root that reads this: no control character may reach the terminal.
std::string visible(const std::string& text)
{
    std::string shown;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t size = characterAt(text, i);
        char code[5];
        std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(text[i]));
        if (size > 0)
            shown += text.substr(i, size);
        else
            shown += text[i] == '\t' ? "\\t" : code;
        i += std::max<std::size_t>(size, 1);
    }
    return shown;
}

// Counts characters rather than bytes, and takes each for one column.
std::string cut(const std::string& text, std::size_t width)
{
    std::size_t shown = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (!continuesCharacter(text[i]) && ++shown > width) {
            std::size_t end = i - 1; // one character back, for the mark
            while (end > 0 && continuesCharacter(text[end]))
                --end;
            return text.substr(0, end) + "~";
        }
    return text;
}

std::string padded(const std::string& text, std::size_t width)
{
    const std::string shown = cut(text, width);
    const auto used
        = shown.size() - static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), continuesCharacter));
    return shown + std::string(width - used, ' ');
}

std::string withoutLineEnd(const std::string& text)
{
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

std::string count(std::size_t number, const std::string& what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

class Writer {
public:
    explicit Writer(bool colour)
        : m_colour(colour)
    {
    }

    void line(const std::string& text = "", const char* colour = nullptr)
    {
        const std::string shown = cut(visible(text), columns);
        m_text
            += m_colour && colour != nullptr ? std::string("\033[") + colour + "m" + shown + "\033[0m\n" : shown + "\n";
    }

    std::string take() { return std::move(m_text); }

private:
    const bool m_colour;
    std::string m_text;
};

std::string nameOf(const OwnerPreview& owner)
{
    return owner.account ? *owner.account : "uid " + std::to_string(owner.uid);
}

const Outcome& outcomeOf(const OwnerPreview& owner, Pass pass)
{
    return pass == Pass::clean ? owner.clean : owner.rebuild;
}

std::string nameOf(Pass pass)
{
    return pass == Pass::clean ? "clean" : "rebuild";
}

std::string difference(const OwnerPreview& owner, Pass pass, const std::string& behindName)
{
    const std::string before = owner.crontab.value_or("");
    const std::string after = outcomeOf(owner, pass).text.value_or(before);
    return unifiedDiff(
        before, nameOf(owner) + behindName + "now", after, nameOf(owner) + behindName + "after a " + nameOf(pass));
}

// "7 * * * * .../TessaraTaskManager 3": what differs from task to task.
std::string shortened(std::string line)
{
    line = withoutLineEnd(line);
    const std::size_t directory = line.find(tmanagerPath);
    if (directory != std::string::npos)
        line.replace(directory, tmanagerPath.size(), ".../");
    const std::size_t redirection = line.rfind(errorRedirection);
    return redirection == std::string::npos ? line : line.substr(0, redirection);
}

void writeTasks(Writer& out, const std::vector<TaskPreview>& tasks)
{
    out.line(padded("  task", 8) + padded("description", descriptionColumns) + "  crontab line", faint);
    for (const TaskPreview& task : tasks) {
        const std::string id = std::to_string(task.id);
        const std::string description = visible(withoutLineEnd(task.description));
        out.line(std::string(id.size() < 6 ? 6 - id.size() : 0, ' ') + id + "  "
                + padded(description, descriptionColumns) + "  "
                + (task.line.empty() ? "none: " + task.whyNone : shortened(task.line)),
            task.line.empty() ? yellow : nullptr);
    }
}

const char* colourOf(const std::string& diffLine)
{
    switch (diffLine[0]) {
    case '-':
        return red;
    case '+':
        return green;
    case '@':
        return cyan;
    default:
        return nullptr;
    }
}

void writeOutcome(Writer& out, const OwnerPreview& owner, Pass pass)
{
    const Outcome& outcome = outcomeOf(owner, pass);
    const std::string diff = difference(owner, pass, ", ");
    out.line();
    if (!outcome.text)
        out.line("A " + nameOf(pass) + " would leave the crontab alone: " + outcome.whyNone + ".", bold);
    else if (!owner.crontab)
        out.line("A " + nameOf(pass) + " would install " + (diff.empty() ? "an empty" : "a")
                + " crontab; there is none now.",
            bold);
    else
        out.line("A " + nameOf(pass) + " would change " + (diff.empty() ? "nothing." : "the crontab:"), bold);
    for (const std::string& line : linesOf(diff))
        out.line(withoutLineEnd(line), colourOf(line));
    for (const Warning& warning : outcome.warnings) {
        out.line("warning: " + warning.sentence, yellow);
        out.line("         " + withoutLineEnd(warning.line));
    }
}

void writeOwner(Writer& out, const OwnerPreview& owner)
{
    const std::string title = nameOf(owner) + (owner.account ? " (uid " + std::to_string(owner.uid) + ")" : "");
    out.line(title, bold);
    out.line(std::string(std::min(title.size(), columns), '='), bold);
    writeTasks(out, owner.tasks);
    writeOutcome(out, owner, Pass::clean);
    writeOutcome(out, owner, Pass::rebuild);
    out.line();
}

void writeSums(Writer& out, const std::vector<OwnerPreview>& owners)
{
    std::size_t tasks = 0;
    std::size_t lines = 0;
    std::size_t warnings = 0;
    for (const OwnerPreview& owner : owners) {
        tasks += owner.tasks.size();
        for (const TaskPreview& task : owner.tasks)
            lines += task.line.empty() ? 0 : 1;
        warnings += owner.clean.warnings.size() + owner.rebuild.warnings.size();
    }
    out.line(count(owners.size(), "owner") + ", " + count(tasks, "task") + ", " + count(lines, "task line") + ", "
            + count(warnings, "warning") + ". Nothing has been changed.",
        bold);
}

} // namespace

std::string diffOf(const OwnerPreview& owner, Pass pass)
{
    return difference(owner, pass, "\t"); // patch(1) takes what is behind it for a time
}

std::string report(const std::vector<OwnerPreview>& owners, bool colour)
{
    Writer out(colour);
    if (owners.empty())
        out.line("Nobody owns a task: neither a clean nor a rebuild would change a crontab.");
    for (const OwnerPreview& owner : owners)
        writeOwner(out, owner);
    if (!owners.empty())
        writeSums(out, owners);
    return out.take();
}
