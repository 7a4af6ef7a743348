#include <CoreFoundation/CoreFoundation.h>
#include <cstdint>
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ios>
#include <istream>
#include <iterator>
#include <limits>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CfObjects.h"

using namespace std::string_literals;
using namespace support;

namespace {

namespace fs = std::filesystem;

using OwnedObject = Owned<CFTypeRef>;

OwnedObject arrayOf(CFTypeRef value)
{
    return newArray({value});
}

OwnedObject dictionaryOf(CFTypeRef key, CFTypeRef value)
{
    auto dictionary = newDictionary();
    CFDictionarySetValue(dictionary.get(), key, value);
    return dictionary;
}

/// `depth` arrays within one another; the innermost is empty.
OwnedObject nestedArrays(size_t depth)
{
    OwnedObject list = newArray();
    for (size_t i = 1; i < depth; ++i)
        list = arrayOf(list.get());
    return list;
}

OwnedObject nestedDictionaries(size_t depth)
{
    OwnedObject list = newDictionary();
    for (size_t i = 1; i < depth; ++i)
        list = dictionaryOf(CFSTR("k"), list.get());
    return list;
}

// --- Reading and writing ---------------------------------------------------------------------------------------------

std::string text(CFDataRef data)
{
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<size_t>(CFDataGetLength(data))};
}

constexpr char refused[] = "(NULL)";

/// The list as bytes, or `refused`.
std::string written(CFTypeRef list, CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0)
{
    const Owned<CFDataRef> data(CFPropertyListCreateData(kCFAllocatorDefault, list, format, 0, nullptr));
    return data != nullptr ? text(data.get()) : refused;
}

OwnedObject read(const std::string& bytes, CFOptionFlags options = kCFPropertyListImmutable)
{
    return OwnedObject(
        CFPropertyListCreateWithData(kCFAllocatorDefault, newData(bytes).get(), options, nullptr, nullptr));
}

OwnedObject deepCopy(CFTypeRef list, CFOptionFlags options = kCFPropertyListMutableContainers)
{
    return OwnedObject(CFPropertyListCreateDeepCopy(kCFAllocatorDefault, list, options));
}

const std::string prolog = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                           "<plist version=\"1.0\">\n";

std::string document(const std::string& content)
{
    return prolog + content + "\n</plist>\n";
}

std::string repeated(const std::string& part, size_t count)
{
    std::string all;
    all.reserve(part.size() * count);
    for (size_t i = 0; i < count; ++i)
        all += part;
    return all;
}

/// The deepest list that is read, written or copied.
constexpr size_t deepest = 512;

/// A binary list built by hand: objects as bytes, with references of two bytes, the first on top.
class BinaryList {
public:
    BinaryList& add(const std::string& object)
    {
        m_objects.push_back(object);
        return *this;
    }

    std::string bytes() const
    {
        std::string list = "bplist00";
        std::string offsets;
        for (const std::string& object : m_objects) {
            offsets += bigEndian(list.size(), 4);
            list += object;
        }
        const std::string trailer = std::string(6, '\0') + "\x04\x02" + bigEndian(m_objects.size(), 8) + bigEndian(0, 8)
            + bigEndian(list.size(), 8);
        return list + offsets + trailer;
    }

    static std::string bigEndian(size_t value, int count)
    {
        std::string bytes;
        for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift & 0xff);
        return bytes;
    }

    static std::string array(const std::vector<size_t>& members)
    {
        return "\xaf\x11" + bigEndian(members.size(), 2) + references(members);
    }

    static std::string dictionary(const std::vector<size_t>& keysThenValues)
    {
        return "\xdf\x11" + bigEndian(keysThenValues.size() / 2, 2) + references(keysThenValues);
    }

    /// A string of less than 15 characters.
    static std::string ascii(const std::string& text) { return static_cast<char>(0x50 | text.size()) + text; }

private:
    static std::string references(const std::vector<size_t>& objects)
    {
        std::string bytes;
        for (const size_t object : objects)
            bytes += bigEndian(object, 2);
        return bytes;
    }

    std::vector<std::string> m_objects;
};

std::string binary(const std::string& object)
{
    return BinaryList().add(object).bytes();
}

/// The list as a binary one: an object in a place of its own for each time that it is used.
class BinaryWriter {
public:
    std::string list(CFTypeRef object)
    {
        add(object);
        BinaryList list;
        for (const std::string& bytes : m_objects)
            list.add(bytes);
        return list.bytes();
    }

private:
    size_t add(CFTypeRef object)
    {
        const size_t index = m_objects.size();
        m_objects.emplace_back();
        const std::string bytes = encoded(object); // adds what it refers to
        m_objects[index] = bytes;
        return index;
    }

    std::string encoded(CFTypeRef object)
    {
        const CFTypeID type = CFGetTypeID(object);
        if (type == CFArrayGetTypeID())
            return encodedArray(static_cast<CFArrayRef>(object));
        if (type == CFDictionaryGetTypeID())
            return encodedDictionary(static_cast<CFDictionaryRef>(object));
        if (type == CFStringGetTypeID())
            return encodedString(static_cast<CFStringRef>(object));
        if (type == CFNumberGetTypeID())
            return encodedNumber(static_cast<CFNumberRef>(object));
        if (type == CFBooleanGetTypeID())
            return object == kCFBooleanTrue ? "\x09" : "\x08";
        if (type == CFDateGetTypeID())
            return "\x33" + encodedReal(CFDateGetAbsoluteTime(static_cast<CFDateRef>(object)));
        return sized('\x40', static_cast<size_t>(CFDataGetLength(static_cast<CFDataRef>(object))))
            + text(static_cast<CFDataRef>(object));
    }

    std::string encodedArray(CFArrayRef array)
    {
        std::vector<size_t> members;
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i)
            members.push_back(add(CFArrayGetValueAtIndex(array, i)));
        return BinaryList::array(members);
    }

    std::string encodedDictionary(CFDictionaryRef dictionary)
    {
        const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
        std::vector<CFTypeRef> members(2 * count);
        CFDictionaryGetKeysAndValues(dictionary, members.data(), members.data() + count);
        std::vector<size_t> indices;
        for (const CFTypeRef member : members)
            indices.push_back(add(member));
        return BinaryList::dictionary(indices);
    }

    static std::string encodedString(CFStringRef string)
    {
        std::vector<UniChar> units(static_cast<size_t>(CFStringGetLength(string)));
        CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)), units.data());
        if (units.empty())
            return "\x50";
        std::string bytes = sized('\x60', units.size());
        for (const UniChar unit : units)
            bytes += BinaryList::bigEndian(unit, 2);
        return bytes;
    }

    static std::string encodedNumber(CFNumberRef number)
    {
        double real = 0;
        SInt64 integer = 0;
        if (CFNumberIsFloatType(number)) {
            CFNumberGetValue(number, kCFNumberDoubleType, &real);
            return "\x23" + encodedReal(real);
        }
        CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
        return "\x13" + BinaryList::bigEndian(static_cast<size_t>(integer), 8);
    }

    static std::string encodedReal(double value)
    {
        size_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return BinaryList::bigEndian(bits, 8);
    }

    static std::string sized(char type, size_t count)
    {
        return static_cast<char>(type | 0xf) + ("\x13" + BinaryList::bigEndian(count, 8));
    }

    std::vector<std::string> m_objects;
};

std::string binaryOf(CFTypeRef list)
{
    return BinaryWriter().list(list);
}

// --- The recorded cases ----------------------------------------------------------------------------------------------

const fs::path dataFolder = fs::path(ORV_TEST_DATA) / "plist";

