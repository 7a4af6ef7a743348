/// What all objects have in common. Private to the library.

#ifndef ORV_CF_OBJECT_H
#define ORV_CF_OBJECT_H

#include <CoreFoundation/CoreFoundation.h> // IWYU pragma: export

#include <atomic> // IWYU pragma: export
#include <cstdint> // IWYU pragma: export
#include <functional>
#include <limits> // IWYU pragma: export
#include <memory>
#include <new>
#include <stdexcept>

namespace OrvCF {

/// The CFTypeID of each class. Zero means none.
enum class Kind : CFTypeID { string = 1, number, boolean, date, data, array, dictionary, uid, error };

/// Whether an object counts its owners or lives as long as the process.
enum class Life { counted, constant };

/// An object that counts its owners. Objects are made with `new`, and whoever makes one is its first owner.
class Object {
public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    Kind kind() const { return m_kind; }
    CFIndex owners() const { return m_owners.load(std::memory_order_relaxed); }

    void retain() const;
    /// Destroys the object when its last owner releases it. If this thread is just destroying another object, that one
    /// is finished first.
    void release() const;

    /// Whether `other`, which is of the same kind, has equal content.
    virtual bool equals(const Object& other) const = 0;
    virtual CFHashCode hash() const = 0;

protected:
    constexpr explicit Object(Kind kind, Life life = Life::counted)
        : m_owners(life == Life::constant ? constantOwners : 1)
        , m_kind(kind)
    {
    }
    virtual ~Object() = default;

private:
    static constexpr CFIndex constantOwners = std::numeric_limits<CFIndex>::max();

    void destroy() const;

    mutable std::atomic<CFIndex> m_owners;
    mutable const Object* m_nextDoomed = nullptr;
    const Kind m_kind;
};

/// A static object that is never destroyed, so that other static objects can use it in their destructors.
template <class T> union Immortal {
    template <class... Arguments>
    constexpr explicit Immortal(Arguments... arguments)
        : object(arguments...)
    {
    }
    ~Immortal() { }

    T object;
};

/// An object that holds one value.
template <Kind kindOfClass, class Value> class Leaf : public Object {
public:
    static constexpr Kind classKind = kindOfClass;

    constexpr explicit Leaf(Value given, Life life = Life::counted)
        : Object(classKind, life)
        , value(given)
    {
    }
    bool equals(const Object& other) const override { return value == static_cast<const Leaf&>(other).value; }
    CFHashCode hash() const override { return std::hash<Value>()(value); }

    const Value value;
};

struct Releaser {
    void operator()(const Object* object) const { object->release(); }
};

/// One ownership of an object.
template <class T> using Owned = std::unique_ptr<T, Releaser>;

inline Owned<const Object> shared(const Object& object)
{
    object.retain();
    return Owned<const Object>(&object);
}

inline const Object* toObject(CFTypeRef reference)
{
    return static_cast<const Object*>(reference);
}

/// Prints to standard error which call was given what, and ends the process.
[[noreturn]] void rejectArgument(const char* call, const char* what);

/// Ends the process unless `range` lies within `count` elements.
void checkRange(CFRange range, CFIndex count, const char* call);

/// The object that a caller passed. Ends the process if that is NULL.
const Object& objectOf(CFTypeRef reference, const char* call);

/// The object that a caller passed. Ends the process if that is NULL or not of class T.
template <class T> T& checked(T* reference, const char* call)
{
    if (objectOf(reference, call).kind() != T::classKind)
        rejectArgument(call, "an object of another type");
    return *reference;
}

/// The object as a T, or NULL if it is of another class.
template <class T> const T* as(const Object& object)
{
    return object.kind() == T::classKind ? static_cast<const T*>(&object) : nullptr;
}

/// Thrown for anything that is not a property list or exceeds the limits of one.
struct Refused { };

inline void require(bool condition)
{
    if (!condition)
        throw Refused();
}

/// Runs `step`. Returns false if it ran out of memory or threw Refused: no exception crosses the C interface.
template <class Step> bool completes(Step step) noexcept
{
    try {
        step();
        return true;
    } catch (const Refused&) {
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) { // more than could ever be allocated
    }
    return false;
}

/// What `make` returns, or NULL if it ran out of memory or threw Refused.
template <class Make> auto orNull(Make make) noexcept -> decltype(make())
{
    decltype(make()) made = nullptr;
    completes([&] { made = make(); });
    return made;
}

} // namespace OrvCF

#endif
