#pragma once

#include <QString>

#include <chrono>

namespace fiva {

// The data folder's writer lock: an advisory lock (flock) on a file beside the data file, held by
// whoever changes the folder from reading its current state to the end of the write. Every
// process of ours that writes (the window, fiva-cli) takes it; readers do not need it, since files
// are replaced whole by a rename. The lock goes with the process, so a crash never leaves it held.
class DataLock final
{
public:
    // Waits up to `wait` for another writer to finish. A lock that cannot be had (a read-only
    // folder, a writer stuck for longer than the wait) is reported by error(); the caller decides.
    explicit DataLock(const QString &lockFile, std::chrono::milliseconds wait = std::chrono::seconds(30));
    ~DataLock();
    DataLock(const DataLock &) = delete;
    DataLock &operator=(const DataLock &) = delete;

    bool isHeld() const { return m_fd >= 0; }
    // Why the lock is not held; empty when it is.
    const QString &error() const { return m_error; }

    // The lock file's name in AS/Fiva.
    static QString fileName();

private:
    int m_fd = -1;
    QString m_error;
};

} // namespace fiva