std::string fileText(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The string between double quotes, as in JSON.
std::u16string unquoted(const std::string& literal)
{
    static const std::map<char, char16_t> escapes{
        {'b', u'\b'}, {'t', u'\t'}, {'n', u'\n'}, {'f', u'\f'}, {'r', u'\r'}, {'"', u'"'}, {'\\', u'\\'}, {'/', u'/'}};
    std::u16string units;
    for (size_t i = 1; i + 1 < literal.size(); ++i) {
        if (literal[i] != '\\') {
            units += static_cast<char16_t>(literal[i]);
        } else if (literal[++i] == 'u') {
            units += static_cast<char16_t>(std::stoul(literal.substr(i + 1, 4), nullptr, 16));
            i += 4;
        } else {
            units += escapes.at(literal[i]);
        }
    }
    return units;
}

std::string sequence(size_t count)
{
    std::string bytes;
    for (size_t i = 0; i < count; ++i)
        bytes += static_cast<char>((7 * i + 1) % 256);
    return bytes;
}

std::string fromHex(const std::string& digits)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

/// Takes the next line: its first word, and what follows that.
std::pair<std::string, std::string> takeLine(std::istream& lines)
{
    std::string word;
    std::string rest;
    lines >> word;
    if (lines.peek() == ' ')
        lines.get();
    std::getline(lines, rest);
    return {word, rest};
}

OwnedObject takeObject(std::istream& lines);

OwnedObject takeArray(std::istream& lines, size_t count)
{
    auto array = newArray();
    for (size_t i = 0; i < count; ++i)
        CFArrayAppendValue(array.get(), takeObject(lines).get());
    return array;
}

OwnedObject takeDictionary(std::istream& lines, size_t count)
{
    auto dictionary = newDictionary();
    for (size_t i = 0; i < count; ++i) {
        const OwnedObject key = newString(unquoted(takeLine(lines).second));
        CFDictionarySetValue(dictionary.get(), key.get(), takeObject(lines).get());
    }
    return dictionary;
}

OwnedObject takeObject(std::istream& lines)
{
    const auto [kind, value] = takeLine(lines);
    if (kind == "dict")
        return takeDictionary(lines, std::stoul(value));
    if (kind == "array")
        return takeArray(lines, std::stoul(value));
    if (kind == "string")
        return newString(unquoted(value));
    if (kind == "int8")
        return newNumber(kCFNumberSInt8Type, static_cast<SInt8>(std::stoi(value)));
    if (kind == "int16")
        return newNumber(kCFNumberSInt16Type, static_cast<SInt16>(std::stoi(value)));
    if (kind == "int32")
        return newNumber(kCFNumberSInt32Type, static_cast<SInt32>(std::stol(value)));
    if (kind == "int64")
        return newNumber(kCFNumberSInt64Type, static_cast<SInt64>(std::stoll(value)));
    if (kind == "float32")
        return newNumber(kCFNumberFloat32Type, std::strtof(value.c_str(), nullptr));
    if (kind == "float64")
        return newNumber(kCFNumberFloat64Type, std::strtod(value.c_str(), nullptr));
    if (kind == "true" || kind == "false")
        return OwnedObject(CFRetain(kind == "true" ? kCFBooleanTrue : kCFBooleanFalse));
    if (kind == "date")
        return newDate(std::strtod(value.c_str(), nullptr));
    if (kind == "data-seq")
        return newData(sequence(std::stoul(value)));
    if (kind == "data-hex")
        return newData(fromHex(value));
    throw std::runtime_error("cases.txt has an object of unknown kind: " + kind);
}

struct WriterCase {
    std::string name;
    std::string object; ///< its lines

    OwnedObject make() const
    {
        std::istringstream lines(object);
        return takeObject(lines);
    }
};

std::vector<WriterCase> writerCases()
{
    std::vector<WriterCase> cases;
    std::ifstream file(dataFolder / "writer" / "cases.txt");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("case ", 0) == 0)
            cases.push_back({line.substr(5), ""});
        else if (!line.empty() && line[0] != '#')
            cases.back().object += line + "\n";
    }
    return cases;
}

struct ReaderCase {
    std::string name;
    std::string outcome; ///< "rejected", or format, type and whether it cannot be copied
};

std::vector<ReaderCase> readerCases()
{
    std::vector<ReaderCase> cases;
    std::ifstream file(dataFolder / "reader" / "CASES.md");
    for (std::string line; std::getline(file, line);) {
        const size_t nameEnd = line.find(" |", 2);
        const size_t outcomeStart = line.rfind("| ", line.size() - 2);
        const std::string name = line.substr(2, nameEnd - 2);
        if (line.rfind("| ", 0) == 0 && name != "name")
            cases.push_back({name, line.substr(outcomeStart + 2, line.size() - outcomeStart - 4)});
    }
    return cases;
}

void PrintTo(const WriterCase& writerCase, std::ostream* out)
{
    *out << writerCase.name;
}
void PrintTo(const ReaderCase& readerCase, std::ostream* out)
{
    *out << readerCase.name;
}

template <class Case> std::string caseName(const testing::TestParamInfo<Case>& info)
{
    return info.param.name;
}

size_t filesWith(const fs::path& folder, const std::string& extension)
{
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(folder))
        count += entry.path().extension() == extension;
    return count;
}

TEST(RecordedLists, AreAllTested)
{
    EXPECT_GT(writerCases().size(), 0U);
    EXPECT_EQ(filesWith(dataFolder / "writer", ".xml"), writerCases().size());
    EXPECT_GT(readerCases().size(), 0U);
    EXPECT_EQ(filesWith(dataFolder / "reader", ".in"), readerCases().size());
}

class WrittenList : public testing::TestWithParam<WriterCase> { };

TEST_P(WrittenList, IsTheSameToTheByte)
{
    EXPECT_EQ(fileText(dataFolder / "writer" / (GetParam().name + ".xml")), written(GetParam().make().get()));
}

TEST_P(WrittenList, SurvivesTheBinaryFormat)
{
    const OwnedObject list = GetParam().make();
    const OwnedObject again = read(binaryOf(list.get()));
    ASSERT_NE(nullptr, again);
    EXPECT_EQ(written(list.get()), written(again.get()));
}

TEST_P(WrittenList, IsEqualToItsDeepCopy)
{
    const OwnedObject list = GetParam().make();
    const OwnedObject copy = deepCopy(list.get());
    ASSERT_NE(nullptr, copy);
    EXPECT_TRUE(CFEqual(list.get(), copy.get()));
}

INSTANTIATE_TEST_SUITE_P(Recorded, WrittenList, testing::ValuesIn(writerCases()), caseName<WriterCase>);

class ReadList : public testing::TestWithParam<ReaderCase> {
protected:
    bool outcomeHas(const std::string& word) const { return GetParam().outcome.find(word) != std::string::npos; }
    fs::path file(const std::string& extension) const { return dataFolder / "reader" / (GetParam().name + extension); }
    std::string input() const { return fileText(file(".in")); }
};

/// The name of the object's type; that of a keyed archiver's UID is the one type which is not public.
std::string typeName(CFTypeRef object)
{
    const std::map<CFTypeID, std::string> names{{CFStringGetTypeID(), "CFString"}, {CFNumberGetTypeID(), "CFNumber"},
        {CFBooleanGetTypeID(), "CFBoolean"}, {CFArrayGetTypeID(), "CFArray"}, {CFDataGetTypeID(), "CFData"},
        {CFDateGetTypeID(), "CFDate"}, {CFDictionaryGetTypeID(), "CFDictionary"}};
    const auto found = names.find(CFGetTypeID(object));
    return found != names.end() ? found->second : "CFKeyedArchiverUID";
}

TEST_P(ReadList, IsWrittenBackToTheByteUnlessItIsRejected)
{
    ASSERT_EQ(outcomeHas("rejected"), fs::exists(file(".rejected")));
    const std::string expected = outcomeHas("rejected") ? refused : fileText(file(".out.xml"));
    const OwnedObject list = read(input());
    EXPECT_EQ(expected, written(list.get()));
}

TEST_P(ReadList, HasItsTypeAndFormat)
{
    CFPropertyListFormat format{};
    const OwnedObject list(
        CFPropertyListCreateWithData(kCFAllocatorDefault, newData(input()).get(), 0, &format, nullptr));
    std::string outcome = "rejected";
    if (list != nullptr)
        outcome = (format == kCFPropertyListBinaryFormat_v1_0 ? "binary, " : "xml, ") + typeName(list.get());
    EXPECT_EQ(GetParam().outcome.substr(0, GetParam().outcome.find(';')), outcome);
}

TEST_P(ReadList, IsCopiedUnlessItHoldsAUid)
{
    const OwnedObject list = read(input());
    const OwnedObject copy = list != nullptr ? deepCopy(list.get()) : nullptr;
    EXPECT_EQ(outcomeHas("rejected") || outcomeHas("deep copy NULL"), copy == nullptr);
}

INSTANTIATE_TEST_SUITE_P(Recorded, ReadList, testing::ValuesIn(readerCases()), caseName<ReaderCase>);

// --- Writing ---------------------------------------------------------------------------------------------------------

/// An object that no property list may hold: what a failed reading left behind.
OwnedObject foreignObject()
{
    CFErrorRef error = nullptr;
    EXPECT_EQ(nullptr, CFPropertyListCreateWithData(nullptr, newData("").get(), 0, nullptr, &error));
    return OwnedObject(error);
}

/// It can be neither written nor copied.
void expectNoList(CFTypeRef object)
{
    EXPECT_EQ(refused, written(object));
    EXPECT_EQ(nullptr, deepCopy(object));
}

TEST(PropertyListWriting, RefusesNull)
{
    expectNoList(nullptr);
}

TEST(PropertyListWriting, RefusesForeignContentAtAnyDepth)
{
    const OwnedObject foreign = foreignObject();
    const OwnedObject inArray = arrayOf(foreign.get());
    const OwnedObject inDictionary = dictionaryOf(CFSTR("k"), inArray.get());
    for (const OwnedObject* list : {&foreign, &inArray, &inDictionary})
        expectNoList(list->get());
}

