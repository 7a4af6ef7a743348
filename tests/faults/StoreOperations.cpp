#include "StoreOperations.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CfRef.h"
#include "OrvException.h"
#include "TaskEditor.h"
#include "TaskInfo.h"
#include "TaskInterface.h"
#include <CoreFoundation/CoreFoundation.h>

namespace support {

namespace {

constexpr int notFoundCode = 401;
constexpr int anna = 501;

using Ids = std::unique_ptr<int[]>;

std::string text(bool value)
{
    return value ? "true" : "false";
}

std::string text(int value)
{
    return std::to_string(value);
}

// The array does not know its length, and what it is counted from may change.
std::string firstOf(const Ids& ids)
{
    return "first: " + std::to_string(ids[0]);
}

std::string text(const TaskInterface::IdList& list)
{
    std::string joined;
    for (const int id : list)
        joined += std::to_string(id) + ",";
    return joined;
}

std::string textOfList(CFPropertyListRef list)
{
    if (list == nullptr)
        return "-";
    const orv::CfRef<CFDataRef> data(
        CFPropertyListCreateData(kCFAllocatorDefault, list, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    if (data == nullptr)
        return "?";
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
        static_cast<std::size_t>(CFDataGetLength(data.get())));
}

std::string text(const TaskInfo& task)
{
    std::string all = std::to_string(task.id) + "|" + task.description + "|" + task.cronTime;
    for (const long number : {long(task.type), long(task.status), long(task.count), long(task.userId),
             long(task.recType), long(task.created), long(task.lastRun)})
        all += "|" + std::to_string(number);
    return all + "|" + textOfList(task.parameter) + "|" + textOfList(task.result);
}

// Never released: the tests' own, made before anything is made to fail.
CFMutableDictionaryRef settings()
{
    static CFMutableDictionaryRef made = [] {
        CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
            kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
        const int level = 3;
        const orv::CfRef<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &level));
        CFDictionarySetValue(dictionary, CFSTR("path"), CFSTR("/Users/anna/Documents"));
        CFDictionarySetValue(dictionary, CFSTR("level"), number.get());
        return dictionary;
    }();
    return made;
}

TaskInfo changedTask(int id)
{
    TaskInfo task(taskTypeUpdate);
    task.id = id;
    task.description = "changed\n";
    task.cronTime = "9 9 9 9 *";
    task.parameter = settings();
    task.created = 1000000000;
    task.lastRun = 1100000000;
    task.userId = anna;
    return task;
}

std::string wholeTask(TaskEditor& editor, int id)
{
    TaskInfo* task = nullptr;
    editor.getTaskInfoObject(id, &task);
    const orv::OwnedTask owner(task);
    return text(*owner);
}

std::vector<StoreOperation> readOperations()
{
    const std::string counting = "TaskTable doesn't exist-1";
    const std::string countingOfUser = "TaskTable doesn't exist-2";
    return {
        {"getNumTaskRecord", [](TaskEditor& editor) { return text(editor.getNumTaskRecord()); }, Effect::none,
            {counting}},
        {"getNumTaskRecordOfType", [](TaskEditor& editor) { return text(editor.getNumTaskRecord(2)); }, Effect::none,
            {"Error in taskType"}},
        {"getNumTaskRecordForUser", [](TaskEditor& editor) { return text(editor.getNumTaskRecordForUser(anna)); },
            Effect::none, {countingOfUser}},
        {"getNumUser", [](TaskEditor& editor) { return text(editor.getNumUser()); }, Effect::none,
            {"Error in taskType"}},
        {"getTaskIdArray", [](TaskEditor& editor) { return firstOf(Ids(editor.getTaskIdArray())); }, Effect::none,
            {counting, "TaskTable not found"}},
        {"getTaskIdArrayOfType", [](TaskEditor& editor) { return firstOf(Ids(editor.getTaskIdArray(2))); },
            Effect::none, {"Error in taskType"}},
        {"getTaskIdArrayForUser", [](TaskEditor& editor) { return firstOf(Ids(editor.getTaskIdArrayForUser(anna))); },
            Effect::none, {countingOfUser, "Error in taskType"}},
        {"getNumUserArray", [](TaskEditor& editor) { return firstOf(Ids(editor.getNumUserArray())); }, Effect::none,
            {"Error in taskType", "Error in reading values"}},
        {"taskIdsForUser", [](TaskEditor& editor) { return text(editor.taskIdsForUser(anna)); }, Effect::none,
            {countingOfUser, "Error in taskType"}},
        {"userIds", [](TaskEditor& editor) { return text(editor.userIds()); }, Effect::none,
            {"Error in taskType", "Error in reading values"}},
        {"getTaskInfoObject", [](TaskEditor& editor) { return wholeTask(editor, 1); }, Effect::none,
            {"Error in querying table"}},
        {"getTaskInfoObjectWithLongParameter", [](TaskEditor& editor) { return wholeTask(editor, 2); }, Effect::none,
            {"Error in querying table"}},
        {"getTaskParameter", [](TaskEditor& editor) { return editor.getTaskParameter(4, "crontime"); }, Effect::none,
            {"Error in the parameter"}},
        {"getTaskIdByName", [](TaskEditor& editor) { return text(editor.getTaskIdByName("task 41")); }, Effect::none,
            {"Error in taskName"}},
        {"getTaskType", [](TaskEditor& editor) { return text(editor.getTaskType(7)); }, Effect::none,
            {"Database error"}},
        {"getTaskStatus", [](TaskEditor& editor) { return text(editor.getTaskStatus(36)); }, Effect::none,
            {"Error in taskId"}},
    };
}

std::vector<StoreOperation> writeOperations()
{
    const std::string counting = "TaskTable doesn't exist-1"; // by the cleaner
    const auto written = [](TaskEditor& editor) {
        TaskInfo task = changedTask(0);
        return text(editor.writeDbTask(task));
    };
    const auto modified = [](TaskEditor& editor) {
        TaskInfo task = changedTask(5);
        return text(editor.modifyDbTask(task));
    };
    return {
        {"writeDbTask", written, Effect::statementThenCleaning, {"Database: Write failed", counting}},
        {"modifyDbTask", modified, Effect::statementThenCleaning, {"Database: Write failed", counting}},
        {"deleteDbTask", [](TaskEditor& editor) { return text(editor.deleteDbTask(2)); }, Effect::oneStatement,
            {"Deletion failed"}},
        {"clearDatabase", [](TaskEditor& editor) { return text(editor.clearDatabase()); }, Effect::oneStatement,
            {"Deletion failed"}},
        {"dbMaxRecordCleaner", [](TaskEditor& editor) { return text(editor.dbMaxRecordCleaner()); }, Effect::cleaning,
            {counting}},
        {"setTaskStatus", [](TaskEditor& editor) { return text(editor.setTaskStatus(3, TaskStatus(9))); },
            Effect::oneStatement, {}},
        {"incrementCount", [](TaskEditor& editor) { return text(editor.incrementCount(3)); }, Effect::oneStatement, {}},
        {"setLastRunTime", [](TaskEditor& editor) { return text(editor.setLastRunTime(3)); }, Effect::none, {}},
        {"setResult", [](TaskEditor& editor) { return text(editor.setResult(3, settings())); }, Effect::oneStatement,
            {}},
    };
}

std::vector<StoreOperation> allOperations()
{
    settings();
    std::vector<StoreOperation> all = readOperations();
    for (StoreOperation& operation : writeOperations())
        all.push_back(std::move(operation));
    return all;
}

} // namespace

