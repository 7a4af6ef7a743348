#include "FailingMemory.h"
#include "FailingVfs.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <pwd.h>
#include <sqlite3.h>
#include <stdexcept>
#include <string>

namespace support {

namespace {

// Where the code of a shared library lies.
struct Library {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;

    bool holds(const void* code) const
    {
        const auto address = reinterpret_cast<std::uintptr_t>(code);
        return address >= begin && address < end;
    }
};

Library gSqlite;

struct Plan {
    bool armed = false;
    long n = 0;
    Failing how = Failing::once;
    FailingMemory::Of whom = FailingMemory::Of::everybody;
    long requests = 0;
    long failures = 0;
    const char* within = ""; // where the first refused request was made
    std::array<void*, 48> frames{}; // of the first refused request
    int depth = 0;
};

Plan gPlan;
const char* gWithin = "";
thread_local bool gCounting = false; // this thread's requests
std::atomic<long> gBlocks{0};

int locate(dl_phdr_info* info, std::size_t, void*)
{
    if (std::strstr(info->dlpi_name, "/libsqlite3.so") == nullptr)
        return 0;
    gSqlite.begin = info->dlpi_addr;
    for (int i = 0; i < info->dlpi_phnum; ++i)
        gSqlite.end = std::max(gSqlite.end, info->dlpi_addr + info->dlpi_phdr[i].p_vaddr + info->dlpi_phdr[i].p_memsz);
    return 0;
}

bool isSqlites(const void* caller)
{
    return gSqlite.holds(caller);
}

bool refusedNow()
{
    ++gPlan.requests;
    if (gPlan.requests < gPlan.n || (gPlan.how == Failing::once && gPlan.requests > gPlan.n))
        return false;
    if (gPlan.failures++ == 0) {
        gPlan.depth = backtrace(gPlan.frames.data(), static_cast<int>(gPlan.frames.size()));
        gPlan.within = gWithin;
    }
    return true;
}

// Whether the request that was made at `caller` is to be refused.
bool refuses(const void* caller)
{
    if (!gPlan.armed || !gCounting)
        return false;
    gCounting = false; // what is asked for in here is not the product's
    const bool counts = gPlan.whom == FailingMemory::Of::everybody || !isSqlites(caller);
    const bool refused = counts && refusedNow();
    gCounting = true;
    if (refused)
        errno = ENOMEM;
    return refused;
}

void* handOut(void* block)
{
    if (block != nullptr)
        ++gBlocks;
    return block;
}

} // namespace

FailingMemory::FailingMemory()
{
    dl_iterate_phdr(locate, nullptr);
    if (gSqlite.end == 0)
        throw std::runtime_error("SQLite is not a shared library here");
    void* frame = nullptr;
    backtrace(&frame, 1); // loads what it needs, which takes memory
    try {
        throw 0; // libc++abi keeps a block for a thread's exceptions from the first on
    } catch (int) {
    }
    failNothing();
}

FailingMemory::~FailingMemory()
{
    failNothing();
}

void FailingMemory::failNth(long n, Failing failing, Of whom)
{
    gPlan = Plan();
    gPlan.n = n;
    gPlan.how = failing;
    gPlan.whom = whom;
    gPlan.armed = true;
    gCounting = true;
}

void FailingMemory::failNothing()
{
    gCounting = false;
    gPlan.armed = false;
}

long FailingMemory::requests() const
{
    return gPlan.requests;
}

long FailingMemory::failures() const
{
    return gPlan.failures;
}

std::string FailingMemory::within() const
{
    return gPlan.within;
}

std::string FailingMemory::place() const
{
    std::string all;
    for (int i = 0; i < gPlan.depth; ++i) {
        Dl_info info{};
        if (dladdr(gPlan.frames[static_cast<std::size_t>(i)], &info) != 0 && info.dli_sname != nullptr)
            all += std::string(" < ") + info.dli_sname + " in " + info.dli_fname;
    }
    return all;
}

long FailingMemory::blocks()
{
    return gBlocks;
}

} // namespace support

#ifndef ORV_SANITIZED

// The C library's own, behind the names that this program takes over.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);
extern "C" void __libc_free(void* block);

