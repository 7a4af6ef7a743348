#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "FailingVfs.h"

/// Task databases as a crash, a bad disk, another program or a person can leave them. Each put...() first removes
/// whatever is at the task database's path, journals included.
namespace support {

/// The bytes of a sound database over several pages. Its tasks are 1 to 42, the schedule of task n being "n 4 * * *":
/// tasks 1 to 20 are anna's, 21 to 30 ben's, 31 and 32 root's, the others of the uid without an account. Tasks 10, 20,
/// 30 and 40 have status 3 or 5 in turn, tasks 6 and 36 status 7, every seventh is of type 3. Task 1 has a dictionary
/// as parameter and as result, task 2 a parameter of 6000 bytes, which takes overflow pages.
const std::string& soundDatabase();

void putSoundDatabase();
void putDatabase(const std::string& bytes);

/// No file at all.
void putNoDatabase();
/// An empty file, which SQLite reads as a database without tables.
void putEmptyFile();
/// Text, longer than a page.
void putTextFile();
void putDirectory();
/// A database that holds a table, but not TaskTable.
void putForeignDatabase();

/// The sound database's first `size` bytes.
void putCutDatabase(std::size_t size);
/// The sound database with the bits of `mask` flipped in the byte at `offset`.
void putFlippedDatabase(std::size_t offset, unsigned char mask);

/// The names of TaskTable's columns, in their order.
extern const std::vector<std::string> taskColumns;
void putDatabaseWithoutColumn(const std::string& column);
/// "_old" is appended to the name of the column.
void putDatabaseWithRenamedColumn(const std::string& column);
/// The columns from last to first.
void putDatabaseWithReversedColumns();
/// TaskTable is a view of another table: it can be read but not written.
void putDatabaseWithView();

/// The sound database after `sql`.
void putDatabaseAfter(const std::string& sql);
/// The sound database in WAL mode.
void putWalDatabase();

/// The sound database in `mode` ("delete" or "wal") after a program was killed at its n-th call of this kind, in a
/// transaction that changes every task. Its cache is small, so much of the change is in the file before the end of the
/// transaction. False if the program ended before that call.
bool putDatabaseOfKilledWriter(const std::string& mode, FileCall call, int n);
/// The database and its journals as they are now, for putFiles().
struct DatabaseFiles {
    std::string database;
    std::string journal; ///< "" if there is none
    std::string wal; ///< "" if there is none
};
DatabaseFiles databaseFiles();
void putFiles(const DatabaseFiles& files);

/// Every row of TaskTable, all columns.
std::vector<std::string> taskRows();
/// SQLite's verdict on the whole file: "ok" if it is sound.
std::string integrity();

} // namespace support
