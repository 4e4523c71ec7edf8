// SPDX-License-Identifier: Apache-2.0
#include "tools/command.h"

#include <cstdio>
#include <filesystem>

#include "engine/vandro.h"
#include "tools/interrupt.h"
#include "tools/report.h"

int modeNumber(const std::string& mode) {
    return mode == "identify" ? VANDRO_MODE_IDENTIFY : (mode == "curve" ? VANDRO_MODE_CURVES : VANDRO_MODE_FIT);
}

int fail(const std::string& message) {
    fprintf(stderr, "vandro: %s\n", message.c_str());
    return kExitUsage;
}

// The library makes its directories with its historical mode (666 decimal),
// which leaves them unusable for anyone but root; made here first, usable.
bool prepareStorage(const std::string& root, std::string* error) {
    std::error_code ec;
    for (const char* sub : {"/data", "/debug"}) {
        std::filesystem::create_directories(root + sub, ec);
        if (ec) {
            *error = "cannot create " + root + sub + ": " + ec.message();
            return false;
        }
    }
    return true;
}

int takeStorage(StorageLock* lock, const std::string& root, bool wait) {
    std::string err;
    switch (lock->take(root, wait, &err)) {
        case StorageLock::kTaken: return 0;
        case StorageLock::kBusy:
            fprintf(stderr, "vandro: another run holds the storage root (%s)\n", storageLockPath(root).c_str());
            return kExitStorageBusy;
        default:
            if (interruptSignal() != 0) return reportInterrupt("stopped while waiting for the storage root");
            return fail(err);
    }
}
