#pragma once

#include <memory>

namespace support {

/// The calls of SQLite's file layer that can be made to fail.
enum class FileCall {
    open,
    read,
    write, ///< a failing one writes the first half of its bytes, as on a full disk
    sync,
    lock,
    remove, ///< with SQLITE_IOERR_DIR_FSYNC the file is removed: only syncing the directory has failed
    truncate,
    fileSize,
    access ///< asks whether a file exists
};

constexpr int fileCallCount = 9;

enum class Failing { once, fromThenOn };

/// Wraps SQLite's own file layer for every connection that is opened while it lives: passes each call on, or fails it
/// if told to. One at a time, for one thread; connections opened under it must be closed before it ends.
///
/// Waiting for a lock takes no time under it: SQLite's sleeps are only added up.
class FailingVfs {
public:
    FailingVfs();
    ~FailingVfs();
    FailingVfs(const FailingVfs&) = delete;
    FailingVfs& operator=(const FailingVfs&) = delete;

    /// The n-th call of this kind from now on, the first being 1, returns the SQLite result code `code`; with
    /// fromThenOn, so does each after it. Replaces what it was told before, and sets the numbers below to 0.
    void failNth(FileCall call, int n, int code, Failing failing);
    /// The n-th call of this kind from now on ends the process with SIGKILL before it does anything.
    void killAtNth(FileCall call, int n);
    /// Nothing fails any more. The numbers below stay as they are.
    void failNothing();

    /// How many calls have failed.
    int failures() const;
    /// How many calls of this kind there were.
    int calls(FileCall call) const;
    /// How long SQLite would have slept.
    long sleptMilliseconds() const;

private:
    struct Layer;
    std::unique_ptr<Layer> m_layer;
};

} // namespace support
