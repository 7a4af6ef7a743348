#pragma once

#include <string>

#include "FailingVfs.h"

namespace support {

/// Counts the requests for memory of the thread that made it, and refuses the one that it is told to: malloc, calloc,
/// realloc and their kin, whoever calls them, and so operator new, SQLite, the C library. In a build with sanitizers,
/// which need malloc for themselves, operator new and SQLite's allocator only.
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
    /// Which of popen, fopen and getpwuid_r, which give null for want of memory, the first refused request was made in;
    /// "" if in none.
    std::string within() const;
    /// The functions of shared libraries that the first refused request came from, innermost first, as far as they have
    /// names.
    std::string place() const;
    /// How many blocks of memory are in use that this has seen being handed out, in this thread or another.
    static long blocks();
};

} // namespace support
