#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <new>
#include <optional>
#include <ostream>
#include <set>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <tuple>
#include <vector>

#include "DamagedDatabase.h"
#include "FailingMemory.h"
#include "FailingVfs.h"
#include "OrvException.h"
#include "OrvLogger.h"
#include "QuickCrontab.h"
#include "StoreOperations.h"
#include "Tables.h"
#include "TaskEditor.h"
#include "TaskInfo.h"
#include "TaskLine.h"
#include "WorldTest.h"
#include <CoreFoundation/CoreFoundation.h>

// Runs the operations with the first request for memory refused, then with the second, and so on until a run meets no
// refusal: once with that request alone, and once with all later ones, too. In the C library, popen, fopen and
// getpwuid_r then return null, as they do when they fail for other reasons.

namespace {

char gLogged[256]; // needs no memory
int gLogLines = 0;

} // namespace

void LogMsg(int level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int size = std::snprintf(gLogged, sizeof gLogged, "%d: ", level);
    std::vsnprintf(gLogged + size, sizeof gLogged - static_cast<std::size_t>(size), format, arguments);
    va_end(arguments);
    ++gLogLines;
}

namespace support {
namespace {

enum class End { returned, sqliteException, outOfMemory };

struct Outcome {
    End end = End::returned;
    std::string text; // what it returned, or the exception's message
    int code = 0;
    long requests = 0;
    bool refused = false;
    std::string within; // popen, fopen or getpwuid_r, if one of them made the request
    std::string place;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    if (outcome.end == End::outOfMemory)
        return out << "std::bad_alloc";
    return out << Ending{outcome.end == End::sqliteException, outcome.text, outcome.code};
}

using Action = std::function<std::string(TaskEditor&)>;

// A string that has a block of memory to itself.
long blocksOf(const std::string& text)
{
    return text.capacity() >= sizeof(std::string) / 2 ? 1 : 0;
}

bool mutexIsFree()
{
    return std::async(std::launch::async, [] {
        const std::unique_lock<std::mutex> lock(gMutex, std::try_to_lock);
        return lock.owns_lock();
    }).get();
}

using Of = FailingMemory::Of;

// Runs the action with its n-th request refused.
Outcome runRefusing(TaskEditor& editor, const Action& action, long n, Failing failing, Of whom)
{
    FailingMemory memory;
    Outcome outcome;
    const int descriptors = openDescriptors();
    tzset(); // its copy of the zone's name is lost when there is no memory for the next one
    const long blocks = FailingMemory::blocks();
    try {
        memory.failNth(n, failing, whom);
        outcome.text = action(editor);
        memory.failNothing();
    } catch (SqliteException& failure) {
        memory.failNothing();
        outcome.end = End::sqliteException;
        outcome.text = failure.getMessage();
        outcome.code = failure.getErrorCode();
    } catch (const std::bad_alloc&) {
        memory.failNothing();
        outcome.end = End::outOfMemory;
    }
    EXPECT_GE(blocks, FailingMemory::blocks() - blocksOf(outcome.text)) << memory.place();
    outcome.requests = memory.requests();
    outcome.refused = memory.failures() > 0;
    outcome.within = memory.within();
    outcome.place = memory.place();
    EXPECT_EQ(descriptors, openDescriptors()) << outcome.place;
    EXPECT_TRUE(mutexIsFree()) << outcome.place;
    return outcome;
}

struct Sweep {
    std::function<void()> prepare; // before every run
    Action action;
    std::function<void(const Outcome&, Failing)> check; // after every run that met a refusal
};

// SQLite makes some 300 requests for each statement of the store. The tests of a single statement refuse them one by
// one. The passes run many statements and the crontab program: their tests, and those of slow builds, refuse one by one
// only what SQLite did not request, and of all requests every stepOf...th.
constexpr long stepOfStore = FailingMemory::refusesEverything ? 1 : 7;
constexpr long stepOfPasses = FailingMemory::refusesEverything ? 11 : 61;

class Memory : public WorldTest {
protected:
    // How many requests were refused.
    static int sweep(const Sweep& sweep, Failing failing, Of whom, long step)
    {
        int points = 0;
        for (long n = 1;; n += step) {
            sweep.prepare();
            TaskEditor editor;
            const Outcome outcome = runRefusing(editor, sweep.action, n, failing, whom);
            SCOPED_TRACE("request " + std::to_string(n) + (failing == Failing::once ? "" : " and all after it") + " in "
                + outcome.within + outcome.place);
            if (!outcome.refused) {
                EXPECT_EQ(End::returned, outcome.end) << outcome;
                return points;
            }
            ++points;
            sweep.check(outcome, failing);
            EXPECT_EQ("ok", integrity());
            EXPECT_NO_THROW(editor.getNumUser());
            if (HasFailure())
                return points;
        }
    }

