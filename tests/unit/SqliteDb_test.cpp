#include "SqliteDb.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include "StoreTest.h"

using namespace support;

// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): in use as a sanitizer counts; null without one
extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace {

using Lines = std::vector<std::string>;

const std::string createNumbers = "CREATE TABLE Numbers(id INTEGER PRIMARY KEY, value)";

/// The cell as an integer; the cell is released.
int integerOf(void* cell)
{
    return std::unique_ptr<valueCell>(static_cast<valueCell*>(cell))->integer;
}

/// The bytes of a blob's cell, which is released with them.
std::string bytesOf(void* cell, std::size_t size)
{
    const std::unique_ptr<valueCell> owner(static_cast<valueCell*>(cell));
    const std::string bytes(static_cast<const char*>(owner->blob), size);
    std::free(owner->blob);
    return bytes;
}

/// What is left of the rows, the columns of each with a blank between them.
Lines rowsOf(SqliteDb& db, int columns)
{
    Lines rows;
    while (db.nextRow()) {
        rows.push_back(db.getColumn(0));
        for (int column = 1; column < columns; ++column)
            rows.back() += " " + db.getColumn(column);
    }
    return rows;
}

/// A file of a test's own, and another program's connection to it.
class SqliteDbTest : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        file = testDirectory + "test.db";
        other = std::make_unique<SqliteDb>(file.c_str(), false);
    }

    /// Runs a statement that must succeed.
    void run(const std::string& sql) { ASSERT_TRUE(other->doWriteSql(sql.c_str())) << sql; }

    /// The first column of the rows of a query, by another connection than the one under test.
    Lines column(const std::string& query)
    {
        EXPECT_TRUE(other->doReadSql(query.c_str())) << query;
        return rowsOf(*other, 1);
    }

    /// How opening with three arguments fails.
    std::string failureOfMaking(const std::string& createSql)
    {
        return failureOf([&] { SqliteDb(file.c_str(), false, createSql.c_str()); });
    }

    /// The connection under test, opened when it is first used.
    SqliteDb& db()
    {
        if (m_db == nullptr)
            m_db = std::make_unique<SqliteDb>(file.c_str(), false);
        return *m_db;
    }

    std::string file;
    std::unique_ptr<SqliteDb> other;

private:
    std::unique_ptr<SqliteDb> m_db;
};

/// The one row of "select EXPRESSION", current.
std::unique_ptr<SqliteDb> rowOf(const std::string& expression)
{
    auto db = std::make_unique<SqliteDb>(":memory:", false);
    EXPECT_TRUE(db->doReadSql(("select " + expression).c_str())) << expression;
    EXPECT_TRUE(db->nextRow());
    return db;
}

int integerIn(const std::string& expression)
{
    return integerOf((*rowOf(expression))[0]);
}

std::string textIn(const std::string& expression)
{
    return rowOf(expression)->getColumn(0);
}

SqliteDataContainer textValue(std::string& text, int index)
{
    return {sqliteDataText, text.data(), static_cast<std::int32_t>(text.size()), index};
}

SqliteDataContainer blobValue(std::string& bytes, int index)
{
    return {sqliteDataBlob, bytes.data(), static_cast<std::int32_t>(bytes.size()), index};
}

/// While it lives, the effective user is not root, for whom every file can be written.
class AsAnna {
public:
    AsAnna() { EXPECT_EQ(0, seteuid(static_cast<uid_t>(anna))); }
    ~AsAnna() { EXPECT_EQ(0, seteuid(0)); }
};

// Opening.

TEST_F(SqliteDbTest, OpeningWithTwoArgumentsMakesTheFileAndNoTable)
{
    const std::string missing = testDirectory + "missing.db";
    SqliteDb db(missing.c_str(), false);
    EXPECT_EQ(0, db.lastError);
    EXPECT_EQ(0, db.lastInsertId);
    EXPECT_TRUE(std::filesystem::exists(missing));
    ASSERT_TRUE(db.doReadSql("select name from sqlite_master"));
    EXPECT_FALSE(db.nextRow());
}

TEST_F(SqliteDbTest, AFileThatCannotBeOpenedShowsInEveryStatement)
{
    SqliteDb db("/no/such/directory/test.db", false);
    EXPECT_EQ(SQLITE_CANTOPEN, db.lastError);

    db.lastError = 0;
    EXPECT_FALSE(db.doReadSql("select 1"));
    EXPECT_EQ(SQLITE_CANTOPEN, db.lastError);
    EXPECT_FALSE(db.nextRow());

    db.lastError = 0;
    EXPECT_FALSE(db.doWriteSql("create table T(x)"));
    EXPECT_EQ(SQLITE_CANTOPEN, db.lastError);

    db.lastError = 0;
    std::vector<SqliteDataContainer> none;
    EXPECT_FALSE(db.doWriteSql("create table T(x)", none));
    EXPECT_EQ(SQLITE_CANTOPEN, db.lastError);
}

TEST_F(SqliteDbTest, OpeningWithThreeArgumentsMakesTheTable)
{
    SqliteDb db(file.c_str(), false, createNumbers.c_str());
    EXPECT_EQ(Lines{createNumbers}, column("select sql from sqlite_master"));
    EXPECT_EQ(0, db.lastError);
}

