// Measures the operations of the store and the functions on text, each beside the plain SQLite or C calls that do the
// same work ("Plain" in the name). Runs in a private world. SQLite has the program's settings, for both. If the first
// argument is --as-a-library, it has its own, as in the product's other programs.

#include "World.h"

#include "CrontabText.h"
#include "PrivateWorld.h"
#include "TaskInterface.h"
#include "TaskLine.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <istream>
#include <ostream>
#include <pugixml.hpp>
#include <sqlite3.h>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

constexpr int tasksOfEach = 10;
constexpr const char* path = "/usr/local/Quarno/Kestrelcore/var/OrvMacDatabase.db";

void require(bool good, const std::string& what)
{
    if (!good)
        throw std::runtime_error(what + " failed");
}

// --- Databases of several sizes --------------------------------------------------------------------------------------

std::string databaseOf(int rows)
{
    return support::testDirectory + std::to_string(rows) + ".db";
}

void makeDatabase(int rows)
{
    fillDatabase(rows / tasksOfEach, tasksOfEach);
    std::filesystem::rename(path, databaseOf(rows));
}

// Replaces the present database with the one that has `rows` rows.
void useDatabase(std::int64_t rows)
{
    std::filesystem::remove(path);
    std::filesystem::create_hard_link(databaseOf(static_cast<int>(rows)), path);
}

// --- Plain SQLite ----------------------------------------------------------------------------------------------------

sqlite3* plainOpen()
{
    sqlite3* connection = nullptr;
    require(
        sqlite3_open_v2(path, &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) == SQLITE_OK, "open");
    sqlite3_busy_timeout(connection, 5000);
    return connection;
}

template <class Row> void plainRead(const char* sql, Row row)
{
    sqlite3* connection = plainOpen();
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
    while (sqlite3_step(statement) == SQLITE_ROW)
        row(statement);
    sqlite3_finalize(statement);
    sqlite3_close(connection);
}

int plainInt(const char* sql)
{
    int value = -1;
    plainRead(sql, [&value](sqlite3_stmt* row) { value = sqlite3_column_int(row, 0); });
    return value;
}

int* plainInts(int count, const char* sql)
{
    int* values = static_cast<int*>(std::malloc(static_cast<std::size_t>(count) * sizeof(int)));
    int row = 0;
    plainRead(sql, [&](sqlite3_stmt* statement) { values[row++] = sqlite3_column_int(statement, 0); });
    require(row == count, sql);
    return values;
}

void plainWrite(const char* sql)
{
    plainRead(sql, [](sqlite3_stmt*) {});
}

// --- One operation: open, statement, close ---------------------------------------------------------------------------

void openAndClose(benchmark::State& state)
{
    useDatabase(40);
    for (auto _ : state)
        SqliteDb(path, false);
}

void openAndClosePlain(benchmark::State& state)
{
    useDatabase(40);
    for (auto _ : state)
        sqlite3_close(plainOpen());
}

void taskType(benchmark::State& state)
{
    useDatabase(40);
    TaskInterface store;
    for (auto _ : state)
        benchmark::DoNotOptimize(store.getTaskType(33));
}

void taskTypePlain(benchmark::State& state)
{
    useDatabase(40);
    for (auto _ : state)
        benchmark::DoNotOptimize(plainInt("select type from TaskTable where id=33"));
}

void cronTime(benchmark::State& state)
{
    useDatabase(40);
    TaskInterface store;
    for (auto _ : state)
        benchmark::DoNotOptimize(store.getTaskParameter(33, "crontime"));
}

void cronTimePlain(benchmark::State& state)
{
    useDatabase(40);
    char text[256];
    for (auto _ : state) {
        plainRead("select crontime from TaskTable where id=33", [&text](sqlite3_stmt* row) {
            std::snprintf(text, sizeof text, "%s", reinterpret_cast<const char*>(sqlite3_column_text(row, 0)));
        });
        benchmark::DoNotOptimize(text);
    }
}

