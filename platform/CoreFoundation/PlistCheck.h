#ifndef ORV_CF_PLIST_CHECK_H
#define ORV_CF_PLIST_CHECK_H

#include "Object.h"

namespace OrvCF {

enum class Purpose { copying, validating, writing };

/// Whether `list` is a property list, or can be made one: nothing but strings, numbers, booleans, dates, data, and
/// arrays and dictionaries of these, with strings for keys; no deeper than maxDepth, hence not within itself; not
/// beyond what libplist can count. Only a list to be written may hold UIDs; in one that is only to be copied, strings
/// and dates may be such as cannot be written.
bool isPropertyList(CFTypeRef list, Purpose purpose);

} // namespace OrvCF

#endif
