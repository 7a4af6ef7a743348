#include "Run.h"

#include "CrontabLines.h"
#include "CrontabProgram.h"
#include "CrontabText.h"
#include "Owners.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t shownLines = 5;

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string withoutBlanks(const std::string& line)
{
    const std::size_t begin = line.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : line.substr(begin);
}

std::string afterClean(const std::string& crontab)
{
    std::istringstream in(crontab);
    std::ostringstream out;
    orv::dropTaskLines(in, out);
    return out.str();
}

// What a clean makes of one line. To find out, clean a crontab of that line and one more.
struct CleanedLine {
    std::string kept; // what is left of it, with a line feed if it gets one
    bool goesOn; // whether the clean reads the next line
};

CleanedLine cleaned(const std::string& line)
{
    static const std::string next = "\1 the next line \1\n";
    const std::string both = afterClean(line + "\n" + next);
    const bool goesOn = endsWith(both, next);
    return {goesOn ? both.substr(0, both.size() - next.size()) : both, goesOn};
}

// Whether such a line is its user's own, not the product's.
bool isOwn(Kind kind)
{
    return kind != Kind::blank && kind != Kind::taskLine;
}

const char* nameOf(Kind kind)
{
    switch (kind) {
    case Kind::blank:
        return "a blank line";
    case Kind::comment:
        return "a comment";
    case Kind::setting:
        return "a setting";
    case Kind::job:
        return "a job";
    case Kind::taskLine:
        return "a task line";
    default:
        return "which cron does not understand";
    }
}

std::string numbered(std::size_t line)
{
    return "line " + std::to_string(line);
}

// The fate of a line that became part of the line `joined`.
Fate fateWhenJoined(Kind kind, const std::string& line, const std::string& joined)
{
    if (kind == Kind::blank || withoutBlanks(joined) == withoutBlanks(line))
        return Fate::kept;
    if (kindOf(joined) != Kind::comment)
        return Fate::changed;
    return kind == Kind::comment ? Fate::kept : Fate::commented;
}

std::string whatBecomesOf(Kind kind, Fate fate, const std::string& joined)
{
    if (fate == Fate::kept)
        return kind == Kind::blank ? "" : ", which stays one";
    if (fate == Fate::commented)
        return ", which becomes a comment";
    if (kindOf(joined) == Kind::setting)
        return ", which becomes part of the setting " + settingIn(joined);
    return ", which becomes something else";
}

// Makes `event`, which comes next, part of `range`.
void extend(Event& range, const Event& event)
{
    range.last = event.last;
    for (const auto& [kind, number] : event.kinds)
        range.kinds[kind] += number;
    if (range.shown.size() < shownLines)
        range.shown.push_back(event.shown.front());
    else
        ++range.notShown;
}

// The lines of the user's crontab that have become one line of a text.
struct Origin {
    std::size_t first; // number of the first one, from 1
    std::size_t last;
};

// Goes through a crontab line by line, as a clean does, and records what happens to the user's own lines.
class CleanedCrontab {
public:
    explicit CleanedCrontab(const std::string& crontab)
    {
        for (const std::string& line : linesOf(crontab)) {
            ++m_number;
            look(withoutLineEnd(line));
        }
        if (!m_pieces.empty())
            finishJoined(false);
    }

    std::vector<Event> events;
    Fates lines;
    std::vector<Origin> origins; // of each line that the clean leaves

private:
    struct Piece {
        std::size_t number;
        Kind kind;
        std::string text;
        bool counted;
    };

    // Why a line is lost, and why several are.
    struct Reason {
        std::string one;
        std::string many;
    };