extern "C" void* malloc(std::size_t size) noexcept
{
    return support::refuses(__builtin_return_address(0)) ? nullptr : support::handOut(__libc_malloc(size));
}

extern "C" void* calloc(std::size_t count, std::size_t size) noexcept
{
    return support::refuses(__builtin_return_address(0)) ? nullptr : support::handOut(__libc_calloc(count, size));
}

extern "C" void* realloc(void* block, std::size_t size) noexcept
{
    if (support::refuses(__builtin_return_address(0)))
        return nullptr;
    void* const moved = __libc_realloc(block, size);
    if (block != nullptr && size == 0)
        --support::gBlocks; // that is what a free looks like, too
    return block == nullptr ? support::handOut(moved) : moved;
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return support::refuses(__builtin_return_address(0)) ? nullptr : support::handOut(__libc_memalign(alignment, size));
}

extern "C" int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept
{
    if (support::refuses(__builtin_return_address(0)))
        return ENOMEM;
    *block = support::handOut(__libc_memalign(alignment, size));
    return *block == nullptr ? ENOMEM : 0;
}

extern "C" void free(void* block) noexcept
{
    if (block != nullptr)
        --support::gBlocks;
    __libc_free(block);
}

namespace {

// A function of the C library that this program stands before, to know when it is in it.
class Within {
public:
    explicit Within(const char* function) { support::gWithin = function; }
    ~Within() { support::gWithin = ""; }
    Within(const Within&) = delete;
    Within& operator=(const Within&) = delete;
};

template <class Function> Function* theCLibrarys(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" FILE* popen(const char* command, const char* mode)
{
    static const auto real = theCLibrarys<FILE*(const char*, const char*)>("popen");
    const Within within("popen");
    return real(command, mode);
}

extern "C" FILE* fopen(const char* path, const char* mode)
{
    static const auto real = theCLibrarys<FILE*(const char*, const char*)>("fopen");
    const Within within("fopen");
    return real(path, mode);
}

extern "C" FILE* fopen64(const char* path, const char* mode) // what file streams call
{
    return fopen(path, mode);
}

extern "C" int getpwuid_r(uid_t uid, passwd* entry, char* strings, std::size_t size, passwd** found)
{
    static const auto real = theCLibrarys<int(uid_t, passwd*, char*, std::size_t, passwd**)>("getpwuid_r");
    const Within within("getpwuid_r");
    return real(uid, entry, strings, size, found);
}

#ifdef _LIBCPP_VERSION
// Never refused: libc++abi then has room for a small exception only, and a thrown OrvException ends the program.
extern "C" void* __cxa_allocate_exception(std::size_t size) noexcept
{
    static const auto real = theCLibrarys<void*(std::size_t)>("__cxa_allocate_exception");
    const bool counting = support::gCounting;
    support::gCounting = false;
    void* const exception = real(size);
    support::gCounting = counting;
    return exception;
}
#endif

#else

void* operator new(std::size_t size)
{
    void* const block = support::refuses(__builtin_return_address(0)) ? nullptr : std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return support::handOut(block);
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void operator delete(void* block) noexcept
{
    if (block != nullptr)
        --support::gBlocks;
    std::free(block);
}

void operator delete[](void* block) noexcept
{
    operator delete(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    operator delete(block);
}

namespace {

sqlite3_mem_methods gSqlites;

// Called by SQLite, they are known by their callers, as malloc is.
void* sqliteMalloc(int size)
{
    return support::refuses(__builtin_return_address(0)) ? nullptr : support::handOut(gSqlites.xMalloc(size));
}

void* sqliteRealloc(void* block, int size)
{
    return support::refuses(__builtin_return_address(0)) ? nullptr : gSqlites.xRealloc(block, size);
}

void sqliteFree(void* block)
{
    --support::gBlocks;
    gSqlites.xFree(block);
}

// Before main: SQLite takes an allocator only as long as nobody has used it.
const int gInstalled = [] {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &gSqlites);
    sqlite3_mem_methods methods = gSqlites;
    methods.xMalloc = sqliteMalloc;
    methods.xRealloc = sqliteRealloc;
    methods.xFree = sqliteFree;
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
}();

} // namespace

#endif
