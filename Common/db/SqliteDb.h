#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

/// The type of a bound value.
enum SqliteDataType : std::int32_t {
    sqliteDataText = 0,
    sqliteDataBlob = 1,
};

/// One value for a "?" placeholder of a write statement. The caller frees the bytes after the statement has run.
struct SqliteDataContainer {
    SqliteDataType type;
    void* data;
    std::int32_t length; ///< bytes in `data`
    int index; ///< the placeholder's number; the first is 1
};

/// One value of a result row; see SqliteDb::operator[]. Released with delete, as a valueCell.
union valueCell {
    void* blob; ///< of a blob: a copy of its bytes, to be released with free
    std::int32_t integer; ///< of any other value: its low 32 bits as an integer
};

/// One connection to one SQLite file, and the rows of its last read.
/// Only one thread at a time may use it. It never changes the file's journal mode, schema or settings by itself.
class SqliteDb {
public:
    static constexpr int columnNull = 5; ///< what columnType() returns for NULL
    static constexpr int columnBlob = 4; ///< what columnType() returns for a blob
    static constexpr int resultMisuse = 21; ///< SQLite's result code for misuse

    /// Makes SQLite faster for a program that uses it on one thread only: no locking between threads, no memory
    /// statistics, a few pages in static memory. It holds for the whole process. Call it before the first connection;
    /// later it has no effect. The library never calls it: only the program knows its threads.
    static void setUpForOneThread();

    /// Opens the file at `path`, and creates it, empty, if it is missing. `flag` is ignored. If the file cannot
    /// be opened, nothing is thrown, but every later read and write returns false, with lastError set.
    SqliteDb(const char* path, bool flag);

    /// As above, then runs `createSql`, a CREATE TABLE statement; it does not matter if the table already exists.
    /// Throws SqliteException with SQLite's code if the file cannot be opened or the statement fails.
    SqliteDb(const char* path, bool flag, const char* createSql);

    SqliteDb(const SqliteDb&) = delete;
    SqliteDb& operator=(const SqliteDb&) = delete;

    virtual ~SqliteDb(); ///< Closes the connection.

    /// Runs the read statement `sql` and keeps all of its rows. Other connections can write as soon as it returns. No
    /// row is current yet. Returns true even if there are none. On any error, returns false with no rows, and
    /// sets lastError.
    bool doReadSql(const char* sql);

    /// Makes the next row current; after doReadSql, the first one. Returns false if there is none.
    virtual bool nextRow();

    /// The value of column `column` (from 0) of the current row in a new valueCell, which the caller releases with
    /// delete. For a blob it holds a pointer to a copy of the bytes, never null, which the caller releases with free.
    /// For any other value it holds the low 32 bits of that value as SQLite converts it to an integer (NULL: 0). It is
    /// all zero if there is no such column or no current row. Throws std::bad_alloc.
    void* operator[](int column);

    /// As operator[](int), for the first column named `name`, ignoring ASCII case.
    void* operator[](const char* name);

    /// The value of column `column` of the current row as text: an integer in decimal, a text or a blob byte for byte.
    /// "" for NULL, or if there is no such column or no current row.
    std::string getColumn(int column);

    int getColumnByte(int column); ///< The number of bytes in getColumn(column).

    /// SQLite's type code of column `column` of the current row: 1 integer, 2 float, 3 text, 4 blob, 5 NULL. Also 5
    /// if there is no such column or no current row.
    int columnType(int column);

    /// Runs the write statement `sql` to its end. Returns false on any error, with lastError set.
    bool doWriteSql(const char* sql);

    /// As above, with each of `values` bound to the placeholder with its index. A length of 0 binds an empty text or
    /// blob, never NULL, whatever the pointer.
    bool doWriteSql(const char* sql, std::vector<SqliteDataContainer>& values);

    /// SQLite's primary result code of the last failure to open the file or run a statement; 0 if there was none.
    std::int32_t lastError = 0;

    /// SQLite's message for a code in lastError or a SqliteException: "attempt to write a readonly database" for 8.
    /// "unknown error" for a code that is not SQLite's, such as 401.
    static const char* resultText(int code);

    /// The row id of the last successful insert on this connection, cut to 32 bits; 0 if there was none.
    std::int32_t lastInsertId = 0;

private:
    struct Closer {
        void operator()(sqlite3* connection) const;
        void operator()(sqlite3_stmt* statement) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Closer>;

    struct Value {
        int type;
        std::int64_t integer;
        std::string text; ///< of a blob: its bytes
    };

    int prepare(const char* sql, Statement& statement) const;
    int readRows(const char* sql);
    int readRow(sqlite3_stmt* statement);
    int write(const char* sql, const std::vector<SqliteDataContainer>& values);
    bool succeeded(int resultCode);
    void forgetRows();
    const Value& valueAt(int column) const;

    std::unique_ptr<sqlite3, Closer> m_connection; ///< null if the file could not be opened
    int m_openResult; ///< SQLite's result code for opening the file
    std::vector<std::string> m_columnNames;
    std::vector<Value> m_values; ///< row after row
    std::size_t m_rows = 0;
    std::size_t m_rowsPassed = 0; ///< the current row is the last of these
};
