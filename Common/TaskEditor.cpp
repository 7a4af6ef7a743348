#include "TaskEditor.h"

#include "Constants.h"
#include "CrontabText.h"
#include "OrvLogger.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>
#include <pwd.h>
#include <unistd.h>
#include <utility>
#include <vector>

std::mutex gMutex;

thread_local TaskEditor* TaskEditor::tEditor = nullptr;
thread_local pthread_mutex_t TaskEditor::m_taskEditorMutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr int logError = 3;
constexpr std::size_t commandCapacity = 1024; // with the terminator

struct PipeCloser {
    void operator()(FILE* pipe) const { pclose(pipe); }
};
using Pipe = std::unique_ptr<FILE, PipeCloser>;

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

enum class Copy {
    notStarted, // the command
    notOpened, // the file
    incomplete, // in the file
    whole,
};

bool copyToEnd(FILE* from, FILE* to)
{
    char block[BUFSIZ];
    std::size_t size;
    bool written = true;
    while ((size = std::fread(block, 1, sizeof block, from)) > 0) // to the end, or the command would be cut short
        written = std::fwrite(block, 1, size, to) == size && written;
    return written && !std::ferror(from);
}

Copy copyOutput(const char* command, const char* path)
{
    Pipe pipe(popen(command, "r")); // before the file is opened: a command that does not start truncates nothing
    if (pipe == nullptr)
        return Copy::notStarted;
    File file(std::fopen(path, "w"));
    if (file == nullptr)
        return Copy::notOpened;
    const bool copied = copyToEnd(pipe.get(), file.get());
    pipe.reset();
    const bool closed = std::fclose(file.release()) == 0;
    return copied && closed ? Copy::whole : Copy::incomplete;
}

bool started(const std::string& command)
{
    const Pipe pipe(popen(command.c_str(), "r"));
    return pipe != nullptr; // closing waits for the command; its exit status does not count
}

std::optional<std::string> accountName(int uid)
{
    std::vector<char> strings(1024);
    passwd entry{};
    passwd* found = nullptr;
    while (getpwuid_r(static_cast<uid_t>(uid), &entry, strings.data(), strings.size(), &found) == ERANGE)
        strings.resize(strings.size() * 2);
    return found == nullptr ? std::nullopt : std::optional<std::string>(found->pw_name);
}

std::string crontabCopy()
{
    return tempPath + "crontemp.txt";
}

std::string filteredCopy()
{
    return tempPath + "temp2.txt";
}

// One user's crontab, as the crontab command reaches it. The account is looked up once: were it found for installing
// only, because the look-up before reading has failed, an empty crontab would be installed.
class Crontab {
public:
    // Root's if the effective user is the super-user, else the caller's own.
    static Crontab own() { return Crontab(std::string(command) + (geteuid() == 0 ? "-u root " : "")); }

    static Crontab ofUser(int uid)
    {
        const auto name = accountName(uid);
        return name ? Crontab(command + ("-u " + *name + " ")) : Crontab();
    }

    bool hasAccount() const { return !m_command.empty(); }

    // Runs nothing without an account, and neither does install().
    Copy read() const
    {
        return hasAccount() ? copyOutput((m_command + "-l").c_str(), crontabCopy().c_str()) : Copy::notStarted;
    }

    // The scratch files have one name for all users. Without the removal, what a read that fails, or an earlier run
    // that was killed, has left there of another user's jobs would be installed for this one.
    Copy readAnew() const
    {
        std::remove(crontabCopy().c_str());
        std::remove(filteredCopy().c_str());
        return read();
    }

    bool install(const std::string& file) const { return hasAccount() && started(m_command + file); }

private:
    static constexpr auto command = "/usr/bin/crontab ";

    Crontab() = default;

    explicit Crontab(std::string beginning)
        : m_command(std::move(beginning))
    {
    }

    std::string m_command; // up to what it is to do; empty without an account
};

// True if all that was written has reached the file. A file that could not be opened at all does not count: what is
// then not there is left to the crontab command to refuse.
bool closeWritten(std::ofstream& out)
{
    if (!out.is_open())
        return true;
    out.close();
    return !out.fail();
}

using TextEdit = std::function<void(std::istream& in, std::ostream& out)>;

// The shape of every pass that rewrites a crontab: copy it, edit the copy into a second file, install that, remove
// both. An exception leaves both files where they are.
void rewriteCrontab(const Crontab& crontab, const TextEdit& edit)
{
    const Copy read = crontab.readAnew();
    std::ifstream in(crontabCopy());
    std::ofstream out(filteredCopy());
    edit(in, out);
    // A copy that could not be made at all counts as an empty crontab, whatever stands in its place.
    const bool cutOff = read == Copy::incomplete || (read == Copy::whole && in.bad());
    in.close();
    const bool written = closeWritten(out);
    if (!cutOff && written) // what a full or broken disk has left of a crontab is not the user's
        crontab.install(filteredCopy());
    std::remove(crontabCopy().c_str());
    std::remove(filteredCopy().c_str());
}

// `count` was asked before `list` was read: rows can have come or gone in between.
std::vector<int> firstOf(const TaskInterface::IdList& list, int count)
{
    return {list.begin(), list.begin() + std::min(list.count, count)};
}

std::vector<int> taskOwners(TaskEditor& editor)
{
    const int count = editor.getNumUser();
    if (count < 1)
        return {}; // the list would throw
    return firstOf(editor.userIds(), count);
}

