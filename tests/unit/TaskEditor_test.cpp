#include "TaskEditor.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>

#include "EditorTest.h"

using namespace support;
using namespace std::string_literals;

namespace fs = std::filesystem;

namespace {

/// What a program that derives from the editor sees of this thread's state.
class ThreadsOwn : public TaskEditor {
public:
    static TaskEditor* editor() { return tEditor; }
    static pthread_mutex_t* mutex() { return &m_taskEditorMutex; }
    static void lock() { pthread_mutex_lock(&m_taskEditorMutex); }
    static void unlock() { pthread_mutex_unlock(&m_taskEditorMutex); }
    static bool locked()
    {
        if (pthread_mutex_trylock(&m_taskEditorMutex) == EBUSY)
            return true;
        unlock();
        return false;
    }
};

/// No thread has an editor; there is no database yet.
class EditorInstanceTest : public WorldTest {
protected:
    void TearDown() override
    {
        TaskEditor::ReleaseInstance();
        EXPECT_EQ(0, openDatabaseDescriptors());
    }
};

/// A lock that `body` leaves held is given back at the end: the next thread's may lie at the same address.
void inAnotherThread(const std::function<void()>& body)
{
    std::thread([&body] {
        body();
        if (ThreadsOwn::locked())
            ThreadsOwn::unlock();
    }).join();
}

TEST_F(EditorInstanceTest, IsTheSameEachTimeAThreadAsks)
{
    TaskEditor* const editor = TaskEditor::getInstance();
    ASSERT_NE(nullptr, editor);
    EXPECT_EQ(editor, TaskEditor::getInstance());
    EXPECT_EQ(editor, ThreadsOwn::editor());
}

TEST_F(EditorInstanceTest, DiffersForEachThread)
{
    TaskEditor* const mine = TaskEditor::getInstance();
    inAnotherThread([mine] {
        EXPECT_EQ(nullptr, ThreadsOwn::editor());
        EXPECT_NE(mine, TaskEditor::getInstance());
        EXPECT_EQ(TaskEditor::getInstance(), TaskEditor::getInstance());
        EXPECT_EQ(0, TaskEditor::getInstance()->getNumTaskRecord());
        TaskEditor::ReleaseInstance();
    });
    EXPECT_EQ(mine, TaskEditor::getInstance());
}

TEST_F(EditorInstanceTest, HoldsAConnectionOfItsOwn)
{
    TaskEditor::getInstance();
    EXPECT_EQ(1, openDatabaseDescriptors());
    inAnotherThread([] {
        TaskEditor::getInstance();
        EXPECT_EQ(2, openDatabaseDescriptors());
        TaskEditor::ReleaseInstance();
        EXPECT_EQ(1, openDatabaseDescriptors());
    });
}

TEST_F(EditorInstanceTest, IsMadeOnlyWhenItIsAskedFor)
{
    EXPECT_EQ(nullptr, ThreadsOwn::editor());
    const TaskEditor other;
    EXPECT_EQ(nullptr, ThreadsOwn::editor());
    EXPECT_NE(&other, TaskEditor::getInstance());
}

TEST_F(EditorInstanceTest, ClosesItsDatabaseWhenItIsReleasedAndOpensItAgain)
{
    TaskEditor::getInstance();
    TaskEditor::ReleaseInstance();
    EXPECT_EQ(nullptr, ThreadsOwn::editor());
    EXPECT_EQ(0, openDatabaseDescriptors());
    fs::remove(databasePath);
    EXPECT_EQ(0, TaskEditor::getInstance()->getNumTaskRecord());
    EXPECT_TRUE(fs::exists(databasePath));
}

TEST_F(EditorInstanceTest, CanBeReleasedTwiceOrBeforeItIsMade)
{
    TaskEditor::ReleaseInstance();
    TaskEditor::getInstance();
    TaskEditor::ReleaseInstance();
    TaskEditor::ReleaseInstance();
    EXPECT_EQ(nullptr, ThreadsOwn::editor());
}

TEST_F(EditorInstanceTest, LeavesItsLockFree)
{
    TaskEditor::getInstance();
    EXPECT_FALSE(ThreadsOwn::locked());
    TaskEditor::getInstance();
    EXPECT_FALSE(ThreadsOwn::locked());
    TaskEditor::ReleaseInstance();
    EXPECT_FALSE(ThreadsOwn::locked());
}

TEST_F(EditorInstanceTest, IsReturnedWithoutLockingOnceItExists)
{
    TaskEditor* const editor = TaskEditor::getInstance();
    ThreadsOwn::lock();
    EXPECT_EQ(editor, TaskEditor::getInstance());
    ThreadsOwn::unlock();
}

TEST_F(EditorInstanceTest, HoldsItsLockWhileItIsMade)
{
    bool locked = false;
    ConnectionWatch connections;
    connections.before(1, [&locked] { locked = ThreadsOwn::locked(); });
    TaskEditor::getInstance();
    EXPECT_TRUE(locked);
}

TEST_F(EditorInstanceTest, WaitsForItsLockWhenItIsReleased)
{
    std::promise<pthread_mutex_t*> made;
    std::promise<void> locked;
    std::atomic<bool> released{false};
    std::thread owner([&] {
        TaskEditor::getInstance();
        made.set_value(ThreadsOwn::mutex());
        locked.get_future().wait();
        TaskEditor::ReleaseInstance();
        released = true;
    });
    pthread_mutex_t* const lock = made.get_future().get();
    pthread_mutex_lock(lock);
    locked.set_value();
    usleep(50000); // far more than it would take without the lock
    EXPECT_FALSE(released);
    pthread_mutex_unlock(lock);
    owner.join();
    EXPECT_TRUE(released);
}

void expectNoEditorButTheLockHeld(int code)
{
    try {
        TaskEditor::getInstance();
        ADD_FAILURE() << "there is an editor";
    } catch (SqliteException& failure) {
        EXPECT_EQ(code, failure.getErrorCode());
    }
    EXPECT_EQ(nullptr, ThreadsOwn::editor());
    EXPECT_TRUE(ThreadsOwn::locked());
}

TEST_F(EditorInstanceTest, ThatCannotBeMadeLeavesTheLockOfItsThreadHeldAndCanBeReleasedWithoutIt)
{
    fs::create_directory(databasePath);
    inAnotherThread([] {
        expectNoEditorButTheLockHeld(14); // the file cannot be opened
        TaskEditor::ReleaseInstance();
        EXPECT_TRUE(ThreadsOwn::locked());
    });
}

TEST_F(EditorInstanceTest, ThatCannotBeMadeDoesNotAffectOtherThreads)
{
    fs::create_directory(databasePath);
    inAnotherThread([] { EXPECT_THROW(TaskEditor::getInstance(), SqliteException); });
    fs::remove(databasePath);
    EXPECT_FALSE(ThreadsOwn::locked());
    EXPECT_EQ(0, TaskEditor::getInstance()->getNumTaskRecord());
    inAnotherThread([] {
        EXPECT_EQ(0, TaskEditor::getInstance()->getNumTaskRecord());
        TaskEditor::ReleaseInstance();
    });
}

TEST_F(EditorInstanceTest, IsNotMadeIfTheTableCannotBeMade)
{
    writeFile(databasePath, "this is no database, and it is long enough to be seen as none");
    inAnotherThread([] { expectNoEditorButTheLockHeld(26); }); // not a database
    EXPECT_EQ(0, openDatabaseDescriptors());
}

class ExecuteCommandTest : public WorldTest {
protected:
    bool execute(const std::string& command) { return executeCommand(command.c_str(), file.c_str()); }