    void look(const std::string& line)
    {
        const Kind kind = kindOf(line);
        m_ownBefore = m_lastOwn;
        m_lastOwn = isOwn(kind) ? m_number : m_lastOwn;
        if (!m_whyEnded.one.empty())
            return lose(line, kind, m_whyEnded);
        const CleanedLine result = cleaned(line);
        if (!result.kept.empty())
            keep(line, kind, result.kept);
        else if (!line.empty() && line[0] == '\0')
            lose(line, kind, {"it begins with a zero byte", "they begin with a zero byte"});
        else if (!line.empty())
            lose(line, kind, {"it mentions the task manager", "they mention the task manager"});
        if (!result.goesOn) {
            const std::string below
                = " below " + numbered(m_number) + (line.empty() ? ", which is empty" : ", where the clean stops");
            m_whyEnded = {"it is" + below, "they are" + below};
        }
    }

    void lose(const std::string& line, Kind kind, const Reason& why)
    {
        if (!isOwn(kind))
            return;
        ++lines[{kind, Fate::lost}];
        add({m_number, m_number, Fate::lost, {{kind, 1}}, "is lost: " + why.one, "are lost: " + why.many, {line}});
    }

    void keep(const std::string& line, Kind kind, const std::string& kept)
    {
        const std::string text = withoutLineEnd(kept);
        const bool isCut = text != line && isOwn(kind);
        m_pieces.push_back({m_number, kind, text, isCut});
        if (isCut) {
            ++lines[{kind, Fate::cut}];
            add({m_number, m_number, Fate::cut, {{kind, 1}},
                "loses what follows its first " + std::to_string(text.size()) + " characters", "",
                {line.substr(text.size())}});
        }
        if (text != kept)
            finishJoined(true);
    }

    // The pieces are one line now. It ends with a line feed only if the last piece kept its own.
    void finishJoined(bool lineEnd)
    {
        std::string joined;
        for (const Piece& piece : m_pieces)
            joined += piece.text;
        for (const Piece& piece : m_pieces)
            if (isOwn(piece.kind) && !piece.counted)
                ++lines[{piece.kind, fateWhenJoined(piece.kind, piece.text, joined)}];
        const Piece last = m_pieces.back();
        origins.push_back({m_pieces.front().number, last.number});
        if (!lineEnd)
            add({m_pieces.front().number, last.number, Fate::kept, {}, "is last and loses its line end",
                "are last and become one without a line end", {joined}});
        else if (m_pieces.size() > 1)
            addJoined(last, joined);
        m_pieces.clear();
    }

    void addJoined(const Piece& last, const std::string& joined)
    {
        const Fate fate = fateWhenJoined(last.kind, last.text, joined);
        const std::string what = "joined to the front of " + numbered(last.number) + ", " + nameOf(last.kind)
            + whatBecomesOf(last.kind, fate, joined);
        add({m_pieces.front().number, m_pieces[m_pieces.size() - 2].number, fate, {}, "is " + what, "are " + what,
            {joined}});
    }

    // Lost lines are one range even if task lines or blank lines lie between them.
    void add(Event event)
    {
        Event* const before = events.empty() ? nullptr : &events.back();
        if (before == nullptr || event.kinds.empty() || event.fate != Fate::lost || before->one != event.one
            || before->last != m_ownBefore)
            events.push_back(std::move(event));
        else
            extend(*before, event);
    }

    std::size_t m_number = 0; ///< of the current line
    std::size_t m_lastOwn = 0; ///< number of the last own line, up to and with the current one
    std::size_t m_ownBefore = 0; ///< number of the last own line before the current one
    Reason m_whyEnded; ///< why the lines below are lost; "" while the clean reads on
    std::vector<Piece> m_pieces; ///< of the line that is being written
};

// Previews a run for one crontab, pass by pass.
class RunPreview {
public:
    RunPreview(const Owner& owner, const CrontabCheck& check)
        : m_owner(owner)
        , m_check(check)
    {
        m_run.after = owner.crontab.text;
        m_run.taskLinesBefore = countTaskLines(owner.crontab.text);
        startWithAllKept();
    }

