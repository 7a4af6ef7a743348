#include "Constants.h"

#include <gtest/gtest.h>

namespace {

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

} // namespace
