#include "Report.h"

#include "CrontabLines.h"
#include "CrontabProgram.h"
#include "Owners.h"
#include "Run.h"
#include "TerminalText.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

const std::vector<Kind> allKinds = {Kind::job, Kind::setting, Kind::comment, Kind::other};

constexpr std::size_t descriptionColumns = 24;
constexpr std::size_t scheduleIndent = 36;
constexpr std::size_t widestName = 32;
constexpr std::size_t textIndent = 4;

constexpr auto bold = "1";
constexpr auto yellow = "33";

// "2,498"
std::string grouped(std::size_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3;)
        text.insert(i -= 3, ",");
    return text;
}

std::string count(std::size_t number, const std::string& what)
{
    return grouped(number) + " " + what + (number == 1 ? "" : "s");
}

std::string nameOf(Kind kind)
{
    return kind == Kind::comment ? "comment"
        : kind == Kind::setting  ? "setting"
        : kind == Kind::job      ? "job"
                                 : "other line";
}

std::string joined(const std::vector<std::string>& parts, const std::string& between)
{
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : between) + part;
    return text;
}

class Writer {
public:
    explicit Writer(const Style& style)
        : m_style(style)
    {
    }

    // `shown` comes from visible(). What does not fit continues on the next line, in column `indent`.
    void line(const std::string& shown = "", const char* colour = nullptr, std::size_t indent = textIndent)
    {
        for (const std::string& part : linesOf(m_style.folded ? wrapped(shown, indent) : shown + "\n"))
            write(part, colour);
    }

    // The same for a sentence, which is folded between words.
    void prose(const std::string& shown, const char* colour = nullptr, std::size_t indent = textIndent)
    {
        std::string begun;
        std::string rest = shown;
        while (m_style.folded && columnsOf(begun + rest) > terminalColumns) {
            const std::string whole = begun + rest;
            const std::size_t blank = cut(whole, terminalColumns + 1).find_last_of(' ');
            if (blank == std::string::npos || blank <= begun.size())
                break;
            write(whole.substr(0, blank) + "\n", colour);
            rest = whole.substr(blank + 1);
            begun = std::string(indent, ' ');
        }
        write(begun + rest + "\n", colour);
    }

    std::string take() { return std::move(m_text); }

private:
    void write(const std::string& shown, const char* colour)
    {
        m_text += m_style.coloured && colour != nullptr
            ? std::string("\033[") + colour + "m" + withoutLineEnd(shown) + "\033[0m\n"
            : shown;
    }

    const Style m_style;
    std::string m_text;
};

std::string nameOf(const Owner& owner)
{
    return owner.account ? *owner.account : "uid " + std::to_string(owner.uid);
}

std::size_t linesOf(const Fates& lines, Kind kind, Fate fate)
{
    const auto found = lines.find({kind, fate});
    return found == lines.end() ? 0 : found->second;
}

std::size_t allOf(const Fates& lines, Kind kind)
{
    std::size_t sum = 0;
    for (const auto& [kindAndFate, number] : lines)
        sum += kindAndFate.first == kind ? number : 0;
    return sum;
}

std::size_t harmed(const Fates& lines, Kind kind)
{
    return allOf(lines, kind) - linesOf(lines, kind, Fate::kept);
}

// "loses 1 of 2 jobs, 1 of 1 setting; 1 job becomes a comment"; "" if all lines are kept.
std::string fatesOf(const Fates& lines, const std::vector<Kind>& kinds, const std::string& lose)
{
    std::vector<std::string> lost;
    std::vector<std::string> parts;
    for (const Kind kind : kinds) {
        if (const std::size_t number = linesOf(lines, kind, Fate::lost); number > 0)
            lost.push_back(grouped(number) + " of " + count(allOf(lines, kind), nameOf(kind)));
        for (const auto& [fate, one, many] : {std::tuple{Fate::cut, " is cut", " are cut"},
                 {Fate::commented, " becomes a comment", " become comments"}, {Fate::changed, " changes", " change"}})
            if (const std::size_t number = linesOf(lines, kind, fate); number > 0)
                parts.push_back(count(number, nameOf(kind)) + (number == 1 ? one : many));
    }
    if (!lost.empty())
        parts.insert(parts.begin(), lose + joined(lost, ", "));
    return joined(parts, "; ");
}

std::string taskLines(std::size_t before, std::size_t after)
{
    return "task lines " + grouped(before) + " -> " + grouped(after);
}

std::string twice(std::size_t tasks)
{
    return count(tasks, "task") + (tasks == 1 ? " starts" : " start") + " twice";
}