TEST(PropertyListWriting, RefusesKeysThatAreNotStrings)
{
    expectNoList(dictionaryOf(newNumber(kCFNumberIntType, 1).get(), CFSTR("v")).get());
}

TEST(PropertyListWriting, RefusesContainersWithinThemselves)
{
    const auto dictionary = newDictionary();
    const auto array = newArray({kCFBooleanTrue, dictionary.get()});
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), array.get());
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), array.get());
    expectNoList(array.get());
    expectNoList(dictionary.get());
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("a"));
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("b"));
}

TEST(PropertyListWriting, WritesXmlOnly)
{
    for (const int number : {0, 1, 99, 101, 200, 201, -1})
        EXPECT_EQ(refused, written(kCFBooleanTrue, static_cast<CFPropertyListFormat>(number))) << number;
    EXPECT_EQ(document("<true/>"), written(kCFBooleanTrue, kCFPropertyListXMLFormat_v1_0));
}

TEST(PropertyListWriting, RefusesStringsThatXmlCannotHold)
{
    for (const std::u16string& units :
        {u"a\0b"s, u"\0"s, u"b\0"s, u"a\xd800"s, u"\xd800z"s, u"\xdc00"s, u"\xdc00\xd800"s, u"\xd83d\xd83d\xde00"s}) {
        const OwnedObject string = newString(units);
        EXPECT_EQ(refused, written(string.get()));
        EXPECT_EQ(refused, written(dictionaryOf(string.get(), kCFBooleanTrue).get()));
        EXPECT_NE(nullptr, deepCopy(arrayOf(string.get()).get()));
    }
}

TEST(PropertyListWriting, WritesDatesOfTheYears0To9999)
{
    const std::map<double, std::string> dates{{-63145526400.0, "0000-01-01T00:00:00Z"},
        {-63140342401.0, "0000-02-29T23:59:59Z"}, {-63140342400.0, "0000-03-01T00:00:00Z"},
        {-31588531201.0, "0999-12-31T23:59:59Z"}, {-31588531200.0, "1000-01-01T00:00:00Z"},
        {-26438400.0, "2000-03-01T00:00:00Z"}, {-26438401.0, "2000-02-29T23:59:59Z"},
        {99792000.0, "2004-03-01T00:00:00Z"}, {3129062400.0, "2100-02-27T00:00:00Z"},
        {3129235200.0, "2100-03-01T00:00:00Z"}, {-2147483649.0, "1932-12-13T20:45:51Z"},
        {-2147483648.5, "1932-12-13T20:45:51Z"}, {-2147483648.0, "1932-12-13T20:45:52Z"},
        {-0.001, "2000-12-31T23:59:59Z"}, {0.999, "2001-01-01T00:00:00Z"}, {2147483647.9, "2069-01-19T03:14:07Z"},
        {2147483648.0, "2069-01-19T03:14:08Z"}, {252423993599.0, "9999-12-31T23:59:59Z"},
        {252423993599.5, "9999-12-31T23:59:59Z"}};
    for (const auto& [seconds, text] : dates)
        EXPECT_EQ(document("<date>" + text + "</date>"), written(newDate(seconds).get())) << seconds;
}

TEST(PropertyListWriting, RefusesDatesBeyondTheYears0To9999)
{
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double seconds : {-63145526400.5, -63145526401.0, 252423993600.0, 1e18, -1e18, 1e300, infinity,
             -infinity, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(refused, written(newDate(seconds).get()));
        EXPECT_NE(nullptr, deepCopy(newDate(seconds).get()));
    }
}

template <class T> std::string writtenNumber(CFNumberType type, T value)
{
    const std::string xml = written(newNumber(type, value).get());
    const size_t end = xml.find("\n</plist>");
    return xml.substr(prolog.size(), end == std::string::npos ? end : end - prolog.size());
}

TEST(PropertyListWriting, WritesIntegersOfEveryType)
{
    EXPECT_EQ("<integer>-128</integer>", writtenNumber(kCFNumberSInt8Type, SInt8(-128)));
    EXPECT_EQ("<integer>127</integer>", writtenNumber(kCFNumberCharType, static_cast<char>(127)));
    EXPECT_EQ("<integer>-32768</integer>", writtenNumber(kCFNumberSInt16Type, SInt16(-32768)));
    EXPECT_EQ("<integer>-1</integer>", writtenNumber(kCFNumberShortType, static_cast<short>(-1)));
    EXPECT_EQ("<integer>-2147483648</integer>", writtenNumber(kCFNumberSInt32Type, SInt32(INT32_MIN)));
    EXPECT_EQ("<integer>2147483647</integer>", writtenNumber(kCFNumberIntType, 2147483647));
    EXPECT_EQ("<integer>-9223372036854775808</integer>", writtenNumber(kCFNumberSInt64Type, SInt64(INT64_MIN)));
    EXPECT_EQ("<integer>9223372036854775807</integer>", writtenNumber(kCFNumberLongType, 9223372036854775807L));
    EXPECT_EQ("<integer>-1</integer>", writtenNumber(kCFNumberLongLongType, -1LL));
    EXPECT_EQ("<integer>-2</integer>", writtenNumber(kCFNumberCFIndexType, CFIndex(-2)));
}

TEST(PropertyListWriting, WritesRealsOfEveryType)
{
    EXPECT_EQ("<real>0.10000000149011612</real>", writtenNumber(kCFNumberFloat32Type, 0.1f));
    EXPECT_EQ("<real>1</real>", writtenNumber(kCFNumberFloatType, 1.0f));
    EXPECT_EQ("<real>0.10000000000000001</real>", writtenNumber(kCFNumberFloat64Type, 0.1));
    EXPECT_EQ("<real>-0.5</real>", writtenNumber(kCFNumberDoubleType, -0.5));
    EXPECT_EQ("<real>0.0</real>", writtenNumber(kCFNumberDoubleType, -0.0));
    EXPECT_EQ("<real>nan</real>", writtenNumber(kCFNumberDoubleType, -std::numeric_limits<double>::quiet_NaN()));
    EXPECT_EQ("<real>-infinity</real>", writtenNumber(kCFNumberFloatType, -std::numeric_limits<float>::infinity()));
}

TEST(PropertyListWriting, SortsKeysByTheirUnitsWhateverTheirOrder)
{
    const std::vector<std::u16string> ascending{
        u"", u"A", u"AA", u"B", u"a", u"\u00e9", u"\ud7ff", u"\U0001f600", u"\ue000", u"\uff21", u"\uffff"};
    const auto forwards = newDictionary();
    const auto backwards = newDictionary();
    for (size_t i = 0; i < ascending.size(); ++i) {
        CFDictionarySetValue(forwards.get(), newString(ascending[i]).get(), newNumber(kCFNumberIntType, i).get());
        const size_t last = ascending.size() - 1 - i;
        CFDictionarySetValue(
            backwards.get(), newString(ascending[last]).get(), newNumber(kCFNumberIntType, last).get());
    }
    const std::string xml = written(forwards.get());
    std::istringstream lines(xml);
    std::string numbers;
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("\t<integer>", 0) == 0)
            numbers += line.substr(10, line.find('<', 10) - 10) + " ";
    EXPECT_EQ("0 1 2 3 4 5 6 7 8 9 10 ", numbers);
    EXPECT_EQ(xml, written(backwards.get()));
}

TEST(PropertyListWriting, WritesDataOfEveryLengthAtEveryDepthReadably)
{
    for (size_t depth = 0; depth < 14; ++depth)
        for (const size_t length : std::vector<size_t>{0, 1, 2, 3, 8, 9, 10, 27, 44, 45, 56, 57, 58, 1000, 100001}) {
            OwnedObject list = newData(sequence(length));
            for (size_t i = 0; i < depth; ++i)
                list = arrayOf(list.get());
            const OwnedObject again = read(written(list.get()));
            ASSERT_NE(nullptr, again);
            EXPECT_TRUE(CFEqual(list.get(), again.get())) << length << " bytes at depth " << depth;
        }
}

TEST(PropertyListWriting, WritesTheDeepestListAndNoDeeperOne)
{
    for (const auto nested : {nestedArrays, nestedDictionaries}) {
        const OwnedObject list = nested(deepest);
        for (const std::string& bytes : {written(list.get()), binaryOf(list.get())}) {
            const OwnedObject again = read(bytes);
            ASSERT_NE(nullptr, again);
            EXPECT_TRUE(CFEqual(list.get(), again.get()));
        }
        EXPECT_EQ(refused, written(nested(deepest + 1).get()));
    }
}

TEST(PropertyListWriting, RefusesWhatItWouldTakeAgesToWrite)
{
    OwnedObject list = arrayOf(kCFBooleanTrue);
    for (int doublings = 0; doublings < 100; ++doublings) {
        list = newArray({list.get(), list.get()});
    }
    expectNoList(list.get());
}

