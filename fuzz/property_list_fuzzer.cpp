// Stores any bytes as a task's property lists. They must be read as nothing or as a list, and a list must not change
// when it is written and read again.
//
// Input: the bytes of both columns.
#include "CfRef.h"
#include "Expect.h"
#include "FuzzStore.h"
#include "PrivateWorld.h"
#include "TaskEditor.h"
#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    support::enterPrivateWorld();
    support::resetWorld();
    TaskEditor::getInstance();
    run(prepared("insert into TaskTable(id, description, crontime) values(1, 'lists', '* * * * *')"));
    return 0;
}

namespace {

void store(const std::uint8_t* data, std::size_t size)
{
    const Statement update = prepared("update TaskTable set parameter=?1, result=?1");
    sqlite3_bind_blob(
        update.get(), 1, size == 0 ? "" : static_cast<const void*>(data), static_cast<int>(size), SQLITE_STATIC);
    run(update);
}

std::string column(const char* name)
{
    const Statement select = prepared(std::string("select ") + name + " from TaskTable");
    EXPECT(sqlite3_step(select.get()) == SQLITE_ROW);
    const char* bytes = static_cast<const char*>(sqlite3_column_blob(select.get(), 0));
    return bytes == nullptr ? "" : std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 0)));
}

// Some lists can be read but not written, for example one with a date after the year 9999.
bool canBeWritten(CFPropertyListRef list)
{
    const orv::CfRef<CFDataRef> data(
        CFPropertyListCreateData(kCFAllocatorDefault, list, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    return data != nullptr;
}

orv::OwnedTask read()
{
    TaskInfo* task = nullptr;
    EXPECT(TaskEditor::getInstance()->getTaskInfoObject(1, &task));
    return orv::OwnedTask(task);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    store(data, size);
    const orv::OwnedTask task = read();
    EXPECT(task->result == nullptr || CFGetTypeID(task->result) == CFDictionaryGetTypeID());
    if (task->parameter == nullptr)
        return 0; // a result can still be a dictionary: with a keyed archiver's UID in it, which cannot be copied

    EXPECT(TaskEditor::getInstance()->modifyDbTask(*task));
    const std::string written = column("parameter");
    if (!canBeWritten(task->parameter)) {
        EXPECT_SAME(written, std::string(reinterpret_cast<const char*>(data), size)); // as it was stored
        return 0;
    }
    EXPECT(written.compare(0, 5, "<?xml") == 0);
    const orv::OwnedTask again = read();
    EXPECT(again->parameter != nullptr);
    EXPECT(CFGetTypeID(again->parameter) == CFGetTypeID(task->parameter));
    if (written.find("\xef\xbb\xbf") != std::string::npos)
        return 0; // each reading drops a byte-order mark from the front of a text
    EXPECT(TaskEditor::getInstance()->modifyDbTask(*again));
    EXPECT_SAME(column("parameter"), written);
    return 0;
}