TEST_F(SqliteDbTest, AnExistingTableKeepsItsRows)
{
    run("CREATE TABLE Numbers(other)");
    run("insert into Numbers values (5)");
    SqliteDb db(file.c_str(), false, createNumbers.c_str());
    EXPECT_EQ(0, db.lastError);
    EXPECT_EQ(Lines{"5"}, column("select other from Numbers"));
}

TEST_F(SqliteDbTest, AFileWithOtherTablesGetsTheTable)
{
    run("CREATE TABLE Other(x)");
    SqliteDb db(file.c_str(), false, createNumbers.c_str());
    EXPECT_EQ((Lines{"Numbers", "Other"}), column("select name from sqlite_master order by name"));
}

TEST_F(SqliteDbTest, ATableInAReadOnlyFileIsEnough)
{
    run(createNumbers);
    ASSERT_EQ(0, chmod(file.c_str(), 0444));
    const AsAnna notRoot;
    SqliteDb db(file.c_str(), false, createNumbers.c_str());
    EXPECT_TRUE(db.doReadSql("select * from Numbers"));
    EXPECT_FALSE(db.doWriteSql("insert into Numbers values (1, 1)"));
    EXPECT_EQ(SQLITE_READONLY, db.lastError);
}

TEST_F(SqliteDbTest, AReadOnlyFileWithoutTheTableIsReported)
{
    run("CREATE TABLE Other(x)");
    ASSERT_EQ(0, chmod(file.c_str(), 0444));
    const AsAnna notRoot;
    EXPECT_EQ("Database: table cannot be created (8)", failureOfMaking(createNumbers));
}

TEST_F(SqliteDbTest, AnotherProgramMayMakeTheTableFirst)
{
    SqliteWatch watch;
    watch.beforePreparing(createNumbers, [this] { run(createNumbers); });
    EXPECT_NO_THROW(SqliteDb(file.c_str(), false, createNumbers.c_str()));
    EXPECT_EQ(Lines{createNumbers}, column("select sql from sqlite_master"));
}

TEST_F(SqliteDbTest, AnotherProgramMayMakeTheTableAtTheSameMoment)
{
    SqliteWatch watch;
    watch.beforeRunning(createNumbers, [this] { run(createNumbers); });
    EXPECT_NO_THROW(SqliteDb(file.c_str(), false, createNumbers.c_str()));
    EXPECT_EQ(Lines{createNumbers}, column("select sql from sqlite_master"));
}

TEST_F(SqliteDbTest, OpeningWithThreeArgumentsThrowsIfTheFileCannotBeOpened)
{
    file = "/no/such/directory/test.db";
    EXPECT_EQ("Database: table cannot be created (14)", failureOfMaking(createNumbers));
}

TEST_F(SqliteDbTest, OpeningWithThreeArgumentsThrowsIfTheFileIsNotADatabase)
{
    writeFile(file, std::string(4096, 'x'));
    EXPECT_EQ("Database: table cannot be created (26)", failureOfMaking(createNumbers));
}

TEST_F(SqliteDbTest, OpeningWithThreeArgumentsThrowsIfTheStatementFailsAndClosesTheConnection)
{
    SqliteWatch watch;
    EXPECT_EQ("Database: table cannot be created (1)", failureOfMaking("CREATE TABLE Numbers("));
    EXPECT_EQ((Lines{"open " + file, "CREATE TABLE Numbers(", "close"}), watch.takeCalls());
}

TEST_F(SqliteDbTest, TheFlagHasNoMeaning)
{
    run(createNumbers);
    SqliteDb db(file.c_str(), true);
    EXPECT_TRUE(db.doWriteSql("insert into Numbers values (1, 2)"));
    EXPECT_EQ(Lines{"2"}, column("select value from Numbers"));
}

TEST_F(SqliteDbTest, TheFilesSettingsStayAsTheyAre)
{
    ASSERT_EQ(Lines{"wal"}, column("PRAGMA journal_mode=WAL"));
    run("PRAGMA user_version=17");
    run("PRAGMA application_id=4711");
    {
        SqliteDb db(file.c_str(), false, createNumbers.c_str());
        EXPECT_TRUE(db.doWriteSql("insert into Numbers values (1, 2)"));
    }
    EXPECT_EQ(Lines{"wal"}, column("PRAGMA journal_mode"));
    EXPECT_EQ(Lines{"17"}, column("PRAGMA user_version"));
    EXPECT_EQ(Lines{"4711"}, column("PRAGMA application_id"));
    EXPECT_EQ(Lines{createNumbers}, column("select sql from sqlite_master"));
}