TEST(PropertyListWriting, SetsTheErrorOnFailureOnly)
{
    CFErrorRef error = nullptr;
    EXPECT_EQ(nullptr, CFPropertyListCreateData(nullptr, nullptr, kCFPropertyListXMLFormat_v1_0, 0, &error));
    ASSERT_NE(nullptr, error);
    const OwnedObject owner(error);

    const Owned<CFDataRef> data(
        CFPropertyListCreateData(nullptr, kCFBooleanTrue, kCFPropertyListXMLFormat_v1_0, 0, &error));
    EXPECT_NE(nullptr, data);
    EXPECT_EQ(owner.get(), error);
}

// --- Reading ---------------------------------------------------------------------------------------------------------

TEST(PropertyListReading, SetsTheErrorOnFailureOnly)
{
    CFErrorRef error = nullptr;
    EXPECT_EQ(nullptr, CFPropertyListCreateWithData(nullptr, newData("{").get(), 0, nullptr, &error));
    ASSERT_NE(nullptr, error);
    const OwnedObject owner(error);

    const OwnedObject list(CFPropertyListCreateWithData(nullptr, newData("<true/>").get(), 0, nullptr, &error));
    EXPECT_EQ(kCFBooleanTrue, list.get());
    EXPECT_EQ(owner.get(), error);
}

TEST(PropertyListReading, LeavesTheFormatOfARefusedListAlone)
{
    auto format = kCFPropertyListOpenStepFormat;
    EXPECT_EQ(nullptr, CFPropertyListCreateWithData(nullptr, newData("<true>").get(), 0, &format, nullptr));
    EXPECT_EQ(kCFPropertyListOpenStepFormat, format);
}

const std::string outerAndInner = document("<dict><key>inner</key><dict/><key>list</key><array/></dict>");

/// How many members the dictionary, its inner dictionary and its inner array have after one has been added to each.
std::vector<CFIndex> countsAfterAdding(CFTypeRef list)
{
    const auto outer = static_cast<CFMutableDictionaryRef>(const_cast<void*>(list));
    const auto member = [&](CFStringRef key) { return const_cast<void*>(CFDictionaryGetValue(outer, key)); };
    const auto inner = static_cast<CFMutableDictionaryRef>(member(CFSTR("inner")));
    const auto array = static_cast<CFMutableArrayRef>(member(CFSTR("list")));
    CFArrayAppendValue(array, kCFBooleanTrue);
    CFDictionarySetValue(inner, CFSTR("new"), kCFBooleanTrue);
    CFDictionarySetValue(outer, CFSTR("new"), kCFBooleanTrue);
    return {CFDictionaryGetCount(outer), CFDictionaryGetCount(inner), CFArrayGetCount(array)};
}

const std::vector<CFIndex> changed{3, 1, 1};

TEST(PropertyListReading, GivesMutableContainersWhenAskedTo)
{
    for (const std::string& bytes : {outerAndInner, binaryOf(read(outerAndInner).get())}) {
        EXPECT_EQ(changed, countsAfterAdding(read(bytes, kCFPropertyListMutableContainers).get()));
        EXPECT_EQ(changed, countsAfterAdding(read(bytes, kCFPropertyListMutableContainersAndLeaves).get()));
    }
}

TEST(PropertyListReading, TellsMinusOneFromTheLargestUnsignedInteger)
{
    const OwnedObject list
        = read(document("<array><integer>-1</integer><integer>18446744073709551615</integer></array>"));
    const auto array = static_cast<CFArrayRef>(list.get());
    const auto negative = static_cast<CFNumberRef>(CFArrayGetValueAtIndex(array, 0));
    const auto large = static_cast<CFNumberRef>(CFArrayGetValueAtIndex(array, 1));
    SInt64 value = 0;
    EXPECT_TRUE(CFNumberGetValue(negative, kCFNumberSInt64Type, &value));
    EXPECT_EQ(-1, value);
    EXPECT_FALSE(CFNumberGetValue(large, kCFNumberSInt64Type, &value));
    EXPECT_FALSE(CFEqual(negative, large));
}

TEST(PropertyListReading, KeepsTheFractionOfABinaryDate)
{
    for (const double seconds : {475145103.75, -0.1, 1e10 + 0.5, -1e10 - 0.25}) {
        const OwnedObject date = read(binaryOf(newDate(seconds).get()));
        ASSERT_NE(nullptr, date);
        EXPECT_EQ(seconds, CFDateGetAbsoluteTime(static_cast<CFDateRef>(date.get())));
    }
}

TEST(PropertyListReading, TakesTheFirstOfEqualKeysInABinaryList)
{
    BinaryList list;
    list.add(BinaryList::dictionary({1, 1, 2, 3}));
    for (const char* text : {"k", "1", "2"})
        list.add(BinaryList::ascii(text));
    EXPECT_TRUE(CFEqual(dictionaryOf(CFSTR("k"), CFSTR("1")).get(), read(list.bytes()).get()));
}

TEST(PropertyListReading, TakesTheLastOfEqualKeysInXml)
{
    const std::string pair = "<key>k</key><array><string>x</string></array>";
    const OwnedObject list = read(document("<dict>" + repeated(pair, 1000) + "<key>k</key><true/></dict>"));
    ASSERT_NE(nullptr, list);
    EXPECT_TRUE(CFEqual(dictionaryOf(CFSTR("k"), kCFBooleanTrue).get(), list.get()));
}

TEST(PropertyListReading, ReadsLargeContainers)
{
    const auto dictionary = newDictionary();
    const auto array = newArray();
    for (int i = 0; i < 5000; ++i) {
        const OwnedObject number = newNumber(kCFNumberIntType, i);
        const std::string digits = std::to_string(i);
        CFDictionarySetValue(dictionary.get(), newString({digits.begin(), digits.end()}).get(), number.get());
        CFArrayAppendValue(array.get(), number.get());
    }
    for (const CFTypeRef list : {CFTypeRef(dictionary.get()), CFTypeRef(array.get())})
        for (const std::string& bytes : {written(list), binaryOf(list)})
            EXPECT_TRUE(CFEqual(list, read(bytes).get()));
}

TEST(PropertyListReading, MakesAUidOfADictionaryOnlyIfItHasNothingElseAndAFittingInteger)
{
    const auto typeOf = [](const std::string& value) {
        return typeName(read(document("<dict><key>CF$UID</key>" + value + "</dict>")).get());
    };
    EXPECT_EQ("CFKeyedArchiverUID", typeOf("<integer>0</integer>"));
    EXPECT_EQ("CFKeyedArchiverUID", typeOf("<integer>4294967295</integer>"));
    EXPECT_EQ("CFDictionary", typeOf("<integer>4294967296</integer>"));
    EXPECT_EQ("CFDictionary", typeOf("<integer>-1</integer>"));
    EXPECT_EQ("CFDictionary", typeOf("<real>5</real>"));
    EXPECT_EQ("CFDictionary", typeOf("<string>5</string>"));
    for (const std::string other : {"a", "b", "c", "d"})
        EXPECT_EQ("CFDictionary", typeOf("<integer>5</integer><key>" + other + "</key><true/>"));
}

TEST(PropertyListReading, MakesNoUidOfADictionaryInABinaryList)
{
    const OwnedObject list = dictionaryOf(CFSTR("CF$UID"), newNumber(kCFNumberIntType, 5).get());
    EXPECT_TRUE(CFEqual(list.get(), read(binaryOf(list.get())).get()));
}

TEST(PropertyListReading, CopiesNoUid)
{
    const OwnedObject uid = read(document("<dict><key>CF$UID</key><integer>5</integer></dict>"));
    EXPECT_EQ(nullptr, deepCopy(arrayOf(uid.get()).get()));
    EXPECT_TRUE(CFEqual(uid.get(), read(binary("\x80\x05")).get()));
}

// --- What each element stands for ------------------------------------------------------------------------------------

/// What the list becomes when it is written again, without the lines that all lists have; or `refused`.
std::string rewritten(const std::string& bytes)
{
    const OwnedObject list = read(bytes);
    const std::string xml = list != nullptr ? written(list.get()) : refused;
    const size_t end = xml.find("\n</plist>");
    return xml == refused || end == std::string::npos ? xml : xml.substr(prolog.size(), end - prolog.size());
}

/// The text that the element `name` has when it has been read with `given` in it, and written.
std::string rewritten(const std::string& name, const std::string& given)
{
    const std::string xml = rewritten(document("<" + name + ">" + given + "</" + name + ">"));
    if (xml == refused)
        return refused;
    return xml.substr(name.size() + 2, xml.size() - 2 * name.size() - 5);
}

using Cases = std::vector<std::pair<std::string, std::string>>; ///< what is given, and what it must become

