#include "Preview.h"

#include "Constants.h"
#include "CrontabText.h"
#include "OrvException.h"
#include "TaskEditor.h"
#include "UnifiedDiff.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <pwd.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace {

const std::string managerPath = tmanagerPath + "TessaraTaskManager";
constexpr auto noAccount = "there is no account with this id";

// What the exception that is being handled says.
std::string reason()
{
    try {
        throw;
    } catch (OrvException& error) {
        return error.getMessage();
    } catch (const std::exception& error) {
        return error.what();
    }
}

// The store's own constructor would make the table, unless something stands under that name: a view does as well.
bool tableExists()
{
    if (access(databaseName.c_str(), F_OK) != 0)
        return false;
    SqliteDb db(databaseName.c_str(), false);
    if (!db.doReadSql("select 1 from sqlite_master where type<>'trigger' and name='TaskTable' collate nocase"))
        throw SqliteException(db.lastError, "the task database cannot be read");
    return db.nextRow();
}

// Why no run can edit a crontab; "" if one can.
std::string scratchProblem()
{
    if (access(tempPath.c_str(), W_OK | X_OK) == 0)
        return "";
    return "the scratch directory is "
        + (errno == ENOENT ? "missing" : std::string("of no use: ") + std::strerror(errno));
}

std::optional<std::string> accountName(int uid)
{
    const passwd* account = getpwuid(static_cast<uid_t>(uid));
    return account == nullptr ? std::nullopt : std::optional<std::string>(account->pw_name);
}

