#include "SystemTest.h"

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <vector>

// What a run makes of a scratch directory in which somebody else's jobs lie, under every shape and in every state.

using namespace support;

namespace {

const std::string strangersJob = "0 0 * * * /bin/somebody-elses\n";
const std::string backup = "0 1 * * * /bin/backup\n";
const std::string report = "30 6 * * 1 /bin/report --all\n";
const std::string annasTask = taskLine(3);
const std::string bensTask = taskLine(4);
const std::string elsewhere = testDirectory + "elsewhere";

struct Shape {
    const char* name;
    std::function<void(const std::string& path)> make;
};

std::ostream& operator<<(std::ostream& out, const Shape& shape)
{
    return out << shape.name;
}

void require(bool done, const char* what)
{
    if (!done)
        throw std::runtime_error(what);
}

void makeFile(const std::string& path)
{
    writeFile(path, strangersJob);
}

void makeSymbolicLink(const std::string& path)
{
    writeFile(elsewhere, strangersJob);
    std::filesystem::create_symlink(elsewhere, path);
}

void makeDanglingLink(const std::string& path)
{
    std::filesystem::create_symlink(testDirectory + "nothing", path);
}

void makeHardLink(const std::string& path)
{
    const std::string other = scratchDirectory + "other"; // a link stays within its file system
    writeFile(other, strangersJob);
    std::filesystem::create_hard_link(other, path);
}

void makePipe(const std::string& path)
{
    require(mkfifo(path.c_str(), 0600) == 0, "mkfifo");
}

void makeDevice(const std::string& path)
{
    require(mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0, "mknod");
}

void makeFolder(const std::string& path)
{
    std::filesystem::create_directory(path);
}

// Anna and Ben have a task each, and a crontab with a job and a task line.
class ScratchStates : public SystemTest {
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        addTask({3, anna});
        addTask({4, ben});
        setCrontab("anna", backup + annasTask);
        setCrontab("ben", report + bensTask);
    }

    static void expectCrontabs(const std::string& ofAnna, const std::string& ofBen)
    {
        EXPECT_EQ(ofAnna, crontabOf("anna"));
        EXPECT_EQ(ofBen, crontabOf("ben"));
    }

    static void expectUntouched() { expectCrontabs(backup + annasTask, report + bensTask); }
    static void expectCleaned() { expectCrontabs(backup, report); }
    static void expectRebuilt() { expectCrontabs(backup + annasTask + annasTask, report + bensTask + bensTask); }

    static void makeReadOnly()
    {
        require(mount(nullptr, scratchDirectory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "mount");
    }

    /// Makes a file that can be removed by nobody, and with `flags` MS_RDONLY not be written either.
    static void pinFile(const std::string& path, unsigned long flags)
    {
        writeFile(elsewhere, strangersJob);
        writeFile(path, "");
        require(mount(elsewhere.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0, "mount");
        if (flags != 0)
            require(mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_BIND | flags, nullptr) == 0, "mount");
        m_pinned.push_back(path);
    }

    void TearDown() override
    {
        for (const std::string& path : m_pinned)
            umount2(path.c_str(), MNT_DETACH);
        m_pinned.clear();
    }

private:
    static inline std::vector<std::string> m_pinned;
};

class RemovableShapes : public ScratchStates, public testing::WithParamInterface<Shape> { };

class StuckShapes : public ScratchStates, public testing::WithParamInterface<Shape> {
protected:
    void SetUp() override
    {
        ScratchStates::SetUp();
        limitScratchDirectory(0, 0);
    }
};

const auto shapeName = [](const auto& instance) { return std::string(instance.param.name); };

} // namespace

TEST_P(RemovableShapes, AreReplacedByAClean)
{
    GetParam().make(crontabCopy);
    GetParam().make(filteredCopy);
    clean();
    expectCleaned();
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(crontabCopy)));
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(filteredCopy)));
}

TEST_P(RemovableShapes, AreReplacedByARebuild)
{
    GetParam().make(crontabCopy);
    rebuild();
    expectRebuilt();
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(crontabCopy)));
}

TEST_P(StuckShapes, AreNeverReadByAClean)
{
    GetParam().make(crontabCopy);
    makeReadOnly();
    clean();
    expectUntouched();
}

TEST_P(StuckShapes, AreNeverInstalledByAClean)
{
    GetParam().make(filteredCopy);
    makeReadOnly();
    clean();
    expectUntouched();
}

TEST_P(StuckShapes, AreNeverInstalledByARebuild)
{
    GetParam().make(crontabCopy);
    makeReadOnly();
    rebuild();
    expectUntouched();
}

INSTANTIATE_TEST_SUITE_P(Of, StuckShapes,
    testing::Values(Shape{"File", makeFile}, Shape{"SymbolicLink", makeSymbolicLink},
        Shape{"DanglingLink", makeDanglingLink}, Shape{"HardLink", makeHardLink}, Shape{"Pipe", makePipe},
        Shape{"Device", makeDevice}, Shape{"Folder", makeFolder}),
    shapeName);

