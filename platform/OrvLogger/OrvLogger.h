#pragma once

#if defined(__GNUC__)
#define ORV_PRINTF_LIKE __attribute__((format(printf, 2, 3)))
#else
#define ORV_PRINTF_LIKE
#endif

/// Logs one message to syslog(3) under the program's name; never fails. `level` is a syslog priority, from 0
/// (emergency) to 7 (debug); an error is 3. `format` and what follows it are as for printf: pass a text from outside as
/// an argument for "%s", never as the format.
extern "C" void LogMsg(int level, const char* format, ...) ORV_PRINTF_LIKE;