void expectRewritten(const std::string& name, const Cases& cases)
{
    for (const auto& [given, expected] : cases)
        EXPECT_EQ(expected, rewritten(name, given)) << testing::PrintToString(given);
}

// The recorded lists show more of what each element may hold.

TEST(PropertyListReading, TakesIntegersInDecimalAndHexadecimal)
{
    expectRewritten("integer",
        {{"+0", "0"}, {"000", "0"}, {"5", "5"}, {"-5", "-5"}, {"+\t5", "5"}, {"\n\t42", "42"}, {"010", "10"},
            {"09", "9"}, {"-010", "-10"}, {"0000000000000000000000000000012", "12"}, {"0Xabcdef", "11259375"},
            {"0x0", "0"}, {"0x010", "16"}, {"18446744073709551615", "18446744073709551615"},
            {"-9223372036854775808", "-9223372036854775808"}, {"-0x8000000000000000", "-9223372036854775808"}});
}

TEST(PropertyListReading, RefusesWhatIsNoInteger)
{
    for (const std::string bad : {"", " ", "-", "+", "a", "5a", "0x", "-0x", "0xg", "5 ", "5\n", "--5", "+-5", "- -5",
             "1 2", "1.0", "1e5", "1,000", "x1F", "00x1F", "0x 1", "0x-1", "18446744073709551616",
             "0x10000000000000000", "-9223372036854775809", "99999999999999999999999999", "&#53;", "5<!-- c -->",
             "<!-- c -->5", "<![CDATA[5]]>", "<?x?>5", "<string>5</string>"})
        EXPECT_EQ(refused, rewritten("integer", bad)) << bad;
}

TEST(PropertyListReading, TakesRealsOfEveryForm)
{
    expectRewritten("real",
        {{"1.5", "1.5"}, {"\n\t1.5", "1.5"}, {"010", "10"}, {"1E+5", "100000"}, {"0", "0.0"}, {"-1e400", "-infinity"},
            {"+INFINITY", "+infinity"}, {"-infinity", "-infinity"}});
}

TEST(PropertyListReading, RefusesWhatIsNoReal)
{
    for (const std::string bad : {"", " ", "-", ".", "e5", "1e", "1.5 ", "1.5\n", "1,5", "1.5.5", "1.5f", "0x10",
             "0x1p3", "nan(1)", "-nan", "+nan", " nan", "inf ", "infinit", "- 1.5", "--1.5", "a", "1_000", "0&#46;5",
             "0<!-- c -->.5", "<!-- c -->1.5", "1<![CDATA[.5]]>", "1<?x?>.5"})
        EXPECT_EQ(refused, rewritten("real", bad)) << bad;
}

TEST(PropertyListReading, TakesRealsWithAPointWhateverTheLocale)
{
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    std::setlocale(LC_NUMERIC, "de_DE.UTF-8"); // stays as it was where there is no such locale
    EXPECT_EQ("1.5", rewritten("real", "1.5"));
    std::setlocale(LC_NUMERIC, before.c_str());
}

TEST(PropertyListReading, TakesDatesOfFourDigitsOfYears)
{
    expectRewritten("date",
        {{"2000-02-29T23:59:59Z", "2000-02-29T23:59:59Z"}, {"2000-03-01T00:00:00Z", "2000-03-01T00:00:00Z"},
            {"1999-12-31T23:59:59Z", "1999-12-31T23:59:59Z"}, {"2100-02-28T12:34:56Z", "2100-02-28T12:34:56Z"},
            {"0000-01-01T00:00:00Z", "0000-01-01T00:00:00Z"}, {"0001-01-01T00:00:00Z", "0001-01-01T00:00:00Z"},
            {"1582-10-10T00:00:00Z", "1582-10-10T00:00:00Z"}, {"9999-12-31T23:59:59Z", "9999-12-31T23:59:59Z"},
            {"2015-04-31T00:00:00Z", "2015-05-01T00:00:00Z"}});
}

TEST(PropertyListReading, ReadsDaysOfFourCenturiesAsTheyWereWritten)
{
    for (int day = -73049; day < 73049; day += 9) {
        const double noon = day * 86400.0 + 43199;
        const std::string xml = written(newDate(noon).get());
        ASSERT_TRUE(CFEqual(newDate(noon).get(), read(xml).get())) << xml;
    }
}

TEST(PropertyListReading, RefusesWhatIsNoDate)
{
    for (const std::string bad :
        {"", "2001", "2001-01-01", "2001-01-01T00:00:00", "2001-01-01 00:00:00Z", " 2001-01-01T00:00:00Z",
            "2001-01-01T00:00:00Z ", "2001-1-01T00:00:00Z", "201-01-01T00:00:00Z", "20001-01-01T00:00:00Z",
            "-001-01-01T00:00:00Z", "-2001-01-01T00:00:00Z", "2001-01-01T00:00:00z", "2001-01-01T00:00:00+01:00",
            "2001-01-01T00:00:00.5Z", "2001-00-01T00:00:00Z", "2000-13-00T00:00:00Z", "2000-13-01T00:00:00Z",
            "2001-01-00T00:00:00Z", "2001-01-32T00:00:00Z", "1921-07-02T24:00:00Z", "2001-01-01T25:00:00Z",
            "2001-01-01T00:61:00Z", "2001-01-01T00:60:00Z", "2001-01-01T00:00:60Z", "2001-01-01T-1:00:00Z",
            "2001-01-01T<!-- c -->00:00:00Z", "2001-01-01T00&#58;00:00Z", "<![CDATA[2001-01-01T00:00:00Z]]>"})
        EXPECT_EQ(refused, rewritten("date", bad)) << bad;
}

TEST(PropertyListReading, TakesBase64AndSkipsOtherCharacters)
{
    const Cases cases{{" \n\t", ""}, {"AQI=", "AQI="}, {"AQIDA", "AQID"}, {"AQIDAQ=", "AQID"}, {"+/+/", "+/+/"},
        {"A\xc3\xa9QID", "AQID"}};
    for (const auto& [given, expected] : cases)
        EXPECT_EQ("\n" + expected + (expected.empty() ? "" : "\n"), rewritten("data", given)) << given;
}

TEST(PropertyListReading, RefusesMisplacedPaddingAndMarkupInData)
{
    for (const std::string bad : {"=AQI", "A===", "+aaa=aaa", "=", "AQ=I", "AQID=", "AQ<!-- c -->ID", "<!-- c -->AQID",
             "AQ<![CDATA[ID]]>", "<?x?>AQID", "<string>AQID</string>"})
        EXPECT_EQ(refused, rewritten("data", bad)) << bad;
    EXPECT_EQ(refused, rewritten(document("<data/>")));
    EXPECT_EQ(refused, rewritten(document("<data />")));
    EXPECT_EQ(refused, rewritten(document("<data a=\"b\"/>")));
    EXPECT_EQ("<data>\n</data>", rewritten(document("<data></data>")));
    EXPECT_EQ("<data>\n</data>", rewritten(document("<data a=\"/\"></data>")));
}

TEST(PropertyListReading, DecodesReferencesAndKeepsAllOtherTextAsItIs)
{
    expectRewritten("string",
        {{"", ""}, {" ", " "}, {"\n\t ", "\n\t "}, {"a\r\nb", "a\r\nb"}, {"a\rb", "a\rb"},
            {"a > b ]]> \"c\"", "a &gt; b ]]&gt; \"c\""}, {"&amp;&lt;&gt;", "&amp;&lt;&gt;"}, {"&quot;&apos;", "\"'"},
            {"&#65;&#x41;&#x2f;&#x2F;", "AA//"}, {"&#0000065;", "A"}, {"&#233;&#x1F600;", "\xc3\xa9\xf0\x9f\x98\x80"},
            {"&#x10ffff;", "\xf4\x8f\xbf\xbf"}, {"&amp;amp;", "&amp;amp;"},
            {"<![CDATA[a & <b> &amp;]]>", "a &amp; &lt;b&gt; &amp;amp;"}, {" <![CDATA[ ]]>x<![CDATA[]]> ", "  x "},
            {"<![CDATA[]] ]>]]>", "]] ]&gt;"}, {"\x01\x1f\x7f", "\x01\x1f\x7f"}});
}