    void clean()
    {
        if (!canInstall())
            return;
        const std::string result = afterClean(m_run.after);
        if (!install(result, "clean"))
            return;
        CleanedCrontab crontab(m_owner.crontab.text);
        m_run.events = std::move(crontab.events);
        m_run.lines = std::move(crontab.lines);
        m_origins = std::move(crontab.origins);
    }

    void rebuild()
    {
        if (!canInstall())
            return;
        if (!m_owner.whyNoRebuild.empty())
            return leaveAlone("rebuild", m_owner.whyNoRebuild, m_owner.rebuildFails);
        const std::string base = m_run.after;
        std::string result = base;
        m_firstTaskLine = linesOf(base).size() + (base.empty() || base.back() == '\n' ? 1 : 0);
        for (const TaskPreview& task : m_owner.tasks)
            result += task.line;
        if (!install(result, "rebuild") || result == base)
            return;
        lookAtJoin(base);
        lookAtDoubled(base);
    }

    Run take()
    {
        m_run.taskLinesAfter = countTaskLines(m_run.after);
        if (m_run.installs)
            lookAtStored();
        std::stable_sort(m_run.events.begin(), m_run.events.end(),
            [](const Event& one, const Event& other) { return one.first < other.first; });
        return std::move(m_run);
    }

private:
    void startWithAllKept()
    {
        for (const std::string& line : linesOf(m_owner.crontab.text)) {
            m_origins.push_back({m_origins.size() + 1, m_origins.size() + 1});
            if (const Kind kind = kindOf(withoutLineEnd(line)); isOwn(kind))
                ++m_run.lines[{kind, Fate::kept}];
        }
    }

    // A line of this kind that was counted as kept changes. Lines that are not the user's own are never counted.
    void countAsChanged(Kind kind)
    {
        std::size_t& kept = m_run.lines[{kind, Fate::kept}];
        if (kept == 0)
            return;
        --kept;
        ++m_run.lines[{kind, Fate::changed}];
    }

    bool canInstall()
    {
        const Listing& crontab = m_owner.crontab;
        if (!m_owner.account)
            leaveAlone("", "there is no account with this id", false);
        else if (crontab.forbidden)
            leaveAlone("", "cron.allow and cron.deny keep " + *m_owner.account + " from cron", true);
        else if (const std::string problem = scratchProblem(); !problem.empty())
            leaveAlone("", problem, true);
        else
            return true;
        return false;
    }

    void leaveAlone(const std::string& pass, const std::string& why, bool fault)
    {
        m_run.failed = m_run.failed || fault;
        const std::string reason = (m_run.installs && !pass.empty() ? "the " + pass + " leaves it alone: " : "") + why;
        if (m_run.whyAlone != reason)
            m_run.whyAlone += (m_run.whyAlone.empty() ? "" : "; ") + reason;
    }

    bool install(const std::string& result, const std::string& pass)
    {
        if (!m_owner.crontab.failure.empty() && m_run.warnings.empty())
            m_run.warnings.push_back("crontab -l fails, so a run takes the crontab for "
                + std::string(m_owner.crontab.text.empty() ? "empty" : "what it printed") + ": "
                + m_owner.crontab.failure);
        if (const auto refusal = m_check.refusal(*m_owner.account, result)) {
            leaveAlone("", "crontab refuses what the " + pass + " makes of it: " + whereIn(*refusal, pass), true);
            return false;
        }
        m_run.after = result;
        m_run.installs = true;
        return true;
    }

    std::string whereIn(const Refusal& refusal, const std::string& pass) const
    {
        std::size_t line = m_firstTaskLine;
        std::string task;
        if (pass == "rebuild")
            for (const TaskPreview& each : m_owner.tasks)
                if (!each.line.empty() && line++ == refusal.line)
                    task = " (task " + std::to_string(each.id) + ")";
        return numbered(refusal.line) + task + ": " + refusal.reason;
    }

