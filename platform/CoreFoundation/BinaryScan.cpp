#include "PlistScan.h"
#include "Utf.h"

#include <algorithm>
#include <array>
#include <vector>

namespace OrvCF {
namespace {

constexpr std::string_view magic = "bplist00";
constexpr size_t trailerSize = 32;

// What sharing may add to a list: an object counts once for each place in which it is used.
constexpr uint64_t extraObjects = 1 << 20;
constexpr uint64_t extraBytes = 16 << 20;
constexpr uint64_t extraLevels = 64 << 20;
constexpr uint64_t perByte = 64; // of bytes and levels: keys and short strings are shared a lot, and rightly so

/// `count` bytes, the most significant first; 8 at most.
uint64_t bigEndian(std::string_view bytes)
{
    uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

/// Whether the UTF-16 text has neither U+0000 nor an unpaired surrogate.
bool isWholeText(std::string_view bytes)
{
    for (size_t i = 0; i < bytes.size(); i += 2) {
        const uint64_t unit = bigEndian(bytes.substr(i, 2));
        const auto next = static_cast<char32_t>(bigEndian(bytes.substr(std::min(i + 2, bytes.size()), 2)));
        if (unit == 0 || isLowSurrogate(static_cast<char32_t>(unit)))
            return false;
        if (!isHighSurrogate(static_cast<char32_t>(unit)))
            continue;
        if (!isLowSurrogate(next))
            return false;
        i += 2;
    }
    return true;
}

bool isAsciiText(std::string_view bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return static_cast<signed char>(byte) > 0; });
}

/// What an object stands for with all that it refers to, each as often as it is referred to.
struct Weight {
    uint64_t objects = 0;
    uint64_t bytes = 0;
    uint64_t levels = 0; ///< the sum, over the objects, of the containers around each
    size_t depth = 0; ///< containers within one another
};

/// Follows the references from the top object. Throws Harmful where that finds something.
class BinaryScan {
public:
    struct Harmful { };

    explicit BinaryScan(std::string_view bytes)
        : m_bytes(bytes)
    {
        require(bytes.size() >= magic.size() + trailerSize && isBinaryList(bytes));
        const std::string_view trailer = bytes.substr(bytes.size() - trailerSize);
        m_offsetSize = static_cast<unsigned char>(trailer[6]);
        m_referenceSize = static_cast<unsigned char>(trailer[7]);
        m_count = bigEndian(trailer.substr(8, 8));
        m_top = bigEndian(trailer.substr(16, 8));
        m_objectsEnd = bigEndian(trailer.substr(24, 8));
        const size_t room = bytes.size() - trailerSize;
        require(m_offsetSize >= 1 && m_offsetSize <= 8 && m_referenceSize >= 1 && m_referenceSize <= 8);
        require(m_objectsEnd <= room && m_count <= (room - m_objectsEnd) / m_offsetSize);
        m_weights.resize(m_count);
    }

    void run() { visit(m_top, 0); }

private:
    static void require(bool condition)
    {
        if (!condition)
            throw Harmful();
    }

    /// `count` bytes from `at`, which must lie among the objects.
    std::string_view objectBytes(uint64_t at, uint64_t count) const
    {
        require(at >= magic.size() && at <= m_objectsEnd && count <= m_objectsEnd - at);
        return m_bytes.substr(at, count);
    }

    uint64_t offsetOf(uint64_t object) const
    {
        require(object < m_count);
        return bigEndian(m_bytes.substr(m_objectsEnd + object * m_offsetSize, m_offsetSize));
    }

    /// Weighs the object unless that has been done. One that contains itself gets too deep.
    const Weight& visit(uint64_t object, size_t depth)
    {
        const uint64_t offset = offsetOf(object);
        require(depth <= maxDepth);
        if (m_weights[object].objects == 0)
            m_weights[object] = weigh(offset, depth);
        require(depth + m_weights[object].depth <= maxDepth);
        return m_weights[object];
    }

