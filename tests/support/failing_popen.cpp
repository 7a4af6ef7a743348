// A library to be loaded before the C library: the calls of popen whose numbers (from 1) stand in FAILING_POPEN_CALLS,
// separated by commas, fail as they do when the system has no process left.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string>

extern "C" __attribute__((visibility("default"))) FILE* popen(const char* command, const char* mode)
{
    static int calls = 0;
    const char* const failing = std::getenv("FAILING_POPEN_CALLS");
    const std::string list = std::string(",") + (failing == nullptr ? "" : failing) + ",";
    if (list.find("," + std::to_string(++calls) + ",") != std::string::npos) {
        errno = EAGAIN;
        return nullptr;
    }
    using Popen = FILE* (*)(const char*, const char*);
    static const auto next = reinterpret_cast<Popen>(dlsym(RTLD_NEXT, "popen"));
    return next(command, mode);
}
