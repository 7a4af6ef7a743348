#ifndef ORV_CF_PLIST_CHECK_H
#define ORV_CF_PLIST_CHECK_H

#include "Object.h"

namespace OrvCF {

enum class Uids { allowed, refused };

/// Throws Refused unless `list` is a property list: nothing but strings, numbers, booleans, dates, data, perhaps UIDs,
/// and arrays and dictionaries of these, with strings for keys; no deeper than maxDepth, hence not within itself, and
/// of no more objects than can be written in reasonable time.
void requirePropertyList(CFTypeRef list, Uids uids);

} // namespace OrvCF

#endif
