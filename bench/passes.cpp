// Measures whole runs of the built program, of a plain C program that makes the same calls (the floor), of a shell
// script and of a program that uses python-crontab. They run in turn in each round, on the same crontabs and the same
// database, in a private world.
//
//   passes [--rounds N] [--pair] [--program PATH] [--floor PATH] [--load USERS,TASKS,LINES]
//
// --pair leaves out the script and python-crontab. --program and --floor replace these two programs by others. --load
// measures one load alone: that many users, each with that many tasks and own lines. Ends with status 1, and shows the
// difference, if one of them leaves other crontabs or scratch files than it should, or the program others than the
// floor. The scratch files and empty lines of the script and of python-crontab do not count.

#include "Runs.h"
#include "World.h"

#include "CrontabText.h"
#include "PrivateWorld.h"
#include "TaskLine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using std::printf;

struct Options {
    int rounds = 41;
    bool pair = false;
    std::string program = ORV_PROGRAM;
    std::string floor = ORV_FLOOR;
    std::optional<Load> load;
};

struct Contender {
    std::string name;
    std::string path;
    bool slow; ///< does not take part in every round
};

enum Pass { clean, rebuild };
const char* const passNames[] = {"clean", "rebuild"};

constexpr int slowRounds = 5;
const std::string textFile = support::testDirectory + "text";
constexpr std::size_t program = 0; // the positions of these two in the list of contenders
constexpr std::size_t floorProgram = 1;

