#include "OrvException.h"
#include "SystemTest.h"
#include "TaskEditor.h"

#include <cctype>
#include <cstddef>
#include <fstream>
#include <gtest/gtest.h>
#include <istream>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

// Under CAVEATS, the man pages show what is lost and joined, as crontabs before and after. These tests read the
// examples from the sources of the pages, and run them.

using namespace support;

namespace {

const std::vector<std::string> pages = {"man8/OrvCronCleaner.8", "man3/OrvScheduling.3"};

/// What is done, and the crontab after it.
struct Step {
    std::string action; ///< as in "Before a clean:" and "After a clean:"
    std::string after;
};

/// One heading under CAVEATS and its example.
struct Caveat {
    std::string page;
    std::string heading;
    std::string action; ///< the first one
    std::string before;
    std::vector<Step> steps;
};

std::ostream& operator<<(std::ostream& out, const Caveat& caveat)
{
    return out << caveat.page << ", " << caveat.heading;
}

std::string expandOne(const std::string& word)
{
    if (word == "nul")
        return std::string(1, '\0');
    if (word == "cr")
        return "\r";
    if (word.compare(0, 5, "task ") == 0)
        return "7 * * * * " + taskManager + " " + word.substr(5) + " >> /dev/null 2>&1";
    if (word.compare(0, 2, "x ") == 0)
        return std::string(std::stoul(word.substr(2)), 'x');
    throw std::runtime_error("the pages do not explain {" + word + "}");
}

void cutEnd(std::string& text, const std::string& end)
{
    if (text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0)
        text.erase(text.size() - end.size());
}

/// The crontab that an example of a page means.
std::string expand(std::string text)
{
    if (text == "{nothing}\n")
        return "";
    cutEnd(text, "{end}\n");
    for (size_t at = text.find("\\e"); at != std::string::npos; at = text.find("\\e", at + 1))
        text.erase(at + 1, 1);
    for (size_t open = text.find('{'); open != std::string::npos; open = text.find('{', open)) {
        const size_t close = text.find('}', open);
        const std::string meant = expandOne(text.substr(open + 1, close - open - 1));
        text.replace(open, close - open + 1, meant);
        open += meant.size();
    }
    return text;
}

std::string display(std::istream& page)
{
    std::string text;
    for (std::string line; std::getline(page, line) && line != ".Ed";)
        text += line + "\n";
    return text;
}

bool startsWith(const std::string& line, const std::string& start)
{
    return line.compare(0, start.size(), start) == 0;
}

/// Reads the caveats of one page, in order. Throws at anything that it does not understand, so that no example is
/// skipped.
class CaveatReader {
public:
    explicit CaveatReader(const std::string& name)
        : m_name(name)
        , m_page(std::string(ORV_MAN_PAGES) + "/" + name)
    {
    }

    std::vector<Caveat> read()
    {
        bool within = false;
        for (std::string line; std::getline(m_page, line);) {
            if (startsWith(line, ".Sh "))
                within = line == ".Sh CAVEATS";
            else if (within)
                readLine(line);
        }
        return m_caveats;
    }

private:
    void readLine(const std::string& line)
    {
        if (startsWith(line, ".Ss ")) {
            m_caveats.push_back({m_name, line.substr(4), "", "", {}});
            m_label.clear();
        } else if (startsWith(line, "Before ") || startsWith(line, "After ")) {
            m_label = line;
        } else if (startsWith(line, ".Bd ")) {
            readDisplay();
        }
    }

    void readDisplay()
    {
        Caveat& caveat = m_caveats.at(m_caveats.size() - 1);
        const std::string text = expand(display(m_page));
        if (startsWith(m_label, "Before ") && m_label.back() == ':' && caveat.action.empty()) {
            caveat.action = m_label.substr(7, m_label.size() - 8);
            caveat.before = text;
        } else {
            caveat.steps.push_back({actionBefore(caveat), text});
        }
        m_label.clear();
    }

    std::string actionBefore(const Caveat& caveat) const
    {
        const bool first = caveat.steps.empty();
        if (!caveat.action.empty() && m_label == (first ? "After it:" : "After another:"))
            return caveat.action;
        if (!first && m_label == "After a clean:")
            return "a clean";
        throw std::runtime_error(m_name + ": \"" + m_label + "\" says nothing of the text below it");
    }

