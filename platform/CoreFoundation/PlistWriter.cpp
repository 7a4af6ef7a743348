#include "CFNumber.h"
#include "CFString.h"
#include "CFValues.h"
#include "PlistNode.h"
#include "Utf.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace OrvCF {
namespace {

/// Whatever it is given has been looked through: content, keys and depth are such that libplist can write them.
class Writer {
public:
    explicit Writer(CFPropertyListFormat format)
        : m_isXml(format == kCFPropertyListXMLFormat_v1_0)
    {
    }

    Node node(const Object& object) const
    {
        switch (object.kind()) {
        case Kind::string:
            return Node(plist_new_string(text(static_cast<const OrvCFString&>(object)).c_str()));
        case Kind::number:
            return numberNode(static_cast<const OrvCFNumber&>(object).value);
        case Kind::boolean:
            return Node(plist_new_bool(static_cast<const OrvCFBoolean&>(object).value));
        case Kind::date:
            return dateNode(secondsToWrite(static_cast<const OrvCFDate&>(object)));
        case Kind::data:
            return dataNode(static_cast<const OrvCFData&>(object).bytes());
        case Kind::uid:
            return Node(plist_new_uid(static_cast<const OrvCFUid&>(object).value));
        case Kind::array:
            return arrayNode(static_cast<const OrvCFArray&>(object));
        case Kind::dictionary:
            return dictionaryNode(static_cast<const OrvCFDictionary&>(object));
        case Kind::error:
            break;
        }
        return nullptr;
    }

private:
    static std::string text(const OrvCFString& string) { return utf8FromUtf16(string.units()).value_or(""); }

    static Node numberNode(const OrvCFNumber::Value& value)
    {
        if (const auto* real = std::get_if<double>(&value))
            return Node(plist_new_real(*real));
        if (const auto* beyondSigned = std::get_if<uint64_t>(&value))
            return beyondSignedNode(*beyondSigned);
        return Node(plist_new_uint(static_cast<uint64_t>(std::get<int64_t>(value))));
    }

    double secondsToWrite(const OrvCFDate& date) const
    {
        return m_isXml ? std::floor(date.seconds) : date.seconds; // libplist would cut the fraction off towards 2001
    }

    static Node dataNode(std::string_view bytes) { return Node(plist_new_data(bytes.data(), bytes.size())); }

    Node arrayNode(const OrvCFArray& array) const
    {
        Node list(plist_new_array());
        for (const void* value : array.values())
            plist_array_append_item(list.get(), member(value).release());
        return list;
    }

    Node dictionaryNode(const OrvCFDictionary& dictionary) const
    {
        Node list(plist_new_dict());
        for (const auto& [key, value] : sorted(dictionary)) {
            const std::string name = text(*key); // may throw, which it must not once the member has no owner
            plist_dict_set_item(list.get(), name.c_str(), member(value).release());
        }
        return list;
    }

    Node member(const void* value) const
    {
        Node made = node(*toObject(value));
        if (made == nullptr)
            throw std::bad_alloc();
        return made;
    }

    using Pair = std::pair<const OrvCFString*, const void*>;

    /// The pairs by the UTF-16 units of the keys: libplist writes pairs in the order in which it got them.
    static std::vector<Pair> sorted(const OrvCFDictionary& dictionary)
    {
        std::vector<Pair> pairs;
        pairs.reserve(dictionary.pairs().size());
        for (const auto& [key, value] : dictionary.pairs())
            pairs.emplace_back(static_cast<const OrvCFString*>(toObject(key)), value);
        std::sort(pairs.begin(), pairs.end(),
            [](const Pair& left, const Pair& right) { return left.first->units() < right.first->units(); });
        return pairs;
    }

    const bool m_isXml;
};

} // namespace

Node nodeFromObject(const Object& root, CFPropertyListFormat format)
{
    return Writer(format).node(root);
}

} // namespace OrvCF
