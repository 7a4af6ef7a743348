#include "Process.h"
#include "WorldTest.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace support;

namespace {

const std::string build = testDirectory + "build";
const std::string tools = testDirectory + "tools";

/// The last line as a terminal shows it, without the text that an escape sequence erased.
std::string lastLine(const std::string& text)
{
    const std::string whole = text.substr(0, text.find_last_not_of("\r\n") + 1);
    const std::string erase = "\x1b[K";
    const std::size_t erased = whole.rfind(erase);
    const std::size_t begin = whole.rfind('\n') + 1;
    return erased == std::string::npos || erased < begin ? whole.substr(begin) : whole.substr(erased + erase.size());
}

/// scripts/lib/run-tests in a build folder that has only the tests added here.
class RunTests : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        fs::create_directories(build);
    }

    void addTest(const std::string& name, const std::string& command, const std::string& properties = "TIMEOUT 60")
    {
        m_tests += "add_test(" + name + " /bin/sh -c [[" + command + "]])\nset_tests_properties(" + name
            + " PROPERTIES " + properties + ")\n";
        writeFile(build + "/CTestTestfile.cmake", m_tests);
    }

    static ProgramEnd runTests() { return runProgram({ORV_SOURCE_DIR "/scripts/lib/run-tests", build}); }

    static ProgramEnd runTestsOnATerminal()
    {
        return runProgram({"/usr/bin/script", "--quiet", "--return", "--command",
            ORV_SOURCE_DIR "/scripts/lib/run-tests " + build, "/dev/null"});
    }

private:
    std::string m_tests;
};

TEST_F(RunTests, GivesTestsNoTerminalWhenItHasOne)
{
    addTest("reads", "! test -t 0 && ! test -t 1 && ! read -r line");
    const ProgramEnd end = runTestsOnATerminal();
    EXPECT_EQ(0, end.status) << end.output;
    EXPECT_EQ("1 passed, 0 failed", lastLine(end.output)) << end.output;
}

TEST_F(RunTests, PrintsTheOutputOfFailedTestsOnly)
{
    addTest("good", "echo all is well");
    addTest("bad", "printf 'a byte: \\377\\000\\n'; echo expected 1; echo found 2; false");
    const ProgramEnd end = runTests();
    EXPECT_NE(0, end.status);
    EXPECT_NE(std::string::npos, end.output.find("expected 1\nfound 2\n")) << end.output;
    EXPECT_EQ(std::string::npos, end.output.find("good")) << end.output;
    EXPECT_EQ("1 passed, 1 failed", lastLine(end.output));
    EXPECT_EQ("Running the tests; their output goes to " + build + "/tests.log\n", end.errors);
    EXPECT_NE(std::string::npos, readFile(build + "/tests.log").find("good")) << readFile(build + "/tests.log");
}

TEST_F(RunTests, CountsASkippedTestAsFailed)
{
    addTest("good", "true");
    addTest("skipped", "exit 77", "SKIP_RETURN_CODE 77");
    const ProgramEnd end = runTests();
    EXPECT_EQ(1, end.status);
    EXPECT_NE(std::string::npos, end.output.find("skipped")) << end.output;
    EXPECT_EQ("1 passed, 1 failed", lastLine(end.output));
}

TEST_F(RunTests, FailsIfThereIsNoTest)
{
    writeFile(build + "/CTestTestfile.cmake", "");
    EXPECT_EQ(1, runTests().status);
}

class RecordingCrontab : public WorldTest { };

TEST_F(RecordingCrontab, ReplacesAReadOnlyCrontabWithoutAskingOnATerminal)
{
    useRecordingCrontab();
    setCrontab("anna", "1 1 1 1 1 /bin/old\n");
    writeFile(testDirectory + "new", "2 2 2 2 2 /bin/new\n");
    runProgram({"/usr/bin/script", "--quiet", "--command",
        "setpriv --reuid=501 --regid=501 --clear-groups /usr/bin/crontab " + testDirectory + "new", "/dev/null"});
    EXPECT_EQ("2 2 2 2 2 /bin/new\n", crontabOf("anna"));
}

/// Every script that people start.
std::vector<std::string> scripts()
{
    std::vector<std::string> found = {ORV_SOURCE_DIR "/.ci/run", ORV_SOURCE_DIR "/packaging/macos/prove-check-macos"};
    for (const auto& entry : fs::directory_iterator(ORV_SOURCE_DIR "/scripts"))
        if (entry.is_regular_file() && readFile(entry.path()).compare(0, 2, "#!") == 0)
            found.push_back(entry.path());
    return found;
}

class BuildFolder : public WorldTest { };

TEST_F(BuildFolder, OfRootLeavesItsParentToTheOwnerOfTheSources)
{
    const std::string project = testDirectory + "project";
    fs::create_directories(project + "/scripts");
    fs::copy(ORV_SOURCE_DIR "/scripts/lib", project + "/scripts/lib");
    ASSERT_EQ(0, chown(project.c_str(), anna, anna));
    const ProgramEnd end = runProgram({"/bin/bash", "-c",
        "source " + project
            + "/scripts/lib/machine && make_build_folder && stat -c '%n %u:%g' \"$made\" \"${made%/*}\""});
    EXPECT_EQ(project + "/build/root 0:0\n" + project + "/build 501:501\n", end.output) << end.errors;
}

class ScriptHelp : public WorldTest { };

TEST_F(ScriptHelp, ComesBeforeAnythingIsInstalled)
{
    fs::create_directories(tools); // with no compiler and no apt-get
    for (const char* const tool : {"awk", "dirname", "id"})
        fs::create_symlink(std::string("/usr/bin/") + tool, tools + "/" + tool);
    EXPECT_LT(5U, scripts().size());
    for (const std::string& script : scripts()) {
        const ProgramEnd end = runProgram({script, "--help"}, StandardOutput::captured, {"PATH=" + tools});
        EXPECT_EQ(0, end.status) << script << "\n" << end.errors;
        const std::string name = fs::relative(script, ORV_SOURCE_DIR);
        EXPECT_NE(std::string::npos, end.output.find("\nusage: " + name)) << end.output;
        EXPECT_EQ("", end.errors);
    }
}

} // namespace
