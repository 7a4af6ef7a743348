#include "Report.h"

#include "TerminalText.h"
#include "UnifiedDiff.h"

#include <algorithm>

namespace {

constexpr std::size_t descriptionColumns = 24;
constexpr std::size_t scheduleIndent = 34;
constexpr std::size_t diffIndent = 1;
constexpr std::size_t lineIndent = 2;

constexpr auto bold = "1";
constexpr auto red = "31";
constexpr auto green = "32";
constexpr auto yellow = "33";
constexpr auto cyan = "36";
constexpr auto faint = "2";

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

    // What does not fit goes on in the next line, from the column `indent` on.
    void line(const std::string& text = "", const char* colour = nullptr, std::size_t indent = lineIndent)
    {
        for (const std::string& shown : linesOf(wrapped(visible(text), indent)))
            m_text += m_colour && colour != nullptr
                ? std::string("\033[") + colour + "m" + withoutLineEnd(shown) + "\033[0m\n"
                : shown;
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

// Of a task's line only the schedule: the rest is the same for all.
void writeTasks(Writer& out, const OwnerPreview& owner)
{
    out.line("  task  " + padded("description", descriptionColumns) + "  schedule of its crontab line", faint);
    for (const TaskPreview& task : owner.tasks) {
        const std::string id = std::to_string(task.id);
        const std::string description = visible(withoutLineEnd(task.description));
        out.line(std::string(id.size() < 6 ? 6 - id.size() : 0, ' ') + id + "  "
                + padded(description, descriptionColumns) + "  "
                + (task.line.empty() ? "none: " + task.whyNone : task.schedule),
            task.line.empty() ? yellow : nullptr, scheduleIndent);
    }
    if (!owner.whyNotAll.empty())
        out.line("        there may be more, which cannot be listed: " + owner.whyNotAll, yellow);
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

std::string sentence(const OwnerPreview& owner, Pass pass, bool changes)
{
    const Outcome& outcome = outcomeOf(owner, pass);
    const std::string would = "A " + nameOf(pass) + " would ";
    if (!outcome.text)
        return would + "leave the crontab alone: " + outcome.whyNone + ".";
    if (!owner.crontab)
        return would + "install " + (changes ? "a" : "an empty") + " crontab; there is none now.";
    return would + (changes ? "change the crontab:" : "change nothing.");
}

void writeOutcome(Writer& out, const OwnerPreview& owner, Pass pass)
{
    const std::vector<std::string> diff = linesOf(difference(owner, pass, ", "));
    out.line();
    out.line(sentence(owner, pass, !diff.empty()), bold);
    for (std::size_t i = 2; i < diff.size(); ++i) // behind the two names, which the reader knows
        out.line(withoutLineEnd(diff[i]), colourOf(diff[i]), diffIndent);
    for (const Warning& warning : outcomeOf(owner, pass).warnings) {
        out.line("warning: " + warning.sentence, yellow);
        out.line(std::string(lineIndent, ' ') + withoutLineEnd(warning.line));
    }
}

void writeOwner(Writer& out, const OwnerPreview& owner)
{
    const std::string title = nameOf(owner) + (owner.account ? " (uid " + std::to_string(owner.uid) + ")" : "");
    out.line(title, bold);
    out.line(std::string(std::min(title.size(), terminalColumns), '='), bold);
    writeTasks(out, owner);
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
    out.line("Whether crontab accepts it shows only in a run.");
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
