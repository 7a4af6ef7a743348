// The product's scheduled tasks from the command line: the whole task library in one small program.

#include "CfRef.h"
#include "OrvException.h"
#include "TaskEditor.h"

#include <charconv>
#include <cstdio>
#include <getopt.h>
#include <map>
#include <pwd.h>
#include <regex>
#include <stdexcept>

namespace {

constexpr auto help = R"(schedule_task: schedule, list, change and delete the product's tasks

  schedule_task create [OPTION]... [KEY=VALUE]...      prints the task's new id
  schedule_task list   [--user NAME]
  schedule_task modify ID [OPTION]... [KEY=VALUE]...   changes what is named
  schedule_task record ID [--status N] [KEY=VALUE]...  a run has just ended
  schedule_task delete ID                              its crontab line, too

  --type N            1 scan (if none is given), 2 update, 3 scan now,
                      4 NXC scan, 5 full scan on demand, 6 quick one
  --schedule TIMES    '30 3 * * 1', @daily; if none is given, hourly from now
  --user NAME|UID     in whose crontab it runs; if none is given, in your own
  --description TEXT  if none is given, its type and the time
  --status N          a new task has 1
  --run-now           (create) starts the task at once, too

KEY=VALUE are the task's parameters, or (record) the run's result. A task gets
its crontab line with the next rebuild, but not with type 3 or a status above 5.
Run this as root. It ends with 0, with 1 on failure, with 2 if called wrongly.
)";

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
    const passwd* account = getpwnam(name.c_str());
    if (account == nullptr && name.find_first_not_of("0123456789") != std::string::npos)
        throw UsageError("there is no account " + name);
    return account ? static_cast<int>(account->pw_uid) : toNumber(name);
}

// It goes into a statement and into a crontab as it stands, and so must be nothing but time fields.
std::string toSchedule(const std::string& text)
{
    static const std::regex fields("@[a-z]+|([0-9A-Za-z*,/-]+ ){4}[0-9A-Za-z*,/-]+");
    return std::regex_match(text, fields) ? text : throw UsageError("'" + text + "' is no schedule");
}

CfRef<CFStringRef> toString(const std::string& text)
{
    CfRef<CFStringRef> made(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
    return made ? std::move(made) : throw UsageError("'" + text + "' is not UTF-8");
}

CfRef<CFMutableDictionaryRef> toDictionary(const Words& pairs)
{
    CfRef<CFMutableDictionaryRef> made(CFDictionaryCreateMutable(
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

OwnedTask readTask(TaskEditor& editor, int id)
{
    TaskInfo* task = nullptr;
    editor.getTaskInfoObject(id, &task);
    return OwnedTask(task);
}

// Puts what was given into `task`, which only borrows the parameters; null is none.
void fill(TaskInfo& task, Options options, CFMutableDictionaryRef parameters)
{
    task.type = options.count('t') ? TaskType(toNumber(options['t'])) : task.type;
    task.cronTime = options.count('s') ? toSchedule(options['s']) : task.cronTime;
    task.userId = options.count('u') ? toUid(options['u']) : task.userId;
    task.description = options.count('d') ? options['d'] : task.description;
    task.status = options.count('n') ? TaskStatus(toNumber(options['n'])) : task.status;
    task.parameter = CFDictionaryGetCount(parameters) > 0 ? parameters : nullptr;
}

void create(TaskEditor& editor, int, Options options, const Words& pairs)
{
    const auto parameters = toDictionary(pairs);
    TaskInfo task(options.count('t') ? TaskType(toNumber(options['t'])) : scanTask); // its first description names it
    fill(task, options, parameters.get());
    std::printf("%d\n", editor.createTask(task, options.count('r') > 0, "LocalTask"));
}

void list(TaskEditor& editor, int, Options options, const Words&)
{
    const int uid = options.count('u') ? toUid(options['u']) : 0;
    const int count = editor.getNumTaskRecord();
    const std::unique_ptr<int[]> ids(count == 0 ? nullptr : editor.getTaskIdArray()); // which throws if there are none
    std::puts("  ID USER      TYPE STATUS  RUNS LAST RUN          SCHEDULE      DESCRIPTION");
    for (const int* id = ids.get(); id != ids.get() + count; ++id) {
        const OwnedTask task = readTask(editor, *id);
        const passwd* owner = getpwuid(static_cast<uid_t>(task->userId));
        const std::string name = task->description.substr(0, task->description.find('\n')); // a default one has a break
        char lastRun[20] = "never";
        if (task->count > 0)
            std::strftime(lastRun, sizeof lastRun, "%Y-%m-%d %H:%M", std::localtime(&task->lastRun));
        if (options.empty() || uid == task->userId)
            std::printf("%4d %-9.9s %4d %6d %5d %-16s  %-13s %.15s\n", task->id,
                owner ? owner->pw_name : std::to_string(task->userId).c_str(), task->type, task->status, task->count,
                lastRun, task->cronTime.c_str(), name.c_str());
    }
}

void modify(TaskEditor& editor, int id, Options options, const Words& pairs)
{
    const auto parameters = toDictionary(pairs);
    TaskInfo task = *readTask(editor, id); // without its property lists, which are gone with the record
    fill(task, options, parameters.get()); // where there are no parameters, those in the table stay
    editor.modifyTask(task, false);
}

void record(TaskEditor& editor, int id, Options options, const Words& pairs)
{
    const auto result = toDictionary(pairs);
    const OwnedTask task = readTask(editor, id);
    task->lastRun = std::time(nullptr);
    task->status = options.count('n') ? TaskStatus(toNumber(options['n'])) : task->status;
    editor.modifyTask(*task, false);
    if (!editor.incrementCount(id) || !editor.setResult(id, result.get()))
        throw std::runtime_error("the run could not be recorded");
}

struct Command {
    void (*run)(TaskEditor& editor, int id, Options options, const Words& pairs);
    std::string options;
    std::size_t arguments; // in front of the pairs
    bool takesPairs;
};
const std::map<std::string, Command> commands = {{"create", {create, "tsudr", 0, true}},
    {"list", {list, "u", 0, false}}, {"modify", {modify, "tsudn", 1, true}}, {"record", {record, "n", 1, true}},
    {"delete",
        {[](TaskEditor& editor, int id, Options, const Words&) { editor.deleteTask(id, true, false); }, "", 1, false}}};

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
    command.run(*TaskEditor::getInstance(), id, options, pairs);
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
        if (options.count('?') || options.count('h')) // getopt_long has said what is wrong
            return options.count('?') ? 2 : std::fputs(help, stdout) < 0;
        run(Words(argv + optind, argv + argc), options);
        return 0;
    } catch (SqliteException& error) {
        std::fprintf(stderr, "schedule_task: %s\n", error.getMessage());
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "schedule_task: %s\n", error.what());
        return dynamic_cast<const UsageError*>(&error) != nullptr ? 2 : 1;
    }
}