// Whether the run takes what `crontab -l` printed before it failed for the whole crontab.
bool replacesUnlisted(const OwnersRun& of)
{
    return of.run.installs && !of.owner.crontab.failure.empty();
}

std::string summary(const OwnersRun& of, const std::vector<Kind>& kinds)
{
    const Run& run = of.run;
    std::vector<std::string> parts;
    if (!run.whyAlone.empty())
        parts.push_back((run.installs ? "" : "stays as it is: ") + run.whyAlone);
    if (const std::string fates = fatesOf(run.lines, kinds, "loses "); !fates.empty())
        parts.push_back(fates);
    if (run.startedTwice > 0)
        parts.push_back(twice(run.startedTwice));
    parts.insert(parts.end(), run.warnings.begin(), run.warnings.end());
    if (run.installs && run.taskLinesBefore + run.taskLinesAfter > 0)
        parts.push_back(taskLines(run.taskLinesBefore, run.taskLinesAfter));
    if (run.installs && !of.owner.crontab.exists)
        parts.emplace_back(run.after.empty() ? "gets an empty crontab" : "gets a crontab");
    else if (run.installs && run.after.empty() && !of.owner.crontab.text.empty())
        parts.emplace_back("left empty");
    return parts.empty() ? "nothing changes" : joined(parts, "; ");
}

std::string subject(const Event& event)
{
    if (event.first == event.last) {
        const std::string line = "line " + std::to_string(event.first);
        if (event.kinds.empty())
            return line + (event.one.rfind("a ", 0) == 0 ? ", " : " ");
        const std::string kind = nameOf(event.kinds.begin()->first);
        return line + (kind == "other line" ? " " : ", a " + kind + ", ");
    }
    std::vector<std::string> kinds;
    for (const Kind kind : allKinds)
        if (const auto found = event.kinds.find(kind); found != event.kinds.end())
            kinds.push_back(count(found->second, nameOf(kind)));
    const std::string lines = "lines " + std::to_string(event.first) + " to " + std::to_string(event.last);
    return lines + (kinds.empty() ? " " : ", " + joined(kinds, " and ") + ", ");
}

void writeEvent(Writer& out, const Event& event)
{
    out.prose("  " + subject(event) + visible(event.first == event.last ? event.one : event.many),
        event.fate == Fate::kept ? nullptr : yellow);
    for (const std::string& line : event.shown)
        out.line(std::string(textIndent, ' ') + visible(line), nullptr, textIndent + 1);
    if (event.notShown > 0)
        out.line(std::string(textIndent, ' ') + "... and " + count(event.notShown, "more line"));
}

// Shows only the schedule of a task line: the rest is the same for all tasks.
void writeTasks(Writer& out, const Owner& owner)
{
    if (!owner.tasks.empty())
        out.line("    task  " + padded("description", descriptionColumns) + "  schedule of its new line");
    for (const TaskPreview& task : owner.tasks) {
        const std::string id = std::to_string(task.id);
        const std::string description
            = visible(task.description.substr(0, task.description.find_last_not_of('\n') + 1));
        out.line(std::string(id.size() < 8 ? 8 - id.size() : 0, ' ') + id + "  "
                + padded(description, descriptionColumns) + "  "
                + visible(task.line.empty() ? "none: " + task.whyNone : task.schedule),
            nullptr, scheduleIndent);
    }
    if (!owner.whyNotAll.empty())
        out.line("          there may be more that cannot be listed: " + visible(owner.whyNotAll), yellow);
}

void writeDetails(Writer& out, const OwnersRun& of, Command command)
{
    out.prose(visible(nameOf(of.owner)) + (of.owner.account ? " (uid " + std::to_string(of.owner.uid) + ")" : "") + ": "
            + visible(summary(of, allKinds)),
        bold);
    for (const Event& event : of.run.events)
        writeEvent(out, event);
    if (command != Command::clean)
        writeTasks(out, of.owner);
    out.line();
}

using Harm = std::tuple<std::size_t, std::size_t, std::size_t, bool>;

// The greater, the worse. Lost comments do not count.
Harm harmOf(const Run& run)
{
    return {harmed(run.lines, Kind::job), harmed(run.lines, Kind::setting) + harmed(run.lines, Kind::other),
        run.startedTwice + run.warnings.size(), run.failed};
}

