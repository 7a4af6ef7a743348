#pragma once

#include <cstdint>
#include <exception>

/// A failure with a message and a code. Thrown by value; uses no heap memory.
///
/// what() returns "std::exception" for every failure, so catch an OrvException before a std::exception:
/// catch (const OrvException& failure) { report(failure.getMessage(), failure.getErrorCode()); }
class OrvException : public std::exception {
public:
    ~OrvException() override;

    /// The message, NUL-terminated, at most 4095 characters. It is a part of the exception object.
    virtual char* getMessage();

    virtual int getErrorCode(); ///< The code, a signed 32-bit number.

    // For a failure caught by const reference. Not virtual: programs built earlier rely on the table of virtual
    // functions.

    const char* getMessage() const { return m_message; } ///< As getMessage() above.
    int getErrorCode() const { return m_errorCode; } ///< As getErrorCode() above.

protected:
    /// Copies `message`, cut to 4095 characters, and keeps the low 32 bits of `code`.
    OrvException(long code, const char* message);

private:
    static constexpr int messageCapacity = 4096;

    char m_message[messageCapacity];
    std::int32_t m_errorCode;
};

/// A failure of the task database. The code is SQLite's result code of the statement that failed, except:
/// 401, with "Data not found", if a statement ran but found no row, or not as many rows as were counted before;
/// 0, with "Database: taskId not found", if getTaskInfoObject finds no such task;
/// 21, with "Database: Write failed", if writeDbTask gets a parameter that is not a property list, and so runs nothing.
class SqliteException : public OrvException {
public:
    SqliteException(long code, const char* message);
    ~SqliteException() override;
};
