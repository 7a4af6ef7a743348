// Reads any text as a time stamp, and compares the result with that of a second reader. Also writes any moment as a
// time stamp, and reads it back.
//
// Input: eight bytes of a moment, then a text.
#include "Expect.h"
#include "TaskInterface.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

extern "C" void LogMsg(int, const char*, ...) { } // moments without a local time are expected here

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setenv("TZ", "Europe/Berlin", 1);
    return 0;
}

namespace {

int asInt(const std::string& field)
{
    return static_cast<int>(strtoll(field.c_str(), nullptr, 10));
}

// The first nine fields. If there are fewer, they repeat from the beginning.
std::vector<int> nineFields(const std::string& text)
{
    std::vector<std::string> fields(1);
    for (const char c : text) {
        if (c == ',')
            fields.emplace_back();
        else
            fields.back() += c;
    }
    std::vector<int> numbers;
    for (std::size_t i = 0; i < 9; ++i)
        numbers.push_back(asInt(fields[i % fields.size()]));
    return numbers;
}

time_t expectedMoment(const std::string& text)
{
    const std::vector<int> f = nineFields(text);
    tm local{};
    local.tm_sec = f[0];
    local.tm_min = f[1];
    local.tm_hour = f[2];
    local.tm_mday = f[3];
    local.tm_mon = f[4];
    local.tm_year = f[5];
    local.tm_wday = f[6];
    local.tm_yday = f[7];
    local.tm_isdst = f[8];
    return mktime(&local);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    long moment = 0;
    if (size < sizeof moment)
        return 0;
    std::memcpy(&moment, data, sizeof moment);
    const std::string stamp = convertTmToString(moment);
    EXPECT(stamp.empty() || (stamp.back() == ',' && stamp.size() < 100));
    // Before 1970, clocks were also set back when no daylight-saving time ended. The flag does not tell those hours
    // apart.
    EXPECT(stamp.empty() || moment < 0 || convertStringToTm(stamp) == moment);

    const std::string text(reinterpret_cast<const char*>(data) + sizeof moment, size - sizeof moment);
    EXPECT_SAME(std::to_string(convertStringToTm(text)), std::to_string(expectedMoment(text)));
    return 0;
}
