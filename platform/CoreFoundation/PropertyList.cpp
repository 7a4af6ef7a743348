#include "CFContainers.h"
#include "CFValues.h"
#include "PlistCheck.h"
#include "PlistNode.h"
#include "PlistScan.h"

#include <locale.h>

using namespace OrvCF;

namespace {

/// While this lives, the calling thread reads and writes numbers with a decimal point, whatever locale the program has
/// set: libplist uses atof.
class DecimalPoint {
public:
    DecimalPoint()
        : m_before(uselocale(classic()))
    {
    }
    ~DecimalPoint() { uselocale(m_before); }
    DecimalPoint(const DecimalPoint&) = delete;
    DecimalPoint& operator=(const DecimalPoint&) = delete;

private:
    static locale_t classic()
    {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }

    const locale_t m_before;
};

bool isSupported(CFPropertyListFormat format)
{
    return format == kCFPropertyListXMLFormat_v1_0 || format == kCFPropertyListBinaryFormat_v1_0;
}

Mutability containersUnder(CFOptionFlags options)
{
    const bool asked = (options & (kCFPropertyListMutableContainers | kCFPropertyListMutableContainersAndLeaves)) != 0;
    return asked ? Mutability::mutableContainers : Mutability::immutable;
}

/// Tells how it went through an error parameter, if there is one.
void report(CFErrorRef* error, bool succeeded, CFIndex code)
{
    if (error != nullptr)
        *error = succeeded ? nullptr : orNull([&] { return new OrvCFError(code); });
}

Owned<const OrvCFData> written(CFPropertyListRef list, CFPropertyListFormat format)
{
    if (!isSupported(format) || !isPropertyList(list, Purpose::writing))
        return nullptr;
    const DecimalPoint decimalPoint;
    const Node node = nodeFromObject(*toObject(list), format);
    char* bytes = nullptr; // plist_to_bin does nothing unless it is NULL
    uint32_t count = 0;
    if (node == nullptr)
        return nullptr;
    if (format == kCFPropertyListXMLFormat_v1_0)
        plist_to_xml(node.get(), &bytes, &count);
    else
        plist_to_bin(node.get(), &bytes, &count);
    const Malloced<char> owner(bytes);
    return Owned<const OrvCFData>(bytes != nullptr ? new OrvCFData({bytes, count}) : nullptr);
}

Node nodeFrom(std::string_view bytes)
{
    if (isBinaryList(bytes))
        return isHarmlessBinary(bytes) ? nodeFromBinary(bytes) : nullptr;
    const auto text = harmlessXml(bytes);
    return text ? nodeFromXml(*text) : nullptr;
}

Owned<const Object> read(const OrvCFData& data, CFOptionFlags options)
{
    const DecimalPoint decimalPoint;
    const Node node = nodeFrom(data.bytes());
    return node ? objectFromNode(node.get(), containersUnder(options), !isBinaryList(data.bytes())) : nullptr;
}

Owned<const Object> copyOf(const Object& object, Mutability mutability);

Owned<const Object> copyOf(const OrvCFArray& array, Mutability mutability)
{
    Owned<OrvCFArray> copy(new OrvCFArray(mutability, &kCFTypeArrayCallBacks));
    copy->reserve(array.values().size());
    for (const void* value : array.values())
        copy->append(copyOf(*toObject(value), mutability).get());
    return copy;
}

Owned<const Object> copyOf(const OrvCFDictionary& dictionary, Mutability mutability)
{
    Owned<OrvCFDictionary> copy(
        new OrvCFDictionary(mutability, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const auto& [key, value] : dictionary.pairs())
        copy->add(key, copyOf(*toObject(value), mutability).get());
    return copy;
}

/// A copy of what is a property list: containers anew, leaves retained, for nothing can change them.
Owned<const Object> copyOf(const Object& object, Mutability mutability)
{
    if (const auto* array = as<OrvCFArray>(object))
        return copyOf(*array, mutability);
    if (const auto* dictionary = as<OrvCFDictionary>(object))
        return copyOf(*dictionary, mutability);
    object.retain();
    return Owned<const Object>(&object);
}

} // namespace

CFDataRef CFPropertyListCreateData(
    CFAllocatorRef, CFPropertyListRef list, CFPropertyListFormat format, CFOptionFlags, CFErrorRef* error)
{
    const CFDataRef data = orNull([&] { return written(list, format).release(); });
    report(error, data != nullptr, kCFPropertyListWriteStreamError);
    return data;
}

CFPropertyListRef CFPropertyListCreateWithData(
    CFAllocatorRef, CFDataRef data, CFOptionFlags options, CFPropertyListFormat* format, CFErrorRef* error)
{
    const OrvCFData& from = checked(data, __func__);
    const Object* list = orNull([&] { return read(from, options).release(); });
    report(error, list != nullptr, kCFPropertyListReadCorruptError);
    if (list != nullptr && format != nullptr)
        *format = isBinaryList(from.bytes()) ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
    return list;
}

CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef, CFPropertyListRef list, CFOptionFlags options)
{
    if (!isPropertyList(list, Purpose::copying))
        return nullptr;
    return orNull([&] { return copyOf(*toObject(list), containersUnder(options)).release(); });
}

Boolean CFPropertyListIsValid(CFPropertyListRef list, CFPropertyListFormat format)
{
    return isSupported(format) && isPropertyList(list, Purpose::validating);
}
