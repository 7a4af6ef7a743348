#include "SystemTest.h"

#include <filesystem>
#include <pwd.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/statfs.h>
#include <unistd.h>
#include <vector>

using namespace support;

// The private world that all other tests rely on.
namespace {

constexpr long tmpfsMagic = 0x01021994;

class World : public WorldTest { };

bool isInMemory(const std::string& path)
{
    struct statfs system { };
    return statfs(path.c_str(), &system) == 0 && system.f_type == tmpfsMagic;
}

std::string mountNamespace(const std::string& process)
{
    return std::filesystem::read_symlink("/proc/" + process + "/ns/mnt").string();
}

const std::string thisProgram = "/proc/self/exe";

} // namespace

TEST_F(World, IsAMountNamespaceOfItsOwn)
{
    EXPECT_NE(mountNamespace(std::to_string(getppid())), mountNamespace("self"));
}

TEST_F(World, KeepsWhatIsWrittenInMemory)
{
    for (const std::string& path : {scratchDirectory, productDirectory, std::string("/var/spool/cron/crontabs"),
             std::string("/etc/passwd"), std::string("/etc/group"), testDirectory})
        EXPECT_TRUE(isInMemory(path)) << path;
}

TEST_F(World, HasNoMountThatReachesTheMachinesOwn)
{
    std::istringstream mounts(readFile("/proc/self/mountinfo"));
    int count = 0;
    for (std::string line; std::getline(mounts, line); ++count)
        EXPECT_EQ(std::string::npos, line.find(" shared:")) << line;
    EXPECT_GT(count, 0);
}

TEST_F(World, KnowsItsOwnAccountsOnly)
{
    std::vector<std::string> names;
    setpwent();
    while (const passwd* entry = getpwent())
        names.push_back(std::string(entry->pw_name) + " " + std::to_string(entry->pw_uid));
    endpwent();
    EXPECT_EQ((std::vector<std::string>{"anna 501", "ben 502", "carla 503", "root 0"}), names);
    EXPECT_EQ(nullptr, getpwuid(nobodysUid));
}

TEST_F(World, AddsAndRemovesAccounts)
{
    addAccount("dora", nobodysUid);
    setCrontab("dora", "0 1 * * * /bin/backup\n");
    EXPECT_EQ("0 1 * * * /bin/backup\n", crontabOf("dora"));
    removeAccount("dora");
    EXPECT_EQ(nullptr, getpwuid(nobodysUid));
}

TEST_F(World, StartsEmptyAfterAReset)
{
    setCrontab("anna", "0 1 * * * /bin/backup\n");
    execSql(createTaskTable);
    blockScratchFile("crontemp.txt");
    limitScratchDirectory(4096, 0);
    useRecordingCrontab();
    resetWorld();
    EXPECT_FALSE(hasCrontab("anna"));
    EXPECT_FALSE(std::filesystem::exists(databasePath));
    EXPECT_EQ(std::vector<std::string>{}, scratchFiles());
    setCrontab("anna", "0 2 * * * /bin/backup\n");
    EXPECT_TRUE(std::filesystem::exists("/var/spool/cron/crontabs/anna"));
}

TEST_F(World, TreatsWhatCronRefusesAsAnError)
{
    EXPECT_THROW(setCrontab("anna", "not a crontab\n"), std::runtime_error);
    EXPECT_THROW(setCrontab("anna", "0 1 * * * /bin/x"), std::runtime_error);
    EXPECT_THROW(setCrontab("zoe", ""), std::runtime_error);
}

TEST_F(World, RecordsCrontabCalls)
{
    useRecordingCrontab();
    setCrontab("anna", std::string("a\0b", 3));
    writeFile(testDirectory + "tab", "x");
    EXPECT_EQ(std::string("a\0b", 3), runProgram({"/usr/bin/crontab", "-u", "anna", "-l"}).output);
    EXPECT_EQ(0, runProgram({"/usr/bin/crontab", testDirectory + "tab"}).status);
    EXPECT_EQ(1, runProgram({"/usr/bin/crontab", "-u", "anna", "/no/such/file"}).status);
    EXPECT_EQ(1, runProgram({"/usr/bin/crontab", "-u", "ben", "-l"}).status);
    EXPECT_EQ("x", crontabOf("root"));
    EXPECT_EQ(std::string("a\0b", 3), crontabOf("anna"));
    EXPECT_EQ((std::vector<std::string>{"-u anna -l", testDirectory + "tab", "-u anna /no/such/file", "-u ben -l"}),
        crontabCalls());
}

TEST_F(World, IsNotEnteredWithoutRoot)
{
    const auto end = runAsAnna(thisProgram, {"--gtest_filter=World.KnowsItsOwnAccountsOnly"});
    EXPECT_EQ(1, end.status);
    EXPECT_EQ(
        "The tests cannot be run here: they run in a private mount namespace, which only root can make; run them as "
        "root.\n",
        end.errors);
    EXPECT_FALSE(contains(end.output, "[ RUN"));
}

TEST_F(World, IsNotNeededToListTheTests)
{
    const auto end = runAsAnna(thisProgram, {"--gtest_list_tests"});
    EXPECT_EQ(0, end.status);
    EXPECT_TRUE(contains(end.output, "  IsNotNeededToListTheTests\n"));
}
