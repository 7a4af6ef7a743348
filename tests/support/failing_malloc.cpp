// A library to be loaded before the C library: of the requests for memory that the program makes, or the C library for
// it, the one whose number (from 1) stands in FAILING_MALLOC is refused; so is each after it, if a "+" follows. At its
// end the program writes how many there were to the file that FAILING_MALLOC_COUNT names. What the program starts gets
// all the memory it asks for, and so does the first look-up of an account: glibc 2.36 sets itself up there, and without
// memory ends the process, by an assertion in nss_database.c or by a null pointer in __nss_passwd_lookup2.
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>
#include <utility>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

bool gCounting = false;
long gRequests = 0;
long gRefused = 0;
bool gFromThenOn = false;
char gCountFile[256];

bool refuse()
{
    if (!gCounting)
        return false;
    ++gRequests;
    const bool refused = gRequests == gRefused || (gFromThenOn && gRefused > 0 && gRequests > gRefused);
    if (refused)
        errno = ENOMEM;
    return refused;
}

__attribute__((constructor)) void start()
{
    const char* const which = std::getenv("FAILING_MALLOC");
    const char* const file = std::getenv("FAILING_MALLOC_COUNT");
    if (which == nullptr || file == nullptr || std::strlen(file) >= sizeof gCountFile)
        _exit(99);
    gRefused = std::atol(which);
    gFromThenOn = std::strchr(which, '+') != nullptr;
    std::strcpy(gCountFile, file); // NOLINT(clang-analyzer-security.insecureAPI.strcpy): its length has been looked at
    unsetenv("LD_PRELOAD");
    unsetenv("FAILING_MALLOC");
    unsetenv("FAILING_MALLOC_COUNT");
    gCounting = true;
}

__attribute__((destructor)) void end()
{
    gCounting = false;
    const int file = open(gCountFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    char digits[20];
    std::size_t size = 0;
    for (long rest = gRequests; rest > 0; rest /= 10)
        digits[sizeof digits - ++size] = static_cast<char>('0' + rest % 10);
    if (write(file, digits + sizeof digits - size, size) < 0 || close(file) != 0)
        _exit(98);
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    return refuse() ? nullptr : __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size)
{
    return refuse() ? nullptr : __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size)
{
    return refuse() ? nullptr : __libc_realloc(block, size);
}

__attribute__((visibility("default"))) int getpwuid_r(
    uid_t uid, passwd* entry, char* strings, std::size_t size, passwd** found)
{
    using LookUp = int (*)(uid_t, passwd*, char*, std::size_t, passwd**);
    static bool setUp = false;
    const bool counting = std::exchange(gCounting, gCounting && setUp);
    static const auto next = reinterpret_cast<LookUp>(dlsym(RTLD_NEXT, "getpwuid_r"));
    const int result = next(uid, entry, strings, size, found);
    gCounting = counting;
    setUp = true;
    return result;
}
}
