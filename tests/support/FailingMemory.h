#pragma once

#include <string>

#include "FailingVfs.h"

namespace support {

/// Counts the requests for memory of the thread that made it, and refuses those that it is told to refuse. These are
/// the calls of malloc, calloc, realloc and their like, also by operator new, SQLite and the C library. Sanitizers need
/// malloc for themselves: a build with them refuses only requests of operator new and SQLite's allocator.
///
/// One at a time.
class FailingMemory {
public:
    FailingMemory();
    ~FailingMemory();
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    /// Whether this build can refuse every request of the process, or only those of a build with sanitizers.
#ifdef ORV_SANITIZED
    static constexpr bool refusesEverything = false;
#else
    static constexpr bool refusesEverything = true;
#endif

    enum class Of { everybody, allButSqlite };

    /// The n-th request from now on, the first being 1, is refused; with fromThenOn, so is each after it. With
    /// allButSqlite, those that SQLite makes itself are neither counted nor refused.
    void failNth(long n, Failing failing, Of whom = Of::everybody);
    /// Nothing is refused any more. The numbers below stay as they are.
    void failNothing();

    long requests() const;
    long failures() const;
    /// Which of popen, fopen and getpwuid_r made the first refused request, and so returned null; "" if none did.
    std::string within() const;
    /// The functions that the first refused request came from, innermost first, if they are in shared libraries and
    /// have names.
    std::string place() const;
    /// How many blocks of memory are in use, in all threads, of those that were requested through this program.
    static long blocks();
};

} // namespace support