double secondsOf(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void runCommand(const std::string& command)
{
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("popen failed for " + command);
    char block[BUFSIZ];
    while (std::fread(block, 1, sizeof block, pipe) > 0) { }
    if (pclose(pipe) != 0)
        throw std::runtime_error(command + " failed");
}

std::vector<Contender> contendersOf(const Options& options)
{
    std::vector<Contender> contenders = {{"program", options.program, false}, {"floor", options.floor, false}};
    if (!options.pair) {
        contenders.push_back({"shell", ORV_BENCH_SCRIPTS "/with_shell", true});
        contenders.push_back({"python", ORV_BENCH_SCRIPTS "/with_python_crontab", true});
    }
    return contenders;
}

std::vector<std::string> commandFor(const std::string& path, Pass pass)
{
    return pass == rebuild ? std::vector<std::string>{path, "rebuild"} : std::vector<std::string>{path};
}

void requireQuietEnd(const Run& run, const std::string& path)
{
    if (run.status != 0 || !run.output.empty())
        throw std::runtime_error(path + " ended with status " + std::to_string(run.status) + ": " + run.output);
}

// --- The same result -------------------------------------------------------------------------------------------------

// All special cases: blank, short and long lines, a comment that mentions the task manager, an owner without a crontab,
// one without an account, tasks that run only once, and tasks with a status above 5.
void makeOddWorld()
{
    support::resetWorld();
    support::addAccount("dora", 504);
    support::addAccount("emil", 505);
    const std::string task = support::taskLine(9, "7 * * * *");
    support::setCrontab("anna", "0 3 * * * /bin/a\n" + task + "# was: " + task + "5 4 * * * /bin/b\n");
    support::setCrontab("ben", "0 3 * * * /bin/a\n\n" + task + "5 4 * * * /bin/b\n");
    support::setCrontab("carla", "#1\n#2\n0 3 * * * /bin/a\n" + task + "#3\n");
    support::setCrontab(
        "dora", "#" + std::string(498, 'x') + "\n" + task + "#" + std::string(599, 'y') + "\n5 4 * * * /bin/b\n");
    support::execSql(support::createTaskTable
        + ";insert into TaskTable(description,type,crontime,status,userId) values"
          "('',1,'1 * * * *',1,501),('',2,'2 * * * *',5,502),('',3,'3 * * * *',1,501),('',1,'4 * * * *',6,501),"
          "('',6,'5 * * * *',1,503),('',1,'6 * * * *',1,504),('',1,'7 * * * *',1,777),('',1,'8 * * * *',1,505),"
          "('',1,'9 * * * *',2,501),('',1,'no schedule',1,0),('',1,'10 * * * *',6,506)");
    support::addAccount("fred", 506); // his only task has status 6
}

std::vector<Outcome> outcomesInOddWorld(const std::string& path)
{
    makeOddWorld();
    std::vector<Outcome> outcomes;
    for (const Pass pass : {rebuild, rebuild, clean, rebuild, clean}) {
        requireQuietEnd(timedRun(commandFor(path, pass)), path);
        outcomes.push_back(presentOutcome());
    }
    return outcomes;
}

void requireSame(const Outcome& found, const Outcome& expected, const std::string& whose)
{
    const std::string where = difference(found, expected);
    if (!where.empty())
        throw std::runtime_error(whose + " leaves a different result: " + where);
}

void requireAgreement(const Options& options)
{
    const auto ours = outcomesInOddWorld(options.program);
    const auto theirs = outcomesInOddWorld(options.floor);
    for (std::size_t i = 0; i < ours.size(); ++i)
        requireSame(ours[i], theirs[i], options.program);
    printf("Program and floor leave the same crontabs and scratch files in a world of odd crontabs.\n");
}

// --- Timing ----------------------------------------------------------------------------------------------------------

// Only the commands of a pass, which the program and the floor have to run.
double millisecondsOfCommands(Pass pass, const LoadedWorld& world)
{
    pass == clean ? world.restoreRebuilt() : world.restoreCleaned();
    const Outcome& goal = pass == clean ? world.cleaned() : world.rebuilt();
    if (!goal.crontabs.empty())
        support::writeFile(textFile, goal.crontabs.begin()->second);
    return 1e3 * secondsOf([&] {
        for (const auto& crontab : goal.crontabs)
            for (const auto& rest : {std::string(" -l"), " " + textFile})
                runCommand("/usr/bin/crontab -u " + crontab.first + rest);
    });
}

struct Times {
    std::vector<double> milliseconds; ///< of each round; for a slow contender, only of the first rounds
    std::vector<double> processor;
    long peakKiB = 0;
};

// The program and the floor swap places after each round, and so do the two slow ones after them.
std::vector<std::size_t> orderOfRound(int round, std::size_t contenders)
{
    std::vector<std::size_t> order;
    for (std::size_t pair = 0; pair < contenders; pair += 2) {
        const auto first = static_cast<std::size_t>(round % 2);
        order.push_back(pair + first);
        order.push_back(pair + 1 - first);
    }
    return order;
}

Outcome comparable(Outcome outcome, const Contender& contender)
{
    return contender.slow ? Outcome{withoutEmptyLines(outcome.crontabs), {}} : outcome;
}

Run checkedRun(const Contender& contender, Pass pass, const LoadedWorld& world)
{
    pass == clean ? world.restoreRebuilt() : world.restoreCleaned();
    Run run = timedRun(commandFor(contender.path, pass));
    requireQuietEnd(run, contender.path);
    requireSame(
        comparable(presentOutcome(), contender), pass == clean ? world.cleaned() : world.rebuilt(), contender.path);
    return run;
}

// What was measured of one pass with one load.
struct Measured {
    std::vector<Times> times; ///< of each contender
    std::vector<double> commands; ///< milliseconds of the commands alone
};

void measureRound(
    const std::vector<Contender>& contenders, Pass pass, const LoadedWorld& world, int round, Measured& to)
{
    for (const std::size_t i : orderOfRound(round, contenders.size())) {
        if (contenders[i].slow && round >= slowRounds)
            continue;
        const Run run = checkedRun(contenders[i], pass, world);
        to.times[i].milliseconds.push_back(run.milliseconds);
        to.times[i].processor.push_back(run.processor);
        to.times[i].peakKiB = std::max(to.times[i].peakKiB, run.peakKiB);
    }
    to.commands.push_back(millisecondsOfCommands(pass, world));
}

Measured measure(const std::vector<Contender>& contenders, Pass pass, const LoadedWorld& world, int rounds)
{
    Measured measured{std::vector<Times>(contenders.size()), {}};
    Measured forTheCaches = measured;
    measureRound(contenders, pass, world, 0, forTheCaches);
    for (int round = 0; round < rounds; ++round)
        measureRound(contenders, pass, world, round, measured);
    return measured;
}

// --- Tables ----------------------------------------------------------------------------------------------------------

double mebibytes(long kibibytes)
{
    return static_cast<double>(kibibytes) / 1024;
}

void printHead(const std::vector<Contender>& contenders)
{
    printf("\n| pass | users | tasks each | own lines each | commands ms | program ms | floor ms | program / floor | "
           "quartiles |"
           " processor time, program / floor | peak program, floor MiB |");
    for (std::size_t i = 2; i < contenders.size(); ++i)
        printf(" %s ms | %s / program |", contenders[i].name.c_str(), contenders[i].name.c_str());
    printf("\n| --- |");
    for (std::size_t column = 0; column < 10 + 2 * (contenders.size() - 2); ++column)
        printf(" ---: |");
    printf("\n");
}

void printRow(Pass pass, const Load& load, const Measured& measured)
{
    const auto& times = measured.times;
    const auto& ours = times[program].milliseconds;
    const auto pairs = ratios(ours, times[floorProgram].milliseconds);
    printf("| %s | %d | %d | %d | %.2f | %.2f | %.2f | %.3f | %.3f-%.3f | %.3f | %.2f, %.2f |", passNames[pass],
        load.users, load.tasksOfEach, load.linesOfEach, median(measured.commands), median(ours),
        median(times[floorProgram].milliseconds), median(pairs), quantile(pairs, 0.25), quantile(pairs, 0.75),
        median(ratios(times[program].processor, times[floorProgram].processor)), mebibytes(times[program].peakKiB),
        mebibytes(times[floorProgram].peakKiB));
    for (std::size_t i = 2; i < times.size(); ++i)
        printf(" %.1f | %.1f |", median(times[i].milliseconds), median(ratios(times[i].milliseconds, ours)));
    printf("\n");
    std::fflush(stdout);
}

/// Loads that differ in one number, and the sum of that number over all users.
struct Axis {
    const char* counted;
    std::function<int(const Load&)> count;
    std::vector<Load> loads;
};

// What one more user, task or line costs, between neighbouring loads.
void printGrowth(
    const Axis& axis, const std::vector<Contender>& contenders, const std::vector<Measured>& ofLoads, Pass pass)
{
    for (std::size_t i = 0; i < contenders.size(); ++i) {
        printf("| %s | us per %s |", passNames[pass], axis.counted);
        printf(" %s |", contenders[i].name.c_str());
        for (std::size_t load = 1; load < axis.loads.size(); ++load) {
            const double more
                = median(ofLoads[load].times[i].milliseconds) - median(ofLoads[load - 1].times[i].milliseconds);
            const int counted = axis.count(axis.loads[load]) - axis.count(axis.loads[load - 1]);
            printf(" %.2f |", more * 1e3 / counted);
        }
        printf("\n");
    }
}

void printGrowthHead(const Axis& axis)
{
    printf("\n| pass | unit | of |");
    for (std::size_t load = 1; load < axis.loads.size(); ++load)
        printf(" %d to %d |", axis.count(axis.loads[load - 1]), axis.count(axis.loads[load]));
    printf("\n| --- | --- | --- |");
    for (std::size_t load = 1; load < axis.loads.size(); ++load)
        printf(" ---: |");
    printf("\n");
}

void measureAxis(const Axis& axis, const std::vector<Contender>& contenders, int rounds)
{
    std::vector<Measured> measured[2];
    printHead(contenders);
    for (const Load& load : axis.loads) {
        const LoadedWorld world(load);
        for (const Pass pass : {clean, rebuild}) {
            measured[pass].push_back(measure(contenders, pass, world, rounds));
            printRow(pass, load, measured[pass].back());
        }
    }
    if (axis.loads.size() < 2)
        return;
    printGrowthHead(axis);
    for (const Pass pass : {clean, rebuild})
        printGrowth(axis, contenders, measured[pass], pass);
}

// --- What a line costs -----------------------------------------------------------------------------------------------

void dropInFiles(const std::string& from, const std::string& to)
{
    std::ifstream in(from);
    std::ofstream out(to);
    orv::dropTaskLines(in, out);
}

void writeTaskLines(const std::string& to, int lines)
{
    std::ofstream out(to);
    for (int id = 0; id < lines; ++id)
        orv::writeTaskLine(out, "7 * * * *", id);
}

struct LineCosts {
    std::vector<double> list, install, drop, write; ///< microseconds for the whole text
};

LineCosts costsOf(int lines, int rounds)
{
    const std::string filtered = support::testDirectory + "filtered";
    support::writeFile(textFile, ownLines(lines));
    support::setCrontab("anna", ownLines(lines));
    LineCosts costs;
    for (int round = 0; round < rounds; ++round) {
        costs.list.push_back(timedRun({"/usr/bin/crontab", "-u", "anna", "-l"}).milliseconds * 1e3);
        costs.install.push_back(timedRun({"/usr/bin/crontab", "-u", "anna", textFile}).milliseconds * 1e3);
        costs.drop.push_back(secondsOf([&] { dropInFiles(textFile, filtered); }) * 1e6);
        costs.write.push_back(secondsOf([&] { writeTaskLines(filtered, lines); }) * 1e6);
    }
    if (support::readFile(textFile) != ownLines(lines))
        throw std::runtime_error("the text of the line costs has changed");
    return costs;
}

void measureLines(int rounds)
{
    constexpr int few = 1000;
    constexpr int many = 9000;
    support::resetWorld();
    const LineCosts small = costsOf(few, rounds);
    const LineCosts large = costsOf(many, rounds);
    const auto perLine = [](const std::vector<double>& one, const std::vector<double>& other) {
        return (median(other) - median(one)) / (many - few);
    };
    printf("\n| what one line costs, between %d and %d | us |\n| --- | ---: |\n", few, many);
    printf("| crontab -l | %.3f |\n", perLine(small.list, large.list));
    printf("| crontab FILE | %.3f |\n", perLine(small.install, large.install));
    printf("| dropTaskLines, with its flush | %.3f |\n", perLine(small.drop, large.drop));
    printf("| writeTaskLine, with its flush | %.3f |\n", perLine(small.write, large.write));
}

// --- Options ---------------------------------------------------------------------------------------------------------

Load loadFrom(const char* text)
{
    Load load{};
    if (std::sscanf(text, "%d,%d,%d", &load.users, &load.tasksOfEach, &load.linesOfEach) != 3)
        throw std::runtime_error(std::string("not a load: ") + text);
    return load;
}

Options optionsFrom(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--pair")
            options.pair = true;
        else if (i + 1 == argc)
            throw std::runtime_error("unknown option, or its value is missing: " + name);
        else if (name == "--rounds")
            options.rounds = std::max(1, std::atoi(argv[++i]));
        else if (name == "--program")
            options.program = argv[++i];
        else if (name == "--floor")
            options.floor = argv[++i];
        else if (name == "--load")
            options.load = loadFrom(argv[++i]);
        else
            throw std::runtime_error("unknown option: " + name);
    }
    return options;
}