TEST(PropertyListReading, RefusesTextThatIsNotWellFormed)
{
    for (const std::string& bad : {"&"s, "a&"s, "& "s, "&amp"s, "&amp ;"s, "&;"s, "&#;"s, "&#x;"s, "&#Xaa;"s, "&AMP;"s,
             "&nbsp;"s, "&#-65;"s, "&#+65;"s, "&# 65;"s, "&#65 ;"s, "&#6a;"s, "&#xg;"s, "&#000000065;"s, "&#00000065;"s,
             "&#x110000;"s, "&#xD800;"s, "&#xDC00;"s, "&#xDFFF;"s, "&#0;"s, "&ampersand;"s, "&lt;&gt"s, "a<!-- c -->b"s,
             "<!-- c -->"s, "<?x?>"s, "<b/>"s, "<b></b>"s, "\xff"s, "\xc0\x80"s, "\xed\xa0\x80"s, "\xf4\x90\x80\x80"s,
             "\xe2\x82"s, "\x80"s, "a\0b"s, "\0"s}) {
        EXPECT_EQ(nullptr, read(document("<string>" + bad + "</string>"))) << bad;
        EXPECT_EQ(nullptr, read(document("<dict><key>" + bad + "</key><true/></dict>"))) << bad;
    }
}

TEST(PropertyListReading, DropsOneByteOrderMarkAtTheFrontOfAText)
{
    const std::string mark = "\xef\xbb\xbf";
    expectRewritten("string",
        {{mark + "a", "a"}, {mark, ""}, {mark + mark + "a", mark + "a"}, {"a" + mark, "a" + mark}, {"&#xFEFF;a", "a"},
            {"<![CDATA[" + mark + "a]]>", "a"}});
    EXPECT_EQ("<dict>\n\t<key></key>\n\t<string>2</string>\n</dict>",
        rewritten(document("<dict><key></key><string>1</string><key>" + mark + "</key><string>2</string></dict>")));
    const OwnedObject list = read(binary("\x62\xfe\xff\0a"s)); // UTF-16 is taken as it is
    EXPECT_TRUE(CFEqual(newString(u"\ufeffa").get(), list.get()));
}

TEST(PropertyListReading, KnowsBooleansByTheirNamesAlone)
{
    EXPECT_EQ("<true/>", rewritten(document("<true/>")));
    EXPECT_EQ("<true/>", rewritten(document("<true />")));
    EXPECT_EQ("<false/>", rewritten(document("<false></false >")));
    for (const std::string bad : {"<true>a</true>", "<true> </true>", "<true><!-- c --></true>", "<false><?x?></false>",
             "<True/>", "<true>", "<boolean/>", "<null/>", ""})
        EXPECT_EQ(refused, rewritten(document(bad))) << bad;
}

TEST(PropertyListReading, TakesOneObjectWithWhatMayStandAroundIt)
{
    for (const std::string good :
        {"<true/>", "\n <true/>", "<plist><true/></plist>", "<plist version='0.9'><true/></plist>",
            "<plist><!-- c --><?x y?><true/> <!-- c --></plist>", "<!-- c --><!DOCTYPE plist><?x y?><true/>",
            "<?xml version='1.0'?><plist><true/></plist>", "<?xml?><true/>", "\xef\xbb\xbf<plist><true/></plist>",
            "<plist a='&'><true/></plist>", "<plist a='<'><true/></plist>", "<true/>\n", "<true/>a", "<true/><false/>",
            "<plist><true/></plist>a", "<true/><!-- c -->", "<plist><true/></plist>\n<dict/>",
            "<plist><true/></plist></plist>", "<true/><", "<true/></a>", "<true/><!", "<true/><b c>",
            "<!DOCTYPE plist SYSTEM 'x'><true/>", "<!-- <false/> --><true/>"})
        EXPECT_EQ("<true/>", rewritten(good)) << good;
    EXPECT_EQ("<true/>", rewritten("<plist><true/></plist>\n\0<<<"s));
}

TEST(PropertyListReading, RefusesWhatIsNoListOrMoreThanOne)
{
    for (const std::string bad :
        {"", " ", "a", "<", "<plist/>", "<plist></plist>", "<plist>a</plist>", "<plist><!-- c --></plist>",
            "<plist><true/>a</plist>", "<plist>a<true/></plist>", "<plist><true/><true/></plist>",
            "<plist><![CDATA[a]]><true/></plist>", "<plist><plist><true/></plist></plist>", "<PLIST><true/></PLIST>",
            "<key>a</key>", "<plist><key>a</key></plist>", "a<true/>", "<![CDATA[ ]]><true/>",
            "<plist a='>'><true/></plist>", "<string a=\">\">x</string>", "<plist <><true/></plist>",
            "<plist a=\"><true/></plist>", "< plist><true/></plist>", "<true/ >", "<true", "<plist><true/>",
            "<plist><true/></plis>", "<plist><true/></plist", "<!DOCTYPE plist [<!ENTITY a \"b\">]><true/>",
            "<!DOCTYPE plist []><true/>", "<!DOCTYPE plist SYSTEM \"a>b\"><true/>", "<!ELEMENT a><true/>",
            "<!-- <true/>", "<dict/\0>", "\0<true/>", "{ a = b; }", "<html><body/></html>"})
        EXPECT_EQ(refused, rewritten(bad)) << bad;
}

TEST(PropertyListReading, TakesNoOtherEncodingThanUtf8)
{
    const auto declared = [](const std::string& encoding, const std::string& text) {
        return rewritten("<?xml version=\"1.0\" encoding=\"" + encoding + "\"?><string>" + text + "</string>");
    };
    for (const std::string known : {"UTF-8", "utf-8", "UTF8", "US-ASCII", "us-ascii"})
        EXPECT_EQ("<string>a</string>", declared(known, "a")) << known;
    EXPECT_EQ("<string>\xc3\xa9</string>", declared("UTF-8", "\xc3\xa9"));
    EXPECT_EQ("<string>\xc3\xa9</string>", declared("US-ASCII", "&#233;"));
    EXPECT_EQ(refused, declared("US-ASCII", "\xc3\xa9"));
    EXPECT_EQ(refused, declared("ISO-8859-1", "\xc3\xa9"));
    for (const std::string unknown : {"", "ISO-8859-1", "UTF-16", "utf-16le", "windows-1252", "UTF-7", "UTF-8 ", "x"})
        EXPECT_EQ(refused, declared(unknown, "a")) << unknown;
    EXPECT_EQ(refused, rewritten("\xfe\xff\0<\0t\0r\0u\0e\0/\0>"s));
    EXPECT_EQ(refused, rewritten("\xff\xfe<\0t\0r\0u\0e\0/\0>\0"s));
}

TEST(PropertyListReading, TakesNothingButObjectsInAnArray)
{
    EXPECT_EQ("<array/>", rewritten(document("<array> <!-- c --><?x?>\n</array>")));
    EXPECT_EQ(
        "<array>\n\t<true/>\n\t<false/>\n</array>", rewritten(document("<array><true/> <!-- c --><false/></array>")));
    for (const std::string bad : {"a", "<true/>a", "<key>a</key>", "<true/><key>a</key>", "<![CDATA[ ]]>", "<plist/>",
             "<plist><true/></plist>", "<x/>", "&amp;", "<!DOCTYPE plist>"})
        EXPECT_EQ(refused, rewritten(document("<array>" + bad + "</array>"))) << bad;
}

TEST(PropertyListReading, TakesNothingButKeysWithValuesInADictionary)
{
    EXPECT_EQ("<dict/>", rewritten(document("<dict> <!-- c --></dict>")));
    EXPECT_EQ("<dict>\n\t<key>a</key>\n\t<string>b</string>\n</dict>",
        rewritten(document("<dict><?x?><key>a</key><!-- c --><key>b</key> </dict>")));
    EXPECT_EQ(
        "<dict>\n\t<key></key>\n\t<string></string>\n</dict>", rewritten(document("<dict><key/><string/></dict>")));
    for (const std::string bad :
        {"a", "<key>a</key>", "<true/>", "<key>a</key><true/><key>b</key>", "<string>a</string><true/>",
            "<key>a</key>a<true/>", "<key>a</key><true/><true/>", "<key>a<true/></key><true/>",
            "<key a='>'>a</key><true/>", "<integer>1</integer><true/>", "<key>a</key><x/>"})
        EXPECT_EQ(refused, rewritten(document("<dict>" + bad + "</dict>"))) << bad;
}

