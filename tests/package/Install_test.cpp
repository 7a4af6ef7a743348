#include "Process.h"
#include "WorldTest.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <ios>
#include <numeric>
#include <regex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;
using namespace support;

namespace {

// What the compiler is told besides, for the C++ library of this build.
#ifdef _LIBCPP_VERSION
const std::string sameLibrary = "-stdlib=libc++ ";
#else
const std::string sameLibrary;
#endif

const std::string productsDirectories = "Kestrelcore/ 755\nKestrelcore/var/ 755\nKestrelcore/var/tmp/ 700\n";
const std::string stage = testDirectory + "stage";
const std::string prefix = testDirectory + "prefix";

std::string run(const std::vector<std::string>& command, const std::vector<std::string>& environment = {})
{
    const ProgramEnd end = runProgram(command, StandardOutput::captured, environment);
    EXPECT_EQ(0, end.status) << command.at(0) << "\n" << end.output << end.errors;
    return end.output + end.errors;
}

/// Path and mode of everything below `directory`, sorted: "sbin/ 755", "sbin/OrvCronCleaner 755".
std::string listing(const std::string& directory)
{
    std::vector<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        struct stat state { };
        EXPECT_EQ(0, lstat(entry.path().c_str(), &state));
        EXPECT_EQ(0U, state.st_uid) << entry.path();
        std::ostringstream line;
        line << fs::relative(entry.path(), directory).string() << (S_ISDIR(state.st_mode) ? "/ " : " ") << std::oct
             << (state.st_mode & 07777U) << '\n';
        lines.push_back(line.str());
    }
    std::sort(lines.begin(), lines.end());
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

std::string pageLines(const std::string& directory)
{
    std::string lines;
    for (const char* const section : {"man3", "man8"}) {
        std::vector<std::string> pages;
        const std::string sources = std::string(ORV_SOURCE_DIR "/man/") + section;
        if (fs::exists(sources))
            for (const auto& page : fs::directory_iterator(sources))
                pages.push_back(page.path().filename().string());
        std::sort(pages.begin(), pages.end());
        if (!pages.empty())
            lines += directory + section + "/ 755\n";
        for (const std::string& page : pages)
            lines += directory + section + "/" + page + " 644\n";
    }
    return lines;
}

/// The documents and the examples, sorted by path.
std::string documentLines(const std::string& directory)
{
    std::vector<std::string> lines = {directory + "examples/ 755\n"};
    for (const auto& document : fs::directory_iterator(ORV_SOURCE_DIR "/docs"))
        lines.push_back(directory + document.path().filename().string() + " 644\n");
    for (const auto& entry : fs::recursive_directory_iterator(ORV_EXAMPLES))
        lines.push_back(directory + "examples/" + fs::relative(entry.path(), ORV_EXAMPLES).string()
            + (entry.is_directory() ? "/ 755\n" : " 644\n"));
    for (const std::string name : {"TerminalText.cpp", "TerminalText.h"})
        lines.push_back(directory + "examples/" + name + " 644\n");
    std::sort(lines.begin(), lines.end());
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

/// What an install puts under its prefix.
std::string installedFiles()
{
    const std::string lib = std::string(ORV_LIBDIR) + "/";
    const std::string config = ORV_BUILD_CONFIG;
    return "include/ 755\n"
           "include/OrvScheduling/ 755\n"
           "include/OrvScheduling/CfRef.h 644\n"
           "include/OrvScheduling/Constants.h 644\n"
           "include/OrvScheduling/CrontabText.h 644\n"
           "include/OrvScheduling/OrvException.h 644\n"
           "include/OrvScheduling/PassLock.h 644\n"
           "include/OrvScheduling/SqliteDb.h 644\n"
           "include/OrvScheduling/TaskEditor.h 644\n"
           "include/OrvScheduling/TaskInfo.h 644\n"
           "include/OrvScheduling/TaskInterface.h 644\n"
           "include/OrvScheduling/platform/ 755\n"
           "include/OrvScheduling/platform/CoreFoundation/ 755\n"
           "include/OrvScheduling/platform/CoreFoundation/CoreFoundation.h 644\n"
           "include/OrvScheduling/platform/OrvLogger.h 644\n"
        + lib + " 755\n" + lib + "cmake/ 755\n" + lib + "cmake/OrvScheduling/ 755\n" + lib
        + "cmake/OrvScheduling/OrvSchedulingConfig.cmake 644\n" + lib
        + "cmake/OrvScheduling/OrvSchedulingConfigVersion.cmake 644\n" + lib
        + "cmake/OrvScheduling/OrvSchedulingTargets-" + config + ".cmake 644\n" + lib
        + "cmake/OrvScheduling/OrvSchedulingTargets.cmake 644\n" + lib + "cmake/OrvScheduling/SqliteTarget.cmake 644\n"
        + lib + "libOrvCoreFoundation.a 644\n" + lib + "libOrvLogger.a 644\n" + lib + "libOrvScheduling.a 644\n" + lib
        + "libkblutils.a 644\n" + lib + "pkgconfig/ 755\n" + lib
        + "pkgconfig/OrvScheduling.pc 644\n"
          "sbin/ 755\n"
          "sbin/OrvCronCleaner 755\n"
          "sbin/crontab_preview 755\n"
          "share/ 755\n"
          "share/doc/ 755\n"
          "share/doc/OrvScheduling/ 755\n"
        + documentLines("share/doc/OrvScheduling/") + "share/man/ 755\n" + pageLines("share/man/");
}

class Install : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        fs::remove_all("/usr/local/Quarno");
    }

