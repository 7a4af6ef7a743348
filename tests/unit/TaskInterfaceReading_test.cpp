#include <climits>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "StoreTest.h"
#include <CoreFoundation/CoreFoundation.h>

using namespace support;

namespace {

class TaskReading : public StoreTest {
protected:
    int addTaskWith(const std::string& column, const std::string& xmlElement)
    {
        return addRow(column + "=" + blobLiteral(xmlDocument(xmlElement)));
    }
};

TEST_F(TaskReading, ReadsAWholeTask)
{
    const int id = addRow("description='Nightly scan' || char(10), type=4, crontime='0 3 * * 1-5',"
                          "created='5,30,8,16,10,126,1,319,0,', lastRun='6,30,8,16,10,126,1,319,0,', status=2,"
                          "count=17, userId=501, recType=1");
    const orv::OwnedTask task = readTask(id);
    EXPECT_EQ(id, task->id);
    EXPECT_EQ("Nightly scan\n", task->description);
    EXPECT_EQ(taskTypeNxcScan, task->type);
    EXPECT_EQ("0 3 * * 1-5", task->cronTime);
    EXPECT_EQ(nullptr, task->parameter);
    EXPECT_EQ(nullptr, task->result);
    EXPECT_EQ(1794817805, task->created);
    EXPECT_EQ(1794817806, task->lastRun);
    EXPECT_EQ(2, task->status);
    EXPECT_EQ(17, task->count);
    EXPECT_EQ(anna, task->userId);
    EXPECT_EQ(1, task->recType);
}

TEST_F(TaskReading, ReadsAWholeTaskForAnOwner)
{
    const int id = addRow("description='Nightly scan', userId=501");
    const orv::OwnedTask task = store->task(id);
    EXPECT_EQ(id, task->id);
    EXPECT_EQ("Nightly scan", task->description);
}

TEST_F(TaskReading, ReadingAnUnknownTaskForAnOwnerThrowsWhatReadingItThrows)
{
    EXPECT_EQ("Database: taskId not found (0)", failureOf([this] { store->task(4); }));
}

TEST_F(TaskReading, ReadsTheTaskThatIsAskedFor)
{
    addRow("description='first', userId=501");
    addRow("description='second', userId=502");
    EXPECT_EQ("first", readTask(1)->description);
    EXPECT_EQ("second", readTask(2)->description);
}

TEST_F(TaskReading, NoDefaultOfANewTaskRemainsInOneThatIsRead)
{
    const int id = addRow("description='', crontime='', status=NULL, created='', lastRun=''");
    const orv::OwnedTask task = readTask(id);
    EXPECT_EQ("", task->description);
    EXPECT_EQ("", task->cronTime);
    EXPECT_EQ(0, task->status);
    EXPECT_EQ(0, task->userId);
}

TEST_F(TaskReading, AFailedReadLeavesThePointerUnchanged)
{
    TaskInfo untouched(taskTypeScan);
    TaskInfo* task = &untouched;
    EXPECT_EQ("Database: taskId not found (0)", failureOf([&] { store->getTaskInfoObject(7, &task); }));
    execSql("drop table TaskTable");
    EXPECT_EQ("Error in querying table (1)", failureOf([&] { store->getTaskInfoObject(1, &task); }));
    EXPECT_EQ(&untouched, task);
}

TEST_F(TaskReading, ATypeWithoutANameIsKept)
{
    for (const int type : {0, 7, -3, INT_MAX, INT_MIN}) {
        const int id = addRow("type=" + std::to_string(type));
        EXPECT_EQ(type, readTask(id)->type);
        EXPECT_EQ(type, store->getTaskType(id));
    }
}

TEST_F(TaskReading, TheRecordFlagIsSetByTheNumberOneOnly)
{
    const std::pair<const char*, int> flags[]
        = {{"1", 1}, {"0", 0}, {"2", 0}, {"-1", 0}, {"257", 0}, {"4294967297", 1}, {"'x'", 0}};
    for (const auto& [stored, read] : flags)
        EXPECT_EQ(read, readTask(addRow(std::string("recType=") + stored))->recType) << stored;
}

TEST_F(TaskReading, NumbersAreReadFromTheTextOfTheirColumn)
{
    const int id = addRow("type='4x', status=' 12 and more', count=3.9, userId='none'");
    const orv::OwnedTask task = readTask(id);
    EXPECT_EQ(4, task->type);
    EXPECT_EQ(12, task->status);
    EXPECT_EQ(3, task->count);
    EXPECT_EQ(0, task->userId);
}

TEST_F(TaskReading, NumbersBeyondTheRangeOfIntKeepTheirLow32Bits)
{
    const int id = addRow("type=4294967298, status=-4294967298, count=2147483648, userId=-2147483648");
    const orv::OwnedTask task = readTask(id);
    EXPECT_EQ(2, task->type);
    EXPECT_EQ(-2, task->status);
    EXPECT_EQ(INT_MIN, task->count);
    EXPECT_EQ(INT_MIN, task->userId);
}

TEST_F(TaskReading, ATaskHasTheUserThatTheListOfUsersNames)
{
    const int id = addRow("userId=4294967294");
    const TaskInterface::IdList users = store->userIds();
    ASSERT_EQ(1, users.count);
    EXPECT_EQ(-2, users.ids[0]);
    EXPECT_EQ(-2, readTask(id)->userId);
}

TEST_F(TaskReading, TextsAreReadWholeWhateverTheirBytes)
{
    const int id = addRow("description=cast(x'610062' as text), crontime='0 3 * * *' || char(10) || '\u00e4'");
    const orv::OwnedTask task = readTask(id);
    EXPECT_EQ(std::string("a\0b", 3), task->description);
    EXPECT_EQ("0 3 * * *\n\u00e4", task->cronTime);
    execSql("update TaskTable set crontime=cast(x'350033' as text)");
    EXPECT_EQ(std::string("5\0003", 3), readTask(id)->cronTime);
}

TEST_F(TaskReading, MissingTimeStampsAreTheLastDayOf1899)
{
    const orv::OwnedTask task = readTask(addRow());
    EXPECT_EQ(-2209075200, task->created);
    EXPECT_EQ(-2209075200, task->lastRun);
}

TEST_F(TaskReading, UnreadableTimeStampsAreNoError)
{
    const orv::OwnedTask task = readTask(addRow("created='yesterday', lastRun='0,0,0,1,2147483647,2147483647,0,0,0,'"));
    EXPECT_EQ(-2209075200, task->created);
    EXPECT_EQ(-1, task->lastRun);
}

// Property lists.

TEST_F(TaskReading, ReadsTheParameterAsAPropertyListOfTheCallers)
{
    const int id = addTaskWith("parameter",
        "<dict>\n\t<key>Paths</key>\n\t<array>\n\t\t<string>/Users</string>\n\t</array>\n"
        "\t<key>Depth</key>\n\t<integer>3</integer>\n</dict>");
    const orv::OwnedTask task = readTask(id);
    ASSERT_NE(nullptr, task->parameter);
    EXPECT_EQ(1, CFGetRetainCount(task->parameter));
    EXPECT_EQ(xmlDocument("<dict>\n\t<key>Depth</key>\n\t<integer>3</integer>\n\t<key>Paths</key>\n\t<array>\n\t\t"
                          "<string>/Users</string>\n\t</array>\n</dict>"),
        xmlOf(task->parameter));
    EXPECT_EQ(nullptr, task->result);
}

TEST_F(TaskReading, TheParametersContainersCanBeChangedAtEveryDepth)
{
    const int id = addTaskWith("parameter", "<dict>\n\t<key>Paths</key>\n\t<array>\n\t\t<dict/>\n\t</array>\n</dict>");
    const orv::OwnedTask task = readTask(id);
    const auto dictionary = static_cast<CFMutableDictionaryRef>(const_cast<void*>(task->parameter));
    const auto paths
        = static_cast<CFMutableArrayRef>(const_cast<void*>(CFDictionaryGetValue(dictionary, CFSTR("Paths"))));
    const auto inner = static_cast<CFMutableDictionaryRef>(const_cast<void*>(CFArrayGetValueAtIndex(paths, 0)));
    CFDictionarySetValue(inner, CFSTR("Path"), CFSTR("/Users"));
    CFArrayAppendValue(paths, kCFBooleanTrue);
    CFDictionarySetValue(dictionary, CFSTR("More"), kCFBooleanFalse);
    EXPECT_EQ(
        xmlDocument("<dict>\n\t<key>More</key>\n\t<false/>\n\t<key>Paths</key>\n\t<array>\n\t\t<dict>\n\t\t\t"
                    "<key>Path</key>\n\t\t\t<string>/Users</string>\n\t\t</dict>\n\t\t<true/>\n\t</array>\n</dict>"),
        xmlOf(dictionary));
}

TEST_F(TaskReading, TheParameterCanBeAnyPropertyList)
{
    for (const char* element : {"<string>text</string>", "<integer>-5</integer>", "<true/>", "<array/>", "<dict/>"})
        EXPECT_EQ(xmlDocument(element), xmlOf(readTask(addTaskWith("parameter", element))->parameter)) << element;
}

TEST_F(TaskReading, ReadsTheResultAsAMutableDictionaryOfTheCallers)
{
    const int id = addTaskWith("result", "<dict>\n\t<key>Files</key>\n\t<integer>12</integer>\n</dict>");
    const orv::OwnedTask task = readTask(id);
    ASSERT_NE(nullptr, task->result);
    EXPECT_EQ(1, CFGetRetainCount(task->result));
    CFDictionarySetValue(task->result, CFSTR("Threats"), kCFBooleanFalse);
    EXPECT_EQ(
        xmlDocument("<dict>\n\t<key>Files</key>\n\t<integer>12</integer>\n\t<key>Threats</key>\n\t<false/>\n</dict>"),
        xmlOf(task->result));
    EXPECT_EQ(nullptr, task->parameter);
}

TEST_F(TaskReading, AnEmptyResultIsAnEmptyDictionaryThatCanBeChanged)
{
    const orv::OwnedTask task = readTask(addTaskWith("result", "<dict/>"));
    ASSERT_NE(nullptr, task->result);
    EXPECT_EQ(0, CFDictionaryGetCount(task->result));
    CFDictionarySetValue(task->result, CFSTR("Key"), kCFBooleanTrue);
    EXPECT_EQ(1, CFDictionaryGetCount(task->result));
}

TEST_F(TaskReading, AResultThatIsNotADictionaryIsNull)
{
    for (const char* element :
        {"<array/>", "<string>text</string>", "<integer>1</integer>", "<true/>", "<data>\n\tYQ==\n\t</data>"})
        EXPECT_EQ(nullptr, readTask(addTaskWith("result", element))->result) << element;
}

TEST_F(TaskReading, ABlobCutAtAnyLengthIsNoErrorAndTheRestOfTheTaskIsRead)
{
    const std::string whole = xmlDocument("<dict>\n\t<key>Key</key>\n\t<string>value</string>\n</dict>");
    const std::size_t end = whole.find("</dict>");
    const int id = addRow("userId=501, recType=1");
    for (std::size_t length = 0; length < end; ++length) {
        const std::string blob = blobLiteral(whole.substr(0, length));
        execSql("update TaskTable set parameter=" + blob + ", result=" + blob);
        const orv::OwnedTask task = readTask(id);
        EXPECT_EQ(nullptr, task->parameter) << length;
        EXPECT_EQ(nullptr, task->result) << length;
        EXPECT_EQ(anna, task->userId);
        EXPECT_EQ(1, task->recType);
    }
}

TEST_F(TaskReading, ValuesOfOtherKindsAreReadAsNull)
{
    for (const char* value : {"NULL", "x''", "''", "'{'", "'two words'", "x'00ff'"}) {
        const orv::OwnedTask task = readTask(addRow(std::string("parameter=") + value + ", result=" + value));
        EXPECT_EQ(nullptr, task->parameter) << value;
        EXPECT_EQ(nullptr, task->result) << value;
    }
    for (const char* value : {"5", "-1.5", "'text'"}) // strings, where lists of an older format are read, too
        EXPECT_EQ(nullptr, readTask(addRow(std::string("result=") + value))->result) << value;
}

TEST_F(TaskReading, APropertyListThatWasStoredAsTextIsReadToo)
{
    const std::string text = "'" + xmlDocument("<dict/>") + "'";
    const orv::OwnedTask task = readTask(addRow("parameter=" + text + ", result=" + text));
    EXPECT_EQ(xmlDocument("<dict/>"), xmlOf(task->parameter));
    EXPECT_EQ(xmlDocument("<dict/>"), xmlOf(task->result));
}

TEST_F(TaskReading, ReadsBinaryPropertyLists)
{
    const std::string binary("bplist00\xd1\x01\x02Sone\x10\x01\x08\x0b\x0f"
                             "\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x11",
        52);
    const orv::OwnedTask task
        = readTask(addRow("parameter=" + blobLiteral(binary) + ", result=" + blobLiteral(binary)));
    const std::string expected = xmlDocument("<dict>\n\t<key>one</key>\n\t<integer>1</integer>\n</dict>");
    EXPECT_EQ(expected, xmlOf(task->parameter));
    EXPECT_EQ(expected, xmlOf(task->result));
}

// Single values.

TEST_F(TaskReading, ReadsAnyColumnAsText)
{
    const int id = addRow("crontime='0 3 * * *', userId=501, parameter=x'610062'");
    EXPECT_EQ("0 3 * * *", store->getTaskParameter(id, "crontime"));
    EXPECT_EQ("0 3 * * *", store->getTaskParameter(id, "cronTime"));
    EXPECT_EQ("501", store->getTaskParameter(id, "userId"));
    EXPECT_EQ("task", store->getTaskParameter(id, "description"));
    EXPECT_EQ(std::string("a\0b", 3), store->getTaskParameter(id, "parameter"));
    EXPECT_EQ("", store->getTaskParameter(id, "created"));
}

TEST_F(TaskReading, AMissingColumnIsReportedWithSqlitesCode)
{
    const int id = addRow();
    EXPECT_EQ("Error in the parameter (1)", failureOf([&] { store->getTaskParameter(id, "cron time"); }));
    EXPECT_EQ("Error in the parameter (1)", failureOf([&] { store->getTaskParameter(id, "'open"); }));
}

TEST_F(TaskReading, FindsATaskByItsWholeName)
{
    addRow("description='Nightly'");
    addRow("description='Nightly scan'");
    addRow("description='nightly scan'");
    EXPECT_EQ(2, store->getTaskIdByName("Nightly scan"));
    EXPECT_EQ(3, store->getTaskIdByName("nightly scan"));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskIdByName("Nightly "); }));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskIdByName(""); }));
}