TEST(BinaryListReading, MakesEachKindOfObject)
{
    const std::map<std::string, std::string> objects{{"\x08", "<false/>"}, {"\x09", "<true/>"},
        {"\x10\xff", "<integer>255</integer>"}, {"\x11\xff\xff", "<integer>65535</integer>"},
        {"\x12\xff\xff\xff\xff", "<integer>4294967295</integer>"},
        {"\x13" + std::string(8, '\xff'), "<integer>-1</integer>"},
        {"\x13\x80" + std::string(7, '\0'), "<integer>-9223372036854775808</integer>"},
        {"\x14" + std::string(8, '\0') + std::string(8, '\xff'), "<integer>18446744073709551615</integer>"},
        {"\x14" + std::string(15, '\0') + "\x05", "<integer>5</integer>"}, {"\x22\x3f\xc0\0\0"s, "<real>1.5</real>"},
        {"\x22\x3d\xcc\xcc\xcd", "<real>0.10000000149011612</real>"},
        {"\x23\xbf\xf8\0\0\0\0\0\0"s, "<real>-1.5</real>"}, {"\x23\x7f\xf0\0\0\0\0\0\0"s, "<real>+infinity</real>"},
        {"\x33" + std::string(8, '\0'), "<date>2001-01-01T00:00:00Z</date>"}, {"\x40", "<data>\n</data>"},
        {"\x43\x01\x02\x03", "<data>\nAQID\n</data>"}, {"\x50", "<string></string>"},
        {BinaryList::ascii("a"), "<string>a</string>"}, {"\x5f\x10\x03" + "abc"s, "<string>abc</string>"},
        {"\x62\0a\0&"s, "<string>a&amp;</string>"}, {"\x62\xd8\x3d\xde\0"s, "<string>\xf0\x9f\x98\x80</string>"},
        {"\x80\x05", "<dict>\n\t<key>CF$UID</key>\n\t<integer>5</integer>\n</dict>"},
        {"\x83\xff\xff\xff\xff", "<dict>\n\t<key>CF$UID</key>\n\t<integer>4294967295</integer>\n</dict>"},
        {"\xa0", "<array/>"}, {"\xd0", "<dict/>"}};
    for (const auto& [object, expected] : objects)
        EXPECT_EQ(expected, rewritten(binary(object))) << testing::PrintToString(object);
}

/// A binary list of true, of which the trailer and what is before it may be spoilt.
struct Spoilt {
    std::string magic = "bplist00";
    std::string objects = "\x09";
    std::string offsets = "\x08";
    std::string slack;
    char offsetSize = 1;
    char referenceSize = 1;
    size_t count = 1;
    size_t top = 0;

    std::string bytes() const
    {
        const size_t table = magic.size() + objects.size();
        return magic + objects + offsets + slack + std::string(6, '\0') + offsetSize + referenceSize
            + BinaryList::bigEndian(count, 8) + BinaryList::bigEndian(top, 8) + BinaryList::bigEndian(table, 8);
    }
};

TEST(BinaryListReading, RefusesATrailerThatDoesNotFit)
{
    const auto outcome = [](const auto& spoil) {
        Spoilt list;
        spoil(list);
        return rewritten(list.bytes());
    };
    EXPECT_EQ("<true/>", outcome([](Spoilt&) {}));
    EXPECT_EQ("<true/>", outcome([](Spoilt& list) { list.referenceSize = 8; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.slack = "\0"s; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.slack = "slack"; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.magic = "bplist01"; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.referenceSize = 0; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.referenceSize = 9; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.offsetSize = 0; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.offsetSize = 9; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.count = 0; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.count = 2; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.top = 1; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.objects = ""; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.offsets = "\x07"; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.offsets = "\x09"; }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { // of an object that nothing refers to
        list.count = 2;
        list.offsets = "\x08\x20";
    }));
    EXPECT_EQ("<true/>", outcome([](Spoilt& list) { list.objects += std::string(246, '\x09'); }));
    EXPECT_EQ(refused, outcome([](Spoilt& list) { list.objects += std::string(247, '\x09'); })); // ends at 256
}

// --- Harmful input ---------------------------------------------------------------------------------------------------

TEST(HarmfulXml, IsRefusedWhenItNeverEnds)
{
    EXPECT_EQ(nullptr, read(repeated("<array>", 100000)));
    EXPECT_EQ(nullptr, read(repeated("<dict><key>k</key>", 100000)));
    EXPECT_EQ(nullptr, read(repeated("<dict>", 100000)));
    EXPECT_EQ(nullptr, read(repeated("<plist>", 100000)));
    EXPECT_EQ(nullptr, read(repeated("<plist>", 100000) + "<true/>" + repeated("</plist>", 100000)));
}

TEST(HarmfulXml, IsRefusedFromATooDeepLevelOnWhateverFalseEndTagsItHas)
{
    for (const std::string opening : {"<array>", "<array><!-- </array> -->", "<array><!--></array>-->",
             "<array><?x </array>?>", "<array><string><![CDATA[</array>]]></string>"}) {
        const auto nested = [&](size_t depth) { return repeated(opening, depth) + repeated("</array>", depth); };
        EXPECT_NE(nullptr, read(nested(deepest))) << opening;
        EXPECT_EQ(nullptr, read(nested(deepest + 1))) << opening;
        EXPECT_EQ(nullptr, read(nested(100000))) << opening;
    }
}

TEST(HarmfulXml, IsNotWhatStandsInCommentsAndText)
{
    const std::string openings = repeated("<array>", deepest * 2);
    const std::string text = document("<string>x<![CDATA[" + openings + "]]></string>");
    EXPECT_NE(nullptr, read("<!--" + openings + "--><true/>"));
    EXPECT_NE(nullptr, read(text));
    EXPECT_NE(nullptr, read("<?x " + openings + "?><true/>"));
    EXPECT_NE(
        nullptr, read(document("<array>" + repeated("<array/><array /><array></array>", deepest * 2) + "</array>")));
}

TEST(HarmfulXml, IsRefusedWhenCutAnywhere)
{
    const std::string whole = fileText(dataFolder / "writer" / "task_parameter.xml");
    ASSERT_NE(nullptr, read(whole));
    for (size_t length = 0; length < whole.size() - 1; ++length) // the last line break may be missing
        EXPECT_EQ(nullptr, read(whole.substr(0, length))) << length;
}

TEST(HarmfulXml, LosesNothingOfALongTextFullOfEntities)
{
    for (size_t shift = 0; shift < 8; ++shift) {
        const std::string before(shift, 'x');
        const std::string xml = document("<string>" + before + repeated("&lt;&#233;;&amp;", 20000) + "<![CDATA[&lt;]]>"
            + repeated("y", 5000) + "</string>");
        std::u16string expected(shift, u'x');
        for (int i = 0; i < 20000; ++i)
            expected += u"<\u00e9;&";
        expected += u"&lt;" + std::u16string(5000, u'y');
        EXPECT_TRUE(CFEqual(newString(expected).get(), read(xml).get())) << shift;
    }
}

TEST(HarmfulBinaryList, IsRefusedFromATooDeepLevelOn)
{
    const auto nested = [](size_t depth) {
        BinaryList list;
        for (size_t i = 1; i < depth; ++i)
            list.add(BinaryList::array({i}));
        return list.add(BinaryList::array({})).bytes();
    };
    EXPECT_NE(nullptr, read(nested(deepest)));
    EXPECT_EQ(nullptr, read(nested(deepest + 1)));
    EXPECT_EQ(nullptr, read(nested(60000)));
}

TEST(HarmfulBinaryList, IsRefusedWhenALevelIsReachedByALongerWay)
{
    BinaryList list; // the first member is shallow, and the chain that the second starts leads to it again
    list.add(BinaryList::array({deepest, 1}));
    for (size_t i = 1; i < deepest; ++i)
        list.add(BinaryList::array({i + 1}));
    list.add(BinaryList::array({deepest + 1})).add(BinaryList::array({}));
    EXPECT_EQ(nullptr, read(list.bytes()));
}

TEST(HarmfulBinaryList, IsRefusedWhenItContainsItself)
{
    EXPECT_EQ(nullptr, read(binary(BinaryList::array({0}))));
    EXPECT_EQ(nullptr, read(BinaryList().add(BinaryList::array({1})).add(BinaryList::array({0})).bytes()));
    EXPECT_EQ(nullptr, read(BinaryList().add(BinaryList::dictionary({1, 0})).add("\x51k").bytes()));
    EXPECT_EQ(nullptr, read(BinaryList().add(BinaryList::dictionary({0, 1})).add("\x51k").bytes()));
}

TEST(HarmfulBinaryList, IsRefusedWhenSharingMakesItHuge)
{
    BinaryList doubled; // 2^40 strings
    for (size_t i = 0; i < 40; ++i)
        doubled.add(BinaryList::array({i + 1, i + 1}));
    EXPECT_EQ(nullptr, read(doubled.add("\x51x").bytes()));
}

TEST(HarmfulBinaryList, IsRefusedWhenSharingMakesItsTextHuge)
{
    const size_t length = 60000; // as often: 3.6 GB
    BinaryList list;
    list.add(BinaryList::array(std::vector<size_t>(length, 1)));
    EXPECT_EQ(nullptr, read(list.add("\x4f\x11" + BinaryList::bigEndian(length, 2) + sequence(length)).bytes()));
}