void appendTaskLine(TaskEditor& editor, int id, std::ostream& out)
{
    const std::string cronTime = editor.getTaskParameter(id, "crontime");
    if (editor.getTaskType(id) != taskTypeScanNow)
        orv::writeTaskLine(out, cronTime, id);
}

void appendTaskLines(TaskEditor& editor, int uid, const Crontab& crontab)
{
    const Copy read = crontab.readAnew();
    std::ofstream out(crontabCopy(), std::ios::app);
    const int count = editor.getNumTaskRecordForUser(uid); // what this throws ends the pass
    if (count < 1)
        return; // nothing to install; the copy stays behind, and the next user's takes its place
    std::vector<int> tasks;
    try {
        tasks = firstOf(editor.taskIdsForUser(uid), count);
    } catch (...) {
        return; // this user goes without new lines, the others do not
    }
    for (const int id : tasks) {
        try {
            appendTaskLine(editor, id, out);
        } catch (...) {
            continue; // a task that is gone by now, say: its line is missing, the others are not
        }
    }
    if (closeWritten(out) && read != Copy::incomplete)
        crontab.install(crontabCopy());
    std::remove(crontabCopy().c_str());
}

orv::OwnedTask readTask(TaskEditor& editor, int id)
{
    TaskInfo* task = nullptr;
    editor.getTaskInfoObject(id, &task);
    return orv::OwnedTask(task);
}

void startTaskManager(int id, const std::string& source)
{
    char command[commandCapacity] = "";
    const int length = source == "LocalTask"
        ? std::snprintf(command, sizeof command, "%sTessaraTaskManager %d &", tmanagerPath.c_str(), id)
        : std::snprintf(
            command, sizeof command, "%sTessaraTaskManager %d %s &", tmanagerPath.c_str(), id, source.c_str());
    // A cut command would lose its "&", or run something else. A negative length is one beyond what int can say.
    const bool fits = static_cast<std::size_t>(length) < sizeof command;
    Pipe pipe(fits ? popen(command, "r") : nullptr);
    if (pipe == nullptr)
        LogMsg(logError, "popen failed for %s", command);
    else if (pclose(pipe.release()) != 0) // not read to its end: that would wait for the task manager
        LogMsg(logError, "command %s didn't run successfully", command);
}

} // namespace

bool executeCommand(const char* command, const char* path)
{
    const Copy copy = copyOutput(command, path);
    return copy == Copy::whole || copy == Copy::incomplete;
}

TaskEditor* TaskEditor::getInstance()
{
    if (tEditor != nullptr)
        return tEditor;
    pthread_mutex_lock(&m_taskEditorMutex); // no guard: a constructor that throws leaves it held, and that is kept
    if (tEditor == nullptr)
        tEditor = new TaskEditor;
    pthread_mutex_unlock(&m_taskEditorMutex);
    return tEditor;
}

void TaskEditor::ReleaseInstance()
{
    if (tEditor == nullptr)
        return;
    pthread_mutex_lock(&m_taskEditorMutex);
    delete tEditor;
    tEditor = nullptr;
    pthread_mutex_unlock(&m_taskEditorMutex);
}

TaskEditor::TaskEditor() = default;

std::string TaskEditor::readCron()
{
    Crontab::own().read();
    return crontabCopy();
}

std::string TaskEditor::readCron(int uid)
{
    Crontab::ofUser(uid).read();
    return crontabCopy();
}

bool TaskEditor::writeCron(std::string file)
{
    return Crontab::own().install(file);
}

bool TaskEditor::writeCron(std::string file, int uid)
{
    return Crontab::ofUser(uid).install(file);
}

bool TaskEditor::cleanCron()
{
    for (const int uid : taskOwners(*this)) // with or without an account: one without has no crontab to lose
        rewriteCrontab(Crontab::ofUser(uid), orv::dropTaskLines);
    return true;
}

bool TaskEditor::putCronFromDB()
{
    for (const int uid : taskOwners(*this)) {
        const Crontab crontab = Crontab::ofUser(uid);
        if (crontab.hasAccount())
            appendTaskLines(*this, uid, crontab);
    }
    return true;
}

bool TaskEditor::refreshCron()
{
    const orv::CronTimeOf cronTimeOf = [this](int id) { return readTask(*this, id)->cronTime; };
    for (const int uid : taskOwners(*this))
        rewriteCrontab(Crontab::ofUser(uid),
            [&](std::istream& in, std::ostream& out) { orv::splitTaskLines(cronTimeOf, in, out); });
    return true;
}

int TaskEditor::createTask(TaskInfo& task, bool runNow, std::string source)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    const int id = writeDbTask(task);
    if (runNow)
        startTaskManager(id, source);
    return id;
}

bool TaskEditor::modifyTask(TaskInfo& task, bool)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    return modifyDbTask(task);
}

bool TaskEditor::deleteTask(int id, bool fromDatabase, bool)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    const orv::OwnedTask task = readTask(*this, id);
    const bool deleted = !fromDatabase || deleteDbTask(id);
    if (task->type != taskTypeScanNow)
        deleteCronEntry(id, task->userId);
    return deleted;
}

bool TaskEditor::deleteCronEntry(int taskId, int uid)
{
    // The real user decides here: a program that a user runs with raised rights still edits that user's own crontab.
    rewriteCrontab(getuid() == 0 ? Crontab::ofUser(uid) : Crontab::own(),
        [taskId](std::istream& in, std::ostream& out) { orv::dropLinesOfTask(taskId, in, out); });
    return true;
}