INSTANTIATE_TEST_SUITE_P(Of, RemovableShapes,
    testing::Values(Shape{"File", makeFile}, Shape{"SymbolicLink", makeSymbolicLink},
        Shape{"DanglingLink", makeDanglingLink}, Shape{"HardLink", makeHardLink}, Shape{"Pipe", makePipe},
        Shape{"Device", makeDevice}, Shape{"Folder", makeFolder}),
    shapeName);

TEST_F(ScratchStates, TheTargetOfALinkStaysAsItWas)
{
    makeSymbolicLink(crontabCopy);
    clean();
    EXPECT_EQ(strangersJob, readFile(elsewhere));
    makeHardLink(crontabCopy);
    clean();
    EXPECT_EQ(strangersJob, readFile(scratchDirectory + "other"));
}

TEST_F(ScratchStates, TheTargetOfALinkStaysAsItWasWhenTheLinkCannotBeRemoved)
{
    limitScratchDirectory(0, 0);
    makeSymbolicLink(crontabCopy);
    makeReadOnly();
    clean();
    rebuild();
    EXPECT_EQ(strangersJob, readFile(elsewhere));
    expectUntouched();
}

TEST_F(ScratchStates, AFileThatCanOnlyBeOverwrittenIsOverwritten)
{
    pinFile(crontabCopy, 0);
    clean();
    expectCleaned();
    rebuild();
    expectCrontabs(backup + annasTask, report + bensTask);
}

TEST_F(ScratchStates, AFilteredCopyThatCanOnlyBeOverwrittenIsOverwritten)
{
    pinFile(filteredCopy, 0);
    clean();
    expectCleaned();
}

TEST_F(ScratchStates, AFileThatCanNeitherBeRemovedNorWrittenIsNotUsed)
{
    pinFile(crontabCopy, MS_RDONLY);
    clean();
    expectUntouched();
    rebuild();
    expectUntouched();
}

TEST_F(ScratchStates, AFilteredCopyThatCanNeitherBeRemovedNorWrittenIsNotUsed)
{
    pinFile(filteredCopy, MS_RDONLY);
    clean();
    expectUntouched();
    rebuild();
    expectRebuilt(); // which does not use it
    EXPECT_EQ(strangersJob, readFile(filteredCopy));
}

TEST_F(ScratchStates, AFileThatCannotBeRemovedIsNotUsedWhenTheListingCannotBeStarted)
{
    pinFile(crontabCopy, 0);
    clean(failingPopen("1"));
    expectCrontabs(backup + annasTask, report);
}

TEST_F(ScratchStates, AFullFolderCountsAsAnEmptyCopyInAClean)
{
    makeFolder(crontabCopy);
    writeFile(crontabCopy + "/file", strangersJob);
    clean();
    expectCrontabs("", "");
}

TEST_F(ScratchStates, ARebuildLeavesTheFilteredCopyOfAnotherRun)
{
    makeFile(filteredCopy);
    rebuild();
    expectRebuilt();
    EXPECT_EQ(strangersJob, readFile(filteredCopy));
}

TEST_F(ScratchStates, LeftFilesOnAFullDiskAreReplaced)
{
    limitScratchDirectory(8192, 0);
    makeFile(crontabCopy);
    makeFile(filteredCopy);
    clean();
    expectCleaned();
}

TEST_F(ScratchStates, LeftFilesWithoutAnotherInodeAreReplaced)
{
    limitScratchDirectory(0, 3);
    makeFile(crontabCopy);
    makeFile(filteredCopy);
    clean();
    expectCleaned();
}

TEST_F(ScratchStates, WithFewDescriptorsACrontabHoldsNothingButItsOwnersLines)
{
    const auto holdsOnly = [](std::string text, const std::string& job, const std::string& task) {
        if (text.compare(0, job.size(), job) == 0)
            text.erase(0, job.size());
        while (text.compare(0, task.size(), task) == 0)
            text.erase(0, task.size());
        return text.empty();
    };
    for (const char* const argument : {"", " rebuild"}) {
        for (int limit = 3; limit <= 13; ++limit) {
            setCrontab("anna", backup + annasTask);
            setCrontab("ben", report + bensTask);
            makeFile(crontabCopy);
            makeFile(filteredCopy);
            runProgram({"/bin/sh", "-c", "ulimit -n " + std::to_string(limit) + "; exec " + program + argument});
            EXPECT_TRUE(holdsOnly(crontabOf("anna"), backup, annasTask)) << limit << argument << crontabOf("anna");
            EXPECT_TRUE(holdsOnly(crontabOf("ben"), report, bensTask)) << limit << argument << crontabOf("ben");
        }
    }
}
