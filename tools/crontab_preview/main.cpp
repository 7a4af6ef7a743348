// Shows what OrvCronCleaner would do to the crontabs.

#include "Constants.h"
#include "CrontabProgram.h"
#include "OrvException.h"
#include "Owners.h"
#include "Report.h"
#include "Run.h"
#include "SqliteDb.h"
#include "TerminalText.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <getopt.h>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr auto help = R"(crontab_preview: shows what OrvCronCleaner would do to the crontabs now

  crontab_preview clean|rebuild|update [OPTION]... [USER]...

  clean         what OrvCronCleaner does without an argument
  rebuild       what OrvCronCleaner does with an argument
  update        a clean, and then a rebuild

  --all         show the details of all owners, not only of each USER
  --diff        show only the difference, for patch(1)
  --exit-code   exit with 0 if no crontab changes, with 4 if a line that is not
                the product's is or may be lost or changed, else with 3
  --save DIR    copy each crontab as it is now to DIR/USER
  --help        show this text

A USER is a name or a user id. Without one, this previews the crontabs of all
who own tasks. It installs nothing. Run it as root: nobody else can read other
users' crontabs. The exit status is 0, 1 after a failure, 2 after wrong usage.
)";

struct UsageError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

struct Arguments {
    Command command = Command::clean;
    bool help = false;
    bool all = false;
    bool diff = false;
    bool exitCode = false;
    std::string directory; // for --save
    std::vector<std::string> users;
};

Command toCommand(const std::string& word)
{
    for (const Command command : {Command::clean, Command::rebuild, Command::update})
        if (word == nameOf(command))
            return command;
    throw UsageError("there is no command " + word);
}

Arguments parse(int argc, char** argv)
{
    const option known[] = {{"all", 0, nullptr, 'a'}, {"diff", 0, nullptr, 'd'}, {"exit-code", 0, nullptr, 'e'},
        {"save", 1, nullptr, 's'}, {"help", 0, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
    Arguments arguments;
    for (int letter; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (letter == '?')
            throw UsageError(""); // getopt_long has said why
        if (letter == 's')
            arguments.directory = *optarg == '\0' ? throw UsageError("--save takes a directory") : optarg;
        arguments.all = arguments.all || letter == 'a';
        arguments.diff = arguments.diff || letter == 'd';
        arguments.exitCode = arguments.exitCode || letter == 'e';
        arguments.help = arguments.help || letter == 'h';
    }
    if (arguments.help)
        return arguments;
    if (optind == argc)
        throw UsageError("a command is missing");
    arguments.command = toCommand(argv[optind]);
    arguments.users.assign(argv + optind + 1, argv + argc);
    return arguments;
}

Style styleOf(const Arguments& arguments)
{
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    const bool coloured = isTerminal && (noColour == nullptr || *noColour == '\0')
        && (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
    return {arguments.all || !arguments.users.empty(), isTerminal, coloured};
}

int toUid(const std::string& user)
{
    if (const passwd* const account = getpwnam(user.c_str()))
        return static_cast<int>(account->pw_uid);
    int uid = 0;
    const auto [stop, error] = std::from_chars(user.data(), user.data() + user.size(), uid);
    return error == std::errc() && *stop == '\0' ? uid : throw std::runtime_error("no such user: " + user);
}

// The named owners, or all if none is named.
std::vector<Owner> chosenOwners(const std::vector<std::string>& users)
{
    const std::vector<Owner> owners = readOwners();
    std::vector<Owner> chosen;
    for (const std::string& user : users) {
        const auto isMeant = [uid = toUid(user)](const Owner& owner) { return owner.uid == uid; };
        const auto owner = std::find_if(owners.begin(), owners.end(), isMeant);
        if (owner == owners.end())
            throw std::runtime_error(user + " owns no task");
        if (std::none_of(chosen.begin(), chosen.end(), isMeant))
            chosen.push_back(*owner);
    }
    return users.empty() ? owners : chosen;
}

std::runtime_error cannotSave(const std::string& path)
{
    return std::runtime_error("cannot save " + path + ": " + std::strerror(errno));
}

void saveFile(const std::string& path, const std::string& text)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file < 0)
        throw cannotSave(path);
    FILE* const stream = fdopen(file, "w");
    const bool written = stream != nullptr && std::fwrite(text.data(), 1, text.size(), stream) == text.size()
        && std::fflush(stream) == 0 && fsync(file) == 0;
    const int why = errno;
    if ((stream != nullptr ? std::fclose(stream) : close(file)) != 0 || !written) {
        unlink(path.c_str());
        errno = written ? errno : why;
        throw cannotSave(path);
    }
}

// Saves the crontabs of those who have one, and returns the message about it.
std::string saveAll(const std::vector<Owner>& owners, const std::string& directory)
{
    for (const Owner& owner : owners)
        if (!owner.crontab.failure.empty())
            throw std::runtime_error("cannot save the crontab of " + *owner.account
                + ": crontab -l fails: " + visible(owner.crontab.failure));
    struct stat state { };
    if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
        throw cannotSave(directory);
    const auto pathOf = [&](const Owner& owner) { return directory + "/" + *owner.account; };
    for (const Owner& owner : owners) // if any file is in the way, save nothing
        if (owner.crontab.exists && lstat(pathOf(owner).c_str(), &state) == 0)
            throw std::runtime_error("cannot save " + pathOf(owner) + ": " + std::strerror(EEXIST));
    std::size_t saved = 0;
    for (const Owner& owner : owners)
        if (owner.crontab.exists) {
            saveFile(pathOf(owner), owner.crontab.stored);
            ++saved;
        }
    return "Saved " + std::to_string(saved) + (saved == 1 ? " crontab in " : " crontabs in ") + visible(directory)
        + ".\n";
}

void show(const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw std::runtime_error("the output could not be written");
}

int exitStatus(const std::vector<OwnersRun>& runs)
{
    if (std::any_of(runs.begin(), runs.end(), mayLoseLines))
        return 4;
    return std::any_of(runs.begin(), runs.end(), changes) ? 3 : 0;
}

int run(const Arguments& arguments)
{
    if (geteuid() != 0)
        throw std::runtime_error("only root can read the crontabs of others");
    const CrontabCheck check;
    std::vector<OwnersRun> runs;
    const std::vector<Owner> owners = chosenOwners(arguments.users);
    const std::string saved = arguments.directory.empty() ? "" : saveAll(owners, arguments.directory);
    for (const Owner& owner : owners)
        runs.push_back({owner, preview(owner, arguments.command, check)});
    if (arguments.diff)
        for (const OwnersRun& of : runs)
            show(diffOf(of, arguments.command));
    else
        show(report(runs, arguments.command, styleOf(arguments), check.possible()) + saved);
    return arguments.exitCode ? exitStatus(runs) : 0;
}

int fail(const std::string& why, int status)
{
    std::fprintf(stderr, "crontab_preview: %s\n", why.c_str());
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Arguments arguments = parse(argc, argv);
        if (!arguments.help)
            return run(arguments);
        show(help);
        return 0;
    } catch (const UsageError& error) {
        return fail(std::string(error.what()) + (*error.what() == '\0' ? "" : "; ") + "see crontab_preview --help", 2);
    } catch (SqliteException& error) {
        return fail(databaseName + ": " + error.getMessage() + ": " + SqliteDb::resultText(error.getErrorCode()) + " ("
                + std::to_string(error.getErrorCode()) + ")",
            1);
    } catch (const std::exception& error) {
        return fail(error.what(), 1);
    }
}
