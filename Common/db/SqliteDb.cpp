#include "SqliteDb.h"

#include "OrvException.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <sqlite3.h>
#include <string>
#include <vector>

static_assert(SqliteDb::columnNull == SQLITE_NULL);
static_assert(SqliteDb::columnBlob == SQLITE_BLOB);
static_assert(SqliteDb::resultMisuse == SQLITE_MISUSE);

namespace {

constexpr int busyWaitMilliseconds = 5000;

// Pages in static memory. When they are used up, SQLite takes more from malloc.
constexpr int staticPages = 16;
constexpr int staticPageSize = 4096 + 512; // a page of the default size and SQLite's header

// Only SQLite's message says that the table exists. Asking first would cost a statement at every start, and another
// program could create the table in between.
bool tableExistsAlready(sqlite3* connection, int resultCode)
{
    return resultCode == SQLITE_ERROR && std::strstr(sqlite3_errmsg(connection), "already exists") != nullptr;
}

int bind(sqlite3_stmt* statement, const SqliteDataContainer& value)
{
    // For SQLite a null pointer means NULL, but an empty description is a text.
    const void* bytes = value.length == 0 ? "" : value.data;
    const sqlite3_uint64 size = static_cast<std::uint32_t>(value.length);
    switch (value.type) {
    case sqliteDataText:
        return sqlite3_bind_text64(
            statement, value.index, static_cast<const char*>(bytes), size, SQLITE_STATIC, SQLITE_UTF8);
    case sqliteDataBlob:
        return sqlite3_bind_blob64(statement, value.index, bytes, size, SQLITE_STATIC);
    }
    return SQLITE_MISUSE;
}

void* copyOf(const std::string& bytes)
{
    void* copy = std::malloc(std::max<std::size_t>(bytes.size(), 1)); // an empty blob has an address too
    if (copy == nullptr)
        throw std::bad_alloc();
    bytes.copy(static_cast<char*>(copy), bytes.size());
    return copy;
}

} // namespace

void SqliteDb::Closer::operator()(sqlite3* connection) const
{
    sqlite3_close(connection);
}

void SqliteDb::Closer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

void SqliteDb::setUpForOneThread()
{
    alignas(8) static char pages[staticPages * staticPageSize];
    if (sqlite3_config(SQLITE_CONFIG_SINGLETHREAD) != SQLITE_OK)
        return; // a connection was opened before
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    sqlite3_config(SQLITE_CONFIG_PAGECACHE, pages, staticPageSize, staticPages);
}

