#include "EditorTest.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct CommandState {
    std::mutex mutex;
    std::vector<std::string> commands;
    std::set<std::string> refused;
    std::function<void()> beforeEach;
};
std::unique_ptr<CommandState> gCommands;

struct ConnectionState {
    std::mutex mutex;
    int count = 0;
    std::map<int, std::function<void()>> before;
    std::function<void()> beforeEach;
};
std::unique_ptr<ConnectionState> gConnections;
thread_local bool gInAction = false;

/// Nothing that an action itself does is watched.
void act(const std::function<void()>& action)
{
    if (!action)
        return;
    gInAction = true;
    action();
    gInAction = false;
}

/// Writes the command down; whether it may be started.
bool admit(const std::string& command)
{
    if (!gCommands || gInAction)
        return true;
    act(gCommands->beforeEach);
    const std::lock_guard<std::mutex> lock(gCommands->mutex);
    gCommands->commands.push_back(command);
    return gCommands->refused.count(command) == 0;
}

int connectionOpened(sqlite3*, char**, const struct sqlite3_api_routines*)
{
    if (gInAction)
        return SQLITE_OK;
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(gConnections->mutex);
        action = gConnections->before[++gConnections->count];
    }
    act(gConnections->beforeEach);
    act(action);
    return SQLITE_OK;
}

using ExtensionEntry = void (*)();
const auto connectionHook = reinterpret_cast<ExtensionEntry>(connectionOpened);

} // namespace

extern "C" FILE* popen(const char* command, const char* mode)
{
    static const auto real = reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "popen"));
    const bool reads = mode[0] == 'r' && (mode[1] == '\0' || std::string(mode) == "re");
    if (admit((reads ? "" : "not read from: ") + std::string(command)))
        return real(command, mode);
    errno = EAGAIN;
    return nullptr;
}

namespace support {

CommandWatch::CommandWatch()
{
    if (gCommands)
        throw std::logic_error("the commands are being watched already");
    gCommands = std::make_unique<CommandState>();
}

CommandWatch::~CommandWatch()
{
    gCommands.reset();
}

Lines CommandWatch::takeCommands()
{
    const std::lock_guard<std::mutex> lock(gCommands->mutex);
    return std::exchange(gCommands->commands, {});
}

void CommandWatch::refuse(const std::string& command)
{
    gCommands->refused.insert(command);
}

void CommandWatch::beforeEach(std::function<void()> action)
{
    gCommands->beforeEach = std::move(action);
}

ConnectionWatch::ConnectionWatch()
{
    if (gConnections)
        throw std::logic_error("the connections are being watched already");
    gConnections = std::make_unique<ConnectionState>();
    if (sqlite3_auto_extension(connectionHook) != SQLITE_OK)
        throw std::runtime_error("SQLite takes no extension");
}

ConnectionWatch::~ConnectionWatch()
{
    sqlite3_cancel_auto_extension(connectionHook);
    gConnections.reset();
}

void ConnectionWatch::before(int number, std::function<void()> action)
{
    gConnections->before[number] = std::move(action);
}

void ConnectionWatch::beforeEach(std::function<void()> action)
{
    gConnections->beforeEach = std::move(action);
}

int ConnectionWatch::count() const
{
    return gConnections->count;
}

void asUser(uid_t real, uid_t effective, const std::function<void()>& body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        EXPECT_EQ(0, setresuid(real, effective, real));
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status) << "as user " << effective << ", in truth " << real;
}

bool taskLockHeld()
{
    bool held = true;
    std::thread other([&held] {
        held = !gMutex.try_lock();
        if (!held)
            gMutex.unlock();
    });
    other.join();
    return held;
}

std::string scratchFile(const std::string& name)
{
    return readFile(scratchDirectory + name);
}

void openScratchDirectory()
{
    fs::permissions(scratchDirectory, fs::perms::all);
}

std::string reading(const std::string& name)
{
    return "/usr/bin/crontab -u " + name + " -l";
}

std::string installing(const std::string& name, const std::string& file)
{
    return "/usr/bin/crontab -u " + name + " /usr/local/Quarno/Kestrelcore/var/tmp/" + file;
}

void EditorTest::SetUp()
{
    WorldTest::SetUp();
    useRecordingCrontab();
    editor = std::make_unique<TaskEditor>();
    takeLog();
}

void EditorTest::TearDown()
{
    editor.reset();
    EXPECT_EQ(0, openDatabaseDescriptors());
    EXPECT_FALSE(taskLockHeld());
}

} // namespace support
