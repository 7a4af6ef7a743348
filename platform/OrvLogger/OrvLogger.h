#pragma once

#if defined(__GNUC__)
#define ORV_PRINTF_LIKE __attribute__((format(printf, 2, 3)))
#else
#define ORV_PRINTF_LIKE
#endif

/// Logs one message. `level` is a syslog priority number, 0 (emergency) to 7 (debug); errors are 3.
/// `format` is printf's, with its arguments behind it: a text from elsewhere goes in as an argument for "%s", never as
/// the format. Returns nothing and never fails; the message goes to syslog(3) under the program's name.
extern "C" void LogMsg(int level, const char* format, ...) ORV_PRINTF_LIKE;
