#include "PropertyList.h"
#include "Utf.h"

#include <pugixml.hpp>
#include <strings.h>

namespace OrvCF {
namespace {

using Node = pugi::xml_node;

// Leave everything as it is in the text: which references are decoded, and what is allowed, depends on the element.
constexpr unsigned everything = pugi::parse_pi | pugi::parse_comments | pugi::parse_cdata | pugi::parse_ws_pcdata
    | pugi::parse_declaration | pugi::parse_doctype | pugi::parse_fragment;

/// Throws Refused unless the node is a comment, a processing instruction or white space.
void requireIgnorable(Node node)
{
    const bool isBlank = node.type() == pugi::node_pcdata
        && std::string_view(node.value()).find_first_not_of(" \t\n\r") == std::string_view::npos;
    require(isBlank || node.type() == pugi::node_comment || node.type() == pugi::node_pi);
}

/// The first element from the node on; a null node if there is none.
Node element(Node node)
{
    for (; node && node.type() != pugi::node_element; node = node.next_sibling())
        requireIgnorable(node);
    return node;
}

/// CoreFoundation ends a tag at the first '>', so an attribute must have none.
std::string_view nameOf(Node node)
{
    for (const auto attribute : node.attributes())
        require(std::string_view(attribute.value()).find('>') == std::string_view::npos);
    return node.name();
}

/// The content of the element, which must be text without markup.
std::string_view plainText(Node node)
{
    const Node text = node.first_child();
    require(!text.next_sibling() && (!text || text.type() == pugi::node_pcdata));
    return text.value();
}

Owned<const Object> stringIn(Node node)
{
    std::string bytes;
    for (const Node part : node.children()) {
        require(part.type() == pugi::node_pcdata || part.type() == pugi::node_cdata);
        if (part.type() == pugi::node_cdata)
            bytes += part.value();
        else
            appendDecoded(bytes, part.value());
    }
    auto units = utf16FromUtf8(bytes);
    require(units.has_value());
    return Owned<const Object>(new OrvCFString(std::move(*units)));
}

/// XML has no element for a keyed archiver's UID, which is a dictionary of one integer. NULL if this is not a UID.
Owned<const Object> uidInsteadOf(const OrvCFDictionary& dictionary)
{
    const auto* value = dictionary.pairs.size() == 1 ? dictionary.find(*toObject(CFSTR("CF$UID"))) : nullptr;
    const auto* number = value != nullptr ? as<OrvCFNumber>(*value) : nullptr;
    const auto* integer = number != nullptr ? std::get_if<int64_t>(&number->value) : nullptr;
    if (integer == nullptr || *integer < 0 || *integer > std::numeric_limits<uint32_t>::max())
        return nullptr;
    return Owned<const Object>(new OrvCFUid(static_cast<uint64_t>(*integer)));
}

class XmlReader {
public:
    XmlReader(std::string_view text, Mutability mutability)
        : m_text(text.substr(0, text.find('\0')))
        , m_mutability(mutability)
    {
        pugi::xml_parse_result result = load(m_text);
        if (!result) // the list may end before the error, and what follows it does not matter
            result = load(m_text.substr(0, m_text.rfind('<', static_cast<size_t>(result.offset))));
        require(result);
    }

    Owned<const Object> list() const
    {
        for (const Node node : m_document.children()) {
            if (node.type() == pugi::node_element)
                return nameOf(node) == "plist" ? onlyObjectIn(node) : object(node, 0);
            if (node.type() == pugi::node_declaration)
                requireKnownEncoding(node);
            else if (node.type() == pugi::node_doctype) // CoreFoundation ends it at the first '>', too
                require(std::string_view(node.value()).find_first_of("[>") == std::string_view::npos);
            else
                requireIgnorable(node);
        }
        throw Refused();
    } // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): an Owned owns the object

private:
    pugi::xml_parse_result load(std::string_view text)
    {
        const auto result = m_document.load_buffer(text.data(), text.size(), everything, pugi::encoding_utf8);
        if (result.status == pugi::status_out_of_memory)
            throw std::bad_alloc();
        return result;
    }

    void requireKnownEncoding(Node declaration) const
    {
        const auto encoding = declaration.attribute("encoding");
        const auto is = [&](const char* name) { return strcasecmp(encoding.value(), name) == 0; };
        require(!encoding || is("UTF-8") || is("UTF8") || (is("US-ASCII") && isAscii(m_text)));
    }

    Owned<const Object> onlyObjectIn(Node node) const
    {
        const Node only = element(node.first_child());
        require(!element(only.next_sibling()));
        return object(only, 0);
    }

    /// The element's object, inside `depth` containers.
    Owned<const Object> object(Node node, size_t depth) const
    {
        const std::string_view name = nameOf(node);
        if (name == "string")
            return stringIn(node);
        if (name == "dict")
            return dictionary(node, depth + 1);
        if (name == "array")
            return array(node, depth + 1);
        if (name == "integer")
            return Owned<const Object>(new OrvCFNumber(kCFNumberSInt64Type, integerFrom(plainText(node))));
        if (name == "real")
            return Owned<const Object>(new OrvCFNumber(kCFNumberFloat64Type, realFrom(plainText(node))));
        if (name == "date")
            return Owned<const Object>(new OrvCFDate(secondsFrom(plainText(node))));
        if (name == "data") {
            require(node.first_child() || !isSelfClosed(node));
            return Owned<const Object>(new OrvCFData(bytesFrom(plainText(node))));
        }
        require((name == "true" || name == "false") && !node.first_child());
        return Owned<const Object>(name == "true" ? kCFBooleanTrue : kCFBooleanFalse);
    }

    bool isSelfClosed(Node node) const
    {
        return m_text[m_text.find('>', static_cast<size_t>(node.offset_debug())) - 1] == '/';
    }

    Owned<const Object> array(Node node, size_t depth) const
    {
        require(depth <= maxDepth);
        Owned<OrvCFArray> array(new OrvCFArray(m_mutability));
        for (Node member = element(node.first_child()); member; member = element(member.next_sibling()))
            array->values.push_back(object(member, depth));
        return array;
    }

    Owned<const Object> dictionary(Node node, size_t depth) const
    {
        require(depth <= maxDepth);
        Owned<OrvCFDictionary> dictionary(new OrvCFDictionary(m_mutability));
        for (Node name = element(node.first_child()); name; name = element(name.next_sibling())) {
            require(nameOf(name) == "key");
            auto key = stringIn(name);
            name = element(name.next_sibling());
            dictionary->set(std::move(key), nameOf(name) == "key" ? stringIn(name) : object(name, depth));
        }
        if (auto uid = uidInsteadOf(*dictionary))
            return uid;
        return dictionary;
    }

    const std::string_view m_text;
    const Mutability m_mutability;
    pugi::xml_document m_document;
};

} // namespace

Owned<const Object> readXml(std::string_view text, Mutability mutability)
{
    return XmlReader(text, mutability).list();
}

} // namespace OrvCF
