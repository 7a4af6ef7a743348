#include "PlistCheck.h"

#include "CFContainers.h"
#include "CFNumber.h"
#include "CFString.h"
#include "CFValues.h"
#include "PlistScan.h"
#include "Utf.h"

#include <algorithm>
#include <cmath>

namespace OrvCF {
namespace {

// The years that libplist writes with four digits, 1000 to 9999.
constexpr double firstWritableSecond = -31588531200;
constexpr double lastWritableSecond = 252423993599;

/// Bytes of XML. libplist counts them in 32 bits; and a list that is shared within itself can stand for any number.
constexpr uint64_t maxSize = 1 << 30;

// Upper bounds of what libplist writes, the tags of an object and the most of the data on its shortest lines included.
constexpr uint64_t tagsSize = 120;
constexpr uint64_t tabsPerLevel = 4;
constexpr uint64_t sizePerDataByte = 3;

bool isWritable(const OrvCFDate& date)
{
    const double whole = std::floor(date.seconds); // not-a-number lies between no bounds
    return whole >= firstWritableSecond && whole <= lastWritableSecond;
}

uint64_t sizeOf(char16_t unit)
{
    if (unit == u'&' || unit == u'<' || unit == u'>')
        return sizeof "&amp;" - 1;
    return unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
}

class Check {
public:
    explicit Check(Purpose purpose)
        : m_purpose(purpose)
    {
    }

    bool accepts(const void* reference, size_t depth)
    {
        if (reference == nullptr)
            return false;
        const Object& object = *toObject(reference);
        switch (object.kind()) {
        case Kind::array:
            return acceptsArray(static_cast<const OrvCFArray&>(object), depth);
        case Kind::dictionary:
            return acceptsDictionary(static_cast<const OrvCFDictionary&>(object), depth);
        default:
            return acceptsLeaf(object) && addSize(depth, sizeOfLeaf(object));
        }
    }

private:
    bool acceptsArray(const OrvCFArray& array, size_t depth)
    {
        const auto& values = array.values();
        return depth < maxDepth && addSize(depth, 0)
            && std::all_of(values.begin(), values.end(), [&](const void* value) { return accepts(value, depth + 1); });
    }

    bool acceptsDictionary(const OrvCFDictionary& dictionary, size_t depth)
    {
        const auto& pairs = dictionary.pairs();
        return depth < maxDepth && addSize(depth, 0) && std::all_of(pairs.begin(), pairs.end(), [&](const auto& pair) {
            return acceptsKey(pair.first, depth + 1) && accepts(pair.second, depth + 1);
        });
    }

    bool acceptsKey(const void* key, size_t depth)
    {
        return key != nullptr && toObject(key)->kind() == Kind::string && accepts(key, depth);
    }

    bool acceptsLeaf(const Object& object) const
    {
        switch (object.kind()) {
        case Kind::string:
            return m_purpose == Purpose::copying || isWritableText(static_cast<const OrvCFString&>(object).units());
        case Kind::date:
            return m_purpose == Purpose::copying || isWritable(static_cast<const OrvCFDate&>(object));
        case Kind::uid:
            return m_purpose == Purpose::writing;
        default:
            return object.kind() == Kind::number || object.kind() == Kind::boolean || object.kind() == Kind::data;
        }
    }

    uint64_t sizeOfLeaf(const Object& object) const
    {
        if (m_purpose == Purpose::copying) // leaves are shared, not copied
            return 0;
        if (const auto* data = as<OrvCFData>(object))
            return data->bytes().size() * sizePerDataByte;
        uint64_t size = 0;
        if (const auto* string = as<OrvCFString>(object))
            for (const char16_t unit : string->units())
                size += sizeOf(unit);
        return size;
    }

    bool addSize(size_t depth, uint64_t content)
    {
        m_size += tagsSize + depth * tabsPerLevel + content;
        return m_size <= maxSize;
    }

    const Purpose m_purpose;
    uint64_t m_size = 0;
};

} // namespace

bool isPropertyList(CFTypeRef list, Purpose purpose)
{
    return Check(purpose).accepts(list, 0);
}

} // namespace OrvCF
