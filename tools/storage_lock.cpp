// SPDX-License-Identifier: Apache-2.0
#include "tools/storage_lock.h"

#include "tools/interrupt.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

std::string storageLockPath(const std::string& storageRoot) { return storageRoot + "/.vandro.lock"; }

StorageLock::Outcome StorageLock::take(const std::string& storageRoot, bool wait, std::string* error) {
    release();
    const std::string path = storageLockPath(storageRoot);
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd_ < 0 && (errno == EROFS || errno == EACCES || errno == EPERM)) {
        fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);  // flock needs no write access
        if (fd_ < 0 && errno == ENOENT) return kTaken;   // read-only storage: nobody can change it
    }
    if (fd_ < 0) {
        *error = path + ": cannot open the storage lock: " + strerror(errno);
        return kError;
    }
    bool said = false;
    for (;;) {
        if (flock(fd_, LOCK_EX | (wait && said ? 0 : LOCK_NB)) == 0) return kTaken;
        if (errno == EINTR && interruptSignal() == 0) continue;
        if (errno == EINTR) {
            *error = "interrupted while waiting for the storage root";
            release();
            return kError;
        }
        if (errno != EWOULDBLOCK) {
            *error = path + ": cannot take the storage lock: " + strerror(errno);
            release();
            return kError;
        }
        if (!wait) {
            release();
            return kBusy;
        }
        fprintf(stderr, "vandro: waiting: another run holds the storage root (%s)\n", path.c_str());
        said = true;
    }
}

void StorageLock::release() {
    if (fd_ >= 0) close(fd_);  // closing the last descriptor drops the lock
    fd_ = -1;
}