TEST_F(SqliteDbTest, AConnectionIsNotInheritedByStartedPrograms)
{
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != file)
            continue;
        ++found;
        EXPECT_NE(0, fcntl(std::stoi(entry.path().filename().string()), F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(1, found);
}

TEST_F(SqliteDbTest, ReadsWordsInDoubleQuotesAsTextHoweverSqliteWasBuilt)
{
    run(createNumbers);
    SqliteWatch watch;
    watch.refuseDoubleQuotedTexts();
    EXPECT_TRUE(db().doWriteSql("insert into Numbers values (1, \"0 3 * * *\")"));
    EXPECT_TRUE(db().doWriteSql("update Numbers set value=\"5 3 * * *\""));
    EXPECT_EQ(Lines{"5 3 * * *"}, column("select value from Numbers"));
}

TEST_F(SqliteDbTest, WaitsFiveSecondsForALockedFile)
{
    ASSERT_TRUE(db().doReadSql("PRAGMA busy_timeout"));
    ASSERT_TRUE(db().nextRow());
    EXPECT_EQ("5000", db().getColumn(0));
}

TEST_F(SqliteDbTest, GetsItsTurnWhenTheLockIsReleased)
{
    run(createNumbers);
    run("begin exclusive");
    std::thread owner([this] {
        usleep(50000);
        EXPECT_TRUE(other->doWriteSql("commit"));
    });
    EXPECT_TRUE(db().doWriteSql("insert into Numbers values (1, 2)"));
    owner.join();
    EXPECT_EQ(Lines{"2"}, column("select value from Numbers"));
}

// Reading.

TEST_F(SqliteDbTest, AReadWithoutRowsSucceeds)
{
    EXPECT_TRUE(db().doReadSql("select 1 where 0"));
    EXPECT_FALSE(db().nextRow());
    EXPECT_FALSE(db().nextRow());
}

TEST_F(SqliteDbTest, StepsThroughTheRowsInOrder)
{
    ASSERT_TRUE(db().doReadSql("values (3, 'c'), (1, 'a'), (2, 'b')"));
    EXPECT_EQ((Lines{"3 c", "1 a", "2 b"}), rowsOf(db(), 2));
    EXPECT_FALSE(db().nextRow());
}

TEST_F(SqliteDbTest, NoRowIsCurrentBeforeTheFirstAndAfterTheLast)
{
    SqliteDb db(file.c_str(), false);
    const auto expectNoRow = [&db] {
        EXPECT_EQ(0, integerOf(db[0]));
        EXPECT_EQ(0, integerOf(db["value"]));
        EXPECT_EQ("", db.getColumn(0));
        EXPECT_EQ(0, db.getColumnByte(0));
        EXPECT_EQ(SQLITE_NULL, db.columnType(0));
    };
    expectNoRow(); // nothing has been read yet
    ASSERT_TRUE(db.doReadSql("select 5 as value"));
    expectNoRow();
    ASSERT_TRUE(db.nextRow());
    EXPECT_EQ("5", db.getColumn(0));
    ASSERT_FALSE(db.nextRow());
    expectNoRow();
    ASSERT_FALSE(db.nextRow());
    expectNoRow();
}

TEST_F(SqliteDbTest, ANewReadReplacesTheRowsOfTheLast)
{
    ASSERT_TRUE(db().doReadSql("values (1, 2), (3, 4)"));
    ASSERT_TRUE(db().nextRow());
    ASSERT_TRUE(db().doReadSql("select 'new' as word"));
    EXPECT_EQ("", db().getColumn(0));
    ASSERT_TRUE(db().nextRow());
    EXPECT_EQ("new", db().getColumn(0));
    EXPECT_EQ("", db().getColumn(1));
    EXPECT_FALSE(db().nextRow());
}

TEST_F(SqliteDbTest, AMissingColumnIsAnEmptyValue)
{
    const auto db = rowOf("7 as value, 8");
    for (const int column : {-1, 2, 1000, INT_MAX, INT_MIN}) {
        EXPECT_EQ(0, integerOf((*db)[column])) << column;
        EXPECT_EQ("", db->getColumn(column)) << column;
        EXPECT_EQ(0, db->getColumnByte(column)) << column;
        EXPECT_EQ(SQLITE_NULL, db->columnType(column)) << column;
    }
    EXPECT_EQ(0, integerOf((*db)["values"]));
    EXPECT_EQ(0, integerOf((*db)[""]));
}

TEST_F(SqliteDbTest, AMissingColumnsCellHoldsNoPointer)
{
    const std::unique_ptr<valueCell> cell(static_cast<valueCell*>((*rowOf("7"))[3]));
    EXPECT_EQ(nullptr, cell->blob);
}

TEST_F(SqliteDbTest, ColumnNamesIgnoreCase)
{
    const auto db = rowOf("7 as taskId, 8 as other");
    EXPECT_EQ(7, integerOf((*db)["taskId"]));
    EXPECT_EQ(7, integerOf((*db)["TASKID"]));
    EXPECT_EQ(8, integerOf((*db)["Other"]));
}

TEST_F(SqliteDbTest, ColumnNamesIgnoreCaseInAsciiOnly)
{
    const auto db = rowOf("7 as \"\u00e4\"");
    EXPECT_EQ(7, integerOf((*db)["\u00e4"]));
    EXPECT_EQ(0, integerOf((*db)["\u00c4"]));
}

TEST_F(SqliteDbTest, OfColumnsWithOneNameTheFirstCounts)
{
    EXPECT_EQ(7, integerOf((*rowOf("7 as id, 8 as ID"))["Id"]));
}

TEST_F(SqliteDbTest, AnIntegerCellHoldsTheLow32Bits)
{
    EXPECT_EQ(2147483647, integerIn("2147483647"));
    EXPECT_EQ(-2147483648, integerIn("-2147483648"));
    EXPECT_EQ(-2147483648, integerIn("2147483648"));
    EXPECT_EQ(12, integerIn("4294967308"));
    EXPECT_EQ(-1, integerIn("-4294967297"));
    EXPECT_EQ(-1, integerIn("9223372036854775807"));
}

TEST_F(SqliteDbTest, OtherValuesBecomeIntegersAsSqliteConvertsThem)
{
    EXPECT_EQ(12, integerIn("'12abc'"));
    EXPECT_EQ(-3, integerIn("' -3'"));
    EXPECT_EQ(0, integerIn("'abc'"));
    EXPECT_EQ(12, integerIn("'4294967308'"));
    EXPECT_EQ(0, integerIn("''"));
    EXPECT_EQ(2, integerIn("2.9"));
    EXPECT_EQ(-2, integerIn("-2.9"));
    EXPECT_EQ(-1, integerIn("1e300")); // the largest 64-bit integer, cut
    EXPECT_EQ(0, integerIn("NULL"));
}

TEST_F(SqliteDbTest, ABlobsCellHoldsACopyOfItsBytes)
{
    const auto db = rowOf("x'00ff6100' as bytes");
    const std::unique_ptr<valueCell> cell(static_cast<valueCell*>((*db)["bytes"]));
    *static_cast<char*>(cell->blob) = 'x';
    std::free(cell->blob);
    const std::string expected("\0\377a\0", 4);
    EXPECT_EQ(expected, bytesOf((*db)["bytes"], 4));
    EXPECT_EQ(expected, db->getColumn(0));
    EXPECT_EQ(4, db->getColumnByte(0));
}

TEST_F(SqliteDbTest, ABlobsCellOutlivesTheConnection)
{
    auto db = rowOf("x'6162'");
    void* const cell = (*db)[0];
    db.reset();
    EXPECT_EQ("ab", bytesOf(cell, 2));
}

TEST_F(SqliteDbTest, AnEmptyBlobsCellHoldsAPointerToFree)
{
    const auto db = rowOf("x''");
    const std::unique_ptr<valueCell> cell(static_cast<valueCell*>((*db)[0]));
    EXPECT_NE(nullptr, cell->blob);
    std::free(cell->blob);
    EXPECT_EQ(SQLITE_BLOB, db->columnType(0));
    EXPECT_EQ(0, db->getColumnByte(0));
    EXPECT_EQ("", db->getColumn(0));
}

TEST_F(SqliteDbTest, GivesIntegersAsDecimalDigits)
{
    EXPECT_EQ("0", textIn("0"));
    EXPECT_EQ("-5", textIn("-5"));
    EXPECT_EQ("9223372036854775807", textIn("9223372036854775807"));
    EXPECT_EQ("-9223372036854775808", textIn("-9223372036854775808"));
}

TEST_F(SqliteDbTest, GivesFloatsAsSqliteWritesThem)
{
    EXPECT_EQ("1.5", textIn("1.5"));
    EXPECT_EQ("-2.0", textIn("-2.0"));
    EXPECT_EQ("1.0e+300", textIn("1e300"));
}

TEST_F(SqliteDbTest, GivesTextsAndBlobsWholeWhateverTheirBytesAndNullAsAnEmptyText)
{
    EXPECT_EQ(std::string("a\0b", 3), textIn("cast(x'610062' as text)"));
    EXPECT_EQ(std::string("\0\0", 2), textIn("cast(x'0000' as text)"));
    EXPECT_EQ(std::string("a\0\377", 3), textIn("x'6100ff'"));
    EXPECT_EQ(std::string(100000, '*'), textIn("printf('%.*c', 100000, '*')"));
    EXPECT_EQ("", textIn("''"));
    EXPECT_EQ("", textIn("NULL"));
    EXPECT_EQ("\u00e4\n'\"", textIn("'\u00e4\n''\"'"));
}

TEST_F(SqliteDbTest, CountsTheBytesOfAColumn)
{
    const auto db = rowOf("12345, -1.5, 'a\u00e4', x'000102', NULL, cast(x'610062' as text), ''");
    const int expected[] = {5, 4, 3, 3, 0, 3, 0};
    for (int column = 0; column < 7; ++column)
        EXPECT_EQ(expected[column], db->getColumnByte(column)) << column;
}

TEST_F(SqliteDbTest, TellsTheFiveTypes)
{
    const auto db = rowOf("1, 1.0, '1', x'31', NULL");
    const int expected[] = {1, 2, 3, 4, 5};
    for (int column = 0; column < 5; ++column)
        EXPECT_EQ(expected[column], db->columnType(column)) << column;
}

TEST_F(SqliteDbTest, ColumnsOfOneRowStaySeparate)
{
    const auto db = rowOf("'ab', x'6364', 'ef'");
    EXPECT_EQ("ab", db->getColumn(0));
    EXPECT_EQ("cd", db->getColumn(1));
    EXPECT_EQ("ef", db->getColumn(2));
    EXPECT_EQ("cd", bytesOf((*db)[1], 2));
}

TEST_F(SqliteDbTest, ReadsTextsOfAUtf16File)
{
    run("PRAGMA encoding='UTF-16'");
    run(createNumbers);
    run("insert into Numbers values (1, 'a\u00e4\U0001f600')");
    ASSERT_TRUE(db().doReadSql("select value as \"\u00e4\" from Numbers"));
    ASSERT_TRUE(db().nextRow());
    EXPECT_EQ("a\u00e4\U0001f600", db().getColumn(0));
    EXPECT_EQ(7, db().getColumnByte(0));
}

TEST_F(SqliteDbTest, AStatementThatCannotBeReadIsReported)
{
    run(createNumbers);
    for (const char* sql :
        {"select * from Missing", "select missing from Numbers", "selec", "select * from Numbers where '"}) {
        db().lastError = 0;
        EXPECT_FALSE(db().doReadSql(sql)) << sql;
        EXPECT_EQ(SQLITE_ERROR, db().lastError) << sql;
        EXPECT_FALSE(db().nextRow()) << sql;
    }
}

TEST_F(SqliteDbTest, AnEmptyStatementIsReported)
{
    EXPECT_FALSE(db().doReadSql(""));
    EXPECT_EQ(SQLITE_MISUSE, db().lastError);
    EXPECT_FALSE(db().doWriteSql("-- nothing"));
    EXPECT_EQ(SQLITE_MISUSE, db().lastError);
}

TEST_F(SqliteDbTest, AFileThatIsNotADatabaseIsReportedByTheRead)
{
    writeFile(file, std::string(4096, 'x'));
    EXPECT_FALSE(db().doReadSql("select * from Numbers"));
    EXPECT_EQ(SQLITE_NOTADB, db().lastError);
}

TEST_F(SqliteDbTest, ARowThatCannotBeReadMakesTheReadFail)
{
    EXPECT_FALSE(db().doReadSql("select 1 union all select abs(-9223372036854775807 - 1)"));
    EXPECT_EQ(SQLITE_ERROR, db().lastError);
    EXPECT_FALSE(db().nextRow());
    EXPECT_EQ("", db().getColumn(0));
}

TEST_F(SqliteDbTest, AFailedReadLeavesNoRowsOfThePreviousOne)
{
    ASSERT_TRUE(db().doReadSql("values (1), (2)"));
    ASSERT_TRUE(db().nextRow());
    EXPECT_FALSE(db().doReadSql("select * from Missing"));
    EXPECT_EQ("", db().getColumn(0));
    EXPECT_FALSE(db().nextRow());
}

TEST_F(SqliteDbTest, ADamagedFileIsReportedWhicheverPageIsDamaged)
{
    run(createNumbers);
    run("with recursive n(i) as (values (1) union all select i+1 from n where i<300)"
        " insert into Numbers select i, printf('%.*c', 200, 'v') from n");
    const std::string whole = readFile(file);
    const std::size_t pages = whole.size() / 4096;
    ASSERT_GT(pages, 10U);
    for (std::size_t page = 1; page < pages; ++page) {
        std::string damaged = whole;
        std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(page * 4096), 4096, '\xff');
        writeFile(file, damaged);
        SqliteDb db(file.c_str(), false);
        EXPECT_FALSE(db.doReadSql("select value from Numbers")) << page;
        EXPECT_EQ(SQLITE_CORRUPT, db.lastError) << page;
        EXPECT_FALSE(db.nextRow()) << page;
    }
}