TEST(PropertyListReading, SharesNoContainerThatCanBeChanged)
{
    const std::string bytes
        = BinaryList().add(BinaryList::array({1, 1, 1})).add(BinaryList::array({2})).add(BinaryList::array({})).bytes();
    const OwnedObject list = read(bytes, kCFPropertyListMutableContainers);
    const auto member = [](CFTypeRef array, CFIndex index) {
        const void* value = CFArrayGetValueAtIndex(static_cast<CFArrayRef>(array), index);
        return static_cast<CFMutableArrayRef>(const_cast<void*>(value));
    };
    CFArrayAppendValue(member(list.get(), 0), kCFBooleanTrue);
    CFArrayAppendValue(member(member(list.get(), 1), 0), kCFBooleanTrue);
    EXPECT_EQ(2, CFArrayGetCount(member(list.get(), 0)));
    EXPECT_EQ(0, CFArrayGetCount(member(member(list.get(), 0), 0)));
    EXPECT_EQ(1, CFArrayGetCount(member(member(list.get(), 1), 0)));
    EXPECT_EQ(1, CFArrayGetCount(member(list.get(), 2)));
    EXPECT_EQ(0, CFArrayGetCount(member(member(list.get(), 2), 0)));
}

TEST(HarmfulBinaryList, IsRefusedWhenItsObjectsOverlap)
{
    // every object is the same 60000 references in the file, so that these few bytes stand for 60000 arrays of that
    // many
    std::vector<size_t> members(60000);
    for (size_t i = 0; i < members.size(); ++i)
        members[i] = i + 1;
    const std::string top = "bplist00" + BinaryList::array(members);
    const std::string inner = BinaryList::array(std::vector<size_t>(60000, 60001));
    const size_t innerAt = top.size();
    const size_t leafAt = innerAt + inner.size();
    std::string offsets = BinaryList::bigEndian(8, 4);
    for (size_t i = 0; i < members.size(); ++i)
        offsets += BinaryList::bigEndian(innerAt, 4);
    offsets += BinaryList::bigEndian(leafAt, 4);
    EXPECT_EQ(nullptr,
        read(top + inner + "\x09" + offsets + std::string(6, '\0') + "\x04\x02" + BinaryList::bigEndian(60002, 8)
            + BinaryList::bigEndian(0, 8) + BinaryList::bigEndian(leafAt + 1, 8)));
}

TEST(HarmfulBinaryList, MayShareWhatItSharesRightly)
{
    BinaryList list; // 20000 dictionaries with the same keys
    std::vector<size_t> members;
    for (size_t i = 0; i < 20000; ++i)
        members.push_back(i + 4);
    list.add(BinaryList::array(members));
    list.add(BinaryList::ascii("a-shared-key-1")).add(BinaryList::ascii("a-shared-key-2")).add("\x09");
    for (size_t i = 0; i < 20000; ++i)
        list.add(BinaryList::dictionary({1, 2, 3, 3}));
    const OwnedObject shared = read(list.bytes());
    ASSERT_NE(nullptr, shared);
    EXPECT_EQ(20000, CFArrayGetCount(static_cast<CFArrayRef>(shared.get())));
}

TEST(HarmfulBinaryList, IsRefusedWhenAnObjectIsNotWhatItMustBe)
{
    const std::map<std::string, std::string> objects{{"null", "\0"s}, {"fill", "\x0f"},
        {"integer of 32 bytes", "\x15" + std::string(32, '\1')},
        {"negative integer of 16 bytes", "\x14" + std::string(16, '\xff')},
        {"integer of 65 bits", "\x14" + std::string(7, '\0') + "\1" + std::string(8, '\0')},
        {"real of 2 bytes", "\x21" + std::string(16, '\1')}, {"real of 16 bytes", "\x24" + std::string(16, '\1')},
        {"date of 4 bytes", "\x32" + std::string(16, '\1')}, {"date of 2 bytes", "\x31" + std::string(16, '\1')},
        {"string with U+0000", BinaryList::ascii("a\0b"s)}, {"string not ASCII", "\x52\xc3\xa9"},
        {"UTF-16 with U+0000", "\x61\0\0"s}, {"lone first surrogate", "\x62\xd8\x3d\0x"s},
        {"first surrogate at the end", "\x61\xd8\x3d"}, {"lone second surrogate", "\x61\xde\0"s}, {"set", "\xc1\0\0"s},
        {"count of no integer", "\x5f\x51x"}, {"count of 16 bytes", "\x5f\x14" + std::string(15, '\0') + "\1x"},
        {"count beyond the end", "\x5f\x13" + std::string(8, '\x7f')},
        {"UTF-16 count that overflows", "\x6f\x13\x80" + std::string(7, '\0') + "x"},
        {"array count that overflows", "\xaf\x13\x80" + std::string(7, '\0') + "x"},
        {"reference to nothing", "\xa1\0\7"s}, {"dictionary without a value", "\xd1\0\0"s}, {"unknown type", "\x70"},
        {"UID of 2^32", "\x84\1\0\0\0\0"s}, {"UID of 16 bytes", "\x8f" + std::string(16, '\0')},
        {"empty UTF-16", "\x60"}, {"float cut off", "\x22\x3f"}, {"nothing", ""}};
    for (const auto& [name, object] : objects)
        EXPECT_EQ(nullptr, read(binary(object))) << name;
}

TEST(HarmfulBinaryList, IsRefusedWhenAKeyIsNoString)
{
    EXPECT_NE(nullptr, read(BinaryList().add(BinaryList::dictionary({1, 2})).add("\x51k").add("\x09").bytes()));
    EXPECT_EQ(nullptr, read(BinaryList().add(BinaryList::dictionary({2, 1})).add("\x51k").add("\x09").bytes()));
}

TEST(HarmfulBinaryList, IsRefusedWhenCutAnywhere)
{
    const std::string whole = binaryOf(read(fileText(dataFolder / "writer" / "task_parameter.xml")).get());
    ASSERT_NE(nullptr, read(whole));
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(nullptr, read(whole.substr(0, length))) << length;
}

TEST(HarmfulBinaryList, IsRefusedOrReadWhicheverBitIsWrong)
{
    const std::string whole = binaryOf(read(fileText(dataFolder / "writer" / "task_parameter.xml")).get());
    size_t readable = 0;
    for (size_t bit = 0; bit < whole.size() * 8; ++bit) {
        std::string spoilt = whole;
        spoilt[bit / 8] = static_cast<char>(spoilt[bit / 8] ^ 1 << bit % 8);
        const OwnedObject list = read(spoilt);
        const std::string xml = list != nullptr ? written(list.get()) : refused; // a spoilt date may not be writable
        readable += list != nullptr;
        EXPECT_TRUE(xml == refused || read(xml) != nullptr) << "bit " << bit;
    }
    EXPECT_GT(readable, 0U);
    EXPECT_LT(readable, whole.size() * 8);
}

// --- Copying ---------------------------------------------------------------------------------------------------------

TEST(PropertyListDeepCopy, HasNewMutableContainersAtEveryLevelAndLeavesTheOriginalAlone)
{
    for (const CFOptionFlags asked : {kCFPropertyListMutableContainers, kCFPropertyListMutableContainersAndLeaves})
        for (const CFOptionFlags options : {kCFPropertyListImmutable, kCFPropertyListMutableContainers}) {
            const OwnedObject list = read(outerAndInner, options);
            const OwnedObject copy = deepCopy(list.get(), asked);
            EXPECT_NE(list.get(), copy.get());
            EXPECT_EQ(changed, countsAfterAdding(copy.get()));
            EXPECT_TRUE(CFEqual(read(outerAndInner).get(), list.get()));
        }
}

TEST(PropertyListDeepCopy, OfALeafIsALeaf)
{
    const OwnedObject string = newString(u"leaf");
    EXPECT_TRUE(CFEqual(string.get(), deepCopy(string.get()).get()));
    EXPECT_EQ(kCFBooleanFalse, deepCopy(kCFBooleanFalse).get());
}

TEST(PropertyListDeepCopy, GoesAsDeepAsReadingAndNoDeeper)
{
    EXPECT_TRUE(CFEqual(nestedArrays(deepest).get(), deepCopy(nestedArrays(deepest).get()).get()));
    EXPECT_EQ(nullptr, deepCopy(nestedArrays(deepest + 1).get()));
    EXPECT_EQ(nullptr, deepCopy(nestedDictionaries(100000).get()));
}

TEST(PropertyListDeepCopy, KeepsLeavesThatTheOriginalReleases)
{
    auto list = newArray({newString(u"leaf").get()});
    const OwnedObject copy = deepCopy(list.get());
    list.reset();
    EXPECT_TRUE(CFEqual(newString(u"leaf").get(), CFArrayGetValueAtIndex(static_cast<CFArrayRef>(copy.get()), 0)));
}

// --- Threads ---------------------------------------------------------------------------------------------------------

TEST(PropertyLists, AreReadWrittenAndCopiedByManyThreadsAtOnce)
{
    const std::string xml = fileText(dataFolder / "writer" / "task_parameter.xml");
    const OwnedObject shared = read(xml);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                EXPECT_EQ(xml, written(shared.get()));
                EXPECT_EQ(xml, written(deepCopy(read(xml).get()).get()));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