    static void install(const std::vector<std::string>& environment = {})
    {
        run({ORV_CMAKE, "--install", ORV_BUILD_DIR, "--prefix", prefix}, environment);
    }

    static void installWithAStrictUmask()
    {
        const mode_t before = umask(077);
        install();
        umask(before);
    }

    static mode_t modeOf(const std::string& path)
    {
        struct stat state { };
        EXPECT_EQ(0, stat(path.c_str(), &state));
        return state.st_mode & 07777U;
    }
};

TEST_F(Install, PutsEachFileUnderThePrefixWithItsMode)
{
    install();
    EXPECT_EQ(installedFiles(), listing(prefix));
}

TEST_F(Install, PutsEverythingBelowDestdir)
{
    install({"DESTDIR=" + stage});
    EXPECT_EQ(installedFiles(), listing(stage + prefix));
    EXPECT_EQ(productsDirectories, listing(stage + "/usr/local/Quarno"));
    EXPECT_FALSE(fs::exists(prefix));
    EXPECT_FALSE(fs::exists("/usr/local/Quarno"));
}

TEST_F(Install, MakesTheScratchDirectoryPrivateWhateverTheUmaskAndKeepsTheDatabase)
{
    fs::create_directories(scratchDirectory);
    ASSERT_EQ(0, chmod(scratchDirectory.c_str(), 0777));
    writeFile(databasePath, "tasks");
    installWithAStrictUmask();
    EXPECT_EQ("OrvMacDatabase.db 644\ntmp/ 700\n", listing(productDirectory + "var"));
    EXPECT_EQ("tasks", readFile(databasePath));
    EXPECT_EQ(0755U, modeOf(productDirectory + "var"));
}

TEST_F(Install, MakesDirectoriesThatEverybodyMaySearchWhateverTheUmask)
{
    installWithAStrictUmask();
    EXPECT_EQ(installedFiles(), listing(prefix));
    EXPECT_EQ(productsDirectories, listing("/usr/local/Quarno"));
    EXPECT_EQ(0755U, modeOf("/usr/local/Quarno"));
}

