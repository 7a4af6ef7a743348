#ifndef ORV_CF_CONTAINERS_H
#define ORV_CF_CONTAINERS_H

#include "Object.h" // IWYU pragma: export

#include <cstddef> // IWYU pragma: export
#include <unordered_map>
#include <utility> // IWYU pragma: export
#include <vector>

namespace OrvCF {

enum class Mutability { immutable, mutableContainers };

/// A container that a caller wants to change. Ends the process if it is NULL, not of class T, or immutable.
template <class T> T& changeable(T* reference, const char* call)
{
    if (!checked(reference, call).isMutable)
        rejectArgument(call, "an immutable container");
    return *reference;
}

/// Ends the process unless these are the callbacks for objects: no others are supported.
template <class CallBacks> void checkCallBacks(const CallBacks* given, const CallBacks& known, const char* call)
{
    if (given != &known)
        rejectArgument(call, "callbacks other than the kCFType ones");
}

} // namespace OrvCF

struct OrvCFArray final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::array;

    explicit OrvCFArray(OrvCF::Mutability mutability)
        : Object(classKind)
        , isMutable(mutability == OrvCF::Mutability::mutableContainers)
    {
    }
    bool equals(const Object& other) const override;
    CFHashCode hash() const override { return values.size(); } // quick, even if the values are long lists themselves

    const bool isMutable;
    std::vector<OrvCF::Owned<const Object>> values;
};

struct OrvCFDictionary final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::dictionary;

    explicit OrvCFDictionary(OrvCF::Mutability mutability)
        : Object(classKind)
        , isMutable(mutability == OrvCF::Mutability::mutableContainers)
    {
    }
    bool equals(const Object& other) const override;
    CFHashCode hash() const override { return pairs.size(); }

    /// The value of the key, or NULL.
    const Object* find(const Object& key) const;
    /// Adds the pair unless the dictionary has the key. If this throws bad_alloc, nothing has changed; so with `set`.
    void add(OrvCF::Owned<const Object> key, OrvCF::Owned<const Object> value);
    /// Adds the pair, or replaces the value if the dictionary has the key.
    void set(OrvCF::Owned<const Object> key, OrvCF::Owned<const Object> value);

    struct Pair {
        OrvCF::Owned<const Object> key;
        OrvCF::Owned<const Object> value;
    };
    struct KeyHash {
        size_t operator()(const Object* key) const { return key->hash(); }
    };
    struct KeyEqual {
        bool operator()(const Object* left, const Object* right) const { return CFEqual(left, right); }
    };

    const bool isMutable;
    std::unordered_map<const Object*, Pair, KeyHash, KeyEqual> pairs; ///< each by its own key
};

#endif
