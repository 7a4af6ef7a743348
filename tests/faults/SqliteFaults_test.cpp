#include <algorithm>
#include <future>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <string>
#include <vector>

#include "DamagedDatabase.h"
#include "FailingVfs.h"
#include "OrvException.h"
#include "StoreOperations.h"
#include "Tables.h"
#include "TaskEditor.h"
#include "WorldTest.h"

// Runs each operation of the store with SQLite's first call of a kind failing, then its second, and so on until a run
// meets no failure: once with that call alone, and once with all later ones, too.

namespace support {
namespace {

struct Fault {
    const char* name;
    FileCall call;
    int code;
};

const Fault openFault = {"open: cannot be opened", FileCall::open, SQLITE_CANTOPEN};
const Fault readFault = {"read: input/output error", FileCall::read, SQLITE_IOERR_READ};
const Fault writeFault = {"write: input/output error", FileCall::write, SQLITE_IOERR_WRITE};
const Fault fullFault = {"write: disk full", FileCall::write, SQLITE_FULL};
const Fault syncFault = {"sync: input/output error", FileCall::sync, SQLITE_IOERR_FSYNC};
const Fault lockFault = {"lock: input/output error", FileCall::lock, SQLITE_IOERR_LOCK};
const Fault busyFault = {"lock: held by another", FileCall::lock, SQLITE_BUSY};
const Fault removeFault = {"remove: not removed", FileCall::remove, SQLITE_IOERR_DELETE};
const Fault removeSyncFault = {"remove: removed, directory not synced", FileCall::remove, SQLITE_IOERR_DIR_FSYNC};
const Fault truncateFault = {"truncate: input/output error", FileCall::truncate, SQLITE_IOERR_TRUNCATE};
const Fault fileSizeFault = {"file size: input/output error", FileCall::fileSize, SQLITE_IOERR_FSTAT};
const Fault accessFault = {"access: input/output error", FileCall::access, SQLITE_IOERR_ACCESS};

const std::vector<Fault> allFaults = {openFault, readFault, writeFault, fullFault, syncFault, lockFault, busyFault,
    removeFault, removeSyncFault, truncateFault, fileSizeFault, accessFault};

constexpr long busyWaitMilliseconds = 5000;

int primaryCode(int code)
{
    return code & 0xff;
}

// One run of the operation against a fault.
struct Meeting {
    Ending ending;
    int failures = 0;
    long sleptMilliseconds = 0;
};

class StoreUnderFaults : public WorldTest, public testing::WithParamInterface<StoreOperation> {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        putSoundDatabase();
        m_before = taskRows();
        m_sequenceBefore = sequence();
        m_undisturbed = run(nullptr, 0, Failing::once).ending;
        m_after = taskRows();
        m_sequenceAfter = sequence();
    }

    // The n-th call meets the fault.
    Meeting run(const Fault* fault, int n, Failing failing)
    {
        putSoundDatabase();
        FailingVfs vfs;
        TaskEditor editor;
        const int descriptors = openDescriptors();
        const sqlite3_int64 memory = sqlite3_memory_used();
        if (fault != nullptr)
            vfs.failNth(fault->call, n, fault->code, failing);
        Meeting result;
        result.ending = endingOf(GetParam(), editor);
        vfs.failNothing();
        result.failures = vfs.failures();
        result.sleptMilliseconds = vfs.sleptMilliseconds();
        EXPECT_EQ(descriptors, openDescriptors());
        EXPECT_EQ(memory, sqlite3_memory_used());
        return result;
    }

    // How many calls there were to fail.
    int sweep(const Fault& fault, Failing failing)
    {
        for (int n = 1;; ++n) {
            const std::string how = failing == Failing::once ? ", once" : ", from then on";
            SCOPED_TRACE(fault.name + how + ", n = " + std::to_string(n));
            const Meeting met = run(&fault, n, failing);
            if (met.failures == 0) {
                expectUndisturbed(met.ending);
                return n - 1;
            }
            expectDocumented(fault, met);
            expectTableWhole(fault, met.ending);
            expectWorksNow();
            if (HasFailure())
                return n;
        }
    }

private:
    static Rows sequence() { return queryRows("select * from sqlite_sequence"); }

    void expectUndisturbed(const Ending& ending) const
    {
        EXPECT_FALSE(ending.threw) << ending;
        EXPECT_EQ(m_undisturbed.text, ending.text);
        EXPECT_EQ(m_after, taskRows());
    }