    static void sweepAll(const Sweep& steps, long step)
    {
        steps.prepare();
        TaskEditor warming; // what the C library keeps once it has it is no leak
        steps.action(warming);
        int points = 0;
        for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
            const int each = HasFailure() ? 0 : sweep(steps, failing, step == 1 ? Of::everybody : Of::allButSqlite, 1);
            EXPECT_GT(each, 0);
            points += each + (HasFailure() || step == 1 ? 0 : sweep(steps, failing, Of::everybody, step));
        }
        RecordProperty("points", points);
    }
};

// --- The store ---

// An exception must have SQLite's code for too little memory, or that for misuse if a property list could not be made
// into bytes.
void expectOutOfMemory(const Outcome& outcome, const std::vector<std::string>& texts)
{
    if (outcome.end != End::sqliteException)
        return;
    EXPECT_NE(texts.end(), std::find(texts.begin(), texts.end(), outcome.text)) << outcome;
    const bool unserialised = outcome.text == "Database: Write failed" && outcome.code == SQLITE_MISUSE;
    EXPECT_TRUE(unserialised || outcome.code == SQLITE_NOMEM) << outcome;
}

class StoreMemory : public Memory, public testing::WithParamInterface<StoreOperation> {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        putSoundDatabase();
        m_before = taskRows();
        {
            TaskEditor editor;
            m_undisturbed = endingOf(GetParam(), editor).text;
        }
        m_after = taskRows();
        execSql("update TaskTable set parameter=null where id=5");
        m_afterWithoutParameter = taskRows();
    }

    void expectDocumented(const Outcome& outcome) const
    {
        expectOutOfMemory(outcome, GetParam().failures);
        const bool full = outcome.end != End::returned || outcome.text == m_undisturbed;
        EXPECT_TRUE(full || isLesserResult(outcome.text)) << outcome;
        const Rows rows = taskRows();
        if (GetParam().effect == Effect::none || GetParam().effect == Effect::oneStatement) {
            const bool done = outcome.end == End::returned && outcome.text == m_undisturbed;
            EXPECT_EQ(done ? m_after : m_before, rows);
        } else {
            // A change keeps the stored parameter when its own cannot be made into bytes.
            EXPECT_TRUE(isBetweenStatements(rows, m_before, m_after)
                || (std::string(GetParam().name) == "modifyDbTask"
                    && isBetweenStatements(rows, m_before, m_afterWithoutParameter)))
                << testing::PrintToString(rows);
        }
    }

private:
    // False from what reports failures as false; a task without its property lists, which read as null.
    bool isLesserResult(const std::string& text) const
    {
        if (GetParam().failures.empty() || GetParam().effect == Effect::cleaning)
            return text == "false";
        const std::size_t lists = m_undisturbed.find("|<?xml");
        if (lists == std::string::npos || text.compare(0, lists, m_undisturbed, 0, lists) != 0)
            return false;
        const std::string both = m_undisturbed.substr(lists + 1);
        const std::size_t between = both.find("|");
        for (const std::string& parameter : {both.substr(0, between), std::string("-"), std::string("?")})
            for (const std::string& result : {both.substr(between + 1), std::string("-"), std::string("?")})
                if (text.substr(lists + 1) == parameter + "|" + result)
                    return true;
        return false;
    }

    Rows m_before;
    Rows m_after;
    Rows m_afterWithoutParameter;
    std::string m_undisturbed;
};

