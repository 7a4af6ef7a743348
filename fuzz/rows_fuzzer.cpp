// Stores a row with any kind of value in any column, and calls every operation that reads. Each must return what SQLite
// itself makes of the value, or throw that the row was not found.
//
// Input: for each of the twelve columns a byte that chooses the kind of its value, a length byte where that kind has
// one, and the value's bytes.
#include "Expect.h"
#include "FuzzStore.h"
#include "Number.h"
#include "OrvException.h"
#include "PrivateWorld.h"
#include "TaskEditor.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    support::enterPrivateWorld();
    support::resetWorld();
    // without column types, SQLite stores each value as the kind that it is
    support::execSql("create table TaskTable(id, description, type, crontime, parameter, result, created, lastRun, "
                     "status, count, userId, recType)");
    run(prepared("insert into TaskTable(id) values(null)"));
    TaskEditor::getInstance();
    return 0;
}

namespace {

const char* const columns[] = {"id", "description", "type", "crontime", "parameter", "result", "created", "lastRun",
    "status", "count", "userId", "recType"};
constexpr int columnCount = 12;

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_data(data)
        , m_left(size)
    {
    }

    std::string take(std::size_t size)
    {
        size = std::min(size, m_left);
        const std::string bytes(reinterpret_cast<const char*>(m_data), size);
        m_data += size;
        m_left -= size;
        return bytes;
    }

    std::uint8_t byte()
    {
        const std::string taken = take(1);
        return taken.empty() ? 0 : static_cast<std::uint8_t>(taken[0]);
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_left;
};

template <class Number> Number numberFrom(const std::string& bytes)
{
    Number number{};
    std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
    return number;
}

void bindValue(const Statement& update, int position, Input& input)
{
    switch (input.byte() % 6) {
    case 0:
        sqlite3_bind_int64(update.get(), position, numberFrom<std::int64_t>(input.take(8)));
        break;
    case 1:
        sqlite3_bind_int64(update.get(), position, input.byte() % 4); // ids and types that exist
        break;
    case 2:
        sqlite3_bind_double(update.get(), position, numberFrom<double>(input.take(8)));
        break;
    case 3: {
        const std::string text = input.take(input.byte());
        sqlite3_bind_text(update.get(), position, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        break;
    }
    case 4: {
        const std::string blob = input.take(input.byte());
        sqlite3_bind_blob(update.get(), position, blob.data(), static_cast<int>(blob.size()), SQLITE_TRANSIENT);
        break;
    }
    default:
        sqlite3_bind_null(update.get(), position);
    }
}

void storeRow(Input& input)
{
    const Statement update
        = prepared("update TaskTable set id=?1, description=?2, type=?3, crontime=?4, parameter=?5, result=?6, "
                   "created=?7, lastRun=?8, status=?9, count=?10, userId=?11, recType=?12");
    for (int position = 1; position <= columnCount; ++position)
        bindValue(update, position, input);
    run(update);
}

// SQLite's own reading of the first value of the first row; found is false if there is no row.
struct Plain {
    explicit Plain(const std::string& sql)
    {
        const Statement select = prepared(sql);
        found = sqlite3_step(select.get()) == SQLITE_ROW;
        if (!found)
            return;
        isBlob = sqlite3_column_type(select.get(), 0) == SQLITE_BLOB;
        number = sqlite3_column_int(select.get(), 0);
        const void* bytes = isBlob ? sqlite3_column_blob(select.get(), 0)
                                   : static_cast<const void*>(sqlite3_column_text(select.get(), 0));
        if (bytes != nullptr)
            text.assign(
                static_cast<const char*>(bytes), static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 0)));
    }

    bool found;
    bool isBlob = false;
    int number = 0;
    std::string text;
};

template <class Operation> bool throwsNotFound(const Operation& operation)
{
    try {
        operation();
    } catch (SqliteException& failure) {
        EXPECT(failure.getErrorCode() == 401);
        EXPECT(strcmp(failure.getMessage(), "Data not found") == 0);
        return true;
    }
    return false;
}

template <class Operation> void expectNumber(const std::string& sql, const Operation& operation)
{
    const Plain plain(sql);
    int number = 0;
    EXPECT(throwsNotFound([&] { number = operation(); }) == !plain.found);
    EXPECT(!plain.found || number == (plain.isBlob ? orv::toInt(plain.text) : plain.number));
}

void checkLists(TaskEditor& editor, int uid)
{
    const std::string user = " from TaskTable where userId=" + std::to_string(uid) + " and status<=5";
    const Plain count("select count(*)" + user);
    EXPECT(editor.getNumTaskRecordForUser(uid) == count.number);
    int* ids = nullptr;
    EXPECT(throwsNotFound([&] { ids = editor.getTaskIdArrayForUser(uid); }) == (count.number < 1));
    delete[] ids;
    delete[] editor.getTaskIdArray();
    delete[] editor.getNumUserArray();
}

void checkTask(TaskEditor& editor, int id)
{
    const std::string where = " from TaskTable where id=" + std::to_string(id);
    TaskInfo* task = nullptr;
    try {
        editor.getTaskInfoObject(id, &task);
        const orv::OwnedTask owned(task);
        EXPECT(Plain("select id" + where).found);
        EXPECT_SAME(owned->description, Plain("select description" + where).text);
        EXPECT_SAME(owned->cronTime, Plain("select crontime" + where).text);
        EXPECT(owned->recType == 0 || owned->recType == 1);
    } catch (SqliteException& failure) {
        EXPECT(strcmp(failure.getMessage(), "Database: taskId not found") == 0);
        EXPECT(!Plain("select id" + where).found);
    }
    for (const char* column : columns) {
        const Plain plain(std::string("select ") + column + where);
        std::string text;
        EXPECT(throwsNotFound([&] { text = editor.getTaskParameter(id, column); }) == !plain.found);
        EXPECT_SAME(text, plain.text);
    }
    expectNumber("select type" + where, [&] { return editor.getTaskType(id); });
    expectNumber("select status" + where, [&] { return editor.getTaskStatus(id); });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    storeRow(input);
    TaskEditor& editor = *TaskEditor::getInstance();
    EXPECT(editor.getNumTaskRecord() == 1);
    EXPECT(editor.getNumUser() == Plain("select count(*) from (select distinct userId from TaskTable)").number);
    checkLists(editor, Plain("select userId from TaskTable").number);
    checkTask(editor, Plain("select id from TaskTable").number);
    checkTask(editor, 1);
    return 0;
}
