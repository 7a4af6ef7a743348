#include "StoreTest.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "CfRef.h"
#include "OrvLogger.h"
#include <CoreFoundation/CoreFoundation.h>

namespace fs = std::filesystem;

namespace {

std::mutex gLogMutex;
std::vector<std::string> gLog;

struct ClockState {
    time_t next;
    time_t step;
};
std::optional<ClockState> gClock;

struct WatchState {
    std::vector<std::string> calls;
    std::map<std::string, std::function<void()>> beforePreparing;
    std::map<std::string, std::function<void()>> beforeRunning;
    bool rowsHidden = false;
    bool doubleQuotesRefused = false;
};
std::unique_ptr<WatchState> gWatch;
thread_local int gDepth = 0; ///< calls of SQLite that this thread is in: those that SQLite makes itself do not count

template <class Function> Function* systemsOwn(const char* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        std::fprintf(stderr, "There is no %s behind this one.\n", name);
        std::abort();
    }
    return reinterpret_cast<Function*>(found);
}

class InSqlite {
public:
    InSqlite() { ++gDepth; }
    ~InSqlite() { --gDepth; }
};

void note(const char* call, const char* argument = "")
{
    if (gWatch && gDepth == 0)
        gWatch->calls.push_back(std::string(call) + argument);
}

/// The action may use SQLite itself, which is not written down.
void runOnce(std::map<std::string, std::function<void()>> WatchState::*actions, const char* statement)
{
    if (!gWatch || statement == nullptr)
        return;
    const auto action = (*gWatch.*actions).extract(statement);
    if (action.empty())
        return;
    std::unique_ptr<WatchState> watch = std::move(gWatch);
    action.mapped()();
    gWatch = std::move(watch);
}

} // namespace

void LogMsg(int level, const char* format, ...)
{
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(gLogMutex);
    gLog.push_back(std::to_string(level) + ": " + text);
}

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" time_t time(time_t* out) noexcept
{
    static const auto real = systemsOwn<time_t(time_t*)>("time");
    const time_t now = gClock ? gClock->next : real(nullptr);
    if (gClock)
        gClock->next += gClock->step;
    if (out != nullptr)
        *out = now;
    return now;
}

extern "C" int sqlite3_open_v2(const char* path, sqlite3** connection, int flags, const char* vfs)
{
    static const auto real = systemsOwn<decltype(sqlite3_open_v2)>("sqlite3_open_v2");
    note("open ", path);
    const InSqlite inside;
    const int result = real(path, connection, flags, vfs);
    if (gWatch && gWatch->doubleQuotesRefused)
        sqlite3_db_config(*connection, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    return result;
}

extern "C" int sqlite3_close(sqlite3* connection)
{
    static const auto real = systemsOwn<decltype(sqlite3_close)>("sqlite3_close");
    const int result = real(connection);
    if (connection != nullptr)
        note(result == SQLITE_OK ? "close" : "close refused");
    return result;
}

extern "C" int sqlite3_prepare_v2(
    sqlite3* connection, const char* sql, int size, sqlite3_stmt** statement, const char** tail)
{
    static const auto real = systemsOwn<decltype(sqlite3_prepare_v2)>("sqlite3_prepare_v2");
    runOnce(&WatchState::beforePreparing, sql);
    note(sql);
    const InSqlite inside;
    return real(connection, sql, size, statement, tail);
}

extern "C" int sqlite3_step(sqlite3_stmt* statement)
{
    static const auto real = systemsOwn<decltype(sqlite3_step)>("sqlite3_step");
    runOnce(&WatchState::beforeRunning, sqlite3_sql(statement));
    if (gWatch && gDepth == 0 && gWatch->rowsHidden)
        return SQLITE_DONE;
    const InSqlite inside;
    return real(statement);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace support {

std::vector<std::string> takeLog()
{
    const std::lock_guard<std::mutex> lock(gLogMutex);
    return std::exchange(gLog, {});
}

Clock::Clock(time_t moment, time_t step)
{
    gClock = ClockState{moment, step};
}

Clock::~Clock()
{
    gClock.reset();
}

TimeZone::TimeZone(const char* zone)
{
    if (const char* before = std::getenv("TZ"))
        m_before = before;
    setenv("TZ", zone, 1);
}

TimeZone::~TimeZone()
{
    if (m_before)
        setenv("TZ", m_before->c_str(), 1);
    else
        unsetenv("TZ");
}

SqliteWatch::SqliteWatch()
{
    if (gWatch)
        throw std::logic_error("SQLite is being watched already");
    gWatch = std::make_unique<WatchState>();
}

SqliteWatch::~SqliteWatch()
{
    gWatch.reset();
}

std::vector<std::string> SqliteWatch::takeCalls()
{
    return std::exchange(gWatch->calls, {});
}

void SqliteWatch::beforePreparing(const std::string& statement, std::function<void()> action)
{
    gWatch->beforePreparing[statement] = std::move(action);
}

void SqliteWatch::beforeRunning(const std::string& statement, std::function<void()> action)
{
    gWatch->beforeRunning[statement] = std::move(action);
}

void SqliteWatch::hideRows()
{
    gWatch->rowsHidden = true;
}

void SqliteWatch::refuseDoubleQuotedTexts()
{
    gWatch->doubleQuotesRefused = true;
}

int openDatabaseDescriptors()
{
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the descriptor of this very listing
        if (fs::read_symlink(entry.path(), gone).string().rfind(databasePath, 0) == 0)
            ++count;
    }
    return count;
}

std::string failureOf(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (SqliteException& failure) {
        return failure.getMessage() + (" (" + std::to_string(failure.getErrorCode()) + ")");
    }
    return "no exception";
}

std::vector<int> takeArray(int* array, int count)
{
    const std::unique_ptr<int[]> owner(array);
    return std::vector<int>(array, array + count);
}

int addRow(const std::string& assignments)
{
    execSql("insert into TaskTable (description, crontime) values ('task', '0 3 * * *')");
    const std::string id = queryRows("select max(id) from TaskTable").at(0);
    if (!assignments.empty())
        execSql("update TaskTable set " + assignments + " where id=" + id);
    return std::stoi(id);
}

void addRows(int count, const std::string& assignments)
{
    for (int row = 0; row < count; ++row)
        addRow(assignments);
}

orv::CfRef<CFPropertyListRef> listOf(const std::string& text)
{
    const orv::CfRef<CFDataRef> data(CFDataCreate(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()), static_cast<CFIndex>(text.size())));
    return orv::CfRef<CFPropertyListRef>(
        CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(), 0, nullptr, nullptr));
}

std::string xmlOf(CFPropertyListRef list)
{
    if (list == nullptr)
        return "";
    const orv::CfRef<CFDataRef> data(
        CFPropertyListCreateData(kCFAllocatorDefault, list, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    if (data == nullptr)
        throw std::runtime_error("this is no property list");
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
        static_cast<std::size_t>(CFDataGetLength(data.get())));
}

std::string xmlDocument(const std::string& element)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n"
        + element + "\n</plist>\n";
}

std::string blobLiteral(const std::string& bytes)
{
    std::string literal = "x'";
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        literal += digits;
    }
    return literal + "'";
}

void StoreTest::SetUp()
{
    WorldTest::SetUp();
    store.emplace();
    takeLog();
}

void StoreTest::TearDown()
{
    store.reset();
    EXPECT_EQ(0, openDatabaseDescriptors());
}

orv::OwnedTask StoreTest::readTask(int id)
{
    TaskInfo* task = nullptr;
    EXPECT_TRUE(store->getTaskInfoObject(id, &task));
    return orv::OwnedTask(task);
}

} // namespace support
