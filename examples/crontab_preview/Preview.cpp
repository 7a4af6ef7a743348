#include "Preview.h"

#include "Constants.h"
#include "CrontabText.h"
#include "OrvException.h"
#include "TaskEditor.h"
#include "UnifiedDiff.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <pwd.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string managerPath = tmanagerPath + "TessaraTaskManager";

// The store's own constructor would make the table.
bool tableExists()
{
    if (access(databaseName.c_str(), F_OK) != 0)
        return false;
    SqliteDb db(databaseName.c_str(), false);
    if (!db.doReadSql("select 1 from sqlite_master where type='table' and name='TaskTable'"))
        throw SqliteException(db.lastError, "the task database cannot be read");
    return db.nextRow();
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
    dropTaskLines(in, out);
    return out.str();
}

std::string taskLine(const std::string& schedule, int id)
{
    std::ostringstream out;
    writeTaskLine(out, schedule, id);
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

// Whether a rebuild could have written the line: a schedule, then what it writes for some id.
bool looksLikeTaskLine(const std::string& line)
{
    const std::size_t path = line.find(managerPath);
    if (path == std::string::npos || path == 0 || line[0] == '#')
        return false;
    int id = 0;
    if (std::sscanf(line.c_str() + path + managerPath.size(), " %9d", &id) != 1)
        return false;
    const std::string schedule = line.substr(0, path - 1);
    const auto blanks = std::count(schedule.begin(), schedule.end(), ' ');
    return line + "\n" == taskLine(schedule, id) && (blanks == 4 || schedule[0] == '@');
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
        if (m_joining != 0)
            warn(m_joining, "is last and has no line end: crontab may refuse it all", m_joined);
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
            warn(m_number, "loses all but its first " + std::to_string(text.size()) + " characters", line);
        if (m_joining != 0)
            warn(m_joining, "is joined to the front of line " + std::to_string(m_number), m_joined + text);
        m_joined = m_joining != 0 ? m_joined + text : text;
        m_joining = text == kept ? m_number : 0;
    }

    void lookBehindEnd(const std::string& line)
    {
        if (!line.empty() && !looksLikeTaskLine(line))
            warn(m_number, m_end, line);
    }

    void warn(std::size_t number, const std::string& what, const std::string& line)
    {
        m_warnings.push_back({"line " + std::to_string(number) + " " + what, line});
    }

    std::vector<Warning> m_warnings;
    std::size_t m_number = 0;
    std::string m_end; ///< what becomes of the lines that are not read any more; "" while they are
    std::size_t m_joining = 0; ///< the line before, if it was written without a line end
    std::string m_joined; ///< it, and what was joined to it
};

Outcome cleanOutcome(const OwnerPreview& owner)
{
    if (!owner.account)
        return {std::nullopt, "there is no account with this id", {}};
    const std::string crontab = owner.crontab.value_or("");
    return {afterClean(crontab), "", CleanWarnings(crontab).take()};
}

TaskPreview listedTask(TaskEditor& editor, int id)
{
    TaskPreview task{id, "", "", "", ""};
    try {
        task.description = editor.getTaskParameter(id, "description");
        task.schedule = editor.getTaskParameter(id, "crontime");
        if (editor.getTaskType(id) == scanNowTask)
            task.whyNone = "type 3 runs only once";
        else
            task.line = taskLine(task.schedule, id);
    } catch (SqliteException& error) {
        task.whyNone = std::string("unreadable: ") + error.getMessage();
    }
    return task;
}

// What the rebuild does not even look at.
TaskPreview unlistedTask(TaskEditor& editor, int id)
{
    TaskPreview task{id, editor.getTaskParameter(id, "description"), "", "", ""};
    const std::string status = editor.getTaskParameter(id, "status");
    task.whyNone = status.empty() ? "it has no status" : "status " + status + " is above 5";
    return task;
}

void addUnlistedTasks(TaskEditor& editor, OwnerPreview& owner)
{
    const int count = editor.getNumTaskRecord();
    const std::unique_ptr<int[]> ids(editor.getTaskIdArray());
    for (const int* id = ids.get(); id != ids.get() + count; ++id) {
        const auto listed = [id](const TaskPreview& task) { return task.id == *id; };
        const bool own = editor.getTaskParameter(*id, "userId") == std::to_string(owner.uid);
        if (own && std::none_of(owner.tasks.begin(), owner.tasks.end(), listed))
            owner.tasks.push_back(unlistedTask(editor, *id));
    }
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
    for (const TaskPreview& task : tasks)
        if (gets(task) && std::count(lines.begin(), lines.end(), task.line) > 0)
            warnings.push_back(
                {"the line of task " + std::to_string(task.id) + " would be there once more", task.line});
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

std::vector<TaskPreview> listedTasks(TaskEditor& editor, int uid)
{
    std::vector<TaskPreview> tasks;
    if (editor.getNumTaskRecordForUser(uid) > 0) // the list would throw
        for (const int id : editor.taskIdsForUser(uid))
            tasks.push_back(listedTask(editor, id));
    return tasks;
}

// The steps of the rebuild for one user, but for the installing.
void previewRebuild(TaskEditor& editor, OwnerPreview& owner)
{
    owner.tasks = listedTasks(editor, owner.uid);
    if (!owner.account)
        owner.rebuild = {std::nullopt, "there is no account with this id", {}};
    else if (owner.tasks.empty())
        owner.rebuild = {std::nullopt, "none of these tasks counts", {}};
    else
        owner.rebuild = rebuildOutcome(owner);
    addUnlistedTasks(editor, owner);
    if (!owner.account)
        for (TaskPreview& task : owner.tasks)
            task = {task.id, task.description, "", "", "uid " + std::to_string(owner.uid) + " has no account"};
}

OwnerPreview previewOwner(TaskEditor& editor, int uid)
{
    OwnerPreview owner{uid, accountName(uid), std::nullopt, {}, {}, {}};
    if (owner.account)
        owner.crontab = readCrontab(*owner.account);
    owner.clean = cleanOutcome(owner);
    previewRebuild(editor, owner);
    return owner;
}

} // namespace

std::vector<OwnerPreview> previewOwners()
{
    std::vector<OwnerPreview> owners;
    if (!tableExists())
        return owners;
    TaskEditor& editor = *TaskEditor::getInstance();
    if (editor.getNumUser() == 0)
        return owners; // the list would throw
    for (const int uid : editor.userIds())
        owners.push_back(previewOwner(editor, uid));
    return owners;
}
