/// The parts of which property lists are made. All throw bad_alloc, and Refused at what is no list or beyond the limits
/// of one.

#ifndef ORV_CF_PROPERTY_LIST_H
#define ORV_CF_PROPERTY_LIST_H

#include "CFContainers.h"
#include "PlistText.h"

#include <string>
#include <string_view>

namespace OrvCF {

/// Containers within one another, for reading, writing and copying alike.
constexpr size_t maxDepth = 512;

/// Whether the bytes start like a binary list.
bool isBinaryList(std::string_view bytes);

Owned<const Object> readBinary(std::string_view bytes, Mutability mutability);
Owned<const Object> readXml(std::string_view text, Mutability mutability);

/// `list` must be a property list.
std::string writtenXml(const Object& list);

/// `list` must be a property list. Containers anew, all else retained: nothing can change it.
Owned<const Object> deepCopy(const Object& list, Mutability mutability);

} // namespace OrvCF

#endif