TEST_P(StoreMemory, RunsOutAnywhereWithoutHarm)
{
    sweepAll({putSoundDatabase, GetParam().run, [this](const Outcome& outcome, Failing) { expectDocumented(outcome); }},
        stepOfStore);
}

INSTANTIATE_TEST_SUITE_P(, StoreMemory, testing::ValuesIn(storeOperations()), nameOfOperation);

// --- The making of an editor ---

// In a new thread each time: a thread that could not make its editor must not ask again.
Outcome makeEditor(long n, Failing failing)
{
    return std::async(std::launch::async, [=] {
        FailingMemory memory;
        Outcome outcome;
        const long blocks = FailingMemory::blocks();
        try {
            memory.failNth(n, failing);
            TaskEditor::getInstance();
            memory.failNothing();
        } catch (SqliteException& failure) {
            memory.failNothing();
            outcome.end = End::sqliteException;
            outcome.code = failure.getErrorCode();
        } catch (const std::bad_alloc&) {
            memory.failNothing();
            outcome.end = End::outOfMemory;
        }
        EXPECT_EQ(outcome.end != End::returned, letGoOfEditorLock());
        TaskEditor::ReleaseInstance();
        EXPECT_EQ(blocks, FailingMemory::blocks()) << memory.place();
        outcome.refused = memory.failures() > 0;
        outcome.place = memory.place();
        return outcome;
    }).get();
}

void expectMakingDocumented(const Outcome& outcome, bool hadTable)
{
    EXPECT_TRUE(outcome.end != End::sqliteException || outcome.code == SQLITE_NOMEM) << outcome;
    const bool hasTable = queryRows("select count(*) from sqlite_master where name='TaskTable'").at(0) == "1";
    EXPECT_TRUE(hasTable || (outcome.end != End::returned && !hadTable));
    EXPECT_EQ("ok", integrity());
    EXPECT_EQ(hadTable ? 42 : 0, TaskEditor().getNumTaskRecord());
}

void sweepMaking(void (*put)(), bool hadTable, Failing failing)
{
    put();
    makeEditor(-1, failing); // warms
    for (long n = 1;; ++n) {
        put();
        const int descriptors = openDescriptors();
        const Outcome outcome = makeEditor(n, failing);
        SCOPED_TRACE("request " + std::to_string(n) + outcome.place);
        EXPECT_EQ(descriptors, openDescriptors());
        expectMakingDocumented(outcome, hadTable);
        if (testing::Test::HasFailure())
            return;
        if (!outcome.refused) {
            EXPECT_EQ(End::returned, outcome.end) << outcome;
            EXPECT_GT(n, 20);
            testing::Test::RecordProperty(failing == Failing::once ? "once" : "fromThenOn", static_cast<int>(n - 1));
            return;
        }
    }
}

TEST_F(Memory, ForAnEditorRunsOutAnywhereWithoutHarmToAFile)
{
    sweepMaking(putSoundDatabase, true, Failing::once);
    sweepMaking(putSoundDatabase, true, Failing::fromThenOn);
}

TEST_F(Memory, ForAnEditorRunsOutAnywhereWithoutHalfATable)
{
    sweepMaking(putNoDatabase, false, Failing::once);
    sweepMaking(putNoDatabase, false, Failing::fromThenOn);
}

// --- What edits crontabs ---

const std::string annasStart = "# anna's\n0 3 * * * /bin/backup /home/anna\n";
const std::string annasEnd = "30 5 * * 1 /bin/report anna # weekly\n";
const std::string bensJobs = "# ben's\n0 4 * * * /bin/backup /home/ben\n";
const std::string carlasCrontab = "0 5 * * * /bin/carla\n1 4 * * * " + taskManager + " 1 >> /dev/null 2>&1\n";

std::string lineOfTask(int id)
{
    return taskLine(id, std::to_string(id) + " 4 * * *");
}

const std::string annasCrontab = annasStart + lineOfTask(3) + annasEnd;
const std::string annasCleaned = annasStart + annasEnd;
const std::string bensCrontab = bensJobs + lineOfTask(6);