TEST_F(SqliteDbTest, AColumnThatVanishesBeforeTheReadRunsIsMissing)
{
    run("CREATE TABLE T(a, b, c)");
    run("insert into T values (1, 2, 3), (4, 5, 6)");
    SqliteWatch watch;
    watch.beforeRunning("select * from T", [this] { run("alter table T drop column b"); });
    ASSERT_TRUE(db().doReadSql("select * from T"));
    Lines rows;
    while (db().nextRow())
        rows.push_back(db().getColumn(0) + " " + db().getColumn(1) + " " + db().getColumn(2) + " "
            + std::to_string(integerOf(db()["b"])) + " " + std::to_string(integerOf(db()["c"])));
    EXPECT_EQ((Lines{"1 3  0 3", "4 6  0 6"}), rows);
}

TEST_F(SqliteDbTest, AColumnThatAppearsBeforeTheReadRunsIsReadToo)
{
    run("CREATE TABLE T(a, b)");
    run("insert into T values (1, 2), (4, 5)");
    SqliteWatch watch;
    watch.beforeRunning("select * from T", [this] { run("alter table T add column c default 'new'"); });
    ASSERT_TRUE(db().doReadSql("select * from T"));
    EXPECT_EQ((Lines{"1 2 new", "4 5 new"}), rowsOf(db(), 3));
}