void incrementCount(benchmark::State& state)
{
    useDatabase(40);
    TaskInterface store;
    for (auto _ : state)
        require(store.incrementCount(33), "incrementCount");
}

void incrementCountPlain(benchmark::State& state)
{
    useDatabase(40);
    for (auto _ : state)
        plainWrite("update TaskTable set count=count+1 where id=33");
}

// --- Counts and lists ------------------------------------------------------------------------------------------------

void count(benchmark::State& state)
{
    useDatabase(state.range(0));
    TaskInterface store;
    for (auto _ : state)
        require(store.getNumTaskRecord() == state.range(0), "count");
}

void countPlain(benchmark::State& state)
{
    useDatabase(state.range(0));
    for (auto _ : state)
        require(plainInt("select count(*) from TaskTable") == state.range(0), "count");
}

void countOfUser(benchmark::State& state)
{
    useDatabase(state.range(0));
    TaskInterface store;
    for (auto _ : state)
        require(store.getNumTaskRecordForUser(firstUser) == tasksOfEach, "countOfUser");
}

constexpr const char* countOfUserSql = "select count(*) from TaskTable where userId=20000 and status<=5";

void countOfUserPlain(benchmark::State& state)
{
    useDatabase(state.range(0));
    for (auto _ : state)
        require(plainInt(countOfUserSql) == tasksOfEach, "countOfUser");
}

void countUsers(benchmark::State& state)
{
    useDatabase(state.range(0));
    TaskInterface store;
    for (auto _ : state)
        require(store.getNumUser() == state.range(0) / tasksOfEach, "countUsers");
}

constexpr const char* countUsersSql = "select count(*) from (select distinct userId from TaskTable)";

void countUsersPlain(benchmark::State& state)
{
    useDatabase(state.range(0));
    for (auto _ : state)
        require(plainInt(countUsersSql) == state.range(0) / tasksOfEach, "countUsers");
}

void list(benchmark::State& state)
{
    useDatabase(state.range(0));
    TaskInterface store;
    for (auto _ : state)
        delete[] store.getTaskIdArray();
}

void listPlain(benchmark::State& state)
{
    useDatabase(state.range(0));
    for (auto _ : state)
        std::free(plainInts(plainInt("select count(*) from TaskTable"), "select id from TaskTable"));
}

void listOfUser(benchmark::State& state)
{
    useDatabase(state.range(0));
    TaskInterface store;
    for (auto _ : state)
        delete[] store.getTaskIdArrayForUser(firstUser);
}

void listOfUserPlain(benchmark::State& state)
{
    useDatabase(state.range(0));
    for (auto _ : state)
        std::free(plainInts(plainInt(countOfUserSql), "select id from TaskTable where userId=20000 AND status<=5"));
}

void listUsers(benchmark::State& state)
{
    useDatabase(state.range(0));
    TaskInterface store;
    for (auto _ : state)
        delete[] store.getNumUserArray();
}

void listUsersPlain(benchmark::State& state)
{
    useDatabase(state.range(0));
    for (auto _ : state)
        std::free(plainInts(plainInt(countUsersSql), "select distinct userId from TaskTable"));
}

// --- A whole task ----------------------------------------------------------------------------------------------------

constexpr const char* propertyList = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>Archives</key>
	<true/>
	<key>Excluded</key>
	<array>
		<string>/Volumes/Backup</string>
		<string>/private/var/vm</string>
	</array>
	<key>Folders</key>
	<array>
		<string>/Applications</string>
		<string>/Users</string>
	</array>
	<key>MaximumSize</key>
	<integer>1048576</integer>
	<key>Started</key>
	<date>2026-11-16T08:30:05Z</date>
</dict>
</plist>
)";

void givePropertyLists()
{
    useDatabase(40);
    const std::string blob = std::string("cast('") + propertyList + "' as blob)";
    support::execSql("update TaskTable set parameter=" + blob + ", result=" + blob + " where id=33");
}