    const std::string m_name;
    std::ifstream m_page;
    std::string m_label;
    std::vector<Caveat> m_caveats;
};

std::vector<Caveat> caveatsOf(const std::string& page)
{
    return CaveatReader(page).read();
}

const std::string onDebian = " on Debian";

bool isOnDebian(const Caveat& caveat)
{
    return caveat.action.find(onDebian) != std::string::npos;
}

std::vector<Caveat> caveatsOfAnyCrontab()
{
    std::vector<Caveat> all;
    for (const auto& page : pages)
        for (const auto& caveat : caveatsOf(page))
            if (!isOnDebian(caveat))
                all.push_back(caveat);
    return all;
}

/// The caveats of the program that a real crontab program can show: Debian's, or any.
std::vector<Caveat> caveatsOfRealCrontabs(bool debians)
{
    std::vector<Caveat> all;
    for (auto caveat : caveatsOf(pages.front())) {
        if (isOnDebian(caveat) != debians)
            continue;
        for (auto& step : caveat.steps)
            cutEnd(step.action, onDebian);
        if (caveat.steps.front().action == "a clean" || caveat.steps.front().action == "a rebuild")
            all.push_back(caveat);
    }
    return all;
}

std::string testName(const testing::TestParamInfo<Caveat>& info)
{
    std::string name;
    bool wordStarts = true;
    for (const char letter : info.param.heading) {
        const auto code = static_cast<unsigned char>(letter);
        if (std::isalnum(code) != 0)
            name += wordStarts ? static_cast<char>(std::toupper(code)) : letter;
        wordStarts = std::isalnum(code) == 0;
    }
    return name;
}

void deleteTask12()
{
    EXPECT_TRUE(TaskEditor::getInstance()->deleteTask(12, true, false));
}

void refresh()
{
    EXPECT_TRUE(TaskEditor::getInstance()->refreshCron());
}

void refreshWithTask0()
{
    addTask({0, carla, "7 * * * *"});
    refresh();
}

void refreshWithoutTask0()
{
    try {
        TaskEditor::getInstance()->refreshCron();
        FAIL() << "nothing was thrown";
    } catch (SqliteException& thrown) {
        EXPECT_STREQ("Database: taskId not found", thrown.getMessage());
    }
}

const std::string listsNothing = "[ $operation != list ] || exit 1";
const std::string ownerAppends
    = "[ $operation != install ] || echo '30 6 * * 1 /bin/report' >>/usr/local/private-world/crontab/tabs/$user";

using Action = void (*)();
const std::map<std::string, Action> actions = {
    {"a clean", [] { clean(); }},
    {"a rebuild", [] { rebuild(); }},
    {"a clean while crontab -l prints nothing", [] { onCrontabCall(listsNothing), clean(); }},
    {"a rebuild while crontab -l prints nothing", [] { onCrontabCall(listsNothing), rebuild(); }},
    {"a clean while the owner appends a job", [] { onCrontabCall(ownerAppends), clean(); }},
    {"a rebuild while the owner appends a job", [] { onCrontabCall(ownerAppends), rebuild(); }},
    {"deleteTask of task 12", deleteTask12},
    {"deleteTask of task 12 while crontab -l prints nothing", [] { onCrontabCall(listsNothing), deleteTask12(); }},
    {"deleteTask of task 12 while the owner appends a job", [] { onCrontabCall(ownerAppends), deleteTask12(); }},
    {"refreshCron with a task 0 that runs at minute 7", refreshWithTask0},
    {"refreshCron without a task 0", refreshWithoutTask0},
    {"refreshCron while crontab -l prints nothing", [] { onCrontabCall(listsNothing), refresh(); }},
    {"refreshCron while the owner appends a job", [] { onCrontabCall(ownerAppends), refresh(); }},
};

class Caveats : public RecordedSystemTest, public testing::WithParamInterface<Caveat> {
protected:
    void TearDown() override { TaskEditor::ReleaseInstance(); }
};

TEST_P(Caveats, Shows)
{
    const Caveat& caveat = GetParam();
    ASSERT_NE(0u, actions.count(caveat.action)) << "nobody knows how to do \"" << caveat.action << "\"";
    ASSERT_FALSE(caveat.steps.empty());
    addTask({12, anna, "7 * * * *"});
    addTask({15, anna, "7 * * * *"});
    setCrontab("anna", caveat.before);
    for (const auto& step : caveat.steps) {
        actions.at(step.action)();
        EXPECT_EQ(step.after, crontabOf("anna")) << "after " << step.action;
    }
}

INSTANTIATE_TEST_SUITE_P(Page, Caveats, testing::ValuesIn(caveatsOfAnyCrontab()), testName);

class CaveatsOfRealCrontabs : public SystemTest, public testing::WithParamInterface<Caveat> { };

TEST_P(CaveatsOfRealCrontabs, Show)
{
    addTask({12, anna, "7 * * * *"});
    addTask({15, anna, "7 * * * *"});
    storeCrontab("anna", GetParam().before);
    for (const auto& step : GetParam().steps) {
        actions.at(step.action)();
        EXPECT_EQ(step.after, storedCrontab("anna")) << "after " << step.action;
    }
}

INSTANTIATE_TEST_SUITE_P(Page, CaveatsOfRealCrontabs, testing::ValuesIn(caveatsOfRealCrontabs(false)), testName);
INSTANTIATE_TEST_SUITE_P(Debian, CaveatsOfRealCrontabs, testing::ValuesIn(caveatsOfRealCrontabs(true)), testName);

TEST(CaveatsPages, HaveAnExampleUnderEachHeading)
{
    for (const auto& page : pages) {
        const auto caveats = caveatsOf(page);
        EXPECT_GT(caveats.size(), 5u) << page;
        for (const auto& caveat : caveats)
            EXPECT_FALSE(caveat.action.empty() || caveat.steps.empty()) << caveat;
    }
}

} // namespace
