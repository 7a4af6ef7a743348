#pragma once

#include "SqliteDb.h" // IWYU pragma: export
#include "TaskInfo.h" // IWYU pragma: export

#include <CoreFoundation/CoreFoundation.h>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

/// The time-stamp text of `time` (seconds since 1970): the nine fields of the local time from tm_sec to tm_isdst, each
/// followed by a comma: "5,30,8,16,10,126,1,319,0,". If localtime fails for `time`, logs that and returns "".
std::string convertTmToString(long time);

/// The time of a time-stamp text in seconds since 1970, as mktime computes it from the text's nine fields in the local
/// time zone; -1 on error. Nothing is checked. A field without digits is 0. If there are fewer than nine fields,
/// reading starts again at the beginning of the text. Text after the ninth field is ignored.
time_t convertStringToTm(std::string text);

/// The task store: every query and update of TaskTable.
///
/// The object itself is an open connection that no operation uses. Each operation opens a connection of its own and
/// closes it before it returns or throws. Nothing is kept from one operation to the next, and no transaction spans two.
/// The only lock is SQLite's on the file, for which an operation waits up to 5 seconds.
///
/// Failures are thrown as SqliteException, with code 401 and "Data not found" if a statement ran but found no row (or
/// not as many rows as were counted before); else with SQLite's result code and the message given for the operation.
/// Any operation can throw std::bad_alloc. Unless stated otherwise, an operation that fails has changed nothing.
class TaskInterface : public SqliteDb {
public:
    /// Ids in SQLite's row order, and how many.
    struct IdList {
        std::unique_ptr<int[]> ids;
        int count;

        const int* begin() const { return ids.get(); }
        const int* end() const { return ids.get() + count; }
    };

    /// Opens the task database, and creates the file and TaskTable if they do not exist.
    /// Throws SqliteException with SQLite's code if the file cannot be opened or the table cannot be created.
    TaskInterface();

    // Counts, and lists of ids. Each list counts first, and throws what that count throws. It throws 401 if the count
    // is 0, or if the number of rows has changed since. An int* is an array made with new int[n], where n is that
    // count; the caller frees it with delete[].

    int getNumTaskRecord(); ///< The number of tasks. Throws "TaskTable doesn't exist-1".
    int getNumTaskRecord(int type); ///< The number of tasks of type `type`. Throws "Error in taskType".
    /// The number of tasks of user `uid` with status 5 or less. Throws "TaskTable doesn't exist-2".
    int getNumTaskRecordForUser(int uid);
    int getNumUser(); ///< The number of users that own tasks of any status. Throws "Error in taskType".
    int* getTaskIdArray(); ///< Ids of the tasks that getNumTaskRecord() counts. Throws "TaskTable not found".
    int* getTaskIdArray(int type); ///< The same for getNumTaskRecord(type). Throws "Error in taskType".
    int* getTaskIdArrayForUser(int uid); ///< The same for getNumTaskRecordForUser(uid). Throws "Error in taskType".
    int* getNumUserArray(); ///< Ids of the users that getNumUser() counts. Throws "Error in reading values".
    IdList taskIds(); ///< As getTaskIdArray(), with its length.
    IdList taskIdsForUser(int uid); ///< As getTaskIdArrayForUser(uid), with its length.
    IdList userIds(); ///< As getNumUserArray(), with its length.

    // Reading one task.

    /// Reads the task `id` into a new TaskInfo and returns true. The caller owns `*out` and its two property lists;
    /// orv::OwnedTask(*out) releases all three. A list is null if its column is not a property list (for `result`, a
    /// dictionary) or, for `parameter`, has 2^20 objects or more. Throws "Error in querying table". If there is no such
    /// task, throws "Database: taskId not found", with code 0. If it throws, `*out` is unchanged.
    bool getTaskInfoObject(int id, TaskInfo** out);

    /// As getTaskInfoObject, with an owner that releases the task and its two property lists.
    orv::OwnedTask task(int id);

    /// The column `columnName` of the task `id` as text; "" for NULL. The name goes into the statement unchanged: it
    /// must come from the program, not from a user. Throws "Error in the parameter", also if there is no such column.
    std::string getTaskParameter(int id, const char* columnName);

    /// The id of the first task whose description is `name`. The name goes into the statement unchanged, between
    /// apostrophes: it must hold none, and must come from the program. Throws "Error in taskName".
    int getTaskIdByName(std::string name);

    int getTaskType(int id); ///< The type of the task `id`. Throws "Database error".
    int getTaskStatus(int id); ///< The status of the task `id`. Throws "Error in taskId".

    // Writing tasks. dbMaxRecordCleaner runs after each insert, even a failed one, and after each successful update. If
    // it throws, the caller gets that exception, but what was written stays.

    /// Inserts `task` with a new id and returns the id; `task` itself keeps its own. status, count and result are not
    /// stored: the new row has the table's defaults, 1, 0 and NULL. cronTime goes into the statement unchanged, between
    /// double quotes: it must hold none. Throws "Database: Write failed". If `parameter` is not a property list,
    /// nothing is inserted and the code is 21, SQLite's for misuse.
    int writeDbTask(TaskInfo& task);

    /// Updates the row with the id of `task`; true even if there is none. created and result keep their values; so does
    /// parameter if `task.parameter` is null or not a property list. cronTime goes between double quotes as in an
    /// insert, but if it is the name of a column, SQLite here stores the value of that column: with the cronTime
    /// "type", the row's type, say "1". Throws "Database: Write failed".
    bool modifyDbTask(TaskInfo& task);

    bool deleteDbTask(int id); ///< Deletes the task `id`; true even if there is none. Throws "Deletion failed".
    bool clearDatabase(); ///< Deletes all tasks; returns true. Their ids are not used again. Throws "Deletion failed".

    /// If there are more than 40 tasks, deletes those of status 3 or 5, in SQLite's row order, until 40 are left. Tasks
    /// of other statuses are never deleted, so more than 40 can remain. True even if the tasks cannot be read; false if
    /// a deletion failed, which keeps the deletions before it. Throws what getNumTaskRecord() throws.
    bool dbMaxRecordCleaner();

    // Recording what a task did. Each changes one column of one row. True if SQLite ran the statement, even if there is
    // no such task; else false. They do not throw SqliteException.

    bool setTaskStatus(int id, TaskStatus status); ///< Sets the status of the task `id`, to any number.
    bool incrementCount(int id); ///< Adds 1 to the run count of the task `id`.

    /// Always returns false and changes nothing: its statement lacks quotes, so SQLite rejects it. To store the time of
    /// a run, use modifyDbTask.
    bool setLastRunTime(int id);

    /// Stores `result`, which the caller still owns, as the outcome of the task `id`. False, with nothing changed, if
    /// it is null or not a property list.
    bool setResult(int id, CFMutableDictionaryRef result);

    /// Appends to `values` the `length` bytes at `data` for the placeholder `index`. The caller still owns the bytes.
    static void PushSqliteDataContainerIntoVector(
        std::vector<SqliteDataContainer>& values, void* data, unsigned long length, SqliteDataType type, int index);

private:
    // Nothing reads these two. They are part of the promised layout.
    std::string m_databasePath;
    std::string m_secondText;
};