class CrontabMemory : public Memory {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        m_crontab.emplace();
        putNoDatabase();
        execSql(createTaskTable);
        for (const auto& [id, type, owner] : {std::tuple(3, 1, anna), {4, 3, anna}, {5, 2, anna}, {6, 1, ben}}) {
            const std::string number = std::to_string(id);
            execSql("insert into TaskTable(id,description,type,crontime,userId) values (" + number + ",'task',"
                + std::to_string(type) + ",'" + number + " 4 * * *'," + std::to_string(owner) + ")");
        }
        m_database = readFile(databasePath);
    }

    void TearDown() override { m_crontab.reset(); }

    // Also the scratch files that an earlier run for another user may have left.
    void putEverything() const
    {
        putDatabase(m_database);
        setCrontab("anna", annasCrontab);
        setCrontab("ben", bensCrontab);
        setCrontab("carla", carlasCrontab);
        writeFile(scratchDirectory + "crontemp.txt", "# somebody else's\n");
        writeFile(scratchDirectory + "temp2.txt", "# somebody else's\n");
    }

    /// Sweeps over `edit`, from crontabs and rows as putEverything() makes them.
    template <class Edit> void sweepEdits(Edit edit, const std::function<void(const Outcome&, Failing)>& check)
    {
        sweepAll(
            {[this] { putEverything(); }, [&edit](TaskEditor& editor) { return std::to_string(edit(editor)); }, check},
            stepOfPasses);
    }

    void alsoInDatabase(const std::string& sql)
    {
        execSql(sql);
        m_database = readFile(databasePath);
    }

    using Texts = std::set<std::string>;

    // The crontab must be one of `whole` or, if the C library failed before the copy was made, `withoutCopy`.
    void expectCrontab(const std::string& account, const Outcome& outcome, Failing failing, const Texts& whole,
        const std::string& withoutCopy)
    {
        const std::string now = crontabOf(account);
        const bool uncopied = outcome.within == "popen" || outcome.within == "fopen";
        const bool unread = uncopied && failing == Failing::once; // from then on, nothing is installed either
        EXPECT_TRUE(whole.count(now) == 1 || (unread && now == withoutCopy)) << account << ":\n" << now;
        m_uncopied += now == withoutCopy ? 1 : 0;
        EXPECT_EQ(carlasCrontab, crontabOf("carla"));
    }

    // Shows that the C library was made to fail: without a copy, the crontab counts as empty.
    void expectSomeUncopied() const { EXPECT_EQ(FailingMemory::refusesEverything, m_uncopied > 0); }

    Rows rowsNow() const { return queryRows("select * from TaskTable order by id"); }

    /// Where std::bad_alloc came out, as far as the scratch files and crontabs tell.
    struct CameOut {
        int beforeReading = 0; // there is no copy yet
        int betweenReadingAndInstalling = 0;
        int atInstalling = 0; // what is to be installed is there, and is not installed
    };

    /// What is to be installed is made in the scratch file `made`, out of the crontab `copied`.
    struct Edit {
        std::string made;
        std::string copied;
        std::string whole;
    };

    /// Counts one run that ended with std::bad_alloc. Only where a single request was refused does that show that the
    /// exception was let out; where all later ones are refused, the next step throws, too.
    void countCameOut(bool installed, Failing failing, const Edit& edit)
    {
        if (installed || failing == Failing::fromThenOn)
            return;
        const std::string copy = scratchText("crontemp.txt");
        if (scratchText(edit.made) == edit.whole)
            ++m_cameOut.atInstalling;
        else if (copy.compare(0, edit.copied.size(), edit.copied) == 0)
            ++m_cameOut.betweenReadingAndInstalling;
        else if (copy.empty())
            ++m_cameOut.beforeReading;
    }

    void expectCameOutAtEachStep() const
    {
        EXPECT_GT(m_cameOut.beforeReading, 0);
        EXPECT_GT(m_cameOut.betweenReadingAndInstalling, 0);
        EXPECT_GT(m_cameOut.atInstalling, 0);
    }

    /// "" if there is none.
    static std::string scratchText(const std::string& name)
    {
        const std::string path = scratchDirectory + name;
        return std::filesystem::exists(path) ? readFile(path) : "";
    }

    /// Whether one refusal changed nothing: the operation returned, and no function of the C library failed.
    static bool wentOn(const Outcome& outcome, Failing failing)
    {
        return outcome.end == End::returned && outcome.within.empty() && failing == Failing::once;
    }

