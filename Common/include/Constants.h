#pragma once

#include <string>

/// The task database, shared with the product's other programs.
const std::string databaseName = "/usr/local/Quarno/Kestrelcore/var/OrvMacDatabase.db";

/// Directory of the scratch copies of crontabs; file names are appended directly. Installation makes it, no program
/// does.
const std::string tempPath = "/usr/local/Quarno/Kestrelcore/var/tmp/";

/// Directory of the task manager's executable; its name is appended directly.
const std::string tmanagerPath = "/usr/local/Quarno/Kestrelcore/";

/// Appended to a shell command, without a separator, to discard what it prints.
const std::string errorRedirection = " >> /dev/null 2>&1";

/// The statement that makes TaskTable. Tasks are read by column position, so the order of the columns is a contract
/// too.
const std::string createTableString = "CREATE TABLE TaskTable("
                                      "id INTEGER PRIMARY KEY AUTOINCREMENT,"
                                      "description VARCHAR(255) NOT NULL,"
                                      "type INTEGER NOT NULL DEFAULT 1,"
                                      "crontime VARCHAR(255) NOT NULL,"
                                      "parameter BLOB,"
                                      "result BLOB,"
                                      "created TEXT,"
                                      "lastRun TEXT,"
                                      "status INTEGER DEFAULT 1,"
                                      "count INTEGER NOT NULL DEFAULT 0,"
                                      "userId INTEGER NOT NULL DEFAULT 0,"
                                      "recType INTEGER NOT NULL DEFAULT 0)";
