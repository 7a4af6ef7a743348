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

/// For the tests of the store: this test program has its own LogMsg and time() and intercepts the calls of SQLite, so
/// it can record them, set them, or do something between two of them.
namespace support {

/// The messages logged since the last call of this, each as "3: the text".
std::vector<std::string> takeLog();

/// While it lives, time() returns `moment` at its first call, and `step` seconds more at each further call.
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

/// Intercepts the product's calls of SQLite while it lives. One at a time, and only while no other thread uses SQLite.
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
    /// From now on statements return no rows.
    void hideRows();
    /// New connections are like those of an SQLite that was built to read words in double quotes only as names.
    void refuseDoubleQuotedTexts();
};

/// How many file descriptors of this process are open on the task database and its journals.
int openDatabaseDescriptors();

/// "message (code)" of the SqliteException that `operation` throws; "no exception" if it throws none.
std::string failureOf(const std::function<void()>& operation);

/// The elements of an array made by the store. Deletes the array.
std::vector<int> takeArray(int* array, int count);

/// Adds a row to TaskTable as another program does, with these columns set: "status=3, userId=501". Returns its id.
int addRow(const std::string& assignments = "");
/// Adds `count` such rows.
void addRows(int count, const std::string& assignments);

/// The property list read from XML or the binary format; null if it is none.
orv::CfRef<CFPropertyListRef> listOf(const std::string& text);
/// The XML of a property list; "" for null.
std::string xmlOf(CFPropertyListRef list);
/// The whole XML property list with this element, as the store writes it.
std::string xmlDocument(const std::string& element);
/// A text as an SQL blob literal.
std::string blobLiteral(const std::string& bytes);

/// A test that starts with an open store over an empty TaskTable, in UTC, and an empty log. When it ends, no connection
/// may be open.
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