    void expectDocumented(const Fault& fault, const Meeting& met) const
    {
        const Ending& ending = met.ending;
        if (ending.threw) {
            const auto& texts = GetParam().failures;
            EXPECT_NE(texts.end(), std::find(texts.begin(), texts.end(), ending.text)) << ending;
            EXPECT_EQ(primaryCode(fault.code), ending.code) << ending;
        } else if (ending.text != m_undisturbed.text) { // reported as false
            EXPECT_TRUE(GetParam().failures.empty() || GetParam().effect == Effect::cleaning) << ending;
            EXPECT_EQ("false", ending.text);
        }
        const bool failed = ending.threw || ending.text != m_undisturbed.text;
        if (failed && primaryCode(fault.code) == SQLITE_BUSY) {
            EXPECT_GE(met.sleptMilliseconds, busyWaitMilliseconds);
        }
    }

    void expectTableWhole(const Fault& fault, const Ending& ending) const
    {
        const Rows rows = taskRows();
        const bool succeeded = !ending.threw && ending.text == m_undisturbed.text;
        if (GetParam().effect == Effect::none || GetParam().effect == Effect::oneStatement) {
            // The statement is done once its journal is removed, even if it is not known whether the removal lasts.
            const bool done = succeeded || (fault.code == SQLITE_IOERR_DIR_FSYNC && rows == m_after);
            EXPECT_EQ(done ? m_after : m_before, rows);
        } else {
            EXPECT_TRUE(isBetweenStatements(rows, m_before, m_after)) << testing::PrintToString(rows);
        }
        if (succeeded && GetParam().effect == Effect::statementThenCleaning) {
            EXPECT_TRUE(contains(rows, changedRow()));
        }
        // Ids are counted in the same transaction that adds the row.
        const bool added = !rows.empty() && !contains(m_before, rows.back());
        EXPECT_EQ(added ? m_sequenceAfter : m_sequenceBefore, sequence());
        EXPECT_EQ("ok", integrity());
    }

    // The row that the undisturbed operation added or changed.
    std::string changedRow() const
    {
        const auto isNew = [this](const std::string& row) { return !contains(m_before, row); };
        return *std::find_if(m_after.begin(), m_after.end(), isNew);
    }

    void expectWorksNow() const
    {
        TaskEditor editor;
        const Ending again = endingOf(GetParam(), editor);
        EXPECT_FALSE(again.threw) << again;
        EXPECT_TRUE(GetParam().effect != Effect::none || again.text == m_undisturbed.text) << again;
    }

    Rows m_before;
    Rows m_after;
    Rows m_sequenceBefore;
    Rows m_sequenceAfter;
    Ending m_undisturbed;
};

TEST_P(StoreUnderFaults, ReportsEachOneAndLeavesTheTableWhole)
{
    int points = 0;
    for (const Fault& fault : allFaults) {
        const int once = sweep(fault, Failing::once);
        const int fromThenOn = sweep(fault, Failing::fromThenOn);
        EXPECT_GE(once, fromThenOn > 0 ? 1 : 0) << fault.name;
        points += once + fromThenOn;
        if (HasFailure())
            return;
    }
    RecordProperty("points", points);
    EXPECT_GT(points, 0);
}

// Shows that the sweep above does meet the faults.
TEST_P(StoreUnderFaults, MakesTheCallsThatAreMadeToFail)
{
    const bool writes = GetParam().effect != Effect::none;
    const bool locks = std::string(GetParam().name) != "setLastRunTime"; // SQLite refuses its text at once
    for (const Fault* fault : {&openFault, &readFault})
        EXPECT_GT(sweep(*fault, Failing::once), 0) << fault->name;
    for (const Fault* fault : {&lockFault, &busyFault, &fileSizeFault, &accessFault})
        EXPECT_EQ(locks, sweep(*fault, Failing::once) > 0) << fault->name;
    for (const Fault* fault : {&writeFault, &fullFault, &syncFault, &removeFault})
        EXPECT_EQ(writes, sweep(*fault, Failing::once) > 0) << fault->name;
}

INSTANTIATE_TEST_SUITE_P(, StoreUnderFaults, testing::ValuesIn(storeOperations()), nameOfOperation);

// How an operation ends when every call meets the fault.
std::string failureAt(const Fault& fault, const char* operation)
{
    FailingVfs vfs;
    TaskEditor editor;
    vfs.failNth(fault.call, 1, fault.code, Failing::fromThenOn);
    return textOf(endingOf(storeOperation(operation), editor));
}

class StoreFailure : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        putSoundDatabase();
    }
};

