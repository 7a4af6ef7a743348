#include "TaskEditor.h"

#include "Constants.h"
#include "CrontabText.h"
#include "OrvLogger.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <functional>
#include <ios>
#include <istream>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <pwd.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

std::mutex gMutex;

thread_local TaskEditor* TaskEditor::tEditor = nullptr;
thread_local pthread_mutex_t TaskEditor::m_taskEditorMutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr int logError = 3;
constexpr std::size_t maxCommandLength = 1023;

struct PipeCloser {
    void operator()(FILE* pipe) const { pclose(pipe); }
};
using Pipe = std::unique_ptr<FILE, PipeCloser>;

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// How much of a command's output the scratch file holds.
enum class Copy {
    none, // nothing: the command did not start, or the file could not be opened
    whole, // all of it
    unusable, // a part of it, or an earlier run's output; neither may be installed
};

// What is left of a scratch file after an attempt to remove it.
enum class Leftover {
    none, // nothing, or something that cannot hold a crontab: a directory, a socket
    file, // a file, which can perhaps be overwritten
    other, // a link, a file with a second name, a pipe or a device: a crontab written there would go elsewhere
};

Leftover removeLeftover(const std::string& path)
{
    if (std::remove(path.c_str()) == 0 || errno == ENOENT)
        return Leftover::none;
    struct stat state { };
    if (lstat(path.c_str(), &state) != 0)
        return errno == ENOENT || errno == ENOTDIR ? Leftover::none : Leftover::other;
    if (S_ISDIR(state.st_mode) || S_ISSOCK(state.st_mode))
        return Leftover::none;
    return S_ISREG(state.st_mode) && state.st_nlink == 1 ? Leftover::file : Leftover::other;
}

bool copyToEnd(FILE* from, FILE* to)
{
    char block[BUFSIZ];
    std::size_t size;
    bool written = true;
    while ((size = std::fread(block, 1, sizeof block, from)) > 0) // to the end, or a signal stops the command
        written = std::fwrite(block, 1, size, to) == size && written;
    return written && !std::ferror(from);
}

Copy copyOutput(const char* command, const char* path)
{
    Pipe pipe(popen(command, "r")); // first: if the command does not start, the file keeps its contents
    if (pipe == nullptr)
        return Copy::none;
    File file(std::fopen(path, "w"));
    if (file == nullptr)
        return Copy::none;
    const bool copied = copyToEnd(pipe.get(), file.get());
    pipe.reset();
    const bool closed = std::fclose(file.release()) == 0;
    return copied && closed ? Copy::whole : Copy::unusable;
}

