#include "PrivateWorld.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <sched.h>
#include <sqlite3.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

#include "Process.h"

namespace fs = std::filesystem;

namespace support {

const std::string createTaskTable
    = "CREATE TABLE TaskTable(id INTEGER PRIMARY KEY AUTOINCREMENT,description VARCHAR(255) NOT NULL,"
      "type INTEGER NOT NULL DEFAULT 1,crontime VARCHAR(255) NOT NULL,parameter BLOB,result BLOB,created TEXT,"
      "lastRun TEXT,status INTEGER DEFAULT 1,count INTEGER NOT NULL DEFAULT 0,userId INTEGER NOT NULL DEFAULT 0,"
      "recType INTEGER NOT NULL DEFAULT 0)";

namespace {

const std::string worldDirectory = "/usr/local/private-world/";
const std::string passwdFile = worldDirectory + "passwd";
const std::string allowFile = worldDirectory + "cron.allow";
const std::string recorder = worldDirectory + "recording_crontab";
const std::string recorderState = worldDirectory + "crontab/"; // the recording crontab knows it, too
const std::string recorderTabs = recorderState + "tabs/";
const std::string spool = "/var/spool/cron/crontabs/";
const std::string denyFile = "/etc/cron.deny";
const char* const crontabProgram = "/usr/bin/crontab";
const char* const aclAttribute = "system.posix_acl_access";

bool gEntered = false;
bool gRecording = false;
std::vector<std::string> gScratchMounts; // in the order they were made
gid_t gSpoolGroup = 0;
std::map<std::string, int> gAccounts;
bool gOwnEtc = false;

[[noreturn]] void fail(const std::string& sentence)
{
    throw std::runtime_error(sentence);
}

[[noreturn]] void failCall(const std::string& call)
{
    fail(call + " failed: " + std::strerror(errno));
}

void requireWorld()
{
    if (!gEntered)
        fail("the private world of the tests has not been entered");
}

void mountTmpfs(const std::string& target, const std::string& options)
{
    if (mount("tmpfs", target.c_str(), "tmpfs", 0, options.c_str()) != 0)
        failCall("mounting a tmpfs on " + target);
}

void bindMount(const std::string& source, const std::string& target)
{
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        failCall("binding " + source + " to " + target);
}

void unmount(const std::string& target)
{
    if (umount2(target.c_str(), MNT_DETACH) != 0)
        failCall("unmounting " + target);
}

void setOwnerAndMode(const std::string& path, uid_t owner, gid_t group, mode_t mode)
{
    if (chown(path.c_str(), owner, group) != 0)
        failCall("chown " + path);
    if (chmod(path.c_str(), mode) != 0)
        failCall("chmod " + path);
}

int openPath(const char* path, int flags)
{
    const int file = open(path, flags | O_CLOEXEC);
    if (file < 0)
        failCall(std::string("opening ") + path);
    return file;
}

// In a changed root the mount that holds it is out of reach, and what is mounted would show outside. Entering one's own
// namespace leads to its real root; from there all mounts are made private, and then it is back to where we were.
void unshareMounts()
{
    if (unshare(CLONE_NEWNS) != 0)
        failCall("unshare(CLONE_NEWNS)");
    const int root = openPath("/", O_PATH | O_DIRECTORY);
    const int directory = openPath(".", O_PATH | O_DIRECTORY);
    const int mounts = openPath("/proc/self/ns/mnt", O_RDONLY);
    if (setns(mounts, CLONE_NEWNS) != 0)
        failCall("entering the new mount namespace");
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        failCall("making all mounts private");
    if (fchdir(root) != 0 || chroot(".") != 0 || fchdir(directory) != 0)
        failCall("going back to the root directory");
    for (const int file : {root, directory, mounts})
        close(file);
    if (readFile("/proc/self/mountinfo").find(" shared:") != std::string::npos)
        fail("a mount is still shared with the machine (the root directory itself may be mounted over)");
}

void writeRaw(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes << std::flush;
    if (!out)
        failCall("writing " + path);
}

/// Puts what /usr/local held before back into the new one, the product alone left out.
void bringBack(const fs::directory_entry& entry, const std::string& target)
{
    if (entry.is_symlink()) {
        fs::copy_symlink(entry.path(), target);
        return;
    }
    if (entry.is_directory())
        fs::create_directory(target);
    else
        writeRaw(target, "");
    bindMount(entry.path().string(), target);
}

/// Makes the folder one in memory, with what it held before but for `omitted`.
void replaceFolder(const std::string& folder, const std::vector<std::string>& omitted)
{
    const int before = openPath(folder.c_str(), O_PATH | O_DIRECTORY);
    mountTmpfs(folder, "mode=0755");
    for (const auto& entry : fs::directory_iterator("/proc/self/fd/" + std::to_string(before))) {
        const std::string name = entry.path().filename().string();
        if (std::find(omitted.begin(), omitted.end(), name) == omitted.end())
            bringBack(entry, folder + "/" + name);
    }
    close(before);
}

/// Each package of a crontab program makes the folders of the spool with owners and rights of its own.
struct Folder {
    std::string path;
    struct stat status;
    std::string acl;
};

Folder folderAt(const std::string& path)
{
    Folder folder = {path, {}, std::string(1000, '\0')};
    if (stat(path.c_str(), &folder.status) != 0)
        failCall("stat " + path);
    const ssize_t size = getxattr(path.c_str(), aclAttribute, folder.acl.data(), folder.acl.size());
    folder.acl.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return folder;
}

void make(const Folder& folder)
{
    fs::create_directory(folder.path);
    setOwnerAndMode(folder.path, folder.status.st_uid, folder.status.st_gid, folder.status.st_mode & 07777);
    if (!folder.acl.empty()
        && setxattr(folder.path.c_str(), aclAttribute, folder.acl.data(), folder.acl.size(), 0) != 0)
        failCall("setxattr " + folder.path);
}

void replaceSpool()
{
    std::vector<Folder> folders;
    for (const auto& entry : fs::directory_iterator("/var/spool/cron"))
        if (entry.is_directory())
            folders.push_back(folderAt(entry.path().string()));
    gSpoolGroup = folderAt(spool).status.st_gid;
    mountTmpfs("/var/spool/cron", "mode=0755");
    for (const auto& folder : folders)
        make(folder);
}

void writeAccounts()
{
    std::ostringstream passwd;
    std::ostringstream allowed;
    for (const auto& [name, uid] : gAccounts) {
        passwd << name << ":x:" << uid << ":" << uid << ":" << name << ":/:/bin/sh\n";
        allowed << name << "\n";
    }
    writeRaw(passwdFile, passwd.str());
    writeRaw(allowFile, allowed.str());
}

void replaceIfThere(const std::string& source, const char* target)
{
    if (fs::exists(target))
        bindMount(source, target);
}

void replaceAccounts()
{
    gAccounts = {{"root", 0}};
    writeAccounts();
    writeRaw(worldDirectory + "group", "root:x:0:\ncrontab:x:" + std::to_string(gSpoolGroup) + ":\n");
    writeRaw(worldDirectory + "nsswitch.conf", "passwd: files\ngroup: files\nshadow: files\n");
    writeRaw(worldDirectory + "cron.deny", "");
    bindMount(passwdFile, "/etc/passwd");
    bindMount(worldDirectory + "group", "/etc/group");
    replaceIfThere(worldDirectory + "nsswitch.conf", "/etc/nsswitch.conf"); // without it, files is the default
    replaceIfThere(allowFile, "/etc/cron.allow");
    replaceIfThere(worldDirectory + "cron.deny", "/etc/cron.deny");
    if (fs::exists("/run/nscd")) // a name service cache would answer with the machine's own accounts
        mountTmpfs("/run/nscd", "mode=0755");
}

void bringRecorder()
{
    fs::copy_file(ORV_RECORDING_CRONTAB, recorder);
    setOwnerAndMode(recorder, 0, 0, 0755);
}

void startService()
{
    const char* const start = std::getenv("ORV_START_SERVICE");
    if (start != nullptr && runProgram({"/bin/sh", "-ec", start}).status != 0)
        fail(std::string("this failed: ") + start);
}

void buildWorld()
{
    if (geteuid() != 0)
        fail("they run in a private mount namespace, which only root can make; run them as root");
    if (!fs::exists(crontabProgram))
        fail("there is no /usr/bin/crontab; install the package cron");
    umask(022);
    unshareMounts();
    replaceFolder(
        "/usr/local", {"Quarno"}); // not even as a mount point is the product's folder made on the machine's disk
    replaceSpool();
    fs::create_directory(worldDirectory);
    replaceAccounts();
    bringRecorder();
    gEntered = true;
    resetWorld();
    startService();
}

void emptyDirectory(const std::string& path)
{
    fs::remove_all(path);
    fs::create_directories(path);
}

void forgetRecordings()
{
    emptyDirectory(recorderState);
    emptyDirectory(recorderTabs);
    writeRaw(recorderState + "calls", "");
    for (const auto& path : {recorderState, recorderTabs})
        setOwnerAndMode(path, 0, 0, 0777); // a test may run the program as somebody else
    setOwnerAndMode(recorderState + "calls", 0, 0, 0666);
}

void undoScratchMounts()
{
    for (; !gScratchMounts.empty(); gScratchMounts.pop_back())
        unmount(gScratchMounts.back());
}

struct DatabaseCloser {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};
struct StatementCloser {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;
using Statement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

Database openDatabase()
{
    requireWorld();
    sqlite3* handle = nullptr;
    const int code = sqlite3_open(databasePath.c_str(), &handle);
    Database database(handle);
    if (code != SQLITE_OK)
        fail("opening " + databasePath + " failed: " + sqlite3_errstr(code));
    return database;
}

std::string rowText(sqlite3_stmt* row)
{
    std::string text;
    for (int column = 0; column < sqlite3_column_count(row); ++column) {
        const void* bytes = sqlite3_column_blob(row, column);
        const auto size = static_cast<size_t>(sqlite3_column_bytes(row, column));
        text += column > 0 ? "|" : "";
        if (sqlite3_column_type(row, column) == SQLITE_NULL)
            text += "NULL";
        else if (size > 0)
            text.append(static_cast<const char*>(bytes), size);
    }
    return text;
}

} // namespace

void enterPrivateWorld()
{
    try {
        buildWorld();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "The tests cannot be run here: %s.\n", error.what());
        std::_Exit(1);
    }
}

void resetWorld()
{
    requireWorld();
    useRealCrontab();
    undoScratchMounts();
    emptyDirectory("/usr/local/Quarno");
    emptyDirectory(testDirectory);
    fs::create_directories(scratchDirectory);
    setOwnerAndMode(scratchDirectory, 0, 0, 0700);
    for (const auto& crontab : fs::directory_iterator(spool))
        fs::remove_all(crontab.path());
    if (gOwnEtc)
        fs::remove(denyFile);
    gAccounts = {{"root", 0}, {"anna", anna}, {"ben", ben}, {"carla", carla}};
    writeAccounts();
}

void addAccount(const std::string& name, int uid)
{
    requireWorld();
    gAccounts[name] = uid;
    writeAccounts();
}

void removeAccount(const std::string& name)
{
    requireWorld();
    if (gAccounts.erase(name) != 1)
        fail("there is no account " + name);
    writeAccounts();
}

void denyCron(const std::string& name)
{
    requireWorld();
    if (!gOwnEtc)
        replaceFolder("/etc", {"cron.allow", "cron.deny"});
    gOwnEtc = true;
    writeRaw(denyFile, name + "\n");
}

std::string crontabOf(const std::string& name)
{
    requireWorld();
    if (!hasCrontab(name))
        return "";
    if (gRecording)
        return readFile(recorderTabs + name);
    const auto listing = runProgram({crontabProgram, "-u", name, "-l"});
    if (listing.status != 0)
        fail("crontab -u " + name + " -l failed: " + listing.errors);
    return listing.output;
}

bool hasCrontab(const std::string& name)
{
    requireWorld();
    return fs::exists((gRecording ? recorderTabs : spool) + name);
}

namespace {

/// The length of the three comments at the beginning that Debian's crontab writes.
size_t headerLength(const std::string& crontab)
{
    size_t length = 0;
    for (int line = 0; line < 3 && crontab.compare(0, 13, "# DO NOT EDIT") == 0; ++line)
        length = crontab.find('\n', length) + 1;
    return length;
}

} // namespace

std::string storedCrontab(const std::string& name)
{
    const std::string stored = readFile(spool + name);
    return stored.substr(headerLength(stored));
}

void storeCrontab(const std::string& name, const std::string& text)
{
    setCrontab(name, "");
    const std::string empty = readFile(spool + name);
    writeFile(spool + name, empty.substr(0, headerLength(empty)) + text);
}

void setCrontab(const std::string& name, const std::string& text)
{
    requireWorld();
    if (gRecording) {
        writeFile(recorderTabs + name, text);
        return;
    }
    const std::string file = testDirectory + "crontab-to-install";
    writeFile(file, text);
    const auto installing = runProgram({crontabProgram, "-u", name, file});
    if (installing.status != 0)
        fail("crontab -u " + name + " refused the text: " + installing.errors);
    fs::remove(file);
}

void useRecordingCrontab()
{
    requireWorld();
    forgetRecordings();
    if (!gRecording)
        bindMount(recorder, crontabProgram);
    gRecording = true;
}

void useRealCrontab()
{
    requireWorld();
    if (gRecording)
        unmount(crontabProgram);
    gRecording = false;
}

std::vector<std::string> crontabCalls()
{
    std::istringstream log(readFile(recorderState + "calls"));
    std::vector<std::string> calls;
    for (std::string call; std::getline(log, call);)
        calls.push_back(call);
    return calls;
}

void onCrontabCall(const std::string& shellText)
{
    if (!gRecording)
        fail("only the recording crontab can be told what to do");
    writeFile(recorderState + "hook", shellText + "\n");
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        failCall("reading " + path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const std::string& bytes)
{
    requireWorld();
    writeRaw(path, bytes);
}

std::vector<std::string> scratchFiles()
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(scratchDirectory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void limitScratchDirectory(long bytes, int files)
{
    requireWorld();
    const int inodes = files == 0 ? 0 : files + 1; // the directory itself is one
    mountTmpfs(scratchDirectory, "mode=0700,size=" + std::to_string(bytes) + ",nr_inodes=" + std::to_string(inodes));
    gScratchMounts.push_back(scratchDirectory);
}

void blockScratchFile(const std::string& name)
{
    // Opening a socket fails for everybody; removing a mount point does, too.
    const std::string socket = testDirectory + "blocking-" + name;
    const std::string blocked = scratchDirectory + name;
    if (mknod(socket.c_str(), S_IFSOCK | 0600, 0) != 0)
        failCall("making " + socket);
    writeFile(blocked, "");
    bindMount(socket, blocked);
    gScratchMounts.push_back(blocked);
}

void execSql(const std::string& sql)
{
    const Database database = openDatabase();
    if (sqlite3_exec(database.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(sql + ": " + sqlite3_errmsg(database.get()));
}

std::vector<std::string> queryRows(const std::string& sql)
{
    const Database database = openDatabase();
    sqlite3_stmt* handle = nullptr;
    const int prepared = sqlite3_prepare_v2(database.get(), sql.c_str(), -1, &handle, nullptr);
    const Statement statement(handle);
    if (prepared != SQLITE_OK)
        fail(sql + ": " + sqlite3_errmsg(database.get()));
    std::vector<std::string> rows;
    int code = SQLITE_ROW;
    while ((code = sqlite3_step(handle)) == SQLITE_ROW)
        rows.push_back(rowText(handle));
    if (code != SQLITE_DONE)
        fail(sql + ": " + sqlite3_errmsg(database.get()));
    return rows;
}

} // namespace support