void wholeTask(benchmark::State& state)
{
    givePropertyLists();
    TaskInterface store;
    for (auto _ : state) {
        TaskInfo* task = nullptr;
        store.getTaskInfoObject(33, &task);
        const orv::OwnedTask owner(task);
        require(task->parameter != nullptr && task->result != nullptr, "wholeTask");
    }
}

// Parses the XML of both lists, but makes no objects of it.
void wholeTaskPlain(benchmark::State& state)
{
    givePropertyLists();
    const auto readList = [](sqlite3_stmt* row, int column) {
        pugi::xml_document parsed;
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
        require(parsed.load_buffer(sqlite3_column_blob(row, column), size), "wholeTaskPlain");
    };
    for (auto _ : state)
        plainRead("select * from TaskTable where id=33", [&readList](sqlite3_stmt* row) {
            readList(row, 4);
            readList(row, 5);
            for (const int column : {0, 1, 2, 3, 6, 7, 8, 9, 10, 11})
                benchmark::DoNotOptimize(sqlite3_column_text(row, column));
        });
}

// --- The text of crontabs --------------------------------------------------------------------------------------------

constexpr int linesOfText = 1000;
constexpr const char* textFile = "/usr/local/private-world/test/text";
constexpr const char* outputFile = "/usr/local/private-world/test/output";

// Every fifth line is a task line.
std::string mixedText()
{
    std::string text;
    for (int line = 0; line < linesOfText; line += 5)
        text += ownLines(4) + support::taskLine(line, "7 3 * * *");
    return text;
}

using TextFunction = void (*)(std::istream& in, std::ostream& out);

void dropOne(std::istream& in, std::ostream& out)
{
    orv::dropLinesOfTask(5, in, out);
}

void splitAll(std::istream& in, std::ostream& out)
{
    orv::splitTaskLines([](int) { return std::string("7 3 * * *"); }, in, out);
}

void inFiles(benchmark::State& state, TextFunction function)
{
    support::writeFile(textFile, mixedText());
    for (auto _ : state) {
        std::ifstream in(textFile);
        std::ofstream out(outputFile);
        function(in, out);
    }
    require(std::filesystem::file_size(outputFile) > 0, "inFiles");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(mixedText().size()));
}