private:
    std::optional<QuickCrontab> m_crontab;
    std::string m_database;
    int m_uncopied = 0;
    CameOut m_cameOut;
};

TEST_F(CrontabMemory, ForACleanRunsOutAnywhereWithoutALostJob)
{
    const auto check = [&](const Outcome& outcome, Failing failing) {
        expectOutOfMemory(outcome, {"Error in taskType", "Error in reading values"});
        expectCrontab("anna", outcome, failing, {annasCrontab, annasCleaned}, "");
        expectCrontab("ben", outcome, failing, {bensCrontab, bensJobs}, "");
        const bool annaDone = crontabOf("anna") == annasCleaned;
        const bool benDone = crontabOf("ben") == bensJobs;
        if (wentOn(outcome, failing)) {
            EXPECT_TRUE(annaDone && benDone);
        }
        if (outcome.end == End::outOfMemory) { // whoever comes later is not reached
            EXPECT_TRUE(annaDone || !benDone);
            EXPECT_TRUE(annaDone || scratchText("crontemp.txt") != bensCrontab);
            countCameOut(annaDone, failing, {"temp2.txt", annasCrontab, annasCleaned});
        }
    };
    sweepEdits([](TaskEditor& editor) { return editor.cleanCron(); }, check);
    EXPECT_EQ(annasCleaned, crontabOf("anna"));
    expectSomeUncopied();
    expectCameOutAtEachStep();
    EXPECT_EQ(bensJobs, crontabOf("ben"));
}

TEST_F(CrontabMemory, ForARebuildRunsOutAnywhereWithoutALostJob)
{
    int leftOut = 0;
    int withoutALine = 0;
    const auto check = [&](const Outcome& outcome, Failing failing) {
        expectOutOfMemory(outcome, {"Error in taskType", "Error in reading values", "TaskTable doesn't exist-2"});
        expectCrontab("anna", outcome, failing,
            {annasCrontab, annasCrontab + lineOfTask(3), annasCrontab + lineOfTask(5),
                annasCrontab + lineOfTask(3) + lineOfTask(5)},
            lineOfTask(3) + lineOfTask(5));
        expectCrontab("ben", outcome, failing, {bensCrontab, bensCrontab + lineOfTask(6)}, lineOfTask(6));
        const std::string annasNow = crontabOf("anna");
        const bool benDone = crontabOf("ben") == bensCrontab + lineOfTask(6);
        const bool annaWhole = annasNow == annasCrontab + lineOfTask(3) + lineOfTask(5);
        if (wentOn(outcome, failing)) {
            EXPECT_TRUE(annaWhole || benDone); // at most one of them misses a line
            leftOut += annasNow == annasCrontab ? 1 : 0;
            withoutALine += !annaWhole && annasNow != annasCrontab ? 1 : 0;
        }
        if (outcome.end == End::outOfMemory) { // not while a task is read or its line written
            EXPECT_TRUE(annaWhole || !benDone);
            if (failing == Failing::once) {
                EXPECT_NE(annasCrontab + lineOfTask(3), scratchText("crontemp.txt"));
            }
            countCameOut(annasNow != annasCrontab, failing,
                {"crontemp.txt", annasCrontab, annasCrontab + lineOfTask(3) + lineOfTask(5)});
        }
    };
    sweepEdits([](TaskEditor& editor) { return editor.putCronFromDB(); }, check);
    EXPECT_EQ(annasCrontab + lineOfTask(3) + lineOfTask(5), crontabOf("anna"));
    EXPECT_EQ(bensCrontab + lineOfTask(6), crontabOf("ben"));
    expectSomeUncopied();
    expectCameOutAtEachStep();
    EXPECT_GT(leftOut, 0);
    EXPECT_GT(withoutALine, 0);
}

