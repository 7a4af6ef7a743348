#include "LocalTime.h"

#include <ctime>
#include <mutex>

namespace {

// tzset and mktime change the process's time zone.
std::mutex gTimeZoneMutex;

} // namespace

bool orv::toLocalTime(time_t moment, tm& local)
{
    const std::lock_guard<std::mutex> lock(gTimeZoneMutex);
    tzset();
    return localtime_r(&moment, &local) != nullptr;
}

time_t orv::fromLocalTime(tm local)
{
    const std::lock_guard<std::mutex> lock(gTimeZoneMutex);
    return mktime(&local);
}
