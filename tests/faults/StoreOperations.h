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
    /// The texts of the SqliteExceptions that carry SQLite's code. An operation without any reports failures as false.
    std::vector<std::string> failures;
};

/// All of them but the constructor.
const std::vector<StoreOperation>& storeOperations();
const StoreOperation& storeOperation(const std::string& name);

/// How a call of an operation ended.
struct Ending {
    bool threw = false;
    std::string text; ///< what it returned, or the message of the SqliteException
    int code = 0; ///< of the SqliteException
};

std::ostream& operator<<(std::ostream& out, const Ending& ending);

/// Calls the operation. Any exception but a SqliteException comes out of it.
Ending endingOf(const StoreOperation& operation, TaskEditor& editor);

/// Whether `ending` is one that the operation may have when SQLite meets an error: a result, or one of its exceptions
/// with a code of SQLite's, or the exception that says that there is no such task.
bool isDocumented(const StoreOperation& operation, const Ending& ending);

/// Name for a test that has an operation as its parameter.
std::string nameOfOperation(const testing::TestParamInfo<StoreOperation>& info);
std::ostream& operator<<(std::ostream& out, const StoreOperation& operation);

/// To be called where TaskEditor::getInstance() has thrown: whether this thread's lock is left held. Lets it go,
/// because where it lies another thread's will lie.
bool letGoOfEditorLock();

/// How many descriptors this process has open.
int openDescriptors();

} // namespace support
