#include "CrontabProgram.h"

#include "CrontabLines.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <ios>
#include <iterator>
#include <memory>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace {

struct Ended {
    std::string output;
    int status; ///< exit status; -1 if a signal ended it
};

Ended runShell(const std::string& command)
{
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot start a process for: " + command);
    Ended ended;
    char block[4096];
    for (std::size_t size; (size = std::fread(block, 1, sizeof block, pipe)) > 0;)
        ended.output.append(block, size);
    const int status = pclose(pipe);
    ended.status = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ended;
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

// A file without a name. While this object lives, other programs can open the file by its path.
class NamelessFile {
public:
    explicit NamelessFile(const std::string& text)
        : m_file(std::tmpfile())
    {
        if (!m_file || std::fwrite(text.data(), 1, text.size(), m_file.get()) != text.size()
            || std::fflush(m_file.get()) != 0)
            throw std::runtime_error("cannot write a temporary file");
        std::rewind(m_file.get());
    }

    std::string path() const { return "/dev/fd/" + std::to_string(fileno(m_file.get())); }

private:
    std::unique_ptr<FILE, FileCloser> m_file;
};

bool mentions(const std::string& text, const std::string& words)
{
    return text.find(words) != std::string::npos;
}

std::string crontabOf(const std::string& account)
{
    return "/usr/bin/crontab -u " + account;
}

bool isControl(char byte)
{
    return (byte >= 0 && byte < ' ' && byte != '\t' && byte != '\n') || byte == '\177';
}

// The crontab as it is in its file, if it has control characters, which `crontab -l` may print as something else.
std::string storedText(const std::string& account, const std::string& listed)
{
    constexpr std::size_t mostHeaderLines = 3; // crontab puts them at the top of the file and does not list them
    std::ifstream file("/var/spool/cron/crontabs/" + account, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (std::none_of(bytes.begin(), bytes.end(), isControl))
        return listed;
    const std::vector<std::string> stored = linesOf(bytes);
    const std::vector<std::string> shown = linesOf(listed);
    if (stored.size() < shown.size() || stored.size() - shown.size() > mostHeaderLines)
        return listed;
    const std::size_t header = stored.size() - shown.size();
    std::string text;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const std::string& line = stored[header + i];
        if (line != shown[i] && std::none_of(line.begin(), line.end(), isControl))
            return listed; // edited since it was listed
        text += line;
    }
    return text;
}

} // namespace

Listing listCrontab(const std::string& account)
{
    const Ended list = runShell(crontabOf(account) + " -l 2>/dev/null");
    const bool succeeded = list.status == 0;
    Listing listing;
    listing.text = list.output;
    listing.exists = succeeded || !list.output.empty();
    listing.stored = listing.exists ? storedText(account, list.output) : "";
    if (succeeded)
        return listing;
    const std::string said = runShell(crontabOf(account) + " -l 2>&1 >/dev/null").output;
    listing.forbidden = mentions(said, "cannot use this program") || mentions(said, "not allowed to use this program");
    // The second text is bcron's, the third busybox's.
    const bool missing = !listing.exists
        && (mentions(said, "no crontab for") || mentions(said, "Crontab does not exist")
            || mentions(said, "can't open '" + account + "': No such file"));
    if (!listing.forbidden && !missing)
        listing.failure = said.empty() ? "it says nothing" : withoutLineEnd(linesOf(said).front());
    return listing;
}

CrontabCheck::CrontabCheck()
    : m_option(nullptr)
{
    // Some crontabs use -n for something else, and others would install a file of that name. So the usage text has to
    // explain the option. Asking for that text installs nothing: there is no file and no input.
    const std::string usage = runShell("cd / && /usr/bin/crontab --help 2>&1 </dev/null").output;
    if (std::regex_search(usage, std::regex("-n[ \t]+\\(dry run")))
        m_option = "-n";
    else if (std::regex_search(usage, std::regex("-T <file>[ \t]+test a crontab file")))
        m_option = "-T";
}

std::string CrontabCheck::complaint(const std::string& account, const std::string& text) const
{
    const NamelessFile file(text);
    const Ended check = runShell(crontabOf(account) + " " + m_option + " " + file.path() + " 2>&1 </dev/null");
    if (check.status == 0)
        return "";
    const std::vector<std::string> said = linesOf(check.output);
    return said.empty() ? "it gives no reason" : withoutLineEnd(said.front());
}

std::optional<Refusal> CrontabCheck::refusal(const std::string& account, const std::string& text) const
{
    if (!possible())
        return std::nullopt;
    const std::string said = complaint(account, text);
    if (said.empty())
        return std::nullopt;
    // The line number in the message of some crontabs is one too low. So look for the line that makes the difference:
    // crontab accepts the text before it, and refuses the text that includes it.
    const std::vector<std::string> lines = linesOf(text);
    std::size_t taken = 0;
    std::size_t refused = lines.size();
    while (refused - taken > 1) {
        const std::size_t middle = taken + (refused - taken) / 2;
        std::string beginning;
        for (std::size_t i = 0; i < middle; ++i)
            beginning += lines[i];
        (complaint(account, beginning).empty() ? taken : refused) = middle;
    }
    return Refusal{refused, std::regex_replace(said, std::regex("^\"?/dev/fd/[0-9]+\"?:[0-9]+: "), "")};
}

std::string unifiedDiff(
    const std::string& before, const std::string& beforeName, const std::string& after, const std::string& afterName)
{
    if (before == after)
        return "";
    const NamelessFile from(before);
    const NamelessFile to(after);
    const Ended diff = runShell("LC_ALL=C /usr/bin/diff -a -u " + from.path() + " " + to.path());
    const std::size_t namesEnd = diff.output.find("\n@@");
    if (diff.status != 1 || namesEnd == std::string::npos)
        throw std::runtime_error("diff fails");
    return "--- " + beforeName + "\n+++ " + afterName + diff.output.substr(namesEnd);
}
