#include "OrvLogger.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <syslog.h>
#include <vector>

namespace {

struct Message {
    int priority;
    std::string text;
};
std::vector<Message> gMessages;

Message takeMessage()
{
    EXPECT_EQ(1U, gMessages.size());
    Message message = gMessages.empty() ? Message{-1, ""} : gMessages.front();
    gMessages.clear();
    return message;
}

} // namespace

// The C library chose these names.
// NOLINTBEGIN(*-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)

/// Takes the place of the system's: what syslog would be told stays here.
extern "C" void vsyslog(int priority, const char* format, va_list arguments)
{
    char text[8192];
    std::vsnprintf(text, sizeof text, format, arguments);
    gMessages.push_back({priority, text});
}

/// The same, of a C library that checks formats.
extern "C" __attribute__((format(printf, 3, 0))) void __vsyslog_chk(
    int priority, int, const char* format, va_list arguments)
{
    vsyslog(priority, format, arguments);
}

// NOLINTEND(*-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)

namespace {

TEST(OrvLogger, PassesAMessageToSyslogWithItsLevelAsPriority)
{
    for (int level = LOG_EMERG; level <= LOG_DEBUG; ++level) {
        LogMsg(level, "a message");
        const Message message = takeMessage();
        EXPECT_EQ(level, LOG_PRI(message.priority));
        EXPECT_EQ(LOG_USER, message.priority & LOG_FACMASK);
        EXPECT_EQ("a message", message.text);
    }
}

TEST(OrvLogger, Level3IsAnError)
{
    LogMsg(3, "failed");
    EXPECT_EQ(LOG_USER | LOG_ERR, takeMessage().priority);
}

TEST(OrvLogger, FormatsAsPrintfDoes)
{
    LogMsg(3, "popen failed for %s, task %d of %ld%%", "command", -7, 12345678901L);
    EXPECT_EQ("popen failed for command, task -7 of 12345678901%", takeMessage().text);
}

TEST(OrvLogger, KeepsPercentSignsInAnArgument)
{
    LogMsg(3, "%s", "%s%n%d");
    EXPECT_EQ("%s%n%d", takeMessage().text);
}

TEST(OrvLogger, KeepsALongMessageWhole)
{
    const std::string text(4000, 'l');
    LogMsg(3, "%s ", text.c_str());
    EXPECT_EQ(text + " ", takeMessage().text);
}

TEST(OrvLogger, ALevelBeyondThePrioritiesDoesNotReachTheFacility)
{
    LogMsg(LOG_MAIL | LOG_ERR, "text");
    EXPECT_EQ(LOG_USER | LOG_ERR, takeMessage().priority);
}

} // namespace
