#include "LocalTime.h"

#include <mutex>

namespace {

// What tzset, and mktime with it, sets up belongs to the whole process.
std::mutex gTimeZoneMutex;

} // namespace

bool toLocalTime(time_t moment, tm& local)
{
    const std::lock_guard<std::mutex> lock(gTimeZoneMutex);
    tzset();
    return localtime_r(&moment, &local) != nullptr;
}

time_t fromLocalTime(tm local)
{
    const std::lock_guard<std::mutex> lock(gTimeZoneMutex);
    return mktime(&local);
}
