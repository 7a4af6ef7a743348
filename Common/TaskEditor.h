#pragma once

#include "TaskInterface.h" // IWYU pragma: export

#include <mutex>
#include <pthread.h>
#include <string>

/// Held by createTask, modifyTask and deleteTask for their whole run: one such operation at a time in the process.
extern std::mutex gMutex;

/// Runs `command` through the shell and writes its standard output to the file `path`, which is made or truncated once
/// the command has been started. True if the command was started and the file could be opened; the command's exit
/// status does not count.
bool executeCommand(const char* command, const char* path);

/// The task store together with the crontabs that put its tasks into effect.
///
/// Each thread has an editor of its own, with a connection of its own. All editors share the scratch files
/// "crontemp.txt" and "temp2.txt" in tempPath: only one operation that reads or writes crontabs may run at a time on a
/// machine. The operations that say so hold gMutex; the others take no lock.
///
/// Crontabs are read and installed by /usr/bin/crontab, run by the shell; its exit status does not count, so that a
/// crontab it refuses stays as it was without a word. Editing another user's crontab takes the super-user.
///
/// The three passes go through the users who own tasks, in the store's order. For each they copy the crontab to
/// "crontemp.txt", change it, install it and remove the scratch files that they use. They return true whenever they
/// return, and throw SqliteException as the store's operations do; users not reached are then not touched, and the
/// scratch files of the present one stay.
///
/// A crontab that cannot be read at all counts as empty: `crontab` cannot be started, or the copy cannot be made. But
/// a crontab stays as it was if a scratch file was made and cannot be read or written to its end (a full disk), or if
/// an earlier run's scratch file can be neither removed nor overwritten: that holds another user's jobs.
class TaskEditor : public TaskInterface {
public:
    /// This thread's editor, made at the first call; ReleaseInstance() destroys it, the caller does not.
    /// Throws what TaskInterface() throws. The thread's own lock is then left held: the same thread must not ask again.
    static TaskEditor* getInstance();

    /// Destroys this thread's editor, if there is one.
    static void ReleaseInstance();

    /// Opens the task database; see TaskInterface().
    TaskEditor();

    // Crontab I/O.

    /// Copies a crontab to "crontemp.txt" in tempPath and returns that path: root's if the effective user is the
    /// super-user, else the caller's own. No error is reported: if the command cannot be started or the file not
    /// opened, what an earlier read left stays. The file is not removed.
    std::string readCron();

    /// As readCron(), for the crontab of user `uid`. Runs nothing if there is no such account.
    std::string readCron(int uid);

    /// Installs the file `file`, a path without blanks, as a crontab: root's if the effective user is the super-user,
    /// else the caller's own. True if the command could be started.
    bool writeCron(std::string file);

    /// As writeCron(file), for the crontab of user `uid`. Runs nothing and returns false if there is no such account.
    bool writeCron(std::string file, int uid);

    // The passes.

    /// Takes every line that mentions the task manager's path out of the crontab of each user who owns a task; see
    /// orv::dropTaskLines for what else goes.
    bool cleanCron();

    /// Appends a task line to its owner's crontab for each task of status 5 or less and of another type than 3. Lines
    /// that are there already stay, so that a second run doubles them. A user without an account is left out, and so is
    /// one whose tasks cannot be listed, or who has none to count; a task that cannot be read gets no line. For a user
    /// without a task to count, or whose tasks cannot be listed, "crontemp.txt" stays behind.
    bool putCronFromDB();

    /// Gives each task line in the crontab of each user who owns a task a line of its own; see orv::splitTaskLines.
    /// Throws "Database: taskId not found" at the first task line if there is no task 0, with that crontab as it was.
    bool refreshCron();

    // Operations on one task. Each holds gMutex while it runs, and lets it go also when it throws.

    /// Stores `task` as writeDbTask does and returns its id. With `runNow`, then starts the task manager for it in the
    /// background, with `source` behind the id unless it is "LocalTask". That this fails is logged, no more.
    /// `source` goes into a shell command as it stands: it must come from a trusted caller. A command of more than 1023
    /// characters is not run. Writes no crontab line.
    int createTask(TaskInfo& task, bool runNow, std::string source);

    /// Writes `task` as modifyDbTask does. The flag is not used. The crontab is not touched.
    bool modifyTask(TaskInfo& task, bool);

    /// Deletes the task `id`: its row, if `fromDatabase`, then its crontab line, unless its type is 3. The last flag is
    /// not used. Returns true. Throws what getTaskInfoObject and deleteDbTask throw; the crontab is then not touched.
    bool deleteTask(int id, bool fromDatabase, bool);

    /// Takes every line that runs the task manager for the task `taskId` out of the crontab of user `uid`, or out of
    /// the caller's own if the real user is not the super-user; see orv::dropLinesOfTask for what else goes. Returns
    /// true. Scratch files as for the passes. Takes no lock.
    bool deleteCronEntry(int taskId, int uid);

protected:
    static thread_local TaskEditor* tEditor;
    static thread_local pthread_mutex_t m_taskEditorMutex;
};
