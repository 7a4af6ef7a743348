#pragma once

#include "TaskInterface.h" // IWYU pragma: export

#include <mutex>
#include <pthread.h>
#include <string>

/// Held by createTask, modifyTask and deleteTask from start to end, so only one of them runs at a time in a process.
extern std::mutex gMutex;

/// Runs `command` through the shell and writes its standard output to the file `path`, which is created or truncated
/// after the command has started. True if the command started and the file could be opened, whatever the command's
/// exit status.
bool executeCommand(const char* command, const char* path);

/// The task store, and the crontabs that start its tasks.
///
/// Hold an orv::PassLock around each operation that reads or installs crontabs: none of them takes it, and all editors
/// on the machine share the scratch files "crontemp.txt" and "temp2.txt" in tempPath. An editor belongs to one thread;
/// getInstance() gives each thread its own.
///
/// Crontabs are read and installed by /usr/bin/crontab, through the shell. Its exit status is ignored: a crontab that
/// it rejects stays unchanged, and no error is reported. Only the super-user can edit another user's crontab.
///
/// A pass is cleanCron(), putCronFromDB() or refreshCron(). It goes through the users who own tasks, in the order of
/// userIds(). It copies each crontab to "crontemp.txt", changes it, installs it and removes the scratch files. It
/// returns true, or throws SqliteException as the store does. If it throws, the crontabs already installed stay, no
/// other crontab is changed, and the scratch files stay.
///
/// A crontab counts as empty if `crontab` cannot be started or the copy cannot be created. It stays unchanged if a
/// scratch file cannot be read or written to its end (a full disk), if a rebuild's second try to create the copy fails,
/// or if an earlier run's file, perhaps with another user's jobs, can be neither removed nor overwritten.
class TaskEditor : public TaskInterface {
public:
    /// This thread's editor, created by the first call; only ReleaseInstance() destroys it. Throws what TaskInterface()
    /// throws. If a call has thrown, do not call it again on this thread: the second call would never return.
    static TaskEditor* getInstance();

    static void ReleaseInstance(); ///< Destroys this thread's editor, if there is one.
    TaskEditor(); ///< Opens the task database; see TaskInterface().

    // Crontab I/O.

    /// Copies a crontab to "crontemp.txt" in tempPath and returns that path. The crontab is root's if the effective
    /// user is the super-user, else the caller's own. No error is reported: if the command does not start or the file
    /// cannot be opened, an earlier copy stays. The caller removes the file.
    std::string readCron();

    /// As readCron(), for the crontab of user `uid`. Runs nothing if `uid` has no account.
    std::string readCron(int uid);

    /// Installs `file` as root's crontab if the effective user is the super-user, else as the caller's own. The path
    /// goes into a shell command unchanged: it must come from the program and hold no blanks. True if the command
    /// started.
    bool writeCron(std::string file);

    /// As writeCron(file), for the crontab of user `uid`. Runs nothing and returns false if `uid` has no account.
    bool writeCron(std::string file, int uid);

    // The passes.

    /// The clean: deletes each line that contains the task manager's path. orv::dropTaskLines says what else is lost.
    bool cleanCron();

    /// The rebuild: appends a task line for each task with a status of 5 or less, unless its type is 3. Existing lines
    /// stay, so a second rebuild doubles them. A task that cannot be read gets no line. Users without an account are
    /// skipped; so are, without removing "crontemp.txt", those with no such task or whose tasks cannot be listed.
    bool putCronFromDB();

    /// The refresh: puts each task line on a line of its own, as orv::splitTaskLines does.
    /// It needs a task 0. The store never creates one; another program can insert a row with that id. Without it, the
    /// first task line makes the refresh throw "Database: taskId not found", and that crontab stays unchanged.
    bool refreshCron();

    // Operations on one task. createTask, modifyTask and deleteTask hold gMutex, and release it if they throw.

    /// Stores `task` as writeDbTask does and returns its id. Writes no crontab line. With `runNow`, it then starts the
    /// task manager in the background. The arguments are the id and `source`, or only the id if `source` is
    /// "LocalTask". `source` goes into a shell command unchanged: it must come from a trusted caller.
    /// Three failures are logged and otherwise ignored: the command has more than 1023 characters, and so is not run;
    /// the shell does not start; or the shell returns an error, for instance because `source` is not valid shell. A
    /// task manager that is missing or fails goes unnoticed, because it runs in the background.
    int createTask(TaskInfo& task, bool runNow, std::string source);

    /// Writes `task` as modifyDbTask does. The flag is ignored. The crontab is not changed.
    bool modifyTask(TaskInfo& task, bool);

    /// Deletes the task `id`: if `fromDatabase`, its row; then, unless its type is 3, its task lines (deleteCronEntry).
    /// The last flag is ignored. Returns true. Throws what getTaskInfoObject and deleteDbTask throw; the crontab is
    /// then not changed.
    bool deleteTask(int id, bool fromDatabase, bool);

    /// Deletes the task lines of `taskId` from a crontab, and returns true. orv::dropLinesOfTask says what else is
    /// lost. Uses the scratch files as a pass does. Takes no lock. If the real user is the super-user, the crontab is
    /// that of user `uid`. Otherwise it is the one that readCron() reads, whatever `uid` is.
    /// Warning: in a set-user-id-root program that another user starts, that is root's crontab.
    bool deleteCronEntry(int taskId, int uid);

protected:
    static thread_local TaskEditor* tEditor;
    static thread_local pthread_mutex_t m_taskEditorMutex;
};