SqliteDb::SqliteDb(const char* path, bool)
{
    sqlite3* connection = nullptr;
    m_openResult = sqlite3_open_v2(path, &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    m_connection.reset(connection); // most failures return one too, to be closed
    if (m_openResult == SQLITE_OK) {
        sqlite3_busy_timeout(connection, busyWaitMilliseconds);
        // The store writes texts in double quotes, which some builds of SQLite reject.
        sqlite3_db_config(connection, SQLITE_DBCONFIG_DQS_DML, 1, nullptr);
    } else
        m_connection.reset();
    lastError = m_openResult;
}

SqliteDb::SqliteDb(const char* path, bool flag, const char* createSql)
    : SqliteDb(path, flag)
{
    const int result = write(createSql, {});
    if (result == SQLITE_OK || tableExistsAlready(m_connection.get(), result))
        return;
    throw SqliteException(result, "Database: table cannot be created");
}

SqliteDb::~SqliteDb() = default;

bool SqliteDb::doReadSql(const char* sql)
{
    forgetRows();
    const int result = readRows(sql);
    if (result != SQLITE_OK)
        forgetRows();
    return succeeded(result);
}

bool SqliteDb::nextRow()
{
    return m_rowsPassed <= m_rows && ++m_rowsPassed <= m_rows;
}

void* SqliteDb::operator[](int column)
{
    auto cell = std::make_unique<valueCell>();
    const Value& value = valueAt(column);
    if (value.type == SQLITE_BLOB)
        cell->blob = copyOf(value.text);
    else
        cell->integer = static_cast<std::int32_t>(value.integer);
    return cell.release();
}

void* SqliteDb::operator[](const char* name)
{
    const auto named = [name](const std::string& column) { return sqlite3_stricmp(column.c_str(), name) == 0; };
    const auto found = std::find_if(m_columnNames.begin(), m_columnNames.end(), named);
    return (*this)[found == m_columnNames.end() ? -1 : static_cast<int>(found - m_columnNames.begin())];
}

std::string SqliteDb::getColumn(int column)
{
    return valueAt(column).text;
}

int SqliteDb::getColumnByte(int column)
{
    return static_cast<int>(valueAt(column).text.size());
}

int SqliteDb::columnType(int column)
{
    return valueAt(column).type;
}

const char* SqliteDb::resultText(int code)
{
    return sqlite3_errstr(code);
}

bool SqliteDb::doWriteSql(const char* sql)
{
    return succeeded(write(sql, {}));
}

bool SqliteDb::doWriteSql(const char* sql, std::vector<SqliteDataContainer>& values)
{
    return succeeded(write(sql, values));
}

int SqliteDb::prepare(const char* sql, Statement& statement) const
{
    if (m_connection == nullptr)
        return m_openResult;
    sqlite3_stmt* prepared = nullptr;
    const int result = sqlite3_prepare_v2(m_connection.get(), sql, -1, &prepared, nullptr);
    statement.reset(prepared);
    return result == SQLITE_OK && prepared == nullptr ? SQLITE_MISUSE : result; // no statement in the text
}

int SqliteDb::readRows(const char* sql)
{
    Statement statement;
    int result = prepare(sql, statement);
    if (result != SQLITE_OK)
        return result;
    while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
        if ((result = readRow(statement.get())) != SQLITE_OK)
            return result;
    }
    return result == SQLITE_DONE ? SQLITE_OK : result;
}

int SqliteDb::readRow(sqlite3_stmt* statement)
{
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        if (m_rows == 0) { // not earlier: the first step prepares the statement again if the table has changed
            const char* name = sqlite3_column_name(statement, column);
            if (name == nullptr)
                return SQLITE_NOMEM;
            m_columnNames.emplace_back(name);
        }
        const int type = sqlite3_column_type(statement, column); // first: the others can change it
        const std::int64_t integer = sqlite3_column_int64(statement, column);
        const void* bytes = type == SQLITE_BLOB ? sqlite3_column_blob(statement, column)
                                                : static_cast<const void*>(sqlite3_column_text(statement, column));
        const int size = sqlite3_column_bytes(statement, column);
        if (bytes == nullptr && type != SQLITE_NULL && (type != SQLITE_BLOB || size > 0))
            return SQLITE_NOMEM;
        m_values.push_back(
            {type, integer, std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size))});
    }
    ++m_rows;
    return SQLITE_OK;
}

int SqliteDb::write(const char* sql, const std::vector<SqliteDataContainer>& values)
{
    Statement statement;
    int result = prepare(sql, statement);
    for (auto value = values.begin(); result == SQLITE_OK && value != values.end(); ++value)
        result = bind(statement.get(), *value);
    if (result != SQLITE_OK)
        return result;
    do
        result = sqlite3_step(statement.get());
    while (result == SQLITE_ROW);
    if (result != SQLITE_DONE)
        return result;
    lastInsertId = static_cast<std::int32_t>(sqlite3_last_insert_rowid(m_connection.get()));
    return SQLITE_OK;
}

bool SqliteDb::succeeded(int resultCode)
{
    if (resultCode != SQLITE_OK)
        lastError = resultCode;
    return resultCode == SQLITE_OK;
}

void SqliteDb::forgetRows()
{
    m_columnNames.clear();
    m_values.clear();
    m_rows = 0;
    m_rowsPassed = 0;
}

const SqliteDb::Value& SqliteDb::valueAt(int column) const
{
    static const Value none{SQLITE_NULL, 0, {}};
    const bool current = m_rowsPassed > 0 && m_rowsPassed <= m_rows;
    if (!current || column < 0 || static_cast<std::size_t>(column) >= m_columnNames.size())
        return none;
    return m_values[(m_rowsPassed - 1) * m_columnNames.size() + static_cast<std::size_t>(column)];
}
