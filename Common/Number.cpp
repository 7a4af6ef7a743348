#include "Number.h"

#include <cstdlib>
#include <string>

int orv::toInt(const std::string& text)
{
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}
