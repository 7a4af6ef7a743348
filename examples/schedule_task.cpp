// The product's scheduled tasks from the command line: the whole task library in one small program.

#include "CfRef.h"
#include "Constants.h"
#include "OrvException.h"
#include "PassLock.h"
#include "Schedule.h"
#include "ScheduleTaskText.h"
#include "TaskEditor.h"
#include <CoreFoundation/CoreFoundation.h>

#include <charconv>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <exception>
#include <getopt.h>
#include <map>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using UsageError = std::invalid_argument;
using Options = std::map<char, std::string>; // by their first letters; status is 'n'
using Words = std::vector<std::string>;

int toNumber(const std::string& text)
{
    int value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && *stop == '\0' ? value : throw UsageError("'" + text + "' is not a number");
}

int toUid(const std::string& name)
{
    if (const passwd* account = getpwnam(name.c_str()))
        return static_cast<int>(account->pw_uid);
    return name.find_first_not_of("0123456789") == std::string::npos ? toNumber(name)
                                                                     : throw UsageError("no such user: " + name);
}

// The library puts it into SQL and into a crontab unchanged, so it must be nothing but a schedule.
std::string toSchedule(const std::string& text)
{
    return isSchedule(text) ? text
                            : throw UsageError("'" + text + "' is not a schedule such as '30 3 * * 1' or @daily");
}

TaskType toType(const std::string& text)
{
    const int number = toNumber(text);
    if (number < taskTypeScan || number > taskTypeQuickOds)
        throw UsageError("there is no type " + text + ": it is a number from 1 to 6");
    return TaskType(number);
}