void writeHarmless(Writer& out, const std::vector<const OwnersRun*>& others, bool thereAreMore)
{
    std::size_t changed = 0;
    std::size_t commentsOnly = 0;
    std::size_t comments = 0;
    for (const OwnersRun* const of : others) {
        const std::size_t lost = harmed(of->run.lines, Kind::comment);
        commentsOnly += lost > 0 ? 1 : 0;
        comments += lost;
        changed += changes(*of) ? 1 : 0;
    }
    if (commentsOnly > 0)
        out.prose(count(commentsOnly, "owner") + (commentsOnly == 1 ? " loses" : " lose")
            + " nothing but comments: " + count(comments, "line"));
    const std::size_t rest = others.size() - commentsOnly;
    const std::string who = std::string(thereAreMore || commentsOnly > 0 ? "other" : "owner");
    if (rest == 1)
        out.prose(
            "1 " + who + " loses nothing; the crontab " + (changed > commentsOnly ? "changes" : "stays as it is"));
    else if (rest > 1)
        out.prose(count(rest, who) + " lose nothing; " + grouped(changed - commentsOnly) + " of their crontabs "
            + (changed - commentsOnly == 1 ? "changes" : "change"));
}

void writeSummaries(Writer& out, const std::vector<OwnersRun>& all)
{
    std::vector<const OwnersRun*> harmful;
    std::vector<const OwnersRun*> others;
    for (const OwnersRun& of : all)
        if (harmOf(of.run) > Harm())
            harmful.push_back(&of);
        else
            others.push_back(&of);
    std::stable_sort(harmful.begin(), harmful.end(),
        [](const OwnersRun* one, const OwnersRun* other) { return harmOf(one->run) > harmOf(other->run); });
    std::size_t columns = 0;
    for (const OwnersRun* const of : harmful)
        columns = std::max(columns, std::min(columnsOf(visible(nameOf(of->owner))), widestName));
    for (const OwnersRun* const of : harmful)
        out.prose(padded(visible(nameOf(of->owner)), columns) + "  "
                + visible(summary(*of, {Kind::job, Kind::setting, Kind::other})),
            yellow, columns + 2);
    writeHarmless(out, others, !harmful.empty());
}

void writeSums(Writer& out, const std::vector<OwnersRun>& all, Command command)
{
    Fates lines;
    std::size_t changed = 0;
    std::size_t before = 0;
    std::size_t after = 0;
    std::size_t startedTwice = 0;
    for (const OwnersRun& of : all) {
        changed += changes(of) ? 1 : 0;
        before += of.run.taskLinesBefore;
        after += of.run.taskLinesAfter;
        startedTwice += of.run.startedTwice;
        for (const auto& [kindAndFate, number] : of.run.lines)
            lines[kindAndFate] += number;
    }
    std::string fates = fatesOf(lines, allKinds, "lost: ");
    if (std::any_of(all.begin(), all.end(), replacesUnlisted))
        fates += std::string(fates.empty() ? "" : "; ") + "lines that crontab -l does not print may be lost";
    out.prose(std::string(command == Command::update ? "An " : "A ") + nameOf(command) + " would change "
            + grouped(changed) + " of " + count(all.size(), "crontab") + "; "
            + (fates.empty() ? "no line is lost" : fates) + "; " + (startedTwice > 0 ? twice(startedTwice) + "; " : "")
            + taskLines(before, after) + ".",
        bold, 0);
}

} // namespace

std::string nameOf(Command command)
{
    return command == Command::clean ? "clean" : command == Command::rebuild ? "rebuild" : "update";
}

bool changes(const OwnersRun& of)
{
    const Listing& crontab = of.owner.crontab;
    return replacesUnlisted(of)
        || (of.run.installs && (!crontab.exists || of.run.after != crontab.text || crontab.stored != crontab.text));
}

bool mayLoseLines(const OwnersRun& of)
{
    return replacesUnlisted(of)
        || std::any_of(allKinds.begin(), allKinds.end(), [&](Kind kind) { return harmed(of.run.lines, kind) > 0; });
}

std::string diffOf(const OwnersRun& of, Command command)
{
    const std::string name = nameOf(of.owner) + "\t"; // patch(1) reads a time stamp after the tab
    return unifiedDiff(of.owner.crontab.text, name + "now", of.run.after,
        name + "after " + (command == Command::update ? "an " : "a ") + nameOf(command));
}

std::string report(const std::vector<OwnersRun>& all, Command command, const Style& style, bool crontabWasAsked)
{
    Writer out(style);
    if (all.empty())
        out.prose("Nobody owns a task: no run would change a crontab.");
    for (const OwnersRun& of : all)
        if (style.details)
            writeDetails(out, of, command);
    if (!style.details)
        writeSummaries(out, all);
    if (!all.empty())
        writeSums(out, all, command);
    if (!all.empty() && !crontabWasAsked)
        out.prose("Only a run will show whether crontab accepts the result: this crontab cannot check a file.");
    return out.take();
}
