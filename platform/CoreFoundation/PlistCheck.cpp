#include "PlistCheck.h"

#include "PropertyList.h"

namespace OrvCF {
namespace {

// A list that is shared within itself can stand for any number of objects.
constexpr size_t maxObjects = 1 << 23;

class Check {
public:
    explicit Check(Uids uids)
        : m_uids(uids)
    {
    }

    /// With `depth` containers around the object.
    void visit(const Object& object, size_t depth)
    {
        require(++m_objects <= maxObjects);
        if (const auto* array = as<OrvCFArray>(object)) {
            require(depth < maxDepth);
            for (const auto& value : array->values)
                visit(*value, depth + 1);
        } else if (const auto* dictionary = as<OrvCFDictionary>(object)) {
            require(depth < maxDepth);
            for (const auto& [key, pair] : dictionary->pairs) {
                require(key->kind() == Kind::string);
                visit(*pair.value, depth + 1);
            }
        } else {
            require(object.kind() != Kind::error && (object.kind() != Kind::uid || m_uids == Uids::allowed));
        }
    }

private:
    const Uids m_uids;
    size_t m_objects = 0;
};

} // namespace

void requirePropertyList(CFTypeRef list, Uids uids)
{
    require(list != nullptr);
    Check(uids).visit(*toObject(list), 0);
}

} // namespace OrvCF
