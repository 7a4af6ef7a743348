#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <iosfwd>
#include <string>
#include <vector>

#include "TaskEditor.h"

namespace support {

/// What an operation does to the table.
enum class Effect {
    none, ///< reads
    oneStatement,
    statementThenCleaning, ///< a statement, then the record bound is enforced
    cleaning
};

/// One public operation of the store, called with arguments that suit support::soundDatabase().
struct StoreOperation {
    const char* name;
    /// Calls it and gives what it returned, as text.
    std::function<std::string(TaskEditor&)> run;
    Effect effect;
    /// The messages of the SqliteExceptions with a code of SQLite's. An operation without any returns false on failure.
    std::vector<std::string> failures;
};

/// Every operation but the constructor.
const std::vector<StoreOperation>& storeOperations();
const StoreOperation& storeOperation(const std::string& name);

/// How a call of an operation ended.
struct Ending {
    bool threw = false;
    std::string text; ///< what it returned, or the message of the SqliteException
    int code = 0; ///< of the SqliteException
};

std::ostream& operator<<(std::ostream& out, const Ending& ending);
/// Its text, and behind it the code of an exception: "Database error (14)".
std::string textOf(const Ending& ending);

/// Calls the operation. Throws every exception but a SqliteException on.
Ending endingOf(const StoreOperation& operation, TaskEditor& editor);

/// Whether the operation may end like this when SQLite fails: with a result, with one of its exceptions and a code of
/// SQLite's, or with the exception for a task that does not exist.
bool isDocumented(const StoreOperation& operation, const Ending& ending);

/// Name for a test that has an operation as its parameter.
std::string nameOfOperation(const testing::TestParamInfo<StoreOperation>& info);
std::ostream& operator<<(std::ostream& out, const StoreOperation& operation);

/// Call this after TaskEditor::getInstance() has thrown. Returns whether this thread's lock is still held, and unlocks
/// it: the next thread's lock may lie at the same address.
bool letGoOfEditorLock();

/// How many descriptors this process has open.
int openDescriptors();

} // namespace support
