#pragma once

#include <QString>

// The turn of an import batch among the processes that import into the
// same store files: an exclusive flock on a file beside them. The kernel
// lets go of it when the process ends, however it ends, so a process that
// dies holding it blocks nobody.
class HBImportLock
{
public:
    explicit HBImportLock(QString path);
    ~HBImportLock();
    HBImportLock(const HBImportLock &) = delete;
    HBImportLock &operator=(const HBImportLock &) = delete;

    // Takes the lock unless another process holds it; true when this one
    // may go on. A lock file that cannot be made (a folder that cannot be
    // written) lets the batch go on without it: its stores cannot be
    // written either, and the import reports that.
    bool tryLock();
    void unlock();
    bool isLocked() const { return m_locked; }

private:
    QString m_path;
    int m_descriptor = -1;
    bool m_locked = false;
};
