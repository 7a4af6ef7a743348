// Sanitizers bring an operator new of their own, which checks more than this one: these tests are for builds without.
#include <string>
#include <vector>
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORV_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define ORV_SANITIZED
#endif
#endif

#ifndef ORV_SANITIZED

#include <atomic>
#include <cstdlib>
#include <new>

#include "EditorTest.h"

namespace {

std::atomic<long> gObjects{0};
thread_local long gUntilFailure = -1; ///< allocations of this thread before one fails; -1 for none

// Not inlined: where GCC sees that what operator new returned goes to free(), it warns.
[[gnu::noinline]] void giveBack(void* object)
{
    if (object != nullptr)
        --gObjects;
    std::free(object);
}

} // namespace

void* operator new(std::size_t size)
{
    if (gUntilFailure >= 0 && gUntilFailure-- == 0)
        throw std::bad_alloc();
    void* const object = std::malloc(size == 0 ? 1 : size);
    if (object == nullptr)
        throw std::bad_alloc();
    ++gObjects;
    return object;
}

void operator delete(void* object) noexcept
{
    giveBack(object);
}

void operator delete(void* object, std::size_t) noexcept
{
    giveBack(object);
}

using namespace support;

namespace {

/// How the bounding of the table ends when the allocation after `successes` successful ones fails: "true", "false" or
/// "thrown"; "" if it needs no more than those.
std::string boundWithAllocations(TaskInterface& store, long successes)
{
    std::string end;
    gUntilFailure = successes;
    try {
        end = store.dbMaxRecordCleaner() ? "true" : "false";
    } catch (const std::bad_alloc&) {
        end = "thrown";
    }
    const bool failed = gUntilFailure == -1;
    gUntilFailure = -1;
    return failed ? end : "";
}

class OutOfMemory : public StoreTest {
protected:
    /// The ends of the bounding of 41 tasks of this status, each once, as the failing allocation moves on.
    std::vector<std::string> endsOfBounding(int status)
    {
        std::vector<std::string> ends;
        for (long successes = 0; ends.empty() || !ends.back().empty(); ++successes) {
            execSql("delete from TaskTable");
            addRows(41, "status=" + std::to_string(status));
            const long before = gObjects;
            const std::string end = boundWithAllocations(*store, successes);
            EXPECT_EQ(before, gObjects) << successes;
            EXPECT_EQ(1, openDatabaseDescriptors()) << successes;
            if (ends.empty() || ends.back() != end)
                ends.push_back(end);
        }
        return ends;
    }
};

TEST_F(OutOfMemory, EscapesTheBoundUntilADeletionBeginsAndThenMakesItFalse)
{
    EXPECT_EQ((std::vector<std::string>{"thrown", "false", ""}), endsOfBounding(3));
}

TEST_F(OutOfMemory, EscapesTheBoundWhenThereIsNothingToDelete)
{
    EXPECT_EQ((std::vector<std::string>{"thrown", ""}), endsOfBounding(1));
}

/// A rebuild for anna (task 1) and ben (task 2) with no memory for what comes from a connection of it. The first three
/// count the users, count them again and list them; then come anna's three: count, count and list, then two for each
/// of her tasks.
class OutOfMemoryInARebuild : public EditorTest {
protected:
    void SetUp() override
    {
        EditorTest::SetUp();
        setCrontab("anna", backup);
        setCrontab("ben", tidy);
        addRow("userId=501");
        addRow("userId=502");
    }

    void rebuildWithoutMemoryAt(int connection)
    {
        ConnectionWatch connections;
        connections.before(connection, [] { gUntilFailure = 0; });
        editor->putCronFromDB();
        EXPECT_EQ(-1, gUntilFailure);
    }
};

TEST_F(OutOfMemoryInARebuild, SkipsAUserWhoseTasksCannotBeListed)
{
    rebuildWithoutMemoryAt(6);
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(tidy + taskLine(2), crontabOf("ben"));
}

TEST_F(OutOfMemoryInARebuild, SkipsATaskWhoseScheduleOrTypeCannotBeRead)
{
    for (const int connection : {7, 8}) {
        setCrontab("anna", backup);
        setCrontab("ben", tidy);
        rebuildWithoutMemoryAt(connection);
        EXPECT_EQ(backup, crontabOf("anna"));
        EXPECT_EQ(tidy + taskLine(2), crontabOf("ben"));
    }
}

TEST_F(OutOfMemoryInARebuild, EndsItWhenTheTasksCannotBeCounted)
{
    EXPECT_THROW(rebuildWithoutMemoryAt(4), std::bad_alloc);
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(tidy, crontabOf("ben"));
}

} // namespace

#endif
