#include "PlistNode.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace OrvCF {
namespace {

bool fitsLibplist(std::string_view text)
{
    return text.size() <= std::numeric_limits<uint32_t>::max();
}

// A binary list of one date: the eight bytes of the seconds stand between the two parts.
constexpr char beforeSeconds[] = "bplist00\x33";
constexpr char afterSeconds[] = "\x08" // the offset table
                                "\0\0\0\0\0\0\1\1"
                                "\0\0\0\0\0\0\0\1"
                                "\0\0\0\0\0\0\0\0"
                                "\0\0\0\0\0\0\0\x11";
constexpr size_t secondsAt = sizeof beforeSeconds - 1;

} // namespace

Node nodeFromXml(std::string_view text)
{
    plist_t node = nullptr; // stays as it is on failure
    if (fitsLibplist(text))
        plist_from_xml(text.data(), static_cast<uint32_t>(text.size()), &node);
    return Node(node);
}

Node nodeFromBinary(std::string_view bytes)
{
    plist_t node = nullptr; // stays as it is on failure
    if (fitsLibplist(bytes))
        plist_from_bin(bytes.data(), static_cast<uint32_t>(bytes.size()), &node);
    return Node(node);
}

double secondsOf(plist_t dateNode)
{
    // plist_get_date_val has room for the years from 1933 to 2069 only
    char* bytes = nullptr; // is not written to unless it is NULL
    uint32_t count = 0;
    plist_to_bin(dateNode, &bytes, &count);
    const Malloced<char> owner(bytes);
    if (count < secondsAt + sizeof(double))
        throw std::bad_alloc();
    uint64_t bits = 0;
    for (size_t i = secondsAt; i < secondsAt + sizeof bits; ++i)
        bits = bits << 8 | static_cast<unsigned char>(bytes[i]);
    double seconds = 0;
    std::memcpy(&seconds, &bits, sizeof seconds);
    return seconds;
}

Node dateNode(double seconds)
{
    using Whole = std::numeric_limits<int32_t>;
    if (seconds >= Whole::min() && seconds <= Whole::max() && std::trunc(seconds) == seconds)
        return Node(plist_new_date(static_cast<int32_t>(seconds), 0));
    uint64_t bits = 0;
    std::memcpy(&bits, &seconds, sizeof bits);
    std::string list(beforeSeconds, secondsAt);
    for (int shift = 56; shift >= 0; shift -= 8)
        list += static_cast<char>(bits >> shift & 0xff);
    list.append(afterSeconds, sizeof afterSeconds - 1);
    return nodeFromBinary(list);
}

bool isBeyondSigned(plist_t integerNode, uint64_t bits)
{
    if (bits <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
        return false;
    // plist_get_uint_val gives the same bits for both; a node made of them is the negative one, and only that is equal
    // to it
    const Node negative(plist_new_uint(bits));
    return plist_compare_node_value(integerNode, negative.get()) == 0;
}

Node beyondSignedNode(uint64_t value)
{
    return nodeFromXml("<integer>" + std::to_string(value) + "</integer>");
}

} // namespace OrvCF
