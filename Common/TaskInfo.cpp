#include "TaskInfo.h"

#include "CfRef.h"
#include "LocalTime.h"
#include <CoreFoundation/CoreFoundation.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <unistd.h>

namespace {

// Each name ends in a blank, because the time follows.
const char* nameText(TaskType type)
{
    switch (type) {
    case taskTypeScan:
        return "Scan Task ";
    case taskTypeUpdate:
        return "E-update Task ";
    case taskTypeScanNow:
        return "Scan Now Task ";
    case taskTypeNxcScan:
        return "NXC Scan Task ";
    case taskTypeFullOds:
        return "Full ODS Task ";
    case taskTypeQuickOds:
        return "Quick ODS Task ";
    }
    return "";
}

tm localNow()
{
    tm local{};
    orv::toLocalTime(time(nullptr), local);
    return local;
}

std::string asctimeText(const tm& local)
{
    constexpr int asctimeCapacity = 26; // POSIX's size
    char text[asctimeCapacity] = "";
    asctime_r(&local, text);
    return text; // with its line feed: stored descriptions have always ended in one
}

} // namespace

TaskInfo::TaskInfo(TaskType kind)
    : id(0)
    , description(nameText(kind) + asctimeText(localNow()))
    , type(kind)
    , cronTime(getCronCurrentTime(0))
    , parameter(nullptr)
    , result(nullptr)
    , created(time(nullptr))
    , lastRun(time(nullptr))
    , status(TaskStatus(1))
    , count(0)
    , userId(static_cast<int>(geteuid()))
    , recType(0)
{
}

std::string TaskInfo::getCronCurrentTime(int exact)
{
    const tm local = localNow();
    char text[64];
    if (exact == 0)
        std::snprintf(text, sizeof text, "%d * * * *", local.tm_min);
    else
        std::snprintf(text, sizeof text, "%d %d %d %d *", local.tm_min, local.tm_hour, local.tm_mday, local.tm_mon + 1);
    return text;
}

void orv::TaskReleaser::operator()(TaskInfo* task) const
{
    const orv::CfRef<CFPropertyListRef> parameter(task->parameter);
    const orv::CfRef<CFMutableDictionaryRef> result(task->result);
    delete task;
}
