#pragma once

#include <cstddef>
#include <string>

// Other people's texts on root's terminal: nothing in them may steer it or mislead the reader, and nothing is wider
// than 80 columns.

/// The columns that a line may take.
constexpr std::size_t terminalColumns = 80;

/// `text` with all that is no visible character of UTF-8 written out byte by byte, "\x1b": control characters,
/// invisible ones, those that turn the direction of writing, and bytes that are not UTF-8. Tab and line feed are "\t"
/// and "\n". A backslash before what would then look like one of these is doubled.
std::string visible(const std::string& text);

/// The columns that `shown` takes, which is what visible() gives: most characters one, those of East Asia and pictures
/// two, accents that are put over another character none.
std::size_t columnsOf(const std::string& shown);

/// `shown` if it takes at most `width` columns, else as many of its characters as leave room for a "~" behind them.
std::string cut(const std::string& shown, std::size_t width);

/// cut(shown, width), with blanks behind it up to `width` columns.
std::string padded(const std::string& shown, std::size_t width);

/// `shown` as lines of at most 80 columns, each with a line feed. What does not fit goes on in the next line, in the
/// column `indent` (from 0, at least 1), with a "~" before it.
std::string wrapped(const std::string& shown, std::size_t indent);
