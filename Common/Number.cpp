#include "Number.h"

#include <cstdint>
#include <limits>

int orv::toInt(std::string_view text)
{
    const auto digit = [&text] { return !text.empty() && text.front() >= '0' && text.front() <= '9'; };

    const std::size_t begin = text.find_first_not_of(" \t\n\v\f\r");
    text.remove_prefix(begin == std::string_view::npos ? text.size() : begin);
    const bool negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+'))
        text.remove_prefix(1);

    constexpr std::int64_t beyond = std::int64_t(std::numeric_limits<int>::max()) + 1; // as far as INT_MIN is from 0
    std::int64_t number = 0;
    for (; digit() && number <= beyond; text.remove_prefix(1))
        number = number * 10 + (text.front() - '0');
    if (negative)
        return static_cast<int>(number < beyond ? -number : -beyond);
    return static_cast<int>(number < beyond ? number : beyond - 1);
}
