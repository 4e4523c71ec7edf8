// SPDX-License-Identifier: Apache-2.0
// What every command of the program shares: its one-line errors, the
// storage root it prepares and holds, and the names of the library's modes.
#pragma once

#include <string>

#include "tools/storage_lock.h"

// Says "vandro: MESSAGE" on stderr; returns the status of bad arguments or files (1).
int fail(const std::string& message);
// Makes ROOT/data and ROOT/debug, usable; false with a reason.
bool prepareStorage(const std::string& root, std::string* error);
// Takes the storage root for this run, waiting or not; 0, or the exit status when it cannot.
int takeStorage(StorageLock* lock, const std::string& root, bool wait);
// VANDRO_MODE_* of "fit", "identify" or "curve".
int modeNumber(const std::string& mode);