TEST_F(StoreFailure, OfEachWriteHasItsOwnWords)
{
    EXPECT_EQ("TaskTable doesn't exist-1 (14)", failureAt(openFault, "writeDbTask")); // the cleaner's, which ran too
    EXPECT_EQ("Database: Write failed (13)", failureAt(fullFault, "writeDbTask"));
    EXPECT_EQ("Database: Write failed (14)", failureAt(openFault, "modifyDbTask"));
    EXPECT_EQ("Deletion failed (10)", failureAt(syncFault, "deleteDbTask"));
    EXPECT_EQ("Deletion failed (13)", failureAt(fullFault, "clearDatabase"));
    EXPECT_EQ("false", failureAt(fullFault, "dbMaxRecordCleaner"));
    EXPECT_EQ("false", failureAt(fullFault, "setTaskStatus"));
    EXPECT_EQ("false", failureAt(fullFault, "incrementCount"));
    EXPECT_EQ("false", failureAt(fullFault, "setResult"));
}

TEST_F(StoreFailure, OfALockComesAfterFiveSecondsOfWaiting)
{
    FailingVfs vfs;
    TaskEditor editor;
    vfs.failNth(FileCall::lock, 1, SQLITE_BUSY, Failing::fromThenOn);
    EXPECT_EQ("Database error", endingOf(storeOperation("getTaskType"), editor).text);
    EXPECT_EQ(busyWaitMilliseconds, vfs.sleptMilliseconds());
}

TEST_F(StoreFailure, OfALockDoesNotHappenIfItIsReleasedInTime)
{
    FailingVfs vfs;
    TaskEditor editor;
    vfs.failNth(FileCall::lock, 1, SQLITE_BUSY, Failing::once);
    EXPECT_EQ("3", endingOf(storeOperation("getTaskType"), editor).text);
    EXPECT_EQ(1, vfs.failures());
}

// How making an editor ended. In a new thread each time: a thread that could not make its editor must not ask again.
struct Making {
    bool made = false;
    bool same = false;
    int code = 0;
    int failures = 0;
};

Making makeEditor(FailingVfs& vfs, const Fault& fault, int n, Failing failing)
{
    Making making;
    vfs.failNth(fault.call, n, fault.code, failing);
    try {
        TaskEditor* const editor = TaskEditor::getInstance();
        making.made = true;
        making.same = editor == TaskEditor::getInstance();
    } catch (SqliteException& failure) {
        making.code = failure.getErrorCode();
        EXPECT_TRUE(letGoOfEditorLock());
    }
    vfs.failNothing();
    making.failures = vfs.failures();
    TaskEditor::ReleaseInstance();
    return making;
}

class EditorUnderFaults : public WorldTest {
protected:
    using Put = void (*)();

    // How many calls there were to fail.
    static int sweep(Put put, const Fault& fault, Failing failing)
    {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(fault.name) + ", n = " + std::to_string(n));
            put();
            const bool hadTable = tableThere();
            put();
            const int descriptors = openDescriptors();
            const sqlite3_int64 memory = sqlite3_memory_used();
            FailingVfs vfs;
            const Making making
                = std::async(std::launch::async, [&] { return makeEditor(vfs, fault, n, failing); }).get();
            EXPECT_EQ(descriptors, openDescriptors());
            EXPECT_EQ(memory, sqlite3_memory_used());
            EXPECT_EQ(making.made, making.same);
            EXPECT_EQ(making.made ? 0 : primaryCode(fault.code), making.code);
            EXPECT_TRUE(tableThere() || !(making.made || hadTable));
            EXPECT_EQ("ok", integrity());
            EXPECT_EQ("0", countNow());
            if (making.failures == 0 || HasFailure())
                return n - 1;
        }
    }

    static int sweepAll(Put put)
    {
        int points = 0;
        for (const Fault& fault : allFaults)
            for (const Failing failing : {Failing::once, Failing::fromThenOn})
                points += sweep(put, fault, failing);
        RecordProperty("points", points);
        return points;
    }

    static void putEmptyTable()
    {
        putNoDatabase();
        execSql(createTaskTable);
    }

private:
    static bool tableThere()
    {
        return queryRows("select count(*) from sqlite_master where name='TaskTable'").at(0) == "1";
    }

    // What the next editor finds: the table, and nothing in it.
    static std::string countNow()
    {
        TaskEditor editor;
        return std::to_string(editor.getNumTaskRecord());
    }
};

TEST_F(EditorUnderFaults, IsMadeWholeOrNotAtAllWithoutAFile)
{
    EXPECT_GT(sweepAll(putNoDatabase), 20);
}

TEST_F(EditorUnderFaults, IsMadeWholeOrNotAtAllWithoutTheTable)
{
    EXPECT_GT(sweepAll(putForeignDatabase), 20);
}

TEST_F(EditorUnderFaults, IsMadeWholeOrNotAtAllWithTheTable)
{
    EXPECT_GT(sweepAll(putEmptyTable), 8);
}

} // namespace
} // namespace support