TEST_F(Install, InstallsProgramsThatRun)
{
    install();
    execSql(createTaskTable);
    execSql(
        "insert into TaskTable(description,crontime,userId) values('Scan','7 * * * *'," + std::to_string(anna) + ")");
    setCrontab("anna", "0 4 * * * /bin/own\n");
    EXPECT_NE(std::string::npos,
        run({prefix + "/sbin/crontab_preview", "rebuild", "--diff"}).find("+7 * * * * " + taskManager));
    EXPECT_EQ("", run({prefix + "/sbin/OrvCronCleaner", "rebuild"}));
    EXPECT_EQ("0 4 * * * /bin/own\n7 * * * * " + taskManager + " 1 >> /dev/null 2>&1\n", crontabOf("anna"));
}

TEST_F(Install, InstallsHardenedProgramsAndLibraries)
{
    const bool loadsCxxRuntime = *ORV_SANITIZE != '\0' || !sameLibrary.empty();
    install();
    for (const std::string name : {"OrvCronCleaner", "crontab_preview"}) {
        const std::string program = run({ORV_READELF, "-hldW", prefix + "/sbin/" + name});
        for (const std::string mark : {"NOW PIE", "GNU_RELRO", "BIND_NOW"})
            EXPECT_NE(std::string::npos, program.find(mark)) << name << ": " << mark;
        EXPECT_EQ(loadsCxxRuntime, program.find("libstdc++") != std::string::npos) << name;
    }
    for (const std::string library : {"OrvCoreFoundation", "OrvLogger", "OrvScheduling", "kblutils"})
        EXPECT_NE(std::string::npos,
            run({ORV_NM, prefix + "/" ORV_LIBDIR "/lib" + library + ".a"}).find(" U __stack_chk_fail"))
            << library;
}

/// The global names that `library` defines, except those that start with one of `expected`.
std::string otherNames(const std::string& library, const std::vector<std::string>& expected)
{
    const std::string archive = prefix + "/" ORV_LIBDIR "/lib" + library + ".a";
    std::istringstream symbols(run({ORV_NM, "-C", "-g", "-P", "--defined-only", archive}));
    std::string others;
    for (std::string line; std::getline(symbols, line);) {
        const auto starts = [&line](const std::string& name) { return line.rfind(name, 0) == 0; };
        const bool ofTheLanguage
            = std::regex_search(line, std::regex("^(typeinfo|vtable|guard variable|thread-local wrapper|DW.ref.|_|$)"))
            || std::regex_search(line, std::regex("^(decltype[(]auto[)] |[^(<]* )?std::")) || line.back() == ':';
        if (!ofTheLanguage && std::none_of(expected.begin(), expected.end(), starts))
            others += line + '\n';
    }
    return others;
}

TEST_F(Install, InstallsLibrariesThatDefineOnlyTheirDocumentedGlobalNames)
{
    install();
    EXPECT_EQ("", otherNames("OrvLogger", {"LogMsg "}));
    EXPECT_EQ("", otherNames("kblutils", {"OrvException::", "SqliteException::", "SqliteDb::"}));
    EXPECT_EQ("",
        otherNames("OrvScheduling",
            {"orv::", "TaskEditor::", "TaskInterface::", "TaskInfo::", "executeCommand(", "gMutex ",
                "convertTmToString", "convertStringToTm("}));
    EXPECT_EQ("", otherNames("OrvCoreFoundation", {"CF", "kCF", "OrvCF"}));
}

TEST_F(Install, SaysWhichPackagesADebianPackageNeeds)
{
    const std::string tools = testDirectory + "tools"; // without file and dpkg-shlibdeps
    fs::create_directories(tools);
    const ProgramEnd end
        = runProgram({fs::path(ORV_CMAKE).replace_filename("cpack"), "-G", "DEB", "--config",
                         std::string(ORV_BUILD_DIR) + "/CPackConfig.cmake", "-B", testDirectory + "packages"},
            StandardOutput::captured, {"PATH=" + tools});
    EXPECT_NE(0, end.status);
    EXPECT_NE(std::string::npos, end.errors.find("apt-get install dpkg-dev file")) << end.errors;
}