orv::CfRef<CFStringRef> toString(const std::string& text)
{
    orv::CfRef<CFStringRef> made(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
    return made ? std::move(made) : throw UsageError("'" + text + "' is not UTF-8");
}

orv::CfRef<CFMutableDictionaryRef> toDictionary(const Words& pairs)
{
    orv::CfRef<CFMutableDictionaryRef> made(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const std::string& pair : pairs) {
        const std::size_t equals = pair.find('=');
        if (equals == std::string::npos)
            throw UsageError("'" + pair + "' is not KEY=VALUE");
        CFDictionarySetValue(
            made.get(), toString(pair.substr(0, equals)).get(), toString(pair.substr(equals + 1)).get());
    }
    return made;
}

// Sets in `task` what was given. It only borrows the parameters; NULL means none.
void fill(TaskInfo& task, Options options, CFMutableDictionaryRef parameters)
{
    task.type = options.count('t') ? toType(options['t']) : task.type;
    task.cronTime = options.count('s') ? toSchedule(options['s']) : task.cronTime;
    task.userId = options.count('u') ? toUid(options['u']) : task.userId;
    task.description = options.count('d') ? options['d'] : task.description;
    task.status = options.count('n') ? TaskStatus(toNumber(options['n'])) : task.status;
    task.parameter = CFDictionaryGetCount(parameters) > 0 ? parameters : nullptr;
}

void create(TaskEditor& editor, int, Options options, const Words& pairs)
{
    const auto parameters = toDictionary(pairs);
    TaskInfo task(options.count('t') ? toType(options['t']) : taskTypeScan); // the default description names the type
    fill(task, options, parameters.get());
    std::printf("%d\n", editor.createTask(task, options.count('r') > 0, "LocalTask"));
}

void list(TaskEditor& editor, int, Options options, const Words&)
{
    const int uid = options.count('u') ? toUid(options['u']) : 0;
    std::fputs(taskTableHead, stdout);
    const bool any = editor.getNumTaskRecord() > 0; // without a task, the list would throw
    for (const int id : any ? editor.taskIds() : TaskInterface::IdList()) {
        const orv::OwnedTask task = editor.task(id);
        if (options.empty() || uid == task->userId)
            std::fputs(taskTableRow(*task).c_str(), stdout);
    }
}

void modify(TaskEditor& editor, int id, Options options, const Words& pairs)
{
    const auto parameters = toDictionary(pairs);
    TaskInfo task = *editor.task(id);
    task.parameter = nullptr; // released with the task that this is a copy of
    task.result = nullptr;
    fill(task, options, parameters.get()); // if no parameters are given, the task keeps those in the table
    editor.modifyTask(task, false);
}

void record(TaskEditor& editor, int id, Options options, const Words& pairs)
{
    const auto result = toDictionary(pairs);
    const orv::OwnedTask task = editor.task(id);
    task->lastRun = std::time(nullptr);
    task->status = options.count('n') ? TaskStatus(toNumber(options['n'])) : task->status;
    editor.modifyTask(*task, false);
    if (!editor.incrementCount(id) || !editor.setResult(id, result.get()))
        throw std::runtime_error("the run could not be recorded");
}

void remove(TaskEditor& editor, int id, Options, const Words&)
{
    const orv::PassLock lock(orv::PassLock::Commands::hold); // it edits a crontab, as OrvCronCleaner does
    if (!lock.held())
        throw std::runtime_error("no crontab can be edited without " + tempPath);
    editor.deleteTask(id, true, false);
}

struct Command {
    void (*run)(TaskEditor& editor, int id, Options options, const Words& pairs);
    std::string options;
    std::size_t arguments; // before the pairs
    bool takesPairs;
};
const std::map<std::string, Command> commands
    = {{"create", {create, "tsudr", 0, true}}, {"list", {list, "u", 0, false}}, {"modify", {modify, "tsudn", 1, true}},
        {"record", {record, "n", 1, true}}, {"delete", {remove, "", 1, false}}};

void run(const Words& words, const Options& options)
{
    const auto found = words.empty() ? commands.end() : commands.find(words[0]);
    if (found == commands.end())
        throw UsageError(words.empty() ? "a command is missing" : "there is no command " + words[0]);
    const Command& command = found->second;
    for (const auto& given : options)
        if (command.options.find(given.first) == std::string::npos)
            throw UsageError(words[0] + " does not take all of these options");
    const std::size_t pairsBegin = 1 + command.arguments;
    if (words.size() < pairsBegin || (words.size() > pairsBegin && !command.takesPairs))
        throw UsageError(words[0] + " takes " + (command.arguments == 0 ? "no argument" : "one task's id"));
    const int id = command.arguments == 0 ? 0 : toNumber(words[1]);
    const Words pairs(words.begin() + static_cast<std::ptrdiff_t>(pairsBegin), words.end());
    if (geteuid() != 0)
        throw std::runtime_error("only root may look at the tasks of others and change them");
    try {
        command.run(*TaskEditor::getInstance(), id, options, pairs);
    } catch (const SqliteException& failure) {
        if (command.arguments > 0 && failure.getErrorCode() == 0) // the statement ran, and found no row
            throw std::runtime_error("there is no task " + std::to_string(id));
        throw;
    }
}

constexpr auto seeHelp = "schedule_task --help shows how to call it";

void report(const SqliteException& failure)
{
    std::fprintf(stderr, "schedule_task: %s: %s: %s (%d)\n", databaseName.c_str(), failure.getMessage(),
        SqliteDb::resultText(failure.getErrorCode()), failure.getErrorCode());
}

} // namespace

int main(int argc, char** argv)
{
    const option known[] = {{"type", 1, nullptr, 't'}, {"schedule", 1, nullptr, 's'}, {"user", 1, nullptr, 'u'},
        {"description", 1, nullptr, 'd'}, {"status", 1, nullptr, 'n'}, {"run-now", 0, nullptr, 'r'},
        {"help", 0, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
    Options options;
    for (int letter; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;)
        options[static_cast<char>(letter)] = optarg == nullptr ? "" : optarg;
    try {
        if (options.count('?')) { // getopt_long has said what is wrong
            std::fprintf(stderr, "schedule_task: %s\n", seeHelp);
            return 2;
        }
        if (options.count('h'))
            std::fputs(scheduleTaskHelp, stdout);
        else
            run(Words(argv + optind, argv + argc), options);
        if (std::fflush(stdout) != 0 || std::ferror(stdout))
            throw std::runtime_error("the output could not be written");
        return 0;
    } catch (const UsageError& error) {
        std::fprintf(stderr, "schedule_task: %s; %s\n", error.what(), seeHelp);
        return 2;
    } catch (const SqliteException& failure) { // before std::exception: its what() says nothing
        report(failure);
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "schedule_task: %s\n", error.what());
        return 1;
    }
}
