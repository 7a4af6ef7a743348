#include "OrvException.h"

#include <cstdint>
#include <cstdio>

OrvException::OrvException(long code, const char* message)
    : m_errorCode(static_cast<std::int32_t>(code))
{
    std::snprintf(m_message, sizeof m_message, "%s", message);
}

OrvException::~OrvException() = default;

char* OrvException::getMessage()
{
    return m_message;
}

int OrvException::getErrorCode()
{
    return m_errorCode;
}

SqliteException::SqliteException(long code, const char* message)
    : OrvException(code, message)
{
}

SqliteException::~SqliteException() = default;
