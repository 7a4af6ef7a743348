#pragma once

#include <ctime>

namespace orv {

// localtime and mktime, safe for threads. Like those, they read the time zone (TZ, or the system's) at each call.

/// Stores the local time of `moment` in `local`. False, with `local` unchanged, if its year does not fit an int.
bool toLocalTime(time_t moment, tm& local);

/// What mktime returns for `local`: -1 on error.
time_t fromLocalTime(tm local);

} // namespace orv
