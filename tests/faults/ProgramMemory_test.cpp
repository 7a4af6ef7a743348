#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Process.h"
#include "QuickCrontab.h"
#include "TaskLine.h"
#include "WorldTest.h"

// The built program with the first, second, ... request for memory refused, once and from then on.

namespace support {
namespace {

const std::string message = "Exception while cleaning cron";
const std::string foreign = "# jobs\n0 3 * * * /bin/backup\n";

std::string lineOfTask(int id)
{
    return taskLine(id, "0 4 * * *");
}

enum class Pass { clean, rebuild };

std::ostream& operator<<(std::ostream& out, Pass pass)
{
    return out << (pass == Pass::clean ? "clean" : "rebuild");
}

class ProgramMemory : public WorldTest, public testing::WithParamInterface<Pass> {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        m_crontab = std::make_unique<QuickCrontab>();
        execSql(createTaskTable);
        execSql("insert into TaskTable(description, crontime, userId) values"
                "('a', '0 4 * * *', 501), ('b', '0 4 * * *', 502)");
    }

    void TearDown() override { m_crontab.reset(); }

    static std::string before(int id) { return GetParam() == Pass::clean ? foreign + lineOfTask(id) : foreign; }
    static std::string after(int id) { return GetParam() == Pass::clean ? foreign : foreign + lineOfTask(id); }

    /// What is left where the C library could not make a copy: it counts as empty.
    static std::string withoutCopy(int id) { return GetParam() == Pass::clean ? "" : lineOfTask(id); }

    /// Runs the program with these requests refused; how many it makes.
    long run(const std::string& refused)
    {
        setCrontab("anna", before(1));
        setCrontab("ben", before(2));
        setCrontab("carla", foreign + lineOfTask(3));
        std::vector<std::string> command = {ORV_CRON_CLEANER};
        if (GetParam() == Pass::rebuild)
            command.emplace_back("rebuild");
        std::filesystem::remove(m_count);
        m_end = runProgram(command, StandardOutput::captured,
            {"LD_PRELOAD=" ORV_FAILING_MALLOC, "FAILING_MALLOC=" + refused, "FAILING_MALLOC_COUNT=" + m_count});
        return std::filesystem::exists(m_count) ? std::stol(readFile(m_count)) : -1;
    }

    /// Before main there is nobody to catch what the making of the constants throws, and no memory set aside yet for
    /// exceptions. The last request of that time.
    long lastBeforeMain(const std::string& fromThenOn)
    {
        constexpr long more = 60; // than there are
        long last = 0;
        for (long n = 1; n <= more; ++n)
            if (run(std::to_string(n) + fromThenOn) == -1 && m_end.signal == SIGABRT) {
                last = n;
                EXPECT_EQ("", m_end.output);
                EXPECT_EQ(before(1) + before(2), crontabOf("anna") + crontabOf("ben"));
            }
        EXPECT_LT(last, more / 2);
        return last;
    }

    void expectHarmless(const std::string& refused)
    {
        SCOPED_TRACE("request " + refused);
        EXPECT_EQ(0, m_end.status) << m_end.signal << m_end.errors;
        EXPECT_TRUE(m_end.output.empty() || m_end.output == message) << m_end.output;
        m_messages += m_end.output == message ? 1 : 0;
        m_halves += m_end.output == message && crontabOf("anna") == after(1) && crontabOf("ben") == before(2) ? 1 : 0;
        expectExplained("anna", 1);
        expectExplained("ben", 2);
        EXPECT_EQ(foreign + lineOfTask(3), crontabOf("carla"));
    }

    int messages() const { return m_messages; }

    /// How often the message came when one user's crontab had been changed, and stayed so.
    int halves() const { return m_halves; }

private:
    static void expectExplained(const std::string& account, int id)
    {
        const std::string now = crontabOf(account);
        EXPECT_TRUE(now == before(id) || now == after(id) || now == withoutCopy(id)) << account << ":\n" << now;
    }

    const std::string m_count = testDirectory + "count";
    std::unique_ptr<QuickCrontab> m_crontab;
    ProgramEnd m_end;
    int m_messages = 0;
    int m_halves = 0;
};

TEST_P(ProgramMemory, RunsOutAnywhereWithoutHarm)
{
    const long step = GetParam() == Pass::clean ? 1 : 3; // most requests are SQLite's; one of them is like the next
    const long requests = run("0");
    EXPECT_EQ(after(1), crontabOf("anna"));
    EXPECT_EQ(after(2), crontabOf("ben"));
    ASSERT_GT(requests, 100);
    int points = 0;
    for (const std::string fromThenOn : {"", "+"})
        for (long n = lastBeforeMain(fromThenOn) + 1; n <= requests && !HasFailure(); n += step, ++points) {
            const std::string refused = std::to_string(n) + fromThenOn;
            EXPECT_GE(run(refused), n);
            expectHarmless(refused);
        }
    EXPECT_GT(messages(), 50);
    EXPECT_GT(halves(), 0);
    RecordProperty("points", points);
}

INSTANTIATE_TEST_SUITE_P(, ProgramMemory, testing::Values(Pass::clean, Pass::rebuild),
    [](const auto& pass) { return std::string(pass.param == Pass::clean ? "OfAClean" : "OfARebuild"); });

} // namespace
} // namespace support
