#include "SystemTest.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

// What a run does in a scratch directory that holds somebody else's jobs, in files of every type and state.

using namespace support;

namespace {

const std::string strangersJob = "0 0 * * * /bin/somebody-elses\n";
const std::string elsewhere = testDirectory + "elsewhere";

struct FileType {
    const char* name;
    std::function<void(const std::string& path)> make;
};

std::ostream& operator<<(std::ostream& out, const FileType& type)
{
    return out << type.name;
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

class ScratchStates : public TwoOwnersTest {
protected:
    static void makeReadOnly()
    {
        require(mount(nullptr, scratchDirectory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "mount");
    }

    /// Makes a file that nobody can remove, nor write if `flags` is MS_RDONLY.
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

class Leftovers : public ScratchStates, public testing::WithParamInterface<FileType> {
protected:
    /// Afterwards, no run can remove or write the file.
    static void makeStuck(const std::string& path)
    {
        limitScratchDirectory(0, 0);
        GetParam().make(path);
        makeReadOnly();
    }
};

bool exists(const std::string& path)
{
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

} // namespace

TEST_P(Leftovers, AreReplacedByAClean)
{
    GetParam().make(crontabCopy);
    GetParam().make(filteredCopy);
    clean();
    expectCleaned();
    EXPECT_FALSE(exists(crontabCopy) || exists(filteredCopy));
}

TEST_P(Leftovers, AreReplacedByARebuild)
{
    GetParam().make(crontabCopy);
    rebuild();
    expectRebuilt();
    EXPECT_FALSE(exists(crontabCopy));
}

TEST_P(Leftovers, AreNeverReadByACleanThatCannotReplaceThem)
{
    makeStuck(crontabCopy);
    clean();
    expectUnchanged();
}

TEST_P(Leftovers, AreNeverInstalledByACleanThatCannotReplaceThem)
{
    makeStuck(filteredCopy);
    clean();
    expectUnchanged();
}

TEST_P(Leftovers, AreNeverInstalledByARebuildThatCannotReplaceThem)
{
    makeStuck(crontabCopy);
    rebuild();
    expectUnchanged();
}

INSTANTIATE_TEST_SUITE_P(Of, Leftovers,
    testing::Values(FileType{"File", makeFile}, FileType{"SymbolicLink", makeSymbolicLink},
        FileType{"DanglingLink", makeDanglingLink}, FileType{"HardLink", makeHardLink}, FileType{"Pipe", makePipe},
        FileType{"Device", makeDevice}, FileType{"Folder", makeFolder}),
    [](const auto& instance) { return std::string(instance.param.name); });

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
    expectUnchanged();
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
    expectUnchanged();
    rebuild();
    expectUnchanged();
}

TEST_F(ScratchStates, AFilteredCopyThatCanNeitherBeRemovedNorWrittenIsNotUsed)
{
    pinFile(filteredCopy, MS_RDONLY);
    clean();
    expectUnchanged();
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

TEST_F(ScratchStates, ANonEmptyFolderCountsAsAnEmptyCopyInAClean)
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

TEST_F(ScratchStates, FilesOfAnEarlierRunAreReplacedOnAFullDisk)
{
    limitScratchDirectory(8192, 0);
    makeFile(crontabCopy);
    makeFile(filteredCopy);
    clean();
    expectCleaned();
}

TEST_F(ScratchStates, FilesOfAnEarlierRunAreReplacedWhenNoInodeIsLeft)
{
    limitScratchDirectory(0, 3);
    makeFile(crontabCopy);
    makeFile(filteredCopy);
    clean();
    expectCleaned();
}

TEST_F(ScratchStates, WithFewDescriptorsTheFilesOfAnotherRunStay)
{
    const int otherRun = open(scratchDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(0, flock(otherRun, LOCK_EX));
    for (const char* const argument : {"", " rebuild"}) {
        for (int limit = 3; limit <= 8; ++limit) {
            makeFile(crontabCopy);
            makeFile(filteredCopy);
            // It ends because it cannot open what it needs, or waits for the lock until it is ended.
            runProgram(
                {"/bin/sh", "-c", "ulimit -n " + std::to_string(limit) + "; exec timeout 0.3 " + program + argument});
            EXPECT_EQ(strangersJob, readFile(crontabCopy)) << limit << argument;
            EXPECT_EQ(strangersJob, readFile(filteredCopy)) << limit << argument;
        }
    }
    close(otherRun);
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