const std::vector<StoreOperation>& storeOperations()
{
    static const std::vector<StoreOperation> all = allOperations();
    return all;
}

const StoreOperation& storeOperation(const std::string& name)
{
    for (const StoreOperation& operation : storeOperations())
        if (operation.name == name)
            return operation;
    throw std::invalid_argument("there is no operation " + name);
}

std::ostream& operator<<(std::ostream& out, const Ending& ending)
{
    out << (ending.threw ? "exception \"" : "result \"") << ending.text << '"';
    return ending.threw ? out << " (" << ending.code << ")" : out;
}

std::string textOf(const Ending& ending)
{
    return ending.threw ? ending.text + " (" + std::to_string(ending.code) + ")" : ending.text;
}

Ending endingOf(const StoreOperation& operation, TaskEditor& editor)
{
    try {
        return {false, operation.run(editor), 0};
    } catch (SqliteException& failure) {
        return {true, failure.getMessage(), failure.getErrorCode()};
    }
}

bool isDocumented(const StoreOperation& operation, const Ending& ending)
{
    if (!ending.threw)
        return true;
    const auto& failures = operation.failures;
    if (std::find(failures.begin(), failures.end(), ending.text) != failures.end())
        return ending.code > 0 && ending.code < 100; // SQLite's primary codes for errors
    if (failures.empty() || operation.effect != Effect::none)
        return false;
    return operation.failures.front() == "Error in querying table"
        ? ending.text == "Database: taskId not found" && ending.code == 0
        : ending.text == "Data not found" && ending.code == notFoundCode;
}

std::string nameOfOperation(const testing::TestParamInfo<StoreOperation>& info)
{
    return info.param.name;
}

std::ostream& operator<<(std::ostream& out, const StoreOperation& operation)
{
    return out << operation.name;
}

bool letGoOfEditorLock()
{
    struct Access : TaskEditor {
        static pthread_mutex_t* lock() { return &m_taskEditorMutex; }
    };
    const bool held = pthread_mutex_trylock(Access::lock()) == EBUSY;
    pthread_mutex_unlock(Access::lock());
    return held;
}

int openDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd"); // one of them its own, every time
    return static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
}

} // namespace support