std::optional<std::string> readCrontab(const std::string& account)
{
    FILE* const pipe = popen(("/usr/bin/crontab -u " + account + " -l 2>/dev/null").c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("the crontab of " + account + " cannot be read: no process can be started");
    std::string text;
    char block[4096];
    for (std::size_t size; (size = std::fread(block, 1, sizeof block, pipe)) > 0;)
        text.append(block, size);
    const int status = pclose(pipe);
    // What was printed counts for the passes, whatever the exit status.
    return status == 0 || !text.empty() ? std::optional<std::string>(text) : std::nullopt;
}

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string afterClean(const std::string& crontab)
{
    std::istringstream in(crontab);
    std::ostringstream out;
    orv::dropTaskLines(in, out);
    return out.str();
}

std::string taskLine(const std::string& schedule, int id)
{
    std::ostringstream out;
    orv::writeTaskLine(out, schedule, id);
    return out.str();
}

std::string withoutLineEnd(const std::string& line)
{
    return endsWith(line, "\n") ? line.substr(0, line.size() - 1) : line;
}

// What the clean makes of one line, found by cleaning a crontab of that line and one more.
struct Fate {
    std::string kept; // what is left of it, with a line feed if it gets one
    bool goesOn; // whether what follows it is looked at
};

Fate fateOf(const std::string& line)
{
    static const std::string next = "\1 the next line \1\n";
    const std::string cleaned = afterClean(line + "\n" + next);
    const bool goesOn = endsWith(cleaned, next);
    return {goesOn ? cleaned.substr(0, cleaned.size() - next.size()) : cleaned, goesOn};
}

// The task that a line of a crontab starts.
std::optional<int> startedTask(const std::string& line)
{
    const std::size_t path = line.find(managerPath);
    if (path == std::string::npos || line[line.find_first_not_of(" \t")] == '#')
        return std::nullopt;
    const std::size_t begin = line.find_first_not_of(" \t", path + managerPath.size());
    if (begin == std::string::npos || begin == path + managerPath.size())
        return std::nullopt;
    int id = 0;
    const bool read = std::from_chars(line.data() + begin, line.data() + line.size(), id).ec == std::errc();
    return read ? std::optional<int>(id) : std::nullopt;
}

bool isSchedule(const std::string& text)
{
    std::istringstream in(text);
    int fields = 0;
    std::string first;
    for (std::string field; in >> field; ++fields)
        first = fields == 0 ? field : first;
    return fields == 5 || (fields == 1 && first[0] == '@');
}

// Whether a rebuild could have written the line.
bool looksLikeTaskLine(const std::string& line)
{
    const std::optional<int> id = startedTask(line);
    if (!id)
        return false;
    const std::string schedule = line.substr(0, line.find(" " + managerPath));
    return line + "\n" == taskLine(schedule, *id) && isSchedule(schedule);
}

// Goes through the lines of a crontab as the clean does, and notes what becomes of those that are not the product's.
class CleanWarnings {
public:
    explicit CleanWarnings(const std::string& crontab)
    {
        for (const std::string& line : linesOf(crontab)) {
            ++m_number;
            if (m_end.empty())
                look(withoutLineEnd(line));
            else
                lookBehindEnd(withoutLineEnd(line));
        }
        if (m_firstJoined != 0)
            warnOfJoined(std::string(" last and ") + (m_firstJoined == m_lastJoined ? "has" : "have")
                + " no line end: crontab may refuse it all");
    }

    std::vector<Warning> take() { return std::move(m_warnings); }

private:
    void look(const std::string& line)
    {
        const Fate fate = fateOf(line);
        if (!fate.kept.empty())
            lookAtKept(line, fate.kept);
        else if (!line.empty() && !looksLikeTaskLine(line))
            warn(m_number,
                line[0] == '\0' ? "is lost: it begins with a zero byte" : "is lost: it mentions the task manager",
                line);
        if (!fate.goesOn)
            m_end = "is lost: it stands below line " + std::to_string(m_number)
                + (line.empty() ? ", which is empty" : ", where the clean stops");
    }

    void lookAtKept(const std::string& line, const std::string& kept)
    {
        const std::string text = withoutLineEnd(kept);
        if (text != line)
            warn(m_number, "loses what follows its first " + std::to_string(text.size()) + " characters",
                line.substr(text.size()));
        const bool joinsNext = text == kept;
        m_joined += m_firstJoined != 0 || joinsNext ? text : "";
        if (joinsNext) {
            m_firstJoined = m_firstJoined != 0 ? m_firstJoined : m_number;
            m_lastJoined = m_number;
        } else if (m_firstJoined != 0) {
            warnOfJoined(" joined to the front of line " + std::to_string(m_number));
            m_firstJoined = 0;
            m_joined.clear();
        }
    }

    void lookBehindEnd(const std::string& line)
    {
        if (!line.empty() && !looksLikeTaskLine(line))
            warn(m_number, m_end, line);
    }

    void warnOfJoined(const std::string& what)
    {
        const std::string first = std::to_string(m_firstJoined);
        const std::string last = std::to_string(m_lastJoined);
        m_warnings.push_back(
            {(first == last ? "line " + first + " is" : "lines " + first + " to " + last + " are") + what, m_joined});
    }

    void warn(std::size_t number, const std::string& what, const std::string& line)
    {
        m_warnings.push_back({"line " + std::to_string(number) + " " + what, line});
    }

    std::vector<Warning> m_warnings;
    std::size_t m_number = 0;
    std::string m_end; ///< what becomes of the lines that are not read any more; "" while they are
    std::size_t m_firstJoined = 0; ///< the first of the lines before that were written without a line end; 0 for none
    std::size_t m_lastJoined = 0; ///< the last of them
    std::string m_joined; ///< they, in one line
};

Outcome cleanOutcome(const OwnerPreview& owner)
{
    if (!owner.account)
        return {std::nullopt, noAccount, {}};
    if (const std::string problem = scratchProblem(); !problem.empty())
        return {std::nullopt, problem, {}};
    const std::string crontab = owner.crontab.value_or("");
    return {afterClean(crontab), "", CleanWarnings(crontab).take()};
}

std::vector<Warning> rebuildWarnings(const std::string& crontab, const std::vector<TaskPreview>& tasks)
{
    std::vector<Warning> warnings;
    const std::vector<std::string> lines = linesOf(crontab);
    const auto gets = [](const TaskPreview& task) { return !task.line.empty(); };
    const auto first = std::find_if(tasks.begin(), tasks.end(), gets);
    if (!lines.empty() && !endsWith(crontab, "\n") && first != tasks.end())
        warnings.push_back(
            {"the last line has no line end: the first new one is joined to it", lines.back() + first->line});
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::optional<int> started = startedTask(lines[i]);
        const auto again = [&](const TaskPreview& task) { return gets(task) && task.id == started; };
        if (started && std::any_of(tasks.begin(), tasks.end(), again))
            warnings.push_back({"line " + std::to_string(i + 1) + " starts task " + std::to_string(*started)
                    + " already, and stays beside the new line",
                lines[i]});
    }
    return warnings;
}

Outcome rebuildOutcome(const OwnerPreview& owner)
{
    Outcome outcome;
    outcome.text = owner.crontab.value_or("");
    for (const TaskPreview& task : owner.tasks)
        *outcome.text += task.line;
    outcome.warnings = rebuildWarnings(owner.crontab.value_or(""), owner.tasks);
    return outcome;
}

// Goes through the owners with the steps of the rebuild, but for the installing.
class RebuildPreview {
public:
    explicit RebuildPreview(TaskEditor& editor)
        : m_editor(editor)
    {
    }