TEST_F(Install, NamesTheDebianPackageOfAMissingLibrary)
{
    for (const std::string missing : {"SQLite3 libsqlite3-dev", "pugixml libpugixml-dev", "GTest libgtest-dev"}) {
        const std::size_t blank = missing.find(' ');
        const ProgramEnd end
            = runProgram({ORV_CMAKE, "-S", ORV_SOURCE_DIR, "-B", testDirectory + missing.substr(0, blank), "-G",
                ORV_GENERATOR, std::string("-DCMAKE_CXX_COMPILER=") + ORV_COMPILER,
                "-DCMAKE_DISABLE_FIND_PACKAGE_" + missing.substr(0, blank) + "=ON"});
        EXPECT_NE(0, end.status) << missing;
        EXPECT_NE(std::string::npos, end.errors.find("apt-get install " + missing.substr(blank + 1))) << end.errors;
    }
}

/// The files that the installed documents link to are installed, too.
TEST_F(Install, InstallsDocumentsWhoseLinksWork)
{
    install();
    const std::string documents = prefix + "/share/doc/OrvScheduling";
    const std::regex link(R"(\]\(([^)#:]+)[^):]*\))");
    for (const auto& entry : fs::recursive_directory_iterator(documents)) {
        if (entry.path().extension() != ".md")
            continue;
        const std::string text = readFile(entry.path());
        for (std::sregex_iterator match(text.begin(), text.end(), link), end; match != end; ++match)
            EXPECT_TRUE(fs::exists(entry.path().parent_path() / (*match)[1].str())) << entry << ": " << (*match)[1];
    }
}

/// Another project that uses the libraries: examples/.
class Consumer : public Install {
protected:
    const std::string build = testDirectory + "build";
    const std::string sameCompiler = std::string("-DCMAKE_CXX_COMPILER=") + ORV_COMPILER;

    /// Warnings are errors, in the installed headers too: they do not count as the system's.
    void buildExamples(const std::string& where, const std::string& flags, const std::string& source = ORV_EXAMPLES)
    {
        run({ORV_CMAKE, "-S", source, "-B", build, "-G", ORV_GENERATOR, sameCompiler,
            "-DCMAKE_NO_SYSTEM_FROM_IMPORTED=ON",
            "-DCMAKE_CXX_FLAGS=" + sameLibrary + "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Werror "
                + flags,
            where});
        run({ORV_CMAKE, "--build", build});
    }

    /// Has the built program do something that needs all of the libraries.
    void expectTheExampleToWork()
    {
        fs::create_directories(scratchDirectory);
        EXPECT_EQ("1\n", run({build + "/schedule_task", "create", "--user", "anna", "--schedule", "7 * * * *", "a=b"}));
        EXPECT_NE(std::string::npos, run({build + "/schedule_task", "list"}).find("   1 anna "));
        EXPECT_EQ((std::vector<std::string>{"1"}),
            queryRows("select cast(parameter as text) like '%<key>a</key>%' from TaskTable"));
    }
};

TEST_F(Consumer, FindsThePackageWhereItIsInstalled)
{
    install();
    constexpr const char* sanitize = ORV_SANITIZE;
    buildExamples("-DCMAKE_PREFIX_PATH=" + prefix, *sanitize == '\0' ? "" : std::string("-fsanitize=") + sanitize,
        prefix + "/share/doc/OrvScheduling/examples");
    expectTheExampleToWork();
}

TEST_F(Consumer, FindsThePackageInAnInstalledTreeThatWasMoved)
{
    install({"DESTDIR=" + stage});
    run({ORV_CMAKE, "-S", ORV_EXAMPLES, "-B", build, "-G", ORV_GENERATOR, sameCompiler,
        "-DCMAKE_PREFIX_PATH=" + stage + prefix});
    EXPECT_NE(std::string::npos,
        readFile(build + "/CMakeCache.txt").find("OrvScheduling_DIR:PATH=" + stage + prefix + "/" + ORV_LIBDIR));
}

