#include "OrvException.h"
#include "TaskEditor.h"
#include "WorldTest.h"

#include <atomic>
#include <cstdio>
#include <functional>
#include <sched.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

// Many threads and many processes use the task library at the same time.

using namespace support;

namespace {

constexpr int threads = 16;
constexpr int processes = 4;
constexpr int tasksEach = 12;

std::string nameOf(int worker, int task)
{
    return "worker " + std::to_string(worker) + " task " + std::to_string(task);
}

bool stays(int task)
{
    return task % 3 != 0;
}

// Creates tasks, changes each, and deletes every third one. They are one-off tasks: deleting one touches no crontab,
// whose scratch files only one process may use at a time.
void work(int worker)
{
    TaskEditor& editor = *TaskEditor::getInstance();
    for (int i = 0; i < tasksEach; ++i) {
        TaskInfo task(taskTypeScanNow);
        task.id = editor.createTask(task, false, "LocalTask");
        task.description = nameOf(worker, i);
        task.count = 1;
        editor.modifyTask(task, false);
        editor.incrementCount(task.id);
        if (!stays(i))
            editor.deleteTask(task.id, true, false);
    }
    TaskEditor::ReleaseInstance();
}

std::set<std::string> expectedRows(int workers)
{
    std::set<std::string> rows;
    for (int worker = 0; worker < workers; ++worker)
        for (int i = 0; i < tasksEach; ++i)
            if (stays(i))
                rows.insert(nameOf(worker, i) + "|2");
    return rows;
}

void expectEveryTaskOnce(int workers)
{
    const auto rows = queryRows("select description, count from TaskTable");
    EXPECT_EQ(expectedRows(workers), std::set<std::string>(rows.begin(), rows.end()));
    EXPECT_EQ(expectedRows(workers).size(), rows.size());
    EXPECT_EQ(std::vector<std::string>{"ok"}, queryRows("pragma integrity_check"));
}

// Reads until told to stop. Meanwhile the table changes: the number of rows can differ from the count before it, and a
// task can be gone. Any other failure is an error.
void readUntil(const std::function<bool()>& done)
{
    TaskEditor& editor = *TaskEditor::getInstance();
    while (!done()) {
        try {
            EXPECT_GE(editor.getNumTaskRecord(), 0);
            delete[] editor.getTaskIdArray();
            delete[] editor.getNumUserArray();
        } catch (SqliteException& failure) {
            EXPECT_EQ(401, failure.getErrorCode()) << failure.getMessage();
        }
    }
    TaskEditor::ReleaseInstance();
}

// Runs `body` in a child process, whose exit status is 0 if `body` returns and no expectation failed.
pid_t inProcess(const std::function<void()>& body)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    try {
        body();
    } catch (SqliteException& failure) {
        std::fprintf(stderr, "%s, %d\n", failure.getMessage(), failure.getErrorCode());
        _exit(2);
    }
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

int statusOf(pid_t child)
{
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

class ManyAtOnce : public WorldTest { };

} // namespace

TEST_F(ManyAtOnce, SixteenThreadsNeitherLoseNorDuplicateATask)
{
    std::atomic<bool> done{false};
    std::thread reader([&done] { readUntil([&done] { return done.load(); }); });
    std::vector<std::thread> workers;
    for (int i = 0; i < threads; ++i)
        workers.emplace_back(work, i);
    for (std::thread& worker : workers)
        worker.join();
    done = true;
    reader.join();
    expectEveryTaskOnce(threads);
}

TEST_F(ManyAtOnce, FourProcessesNeitherLoseNorDuplicateATaskWhileOthersRead)
{
    std::vector<pid_t> writers;
    for (int i = 0; i < processes; ++i)
        writers.push_back(inProcess([i] { work(i); }));
    const std::string flag = testDirectory + "done";
    const auto done = [&flag] { return access(flag.c_str(), F_OK) == 0; };
    const pid_t readers[] = {inProcess([&] { readUntil(done); }), inProcess([&] { readUntil(done); })};
    for (const pid_t writer : writers)
        EXPECT_EQ(0, statusOf(writer));
    writeFile(flag, "");
    for (const pid_t reader : readers)
        EXPECT_EQ(0, statusOf(reader));
    expectEveryTaskOnce(processes);
}