    void look(OwnerPreview& owner)
    {
        if (!owner.account)
            leaveOut(owner, noAccount, "uid " + std::to_string(owner.uid) + " has no account");
        else if (!m_endedAt.empty())
            leaveOut(owner, "it has ended before, at " + m_endedAt + "'s", notReached);
        else
            lookAtTasks(owner);
    }

private:
    static constexpr auto notReached = "the rebuild ends before it";

    void lookAtTasks(OwnerPreview& owner)
    {
        int count = 0;
        try {
            count = m_editor.getNumTaskRecordForUser(owner.uid);
        } catch (...) {
            m_endedAt = *owner.account;
            return leaveOut(owner, "it ends here: " + reason(), notReached);
        }
        try {
            if (count > 0) // the list would throw
                for (const int id : m_editor.taskIdsForUser(owner.uid))
                    owner.tasks.push_back(listedTask(id));
        } catch (...) {
            return leaveOut(owner, "its tasks cannot be listed", "its owner's tasks cannot be listed");
        }
        if (owner.tasks.empty())
            leaveOut(owner, "none of these tasks counts");
        else
            edit(owner);
    }

    void edit(OwnerPreview& owner)
    {
        const std::string problem = scratchProblem();
        if (problem.empty()) {
            owner.rebuild = rebuildOutcome(owner);
            return addOtherTasks(owner);
        }
        for (TaskPreview& task : owner.tasks)
            if (!task.line.empty())
                task = {task.id, task.description, "", "", problem};
        leaveOut(owner, problem);
    }

    // Without `whyNoLine`, tasks that were not listed have reasons of their own.
    void leaveOut(OwnerPreview& owner, const std::string& why, const std::string& whyNoLine = "")
    {
        owner.rebuild = {std::nullopt, why, {}};
        addOtherTasks(owner, whyNoLine);
    }

    TaskPreview listedTask(int id)
    {
        TaskPreview task{id, descriptionOf(id), "", "", ""};
        try {
            task.schedule = m_editor.getTaskParameter(id, "crontime");
            if (m_editor.getTaskType(id) == taskTypeScanNow)
                task.whyNone = "type 3 runs only once";
            else
                task.line = taskLine(task.schedule, id);
        } catch (...) {
            task.whyNone = unreadable();
        }
        return task;
    }

    // Those that the rebuild does not even look at.
    void addOtherTasks(OwnerPreview& owner, const std::string& whyNoLine = "")
    {
        try {
            for (const int id : m_editor.taskIds())
                if (isOwnedBy(id, owner.uid) && !isIn(owner.tasks, id))
                    owner.tasks.push_back(
                        {id, descriptionOf(id), "", "", whyNoLine.empty() ? whyNotListed(id) : whyNoLine});
        } catch (...) {
            owner.whyNotAll = reason();
        }
    }

    static bool isIn(const std::vector<TaskPreview>& tasks, int id)
    {
        return std::any_of(tasks.begin(), tasks.end(), [id](const TaskPreview& task) { return task.id == id; });
    }

    bool isOwnedBy(int id, int uid)
    {
        try {
            return m_editor.getTaskParameter(id, "userId") == std::to_string(uid);
        } catch (...) {
            return false; // it is gone by now, say
        }
    }

    // No pass reads it.
    std::string descriptionOf(int id)
    {
        try {
            return m_editor.getTaskParameter(id, "description");
        } catch (...) {
            return "(unreadable)";
        }
    }

    std::string whyNotListed(int id)
    {
        try {
            const std::string status = m_editor.getTaskParameter(id, "status");
            return status.empty() ? "it has no status" : "status " + status + " is above 5";
        } catch (...) {
            return unreadable();
        }
    }

    static std::string unreadable() { return "unreadable: " + reason(); }

    TaskEditor& m_editor;
    std::string m_endedAt; ///< the account at which an exception ends the pass; "" if none does
};

OwnerPreview ownerOf(int uid)
{
    OwnerPreview owner{uid, accountName(uid), std::nullopt, {}, "", {}, {}};
    if (owner.account)
        owner.crontab = readCrontab(*owner.account);
    owner.clean = cleanOutcome(owner);
    return owner;
}

} // namespace

std::vector<OwnerPreview> previewOwners()
{
    std::vector<OwnerPreview> owners;
    if (!tableExists())
        return owners;
    TaskEditor& editor = *TaskEditor::getInstance();
    if (editor.getNumUser() < 1)
        return owners; // the list would throw
    RebuildPreview rebuild(editor);
    for (const int uid : editor.userIds()) {
        owners.push_back(ownerOf(uid));
        rebuild.look(owners.back());
    }
    return owners;
}
