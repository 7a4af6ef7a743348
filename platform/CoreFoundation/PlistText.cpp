#include "PropertyList.h"

#include "Utf.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <locale.h>
#include <strings.h>
#include <system_error>

namespace OrvCF {
namespace {

constexpr auto nowhere = std::string_view::npos;

// --- References ------------------------------------------------------------------------------------------------------

constexpr std::pair<std::string_view, char32_t> namedCharacters[]
    = {{"amp", U'&'}, {"lt", U'<'}, {"gt", U'>'}, {"quot", U'"'}, {"apos", U'\''}};

constexpr size_t maxDigits = 7; // U+10FFFF is 1114111

template <class T> T numberFrom(std::string_view digits, int base)
{
    T value = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, value, base);
    require(result.ec == std::errc() && result.ptr == end);
    return value;
}

/// The character that &`name`; refers to.
char32_t characterNamed(std::string_view name)
{
    for (const auto& [known, character] : namedCharacters)
        if (name == known)
            return character;
    require(name.substr(0, 1) == "#");
    const bool isHex = name.substr(1, 1) == "x";
    const std::string_view digits = name.substr(isHex ? 2 : 1);
    require(digits.size() <= maxDigits);
    const auto character = numberFrom<uint32_t>(digits, isHex ? 16 : 10);
    require(character != 0 && isCharacter(character));
    return character;
}

// --- Numbers ---------------------------------------------------------------------------------------------------------

void dropSpaces(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
}

bool dropSign(std::string_view& text)
{
    const bool isNegative = text.substr(0, 1) == "-";
    if (isNegative || text.substr(0, 1) == "+")
        text.remove_prefix(1);
    return isNegative;
}

/// The reals that are words, in upper or lower case.
constexpr std::string_view realWords[] = {"nan", "inf", "+inf", "-inf", "infinity", "+infinity", "-infinity"};

bool isRealWord(std::string_view text)
{
    return std::any_of(std::begin(realWords), std::end(realWords), [&](std::string_view word) {
        return text.size() == word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
    });
}

// --- Dates -----------------------------------------------------------------------------------------------------------

constexpr int64_t daysIn400Years = 146097;
constexpr int64_t secondsOfDay = 86400;
constexpr int64_t daysTo2001 = 730791; // from the first of March of the year 0
constexpr double firstSecond = -63145526400; // 0000-01-01T00:00:00Z
constexpr double lastSecond = 252423993599; // 9999-12-31T23:59:59Z

/// A date in years that begin in March, so that a leap day is the last of its year.
struct MarchDate {
    int64_t year; ///< not negative
    int64_t month; ///< from 0
    int64_t day; ///< from 0
};

int64_t daysToMonth(int64_t month)
{
    return (153 * month + 2) / 5;
}

int64_t daysToYear(int64_t year)
{
    return year * 365 + year / 4 - year / 100 + year / 400;
}

MarchDate marchDate(int64_t days)
{
    int64_t year = days * 400 / daysIn400Years + 1; // right, or one too high
    year -= daysToYear(year) > days;
    const int64_t dayOfYear = days - daysToYear(year);
    const int64_t month = (5 * dayOfYear + 2) / 153;
    return {year, month, dayOfYear - daysToMonth(month)};
}

// --- Base64 ----------------------------------------------------------------------------------------------------------

constexpr std::string_view base64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

void appendDecoded(std::string& bytes, std::string_view text)
{
    constexpr size_t longest = std::string_view("&#x;").size() + maxDigits;
    for (size_t at = text.find('&'); at != nowhere; at = text.find('&')) {
        bytes += text.substr(0, at);
        text.remove_prefix(at);
        const size_t end = text.substr(0, longest).find(';');
        require(end != nowhere);
        appendUtf8(bytes, characterNamed(text.substr(1, end - 1)));
        text.remove_prefix(end + 1);
    }
    bytes += text;
}

OrvCFNumber::Value integerFrom(std::string_view text)
{
    constexpr auto highest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    dropSpaces(text);
    const bool isNegative = dropSign(text);
    dropSpaces(text);
    const bool isHex = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    const auto size = numberFrom<uint64_t>(text.substr(isHex ? 2 : 0), isHex ? 16 : 10);
    if (!isNegative && size > highest)
        return size;
    require(size <= highest + 1);
    return static_cast<int64_t>(isNegative ? 0 - size : size);
}

double realFrom(std::string_view text)
{
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr); // allocates no memory
    if (!isRealWord(text)) {
        dropSpaces(text);
        require(!text.empty() && text.find_first_not_of("0123456789+-.eE") == nowhere);
    }
    const std::string number(text);
    char* end = nullptr;
    const double value = strtod_l(number.c_str(), &end, classic);
    require(end == number.c_str() + number.size());
    return value;
}

