#pragma once

#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CfRef.h"
#include "OrvException.h" // IWYU pragma: export
#include "TaskInterface.h" // IWYU pragma: export
#include "WorldTest.h" // IWYU pragma: export
#include <CoreFoundation/CoreFoundation.h>

/// What the tests of the store stand on: the program's LogMsg, its time() and its calls of SQLite all go through this
/// test program, which writes them down, sets them, or lets something happen between two of them.
namespace support {

/// What LogMsg was told since the last call of this: "3: the text" each.
std::vector<std::string> takeLog();

/// While it lives, time() gives `moment` at its first call, and at each further call `step` seconds more.
class Clock {
public:
    explicit Clock(time_t moment, time_t step = 0);
    ~Clock();
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
};

/// While it lives, the process is in this time zone, in POSIX's notation ("CET-1CEST,M3.5.0,M10.5.0/3").
class TimeZone {
public:
    explicit TimeZone(const char* zone);
    ~TimeZone();
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    std::optional<std::string> m_before;
};

/// While it lives, it stands between the product and SQLite. One at a time, and not beside other threads that use
/// SQLite.
class SqliteWatch {
public:
    SqliteWatch();
    ~SqliteWatch();
    SqliteWatch(const SqliteWatch&) = delete;
    SqliteWatch& operator=(const SqliteWatch&) = delete;

    /// The calls since the last call of this, in order: "open PATH", the text of each prepared statement, "close".
    std::vector<std::string> takeCalls();
    /// Runs `action` once, right before the next statement with this text is prepared.
    void beforePreparing(const std::string& statement, std::function<void()> action);
    /// Runs `action` once, when a statement with this text has been prepared and is about to run.
    void beforeRunning(const std::string& statement, std::function<void()> action);
    /// Statements end without having given a row.
    void hideRows();
    /// Connections begin as those of an SQLite that was built to take words in double quotes for names only.
    void refuseDoubleQuotedTexts();
};

/// How many descriptors of this process stand for the task database, its journals included.
int openDatabaseDescriptors();

/// "message (code)" of the SqliteException that `operation` throws; "no exception" if it throws none.
std::string failureOf(const std::function<void()>& operation);

/// The elements of an array that the store has made, which is released.
std::vector<int> takeArray(int* array, int count);

/// Adds a row to TaskTable as another program does, with these columns set: "status=3, userId=501". Returns its id.
int addRow(const std::string& assignments = "");
/// Adds `count` such rows.
void addRows(int count, const std::string& assignments);

/// The property list that an XML or binary text denotes; null if it denotes none.
orv::CfRef<CFPropertyListRef> listOf(const std::string& text);
/// The XML of a property list; "" for null.
std::string xmlOf(CFPropertyListRef list);
/// `element` as a whole XML property list, as it is stored.
std::string xmlDocument(const std::string& element);
/// A text as an SQL blob literal.
std::string blobLiteral(const std::string& bytes);

/// A test that finds an open store over an empty TaskTable, in UTC, and nothing logged. When it has ended, no
/// connection of an operation may be open any more.
class StoreTest : public WorldTest {
protected:
    void SetUp() override;
    void TearDown() override;

    /// The whole task `id`.
    orv::OwnedTask readTask(int id);

    TimeZone utc{"UTC0"};
    std::optional<TaskInterface> store;
};

} // namespace support