// Nothing if the file cannot be opened or read to its end.
std::optional<std::string> contentsOf(const std::string& path)
{
    const File file(std::fopen(path.c_str(), "r"));
    if (file == nullptr)
        return std::nullopt;
    std::string contents;
    char block[BUFSIZ];
    while (const std::size_t size = std::fread(block, 1, sizeof block, file.get()))
        contents.append(block, size);
    return std::ferror(file.get()) ? std::nullopt : std::optional<std::string>(std::move(contents));
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

const std::string crontabCopy = tempPath + "crontemp.txt";
const std::string filteredCopy = tempPath + "temp2.txt";

// One user's crontab. The account is looked up once: if a first look-up failed before reading, and a second one
// succeeded before installing, an empty crontab would be installed.
class Crontab {
public:
    static Crontab own() { return Crontab(std::string(command) + (geteuid() == 0 ? "-u root " : "")); }

    static Crontab ofUser(int uid)
    {
        const auto name = accountName(uid);
        return Crontab(name ? command + ("-u " + *name + " ") : "");
    }

    bool hasAccount() const { return !m_command.empty(); }

    Copy read() const
    {
        return hasAccount() ? copyOutput((m_command + "-l").c_str(), crontabCopy.c_str()) : Copy::none;
    }

    // The copy has the same name for all users. One from an earlier run holds another user's jobs: remove it, or else
    // overwrite it, or else do not use it.
    Copy readAnew() const
    {
        const Leftover leftover = removeLeftover(crontabCopy);
        if (leftover == Leftover::other)
            return Copy::unusable;
        const Copy copy = read();
        return copy == Copy::none && leftover == Leftover::file ? Copy::unusable : copy;
    }

    // True if the command started. Waits for it, and ignores its exit status.
    bool install(const std::string& file) const
    {
        return hasAccount() && Pipe(popen((m_command + file).c_str(), "r")) != nullptr;
    }

private:
    static constexpr auto command = "/usr/bin/crontab ";

    explicit Crontab(std::string beginning)
        : m_command(std::move(beginning))
    {
    }

    std::string m_command; // without -l or the file; empty if there is no account
};

// False if the file was not written whole. A file that could not be opened is no failure: crontab itself rejects a
// missing file.
bool closeWritten(std::ofstream& out)
{
    if (!out.is_open())
        return true;
    out.close();
    return !out.fail();
}

// The text of the copied crontab. Nothing if it may be incomplete or another user's.
std::optional<std::string> copiedText(Copy copy)
{
    if (copy == Copy::none)
        return ""; // the contract: without a copy, the crontab counts as empty
    return copy == Copy::whole ? contentsOf(crontabCopy) : std::nullopt;
}

using TextEdit = std::function<void(std::istream& in, std::ostream& out)>;

// False if the file may hold only a part of the result of `edit`, or an earlier run's result.
bool writeFilteredCopy(const std::string& text, Leftover leftover, const TextEdit& edit)
{
    std::istringstream in(text);
    std::ofstream out;
    if (leftover != Leftover::other)
        out.open(filteredCopy);
    const bool ours = out.is_open() || leftover == Leftover::none;
    edit(in, out);
    return closeWritten(out) && ours;
}

// Copies the crontab, edits the copy into a second file, installs that and removes both. An exception leaves both
// files.
void rewriteCrontab(const Crontab& crontab, const TextEdit& edit)
{
    const Leftover leftover = removeLeftover(filteredCopy);
    const std::optional<std::string> text = copiedText(crontab.readAnew());
    if (text && writeFilteredCopy(*text, leftover, edit))
        crontab.install(filteredCopy);
    std::remove(crontabCopy.c_str());
    std::remove(filteredCopy.c_str());
}

// The table may have changed between `count` and `list`.
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
    const Copy copy = crontab.readAnew();
    std::ofstream out;
    if (copy != Copy::unusable)
        out.open(crontabCopy, std::ios::app);
    const int count = editor.getNumTaskRecordForUser(uid); // what this throws ends the pass
    if (count < 1)
        return; // nothing to install; the copy stays
    std::vector<int> tasks;
    try {
        tasks = firstOf(editor.taskIdsForUser(uid), count);
    } catch (...) {
        return; // the other owners still get their lines
    }
    for (const int id : tasks) {
        try {
            appendTaskLine(editor, id, out);
        } catch (...) {
            continue; // a task that was deleted meanwhile, say; the others still get their lines
        }
    }
    if (closeWritten(out) && copy != Copy::unusable)
        crontab.install(crontabCopy);
    std::remove(crontabCopy.c_str());
}

void startTaskManager(int id, const std::string& source)
{
    // NOLINTNEXTLINE(readability-redundant-string-cstr): a zero byte ends the source, as it would end the command
    const std::string argument = source == "LocalTask" ? "" : std::string(" ") + source.c_str();
    const std::string command = orv::taskManagerCommand(id) + argument + " &";
    // A cut command would lose its "&", or run something else.
    Pipe pipe(command.size() <= maxCommandLength ? popen(command.c_str(), "r") : nullptr);
    if (pipe == nullptr)
        LogMsg(logError, "popen failed for %s", command.substr(0, maxCommandLength).c_str());
    else if (pclose(pipe.release()) != 0) // do not read from it: that would wait for the task manager
        LogMsg(logError, "command %s didn't run successfully", command.c_str());
}

} // namespace

bool executeCommand(const char* command, const char* path)
{
    return copyOutput(command, path) != Copy::none;
}

TaskEditor* TaskEditor::getInstance()
{
    if (tEditor != nullptr)
        return tEditor;
    pthread_mutex_lock(&m_taskEditorMutex); // no guard: it stays locked if the constructor throws
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
    return crontabCopy;
}

std::string TaskEditor::readCron(int uid)
{
    Crontab::ofUser(uid).read();
    return crontabCopy;
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
    for (const int uid : taskOwners(*this)) // also without an account: there is no crontab to lose
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
    const orv::CronTimeOf cronTimeOf = [this](int id) { return task(id)->cronTime; };
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
    const orv::OwnedTask read = task(id);
    if (fromDatabase)
        deleteDbTask(id);
    return read->type == taskTypeScanNow || deleteCronEntry(id, read->userId);
}

bool TaskEditor::deleteCronEntry(int taskId, int uid)
{
    // The real user chooses here, but own() looks at the effective one: a set-user-id program edits root's crontab.
    rewriteCrontab(getuid() == 0 ? Crontab::ofUser(uid) : Crontab::own(),
        [taskId](std::istream& in, std::ostream& out) { orv::dropLinesOfTask(taskId, in, out); });
    return true;
}
