// The clean and the rebuild as a plain C program, for comparison. It does what the real program does: every statement
// on a connection of its own, the same commands through the shell, the same flushes, look-ups and removals. But it
// calls SQLite directly, and changes none of SQLite's settings.

#include <fcntl.h>
#include <pwd.h>
#include <sqlite3.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#define DATABASE "/usr/local/Quarno/Kestrelcore/var/OrvMacDatabase.db"
#define SCRATCH "/usr/local/Quarno/Kestrelcore/var/tmp/"
#define COPY SCRATCH "crontemp.txt"
#define FILTERED SCRATCH "temp2.txt"
#define MANAGER "/usr/local/Quarno/Kestrelcore/TessaraTaskManager"

enum { lineCapacity = 500, textCapacity = 1024, busyWaitMilliseconds = 5000, scanNowTask = 3 };

static const char createTable[] = "CREATE TABLE TaskTable(id INTEGER PRIMARY KEY AUTOINCREMENT,"
                                  "description VARCHAR(255) NOT NULL,type INTEGER NOT NULL DEFAULT 1,"
                                  "crontime VARCHAR(255) NOT NULL,parameter BLOB,result BLOB,created TEXT,"
                                  "lastRun TEXT,status INTEGER DEFAULT 1,count INTEGER NOT NULL DEFAULT 0,"
                                  "userId INTEGER NOT NULL DEFAULT 0,recType INTEGER NOT NULL DEFAULT 0)";

static void stop(const char* what)
{
    fprintf(stderr, "floor: %s failed\n", what);
    exit(1);
}

static sqlite3* openDatabase(void)
{
    sqlite3* connection = NULL;
    if (sqlite3_open_v2(DATABASE, &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, NULL) != SQLITE_OK)
        stop("opening the database");
    sqlite3_busy_timeout(connection, busyWaitMilliseconds);
    return connection;
}

// The connection stays open for the whole run, and is not used again.
static void makeTable(void)
{
    sqlite3* connection = openDatabase();
    sqlite3_stmt* statement = NULL;
    if (sqlite3_prepare_v2(connection, createTable, -1, &statement, NULL) == SQLITE_OK
        && sqlite3_step(statement) != SQLITE_DONE)
        stop("making the table");
    sqlite3_finalize(statement);
}

struct reading {
    sqlite3* connection;
    sqlite3_stmt* statement;
};

static struct reading startReading(const char* sql)
{
    struct reading reading = {openDatabase(), NULL};
    if (sqlite3_prepare_v2(reading.connection, sql, -1, &reading.statement, NULL) != SQLITE_OK)
        stop(sql);
    return reading;
}

static void endReading(struct reading reading)
{
    sqlite3_finalize(reading.statement);
    sqlite3_close(reading.connection);
}

// False if there is no row.
static bool readInt(const char* sql, int* value)
{
    const struct reading reading = startReading(sql);
    const bool found = sqlite3_step(reading.statement) == SQLITE_ROW;
    if (found)
        *value = sqlite3_column_int(reading.statement, 0);
    endReading(reading);
    return found;
}

static bool readText(const char* sql, char* text, size_t capacity)
{
    const struct reading reading = startReading(sql);
    const bool found = sqlite3_step(reading.statement) == SQLITE_ROW;
    if (found)
        snprintf(text, capacity, "%s", (const char*)sqlite3_column_text(reading.statement, 0));
    endReading(reading);
    return found;
}

static int count(const char* sql)
{
    int rows = 0;
    if (!readInt(sql, &rows))
        stop(sql);
    return rows;
}

// `rows` numbers, which the caller frees. NULL if there are none, or not as many.
static int* readInts(const char* sql, int rows)
{
    int* values = rows < 1 ? NULL : calloc((size_t)rows, sizeof *values);
    if (values == NULL)
        return NULL;
    const struct reading reading = startReading(sql);
    int row = 0;
    for (; sqlite3_step(reading.statement) == SQLITE_ROW; ++row)
        if (row < rows)
            values[row] = sqlite3_column_int(reading.statement, 0);
    endReading(reading);
    if (row == rows)
        return values;
    free(values);
    return NULL;
}

static int countUsers(void)
{
    return count("select count(*) from (select distinct userId from TaskTable)");
}

static int* listUsers(void)
{
    return readInts("select distinct userId from TaskTable", countUsers());
}

static int countTasks(int uid)
{
    char sql[textCapacity];
    snprintf(sql, sizeof sql, "select count(*) from TaskTable where userId=%d and status<=5", uid);
    return count(sql);
}

