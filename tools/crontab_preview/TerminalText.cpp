#include "TerminalText.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

constexpr Range unseen[] = {{0, 0x1f}, {0x7f, 0x9f}, {0xad, 0xad}, {0x61c, 0x61c}, {0x180e, 0x180e}, {0x200b, 0x200f},
    {0x2028, 0x202e}, {0x2060, 0x206f}, {0xd800, 0xdfff}, {0xfeff, 0xfeff}, {0xfff9, 0xfffb}, {0xe0000, 0xe0fff}};
constexpr Range accents[]
    = {{0x300, 0x36f}, {0x1ab0, 0x1aff}, {0x1dc0, 0x1dff}, {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f}};
constexpr Range wide[] = {{0x1100, 0x115f}, {0x2e80, 0x303e}, {0x3041, 0xa4cf}, {0xa960, 0xa97f}, {0xac00, 0xd7a3},
    {0xf900, 0xfaff}, {0xfe30, 0xfe6f}, {0xff01, 0xff60}, {0xffe0, 0xffe6}, {0x1f000, 0x1faff}, {0x20000, 0x3ffff}};

template <std::size_t size> bool isIn(const Range (&ranges)[size], char32_t code)
{
    return std::any_of(std::begin(ranges), std::end(ranges),
        [code](const Range& range) { return code >= range.first && code <= range.last; });
}

// A UTF-8 character.
struct Character {
    char32_t code = 0;
    std::size_t bytes = 0; // how many it takes; 0 if the text has no valid character here
};

Character characterAt(const std::string& text, std::size_t position)
{
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000}; // by number of bytes: longer forms are not valid
    constexpr char32_t largest = 0x10ffff;
    const auto byteAt = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byteAt(position);
    const std::size_t bytes = first < 0x80 ? 1 : first < 0xc0 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (bytes == 0 || first >= 0xf8 || text.size() - position < bytes)
        return {};
    char32_t code = bytes == 1 ? first : first & (0x7fU >> bytes);
    for (std::size_t i = position + 1; i < position + bytes; ++i) {
        if ((byteAt(i) & 0xc0U) != 0x80)
            return {};
        code = code << 6U | (byteAt(i) & 0x3fU);
    }
    return code < smallest[bytes] || code > largest ? Character{} : Character{code, bytes};
}

std::size_t widthOf(char32_t code)
{
    return isIn(accents, code) ? 0 : isIn(wide, code) ? 2 : 1;
}

std::string writtenOut(char byte)
{
    if (byte == '\t')
        return "\\t";
    if (byte == '\n')
        return "\\n";
    char text[5];
    std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(byte));
    return text;
}

// The end of the text that begins at `begin` and fits into `width` columns.
std::size_t fittingEnd(const std::string& shown, std::size_t begin, std::size_t width)
{
    std::size_t used = 0;
    std::size_t end = begin;
    while (end < shown.size()) {
        const Character character = characterAt(shown, end);
        used += widthOf(character.code);
        if (used > width)
            break;
        end += std::max<std::size_t>(character.bytes, 1);
    }
    return end;
}

} // namespace

std::string visible(const std::string& text)
{
    std::string shown;
    bool backslash = false; // whether the previous character is one
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        const std::size_t end = i + std::max<std::size_t>(character.bytes, 1);
        const bool isShown = character.bytes > 0 && !isIn(unseen, character.code);
        if (backslash && (!isShown || std::strchr("\\ntx", text[i]) != nullptr))
            shown += '\\';
        if (isShown)
            shown += text.substr(i, end - i);
        else
            for (std::size_t byte = i; byte < end; ++byte)
                shown += writtenOut(text[byte]);
        backslash = text[i] == '\\';
        i = end;
    }
    return shown;
}

std::size_t columnsOf(const std::string& shown)
{
    std::size_t columns = 0;
    for (std::size_t i = 0; i < shown.size();) {
        const Character character = characterAt(shown, i);
        columns += widthOf(character.code);
        i += std::max<std::size_t>(character.bytes, 1);
    }
    return columns;
}

std::string cut(const std::string& shown, std::size_t width)
{
    if (columnsOf(shown) <= width)
        return shown;
    return width < 2 ? std::string(width, '~') : shown.substr(0, fittingEnd(shown, 0, width - 1)) + "~";
}

std::string padded(const std::string& shown, std::size_t width)
{
    const std::string fitting = cut(shown, width);
    return fitting + std::string(width - columnsOf(fitting), ' ');
}

std::string wrapped(const std::string& shown, std::size_t indent)
{
    std::size_t end = fittingEnd(shown, 0, terminalColumns);
    std::string lines = shown.substr(0, end) + "\n";
    while (end < shown.size()) {
        const std::size_t begin = end;
        end = fittingEnd(shown, begin, terminalColumns - indent);
        lines += std::string(indent - 1, ' ') + "~" + shown.substr(begin, end - begin) + "\n";
    }
    return lines;
}
