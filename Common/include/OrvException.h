#pragma once

#include <cstdint>
#include <exception>

/// A failure that carries a text and a number. Thrown by value; it owns no memory on the heap.
///
/// what() says "std::exception" for every failure: catch an OrvException before a std::exception, and call
/// getMessage(). Both operations work on a const reference too:
/// catch (const OrvException& failure) { report(failure.getMessage(), failure.getErrorCode()); }
class OrvException : public std::exception {
public:
    ~OrvException() override;

    /// The message, NUL-terminated, at most 4095 characters. It lives in the exception object, as long as that does.
    virtual char* getMessage();

    /// The code, a signed 32-bit number.
    virtual int getErrorCode();

    // For a failure that was caught by const reference. They are not virtual, so that the table of virtual operations
    // stays as programs built before have it.

    /// As getMessage() above.
    const char* getMessage() const;

    /// As getErrorCode() above.
    int getErrorCode() const;

protected:
    /// Copies `message`, cut to 4095 characters, and keeps the low 32 bits of `code`.
    OrvException(long code, const char* message);

private:
    static constexpr int messageCapacity = 4096;

    char m_message[messageCapacity];
    std::int32_t m_errorCode;
};

/// A failure of the task database. The code is 401 where a statement ran and found no row, or not as many as were
/// counted; else it is the SQLite result code of the statement that failed.
class SqliteException : public OrvException {
public:
    SqliteException(long code, const char* message);
    ~SqliteException() override;
};
