#include "Constants.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "SqliteDb.h"

namespace {

using Lines = std::vector<std::string>;

TEST(Constants, TheDatabaseIsInTheProductsVarDirectory)
{
    EXPECT_EQ("/usr/local/Quarno/Kestrelcore/var/OrvMacDatabase.db", databaseName);
}

TEST(Constants, ScratchFileNamesAreAppendedToTheScratchDirectory)
{
    EXPECT_EQ("/usr/local/Quarno/Kestrelcore/var/tmp/", tempPath);
    EXPECT_EQ("/usr/local/Quarno/Kestrelcore/var/tmp/crontemp.txt", tempPath + "crontemp.txt");
}

TEST(Constants, TheTaskManagersNameIsAppendedToItsDirectory)
{
    EXPECT_EQ("/usr/local/Quarno/Kestrelcore/", tmanagerPath);
    EXPECT_EQ("/usr/local/Quarno/Kestrelcore/TessaraTaskManager", tmanagerPath + "TessaraTaskManager");
}

TEST(Constants, TheRedirectionBeginsWithABlank)
{
    EXPECT_EQ(" >> /dev/null 2>&1", errorRedirection);
}

TEST(Constants, TheTableIsMadeByExactlyThisStatement)
{
    EXPECT_EQ("CREATE TABLE TaskTable(id INTEGER PRIMARY KEY AUTOINCREMENT,description VARCHAR(255) NOT NULL,"
              "type INTEGER NOT NULL DEFAULT 1,crontime VARCHAR(255) NOT NULL,parameter BLOB,result BLOB,created TEXT,"
              "lastRun TEXT,status INTEGER DEFAULT 1,count INTEGER NOT NULL DEFAULT 0,"
              "userId INTEGER NOT NULL DEFAULT 0,recType INTEGER NOT NULL DEFAULT 0)",
        createTableString);
}

TEST(Constants, TheStatementMakesTheTwelveColumnsInTheirOrder)
{
    SqliteDb db(":memory:", false, createTableString.c_str());
    ASSERT_TRUE(
        db.doReadSql("select cid||' '||name||' '||type||' '||\"notnull\"||' '||ifnull(dflt_value, 'none')||' '||pk"
                     " from pragma_table_info('TaskTable')"));
    Lines columns;
    while (db.nextRow())
        columns.push_back(db.getColumn(0));
    EXPECT_EQ((Lines{"0 id INTEGER 0 none 1", "1 description VARCHAR(255) 1 none 0", "2 type INTEGER 1 1 0",
                  "3 crontime VARCHAR(255) 1 none 0", "4 parameter BLOB 0 none 0", "5 result BLOB 0 none 0",
                  "6 created TEXT 0 none 0", "7 lastRun TEXT 0 none 0", "8 status INTEGER 0 1 0",
                  "9 count INTEGER 1 0 0", "10 userId INTEGER 1 0 0", "11 recType INTEGER 1 0 0"}),
        columns);
}

} // namespace