    CommandWatch commands;
    const std::string file = testDirectory + "output";
};

TEST_F(ExecuteCommandTest, WritesWhatTheCommandPrintsByteForByte)
{
    EXPECT_TRUE(execute("printf 'a\\000\\377\\r\\n\\nb'"));
    EXPECT_EQ("a\0\xff\r\n\nb"s, readFile(file));
}

TEST_F(ExecuteCommandTest, WritesTheLastCharacterWhereverItComes)
{
    for (const int size : {1, BUFSIZ - 1, BUFSIZ, BUFSIZ + 1, 2 * BUFSIZ + 1}) {
        EXPECT_TRUE(execute("printf %" + std::to_string(size) + "s x"));
        EXPECT_EQ(std::string(static_cast<std::size_t>(size) - 1, ' ') + "x", readFile(file));
    }
}

TEST_F(ExecuteCommandTest, ReplacesWhatTheFileHeld)
{
    writeFile(file, "a long text from before\n");
    EXPECT_TRUE(execute("echo new"));
    EXPECT_EQ("new\n", readFile(file));
}

TEST_F(ExecuteCommandTest, WritesMoreThanAPipeHolds)
{
    EXPECT_TRUE(execute("i=0; while [ $i -lt 20000 ]; do echo line $i; i=$((i + 1)); done"));
    std::string all;
    for (int line = 0; line < 20000; ++line)
        all += "line " + std::to_string(line) + "\n";
    EXPECT_TRUE(all == readFile(file));
}

TEST_F(ExecuteCommandTest, IsTrueAndWritesAnEmptyFileForACommandThatFailsOrIsMissing)
{
    for (const char* command : {"exit 3", "/nonexistent/program 2>/dev/null"}) {
        writeFile(file, "old");
        EXPECT_TRUE(execute(command)) << command;
        EXPECT_EQ("", readFile(file)) << command;
    }
}

TEST_F(ExecuteCommandTest, KeepsWhatACommandPrintedBeforeItFailed)
{
    EXPECT_TRUE(execute("echo text; kill -9 $$"));
    EXPECT_EQ("text\n", readFile(file));
}

TEST_F(ExecuteCommandTest, LeavesStandardErrorAlone)
{
    EXPECT_TRUE(execute("exec 2>" + testDirectory + "errors; echo complaint >&2; echo text"));
    EXPECT_EQ("text\n", readFile(file));
    EXPECT_EQ("complaint\n", readFile(testDirectory + "errors"));
}

TEST_F(ExecuteCommandTest, WaitsForTheEndOfTheCommand)
{
    EXPECT_TRUE(execute("exec >&-; sleep 0.2; echo end >" + testDirectory + "ended"));
    EXPECT_EQ("end\n", readFile(testDirectory + "ended"));
}

TEST_F(ExecuteCommandTest, WritesWhatItStillHoldsOnlyWhenTheCommandHasEnded)
{
    const std::string seen = testDirectory + "seen";
    EXPECT_TRUE(execute("printf text; exec 1>&-; sleep 0.1; cat " + file + " >" + seen));
    EXPECT_EQ("", readFile(seen));
    EXPECT_EQ("text", readFile(file));
}

TEST_F(ExecuteCommandTest, IsFalseAndNeitherMakesNorTruncatesTheFileIfTheCommandCannotBeStarted)
{
    commands.refuse("echo new");
    EXPECT_FALSE(execute("echo new"));
    EXPECT_FALSE(fs::exists(file));
    writeFile(file, "old");
    EXPECT_FALSE(execute("echo new"));
    EXPECT_EQ("old", readFile(file));
}

TEST_F(ExecuteCommandTest, IsFalseIfTheFileCannotBeOpenedAlthoughTheCommandHasRun)
{
    const std::string command = "echo end >" + testDirectory + "ended";
    EXPECT_FALSE(executeCommand(command.c_str(), (testDirectory + "missing/output").c_str()));
    EXPECT_EQ("end\n", readFile(testDirectory + "ended"));
}

TEST_F(ExecuteCommandTest, IsTrueAndLetsTheCommandFinishIfTheFileCannotHoldItAll)
{
    limitScratchDirectory(4096, 0);
    const std::string command = "printf '%200000s' x && echo end >" + testDirectory + "ended";
    EXPECT_TRUE(executeCommand(command.c_str(), (scratchDirectory + "output").c_str()));
    EXPECT_EQ(std::string(4096, ' '), scratchFile("output"));
    EXPECT_EQ("end\n", readFile(testDirectory + "ended"));
}

TEST_F(ExecuteCommandTest, LeavesNoDescriptorOpen)
{
    const auto descriptors
        = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()); };
    const auto before = descriptors();
    EXPECT_TRUE(execute("echo text"));
    EXPECT_FALSE(executeCommand("echo text", (testDirectory + "missing/output").c_str()));
    EXPECT_EQ(before, descriptors());
}

