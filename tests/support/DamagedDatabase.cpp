#include "DamagedDatabase.h"

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "FailingVfs.h"
#include "PrivateWorld.h"

namespace fs = std::filesystem;

namespace support {

const std::vector<std::string> taskColumns = {"id", "description", "type", "crontime", "parameter", "result", "created",
    "lastRun", "status", "count", "userId", "recType"};

namespace {

const std::string journalPath = databasePath + "-journal";
const std::string walPath = databasePath + "-wal";

std::string dictionary(const std::string& text)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>path</key><string>" + text
        + "</string></dict></plist>\n";
}

int ownerOf(int task)
{
    if (task <= 20)
        return anna;
    if (task <= 30)
        return ben;
    return task <= 32 ? 0 : nobodysUid;
}

int statusOf(int task)
{
    if (task % 10 == 0)
        return task % 20 == 0 ? 5 : 3;
    return task % 30 == 6 ? 7 : 1;
}

std::string insertStatement(int task)
{
    const std::string number = std::to_string(task);
    const int type = task % 7 == 0 ? 3 : 1 + task % 2;
    return "insert into TaskTable(description,type,crontime,created,lastRun,status,userId) values ('task " + number
        + "'," + std::to_string(type) + ",'" + number + " 4 * * *','5,30,8,16,10,126,1,319,0,','0,0,0,1,0,70,4,0,0,',"
        + std::to_string(statusOf(task)) + "," + std::to_string(ownerOf(task)) + ");";
}

std::string makeSoundDatabase()
{
    putNoDatabase();
    std::string sql = createTaskTable + ";";
    for (int task = 1; task <= 42; ++task)
        sql += insertStatement(task);
    sql += "update TaskTable set parameter='" + dictionary("/home/anna") + "',result='" + dictionary("clean")
        + "' where id=1;";
    sql += "update TaskTable set parameter='" + dictionary(std::string(6000, 'p')) + "' where id=2;";
    sql += "update TaskTable set parameter=cast(parameter as blob),result=cast(result as blob) where id<3;";
    execSql(sql);
    return readFile(databasePath);
}

std::string fileOrNothing(const std::string& path)
{
    return fs::exists(path) ? readFile(path) : "";
}

void putFileOrNothing(const std::string& path, const std::string& bytes)
{
    if (!bytes.empty())
        writeFile(path, bytes);
}

const char* const killedTransaction = "PRAGMA cache_size=1;BEGIN;"
                                      "update TaskTable set crontime='0 0 1 1 *',description=description||'" // grows
                                      "..................................................';"
                                      "delete from TaskTable where id%3=0;"
                                      "COMMIT;";

[[noreturn]] void writeAndDie(FileCall call, int n)
{
    FailingVfs vfs;
    sqlite3* connection = nullptr;
    sqlite3_open(databasePath.c_str(), &connection);
    vfs.killAtNth(call, n);
    const int result = sqlite3_exec(connection, killedTransaction, nullptr, nullptr, nullptr);
    _exit(result == SQLITE_OK ? 0 : 1);
}

} // namespace

const std::string& soundDatabase()
{
    static const std::string bytes = makeSoundDatabase();
    return bytes;
}

void putSoundDatabase()
{
    putDatabase(soundDatabase());
}

void putDatabase(const std::string& bytes)
{
    putNoDatabase();
    writeFile(databasePath, bytes);
}

void putNoDatabase()
{
    for (const char* suffix : {"", "-journal", "-wal", "-shm"})
        fs::remove_all(databasePath + suffix);
}

void putEmptyFile()
{
    putDatabase("");
}

void putTextFile()
{
    std::string text;
    for (int line = 0; line < 500; ++line)
        text += "This is line " + std::to_string(line) + " of no database.\n";
    putDatabase(text);
}

void putDirectory()
{
    putNoDatabase();
    fs::create_directory(databasePath);
}

void putForeignDatabase()
{
    putNoDatabase();
    execSql("create table Other(a,b); insert into Other values (1,2)");
}

void putCutDatabase(std::size_t size)
{
    putDatabase(soundDatabase().substr(0, size));
}

void putFlippedDatabase(std::size_t offset, unsigned char mask)
{
    std::string bytes = soundDatabase();
    bytes.at(offset) = static_cast<char>(static_cast<unsigned char>(bytes[offset]) ^ mask);
    putDatabase(bytes);
}

void putDatabaseWithoutColumn(const std::string& column)
{
    if (column != "id") // a primary key cannot be dropped
        return putDatabaseAfter("alter table TaskTable drop column " + column);
    std::string others;
    for (const std::string& name : taskColumns)
        if (name != "id")
            others += (others.empty() ? "" : ",") + name;
    putDatabaseAfter("alter table TaskTable rename to Old; create table TaskTable as select " + others + " from Old");
}

void putDatabaseWithRenamedColumn(const std::string& column)
{
    putDatabaseAfter("alter table TaskTable rename column " + column + " to " + column + "_old");
}

void putDatabaseWithReversedColumns()
{
    const std::string reversed = "recType INTEGER NOT NULL DEFAULT 0,userId INTEGER NOT NULL DEFAULT 0,"
                                 "count INTEGER NOT NULL DEFAULT 0,status INTEGER DEFAULT 1,lastRun TEXT,created TEXT,"
                                 "result BLOB,parameter BLOB,crontime VARCHAR(255) NOT NULL,"
                                 "type INTEGER NOT NULL DEFAULT 1,description VARCHAR(255) NOT NULL,"
                                 "id INTEGER PRIMARY KEY AUTOINCREMENT";
    std::string names;
    for (const std::string& name : taskColumns)
        names += (names.empty() ? "" : ",") + name;
    putDatabaseAfter("alter table TaskTable rename to Old; create table TaskTable(" + reversed
        + "); insert into TaskTable(" + names + ") select " + names + " from Old");
}

void putDatabaseWithView()
{
    putDatabaseAfter("alter table TaskTable rename to Old; create view TaskTable as select * from Old");
}

void putDatabaseAfter(const std::string& sql)
{
    putSoundDatabase();
    execSql(sql);
}

void putWalDatabase()
{
    putDatabaseAfter("PRAGMA journal_mode=wal");
}

bool putDatabaseOfKilledWriter(const std::string& mode, FileCall call, int n)
{
    putDatabaseAfter("PRAGMA journal_mode=" + mode);
    const pid_t writer = fork();
    if (writer < 0)
        throw std::runtime_error("fork failed");
    if (writer == 0)
        writeAndDie(call, n);
    int status = 0;
    waitpid(writer, &status, 0);
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
        return true;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("the writer that was to be killed has failed");
    return false;
}

DatabaseFiles databaseFiles()
{
    return {readFile(databasePath), fileOrNothing(journalPath), fileOrNothing(walPath)};
}

void putFiles(const DatabaseFiles& files)
{
    putDatabase(files.database);
    putFileOrNothing(journalPath, files.journal);
    putFileOrNothing(walPath, files.wal);
}

std::vector<std::string> taskRows()
{
    return queryRows("select * from TaskTable order by id");
}

std::string integrity()
{
    std::string answer;
    for (const std::string& line : queryRows("PRAGMA integrity_check"))
        answer += (answer.empty() ? "" : "\n") + line;
    return answer;
}

} // namespace support
