#include "PropertyList.h"
#include "Utf.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace OrvCF {
namespace {

constexpr std::string_view magic = "bplist00";
constexpr size_t trailerSize = 32;

// A list may use an object in several places. It counts once for each, up to these limits.
constexpr uint64_t extraObjects = 1 << 20;
constexpr uint64_t extraBytes = 16 << 20;
constexpr uint64_t bytesPerByte = 64; // many lists use a key or a short string very often

/// The number in at most 8 bytes, the most significant first.
uint64_t bigEndian(std::string_view bytes)
{
    uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

template <class Real, class Bits> double realOf(std::string_view bytes)
{
    const auto bits = static_cast<Bits>(bigEndian(bytes));
    Real value = 0;
    static_assert(sizeof value == sizeof bits);
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

Owned<const Object> newInteger(std::string_view bytes)
{
    require(bytes.size() <= 8 || bigEndian(bytes.substr(0, 8)) == 0); // a number of 16 bytes must fit into 8
    const uint64_t value = bigEndian(bytes.substr(bytes.size() - std::min<size_t>(bytes.size(), 8)));
    if (bytes.size() > 8 && value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
        return Owned<const Object>(new OrvCFNumber(kCFNumberSInt64Type, value));
    return Owned<const Object>(new OrvCFNumber(kCFNumberSInt64Type, static_cast<int64_t>(value)));
}

Owned<const Object> newUid(std::string_view bytes)
{
    require(bytes.size() <= 8 && bigEndian(bytes) <= std::numeric_limits<uint32_t>::max());
    return Owned<const Object>(new OrvCFUid(bigEndian(bytes)));
}

Owned<const Object> newAsciiString(std::string_view bytes)
{
    require(isAscii(bytes) && bytes.find('\0') == std::string_view::npos);
    return Owned<const Object>(new OrvCFString(std::u16string(bytes.begin(), bytes.end())));
}

Owned<const Object> newUtf16String(std::string_view bytes)
{
    std::u16string units;
    units.reserve(bytes.size() / 2);
    for (size_t i = 0; i < bytes.size(); i += 2)
        units += static_cast<char16_t>(bigEndian(bytes.substr(i, 2)));
    require(!units.empty() && units.find(u'\0') == std::u16string::npos && utf8FromUtf16(units));
    return Owned<const Object>(new OrvCFString(std::move(units)));
}

/// Follows the references from the top object, and makes each object when it first comes to it.
class BinaryReader {
public:
    BinaryReader(std::string_view bytes, Mutability mutability)
        : m_bytes(bytes)
        , m_mutability(mutability)
    {
        require(bytes.size() >= magic.size() + trailerSize && isBinaryList(bytes));
        const std::string_view trailer = bytes.substr(bytes.size() - trailerSize);
        m_offsetSize = static_cast<unsigned char>(trailer[6]);
        m_referenceSize = static_cast<unsigned char>(trailer[7]);
        m_top = bigEndian(trailer.substr(16, 8));
        m_objectsEnd = bigEndian(trailer.substr(24, 8));
        const uint64_t count = bigEndian(trailer.substr(8, 8));
        const size_t room = bytes.size() - trailerSize;
        require(m_objectsEnd > magic.size() && m_objectsEnd < room);
        require(canHold(m_offsetSize, m_objectsEnd) && canHold(m_referenceSize, count));
        require(count <= room / m_offsetSize && m_objectsEnd + count * m_offsetSize == room);
        m_made.resize(count);
        for (uint64_t object = 0; object < count; ++object)
            require(offsetOf(object) < m_objectsEnd);
    }

    Owned<const Object> list() { return shared(*visit(m_top, 0).object); }

private:
    /// An object of the list, with what it contains. Whatever is used in several places counts once for each.
    struct Made {
        Owned<const Object> object; ///< NULL until it is made
        uint64_t bytes = 0; ///< of strings and data
        uint64_t objects = 1;
        size_t depth = 0; ///< containers within one another
        bool isContainer() const { return depth > 0; }
    };

    static bool canHold(size_t size, uint64_t count)
    {
        return size >= 1 && size <= 8 && (size == 8 || count < uint64_t(1) << (8 * size));
    }

    /// The `count` bytes at `at`. All must belong to the objects.
    std::string_view objectBytes(uint64_t at, uint64_t count) const
    {
        require(at >= magic.size() && at <= m_objectsEnd && count <= m_objectsEnd - at);
        return m_bytes.substr(at, count);
    }

    uint64_t offsetOf(uint64_t object) const
    {
        require(object < m_made.size());
        return bigEndian(m_bytes.substr(m_objectsEnd + object * m_offsetSize, m_offsetSize));
    }

    /// The object, which is made if it has not been. One that contains itself gets too deep.
    const Made& visit(uint64_t object, size_t depth)
    {
        const uint64_t offset = offsetOf(object);
        require(depth <= maxDepth);
        if (m_made[object].object == nullptr)
            m_made[object] = make(offset, depth);
        require(depth + m_made[object].depth <= maxDepth);
        return m_made[object];
    }

    Made make(uint64_t offset, size_t depth)
    {
        const auto marker = static_cast<unsigned char>(objectBytes(offset, 1).front());
        const unsigned low = marker & 0xf;
        switch (marker >> 4) {
        case 0x0: // booleans; null and fill bytes are refused
            require(low == 8 || low == 9);
            return {Owned<const Object>(low == 9 ? kCFBooleanTrue : kCFBooleanFalse)};
        case 0x1:
            require(low <= 4);
            return {newInteger(objectBytes(offset + 1, uint64_t(1) << low))};
        case 0x2:
            require(low == 2 || low == 3);
            return {Owned<const Object>(low == 2
                    ? new OrvCFNumber(kCFNumberFloat32Type, realOf<float, uint32_t>(objectBytes(offset + 1, 4)))
                    : new OrvCFNumber(kCFNumberFloat64Type, realOf<double, uint64_t>(objectBytes(offset + 1, 8))))};
        case 0x3:
            require(low == 3);
            return {Owned<const Object>(new OrvCFDate(realOf<double, uint64_t>(objectBytes(offset + 1, 8))))};
        case 0x8:
            return {newUid(objectBytes(offset + 1, low + 1))};
        default: {
            const uint64_t count = takeCount(offset, low);
            // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): an Owned in the result owns the object
            return makeSized(marker >> 4, count, offset, depth);
        }
        }
    }

    /// The count in the marker, or in the integer that follows it. Moves `offset` to the content.
    uint64_t takeCount(uint64_t& offset, unsigned low) const
    {
        ++offset;
        if (low != 0xf)
            return low;
        const auto marker = static_cast<unsigned char>(objectBytes(offset, 1).front());
        require(marker >> 4 == 0x1 && (marker & 0xf) <= 3);
        const std::string_view count = objectBytes(offset + 1, uint64_t(1) << (marker & 0xf));
        offset += 1 + count.size();
        return bigEndian(count);
    }

    Made makeSized(unsigned type, uint64_t count, uint64_t at, size_t depth)
    {
        require(count <= m_bytes.size()); // no product below overflows
        switch (type) {
        case 0x4:
            return {Owned<const Object>(new OrvCFData(std::string(objectBytes(at, count)))), count};
        case 0x5:
            return {newAsciiString(objectBytes(at, count)), count};
        case 0x6:
            return {newUtf16String(objectBytes(at, count * 2)), count * 2};
        case 0xa:
            return makeArray(objectBytes(at, count * m_referenceSize), depth);
        case 0xd: // the keys, then the values
            return makeDictionary(objectBytes(at, count * m_referenceSize),
                objectBytes(at + count * m_referenceSize, count * m_referenceSize), depth);
        default:
            throw Refused();
        }
    }

    Made makeArray(std::string_view references, size_t depth)
    {
        Owned<OrvCFArray> array(new OrvCFArray(m_mutability));
        Made sum{nullptr, 0, 1, 1};
        while (!references.empty())
            array->values.push_back(takeMember(references, depth, sum));
        sum.object = std::move(array);
        return sum;
    }

    Made makeDictionary(std::string_view keys, std::string_view values, size_t depth)
    {
        Owned<OrvCFDictionary> dictionary(new OrvCFDictionary(m_mutability));
        Made sum{nullptr, 0, 1, 1};
        while (!keys.empty()) {
            auto key = takeMember(keys, depth, sum);
            require(key->kind() == Kind::string);
            dictionary->add(std::move(key), takeMember(values, depth, sum)); // keeps the first of equal keys
        }
        sum.object = std::move(dictionary);
        return sum;
    }

    /// Takes the first of `references`, and returns its object for a container that is inside `depth` others.
    Owned<const Object> takeMember(std::string_view& references, size_t depth, Made& sum)
    {
        // objects may overlap in the file, so it can have more references than bytes
        require(++m_referencesSeen <= m_bytes.size() + extraObjects);
        const uint64_t index = bigEndian(references.substr(0, m_referenceSize));
        references.remove_prefix(m_referenceSize);
        const bool isFirst = index < m_made.size() && m_made[index].object == nullptr;
        const Made& member = visit(index, depth + 1);
        sum.objects += member.objects;
        sum.bytes += member.bytes;
        sum.depth = std::max(sum.depth, member.depth + 1);
        require(sum.objects <= m_bytes.size() + extraObjects);
        require(sum.bytes <= m_bytes.size() * bytesPerByte + extraBytes);
        if (!isFirst && member.isContainer() && m_mutability == Mutability::mutableContainers)
            return deepCopy(*member.object, m_mutability); // whoever changes one place must not change the others
        return shared(*member.object);
    }

    const std::string_view m_bytes;
    const Mutability m_mutability;
    size_t m_offsetSize = 0;
    size_t m_referenceSize = 0;
    uint64_t m_top = 0;
    uint64_t m_objectsEnd = 0;
    uint64_t m_referencesSeen = 0;
    std::vector<Made> m_made;
};

} // namespace

bool isBinaryList(std::string_view bytes)
{
    return bytes.substr(0, magic.size()) == magic;
}

Owned<const Object> readBinary(std::string_view bytes, Mutability mutability)
{
    return BinaryReader(bytes, mutability).list();
}

} // namespace OrvCF
