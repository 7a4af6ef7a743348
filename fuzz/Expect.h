#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, so that the fuzzer keeps the input, if what must hold does not.
#define EXPECT(condition)                                                                                              \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                               \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)
