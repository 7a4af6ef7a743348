#include "OrvLogger.h"

#include <cstdarg>
#include <syslog.h>

void LogMsg(int level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_USER | LOG_PRI(level), format, arguments);
    va_end(arguments);
}