    Weight weigh(uint64_t offset, size_t depth)
    {
        const auto marker = static_cast<unsigned char>(objectBytes(offset, 1).front());
        const unsigned low = marker & 0xf;
        switch (marker >> 4) {
        case 0x0: // booleans; null and fill bytes are no list
            require(low == 8 || low == 9);
            return leaf({});
        case 0x1:
            return leaf(integerBytes(offset + 1, low));
        case 0x2: // real
            require(low == 2 || low == 3);
            return leaf(objectBytes(offset + 1, uint64_t(1) << low));
        case 0x3: // date
            require(low == 3);
            return leaf(objectBytes(offset + 1, 8));
        case 0x8: // UID
            return leaf(objectBytes(offset + 1, low + 1));
        default: {
            const uint64_t count = takeCount(offset, low);
            return weighSized(marker >> 4, count, offset, depth);
        }
        }
    }

    /// An integer of 2^low bytes. One of 16 must fit into 64 bits unsigned: of others libplist keeps only the lower
    /// half.
    std::string_view integerBytes(uint64_t at, unsigned low) const
    {
        require(low <= 4);
        const std::string_view bytes = objectBytes(at, uint64_t(1) << low);
        require(low < 4 || bigEndian(bytes.substr(0, 8)) == 0);
        return bytes;
    }

    /// The count in the marker, or in the integer that follows it; `offset` is then moved to the content.
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

    Weight weighSized(unsigned type, uint64_t count, uint64_t at, size_t depth)
    {
        require(count <= m_bytes.size()); // no product below overflows
        std::string_view content;
        switch (type) {
        case 0x4: // data
            return leaf(objectBytes(at, count));
        case 0x5: // ASCII string
            content = objectBytes(at, count);
            require(isAsciiText(content));
            return leaf(content);
        case 0x6: // UTF-16 string
            content = objectBytes(at, count * 2);
            require(isWholeText(content));
            return leaf(content);
        case 0xa: // array
            return weighMembers(objectBytes(at, count * m_referenceSize), depth);
        case 0xd: // dictionary: the keys, then the values
            content = objectBytes(at, count * 2 * m_referenceSize);
            requireStrings(content.substr(0, content.size() / 2));
            return weighMembers(content, depth);
        default:
            throw Harmful();
        }
    }

    Weight leaf(std::string_view content) const { return {1, content.size(), 0, 0}; }

    void requireStrings(std::string_view references) const
    {
        for (; !references.empty(); references.remove_prefix(m_referenceSize)) {
            const uint64_t key = bigEndian(references.substr(0, m_referenceSize));
            const auto type = static_cast<unsigned char>(objectBytes(offsetOf(key), 1).front()) >> 4;
            require(type == 0x5 || type == 0x6);
        }
    }

    Weight weighMembers(std::string_view references, size_t depth)
    {
        Weight sum{1, 0, 0, 1};
        for (; !references.empty(); references.remove_prefix(m_referenceSize)) {
            // objects may overlap in the file, so that their references are more than its bytes
            require(++m_referencesSeen <= maxObjects());
            const Weight& member = visit(bigEndian(references.substr(0, m_referenceSize)), depth + 1);
            sum.objects += member.objects;
            sum.bytes += member.bytes;
            sum.levels += member.levels + member.objects;
            sum.depth = std::max(sum.depth, member.depth + 1);
            require(sum.objects <= maxObjects() && sum.bytes <= m_bytes.size() * perByte + extraBytes);
            require(sum.levels <= m_bytes.size() * perByte + extraLevels);
        }
        return sum;
    }

    uint64_t maxObjects() const { return m_bytes.size() + extraObjects; }

    const std::string_view m_bytes;
    size_t m_offsetSize = 0;
    size_t m_referenceSize = 0;
    uint64_t m_count = 0;
    uint64_t m_top = 0;
    uint64_t m_objectsEnd = 0;
    uint64_t m_referencesSeen = 0;
    std::vector<Weight> m_weights; ///< of no objects as long as it is not known
};

} // namespace

bool isBinaryList(std::string_view bytes)
{
    return bytes.substr(0, magic.size()) == magic;
}

bool isHarmlessBinary(std::string_view bytes)
{
    try {
        BinaryScan(bytes).run();
        return true;
    } catch (const BinaryScan::Harmful&) {
        return false;
    }
}

} // namespace OrvCF
