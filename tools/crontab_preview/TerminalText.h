#pragma once

#include <cstddef>
#include <string>

// Other people's text on root's terminal. Nothing in it may control the terminal or mislead the reader, and no line may
// be wider than the terminal.

/// The width of a line.
constexpr std::size_t terminalColumns = 80;

/// `text` with each byte written out, as in "\x1b", that is not part of a visible UTF-8 character. Control characters
/// are not visible, nor are those that change the direction of writing. A tab becomes "\t", a line feed "\n". A
/// backslash that would look like the beginning of one of these is doubled.
std::string visible(const std::string& text);

/// The number of columns that a text from visible() takes. East Asian characters and pictures take two, combining
/// accents none, all others one.
std::size_t columnsOf(const std::string& shown);

/// `shown` if it fits into `width` columns, else as many of its characters as fit before a final "~".
std::string cut(const std::string& shown, std::size_t width);

/// cut(shown, width), padded with blanks to `width` columns.
std::string padded(const std::string& shown, std::size_t width);

/// `shown` as lines of at most 80 columns, each with a line feed. Each line but the first has a "~" before its text,
/// which begins in column `indent` (counted from 0, and at least 1).
std::string wrapped(const std::string& shown, std::size_t indent);
