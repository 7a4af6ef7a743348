#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

/// What a bound value is.
enum SqliteDataType : std::int32_t {
    sqliteDataText = 0,
    sqliteDataBlob = 1,
};

/// One value for a "?" placeholder of a write statement. The bytes stay the caller's and must live until the statement
/// has run.
struct SqliteDataContainer {
    SqliteDataType type;
    void* data;
    std::int32_t length; ///< bytes in `data`
    int index; ///< the placeholder's number; the first is 1
};

/// One value taken out of a result row; see SqliteDb::operator[]. Released with delete, as a valueCell.
union valueCell {
    void* blob; ///< for a blob: a copy of its bytes from malloc, released with free
    std::int32_t integer; ///< for any other value: its low 32 bits as an integer
};

/// One connection to one SQLite file, and the rows of its last read.
/// Not for use by two threads at once. Never changes the file's journal mode, schema or settings by itself.
class SqliteDb {
public:
    /// SQLite's code for a value that is NULL, as columnType() gives it.
    static constexpr int columnNull = 5;
    /// SQLite's code for a value that is a blob, as columnType() gives it.
    static constexpr int columnBlob = 4;
    /// SQLite's result code for a call that makes no sense.
    static constexpr int resultMisuse = 21;

    /// Sets SQLite up, for the whole process, for a program that uses it on one thread only and opens many short
    /// connections: no locking between threads, no memory statistics, a few pages in static memory. Call it before the
    /// first connection; later it has no effect. It changes nothing but speed. The library never calls it: only a
    /// program knows its threads.
    static void setUpForOneThread();

    /// Opens the file at `path`, which SQLite makes when it first needs it. `flag` has no meaning; pass false.
    /// Does not fail when the file cannot be opened: every later read and write then returns false, with lastError set.
    SqliteDb(const char* path, bool flag);

    /// As above, then runs `createSql`, a CREATE TABLE statement, unless its table exists already.
    /// Throws SqliteException with SQLite's code when the file cannot be opened or the statement fails.
    SqliteDb(const char* path, bool flag, const char* createSql);

    SqliteDb(const SqliteDb&) = delete;
    SqliteDb& operator=(const SqliteDb&) = delete;

    /// Closes the connection.
    virtual ~SqliteDb();

    /// Runs the read statement `sql` and keeps all of its rows; the file is not locked any more when it returns, so
    /// other connections can write while the rows are gone through. No row is current yet. Returns false on any error,
    /// with lastError set and no rows. True says nothing about whether there are rows.
    bool doReadSql(const char* sql);

    /// Makes the next row current, the first one at the first call after doReadSql. Returns false when there is none.
    virtual bool nextRow();

    /// The value of column `column` (counted from 0) of the current row in a new valueCell, which the caller releases
    /// with delete. A blob's cell holds a pointer to a copy of its bytes, which the caller releases with free; it is
    /// never null but for want of memory, when std::bad_alloc is thrown. Any other value's cell holds the low 32 bits
    /// of what SQLite converts it to as an integer (NULL: 0). A zero cell if there is no such column or no current row.
    void* operator[](int column);

    /// As operator[](int), for the first column with the name `name`, compared without regard to ASCII case.
    void* operator[](const char* name);

    /// The value of column `column` of the current row as text: an integer in decimal, a text or a blob byte for byte.
    /// "" for NULL, if there is no such column or no current row.
    std::string getColumn(int column);

    /// The number of bytes of what getColumn(column) gives.
    int getColumnByte(int column);

    /// SQLite's type code of column `column` of the current row: 1 integer, 2 float, 3 text, 4 blob, 5 NULL. 5 too if
    /// there is no such column or no current row.
    int columnType(int column);

    /// Runs the write statement `sql` to its end. Returns false on any error, with lastError set.
    bool doWriteSql(const char* sql);

    /// As above, with each of `values` bound to the placeholder that its index names. A text or blob of length 0 is
    /// bound as an empty one, whatever its pointer; it is not NULL.
    bool doWriteSql(const char* sql, std::vector<SqliteDataContainer>& values);

    /// SQLite's (primary) result code of the last statement that failed; 0 if none has.
    std::int32_t lastError = 0;

    /// SQLite's words for a result code, as lastError or a SqliteException holds it: "attempt to write a readonly
    /// database" for 8. "unknown error" for a number that is none of SQLite's, such as 401.
    static const char* resultText(int code);

    /// The row id that the last successful insert on this connection was given, cut to 32 bits; 0 if there was none.
    std::int32_t lastInsertId = 0;

private:
    struct Closer {
        void operator()(sqlite3* connection) const;
    };

    /// One value of a row that was read. What is not an integer has its bytes in m_bytes.
    struct Value {
        std::int64_t integer;
        std::size_t begin;
        std::int32_t size;
        std::int32_t type;
    };

    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

    int prepare(const char* sql, Statement& statement) const;
    int readRows(const char* sql);
    int readColumnNames(sqlite3_stmt* statement);
    int readRow(sqlite3_stmt* statement);
    int write(const char* sql, const std::vector<SqliteDataContainer>& values);
    bool succeeded(int resultCode);
    void forgetRows();
    const Value* valueAt(int column) const;
    std::string textOf(const Value& value) const;

    std::unique_ptr<sqlite3, Closer> m_connection; ///< null if the file could not be opened
    int m_openResult; ///< SQLite's result code of the opening
    std::vector<std::string> m_columnNames;
    std::vector<Value> m_values; ///< row after row
    std::string m_bytes;
    std::size_t m_rows = 0;
    std::size_t m_rowsPassed = 0; ///< the current row is the one before
};
