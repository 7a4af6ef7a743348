#include "TaskEditor.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <sched.h>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "TaskLine.h"
#include "WorldTest.h"

using namespace support;

namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;

const std::string startLog = testDirectory + "started";
const std::string gate = testDirectory + "gate";
const std::string backup = "0 1 * * * /bin/backup\n";

Lines linesOf(const std::string& text)
{
    Lines lines;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
        lines.push_back(text.substr(begin, end - begin));
    return lines;
}

/// Waits until a file has `count` lines, and returns them.
Lines awaitLines(const std::string& path, std::size_t count)
{
    for (int look = 0; look < 3000; ++look) {
        const Lines lines = fs::exists(path) ? linesOf(readFile(path)) : Lines();
        if (lines.size() >= count)
            return lines;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error(path + " still has fewer than " + std::to_string(count) + " lines");
}

TaskInfo newTask()
{
    TaskInfo task(taskTypeScan);
    task.cronTime = "0 3 * * *";
    task.userId = anna;
    return task;
}

/// The operations on one task, with the real crontab and a real database. A script in the task manager's place logs its
/// arguments, one line for each start.
class TaskOperationsTest : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        installTaskManager("");
        editor = std::make_unique<TaskEditor>();
    }

    static void installTaskManager(const std::string& whatElseItDoes)
    {
        writeFile(taskManager,
            "#!/bin/sh\n"
            "line=$0; for argument; do line=\"$line [$argument]\"; done\n"
            "echo \"$line\" >>"
                + startLog + "\n" + whatElseItDoes + "\n");
        fs::permissions(taskManager, fs::perms::owner_all);
    }

    int create(bool runNow, const std::string& source = "LocalTask")
    {
        TaskInfo task = newTask();
        return editor->createTask(task, runNow, source);
    }

    /// The line that the start of a task writes to the log.
    static std::string startOf(int id, const std::string& more = "")
    {
        return taskManager + " [" + std::to_string(id) + "]" + more;
    }

    std::unique_ptr<TaskEditor> editor;
};

TEST_F(TaskOperationsTest, ANewTaskIsStartedWithItsIdAndThenItsSourceAsShellText)
{
    const std::vector<std::pair<std::string, std::string>> argumentsOfSources = {
        {"LocalTask", ""}, {"", ""}, {"Console", " [Console]"}, {"one 'two three' \"$0\"", " [one] [two three] [sh]"}};
    Lines starts;
    for (const auto& [source, arguments] : argumentsOfSources) {
        starts.push_back(startOf(create(true, source), arguments));
        EXPECT_EQ(starts, awaitLines(startLog, starts.size()));
    }
}

TEST_F(TaskOperationsTest, ANewTaskThatIsNotToRunNowIsNotStarted)
{
    const int waiting = create(false);
    const int running = create(true);
    EXPECT_NE(waiting, running);
    EXPECT_EQ(Lines{startOf(running)}, awaitLines(startLog, 1));
}

TEST_F(TaskOperationsTest, ACreationDoesNotWaitForTheTaskManagerItStarts)
{
    ASSERT_EQ(0, mkfifo(gate.c_str(), 0600));
    installTaskManager("read word <" + gate + "; echo \"$word\" >>" + startLog);
    const int id = create(true);
    EXPECT_EQ(Lines{startOf(id)}, awaitLines(startLog, 1)); // it is running, with its end of the pipe open
    writeFile(gate, "opened\n");
    EXPECT_EQ((Lines{startOf(id), "opened"}), awaitLines(startLog, 2));
}

TEST_F(TaskOperationsTest, ANewTaskIsStoredEvenIfThereIsNoTaskManager)
{
    fs::remove(taskManager);
    const int id = create(true);
    EXPECT_EQ(Lines{std::to_string(id)}, queryRows("select id from TaskTable"));
}

TEST_F(TaskOperationsTest, ANewOrModifiedTaskGetsItsCrontabLineWithTheNextRebuild)
{
    setCrontab("anna", backup);
    TaskInfo task = newTask();
    task.id = editor->createTask(task, false, "LocalTask");
    EXPECT_EQ(backup, crontabOf("anna"));
    editor->putCronFromDB();
    EXPECT_EQ(backup + taskLine(task.id), crontabOf("anna"));
    task.cronTime = "30 4 * * 1-5";
    EXPECT_TRUE(editor->modifyTask(task, false));
    EXPECT_EQ(backup + taskLine(task.id), crontabOf("anna"));
    editor->cleanCron();
    editor->putCronFromDB();
    EXPECT_EQ(backup + taskLine(task.id, "30 4 * * 1-5"), crontabOf("anna"));
}