    void lookAtJoin(const std::string& base)
    {
        if (base.empty() || base.back() == '\n')
            return;
        const std::vector<std::string> lines = linesOf(base);
        const auto first = std::find_if(
            m_owner.tasks.begin(), m_owner.tasks.end(), [](const TaskPreview& task) { return !task.line.empty(); });
        const std::string joined = lines.back() + withoutLineEnd(first->line);
        const Kind kind = kindOf(lines.back());
        const bool spoilt = kind != Kind::blank;
        if (kind != Kind::comment)
            countAsChanged(kind);
        const Origin origin = m_origins.back();
        const std::string what = "no line end: the line of task " + std::to_string(first->id) + " joins it"
            + (spoilt ? ", and that task does not run" : "");
        m_run.events.push_back({origin.first, origin.last, spoilt ? Fate::changed : Fate::kept, {},
            std::string(nameOf(kind)) + ", has " + what, "are one now, with " + what, {joined}});
        if (spoilt)
            m_run.warnings.push_back("task " + std::to_string(first->id) + " does not run");
    }

    void lookAtDoubled(const std::string& base)
    {
        std::set<int> appended;
        for (const TaskPreview& task : m_owner.tasks)
            if (!task.line.empty())
                appended.insert(task.id);
        std::set<int> doubled;
        std::size_t index = 0;
        for (const std::string& line : linesOf(base)) {
            const Origin origin = m_origins.at(index++);
            const std::optional<int> id = startedTask(withoutLineEnd(line));
            if (!id || appended.count(*id) == 0)
                continue;
            addDoubled(origin.last, withoutLineEnd(line));
            doubled.insert(*id);
        }
        m_run.startedTwice = doubled.size();
    }

    void addDoubled(std::size_t number, const std::string& line)
    {
        const Event event{number, number, Fate::kept, {}, "already starts a task, and stays beside the task's new line",
            "already start tasks, and stay beside the tasks' new lines", {line}};
        Event* const before = m_run.events.empty() ? nullptr : &m_run.events.back();
        if (before != nullptr && before->one == event.one && before->last + 1 == number)
            extend(*before, event);
        else
            m_run.events.push_back(event);
    }

    bool isLost(std::size_t number) const
    {
        return std::any_of(m_run.events.begin(), m_run.events.end(), [number](const Event& event) {
            return event.fate == Fate::lost && event.first <= number && number <= event.last;
        });
    }

    // A run installs what `crontab -l` prints, which for some control characters is two other characters.
    void lookAtStored()
    {
        const std::vector<std::string> stored = linesOf(m_owner.crontab.stored);
        const std::vector<std::string> listed = linesOf(m_owner.crontab.text);
        for (std::size_t i = 0; i < listed.size(); ++i)
            if (stored[i] != listed[i] && !isLost(i + 1))
                addRelisted(i + 1, withoutLineEnd(stored[i]), withoutLineEnd(listed[i]));
    }

    // Of neighbouring lines, the first is shown as it is stored and as it is listed.
    void addRelisted(std::size_t number, const std::string& stored, const std::string& listed)
    {
        static const std::string one = "has control characters, which the run replaces with what crontab -l prints";
        const Kind kind = kindOf(listed);
        countAsChanged(kind);
        Event* const before = m_run.events.empty() ? nullptr : &m_run.events.back();
        if (before != nullptr && before->one == one && before->last + 1 == number) {
            before->last = number;
            ++before->kinds[kind];
        } else {
            m_run.events.push_back({number, number, Fate::changed, {{kind, 1}}, one,
                "have control characters, which the run replaces with what crontab -l prints", {stored, listed}});
        }
    }

    const Owner& m_owner;
    const CrontabCheck& m_check;
    std::vector<Origin> m_origins; ///< of each line before the rebuild appends its own
    std::size_t m_firstTaskLine = 0; ///< number of the first line that the rebuild appends
    Run m_run;
};

} // namespace

Run preview(const Owner& owner, Command command, const CrontabCheck& check)
{
    RunPreview run(owner, check);
    if (command != Command::rebuild)
        run.clean();
    if (command != Command::clean)
        run.rebuild();
    return run.take();
}
