#pragma once

#include <string>
#include <vector>

/// The world of the tests of the store, the editor and the program: a mount namespace of the test process's own, with
/// its own accounts, crontab spool and product directory. Nothing in it is visible outside, and it vanishes with the
/// process. Everything below enterPrivateWorld() refuses to work outside of such a world.
///
/// Every function that cannot do what its name says throws std::runtime_error with a sentence that names the file or
/// the call and the system's reason, unless it says otherwise.
namespace support {

/// The product's fixed paths, written out here so that a wrong constant of the product shows.
inline const std::string productDirectory = "/usr/local/Quarno/Kestrelcore/";
inline const std::string databasePath = productDirectory + "var/OrvMacDatabase.db";
inline const std::string scratchDirectory = productDirectory + "var/tmp/";
inline const std::string taskManager = productDirectory + "TessaraTaskManager";

/// A directory of the private world that the product does not know; tests keep files of their own in it. resetWorld()
/// empties it.
inline const std::string testDirectory = "/usr/local/private-world/test/";

/// The accounts that every test starts with, beside root.
constexpr int anna = 501;
constexpr int ben = 502;
constexpr int carla = 503;
/// A user id without an account until a test adds one.
constexpr int nobodysUid = 777;

/// Moves the calling process into a new private world. Call it once, before any thread is started.
/// The spool's folders are made as the machine has them. The shell text in the environment variable ORV_START_SERVICE
/// is then run to its end in that world: it starts the service that some crontab programs need. Ends the process with
/// status 1 and one sentence on standard error when that is not possible (not root, no crontab program, a mount that
/// fails); it never returns outside of the private world.
void enterPrivateWorld();

/// Makes the world as a test wants to find it: an empty product directory with var/tmp (mode 0700), no database, no
/// crontabs, the accounts root 0, anna 501, ben 502 and carla 503, Debian's own crontab in place.
void resetWorld();

/// Adds an account to the private /etc/passwd.
void addAccount(const std::string& name, int uid);
/// Removes an account from the private /etc/passwd; its crontab stays.
void removeAccount(const std::string& name);

/// What `crontab -u name -l` prints: the crontab without the three lines that Debian's crontab puts before it.
/// Empty, too, when the account has no crontab.
std::string crontabOf(const std::string& name);
/// Whether the account has a crontab, be it an empty one.
bool hasCrontab(const std::string& name);
/// Installs `text` as the crontab of an account. The real crontab accepts only text that it finds well formed and that
/// ends with a newline; the recording one takes any bytes.
void setCrontab(const std::string& name, const std::string& text);

/// The bytes of a crontab in the spool of the real crontab, without the three lines that Debian's crontab puts first.
std::string storedCrontab(const std::string& name);
/// Puts these bytes into the spool without the crontab program, after those three lines if it writes them.
void storeCrontab(const std::string& name, const std::string& text);

/// Names the account in /etc/cron.deny and removes /etc/cron.allow, until the next resetWorld().
void denyCron(const std::string& name);

/// Replaces /usr/bin/crontab with the recording crontab until useRealCrontab() or resetWorld(). That one keeps each
/// crontab byte for byte, checks nothing and records its calls. Its crontabs are its own: none at the start.
void useRecordingCrontab();
void useRealCrontab();
/// The arguments of each call of the recording crontab since it was put in place, one call an element: "-u anna -l".
/// Calls of crontabOf() and setCrontab() are not among them.
std::vector<std::string> crontabCalls();
/// Shell text that the recording crontab runs in each call before it does its work. It finds $operation ("list",
/// "install" or, with the option -n or -T, "check"), $user, $file (but for a list), $number (of this call, from 1) and
/// $state (a directory to keep things in); it can print, wait and `exit`.
void onCrontabCall(const std::string& shellText);

/// The bytes of a file.
std::string readFile(const std::string& path);
/// Makes or replaces a file.
void writeFile(const std::string& path, const std::string& bytes);
/// The names of the files in the scratch directory, sorted.
std::vector<std::string> scratchFiles();
/// Mounts on the scratch directory a file system of this many bytes (a multiple of the page size) and this many files,
/// until the next resetWorld(). 0 means no limit.
void limitScratchDirectory(long bytes, int files);
/// Replaces a file of the scratch directory, until the next resetWorld(), with one that not even root can open or
/// remove. scratchFiles() lists it.
void blockScratchFile(const std::string& name);

/// Runs SQL statements on the task database, which is made if it is missing.
void execSql(const std::string& sql);
/// The rows of a query on the task database, the columns of a row joined with "|"; NULL reads "NULL".
std::vector<std::string> queryRows(const std::string& sql);
/// The statement that makes TaskTable, written out here so that a change of the product's shows.
extern const std::string createTaskTable;

} // namespace support