TEST_F(SqliteDbTest, LastErrorIsThatOfTheLastFailure)
{
    EXPECT_EQ(0, db().lastError);
    EXPECT_FALSE(db().doReadSql("select * from Missing"));
    EXPECT_TRUE(db().doReadSql("select 1"));
    EXPECT_EQ(SQLITE_ERROR, db().lastError);
}

TEST_F(SqliteDbTest, AReadLeavesNoLockOnTheFile)
{
    run(createNumbers);
    run("insert into Numbers values (1, 'a'), (2, 'b')");
    ASSERT_TRUE(db().doReadSql("select value from Numbers"));
    run("PRAGMA busy_timeout=0");
    run("begin exclusive");
    run("delete from Numbers");
    run("commit");
    EXPECT_EQ((Lines{"a", "b"}), rowsOf(db(), 1));
}

TEST_F(SqliteDbTest, AFailedReadLeavesNoLockOnTheFile)
{
    run(createNumbers);
    run("insert into Numbers values (1, 0), (2, -9223372036854775807 - 1)");
    ASSERT_FALSE(db().doReadSql("select abs(value) from Numbers"));
    run("PRAGMA busy_timeout=0");
    run("begin exclusive");
}

std::size_t bytesInUse()
{
    if (__sanitizer_get_current_allocated_bytes != nullptr)
        return __sanitizer_get_current_allocated_bytes();
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST_F(SqliteDbTest, AListOfIdsTakesTensOfBytesPerId)
{
    constexpr std::size_t ids = 300000;
    SqliteDb db(":memory:", false);
    const std::size_t before = bytesInUse();
    ASSERT_TRUE(db.doReadSql("with recursive n(i) as (values (1) union all select i+1 from n where i<300000)"
                             " select i as id from n"));
    EXPECT_LT(bytesInUse() - before, 100 * ids);
    std::size_t rows = 0;
    for (; db.nextRow(); ++rows)
        ;
    EXPECT_EQ(ids, rows);
}

TEST_F(SqliteDbTest, ANewReadReleasesTheBytesOfTheLast)
{
    SqliteDb db(":memory:", false);
    const char* const megabyte = "select printf('%.*c', 1000000, 'm')";
    ASSERT_TRUE(db.doReadSql(megabyte));
    const std::size_t before = bytesInUse();
    for (int read = 0; read < 20; ++read)
        ASSERT_TRUE(db.doReadSql(megabyte));
    EXPECT_LT(bytesInUse(), before + 5000000);
}

/// A SqliteDb as other programs derive from it.
class CountedRows : public SqliteDb {
public:
    explicit CountedRows(bool& destroyed)
        : SqliteDb(":memory:", false)
        , m_destroyed(destroyed)
    {
    }
    ~CountedRows() override { m_destroyed = true; }
    bool nextRow() override { return ++asked < 3; }

    int asked = 0;

private:
    bool& m_destroyed;
};

TEST(SqliteDb, HasAVirtualDestructorAndNextRow)
{
    bool destroyed = false;
    std::unique_ptr<SqliteDb> db = std::make_unique<CountedRows>(destroyed);
    EXPECT_TRUE(db->nextRow());
    EXPECT_TRUE(db->nextRow());
    EXPECT_FALSE(db->nextRow());
    db.reset();
    EXPECT_TRUE(destroyed);
}

// Writing.

TEST_F(SqliteDbTest, AWriteIsDoneWhenItReturns)
{
    EXPECT_TRUE(db().doWriteSql(createNumbers.c_str()));
    EXPECT_TRUE(db().doWriteSql("insert into Numbers values (1, 'a'), (2, 'b')"));
    EXPECT_EQ((Lines{"a", "b"}), column("select value from Numbers"));
}

TEST_F(SqliteDbTest, AWriteThatFailsIsReportedWithItsPrimaryCode)
{
    run("CREATE TABLE T(x INTEGER PRIMARY KEY, y UNIQUE NOT NULL)");
    run("insert into T values (1, 1)");
    for (const char* sql :
        {"insert into T values (1, 2)", "insert into T values (2, 1)", "insert into T values (2, NULL)"}) {
        db().lastError = 0;
        EXPECT_FALSE(db().doWriteSql(sql)) << sql;
        EXPECT_EQ(SQLITE_CONSTRAINT, db().lastError) << sql;
    }
    EXPECT_FALSE(db().doWriteSql("insert into Missing values (1)"));
    EXPECT_EQ(SQLITE_ERROR, db().lastError);
    EXPECT_EQ(Lines{"1"}, column("select count(*) from T"));
}

TEST_F(SqliteDbTest, AWriteThatGivesRowsRunsToItsEnd)
{
    run(createNumbers);
    EXPECT_TRUE(db().doWriteSql("insert into Numbers values (1, 'a'), (2, 'b'), (3, 'c') returning id"));
    EXPECT_EQ(Lines{"3"}, column("select count(*) from Numbers"));
}

TEST_F(SqliteDbTest, KeepsTheRowIdOfTheLastInsert)
{
    run(createNumbers);
    EXPECT_EQ(0, db().lastInsertId);
    EXPECT_TRUE(db().doWriteSql("insert into Numbers values (17, 1)"));
    EXPECT_EQ(17, db().lastInsertId);
    EXPECT_TRUE(db().doWriteSql("insert into Numbers (value) values (1)"));
    EXPECT_EQ(18, db().lastInsertId);
    EXPECT_FALSE(db().doWriteSql("insert into Numbers values (17, 1)"));
    EXPECT_EQ(18, db().lastInsertId);
    EXPECT_TRUE(db().doWriteSql("update Numbers set value=2 where id=17"));
    EXPECT_TRUE(db().doWriteSql("delete from Numbers where id=17"));
    EXPECT_EQ(18, db().lastInsertId);
}

TEST_F(SqliteDbTest, CutsTheRowIdTo32Bits)
{
    run(createNumbers);
    EXPECT_TRUE(db().doWriteSql("insert into Numbers values (4294967308, 1)"));
    EXPECT_EQ(12, db().lastInsertId);
}

TEST_F(SqliteDbTest, BindsEachValueToThePlaceholderThatItsIndexNames)
{
    run("CREATE TABLE T(a, b)");
    std::string first = "first";
    std::string second = "second";
    std::vector<SqliteDataContainer> values = {blobValue(second, 2), textValue(first, 1)};
    EXPECT_TRUE(db().doWriteSql("insert into T values (?1, ?2)", values));
    EXPECT_EQ(Lines{"first text second blob"}, column("select a||' '||typeof(a)||' '||b||' '||typeof(b) from T"));
}

TEST_F(SqliteDbTest, BindsExactlyTheBytesOfAValue)
{
    run("CREATE TABLE T(a, b)");
    std::string text("it's \"a\"\n\0b and more", 20);
    std::string blob("\0\1\377\0", 4);
    std::vector<SqliteDataContainer> values = {textValue(text, 1), blobValue(blob, 2)};
    values[0].length = 11;
    EXPECT_TRUE(db().doWriteSql("insert into T values (?, ?)", values));
    EXPECT_EQ(Lines{"69742773202261220A0062 0001FF00"}, column("select hex(a)||' '||hex(b) from T"));
}

TEST_F(SqliteDbTest, AnEmptyValueIsNotNull)
{
    run("CREATE TABLE T(a, b)");
    std::vector<SqliteDataContainer> values = {{sqliteDataText, nullptr, 0, 1}, {sqliteDataBlob, nullptr, 0, 2}};
    EXPECT_TRUE(db().doWriteSql("insert into T values (?1, ?2)", values));
    EXPECT_EQ(
        Lines{"text 0 blob 0"}, column("select typeof(a)||' '||length(a)||' '||typeof(b)||' '||length(b) from T"));
}

TEST_F(SqliteDbTest, APlaceholderWithoutAValueIsNull)
{
    run("CREATE TABLE T(a, b)");
    std::string text = "text";
    std::vector<SqliteDataContainer> values = {textValue(text, 2)};
    EXPECT_TRUE(db().doWriteSql("insert into T values (?1, ?2)", values));
    EXPECT_EQ(Lines{"null text"}, column("select typeof(a)||' '||b from T"));
}

TEST_F(SqliteDbTest, AValueThatCannotBeBoundWritesNothing)
{
    run("CREATE TABLE T(a)");
    std::string text = "text";
    const auto codeOf = [&](const SqliteDataContainer& value) {
        std::vector<SqliteDataContainer> values = {value, textValue(text, 1)};
        db().lastError = 0;
        EXPECT_FALSE(db().doWriteSql("insert into T values (?)", values));
        return db().lastError;
    };
    EXPECT_EQ(SQLITE_RANGE, codeOf(textValue(text, 0)));
    EXPECT_EQ(SQLITE_RANGE, codeOf(textValue(text, 2)));
    EXPECT_EQ(SQLITE_RANGE, codeOf(blobValue(text, 2)));
    EXPECT_EQ(SQLITE_MISUSE, codeOf({static_cast<SqliteDataType>(2), text.data(), 4, 1}));
    EXPECT_EQ(SQLITE_TOOBIG, codeOf({sqliteDataText, text.data(), -1, 1}));
    EXPECT_EQ(SQLITE_TOOBIG, codeOf({sqliteDataBlob, text.data(), -1, 1}));
    EXPECT_EQ(Lines{"0"}, column("select count(*) from T"));
}

TEST(SqliteDataContainer, HoldsTypeDataLengthAndIndexInThisOrder)
{
    EXPECT_EQ(0U, offsetof(SqliteDataContainer, type));
    EXPECT_EQ(sizeof(void*), offsetof(SqliteDataContainer, data));
    EXPECT_EQ(2 * sizeof(void*), offsetof(SqliteDataContainer, length));
    EXPECT_EQ(2 * sizeof(void*) + 4, offsetof(SqliteDataContainer, index));
    EXPECT_EQ(0, sqliteDataText);
    EXPECT_EQ(1, sqliteDataBlob);
    EXPECT_EQ(4U, sizeof(SqliteDataType));
}

TEST_F(SqliteDbTest, TheConnectionIsClosedWithTheObject)
{
    SqliteWatch watch;
    {
        SqliteDb db(file.c_str(), false);
        ASSERT_TRUE(db.doReadSql("values (1), (2)"));
        ASSERT_TRUE(db.nextRow());
        EXPECT_EQ((Lines{"open " + file, "values (1), (2)"}), watch.takeCalls());
    }
    EXPECT_EQ(Lines{"close"}, watch.takeCalls());
}

// Want of memory.

sqlite3_mem_methods gMemory;
long gUntilFailure;
bool gFailsForGood;

bool failsNow()
{
    if (gUntilFailure > 0)
        --gUntilFailure;
    else if (gUntilFailure == 0 || gFailsForGood) {
        gUntilFailure = -1;
        return true;
    }
    return false;
}

/// While it lives, the allocation after `successes` successful ones fails in SQLite; `forGood`, all later ones fail
/// too. No connection may be open when it begins and when it ends.
class SqliteMemory {
public:
    SqliteMemory()
    {
        sqlite3_shutdown();
        sqlite3_config(SQLITE_CONFIG_GETMALLOC, &gMemory);
        sqlite3_mem_methods failing = gMemory;
        failing.xMalloc = [](int size) { return failsNow() ? nullptr : gMemory.xMalloc(size); };
        failing.xRealloc = [](void* bytes, int size) { return failsNow() ? nullptr : gMemory.xRealloc(bytes, size); };
        never();
        sqlite3_config(SQLITE_CONFIG_MALLOC, &failing);
        sqlite3_initialize();
    }
    ~SqliteMemory()
    {
        sqlite3_shutdown();
        sqlite3_config(SQLITE_CONFIG_MALLOC, &gMemory);
    }
    void failAfter(long successes, bool forGood)
    {
        gUntilFailure = successes;
        gFailsForGood = forGood;
    }
    void never() { failAfter(LONG_MAX, false); }
    bool failed() const { return gUntilFailure == -1; }
};

TEST_F(SqliteDbTest, AReadFailsOrIsWholeWhicheverAllocationFails)
{
    run("PRAGMA encoding='UTF-16'"); // so that each text must be converted
    run("CREATE TABLE T(text, blob, number)");
    run("insert into T select printf('%.*c', 3000, 't'), zeroblob(5000), 1.5 from (values (1), (2), (3))");
    const Lines expected(3, std::string(3000, 't') + std::string(5000, '\0') + "1.5");
    other.reset();

    int failures = 0;
    SqliteMemory memory;
    for (const bool forGood : {false, true}) {
        bool failed = true;
        for (long successes = 0; failed; ++successes) {
            memory.failAfter(successes, forGood);
            SqliteDb db(file.c_str(), false);
            const bool read = db.doReadSql("select text, blob, number from T");
            failed = memory.failed();
            memory.never();
            Lines rows;
            while (db.nextRow())
                rows.push_back(db.getColumn(0) + db.getColumn(1) + db.getColumn(2));
            EXPECT_EQ(read ? expected : Lines(), rows) << successes;
            EXPECT_EQ(read ? 0 : SQLITE_NOMEM, db.lastError) << successes;
            failures += read ? 0 : 1;
        }
    }
    EXPECT_GT(failures, 20);
}

TEST_F(SqliteDbTest, AWriteFailsOrIsDoneWhicheverAllocationFails)
{
    run("CREATE TABLE T(text)");
    other.reset();
    std::string text(3000, 't');

    int failures = 0;
    int writes = 0;
    {
        SqliteMemory memory;
        bool failed = true;
        for (long successes = 0; failed; ++successes) {
            memory.failAfter(successes, true);
            SqliteDb db(file.c_str(), false);
            std::vector<SqliteDataContainer> values = {textValue(text, 1)};
            const bool written = db.doWriteSql("insert into T values (?)", values);
            failed = memory.failed();
            memory.never();
            EXPECT_EQ(written ? 0 : SQLITE_NOMEM, db.lastError) << successes;
            ++(written ? writes : failures);
        }
    }
    EXPECT_GT(failures, 20);
    other = std::make_unique<SqliteDb>(file.c_str(), false);
    EXPECT_EQ(Lines{std::to_string(writes)}, column("select count(*) from T where length(text)=3000"));
}

// Set up for one thread, once for a whole process.

class SetUpForOneThread : public SqliteDbTest {
protected:
    void setUpOnce()
    {
        other.reset();
        sqlite3_shutdown(); // as if nothing had been opened yet
        SqliteDb::setUpForOneThread();
    }

    static int codeOfOpening(const std::string& path)
    {
        SqliteDb db(path.c_str(), false);
        db.doReadSql("select count(*) from sqlite_master");
        return db.lastError;
    }

    /// Ends the process.
    static void succeedIf(bool good) { std::_Exit(good ? 0 : 1); }
};

TEST_F(SetUpForOneThread, FollowsALinkThatHasReplacedTheFile)
{
    const auto inItsProcess = [this] {
        setUpOnce();
        const int first = codeOfOpening(file);
        std::filesystem::rename(file, testDirectory + "more.db");
        std::filesystem::create_symlink(testDirectory + "more.db", file);
        succeedIf(first == SQLITE_OK && codeOfOpening(file) == SQLITE_OK);
    };
    EXPECT_EXIT(inItsProcess(), testing::ExitedWithCode(0), "");
}

TEST_F(SetUpForOneThread, ChangesNothingOnceThereHasBeenAConnection)
{
    const std::string before = sqlite3_vfs_find(nullptr)->zName;
    const int threading = sqlite3_threadsafe();
    SqliteDb::setUpForOneThread();
    EXPECT_EQ(before, sqlite3_vfs_find(nullptr)->zName);
    EXPECT_EQ(threading, sqlite3_threadsafe());
    EXPECT_TRUE(other->doReadSql("select 1"));
}

TEST(SqliteDbResultText, IsSQLitesOwn)
{
    EXPECT_STREQ("attempt to write a readonly database", SqliteDb::resultText(8));
    EXPECT_STREQ("file is not a database", SqliteDb::resultText(26));
    EXPECT_STREQ("unknown error", SqliteDb::resultText(401));
}

} // namespace
