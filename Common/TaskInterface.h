#pragma once

#include "SqliteDb.h" // IWYU pragma: export
#include "TaskInfo.h" // IWYU pragma: export

#include <CoreFoundation/CoreFoundation.h>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

/// The time-stamp text of `time` (seconds since 1970): the nine fields of the local time, tm_sec first, tm_isdst last,
/// in decimal and each followed by a comma, the last one too: "5,30,8,16,10,126,1,319,0,". "" if there is no such local
/// time, which is logged.
std::string convertTmToString(long time);

/// The moment that a time-stamp text denotes, as mktime gives it: in the local time zone of this process, with tm_isdst
/// from the text, -1 on error. Nothing is checked. A field without digits is 0; where the text has too few fields,
/// reading starts again at its beginning; what follows the ninth field is ignored.
time_t convertStringToTm(std::string text);

/// The task store: every query and update of TaskTable.
///
/// It is a connection to the task database, made with the table if there was none, but no operation uses it: each opens
/// a connection of its own and closes it before it returns or throws. No transaction spans two operations, and nothing
/// is kept between them. They take no lock but SQLite's on the file, for which they wait 5 seconds.
///
/// Failures are thrown as SqliteException: 401 "Data not found" if a statement ran and found no row (or not as many as
/// were counted before), else SQLite's result code with the text that stands with the operation. Any operation can
/// throw std::bad_alloc. An operation that fails has changed nothing, but for what it says.
class TaskInterface : public SqliteDb {
public:
    /// Ids in SQLite's row order, and how many.
    struct IdList {
        std::unique_ptr<int[]> ids;
        int count;

        const int* begin() const { return ids.get(); }
        const int* end() const { return ids.get() + count; }
    };

    /// Opens the task database and makes TaskTable in it if it has none.
    /// Throws SqliteException with SQLite's code if the file cannot be opened or the table cannot be made.
    TaskInterface();

    // Counts and lists. Each list counts first and throws what its count throws; it throws 401 if there are none, or if
    // the number of rows has changed since they were counted. The arrays are made with new int[n], n the matching
    // count, never 0; the caller frees them with delete[].

    /// The number of tasks. Throws "TaskTable doesn't exist-1".
    int getNumTaskRecord();

    /// The number of tasks of type `type`. Throws "Error in taskType".
    int getNumTaskRecord(int type);

    /// The number of tasks of user `uid` with status 5 or less. Throws "TaskTable doesn't exist-2".
    int getNumTaskRecordForUser(int uid);

    /// The number of users that own tasks of any status. Throws "Error in taskType".
    int getNumUser();

    /// The ids of all tasks, getNumTaskRecord() of them. Throws "TaskTable not found".
    int* getTaskIdArray();

    /// The ids of the tasks of type `type`, getNumTaskRecord(type) of them. Throws "Error in taskType".
    int* getTaskIdArray(int type);

    /// The ids of the tasks of user `uid` with status 5 or less, getNumTaskRecordForUser(uid) of them. Throws "Error in
    /// taskType".
    int* getTaskIdArrayForUser(int uid);

    /// The users that own tasks of any status, getNumUser() of them. Throws "Error in reading values".
    int* getNumUserArray();

    /// As getTaskIdArray(), with its length.
    IdList taskIds();

    /// As getTaskIdArrayForUser(uid), with its length.
    IdList taskIdsForUser(int uid);

    /// As getNumUserArray(), with its length.
    IdList userIds();

    // Reading one task.

    /// Reads the task `id` into a new TaskInfo and returns true. The caller owns `*out` and its two property lists:
    /// orv::OwnedTask(*out) takes them over. `parameter` and `result` are mutable copies; they are null where the table
    /// holds NULL, or nothing that is a property list (for `result`, a dictionary). `recType` is 1 or 0. Throws "Error
    /// in querying table"; if there is no such task, "Database: taskId not found", whose code is not 401 but what
    /// lastError holds, 0. `*out` is then as it was.
    bool getTaskInfoObject(int id, TaskInfo** out);

    /// As getTaskInfoObject(id, out), with an owner that releases the record and its two property lists.
    orv::OwnedTask task(int id);

    /// The column `columnName` of the task `id` as text, "" for NULL. The name goes into the statement as it stands: it
    /// must come from the program, not from outside. Throws "Error in the parameter", also for a column that there is
    /// not.
    std::string getTaskParameter(int id, const char* columnName);

    /// The id of the first task whose description is `name`. The name goes into the statement as it stands: an
    /// apostrophe in it ends the text there. Throws "Error in taskName".
    int getTaskIdByName(std::string name);

    /// The type of the task `id`. Throws "Database error".
    int getTaskType(int id);

    /// The status of the task `id`. Throws "Error in taskId".
    int getTaskStatus(int id);

    // Writing tasks. After an insert (failed ones included) and after a successful change, dbMaxRecordCleaner runs;
    // what it throws comes out of the operation although the row has been written.

    /// Inserts `task` with a new id and returns the id, which is not written to `task`. status, count and result are
    /// not stored: the row begins with the table's defaults. cronTime goes into the statement between double quotes as
    /// it stands, so that it must hold none. Throws "Database: Write failed"; its code is SQLite's for misuse (21) if
    /// `parameter` is no property list.
    int writeDbTask(TaskInfo& task);

    /// Writes `task` over the row with its id and returns true, also if there is none. created and result keep what is
    /// stored, and so does parameter if that of `task` is null or no property list. Throws "Database: Write failed".
    bool modifyDbTask(TaskInfo& task);

    /// Deletes the task `id` and returns true, also if there is none. Throws "Deletion failed".
    bool deleteDbTask(int id);

    /// Deletes all tasks and returns true. Their ids are not given out again. Throws "Deletion failed".
    bool clearDatabase();

    /// Deletes tasks of status 3 or 5, in SQLite's row order, until there are no more than 40 tasks or none of these
    /// are left. Returns true, also if they cannot be read; false if a deletion failed: what was deleted until then
    /// stays deleted. Throws what getNumTaskRecord() throws.
    bool dbMaxRecordCleaner();

    // Bookkeeping of a run. Each changes one column of one row. True if SQLite ran the statement, also if there is no
    // such task; false otherwise: they do not throw SqliteException.

    /// Sets the status of the task `id`, to any number.
    bool setTaskStatus(int id, TaskStatus status);

    /// Adds 1 to the run count of the task `id`.
    bool incrementCount(int id);

    /// Returns false and changes nothing: the time goes into the statement without quotes, which SQLite refuses. A new
    /// time of the last run reaches the table through modifyDbTask.
    bool setLastRunTime(int id);

    /// Stores `result` as the outcome of the task `id`. It stays the caller's. False, with nothing changed, if it is
    /// null or not a property list.
    bool setResult(int id, CFMutableDictionaryRef result);

    /// Appends to `values` the `length` bytes at `data`, which stay the caller's, as a value for the placeholder
    /// `index`.
    static void PushSqliteDataContainerIntoVector(
        std::vector<SqliteDataContainer>& values, void* data, unsigned long length, SqliteDataType type, int index);

private:
    std::string m_databasePath;
    std::string m_secondText; ///< kept for the other programs of the product; empty
};
