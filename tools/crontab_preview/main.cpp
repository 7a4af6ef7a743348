// Shows what OrvCronCleaner would do to the crontabs, without doing it.

#include "Constants.h"
#include "OrvException.h"
#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr auto help = R"(crontab_preview: what OrvCronCleaner would make of the crontabs now

  crontab_preview [USER]...                        a report
  crontab_preview --diff clean|rebuild [USER]...   one difference, for patch(1)

For each user who owns tasks, or for those named: which task gets which crontab
line in a rebuild, and why others get none; how a clean and how a rebuild would
change the crontab now; and a warning for each line of the user's own that would
be lost or joined to another. In the report, what is wider than 80 columns goes
on in the next line, behind a ~. Colour is for terminals only, and NO_COLOR
turns it off.

Whether crontab accepts it shows only in a run: if it finds a fault in a line,
as in '61 * * * *', or too many of them, the whole crontab stays as it was.

Nothing is installed and no file is made. Run this as root: nobody else can read
the crontabs of others. It ends with 0, with 1 on failure, with 2 if called
wrongly.
)";

struct Arguments {
    bool wrong = false;
    bool help = false;
    std::string diff; // the pass
    std::vector<std::string> users;
};

Arguments parse(int argc, char** argv)
{
    const option known[]
        = {{"diff", required_argument, nullptr, 'd'}, {"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
    Arguments arguments;
    for (int letter; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (letter == 'd')
            arguments.diff = optarg;
        arguments.help = arguments.help || letter == 'h';
        arguments.wrong = arguments.wrong || letter == '?'; // getopt_long has said why
    }
    arguments.users.assign(argv + optind, argv + argc);
    return arguments;
}

bool colourIsWanted()
{
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) && (noColour == nullptr || *noColour == '\0')
        && (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

bool isNamed(const OwnerPreview& owner, const std::vector<std::string>& users)
{
    const std::string name = owner.account.value_or(std::to_string(owner.uid));
    return users.empty() || std::find(users.begin(), users.end(), name) != users.end();
}

std::vector<OwnerPreview> namedOwners(const std::vector<std::string>& users)
{
    const std::vector<OwnerPreview> owners = previewOwners();
    for (const std::string& user : users)
        if (std::none_of(owners.begin(), owners.end(), [&](const auto& owner) { return isNamed(owner, {user}); }))
            throw std::runtime_error(user + " owns no task");
    std::vector<OwnerPreview> named;
    std::copy_if(owners.begin(), owners.end(), std::back_inserter(named),
        [&](const auto& owner) { return isNamed(owner, users); });
    return named;
}

std::string preview(const Arguments& arguments)
{
    if (geteuid() != 0)
        throw std::runtime_error("only root can read the crontabs of others");
    const std::vector<OwnerPreview> owners = namedOwners(arguments.users);
    if (arguments.diff.empty())
        return report(owners, colourIsWanted());
    std::string diffs;
    for (const OwnerPreview& owner : owners)
        diffs += diffOf(owner, arguments.diff == "clean" ? Pass::clean : Pass::rebuild);
    return diffs;
}

int fail(const std::string& why, int status)
{
    std::fprintf(stderr, "crontab_preview: %s\n", why.c_str());
    return status;
}

int show(const std::string& text)
{
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    return written ? 0 : fail("the output could not be written", 1);
}

} // namespace

int main(int argc, char** argv)
{
    const Arguments arguments = parse(argc, argv);
    if (arguments.wrong)
        return 2;
    if (arguments.help)
        return show(help);
    if (!arguments.diff.empty() && arguments.diff != "clean" && arguments.diff != "rebuild")
        return fail("--diff takes clean or rebuild, not " + arguments.diff, 2);
    try {
        return show(preview(arguments));
    } catch (SqliteException& error) {
        return fail(databaseName + ": " + error.getMessage() + " (" + std::to_string(error.getErrorCode()) + ")", 1);
    } catch (const std::exception& error) {
        return fail(error.what(), 1);
    }
}
