/// Between objects and libplist's nodes, which live only while a list is read or written.

#ifndef ORV_CF_PLIST_NODE_H
#define ORV_CF_PLIST_NODE_H

#include "CFContainers.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>
#include <string_view>
#include <type_traits>

namespace OrvCF {

struct NodeFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using Node = std::unique_ptr<std::remove_pointer_t<plist_t>, NodeFree>;

struct MallocFree {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T> using Malloced = std::unique_ptr<T, MallocFree>;

/// libplist's calls with their traps disarmed: NULL if what is given is no list.
Node nodeFromXml(std::string_view text);
Node nodeFromBinary(std::string_view bytes);

/// The seconds of a date node, its fraction included.
double secondsOf(plist_t dateNode);
/// A date node; any number of seconds can be had.
Node dateNode(double seconds);

/// Whether an integer node holds 2^63 or more, rather than a negative number of the same bits.
bool isBeyondSigned(plist_t integerNode, uint64_t bits);
/// An integer node that holds 2^63 or more.
Node beyondSignedNode(uint64_t value);

/// The object that `root` stands for; NULL if it is not to be had as a list. Throws bad_alloc.
Owned<const Object> objectFromNode(plist_t root, Mutability mutability, bool fromXml);

/// The node for `root`; NULL if it cannot be written in `format`. Throws bad_alloc.
Node nodeFromObject(const Object& root, CFPropertyListFormat format);

} // namespace OrvCF

#endif
