// SPDX-License-Identifier: Apache-2.0
// The report of one run: printed for a person, written as JSON for tools and
// plots. It shows only what this run computed.
#pragma once

#include <string>
#include <vector>

#include "sim/capture.h"
#include "tools/response.h"
#include "tools/session.h"

// The program's exit statuses (README, --help).
enum ExitStatus {
    kExitDone = 0,          // result 1
    kExitUsage = 1,         // bad arguments or unreadable, malformed files
    kExitNotEnough = 2,     // result 2
    kExitFailed = 3,        // result 3
    kExitRejected = 4,      // result 4
    kExitNewHeadset = 5,    // result 5
    kExitInputEnded = 6,    // the input ended before the library answered
    kExitRefused = 7,       // the library refused the call
    kExitNoPicture = 8,     // the picture could not be drawn (the report was written)
    kExitNotThisRunsCurve = 9,  // an identification rests on a curve file this run could not write or read back
    kExitStorageBusy = 10   // --no-wait, and another run holds the storage root
};

struct RunInfo {
    std::string command;      // measure, replay
    std::string source;       // preset name or file(s)
    std::string sourceNote;   // the preset's note
    std::string mode;         // fit, identify, curve
    std::string storageRoot;
    unsigned long seed = 0;
    double levelDbfs = 0, snrDb = 0;
    long offset = 0;          // frames into the stimulus where the simulated capture started
    bool simulated = false;
    vsim::RigImpairments rig;  // the simulated capture path's departures from the ideal
};

// The device curve file, read back after the run.
struct CurveFileCheck {
    bool checked = false;      // the run built a device curve, so the file should hold it
    bool fromThisRun = false;  // and it does, exactly as the file layer writes it
    std::string problem;       // why not, following the file's path ("is missing", ...)
};

// Everything the report shows of one run.
struct Report {
    RunInfo info;
    SessionResult run;
    Response response;        // the realised cascade, when the fit wrote coefficients
    bool haveResponse = false;
    std::vector<double> referenceOhms;  // the stored reference, in identify mode
    std::vector<double> loadHz, loadOhms;  // a tabulated load's input curve
    CurveFileCheck curveFile;
    std::string identificationNullBecause;  // why a correlation that is not a number meant "same headset"
    std::vector<std::string> warnings;      // one sentence each
};

Report makeReport(const RunInfo& info, SessionResult run);
// One-line meaning of a result for the mode it was asked in.
std::string resultMeaning(int result, const std::string& mode, bool inputEnded);
int exitStatus(const SessionResult& r);
// The run's exit status, its files considered: 9 for an identification whose
// curve file is not this run's.
int reportStatus(const Report& report);
void printReport(const Report& report);
// The report as JSON text (schema 1).
std::string reportJson(const Report& report);
// A file name for the text report: bytes that are not UTF-8, and control
// characters, as \xNN. With allBytes, every byte that is not printable ASCII.
std::string escapedName(const std::string& name, bool allBytes = false);
// Names of the headphone types: "in-ear", "concha", or "" for none.
const char* headphoneTypeName(int type);
