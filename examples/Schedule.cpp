#include "Schedule.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Words = std::vector<std::string>;

struct Field {
    int lowest;
    int highest;
    Words names; // of the values, from the lowest
};

const std::array<Field, 5> fields = {{{0, 59, {}}, {0, 23, {}}, {1, 31, {}},
    {1, 12, {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"}},
    {0, 7, {"sun", "mon", "tue", "wed", "thu", "fri", "sat"}}}};

const Words words = {"@reboot", "@yearly", "@annually", "@monthly", "@weekly", "@daily", "@midnight", "@hourly"};

constexpr int none = -1;

Words split(const std::string& text, char separator)
{
    Words parts(1);
    for (const char character : text)
        if (character == separator)
            parts.emplace_back();
        else
            parts.back() += character;
    return parts;
}

int numberOf(const std::string& text)
{
    int number = none;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && *stop == '\0' && number >= 0 ? number : none;
}

int valueOf(std::string text, const Field& field)
{
    for (char& character : text)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    const auto name = std::find(field.names.begin(), field.names.end(), text);
    const int value
        = name != field.names.end() ? static_cast<int>(name - field.names.begin()) + field.lowest : numberOf(text);
    return value >= field.lowest && value <= field.highest ? value : none;
}

bool isRange(const std::string& text, const Field& field)
{
    const Words ends = split(text, '-');
    const int first = valueOf(ends.front(), field);
    const int last = valueOf(ends.back(), field);
    return text == "*" || (ends.size() <= 2 && first != none && first <= last);
}

// "7", "1-5" or "*", the last two also with a step: "1-5/2".
bool isItem(const std::string& text, const Field& field)
{
    const Words parts = split(text, '/');
    const bool hasStep = parts.size() == 2;
    const bool takesStep = text[0] == '*' || text.find('-') != std::string::npos;
    return isRange(parts.front(), field) && (parts.size() == 1 || (hasStep && takesStep && numberOf(parts.back()) > 0));
}

bool isField(const std::string& text, const Field& field)
{
    const Words items = split(text, ',');
    return std::all_of(items.begin(), items.end(), [&](const std::string& item) { return isItem(item, field); });
}

} // namespace

bool isSchedule(const std::string& text)
{
    const Words given = split(text, ' ');
    return std::find(words.begin(), words.end(), text) != words.end()
        || (given.size() == fields.size() && std::equal(given.begin(), given.end(), fields.begin(), isField));
}