TEST_F(CrontabMemory, ForARefreshRunsOutAnywhereWithoutALostJob)
{
    alsoInDatabase("update TaskTable set id=0 where id=4");
    const auto prepare = [this] {
        putEverything();
        setCrontab("anna", annasStart + "xy4 4 * * * " + lineOfTask(4).substr(10) + annasEnd);
    };
    const std::string refreshed = annasStart + "x\n" + lineOfTask(4) + annasEnd;
    prepare();
    const std::string annas = crontabOf("anna");
    const auto check = [&](const Outcome& outcome, Failing failing) {
        expectOutOfMemory(outcome, {"Error in taskType", "Error in reading values", "Error in querying table"});
        expectCrontab("anna", outcome, failing, {annas, refreshed}, "");
        expectCrontab("ben", outcome, failing, {bensCrontab}, "");
        if (wentOn(outcome, failing)) {
            EXPECT_EQ(refreshed, crontabOf("anna"));
        }
        if (outcome.end == End::outOfMemory)
            countCameOut(crontabOf("anna") != annas, failing, {"temp2.txt", annas, refreshed});
    };
    sweepAll({prepare, [](TaskEditor& editor) { return std::to_string(editor.refreshCron()); }, check}, stepOfPasses);
    EXPECT_EQ(refreshed, crontabOf("anna"));
    expectSomeUncopied();
    expectCameOutAtEachStep();
}

TEST_F(CrontabMemory, ForTheRemovalOfALineRunsOutAnywhereWithoutALostJob)
{
    const auto check = [this](const Outcome& outcome, Failing failing) {
        EXPECT_NE(End::sqliteException, outcome.end) << outcome;
        expectCrontab("anna", outcome, failing, {annasCrontab, annasCleaned}, "");
        EXPECT_EQ(bensCrontab, crontabOf("ben"));
    };
    sweepEdits([](TaskEditor& editor) { return editor.deleteCronEntry(3, anna); }, check);
    EXPECT_EQ(annasCleaned, crontabOf("anna"));
    expectSomeUncopied();
}

TEST_F(CrontabMemory, ForTheDeletionOfATaskRunsOutAnywhereWithoutALostJob)
{
    putEverything();
    const Rows before = rowsNow();
    const Rows after(before.begin() + 1, before.end());
    const auto check = [&](const Outcome& outcome, Failing failing) {
        expectOutOfMemory(outcome, {"Error in querying table", "Deletion failed"});
        expectCrontab("anna", outcome, failing, {annasCrontab, annasCleaned}, "");
        EXPECT_EQ(bensCrontab, crontabOf("ben"));
        const Rows rows = rowsNow();
        EXPECT_TRUE(rows == after || (rows == before && outcome.end != End::returned)) << testing::PrintToString(rows);
        EXPECT_TRUE(rows == after || crontabOf("anna") == annasCrontab); // the row goes first
        if (wentOn(outcome, failing)) {
            EXPECT_EQ(annasCleaned, crontabOf("anna"));
        }
        if (outcome.end == End::outOfMemory && rows == after)
            countCameOut(crontabOf("anna") == annasCleaned, failing, {"temp2.txt", annasCrontab, annasCleaned});
    };
    sweepEdits([](TaskEditor& editor) { return editor.deleteTask(3, true, false); }, check);
    EXPECT_EQ(annasCleaned, crontabOf("anna"));
    expectSomeUncopied();
    expectCameOutAtEachStep();
}

// --- Creating and changing tasks ---

TaskInfo taskWithParameter()
{
    TaskInfo task(taskTypeScan);
    task.description = "a task with a description of some length\n";
    task.cronTime = "7 7 * * *";
    task.created = 1000000000;
    task.lastRun = 1100000000;
    task.userId = anna;
    static CFMutableDictionaryRef settings = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(settings, CFSTR("path"), CFSTR("/Users/anna/Documents"));
    task.parameter = settings; // stays for as long as the program runs
    return task;
}

