// SPDX-License-Identifier: Apache-2.0
// Which run of this program produced the device curve on storage: recorded
// after every measure and replay, read by `vandro default` before it makes
// that curve the identification reference.
#pragma once

#include <string>

struct LastRun {
    std::string command, source, time;
    int result = 0;
    bool wroteCurve = false;        // the run built a device curve (the library stored it)
    bool curveReadBack = false;     // device_impedance.dat held that curve when read back
    std::string curveProblem;       // why it did not
    std::string curveDigest;        // of device_impedance.dat as the run left it
};

// The record file under the storage root.
std::string lastRunPath(const std::string& storageRoot);
// A regular file's bytes; false with why, to follow its path: "is missing",
// "is a directory", "is not a regular file", "cannot be read: REASON".
bool readFileBytes(const std::string& path, std::string* bytes, std::string* why);
// A digest of a file's bytes; empty when it cannot be read.
std::string fileDigest(const std::string& path);
// Writes the record (whole, or not at all); false with a reason.
bool writeLastRun(const std::string& path, const LastRun& run, std::string* error);
// Reads the record; false with a reason (missing, a directory, unreadable, damaged).
bool readLastRun(const std::string& path, LastRun* run, std::string* error);
struct Report;
// Records a finished and read-back run as the last one (a warning on stderr when it cannot).
void recordLastRun(const Report& report);
// The local time now, "YYYY-MM-DD HH:MM:SS".
std::string timeNow();
