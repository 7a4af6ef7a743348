#include "CFNumber.h"
#include "CFString.h"
#include "CFValues.h"
#include "PlistNode.h"
#include "Utf.h"

#include <limits>

namespace OrvCF {
namespace {

constexpr std::string_view uidKey = "CF$UID";

Owned<const Object> stringFrom(std::string_view bytes)
{
    auto units = utf16FromUtf8(bytes); // libplist takes any bytes for UTF-8
    return Owned<const Object>(units ? new OrvCFString(std::move(*units)) : nullptr);
}

Owned<const Object> integerFrom(plist_t node)
{
    uint64_t bits = 0;
    plist_get_uint_val(node, &bits);
    OrvCFNumber::Value value = static_cast<int64_t>(bits);
    if (isBeyondSigned(node, bits))
        value = bits;
    return Owned<const Object>(new OrvCFNumber(kCFNumberSInt64Type, value));
}

Owned<const Object> realFrom(plist_t node)
{
    double value = 0;
    plist_get_real_val(node, &value);
    return Owned<const Object>(new OrvCFNumber(kCFNumberFloat64Type, value));
}

Owned<const Object> booleanFrom(plist_t node)
{
    uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return Owned<const Object>(value != 0 ? kCFBooleanTrue : kCFBooleanFalse);
}

Owned<const Object> dataFrom(plist_t node)
{
    uint64_t count = 0;
    const char* bytes = plist_get_data_ptr(node, &count);
    return Owned<const Object>(new OrvCFData({bytes, bytes != nullptr ? static_cast<size_t>(count) : 0}));
}

Owned<const Object> uidFrom(plist_t node)
{
    uint64_t value = 0;
    plist_get_uid_val(node, &value);
    return Owned<const Object>(new OrvCFUid(value));
}

class Reader {
public:
    Reader(Mutability mutability, bool fromXml)
        : m_mutability(mutability)
        , m_fromXml(fromXml)
    {
    }

    /// NULL if the node or one within it is not to be had as an object. Recurses no deeper than maxDepth: the bytes
    /// were looked through before they became nodes.
    Owned<const Object> object(plist_t node) const
    {
        uint64_t count = 0;
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN:
            return booleanFrom(node);
        case PLIST_UINT:
            return integerFrom(node);
        case PLIST_REAL:
            return realFrom(node);
        case PLIST_STRING: {
            const char* bytes = plist_get_string_ptr(node, &count);
            return stringFrom({bytes, bytes != nullptr ? static_cast<size_t>(count) : 0});
        }
        case PLIST_DATE:
            return Owned<const Object>(new OrvCFDate(secondsOf(node)));
        case PLIST_DATA:
            return dataFrom(node);
        case PLIST_UID:
            return uidFrom(node);
        case PLIST_ARRAY:
            return array(node);
        case PLIST_DICT:
            return dictionary(node);
        default:
            return nullptr;
        }
    }

private:
    Owned<const Object> array(plist_t node) const
    {
        Owned<OrvCFArray> array(new OrvCFArray(m_mutability, &kCFTypeArrayCallBacks));
        array->reserve(plist_array_get_size(node));
        plist_array_iter position = nullptr;
        plist_array_new_iter(node, &position);
        const Malloced<void> owner(position);
        plist_t item = nullptr;
        for (plist_array_next_item(node, position, &item); item != nullptr;
             plist_array_next_item(node, position, &item)) {
            const auto value = object(item);
            if (value == nullptr)
                return nullptr;
            array->append(value.get());
        }
        return array;
    }

    Owned<const Object> dictionary(plist_t node) const
    {
        Owned<OrvCFDictionary> dictionary(
            new OrvCFDictionary(m_mutability, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        plist_dict_iter position = nullptr;
        plist_dict_new_iter(node, &position);
        const Malloced<void> owner(position);
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, position, &key, &item);
            const Malloced<char> keyOwner(key);
            if (item == nullptr)
                break;
            if (!addPair(*dictionary, key, item))
                return nullptr;
        }
        if (auto uid = uidInsteadOf(*dictionary))
            return uid;
        return dictionary;
    }

    bool addPair(OrvCFDictionary& dictionary, const char* key, plist_t item) const
    {
        const auto name = key != nullptr ? stringFrom(key) : nullptr;
        const auto value = name != nullptr ? object(item) : nullptr;
        if (value != nullptr)
            dictionary.add(name.get(), value.get()); // of equal keys in a binary list the first counts
        return value != nullptr;
    }

    /// XML has no element for a UID: it stands there as a dictionary of one integer.
    Owned<const Object> uidInsteadOf(const OrvCFDictionary& dictionary) const
    {
        if (!m_fromXml || dictionary.pairs().size() != 1)
            return nullptr;
        const auto& [key, value] = *dictionary.pairs().begin();
        const auto name = utf8FromUtf16(static_cast<const OrvCFString*>(key)->units());
        const auto* number = as<OrvCFNumber>(*toObject(value));
        const auto* integer = number != nullptr ? std::get_if<int64_t>(&number->value) : nullptr;
        if (name != uidKey || integer == nullptr || *integer < 0 || *integer > std::numeric_limits<uint32_t>::max())
            return nullptr;
        return Owned<const Object>(new OrvCFUid(static_cast<uint64_t>(*integer)));
    }

    const Mutability m_mutability;
    const bool m_fromXml;
};

} // namespace

Owned<const Object> objectFromNode(plist_t root, Mutability mutability, bool fromXml)
{
    return Reader(mutability, fromXml).object(root);
}

} // namespace OrvCF
