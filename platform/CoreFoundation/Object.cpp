#include "Object.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace OrvCF {

void Object::retain() const
{
    if (owners() != constantOwners)
        m_owners.fetch_add(1, std::memory_order_relaxed);
}

void Object::release() const
{
    // acquire and release, so that all that its owners did happens before its destruction
    if (owners() != constantOwners && m_owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
        destroy();
}

void Object::destroy() const
{
    // A container releases its values while it is being destroyed. They wait here until it is gone. Otherwise a list
    // nested a hundred thousand deep would take as many stack frames.
    thread_local const Object* doomed = nullptr;
    thread_local bool destroying = false;

    m_nextDoomed = doomed;
    doomed = this;
    if (destroying)
        return;
    destroying = true;
    while (doomed != nullptr)
        delete std::exchange(doomed, doomed->m_nextDoomed);
    destroying = false;
}

void rejectArgument(const char* call, const char* what)
{
    std::fprintf(stderr, "CoreFoundation: %s was given %s\n", call, what);
    std::abort();
}

void checkRange(CFRange range, CFIndex count, const char* call)
{
    if (range.location < 0 || range.length < 0 || range.length > count - range.location)
        rejectArgument(call, "a range beyond the end");
}

const Object& objectOf(CFTypeRef reference, const char* call)
{
    if (reference == nullptr)
        rejectArgument(call, "NULL");
    return *toObject(reference);
}

} // namespace OrvCF

using namespace OrvCF;

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeRef CFRetain(CFTypeRef object)
{
    objectOf(object, __func__).retain();
    return object;
}

void CFRelease(CFTypeRef object)
{
    objectOf(object, __func__).release();
}

CFIndex CFGetRetainCount(CFTypeRef object)
{
    return objectOf(object, __func__).owners();
}

CFTypeID CFGetTypeID(CFTypeRef object)
{
    return static_cast<CFTypeID>(objectOf(object, __func__).kind());
}

Boolean CFEqual(CFTypeRef left, CFTypeRef right)
{
    const Object& first = objectOf(left, __func__);
    const Object& second = objectOf(right, __func__);
    return &first == &second || (first.kind() == second.kind() && first.equals(second));
}

CFHashCode CFHash(CFTypeRef object)
{
    return objectOf(object, __func__).hash();
}