const Axis axes[] = {
    {"user", [](const Load& load) { return load.users; },
        {{0, 13, 20}, {3, 13, 20}, {10, 13, 20}, {50, 13, 20}, {200, 13, 20}}},
    {"task", [](const Load& load) { return load.users * load.tasksOfEach; },
        {{3, 1, 20}, {3, 13, 20}, {3, 130, 20}, {3, 1300, 20}}},
    {"line", [](const Load& load) { return load.users * load.linesOfEach; },
        {{3, 2, 10}, {3, 2, 100}, {3, 2, 1000}, {3, 2, 9000}}},
};

std::vector<Axis> axesFor(const Options& options)
{
    if (options.load)
        return {{"user", [](const Load& load) { return load.users; }, {*options.load}}};
    return {std::begin(axes), std::end(axes)};
}

void measureAll(const Options& options)
{
    support::enterPrivateWorld();
    setenv("TMPDIR", support::testDirectory.c_str(), 1); // python-crontab makes a file there
    requireAgreement(options);
    for (const Axis& axis : axesFor(options))
        measureAxis(axis, contendersOf(options), options.rounds);
    if (!options.load)
        measureLines(options.rounds);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        measureAll(optionsFrom(argc, argv));
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "passes: %s\n", error.what());
        return 1;
    }
    return 0;
}
