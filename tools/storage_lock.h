// SPDX-License-Identifier: Apache-2.0
// One run of the program owns the storage root at a time: an advisory
// flock(2) on ROOT/.vandro.lock, held from the run's first library call until
// it has read its files back (or `default` has stored the reference), so that
// a run's answers stand on its own files.
#pragma once

#include <string>

std::string storageLockPath(const std::string& storageRoot);

class StorageLock {
  public:
    enum Outcome { kTaken, kBusy, kError };
    StorageLock() = default;
    StorageLock(const StorageLock&) = delete;
    StorageLock& operator=(const StorageLock&) = delete;
    ~StorageLock() { release(); }
    // Takes the lock. While another run holds it: waits (saying so once on
    // stderr) when wait is true, else answers kBusy. kError with a reason when
    // the lock file cannot be opened; on storage that cannot be written at all
    // nothing can change the files, and the run goes on unlocked (kTaken).
    Outcome take(const std::string& storageRoot, bool wait, std::string* error);
    void release();

  private:
    int fd_ = -1;
};
