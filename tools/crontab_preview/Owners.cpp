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

std::optional<std::string> accountName(int uid)
{
    const passwd* account = getpwuid(static_cast<uid_t>(uid));
    return account == nullptr ? std::nullopt : std::optional<std::string>(account->pw_name);
}

// Goes through the owners with the steps of the rebuild, but for the installing.
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
            leaveNotReached(owner);
        else
            lookAtTasks(owner);
    }

private:
    static constexpr auto notReached = "the rebuild ends before it";

    void leaveNotReached(Owner& owner)
    {
        owner.rebuildFails = true;
        leaveOut(owner, "it has ended before, at " + m_endedAt + "'s", notReached);
    }

    void lookAtTasks(Owner& owner)
    {
        int count = 0;
        try {
            count = m_editor.getNumTaskRecordForUser(owner.uid);
        } catch (...) {
            m_endedAt = *owner.account;
            owner.rebuildFails = true;
            return leaveOut(owner, "it ends here: " + reason(), notReached);
        }
        try {
            if (count > 0) // the list would throw
                for (const int id : m_editor.taskIdsForUser(owner.uid))
                    owner.tasks.push_back(listedTask(id));
        } catch (...) {
            owner.rebuildFails = true;
            return leaveOut(owner, "its tasks cannot be listed", "its owner's tasks cannot be listed");
        }
        if (owner.tasks.empty())
            leaveOut(owner, "none of these tasks counts");
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

    // Without `whyNoLine`, tasks that were not listed have reasons of their own.
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

    // Those that the rebuild does not even look at.
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

} // namespace

std::string scratchProblem()
{
    if (access(tempPath.c_str(), W_OK | X_OK) == 0)
        return "";
    return "the scratch directory is "
        + (errno == ENOENT ? "missing" : std::string("of no use: ") + std::strerror(errno));
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