TEST_F(Consumer, BuildsThePackageWithItselfAndInstallsItOnlyWhenAsked)
{
    buildExamples("-DORV_SCHEDULING_SOURCE=" ORV_SOURCE_DIR, "");
    expectTheExampleToWork();
    EXPECT_FALSE(fs::exists(build + "/OrvScheduling/tests"));
    EXPECT_FALSE(fs::exists(build + "/OrvScheduling/CPackConfig.cmake"));
    run({ORV_CMAKE, "--install", build, "--prefix", prefix}, {"DESTDIR=" + stage});
    EXPECT_FALSE(fs::exists(stage));
    EXPECT_FALSE(fs::exists(prefix));
    run({ORV_CMAKE, "-DORV_INSTALL=ON", "-DCMAKE_INSTALL_INCLUDEDIR=headers", build});
    run({ORV_CMAKE, "--build", build});
    run({ORV_CMAKE, "--install", build, "--prefix", prefix}, {"DESTDIR=" + stage});
    EXPECT_TRUE(fs::exists(stage + prefix + "/sbin/OrvCronCleaner"));
    EXPECT_TRUE(fs::exists(stage + prefix + "/headers/OrvScheduling/TaskEditor.h"));
    EXPECT_FALSE(fs::exists(stage + prefix + "/include"));
    EXPECT_NE(std::string::npos,
        readFile(stage + prefix + "/" + ORV_LIBDIR + "/cmake/OrvScheduling/OrvSchedulingTargets.cmake")
            .find("${_IMPORT_PREFIX}/headers/OrvScheduling;"));
    EXPECT_TRUE(fs::exists(stage + scratchDirectory));
}

TEST_F(Consumer, BuildsTheGuidesProgramWithPkgConfigAlone)
{
    install();
    const std::string source = testDirectory + "guide.cpp";
    writeFile(source,
        run({"/usr/bin/awk", "/^```cpp$/ { code = 1; next } /^```/ { code = 0 } code",
            ORV_SOURCE_DIR "/docs/task-library.md"})
            + "int main() { return createScanOfFolder(CFSTR(\"/home\"), 501) == 1 && folderOf(1) == \"/home\" ? 0 : 1; "
              "}");
    run({"/bin/sh", "-c",
            ORV_COMPILER " " + sameLibrary + "-std=c++17 -o " + testDirectory + "guide " + source
                + " $(pkg-config --cflags --libs 'OrvScheduling >= 1.1')"},
        {"PKG_CONFIG_PATH=" + prefix + "/" ORV_LIBDIR "/pkgconfig"});
    fs::create_directories(scratchDirectory);
    run({testDirectory + "guide"});
    EXPECT_EQ(std::vector<std::string>{"1|501"}, queryRows("select id,userId from TaskTable"));
}

TEST_F(Consumer, CannotFindAnyOtherVersion)
{
    install();
    const std::string project = testDirectory + "project";
    fs::create_directories(project);
    for (const std::string version : {"0.9", "1.2", "2.0"}) {
        writeFile(project + "/CMakeLists.txt",
            "cmake_minimum_required(VERSION 3.25)\nproject(P LANGUAGES CXX)\nfind_package(OrvScheduling " + version
                + " REQUIRED)\n");
        const ProgramEnd end
            = runProgram({ORV_CMAKE, "-S", project, "-B", build, "-G", ORV_GENERATOR, "-DCMAKE_PREFIX_PATH=" + prefix});
        EXPECT_NE(0, end.status) << version;
        EXPECT_NE(std::string::npos, end.errors.find("version: 1.1.0")) << end.errors;
    }
}

} // namespace
