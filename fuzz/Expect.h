#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the process if `condition` is false, so that the fuzzer keeps the input.
#define EXPECT(condition)                                                                                              \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: false: %s\n", __FILE__, __LINE__, #condition);                                \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)

/// The same for two texts that must be equal. Prints both if they differ.
#define EXPECT_SAME(found, expected) expectSame(__FILE__, __LINE__, found, expected)

/// `text` as a string literal would hold it.
inline std::string quoted(const std::string& text)
{
    std::string out = "\"";
    for (const char character : text) {
        char code[8] = {character, '\0'};
        if (character == '\n')
            std::snprintf(code, sizeof code, "\\n");
        else if (character < ' ' || character > '~' || character == '"' || character == '\\')
            std::snprintf(code, sizeof code, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(character)));
        out += code;
    }
    return out + "\"";
}

inline void expectSame(const char* file, int line, const std::string& found, const std::string& expected)
{
    if (found == expected)
        return;
    std::fprintf(stderr, "%s:%d: found    %s\n%s:%d: expected %s\n", file, line, quoted(found).c_str(), file, line,
        quoted(expected).c_str());
    std::abort();
}
