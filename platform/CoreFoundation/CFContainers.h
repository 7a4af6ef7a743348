#ifndef ORV_CF_CONTAINERS_H
#define ORV_CF_CONTAINERS_H

#include "Object.h"

#include <unordered_map>
#include <vector>

namespace OrvCF {

enum class Mutability { immutable, mutableContainers };

/// What `callBacks` makes of a value that a container is to hold. Keys, values and elements differ only in the type of
/// their callbacks.
template <class CallBacks> const void* retained(const CallBacks& callBacks, const void* value)
{
    return callBacks.retain != nullptr ? callBacks.retain(kCFAllocatorDefault, value) : value;
}

template <class CallBacks> void releaseHeld(const CallBacks& callBacks, const void* value)
{
    if (callBacks.release != nullptr)
        callBacks.release(kCFAllocatorDefault, value);
}

template <class CallBacks> bool equalUnder(const CallBacks& callBacks, const void* left, const void* right)
{
    return left == right || (callBacks.equal != nullptr && callBacks.equal(left, right));
}

} // namespace OrvCF

struct OrvCFArray final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::array;

    /// `callBacks` may be NULL.
    OrvCFArray(OrvCF::Mutability mutability, const CFArrayCallBacks* callBacks);
    ~OrvCFArray() override;

    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    bool isMutable() const { return m_mutability == OrvCF::Mutability::mutableContainers; }
    const CFArrayCallBacks& callBacks() const { return m_callBacks; }
    const std::vector<const void*>& values() const { return m_values; }

    /// These throw bad_alloc, and have then changed nothing.
    void reserve(size_t count) { m_values.reserve(count); }
    void insert(size_t index, const void* value);
    void append(const void* value) { insert(m_values.size(), value); }

    void replace(size_t index, const void* value);
    void remove(size_t index);
    void clear();

private:
    const OrvCF::Mutability m_mutability;
    const CFArrayCallBacks m_callBacks;
    std::vector<const void*> m_values;
};

struct OrvCFDictionary final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::dictionary;

    /// The callbacks may be NULL.
    OrvCFDictionary(OrvCF::Mutability mutability, const CFDictionaryKeyCallBacks* keyCallBacks,
        const CFDictionaryValueCallBacks* valueCallBacks);
    ~OrvCFDictionary() override;

    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    bool isMutable() const { return m_mutability == OrvCF::Mutability::mutableContainers; }
    const CFDictionaryKeyCallBacks& keyCallBacks() const { return m_keyCallBacks; }
    const CFDictionaryValueCallBacks& valueCallBacks() const { return m_valueCallBacks; }

    struct KeyHash {
        const CFDictionaryKeyCallBacks* callBacks;
        size_t operator()(const void* key) const;
    };
    struct KeyEqual {
        const CFDictionaryKeyCallBacks* callBacks;
        bool operator()(const void* left, const void* right) const
        {
            return OrvCF::equalUnder(*callBacks, left, right);
        }
    };
    using Pairs = std::unordered_map<const void*, const void*, KeyHash, KeyEqual>;

    const Pairs& pairs() const { return m_pairs; }
    /// Where the value of `key` stands, or NULL.
    const void* const* find(const void* key) const;

    /// Adds the pair unless the key is there. Throws bad_alloc, and has then changed nothing.
    void add(const void* key, const void* value);
    /// Replaces the value of the key if it is there; whether it was.
    bool replace(const void* key, const void* value);
    void remove(const void* key);
    void clear();

private:
    void releasePair(const Pairs::value_type& pair) const;

    const OrvCF::Mutability m_mutability;
    const CFDictionaryKeyCallBacks m_keyCallBacks;
    const CFDictionaryValueCallBacks m_valueCallBacks;
    Pairs m_pairs;
};

#endif
