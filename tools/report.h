// The report of one run: printed for a person, written as JSON for tools and plots.
#pragma once

#include <string>

#include "tools/diagnosis.h"
#include "tools/session.h"

struct RunInfo {
    std::string command;      // measure, replay
    std::string source;       // preset name or file(s)
    std::string sourceNote;   // the preset's note
    std::string mode;         // fit, identify, curve
    std::string storageRoot;
    unsigned long seed = 0;
    double levelDbfs = 0, snrDb = 0;
    bool simulated = false;
    long clippedSamples = 0;
};

// One-line meaning of a result for the mode it was asked in.
std::string resultMeaning(int result, const std::string& mode, bool inputEnded);
// The program's exit status for a run (documented in the README and --help).
int exitStatus(const SessionResult& r);
void printReport(const RunInfo& info, const SessionResult& r, const Diagnosis& d);
// Writes the report as JSON; false with a reason on failure.
bool writeJson(const std::string& path, const RunInfo& info, const SessionResult& r,
               const Diagnosis& d, std::string* error);
