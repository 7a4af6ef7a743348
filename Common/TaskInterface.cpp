#include "TaskInterface.h"

#include "CfRef.h"
#include "Constants.h"
#include "LocalTime.h"
#include "MutableCopy.h"
#include "Number.h"
#include "OrvException.h"
#include "OrvLogger.h"
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int logError = 3;
constexpr int codeNotFound = 401;
constexpr int maxTaskRows = 40;
constexpr auto countsAsUsersTask = "5"; // the highest status of a task that gets a task line

SqliteException dataNotFound()
{
    return SqliteException(codeNotFound, "Data not found");
}

std::unique_ptr<SqliteDb> openRead(const std::string& sql, const char* failure)
{
    auto db = std::make_unique<SqliteDb>(databaseName.c_str(), false);
    if (!db->doReadSql(sql.c_str()))
        throw SqliteException(db->lastError, failure); // copies the code before db closes
    return db;
}

std::unique_ptr<SqliteDb> openFirstRow(const std::string& sql, const char* failure)
{
    auto db = openRead(sql, failure);
    if (!db->nextRow())
        throw dataNotFound();
    return db;
}

// The number in the only column of the row.
int takeInt(SqliteDb& db)
{
    if (db.columnType(0) == SqliteDb::columnBlob) // its cell would hold an address
        return orv::toInt(db.getColumn(0));
    const std::unique_ptr<valueCell> cell(static_cast<valueCell*>(db[0])); // delete needs the type
    return cell->integer;
}

int readInt(const std::string& sql, const char* failure)
{
    return takeInt(*openFirstRow(sql, failure));
}

// `count` is from an earlier statement: the table may have changed since.
TaskInterface::IdList readIds(int count, const std::string& sql, const char* failure)
{
    if (count < 1)
        throw dataNotFound();
    TaskInterface::IdList list{std::unique_ptr<int[]>(new int[static_cast<std::size_t>(count)]), count};
    const auto db = openRead(sql, failure);
    int rows = 0;
    for (; db->nextRow(); ++rows)
        if (rows < count)
            list.ids[static_cast<std::size_t>(rows)] = takeInt(*db);
    if (rows != count)
        throw dataNotFound();
    return list;
}

orv::CfRef<CFPropertyListRef> readPropertyList(SqliteDb& db, int column)
{
    if (db.columnType(column) == SqliteDb::columnNull)
        return nullptr;
    const std::string bytes = db.getColumn(column); // of a blob or a text
    const orv::CfRef<CFDataRef> data(CFDataCreate(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    if (data == nullptr)
        return nullptr;
    return orv::CfRef<CFPropertyListRef>(
        CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(), 0, nullptr, nullptr));
}

CFMutableDictionaryRef readResult(SqliteDb& db, int column)
{
    const orv::CfRef<CFPropertyListRef> list = readPropertyList(db, column);
    // CFDictionaryCreateMutableCopy does not check the type
    if (list == nullptr || CFGetTypeID(list.get()) != CFDictionaryGetTypeID())
        return nullptr;
    return CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, static_cast<CFDictionaryRef>(list.get()));
}