double secondsFrom(std::string_view text)
{
    constexpr std::string_view form = "0000-00-00T00:00:00Z"; // a zero for each digit
    require(std::equal(text.begin(), text.end(), form.begin(), form.end(),
        [](char given, char expected) { return expected == '0' ? given >= '0' && given <= '9' : given == expected; }));
    const auto field = [&](size_t at, size_t digits, int64_t lowest, int64_t highest) {
        const auto value = numberFrom<int64_t>(text.substr(at, digits), 10);
        require(value >= lowest && value <= highest);
        return value;
    };
    const int64_t month = field(5, 2, 1, 12);
    const int64_t marchYear = field(0, 4, 0, 9999) + 400 - (month < 3); // 400 years later, so that it is not negative
    const int64_t day = field(8, 2, 1, 31) - 1;
    const int64_t days = daysToYear(marchYear) - daysIn400Years + daysToMonth((month + 9) % 12) + day - daysTo2001;
    const int64_t time = field(11, 2, 0, 23) * 3600 + field(14, 2, 0, 59) * 60 + field(17, 2, 0, 59);
    return static_cast<double>(days * secondsOfDay + time);
}

std::string bytesFrom(std::string_view text)
{
    std::string bytes;
    uint32_t bits = 0;
    size_t taken = 0; // digits of the present group of four
    size_t padding = 0; // how many of them are "=", which take a byte each off the group's three
    for (const char character : text) {
        const bool isPadding = character == '=';
        const size_t digit = isPadding ? 0 : base64Digits.find(character);
        if (digit == nowhere)
            continue;
        require(isPadding ? taken >= 2 : padding == 0);
        bits = bits << 6 | static_cast<uint32_t>(digit);
        padding += isPadding;
        if (++taken < 4)
            continue;
        for (size_t i = 0; i < 3 - padding; ++i)
            bytes += static_cast<char>(bits >> (16 - 8 * i) & 0xff);
        taken = padding = 0;
    }
    return bytes;
}

void appendEscaped(std::string& to, std::u16string_view units)
{
    const auto text = utf8FromUtf16(units);
    require(text && text->find('\0') == nowhere);
    for (const char character : *text) {
        if (character == '&')
            to += "&amp;";
        else if (character == '<')
            to += "&lt;";
        else if (character == '>')
            to += "&gt;";
        else
            to += character;
    }
}

void appendReal(std::string& to, double value)
{
    std::array<char, 32> text{};
    if (std::isnan(value))
        to += "nan";
    else if (std::isinf(value))
        to += value > 0 ? "+infinity" : "-infinity";
    else if (value == 0)
        to += "0.0";
    else
        to.append(text.data(),
            std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 17).ptr);
}

void appendDate(std::string& to, double seconds)
{
    const double whole = std::floor(seconds);
    require(whole >= firstSecond && whole <= lastSecond); // false for not-a-number
    const int64_t sinceMarch0 = static_cast<int64_t>(whole) + (daysTo2001 + daysIn400Years) * secondsOfDay;
    const MarchDate date = marchDate(sinceMarch0 / secondsOfDay);
    const int64_t time = sinceMarch0 % secondsOfDay;
    const bool isNextYear = date.month >= 10;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ",
        static_cast<int>(date.year - 400 + isNextYear), static_cast<int>((date.month + 2) % 12 + 1),
        static_cast<int>(date.day + 1), static_cast<int>(time / 3600), static_cast<int>(time / 60 % 60),
        static_cast<int>(time % 60));
    to += text.data();
}

void appendBase64(std::string& to, std::string_view bytes)
{
    for (; !bytes.empty(); bytes.remove_prefix(std::min<size_t>(bytes.size(), 3))) {
        uint32_t bits = 0;
        for (size_t i = 0; i < 3; ++i)
            bits = bits << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        for (size_t i = 0; i < 4; ++i)
            to += i <= bytes.size() ? base64Digits[bits >> (18 - 6 * i) & 0x3f] : '=';
    }
}

} // namespace OrvCF
