#pragma once

#include <map>
#include <string>
#include <vector>

/// File names with their bytes.
using Files = std::map<std::string, std::string>;

/// How much there is to do.
struct Load {
    int users;
    int tasksOfEach;
    int linesOfEach; ///< lines of a user's own, beside those of the tasks
};

/// What a pass leaves behind: the crontabs as they were installed, by account, and the scratch directory.
struct Outcome {
    Files crontabs;
    Files scratch;
};

/// Where two outcomes first differ, in words; "" if they are equal.
std::string difference(const Outcome& left, const Outcome& right);

/// `files` without their empty lines.
Files withoutEmptyLines(const Files& files);

/// What is there now, in the private world.
Outcome presentOutcome();

/// The spool of crontabs as it was found, to be put back before the next run.
class Spool {
public:
    static Spool asItIs();
    /// Puts it back, and empties the scratch directory.
    void restore() const;

private:
    struct Crontab {
        std::string path;
        std::string bytes;
        unsigned owner;
        unsigned group;
        unsigned mode;
    };
    std::vector<Crontab> m_crontabs;
};

/// A private world with a load. The private world must have been entered.
class LoadedWorld {
public:
    explicit LoadedWorld(const Load& load);

    /// The crontabs with and without the task lines: what a rebuild makes, and what a clean makes.
    const Outcome& rebuilt() const { return m_rebuilt; }
    const Outcome& cleaned() const { return m_cleaned; }

    void restoreRebuilt() const { m_rebuiltSpool.restore(); }
    void restoreCleaned() const { m_cleanedSpool.restore(); }

private:
    Outcome m_rebuilt;
    Outcome m_cleaned;
    Spool m_rebuiltSpool;
    Spool m_cleanedSpool;
};

/// `count` lines of a user's own.
std::string ownLines(int count);

/// The line of the task `id`.
std::string taskLine(const std::string& cronTime, int id);

/// Makes the table and `users` x `tasksOfEach` tasks, user after user, of the users firstUser and up.
void fillDatabase(int users, int tasksOfEach);
constexpr int firstUser = 20000;