TEST_F(TaskOperationsTest, ADeletedTaskLosesItsRowAndItsCrontabLineAndNothingElseChanges)
{
    const int first = create(false);
    const int second = create(false);
    const std::string others = backup + taskLine(second) + taskLine(first * 10 + 2);
    setCrontab("anna", "# of anna\nMAILTO=anna\n" + taskLine(first) + others);
    setCrontab("ben", taskLine(first));
    EXPECT_TRUE(editor->deleteTask(first, true, false));
    EXPECT_EQ(Lines{std::to_string(second)}, queryRows("select id from TaskTable"));
    EXPECT_EQ("# of anna\nMAILTO=anna\n" + others, crontabOf("anna"));
    EXPECT_EQ(taskLine(first), crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(TaskOperationsTest, ATaskWhoseRowStaysLosesItsCrontabLineOnly)
{
    const int id = create(false);
    setCrontab("anna", taskLine(id) + backup);
    EXPECT_TRUE(editor->deleteTask(id, false, false));
    EXPECT_EQ(Lines{std::to_string(id)}, queryRows("select id from TaskTable"));
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(TaskOperationsTest, ATaskIsDeletedEvenIfTheNewCrontabIsRefused)
{
    const int id = create(false);
    std::string minutes = "0";
    while (minutes.size() < 600)
        minutes += ",0";
    const std::string crontab = taskLine(id) + minutes + " 1 * * * /bin/backup\n"; // no job when cut to 499 characters
    setCrontab("anna", crontab);
    EXPECT_TRUE(editor->deleteTask(id, true, false));
    EXPECT_EQ(Lines(), queryRows("select id from TaskTable"));
    EXPECT_EQ(crontab, crontabOf("anna"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(TaskOperationsTest, ARefreshGivesJoinedTaskLinesLinesOfTheirOwn)
{
    create(false);
    execSql("update TaskTable set id=0");
    setCrontab("anna", backup + openTaskLine(7) + taskLine(8, "30 4 * * *"));
    EXPECT_TRUE(editor->refreshCron());
    EXPECT_EQ(backup + taskLine(7) + taskLine(8, "30 4 * * *"), crontabOf("anna"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(TaskOperationsTest, AUserDeletesATaskOfTheirOwnWithoutBeingRoot)
{
    const int id = create(false);
    setCrontab("anna", taskLine(id) + backup);
    editor.reset();
    fs::permissions(databasePath, fs::perms::all);
    fs::permissions(productDirectory + "var", fs::perms::all);
    fs::permissions(scratchDirectory, fs::perms::all);
    const pid_t child = fork();
    if (child == 0) {
        const bool isAnna = setgid(anna) == 0 && setuid(anna) == 0;
        _exit(isAnna && TaskEditor::getInstance()->deleteTask(id, true, false) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(Lines(), queryRows("select id from TaskTable"));
    EXPECT_EQ(backup, crontabOf("anna"));
}

/// Runs `work(0)`, `work(1)`, ... at once, each in a thread with its own editor.
void onThreads(int count, const std::function<void(int)>& work)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < count; ++thread)
        threads.emplace_back([&work, thread] {
            work(thread);
            TaskEditor::ReleaseInstance();
        });
    for (auto& thread : threads)
        thread.join();
}

TEST_F(TaskOperationsTest, TasksCreatedByEightThreadsAtOnceAreAllStoredAndStarted)
{
    onThreads(8, [](int) {
        for (int number = 0; number < 3; ++number) {
            TaskInfo task = newTask();
            TaskEditor::getInstance()->createTask(task, true, "Thread");
        }
    });
    const Lines starts = awaitLines(startLog, 24);
    std::set<std::string> expected;
    for (const auto& id : queryRows("select id from TaskTable"))
        expected.insert(startOf(std::stoi(id), " [Thread]"));
    EXPECT_EQ(24U, starts.size());
    EXPECT_EQ(expected, std::set<std::string>(starts.begin(), starts.end()));
}

TEST_F(TaskOperationsTest, TasksDeletedByEightThreadsAtOnceTakeNothingElseWithThem)
{
    std::vector<int> ids;
    std::string crontab;
    std::string foreign;
    for (int number = 0; number < 16; ++number) {
        ids.push_back(create(false));
        foreign += "# job " + std::to_string(number) + "\n" + backup;
        crontab += "# job " + std::to_string(number) + "\n" + taskLine(ids.back()) + backup;
    }
    setCrontab("anna", crontab);
    onThreads(8, [&ids](int thread) {
        for (const int half : {0, 8})
            EXPECT_TRUE(
                TaskEditor::getInstance()->deleteTask(ids.at(static_cast<std::size_t>(thread + half)), true, false));
    });
    EXPECT_EQ(foreign, crontabOf("anna"));
    EXPECT_EQ(Lines(), queryRows("select id from TaskTable"));
}

} // namespace
