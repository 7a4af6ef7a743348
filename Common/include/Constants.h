#pragma once

#include <string>

/// The task database, shared with the product's other programs.
const std::string databaseName = "/usr/local/Quarno/Kestrelcore/var/OrvMacDatabase.db";

/// Directory of the scratch copies of crontabs; file names are appended directly. The installation creates it.
const std::string tempPath = "/usr/local/Quarno/Kestrelcore/var/tmp/";

/// Directory of the task manager; its name, "TessaraTaskManager", is appended directly.
const std::string tmanagerPath = "/usr/local/Quarno/Kestrelcore/";

/// Appended directly to a shell command to discard its output.
const std::string errorRedirection = " >> /dev/null 2>&1";

/// The statement that creates TaskTable. Do not reorder the columns: tasks are read by column position.
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
