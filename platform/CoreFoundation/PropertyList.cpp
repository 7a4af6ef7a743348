#include "PropertyList.h"

using namespace OrvCF;

namespace {

constexpr auto maxReadSize = static_cast<size_t>(std::numeric_limits<int32_t>::max());

// A list in memory may use an object in several places. It counts once for each.
constexpr size_t maxObjects = 1 << 23;

enum class Uids { allowed, refused };

/// Throws Refused unless `object`, inside `depth` containers, is a property list: a string, number, boolean, date, data
/// or (if allowed) UID, or a container of such with strings as keys. Also throws Refused beyond maxDepth, so for a list
/// that contains itself, and beyond maxObjects. Adds the number of its objects to `objects`.
void requireList(const Object& object, Uids uids, size_t depth, size_t& objects)
{
    require(++objects <= maxObjects);
    if (const auto* array = as<OrvCFArray>(object)) {
        require(depth < maxDepth);
        for (const auto& value : array->values)
            requireList(*value, uids, depth + 1, objects);
    } else if (const auto* dictionary = as<OrvCFDictionary>(object)) {
        require(depth < maxDepth);
        for (const auto& [key, pair] : dictionary->pairs) {
            require(key->kind() == Kind::string);
            requireList(*pair.value, uids, depth + 1, objects);
        }
    } else {
        require(object.kind() != Kind::error && (object.kind() != Kind::uid || uids == Uids::allowed));
    }
}

const Object& requiredList(CFTypeRef list, Uids uids)
{
    size_t objects = 0;
    require(list != nullptr);
    requireList(*toObject(list), uids, 0, objects);
    return *toObject(list);
}

Mutability containersUnder(CFOptionFlags options)
{
    const bool asked = (options & (kCFPropertyListMutableContainers | kCFPropertyListMutableContainersAndLeaves)) != 0;
    return asked ? Mutability::mutableContainers : Mutability::immutable;
}

void report(CFErrorRef* error)
{
    if (error != nullptr)
        *error = orNull([] { return new OrvCFError(true); });
}

} // namespace

Owned<const Object> OrvCF::deepCopy(const Object& list, Mutability mutability)
{
    if (const auto* array = as<OrvCFArray>(list)) {
        Owned<OrvCFArray> copy(new OrvCFArray(mutability));
        copy->values.reserve(array->values.size());
        for (const auto& value : array->values)
            copy->values.push_back(deepCopy(*value, mutability));
        return copy;
    }
    if (const auto* dictionary = as<OrvCFDictionary>(list)) {
        Owned<OrvCFDictionary> copy(new OrvCFDictionary(mutability));
        for (const auto& [key, pair] : dictionary->pairs)
            copy->add(shared(*key), deepCopy(*pair.value, mutability));
        return copy;
    }
    return shared(list);
}

CFDataRef CFPropertyListCreateData(
    CFAllocatorRef, CFPropertyListRef list, CFPropertyListFormat format, CFOptionFlags, CFErrorRef* error)
{
    const CFDataRef data = orNull([&] {
        require(format == kCFPropertyListXMLFormat_v1_0);
        return new OrvCFData(writtenXml(requiredList(list, Uids::allowed)));
    });
    if (data == nullptr)
        report(error);
    return data;
}

CFPropertyListRef CFPropertyListCreateWithData(
    CFAllocatorRef, CFDataRef data, CFOptionFlags options, CFPropertyListFormat* format, CFErrorRef* error)
{
    const std::string& bytes = checked(data, __func__).bytes;
    const bool isBinary = isBinaryList(bytes);
    const Object* list = orNull([&] {
        require(bytes.size() <= maxReadSize);
        const auto mutability = containersUnder(options);
        return (isBinary ? readBinary(bytes, mutability) : readXml(bytes, mutability)).release();
    });
    if (list == nullptr)
        report(error);
    else if (format != nullptr)
        *format = isBinary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
    return list;
}

CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef, CFPropertyListRef list, CFOptionFlags options)
{
    return orNull([&] { return deepCopy(requiredList(list, Uids::refused), containersUnder(options)).release(); });
}
