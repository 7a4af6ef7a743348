#pragma once

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "StoreTest.h" // IWYU pragma: export
#include "TaskEditor.h" // IWYU pragma: export
#include "TaskLine.h" // IWYU pragma: export

/// What the tests of the editor stand on: each command that the program starts goes through this test program, which
/// writes it down, refuses it, or lets something happen before it; so does each connection that it opens.
namespace support {

using Lines = std::vector<std::string>;

/// While it lives, it stands between the product and the shell. One at a time.
class CommandWatch {
public:
    CommandWatch();
    ~CommandWatch();
    CommandWatch(const CommandWatch&) = delete;
    CommandWatch& operator=(const CommandWatch&) = delete;

    /// The commands that were to be started since the last call of this, refused ones included.
    Lines takeCommands();
    /// From now on `command` cannot be started.
    void refuse(const std::string& command);
    /// From now on runs `action` before each command.
    void beforeEach(std::function<void()> action);
};

/// While it lives, it counts the connections to SQLite that are opened, other than by its own actions. One at a time.
class ConnectionWatch {
public:
    ConnectionWatch();
    ~ConnectionWatch();
    ConnectionWatch(const ConnectionWatch&) = delete;
    ConnectionWatch& operator=(const ConnectionWatch&) = delete;

    /// Runs `action` before anything is done with the connection of this number; the first is 1.
    void before(int number, std::function<void()> action);
    /// As before(), for every connection.
    void beforeEach(std::function<void()> action);
    /// How many there were.
    int count() const;
};

/// Runs `body` in another process with these user ids, on what this process has open. What it expects in vain fails the
/// test.
void asUser(uid_t real, uid_t effective, const std::function<void()>& body);

/// Whether another thread finds gMutex taken.
bool taskLockHeld();

/// What a scratch file holds.
std::string scratchFile(const std::string& name);

/// Lets everybody write to the scratch directory.
void openScratchDirectory();

/// The command that reads the crontab of an account.
std::string reading(const std::string& name);
/// The command that installs a scratch file as the crontab of an account.
std::string installing(const std::string& name, const std::string& scratchFile = "temp2.txt");

/// A foreign job, with its line feed.
inline const std::string backup = "0 1 * * * /bin/backup\n";
/// Another one.
inline const std::string tidy = "@daily /bin/tidy\n";

/// A test that finds an open editor over an empty TaskTable, the recording crontab in place, and nothing logged. When
/// it has ended, no connection may be open any more, and gMutex must be free.
class EditorTest : public WorldTest {
protected:
    void SetUp() override;
    void TearDown() override;

    CommandWatch commands;
    std::unique_ptr<TaskEditor> editor;
};

} // namespace support