TEST_F(CrontabMemory, ForANewTaskRunsOutAnywhereWithoutHalfATask)
{
    writeFile(taskManager, "#!/bin/sh\n");
    chmod(taskManager.c_str(), 0755);
    TaskInfo task = taskWithParameter();
    putEverything();
    const Rows before = rowsNow();
    EXPECT_EQ(7, TaskEditor().createTask(task, false, "LocalTask"));
    const Rows after = rowsNow();
    const auto prepare = [&] {
        putEverything();
        gLogLines = 0;
    };
    const auto check = [&](const Outcome& outcome, Failing failing) {
        expectOutOfMemory(outcome, {"Database: Write failed", "TaskTable doesn't exist-1"});
        const Rows rows = rowsNow();
        EXPECT_TRUE(rows == after || (rows == before && outcome.end != End::returned)) << testing::PrintToString(rows);
        const bool notStarted
            = outcome.end == End::returned && (outcome.within == "popen" || failing == Failing::fromThenOn);
        EXPECT_EQ(notStarted ? 1 : 0, gLogLines) << gLogged;
        if (notStarted) {
            EXPECT_EQ("3: popen failed for " + taskManager + " 7 Console &", std::string(gLogged));
        }
    };
    sweepAll({prepare, [&task](TaskEditor& editor) { return std::to_string(editor.createTask(task, true, "Console")); },
                 check},
        stepOfPasses);
}

TEST_F(CrontabMemory, ForAChangedTaskRunsOutAnywhereWithoutHalfAChange)
{
    TaskInfo task = taskWithParameter();
    task.id = 3;
    putEverything();
    const Rows before = rowsNow();
    EXPECT_TRUE(TaskEditor().modifyTask(task, false));
    const Rows after = rowsNow();
    execSql("update TaskTable set parameter=null where id=3");
    const Rows afterWithoutParameter = rowsNow();
    const auto check = [&](const Outcome& outcome, Failing) {
        expectOutOfMemory(outcome, {"Database: Write failed", "TaskTable doesn't exist-1"});
        const Rows rows = rowsNow();
        const bool changed = rows == after || rows == afterWithoutParameter; // which then stays as it was: null
        EXPECT_TRUE(changed || (rows == before && outcome.end != End::returned)) << testing::PrintToString(rows);
    };
    sweepEdits([&task](TaskEditor& editor) { return editor.modifyTask(task, false); }, check);
}

TEST_F(Memory, ForANewRecordRunsOutAnywhere)
{
    int outOfMemory = 0;
    bool refused = true;
    for (long n = 1; refused; ++n) {
        tzset(); // its copy of the zone's name is lost when there is no memory for the next one
        FailingMemory memory;
        const long blocks = FailingMemory::blocks();
        try {
            memory.failNth(n, Failing::once);
            const TaskInfo task(taskTypeQuickOds);
            memory.failNothing();
            EXPECT_EQ("Quick ODS Task ", task.description.substr(0, 15));
        } catch (const std::bad_alloc&) {
            memory.failNothing();
            ++outOfMemory;
        }
        refused = memory.failures() > 0;
        EXPECT_GE(blocks, FailingMemory::blocks()) << memory.place();
    }
    EXPECT_GT(outOfMemory, 1);
}

bool newIsRefused()
{
    try {
        ::operator delete(::operator new(10));
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

// Shows that the sweeps above refuse what they should.
TEST_F(Memory, IsRefusedAsFarAsTheBuildAllows)
{
    FailingMemory memory;
    memory.failNth(1, Failing::fromThenOn);
    // volatile: or Clang leaves the calls out, because nothing uses the blocks
    void* volatile alike[] = {std::malloc(10), std::calloc(2, 5), std::realloc(nullptr, 10), aligned_alloc(64, 64)};
    FILE* const file = std::fopen("/dev/null", "r");
    const bool newRefused = newIsRefused();
    void* const sqlites = sqlite3_malloc(10);
    memory.failNothing();
    for (void* const block : alike) {
        EXPECT_EQ(FailingMemory::refusesEverything, block == nullptr);
        std::free(block);
    }
    EXPECT_EQ(FailingMemory::refusesEverything, file == nullptr);
    if (file != nullptr)
        std::fclose(file);
    EXPECT_TRUE(newRefused);
    EXPECT_EQ(nullptr, sqlites);
}

} // namespace
} // namespace support
