#pragma once

#include <ctime>

namespace orv {

// localtime and mktime for several threads at once. As these do, they look at the time zone (TZ, the system's setting)
// anew each time.

/// The local time of `moment` in `local`. False, with `local` as it was, if there is none: a year beyond the range of
/// int.
bool toLocalTime(time_t moment, tm& local);

/// The moment that `local` denotes, its fields normalised as mktime does; -1 if there is none.
time_t fromLocalTime(tm local);

} // namespace orv