TEST_F(TaskReading, OfTasksWithOneNameTheFirstIsFound)
{
    addRow("id=9, description='twice'");
    addRow("id=5, description='twice'");
    EXPECT_EQ(5, store->getTaskIdByName("twice"));
}

TEST_F(TaskReading, AnApostropheInANameBreaksTheStatement)
{
    addRow("description='it''s'");
    EXPECT_EQ("Error in taskName (1)", failureOf([this] { store->getTaskIdByName("it's"); }));
}

TEST_F(TaskReading, AnyOtherCharacterInANameIsTakenLiterally)
{
    const std::string name = "a\n\"b\"; -- %d \\ \u00e4";
    const int id = addRow("description='" + name + "'");
    EXPECT_EQ(id, store->getTaskIdByName(name));
}

TEST_F(TaskReading, ReadsTypeAndStatus)
{
    const int id = addRow("type=6, status=-3");
    addRow("type=2, status=9");
    EXPECT_EQ(6, store->getTaskType(id));
    EXPECT_EQ(-3, store->getTaskStatus(id));
    EXPECT_EQ(0, store->getTaskStatus(addRow("status=NULL")));
}

TEST_F(TaskReading, NumbersThatWereStoredAsBlobsAreReadFromTheirText)
{
    const int id = addRow("type=x'36', status=x'2d33', userId=x'353031'");
    EXPECT_EQ(6, store->getTaskType(id));
    EXPECT_EQ(-3, store->getTaskStatus(id));
    EXPECT_EQ(std::vector<int>{501}, takeArray(store->getNumUserArray(), 1));
    EXPECT_EQ(taskTypeQuickOds, readTask(id)->type);
}

TEST_F(TaskReading, TypeStatusAndIdAreCutTo32Bits)
{
    const int id = addRow("type=4294967298, status=-4294967297");
    EXPECT_EQ(2, store->getTaskType(id));
    EXPECT_EQ(-1, store->getTaskStatus(id));
    addRow("id=4294967308, description='beyond'");
    EXPECT_EQ(12, store->getTaskIdByName("beyond"));
}

TEST_F(TaskReading, ANegativeIdMatchesOnlyItself)
{
    addRow();
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskType(-1); }));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskStatus(INT_MIN); }));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskParameter(-1, "id"); }));
    EXPECT_EQ("Database: taskId not found (0)", failureOf([this] { readTask(-1); }));
    addRow("id=-1, type=5");
    EXPECT_EQ(5, store->getTaskType(-1));
    EXPECT_EQ(-1, readTask(-1)->id);
}

} // namespace
