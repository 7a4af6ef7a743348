#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <memory>
#include <type_traits>

namespace orv {

/// Releases the one reference that it is given; null is none.
struct CfReleaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// Owns one reference: what a Create or Copy function returned. (What a Get function returns is not ours to own.)
template <class Ref> using CfRef = std::unique_ptr<std::remove_pointer_t<Ref>, CfReleaser>;

} // namespace orv