static int* listTasks(int uid)
{
    char sql[textCapacity];
    snprintf(sql, sizeof sql, "select id from TaskTable where userId=%d AND status<=5", uid);
    return readInts(sql, countTasks(uid));
}

// The name of the account, valid until the next look-up; NULL if there is none.
static const char* accountName(int uid)
{
    const struct passwd* account = getpwuid((uid_t)uid);
    return account == NULL ? NULL : account->pw_name;
}

static void copyCrontab(const char* account)
{
    char command[textCapacity];
    remove(COPY);
    if (account == NULL)
        return;
    snprintf(command, sizeof command, "/usr/bin/crontab -u %s -l", account);
    FILE* pipe = popen(command, "r");
    FILE* file = pipe == NULL ? NULL : fopen(COPY, "w");
    if (file == NULL)
        stop("copying a crontab");
    char block[BUFSIZ];
    for (size_t size; (size = fread(block, 1, sizeof block, pipe)) > 0;)
        fwrite(block, 1, size, file);
    pclose(pipe);
    if (fclose(file) != 0)
        stop("copying a crontab");
}

static void install(const char* path, const char* account)
{
    char command[textCapacity];
    if (account == NULL)
        return;
    snprintf(command, sizeof command, "/usr/bin/crontab -u %s %s", account, path);
    FILE* pipe = popen(command, "r");
    if (pipe == NULL)
        stop("installing a crontab");
    pclose(pipe);
}

// Reads one character more than it keeps of a line, to see the line feed after the longest one.
static void dropTaskLines(FILE* in, FILE* out)
{
    char line[lineCapacity + 1];
    bool whole = true;
    while (whole && fgets(line, sizeof line, in) != NULL) {
        size_t length = strlen(line);
        if (length > 0 && line[length - 1] == '\n')
            line[--length] = '\0';
        if (length == 0)
            return;
        whole = length < lineCapacity;
        if (!whole)
            line[--length] = '\0';
        if (strstr(line, MANAGER) != NULL)
            continue;
        fwrite(line, 1, length, out);
        if (length < 3)
            continue;
        putc('\n', out);
        fflush(out);
    }
}

static void cleanUser(int uid)
{
    const char* account = accountName(uid);
    remove(FILTERED);
    copyCrontab(account);
    FILE* in = fopen(COPY, "r");
    FILE* out = fopen(FILTERED, "w");
    if (out == NULL)
        stop("opening the filtered copy");
    if (in != NULL) {
        dropTaskLines(in, out);
        fclose(in);
    }
    if (fclose(out) != 0)
        stop("writing the filtered copy");
    install(FILTERED, account);
    remove(COPY);
    remove(FILTERED);
}

static void appendTask(int id, FILE* out)
{
    char sql[textCapacity];
    char cronTime[textCapacity];
    int type = 0;
    snprintf(sql, sizeof sql, "select crontime from TaskTable where id=%d", id);
    if (!readText(sql, cronTime, sizeof cronTime))
        return;
    snprintf(sql, sizeof sql, "select type from TaskTable where id=%d", id);
    if (!readInt(sql, &type) || type == scanNowTask)
        return;
    fprintf(out, "%s " MANAGER " %d >> /dev/null 2>&1\n", cronTime, id);
    fflush(out);
}

static void rebuildUser(int uid)
{
    const char* account = accountName(uid);
    if (account == NULL)
        return;
    copyCrontab(account);
    FILE* out = fopen(COPY, "a");
    if (out == NULL)
        stop("opening the copy");
    const int tasks = countTasks(uid);
    int* ids = tasks < 1 ? NULL : listTasks(uid);
    for (int i = 0; ids != NULL && i < tasks; ++i)
        appendTask(ids[i], out);
    if (fclose(out) != 0)
        stop("writing the copy");
    if (ids == NULL)
        return;
    install(COPY, account);
    remove(COPY);
    free(ids);
}

int main(int argc, char** argv)
{
    (void)argv;
    makeTable();
    const int directory = open(SCRATCH, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0 || flock(directory, LOCK_EX) != 0)
        stop("locking the scratch directory");
    const int users = countUsers();
    int* uids = users < 1 ? NULL : listUsers();
    for (int i = 0; uids != NULL && i < users; ++i)
        (argc >= 2 ? rebuildUser : cleanUser)(uids[i]);
    free(uids);
    close(directory);
    return 0;
}
