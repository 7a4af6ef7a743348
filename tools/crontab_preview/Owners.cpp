#include "Owners.h"

#include "Constants.h"
#include "CrontabLines.h"
#include "CrontabProgram.h"
#include "OrvException.h"
#include "TaskEditor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <pwd.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// The message of the exception that is being handled.
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

// The editor would create a missing table, so look before there is one. A view of that name counts as the table.
bool tableExists()
{
    if (access(databaseName.c_str(), F_OK) != 0)
        return false;
    SqliteDb db(databaseName.c_str(), false);
    if (!db.doReadSql("select 1 from sqlite_master where type<>'trigger' and name='TaskTable' collate nocase"))
        throw SqliteException(db.lastError, "the task database cannot be read");
    return db.nextRow();
}

std::optional<std::string> accountName(int uid)
{
    const passwd* account = getpwuid(static_cast<uid_t>(uid));
    return account == nullptr ? std::nullopt : std::optional<std::string>(account->pw_name);
}

// Takes the steps of a rebuild for each owner, but installs nothing.
class RebuildPreview {
public:
    explicit RebuildPreview(TaskEditor& editor)
        : m_editor(editor)
    {
    }

    void look(Owner& owner)
    {
        if (!owner.account)
            leaveOut(owner, "there is no account with this id", "uid " + std::to_string(owner.uid) + " has no account");
        else if (!m_endedAt.empty())
            fail(owner, "an error has ended the rebuild at " + m_endedAt, notReached);
        else
            lookAtTasks(owner);
    }

private:
    static constexpr auto notReached = "the rebuild ends before it";
    static constexpr auto cannotList = "its owner's tasks cannot be listed";

    void lookAtTasks(Owner& owner)
    {
        int count = 0;
        try {
            count = m_editor.getNumTaskRecordForUser(owner.uid);
        } catch (...) {
            m_endedAt = *owner.account;
            return fail(owner, "an error ends the rebuild here: " + reason(), notReached);
        }
        try {
            if (count > 0) // the list would throw
                for (const int id : m_editor.taskIdsForUser(owner.uid))
                    owner.tasks.push_back(listedTask(id));
        } catch (...) {
            return fail(owner, cannotList, cannotList);
        }
        if (owner.tasks.empty())
            leaveOut(owner, "no task has a status of 5 or less");
        else
            edit(owner);
    }

    void edit(Owner& owner)
    {
        const std::string problem = scratchProblem();
        if (problem.empty())
            return addOtherTasks(owner);
        for (TaskPreview& task : owner.tasks)
            if (!task.line.empty())
                task = {task.id, task.description, "", "", problem};
        leaveOut(owner, problem);
    }

    void fail(Owner& owner, const std::string& why, const std::string& whyNoLine)
    {
        owner.rebuildFails = true;
        leaveOut(owner, why, whyNoLine);
    }

    // The reason for the tasks that the rebuild does not list is `whyNoLine` or, if that is "", each task's own.
    void leaveOut(Owner& owner, const std::string& why, const std::string& whyNoLine = "")
    {
        owner.whyNoRebuild = why;
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

    // Adds the tasks that the rebuild does not list.
    void addOtherTasks(Owner& owner, const std::string& whyNoLine = "")
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
            return false; // it may have been deleted meanwhile
        }
    }

    // No pass reads descriptions, so one that cannot be read is no problem.
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
    std::string m_endedAt; ///< the account at which an error ends the rebuild; "" if none does
};

} // namespace

std::string scratchProblem()
{
    if (access(tempPath.c_str(), W_OK | X_OK) == 0)
        return "";
    return "the scratch directory is "
        + (errno == ENOENT ? "missing" : std::string("not usable: ") + std::strerror(errno));
}

std::vector<Owner> readOwners()
{
    std::vector<Owner> owners;
    if (!tableExists())
        return owners;
    TaskEditor& editor = *TaskEditor::getInstance();
    if (editor.getNumUser() < 1)
        return owners; // the list would throw
    RebuildPreview rebuild(editor);
    for (const int uid : editor.userIds()) {
        owners.push_back({uid, accountName(uid), {}, {}, "", "", false});
        if (owners.back().account)
            owners.back().crontab = listCrontab(*owners.back().account);
        rebuild.look(owners.back());
    }
    return owners;
}