// XML. Null if `list` is null or not a property list, or if there is no memory.
orv::CfRef<CFDataRef> serialised(CFPropertyListRef list)
{
    if (list == nullptr)
        return nullptr;
    return orv::CfRef<CFDataRef>(
        CFPropertyListCreateData(kCFAllocatorDefault, list, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
}

using Values = std::vector<SqliteDataContainer>;

// A statement only reads what is bound to it.
void bindText(Values& values, const std::string& text, int index)
{
    TaskInterface::PushSqliteDataContainerIntoVector(
        values, const_cast<char*>(text.data()), text.size(), sqliteDataText, index);
}

void bindData(Values& values, CFDataRef data, int index)
{
    TaskInterface::PushSqliteDataContainerIntoVector(values, const_cast<UInt8*>(CFDataGetBytePtr(data)),
        static_cast<unsigned long>(CFDataGetLength(data)), sqliteDataBlob, index);
}

std::string quoted(const std::string& text)
{
    return '"' + text + '"'; // not escaped: a text with a double quote in it breaks the statement
}

const char* flag(int recType)
{
    return recType == 1 ? "1" : "0";
}

bool ranWrite(const std::string& sql)
{
    return SqliteDb(databaseName.c_str(), false).doWriteSql(sql.c_str());
}

void runDelete(const std::string& sql)
{
    SqliteDb db(databaseName.c_str(), false);
    if (!db.doWriteSql(sql.c_str()))
        throw SqliteException(db.lastError, "Deletion failed");
}

} // namespace

std::string convertTmToString(long time)
{
    tm local{};
    if (!orv::toLocalTime(time, local)) {
        LogMsg(logError, "convertTmToString : Error while getting localtime() ");
        return {};
    }
    char text[100];
    std::snprintf(text, sizeof text, "%d,%d,%d,%d,%d,%d,%d,%d,%d,", local.tm_sec, local.tm_min, local.tm_hour,
        local.tm_mday, local.tm_mon, local.tm_year, local.tm_wday, local.tm_yday, local.tm_isdst);
    return text;
}

time_t convertStringToTm(std::string text)
{
    tm local{};
    int* const fields[] = {&local.tm_sec, &local.tm_min, &local.tm_hour, &local.tm_mday, &local.tm_mon, &local.tm_year,
        &local.tm_wday, &local.tm_yday, &local.tm_isdst};
    std::size_t start = 0;
    for (int* field : fields) {
        const std::size_t comma = text.find(',', start);
        *field = orv::toInt(text.substr(start, comma - start));
        start = comma == std::string::npos ? 0 : comma + 1; // a short text is read again from its beginning, on purpose
    }
    return orv::fromLocalTime(local);
}

TaskInterface::TaskInterface()
    : SqliteDb(databaseName.c_str(), false, createTableString.c_str())
    , m_databasePath(databaseName)
{
}

int TaskInterface::getNumTaskRecord()
{
    return readInt("select count(*) from TaskTable", "TaskTable doesn't exist-1");
}

int TaskInterface::getNumTaskRecord(int type)
{
    return readInt("select count(*) from TaskTable where type=" + std::to_string(type), "Error in taskType");
}

int TaskInterface::getNumTaskRecordForUser(int uid)
{
    return readInt(
        "select count(*) from TaskTable where userId=" + std::to_string(uid) + " and status<=" + countsAsUsersTask,
        "TaskTable doesn't exist-2");
}

int TaskInterface::getNumUser()
{
    return readInt("select count(*) from (select distinct userId from TaskTable)", "Error in taskType");
}

int* TaskInterface::getTaskIdArray()
{
    return taskIds().ids.release();
}

int* TaskInterface::getTaskIdArray(int type)
{
    const std::string sql = "select id from TaskTable where type=" + std::to_string(type);
    return readIds(getNumTaskRecord(type), sql, "Error in taskType").ids.release();
}

int* TaskInterface::getTaskIdArrayForUser(int uid)
{
    return taskIdsForUser(uid).ids.release();
}

int* TaskInterface::getNumUserArray()
{
    return userIds().ids.release();
}

TaskInterface::IdList TaskInterface::taskIds()
{
    return readIds(getNumTaskRecord(), "select id from TaskTable", "TaskTable not found");
}

TaskInterface::IdList TaskInterface::taskIdsForUser(int uid)
{
    const std::string sql
        = "select id from TaskTable where userId=" + std::to_string(uid) + " AND status<=" + countsAsUsersTask;
    return readIds(getNumTaskRecordForUser(uid), sql, "Error in taskType");
}

TaskInterface::IdList TaskInterface::userIds()
{
    return readIds(getNumUser(), "select distinct userId from TaskTable", "Error in reading values");
}

bool TaskInterface::getTaskInfoObject(int id, TaskInfo** out)
{
    const auto db = openRead("select * from TaskTable where id=" + std::to_string(id), "Error in querying table");
    if (!db->nextRow())
        throw SqliteException(db->lastError, "Database: taskId not found"); // code 0: callers tell this from 401

    const auto number = [&db](int column) { return orv::toInt(db->getColumn(column)); };
    orv::OwnedTask read(new TaskInfo(TaskType(number(2))));
    read->id = number(0);
    read->description = db->getColumn(1);
    read->cronTime = db->getColumn(3);
    read->parameter = orv::mutableCopy(readPropertyList(*db, 4).get()).release();
    read->result = readResult(*db, 5);
    read->created = convertStringToTm(db->getColumn(6));
    read->lastRun = convertStringToTm(db->getColumn(7));
    read->status = TaskStatus(number(8));
    read->count = number(9);
    read->userId = number(10);
    read->recType = number(11) == 1 ? 1 : 0; // any other number is 0, too
    *out = read.release();
    return true;
}

orv::OwnedTask TaskInterface::task(int id)
{
    TaskInfo* read = nullptr;
    getTaskInfoObject(id, &read);
    return orv::OwnedTask(read);
}

std::string TaskInterface::getTaskParameter(int id, const char* columnName)
{
    const std::string sql = std::string("select ") + columnName + " from TaskTable where id=" + std::to_string(id);
    return openFirstRow(sql, "Error in the parameter")->getColumn(0);
}

int TaskInterface::getTaskIdByName(std::string name)
{
    const std::string sql = "select id from TaskTable where description = '" + name + "'";
    return readInt(sql, "Error in taskName");
}

int TaskInterface::getTaskType(int id)
{
    return readInt("select type from TaskTable where id=" + std::to_string(id), "Database error");
}

int TaskInterface::getTaskStatus(int id)
{
    return readInt("select status from TaskTable where id=" + std::to_string(id), "Error in taskId");
}

int TaskInterface::writeDbTask(TaskInfo& task)
{
    std::string columns = "description";
    std::string literals = "?1";
    Values values;
    bindText(values, task.description, 1);

    const auto add = [&columns, &literals](const char* column, const std::string& literal) {
        columns += std::string(",") + column;
        literals += "," + literal;
    };
    add("type", std::to_string(task.type));
    add("cronTime", quoted(task.cronTime));
    const orv::CfRef<CFDataRef> parameter = serialised(task.parameter);
    if (parameter != nullptr) {
        add("parameter", "?2");
        bindData(values, parameter.get(), 2);
    }
    add("created", quoted(convertTmToString(task.created)));
    add("lastRun", quoted(convertTmToString(task.lastRun)));
    add("userId", std::to_string(task.userId));
    add("recType", flag(task.recType));
    const std::string sql = "insert into TaskTable (" + columns + ") values (" + literals + ")";

    SqliteDb db(databaseName.c_str(), false);
    const bool storable = task.parameter == nullptr || parameter != nullptr;
    if (!storable)
        db.lastError = SqliteDb::resultMisuse;
    const bool written = storable && db.doWriteSql(sql.c_str(), values);
    dbMaxRecordCleaner(); // after a failed insert, too
    if (!written)
        throw SqliteException(db.lastError, "Database: Write failed");
    return db.lastInsertId;
}

bool TaskInterface::modifyDbTask(TaskInfo& task)
{
    Values values;
    bindText(values, task.description, 1);
    std::string sql = "update TaskTable set description=?1";
    sql += ", type=" + std::to_string(task.type);
    sql += ", cronTime=" + quoted(task.cronTime);
    const orv::CfRef<CFDataRef> parameter = serialised(task.parameter);
    if (parameter != nullptr) { // else the stored one stays
        sql += ", parameter=?2";
        bindData(values, parameter.get(), 2);
    }
    sql += ", userId=" + std::to_string(task.userId);
    sql += std::string(", recType=") + flag(task.recType);
    sql += ", count=" + std::to_string(task.count);
    sql += ", status=" + std::to_string(task.status);
    sql += ", lastRun=" + quoted(convertTmToString(task.lastRun));
    sql += " where id=" + std::to_string(task.id);

    SqliteDb db(databaseName.c_str(), false);
    if (!db.doWriteSql(sql.c_str(), values))
        throw SqliteException(db.lastError, "Database: Write failed"); // without the cleaner
    dbMaxRecordCleaner();
    return true;
}

bool TaskInterface::deleteDbTask(int id)
{
    runDelete("delete from TaskTable where id=" + std::to_string(id));
    return true;
}

bool TaskInterface::clearDatabase()
{
    runDelete("delete from TaskTable");
    return true;
}

bool TaskInterface::dbMaxRecordCleaner()
{
    int rows = getNumTaskRecord();
    if (rows <= maxTaskRows)
        return true;
    SqliteDb db(databaseName.c_str(), false);
    if (!db.doReadSql("select id from TaskTable where status=3 or status=5"))
        return true;
    for (; db.nextRow() && rows > maxTaskRows; --rows) {
        try {
            deleteDbTask(orv::toInt(db.getColumn(0)));
        } catch (...) {
            return false;
        }
    }
    return true;
}

bool TaskInterface::setTaskStatus(int id, TaskStatus status)
{
    return ranWrite("update TaskTable set status=" + std::to_string(status) + " where id=" + std::to_string(id));
}

bool TaskInterface::incrementCount(int id)
{
    return ranWrite("update TaskTable set count=count+1 where id=" + std::to_string(id));
}

bool TaskInterface::setLastRunTime(int id)
{
    // Do not add the missing quotes: only modifyDbTask may store a time of the last run.
    return ranWrite(
        "update TaskTable set lastRun=" + convertTmToString(time(nullptr)) + " where id=" + std::to_string(id));
}

bool TaskInterface::setResult(int id, CFMutableDictionaryRef result)
{
    convertTmToString(time(nullptr)); // only for what it logs if there is no local time
    const orv::CfRef<CFDataRef> data = serialised(result);
    if (data == nullptr)
        return false;
    Values values;
    bindData(values, data.get(), 1);
    const std::string sql = "update TaskTable set result=? where id=" + std::to_string(id);
    return SqliteDb(databaseName.c_str(), false).doWriteSql(sql.c_str(), values);
}

void TaskInterface::PushSqliteDataContainerIntoVector(
    Values& values, void* data, unsigned long length, SqliteDataType type, int index)
{
    values.push_back({type, data, static_cast<std::int32_t>(length), index});
}
