// Measures what each setting of SQLite does to an operation of the store: open a connection, run a statement, close.
// Every setting has processes of its own, one in each round. Runs in a private world.
//
//   settings [ROUNDS]

#include "Runs.h"
#include "World.h"

#include "PrivateWorld.h"
#include "SqliteDb.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <ratio>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr const char* path = "/usr/local/Quarno/Kestrelcore/var/OrvMacDatabase.db";
constexpr int users = 200;
constexpr int tasksOfEach = 13;
constexpr int readWrite = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;

struct Setting {
    const char* name;
    void (*configure)(); ///< before the first connection
    int flags; ///< of each connection
};

struct Statement {
    const char* name;
    const char* sql;
    int repetitions;
};

constexpr Statement statements[] = {
    {"one row", "select crontime from TaskTable where id=33", 400},
    {"scan of 2,600 rows", "select count(*) from TaskTable where userId=20004 and status<=5", 50},
};

void require(int result)
{
    if (result != SQLITE_OK)
        throw std::runtime_error(sqlite3_errstr(result));
}

void noMemoryStatistics()
{
    require(sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0));
}

void oneThread()
{
    require(sqlite3_config(SQLITE_CONFIG_SINGLETHREAD));
}

void staticPages()
{
    constexpr int pageSize = 4096 + 512;
    constexpr int pages = 16;
    alignas(8) static char memory[pages * pageSize];
    require(sqlite3_config(SQLITE_CONFIG_PAGECACHE, memory, pageSize, pages));
}

void mapFile()
{
    require(sqlite3_config(SQLITE_CONFIG_MMAP_SIZE, sqlite3_int64{1} << 28, sqlite3_int64{1} << 28));
}

void lookaside()
{
    require(sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 512, 128));
}

const Setting settings[] = {
    {"none", [] {}, readWrite},
    {"none, once more", [] {}, readWrite},
    {"MEMSTATUS 0", noMemoryStatistics, readWrite},
    {"SINGLETHREAD", oneThread, readWrite},
    {"PAGECACHE, 16 static pages", staticPages, readWrite},
    {"these three, as the tool sets them", SqliteDb::setUpForOneThread, readWrite},
    {"LOOKASIDE 512 x 128", lookaside, readWrite},
    {"MMAP_SIZE 256 MiB", mapFile, readWrite},
    {"OPEN_READONLY", [] {}, SQLITE_OPEN_READONLY},
    {"OPEN_NOMUTEX", [] {}, readWrite | SQLITE_OPEN_NOMUTEX},
    {"OPEN_PRIVATECACHE", [] {}, readWrite | SQLITE_OPEN_PRIVATECACHE},
};

int rowsOf(const char* sql, int flags)
{
    sqlite3* connection = nullptr;
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_open_v2(path, &connection, flags, nullptr));
    require(sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr));
    int rows = 0;
    for (; sqlite3_step(statement) == SQLITE_ROW; ++rows)
        sqlite3_column_text(statement, 0);
    sqlite3_finalize(statement);
    sqlite3_close(connection);
    return rows;
}

double microsecondsOf(const Statement& statement, int flags)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < statement.repetitions; ++i)
        if (rowsOf(statement.sql, flags) != 1)
            throw std::runtime_error("a statement gave no row");
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    return time.count() / statement.repetitions;
}

// Runs in a process of its own, and prints the time. SQLite takes settings only before its first use, and what a
// setting does for memory shows only in a process that has used little before.
void measureHere(const Setting& setting, const Statement& statement)
{
    setting.configure();
    sqlite3* editors = nullptr; // as in the program, one connection stays open and is not used
    require(sqlite3_open_v2(path, &editors, readWrite, nullptr));
    sqlite3_exec(editors, support::createTaskTable.c_str(), nullptr, nullptr, nullptr); // fails: the table exists
    rowsOf(statement.sql, setting.flags);
    std::printf("%.3f", microsecondsOf(statement, setting.flags));
}

double measureInProcess(std::size_t setting, std::size_t statement)
{
    const Run run = timedRun({"/proc/self/exe", "--here", std::to_string(setting), std::to_string(statement)});
    if (run.status != 0)
        throw std::runtime_error(std::string("the setting ") + settings[setting].name + " cannot be measured");
    return std::atof(run.output.c_str());
}

void measureStatement(std::size_t statement, int rounds)
{
    constexpr std::size_t count = std::size(settings);
    std::vector<double> times[count];
    for (int round = 0; round < rounds; ++round)
        for (std::size_t i = 0; i < count; ++i) { // forwards and backwards in turn, so that the order favours none
            const std::size_t place = round % 2 == 0 ? i : count - 1 - i;
            times[place].push_back(measureInProcess(place, statement));
        }
    std::printf("\n| %s | us | to none | quartiles |\n| --- | ---: | ---: | ---: |\n", statements[statement].name);
    for (std::size_t i = 0; i < count; ++i) {
        const auto pairs = ratios(times[i], times[0]);
        std::printf("| %s | %.2f | %.3f | %.3f-%.3f |\n", settings[i].name, median(times[i]), median(pairs),
            quantile(pairs, 0.25), quantile(pairs, 0.75));
    }
}

void measureAll(int rounds)
{
    support::enterPrivateWorld();
    fillDatabase(users, tasksOfEach);
    for (std::size_t statement = 0; statement < std::size(statements); ++statement)
        measureStatement(statement, rounds);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc == 4 && std::string(argv[1]) == "--here")
            measureHere(settings[std::atoi(argv[2])], statements[std::atoi(argv[3])]);
        else
            measureAll(argc > 1 ? std::atoi(argv[1]) : 41);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "settings: %s\n", error.what());
        return 1;
    }
    return 0;
}
