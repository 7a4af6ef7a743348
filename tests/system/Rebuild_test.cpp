#include "SystemTest.h"

#include <string>
#include <vector>

using namespace support;

namespace {

class Rebuild : public SystemTest { };
class RebuildRecorded : public RecordedSystemTest { };

const std::string scan = taskLine(3);

} // namespace

TEST_F(Rebuild, WritesOneLineForEachTask)
{
    addTask({3, anna, "0 3 * * *", 1});
    addTask({9, anna, "15 4 1 * *", 2});
    setCrontab("anna", "");
    EXPECT_EQ("", rebuild());
    EXPECT_EQ("0 3 * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 3 >> /dev/null 2>&1\n"
              "15 4 1 * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 9 >> /dev/null 2>&1\n",
        crontabOf("anna"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Rebuild, InstallsTheCrontabAsItIsForAUserWithOneOffTasksOnly)
{
    addTask({4, anna, "0 4 * * *", 3});
    setCrontab("anna", backup);
    EXPECT_EQ("", rebuild());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Rebuild, WritesALineForEachTypeExceptThatOfOneOffTasks)
{
    std::string lines;
    int id = 0;
    for (const int type : {1, 2, 3, 4, 5, 6, 0, 7, -3, 33}) {
        addTask({++id, anna, "0 3 * * *", type});
        lines += type == 3 ? "" : taskLine(id);
    }
    rebuild();
    EXPECT_EQ(lines, crontabOf("anna"));
}

TEST_F(Rebuild, WritesNoLineForATaskOfStatus6OrMoreOrWithoutAStatus)
{
    addTask({3, anna, "0 3 * * *", 1, 5});
    addTask({4, anna, "0 4 * * *", 1, 6});
    addTask({5, anna, "0 5 * * *", 1, 700});
    addTask({6, anna, "0 6 * * *", 1, -1});
    addTask({7, anna});
    execSql("update TaskTable set status=NULL where id=7");
    rebuild();
    EXPECT_EQ(taskLine(3) + taskLine(6, "0 6 * * *"), crontabOf("anna"));
}

TEST_F(Rebuild, SkipsAUserIdWithoutAnAccount)
{
    addTask({2, nobodysUid});
    addTask({3, anna});
    addTask({4, nobodysUid + 1});
    addTask({5, ben});
    addTask({6, -1});
    EXPECT_EQ("no crontab for anna\nno crontab for ben\n", rebuild());
    EXPECT_EQ(taskLine(3), crontabOf("anna"));
    EXPECT_EQ(taskLine(5), crontabOf("ben"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Rebuild, KeepsForeignLinesFirstAndUnchanged)
{
    addTask({3, anna});
    const std::string foreign = "# the jobs of the night\n\n\nMAILTO=anna\n#\n" + backup + "\n\n" + report + "\n";
    setCrontab("anna", foreign);
    rebuild();
    EXPECT_EQ(foreign + scan, crontabOf("anna"));
}

TEST_F(Rebuild, WritesRootsTasksIntoRootsCrontab)
{
    addTask({3, 0});
    setCrontab("root", report);
    rebuild();
    EXPECT_EQ(report + scan, crontabOf("root"));
}

TEST_F(Rebuild, GivesEachUserTheirOwnTasksOnly)
{
    addTask({3, anna});
    addTask({4, ben, "0 4 * * *"});
    addTask({5, anna, "0 5 * * *"});
    setCrontab("carla", report);
    rebuild();
    EXPECT_EQ(scan + taskLine(5, "0 5 * * *"), crontabOf("anna"));
    EXPECT_EQ(taskLine(4, "0 4 * * *"), crontabOf("ben"));
    EXPECT_EQ(report, crontabOf("carla"));
}

TEST_F(Rebuild, LeavesACrontabAsItWasWhenCronRefusesASchedule)
{
    addTask({3, anna, "61 3 * * *"});
    addTask({4, anna});
    addTask({5, ben});
    setCrontab("anna", backup);
    EXPECT_TRUE(contains(rebuild(), "errors in crontab file, can't install."));
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(taskLine(5), crontabOf("ben"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Rebuild, SkipsOnlyTheTaskWhoseScheduleOrTypeCannotBeRead)
{
    for (const std::string column : {"crontime", "type"}) {
        SetUp();
        for (const int id : {3, 4, 5})
            addTask({id, anna});
        makeUnreadable(column, "id=4");
        rebuild();
        EXPECT_EQ(taskLine(3) + taskLine(5), crontabOf("anna")) << column;
    }
}

TEST_F(Rebuild, InstallsTheCrontabAsItIsWhenNoTaskCanBeRead)
{
    addTask({3, anna});
    setCrontab("anna", backup);
    makeUnreadable("crontime", "id=3");
    EXPECT_EQ("", rebuild());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(RebuildRecorded, ReadsAndInstallsUserByUserInTheOrderOfTheTable)
{
    addTask({3, carla});
    addTask({4, nobodysUid});
    addTask({5, anna});
    addTask({6, carla});
    rebuild();
    EXPECT_EQ(
        (Calls{"-u carla -l", "-u carla " + crontabCopy, "-u anna -l", "-u anna " + crontabCopy}), crontabCalls());
}

TEST_F(RebuildRecorded, WritesTheScheduleAsItIsStored)
{
    for (const std::string& cronTime : std::vector<std::string>{"", " ", "  0  3 * * *  ", "@reboot", "not a schedule",
             "0 3 * * * FOO=%d %s", "0 3 * * *\n0 4 * * *", "0 3 \xc3\xa4 * *", "\t*", std::string(4000, '1')}) {
        execSql("delete from TaskTable");
        addTask({3, anna, cronTime});
        setCrontab("anna", backup);
        rebuild();
        EXPECT_EQ(backup + taskLine(3, cronTime), crontabOf("anna")) << cronTime;
    }
}

TEST_F(RebuildRecorded, WritesTheTasksInTheOrderOfTheirIds)
{
    for (const int id : {9, 2147483647, 0, -5, 12})
        addTask({id, anna});
    rebuild();
    EXPECT_EQ(taskLine(-5) + taskLine(0) + taskLine(9) + taskLine(12) + taskLine(2147483647), crontabOf("anna"));
}

TEST_F(RebuildRecorded, KeepsEveryByteOfTheCrontab)
{
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    const std::string before = bytes + "\r\n\n" + std::string(5000, 'x') + "\n" + scan + "ab\n";
    addTask({3, anna});
    setCrontab("anna", before);
    rebuild();
    EXPECT_EQ(before + scan, crontabOf("anna"));
}

TEST_F(RebuildRecorded, WritesThousandsOfLines)
{
    std::string lines;
    std::string rows;
    for (int id = 1; id <= 2000; ++id) {
        lines += taskLine(id);
        rows += (id > 1 ? "," : "") + std::string("('d','0 3 * * *',501)");
    }
    execSql("insert into TaskTable(description,crontime,userId) values" + rows);
    rebuild();
    EXPECT_EQ(lines, crontabOf("anna"));
}

TEST_F(RebuildRecorded, ReadsButDoesNotInstallForAUserWithoutCountableTasks)
{
    addTask({3, anna, "0 3 * * *", 1, 6});
    setCrontab("anna", backup);
    rebuild();
    EXPECT_EQ(Calls{"-u anna -l"}, crontabCalls());
    EXPECT_EQ(Files{"crontemp.txt"}, scratchFiles());
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(RebuildRecorded, ReadsButDoesNotInstallForAUserWhoseTasksCannotBeListed)
{
    addTask({3, anna});
    setCrontab("anna", backup);
    makeUnreadable("id", "status<=5");
    rebuild();
    EXPECT_EQ(Calls{"-u anna -l"}, crontabCalls());
    EXPECT_EQ(Files{"crontemp.txt"}, scratchFiles());
}

TEST_F(RebuildRecorded, OpensNoScratchFileForAnIdWithoutAnAccount)
{
    addTask({3, anna, "0 3 * * *", 1, 6}); // leaves her copy behind
    addTask({4, nobodysUid});
    setCrontab("anna", backup);
    rebuild();
    EXPECT_EQ(Calls{"-u anna -l"}, crontabCalls());
    EXPECT_EQ(Files{"crontemp.txt"}, scratchFiles());
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(RebuildRecorded, InstallsTheTaskLinesAfterWhatAListingPrintedBeforeItFailed)
{
    addTask({3, anna});
    setCrontab("anna", backup + report);
    onCrontabCall("[ $operation = install ] || { echo '0 1 * * * /bin/backup'; exit 1; }");
    rebuild();
    EXPECT_EQ(backup + scan, crontabOf("anna"));
}
