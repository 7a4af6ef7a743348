#include "CronCleaner.h"

#include "PassLock.h"
#include "TaskEditor.h"

#include <csignal>
#include <cstdio>

namespace {

void runPass(bool rebuild)
{
    SqliteDb::setUpForOneThread();
    TaskEditor* editor = TaskEditor::getInstance();
    const orv::PassLock lock(orv::PassLock::Commands::hold); // if it fails, the run continues without it
    if (rebuild)
        editor->putCronFromDB();
    else
        editor->cleanCron();
}

} // namespace

int main(int argc, char**)
{
    try {
        runPass(argc >= 2); // any argument at all
    } catch (...) {
        std::signal(SIGPIPE, SIG_IGN); // the reader may be gone; no command is started after this
        std::fputs("Exception while cleaning cron", stdout); // no line feed: it never had one
    }
    return 0;
}
