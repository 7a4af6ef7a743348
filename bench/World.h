#pragma once

#include <map>
#include <string>
#include <vector>

/// File names with their bytes.
using Files = std::map<std::string, std::string>;

/// What a pass has to work on.
struct Load {
    int users;
    int tasksOfEach;
    int linesOfEach; ///< a user's own lines, besides the task lines
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

/// The present crontabs and scratch directory of the private world.
Outcome presentOutcome();

/// A copy of the crontab spool, to restore before the next run.
class Spool {
public:
    static Spool asItIs();
    /// Restores it, and empties the scratch directory.
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

/// Fills the private world, which must have been entered, with a load.
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

/// `count` lines that are a user's own.
std::string ownLines(int count);

/// Creates the table with `tasksOfEach` tasks for each of `users` users, whose user ids start at firstUser.
void fillDatabase(int users, int tasksOfEach);
constexpr int firstUser = 20000;
