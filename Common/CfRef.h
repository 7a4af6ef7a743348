#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <memory>
#include <type_traits>

namespace orv {

/// Releases one reference.
struct CfReleaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// Owns one reference, from a Create or Copy function. The caller does not own what a Get function returns.
template <class Ref> using CfRef = std::unique_ptr<std::remove_pointer_t<Ref>, CfReleaser>;

} // namespace orv