const std::string crontabCopy = "/usr/local/Quarno/Kestrelcore/var/tmp/crontemp.txt";

class ReadCronTest : public EditorTest { };

TEST_F(ReadCronTest, AsRootReadsRootsCrontabByName)
{
    setCrontab("root", backup);
    EXPECT_EQ(crontabCopy, editor->readCron());
    EXPECT_EQ(Lines{"/usr/bin/crontab -u root -l"}, commands.takeCommands());
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(ReadCronTest, AsAnotherUserReadsThatUsersOwnCrontab)
{
    openScratchDirectory();
    setCrontab("anna", backup);
    asUser(anna, anna, [this] {
        EXPECT_EQ(crontabCopy, editor->readCron());
        EXPECT_EQ(Lines{"/usr/bin/crontab -l"}, commands.takeCommands());
    });
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(ReadCronTest, GoesByTheEffectiveUser)
{
    openScratchDirectory();
    asUser(0, anna, [this] {
        editor->readCron();
        EXPECT_EQ(Lines{"/usr/bin/crontab -l"}, commands.takeCommands());
    });
    fs::remove(crontabCopy);
    asUser(anna, 0, [this] {
        editor->readCron();
        EXPECT_EQ(Lines{"/usr/bin/crontab -u root -l"}, commands.takeCommands());
    });
}

TEST_F(ReadCronTest, ReadsTheCrontabOfAnAccountByItsName)
{
    setCrontab("root", backup);
    setCrontab("ben", tidy);
    EXPECT_EQ(crontabCopy, editor->readCron(ben));
    EXPECT_EQ(tidy, readFile(crontabCopy));
    EXPECT_EQ(crontabCopy, editor->readCron(0));
    EXPECT_EQ(backup, readFile(crontabCopy));
    EXPECT_EQ((Lines{"/usr/bin/crontab -u ben -l", "/usr/bin/crontab -u root -l"}), commands.takeCommands());
}

TEST_F(ReadCronTest, PassesTheAccountNameWhoeverRunsIt)
{
    openScratchDirectory();
    asUser(anna, anna, [this] {
        editor->readCron(anna);
        EXPECT_EQ(Lines{"/usr/bin/crontab -u anna -l"}, commands.takeCommands());
    });
}

TEST_F(ReadCronTest, FindsAnAccountWithALongEntry)
{
    const std::string name(3000, 'n');
    addAccount(name, 600);
    onCrontabCall("exit");
    editor->readCron(600);
    EXPECT_EQ(Lines{"/usr/bin/crontab -u " + name + " -l"}, commands.takeCommands());
}

TEST_F(ReadCronTest, ReplacesTheCopyOfAnEarlierReadEvenForAUserWithoutACrontab)
{
    setCrontab("anna", backup);
    editor->readCron(anna);
    EXPECT_EQ(crontabCopy, editor->readCron(ben));
    EXPECT_EQ("", readFile(crontabCopy));
    editor->readCron(anna);
    EXPECT_EQ(crontabCopy, editor->readCron());
    EXPECT_EQ("", readFile(crontabCopy));
    EXPECT_EQ(Lines{"crontemp.txt"}, scratchFiles());
}

TEST_F(ReadCronTest, RunsNothingForAnIdWithoutAnAccount)
{
    writeFile(crontabCopy, backup);
    EXPECT_EQ(crontabCopy, editor->readCron(nobodysUid));
    EXPECT_EQ(crontabCopy, editor->readCron(-1));
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(ReadCronTest, MakesNoCopyAndLeavesThatOfAnEarlierReadIfTheCommandCannotBeStarted)
{
    commands.refuse(reading("anna"));
    commands.refuse(reading("root"));
    EXPECT_EQ(crontabCopy, editor->readCron(anna));
    EXPECT_EQ(Lines(), scratchFiles());
    writeFile(crontabCopy, backup);
    EXPECT_EQ(crontabCopy, editor->readCron(anna));
    EXPECT_EQ(crontabCopy, editor->readCron());
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(ReadCronTest, LeavesTheCopyOfAnEarlierReadIfItCannotBeOpened)
{
    writeFile(crontabCopy, backup); // root's, so that anna may not write it
    asUser(anna, anna, [this] {
        EXPECT_EQ(crontabCopy, editor->readCron());
        EXPECT_EQ(Lines{"/usr/bin/crontab -l"}, commands.takeCommands());
        EXPECT_EQ(crontabCopy, editor->readCron(anna));
    });
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(ReadCronTest, ReturnsThePathOfACopyThatCannotBeMade)
{
    fs::remove(scratchDirectory);
    EXPECT_EQ(crontabCopy, editor->readCron(anna));
    EXPECT_EQ(crontabCopy, editor->readCron());
    EXPECT_EQ((Lines{reading("anna"), reading("root")}), commands.takeCommands());
    EXPECT_FALSE(fs::exists(scratchDirectory));
}

TEST_F(ReadCronTest, TakesNoLock)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    EXPECT_EQ(crontabCopy, editor->readCron());
    EXPECT_EQ(crontabCopy, editor->readCron(anna));
}

class WriteCronTest : public EditorTest {
protected:
    void SetUp() override
    {
        EditorTest::SetUp();
        writeFile(file, backup);
    }

    const std::string file = testDirectory + "new-crontab";
};

TEST_F(WriteCronTest, AsRootInstallsRootsCrontab)
{
    EXPECT_TRUE(editor->writeCron(file));
    EXPECT_EQ(Lines{"/usr/bin/crontab -u root " + file}, commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("root"));
}

TEST_F(WriteCronTest, AsAnotherUserInstallsThatUsersOwnCrontab)
{
    asUser(anna, anna, [this] {
        EXPECT_TRUE(editor->writeCron(file));
        EXPECT_EQ(Lines{"/usr/bin/crontab " + file}, commands.takeCommands());
    });
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_FALSE(hasCrontab("root"));
}

TEST_F(WriteCronTest, GoesByTheEffectiveUser)
{
    asUser(0, anna, [this] {
        EXPECT_TRUE(editor->writeCron(file));
        EXPECT_EQ(Lines{"/usr/bin/crontab " + file}, commands.takeCommands());
    });
    asUser(anna, 0, [this] {
        EXPECT_TRUE(editor->writeCron(file));
        EXPECT_EQ(Lines{"/usr/bin/crontab -u root " + file}, commands.takeCommands());
    });
}

TEST_F(WriteCronTest, InstallsTheCrontabOfAnAccountByItsName)
{
    EXPECT_TRUE(editor->writeCron(file, ben));
    EXPECT_EQ(Lines{"/usr/bin/crontab -u ben " + file}, commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("ben"));
    EXPECT_FALSE(hasCrontab("anna"));
}

TEST_F(WriteCronTest, InstallsAnEmptyCrontab)
{
    setCrontab("anna", tidy);
    writeFile(file, "");
    EXPECT_TRUE(editor->writeCron(file, anna));
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(WriteCronTest, LeavesTheFileWhereItIs)
{
    EXPECT_TRUE(editor->writeCron(file));
    EXPECT_EQ(backup, readFile(file));
}

TEST_F(WriteCronTest, IsTrueForACrontabThatTheCommandRejects)
{
    setCrontab("anna", tidy);
    onCrontabCall("exit 1");
    EXPECT_TRUE(editor->writeCron(file, anna));
    EXPECT_TRUE(editor->writeCron(file));
    EXPECT_EQ(tidy, crontabOf("anna"));
}

TEST_F(WriteCronTest, IsTrueForAMissingFile)
{
    setCrontab("anna", tidy);
    EXPECT_TRUE(editor->writeCron(testDirectory + "missing", anna));
    EXPECT_EQ(tidy, crontabOf("anna"));
}

TEST_F(WriteCronTest, IsFalseIfTheCommandCannotBeStarted)
{
    commands.refuse("/usr/bin/crontab -u anna " + file);
    commands.refuse("/usr/bin/crontab -u root " + file);
    EXPECT_FALSE(editor->writeCron(file, anna));
    EXPECT_FALSE(editor->writeCron(file));
    EXPECT_FALSE(hasCrontab("anna"));
    EXPECT_FALSE(hasCrontab("root"));
}

TEST_F(WriteCronTest, IsFalseAndRunsNothingForAnIdWithoutAnAccount)
{
    EXPECT_FALSE(editor->writeCron(file, nobodysUid));
    EXPECT_FALSE(editor->writeCron(file, -1));
    EXPECT_EQ(Lines(), commands.takeCommands());
}

TEST_F(WriteCronTest, WaitsForTheEndOfTheCommand)
{
    onCrontabCall("exec >&-; sleep 0.2");
    EXPECT_TRUE(editor->writeCron(file, anna));
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(WriteCronTest, TakesNoLock)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    EXPECT_TRUE(editor->writeCron(file));
    EXPECT_TRUE(editor->writeCron(file, anna));
}

} // namespace
