#pragma once

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "StoreTest.h" // IWYU pragma: export
#include "TaskEditor.h" // IWYU pragma: export
#include "TaskLine.h" // IWYU pragma: export

/// For the tests of the editor: this test program intercepts each command that the product starts, and each connection
/// that it opens, so it can record it, refuse it, or do something before it.
namespace support {

using Lines = std::vector<std::string>;

/// Intercepts the commands that the product starts while it lives. One at a time.
class CommandWatch {
public:
    CommandWatch();
    ~CommandWatch();
    CommandWatch(const CommandWatch&) = delete;
    CommandWatch& operator=(const CommandWatch&) = delete;

    /// The commands since the last call of this, refused ones included.
    Lines takeCommands();
    /// From now on `command` cannot be started.
    void refuse(const std::string& command);
    /// From now on runs `action` before each command.
    void beforeEach(std::function<void()> action);
};

/// Counts the connections to SQLite that are opened while it lives, except by its own actions. One at a time.
class ConnectionWatch {
public:
    ConnectionWatch();
    ~ConnectionWatch();
    ConnectionWatch(const ConnectionWatch&) = delete;
    ConnectionWatch& operator=(const ConnectionWatch&) = delete;

    /// Runs `action` as soon as the connection of this number has been opened; the first is 1.
    void before(int number, std::function<void()> action);
    /// The same for every connection.
    void beforeEach(std::function<void()> action);
    /// How many connections were opened.
    int count() const;
};

/// Runs `body` in a child process with these user ids. An expectation that fails there fails the test.
void asUser(uid_t real, uid_t effective, const std::function<void()>& body);

/// Whether gMutex is locked.
bool taskLockHeld();

/// The contents of a scratch file.
std::string scratchFile(const std::string& name);

/// Lets everybody write to the scratch directory.
void openScratchDirectory();

/// The command that reads the crontab of an account.
std::string reading(const std::string& name);
/// The command that installs a scratch file as the crontab of an account.
std::string installing(const std::string& name, const std::string& scratchFile = "temp2.txt");

/// A crontab line that has nothing to do with the product, with its line feed.
inline const std::string backup = "0 1 * * * /bin/backup\n";
/// Another such line.
inline const std::string tidy = "@daily /bin/tidy\n";

/// A test that starts with an open editor over an empty TaskTable, the recording crontab, and an empty log. When it
/// ends, no connection may be open, and gMutex must be unlocked.
class EditorTest : public WorldTest {
protected:
    void SetUp() override;
    void TearDown() override;

    CommandWatch commands;
    std::unique_ptr<TaskEditor> editor;
};

} // namespace support