// Without the writes of the flushes, so only the work on the text.
void inMemory(benchmark::State& state, TextFunction function)
{
    const std::string text = mixedText();
    for (auto _ : state) {
        std::istringstream in(text);
        std::ostringstream out;
        function(in, out);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void plainDrop(FILE* in, FILE* out)
{
    char line[501];
    while (std::fgets(line, sizeof line, in) != nullptr && line[0] != '\n') {
        if (std::strstr(line, support::taskManager.c_str()) != nullptr)
            continue;
        std::fputs(line, out);
        std::fflush(out);
    }
}

void dropInFilesPlain(benchmark::State& state)
{
    support::writeFile(textFile, mixedText());
    for (auto _ : state) {
        FILE* in = std::fopen(textFile, "r");
        FILE* out = std::fopen(outputFile, "w");
        plainDrop(in, out);
        std::fclose(in);
        std::fclose(out);
    }
    require(std::filesystem::file_size(outputFile) > 0, "dropInFilesPlain");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(mixedText().size()));
}

void writeLines(benchmark::State& state)
{
    for (auto _ : state) {
        std::ofstream out(outputFile);
        for (int id = 0; id < linesOfText; ++id)
            orv::writeTaskLine(out, "7 3 * * *", id);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * linesOfText);
}

void writeLinesPlain(benchmark::State& state)
{
    for (auto _ : state) {
        FILE* out = std::fopen(outputFile, "w");
        for (int id = 0; id < linesOfText; ++id) {
            std::fprintf(out, "%s %sTessaraTaskManager %d >> /dev/null 2>&1\n", "7 3 * * *",
                support::productDirectory.c_str(), id);
            std::fflush(out);
        }
        std::fclose(out);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * linesOfText);
}

// --- Time stamps -----------------------------------------------------------------------------------------------------

constexpr long moment = 1794817805;

void toText(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(convertTmToString(moment));
}

void toTextPlain(benchmark::State& state)
{
    char text[100];
    for (auto _ : state) {
        const time_t time = moment;
        const tm* local = std::localtime(&time);
        std::snprintf(text, sizeof text, "%d,%d,%d,%d,%d,%d,%d,%d,%d,", local->tm_sec, local->tm_min, local->tm_hour,
            local->tm_mday, local->tm_mon, local->tm_year, local->tm_wday, local->tm_yday, local->tm_isdst);
        benchmark::DoNotOptimize(text);
    }
}

void fromText(benchmark::State& state)
{
    const std::string text = convertTmToString(moment);
    for (auto _ : state)
        require(convertStringToTm(text) == moment, "fromText");
}

void fromTextPlain(benchmark::State& state)
{
    const std::string text = convertTmToString(moment);
    for (auto _ : state) {
        tm local{};
        std::sscanf(text.c_str(), "%d,%d,%d,%d,%d,%d,%d,%d,%d", &local.tm_sec, &local.tm_min, &local.tm_hour,
            &local.tm_mday, &local.tm_mon, &local.tm_year, &local.tm_wday, &local.tm_yday, &local.tm_isdst);
        require(std::mktime(&local) == moment, "fromTextPlain");
    }
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(40)->Arg(4000)->Arg(400000)->Unit(benchmark::kMicrosecond);
}

#define ORV_BESIDE_PLAIN(operation)                                                                                    \
    BENCHMARK(operation)->Unit(benchmark::kMicrosecond);                                                               \
    BENCHMARK(operation##Plain)->Unit(benchmark::kMicrosecond)
#define ORV_BESIDE_PLAIN_BY_SIZE(operation)                                                                            \
    BENCHMARK(operation)->Apply(sizes);                                                                                \
    BENCHMARK(operation##Plain)->Apply(sizes)

ORV_BESIDE_PLAIN(openAndClose);
ORV_BESIDE_PLAIN(taskType);
ORV_BESIDE_PLAIN(cronTime);
ORV_BESIDE_PLAIN(incrementCount);
ORV_BESIDE_PLAIN(wholeTask);
ORV_BESIDE_PLAIN_BY_SIZE(count);
ORV_BESIDE_PLAIN_BY_SIZE(countOfUser);
ORV_BESIDE_PLAIN_BY_SIZE(countUsers);
ORV_BESIDE_PLAIN_BY_SIZE(list);
ORV_BESIDE_PLAIN_BY_SIZE(listOfUser);
ORV_BESIDE_PLAIN_BY_SIZE(listUsers);
BENCHMARK_CAPTURE(inFiles, dropTaskLines, orv::dropTaskLines);
BENCHMARK(dropInFilesPlain);
BENCHMARK_CAPTURE(inFiles, dropLinesOfTask, dropOne);
BENCHMARK_CAPTURE(inFiles, splitTaskLines, splitAll);
BENCHMARK_CAPTURE(inMemory, dropTaskLines, orv::dropTaskLines);
BENCHMARK_CAPTURE(inMemory, dropLinesOfTask, dropOne);
BENCHMARK_CAPTURE(inMemory, splitTaskLines, splitAll);
BENCHMARK(writeLines);
BENCHMARK(writeLinesPlain);
BENCHMARK(toText);
BENCHMARK(toTextPlain);
BENCHMARK(fromText);
BENCHMARK(fromTextPlain);

} // namespace

int main(int argc, char** argv)
{
    const bool asALibrary = argc > 1 && std::strcmp(argv[1], "--as-a-library") == 0;
    if (asALibrary)
        argv[1] = argv[0]; // for Google Benchmark the name of the program
    else
        SqliteDb::setUpForOneThread();
    argc -= asALibrary ? 1 : 0;
    benchmark::Initialize(&argc, argv + (asALibrary ? 1 : 0));
    support::enterPrivateWorld();
    for (const int rows : {40, 4000, 400000})
        makeDatabase(rows);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
