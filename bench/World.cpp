#include "World.h"

#include "PrivateWorld.h"
#include "TaskLine.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const std::string spoolDirectory = "/var/spool/cron/crontabs/";
constexpr int headerLines = 3; // crontab puts them before what it installs; one of them has the time

std::string withoutHeader(const std::string& installed)
{
    std::size_t begin = 0;
    for (int line = 0; line < headerLines; ++line) {
        if (installed.compare(begin, 2, "# ") != 0)
            throw std::runtime_error("an installed crontab does not begin with the header of crontab");
        begin = installed.find('\n', begin) + 1;
    }
    return installed.substr(begin);
}

Files filesIn(const std::string& directory)
{
    Files files;
    for (const auto& entry : fs::directory_iterator(directory))
        files[entry.path().filename().string()] = support::readFile(entry.path().string());
    return files;
}

std::string bytesOf(const Files& files, const std::string& name)
{
    const auto file = files.find(name);
    return file == files.end() ? "(no such file)" : file->second;
}

// Three lines of `text`, from the first that differs.
std::string differentLines(const std::string& text, const std::string& other)
{
    const auto same = std::mismatch(text.begin(), text.end(), other.begin(), other.end()).first - text.begin();
    const std::size_t begin = text.substr(0, static_cast<std::size_t>(same)).rfind('\n') + 1; // npos + 1 is 0
    std::size_t end = begin;
    for (int line = 0; line < 3 && end < text.size(); ++line)
        end = std::min(text.find('\n', end), text.size() - 1) + 1;
    return text.substr(begin, end - begin) + (end < text.size() ? "...\n" : "(end)\n");
}

std::string firstDifference(const Files& left, const Files& right)
{
    Files all = left;
    all.insert(right.begin(), right.end());
    for (const auto& file : all) {
        const std::string one = bytesOf(left, file.first);
        const std::string other = bytesOf(right, file.first);
        if (one != other)
            return file.first + " has\n" + differentLines(one, other) + "instead of\n" + differentLines(other, one);
    }
    return "";
}

std::string accountOf(int user)
{
    return "user" + std::to_string(user);
}

// Never a time that has a name such as "@daily": python-crontab would write the name instead.
std::string cronTimeOf(int task)
{
    return std::to_string(task % 60) + " " + std::to_string(1 + task % 23) + " * * *";
}

std::string taskLines(int user, int tasksOfEach)
{
    std::string lines;
    for (int task = 1; task <= tasksOfEach; ++task) {
        const int id = user * tasksOfEach + task;
        lines += support::taskLine(id, cronTimeOf(id));
    }
    return lines;
}

Files installCrontabs(const Load& load, bool withTasks)
{
    Files crontabs;
    for (int user = 0; user < load.users; ++user) {
        const std::string text
            = ownLines(load.linesOfEach) + (withTasks ? taskLines(user, load.tasksOfEach) : std::string());
        support::setCrontab(accountOf(user), text);
        crontabs[accountOf(user)] = text;
    }
    return crontabs;
}

void prepare(const Load& load)
{
    support::resetWorld();
    for (int user = 0; user < load.users; ++user)
        support::addAccount(accountOf(user), firstUser + user);
    fillDatabase(load.users, load.tasksOfEach);
}

} // namespace

std::string difference(const Outcome& left, const Outcome& right)
{
    const std::string crontab = firstDifference(left.crontabs, right.crontabs);
    return crontab.empty() ? firstDifference(left.scratch, right.scratch) : crontab;
}

Outcome presentOutcome()
{
    Outcome outcome;
    for (const auto& [account, bytes] : filesIn(spoolDirectory))
        outcome.crontabs[account] = withoutHeader(bytes);
    outcome.scratch = filesIn(support::scratchDirectory);
    return outcome;
}

Files withoutEmptyLines(const Files& files)
{
    Files changed;
    for (const auto& [name, bytes] : files) {
        std::string& text = changed[name];
        for (const char c : bytes)
            if (c != '\n' || (!text.empty() && text.back() != '\n'))
                text += c;
    }
    return changed;
}

Spool Spool::asItIs()
{
    Spool spool;
    for (const auto& [account, bytes] : filesIn(spoolDirectory)) {
        const std::string path = spoolDirectory + account;
        struct stat status { };
        if (stat(path.c_str(), &status) != 0)
            throw std::runtime_error("there is no " + path);
        spool.m_crontabs.push_back({path, bytes, status.st_uid, status.st_gid, status.st_mode});
    }
    return spool;
}

void Spool::restore() const
{
    for (const auto& directory : {spoolDirectory, support::scratchDirectory})
        for (const auto& entry : fs::directory_iterator(directory))
            fs::remove(entry.path());
    for (const Crontab& crontab : m_crontabs) {
        support::writeFile(crontab.path, crontab.bytes);
        if (chown(crontab.path.c_str(), crontab.owner, crontab.group) != 0
            || chmod(crontab.path.c_str(), crontab.mode) != 0)
            throw std::runtime_error("cannot restore the crontab " + crontab.path);
    }
}

LoadedWorld::LoadedWorld(const Load& load)
{
    prepare(load);
    m_rebuilt.crontabs = installCrontabs(load, true);
    m_rebuiltSpool = Spool::asItIs();
    m_cleaned.crontabs = installCrontabs(load, false);
    m_cleanedSpool = Spool::asItIs();
}

std::string ownLines(int count)
{
    std::string lines;
    for (int line = 0; line < count; ++line)
        lines += std::to_string(line % 60) + " 3 * * * /usr/local/bin/backup --set " + std::to_string(line)
            + " --quiet >/dev/null\n";
    return lines;
}

void fillDatabase(int users, int tasksOfEach)
{
    std::string sql = "begin;" + support::createTaskTable + ";";
    for (int user = 0; user < users; ++user)
        for (int task = 1; task <= tasksOfEach; ++task)
            sql += "insert into TaskTable(description,crontime,created,lastRun,userId) values('Scan Task','"
                + cronTimeOf(user * tasksOfEach + task) + "','5,30,8,16,10,126,1,319,0,','5,30,8,16,10,126,1,319,0,',"
                + std::to_string(firstUser + user) + ");";
    support::execSql(sql + "commit");
}
