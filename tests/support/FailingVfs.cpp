#include "FailingVfs.h"

#include <array>
#include <csignal>
#include <cstring>
#include <sqlite3.h>
#include <stdexcept>

namespace support {

namespace {

// What is told, and what is counted.
struct Plan {
    bool failing = false;
    bool killing = false;
    FileCall call = FileCall::open;
    int n = 0;
    int code = SQLITE_OK;
    Failing how = Failing::once;
    int failures = 0;
    long microseconds = 0;
    std::array<int, fileCallCount> calls{};

    // The code that this call is to fail with, or SQLITE_OK.
    int next(FileCall made)
    {
        const int number = ++calls[static_cast<std::size_t>(made)];
        if (made != call)
            return SQLITE_OK;
        if (killing && number == n)
            raise(SIGKILL);
        if (!failing || number < n || (how == Failing::once && number > n))
            return SQLITE_OK;
        ++failures;
        return code;
    }
};

Plan gPlan;

// SQLite's own file object lies behind it in the same memory.
struct File {
    sqlite3_file base;

    sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

sqlite3_file* realOf(sqlite3_file* file)
{
    return reinterpret_cast<File*>(file)->real();
}

sqlite3_vfs* realOf(sqlite3_vfs* layer)
{
    return static_cast<sqlite3_vfs*>(layer->pAppData);
}

// Calls one method of the file below.
template <class Method, class... Arguments>
auto below(sqlite3_file* file, Method sqlite3_io_methods::*method, Arguments... arguments)
{
    sqlite3_file* real = realOf(file);
    return (real->pMethods->*method)(real, arguments...);
}

int closeFile(sqlite3_file* file)
{
    return below(file, &sqlite3_io_methods::xClose);
}

int readFileAt(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset)
{
    const int code = gPlan.next(FileCall::read);
    if (code == SQLITE_OK)
        return below(file, &sqlite3_io_methods::xRead, bytes, size, offset);
    std::memset(bytes, 0xA5, static_cast<std::size_t>(size)); // nobody may look at them
    return code;
}

int writeFileAt(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset)
{
    const int code = gPlan.next(FileCall::write);
    const int result = below(file, &sqlite3_io_methods::xWrite, bytes, code == SQLITE_OK ? size : size / 2, offset);
    return code == SQLITE_OK ? result : code;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size)
{
    const int code = gPlan.next(FileCall::truncate);
    return code == SQLITE_OK ? below(file, &sqlite3_io_methods::xTruncate, size) : code;
}

int syncFile(sqlite3_file* file, int flags)
{
    const int code = gPlan.next(FileCall::sync);
    return code == SQLITE_OK ? below(file, &sqlite3_io_methods::xSync, flags) : code;
}

int fileSize(sqlite3_file* file, sqlite3_int64* size)
{
    const int code = gPlan.next(FileCall::fileSize);
    return code == SQLITE_OK ? below(file, &sqlite3_io_methods::xFileSize, size) : code;
}

int lockFile(sqlite3_file* file, int level)
{
    const int code = gPlan.next(FileCall::lock);
    return code == SQLITE_OK ? below(file, &sqlite3_io_methods::xLock, level) : code;
}

int unlockFile(sqlite3_file* file, int level)
{
    return below(file, &sqlite3_io_methods::xUnlock, level);
}

int checkReservedLock(sqlite3_file* file, int* held)
{
    return below(file, &sqlite3_io_methods::xCheckReservedLock, held);
}

int fileControl(sqlite3_file* file, int operation, void* argument)
{
    return below(file, &sqlite3_io_methods::xFileControl, operation, argument);
}

int sectorSize(sqlite3_file* file)
{
    return below(file, &sqlite3_io_methods::xSectorSize);
}

int deviceCharacteristics(sqlite3_file* file)
{
    return below(file, &sqlite3_io_methods::xDeviceCharacteristics);
}

int sharedMap(sqlite3_file* file, int region, int size, int extend, void volatile** memory)
{
    return below(file, &sqlite3_io_methods::xShmMap, region, size, extend, memory);
}

int sharedLock(sqlite3_file* file, int offset, int count, int flags)
{
    return below(file, &sqlite3_io_methods::xShmLock, offset, count, flags);
}

void sharedBarrier(sqlite3_file* file)
{
    below(file, &sqlite3_io_methods::xShmBarrier);
}

int sharedUnmap(sqlite3_file* file, int remove)
{
    return below(file, &sqlite3_io_methods::xShmUnmap, remove);
}

// Version 2: without memory-mapped reading, which no fault of reading would reach.
const sqlite3_io_methods fileMethods = {2, closeFile, readFileAt, writeFileAt, truncateFile, syncFile, fileSize,
    lockFile, unlockFile, checkReservedLock, fileControl, sectorSize, deviceCharacteristics, sharedMap, sharedLock,
    sharedBarrier, sharedUnmap, nullptr, nullptr};

int openFile(sqlite3_vfs* layer, const char* name, sqlite3_file* file, int flags, int* flagsOut)
{
    file->pMethods = nullptr; // nothing to be closed
    const int code = gPlan.next(FileCall::open);
    if (code != SQLITE_OK)
        return code;
    const int result = realOf(layer)->xOpen(realOf(layer), name, realOf(file), flags, flagsOut);
    if (realOf(file)->pMethods != nullptr)
        file->pMethods = &fileMethods;
    return result;
}

int removeFile(sqlite3_vfs* layer, const char* name, int syncDirectory)
{
    const int code = gPlan.next(FileCall::remove);
    if (code != SQLITE_OK && code != SQLITE_IOERR_DIR_FSYNC)
        return code;
    const int result = realOf(layer)->xDelete(realOf(layer), name, syncDirectory);
    return code == SQLITE_OK ? result : code;
}

int accessFile(sqlite3_vfs* layer, const char* name, int flags, int* result)
{
    const int code = gPlan.next(FileCall::access);
    return code == SQLITE_OK ? realOf(layer)->xAccess(realOf(layer), name, flags, result) : code;
}

int fullPathname(sqlite3_vfs* layer, const char* name, int size, char* path)
{
    return realOf(layer)->xFullPathname(realOf(layer), name, size, path);
}

int randomness(sqlite3_vfs* layer, int size, char* bytes)
{
    return realOf(layer)->xRandomness(realOf(layer), size, bytes);
}

int sleepNot(sqlite3_vfs*, int microseconds)
{
    gPlan.microseconds += microseconds;
    return microseconds;
}

int currentTime(sqlite3_vfs* layer, double* time)
{
    return realOf(layer)->xCurrentTime(realOf(layer), time);
}

int lastError(sqlite3_vfs* layer, int size, char* text)
{
    return realOf(layer)->xGetLastError(realOf(layer), size, text);
}

int currentTime64(sqlite3_vfs* layer, sqlite3_int64* time)
{
    return realOf(layer)->xCurrentTimeInt64(realOf(layer), time);
}

sqlite3_vfs layerOver(sqlite3_vfs* real)
{
    sqlite3_vfs layer{};
    layer.iVersion = 2;
    layer.szOsFile = static_cast<int>(sizeof(File)) + real->szOsFile;
    layer.mxPathname = real->mxPathname;
    layer.zName = "failing";
    layer.pAppData = real;
    layer.xOpen = openFile;
    layer.xDelete = removeFile;
    layer.xAccess = accessFile;
    layer.xFullPathname = fullPathname;
    layer.xRandomness = randomness;
    layer.xSleep = sleepNot;
    layer.xCurrentTime = currentTime;
    layer.xGetLastError = lastError;
    layer.xCurrentTimeInt64 = currentTime64;
    return layer;
}

} // namespace

struct FailingVfs::Layer {
    sqlite3_vfs vfs;
};

FailingVfs::FailingVfs()
    : m_layer(new Layer{layerOver(sqlite3_vfs_find(nullptr))})
{
    gPlan = Plan();
    if (realOf(&m_layer->vfs)->iVersion < 2 || sqlite3_vfs_register(&m_layer->vfs, 1) != SQLITE_OK)
        throw std::runtime_error("the failing file layer cannot be put over SQLite's own");
}

FailingVfs::~FailingVfs()
{
    sqlite3_vfs_unregister(&m_layer->vfs);
    sqlite3_vfs_register(realOf(&m_layer->vfs), 1);
}

void FailingVfs::failNth(FileCall call, int n, int code, Failing failing)
{
    gPlan = Plan();
    gPlan.failing = true;
    gPlan.call = call;
    gPlan.n = n;
    gPlan.code = code;
    gPlan.how = failing;
}

void FailingVfs::killAtNth(FileCall call, int n)
{
    gPlan = Plan();
    gPlan.killing = true;
    gPlan.call = call;
    gPlan.n = n;
}

void FailingVfs::failNothing()
{
    gPlan.failing = false;
    gPlan.killing = false;
}

int FailingVfs::failures() const
{
    return gPlan.failures;
}

int FailingVfs::calls(FileCall call) const
{
    return gPlan.calls[static_cast<std::size_t>(call)];
}

long FailingVfs::sleptMilliseconds() const
{
    return gPlan.microseconds / 1000;
}

} // namespace support
