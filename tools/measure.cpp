// SPDX-License-Identifier: Apache-2.0
#include "tools/measure.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "sim/audio_io.h"
#include "sim/presets.h"
#include "tools/batch.h"
#include "tools/command.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/plot.h"
#include "tools/provenance.h"
#include "tools/readback.h"
#include "util/curve_file.h"

// A simulated resistor's name: resistor-10, resistor-4.7.
static std::string shortNumber(double v) {
    char text[32];
    snprintf(text, sizeof text, "%g", v);
    return text;
}

// The library's file layer keeps the first 255 characters of a path.
static const size_t kLibraryPathMax = 255;

// Where --save-raw writes, refused before the run when the library's file
// layer could not take the path.
bool rawCaptureDir(const std::string& rawDir, std::string* dir, std::string* error) {
    *dir = std::filesystem::absolute(rawDir).lexically_normal().string();
    while (dir->size() > 1 && dir->back() == '/') dir->pop_back();
    std::error_code ec;
    if (std::filesystem::exists(*dir, ec) && !std::filesystem::is_directory(*dir, ec)) {
        *error = rawDir + ": not a folder (--save-raw writes rawDataI.dat and rawDataV.dat into one)";
        return false;
    }
    const size_t longest = dir->size() + std::string("/rawDataI.dat").size();
    if (longest > kLibraryPathMax) {
        *error = rawDir + ": too long a path for the library's file layer (" + std::to_string(longest) +
                 " bytes with rawDataI.dat; at most " + std::to_string(kLibraryPathMax) + ")";
        return false;
    }
    return true;
}

// One channel through the library's own writer into a temporary beside its
// name, read back for its line count, then renamed.
static bool saveRawChannel(const std::vector<double>& values, const std::string& target, std::string* error) {
    return writeThrough(target, [&](const std::string& path, std::string* why) {
        writeArrayToFile(values.data(), 0, static_cast<int>(values.size()), path.c_str());
        takeLog();
        std::string text;
        if (readFileBytes(path, &text, why) && static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) == values.size())
            return true;
        *why = target + ": cannot write the raw capture whole (is the disk full?)";
        return false;
    }, error);
}

// Writes what a run fed: a 2-channel WAV, and/or rawDataI.dat and rawDataV.dat
// in the library's own raw-capture format (its writer, one value per line).
static bool saveCapture(const std::vector<int16_t>& fed, const std::string& wav, const std::string& rawDir,
                        std::string* error) {
    std::string dir;
    const auto writeWav = [&](const std::string& path, std::string* why) { return vsim::writeWav(path, fed, why); };
    if (!wav.empty() && !writeThrough(wav, writeWav, error)) return false;
    if (rawDir.empty()) return true;
    if (!rawCaptureDir(rawDir, &dir, error)) return false;
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
        *error = rawDir + ": cannot create: " + ec.message();
        return false;
    }
    const size_t frames = fed.size() / 2;
    std::vector<double> i(frames), v(frames);
    for (size_t f = 0; f < frames; f++) {
        i[f] = fed[2 * f] / kInt16Scale;
        v[f] = fed[2 * f + 1] / kInt16Scale;
    }
    return saveRawChannel(i, dir + "/rawDataI.dat", error) && saveRawChannel(v, dir + "/rawDataV.dat", error);
}

// Report, JSON and picture for a finished run; returns the exit status. The
// files are read back and the run recorded before the storage root is let go.
static int finish(const RunInfo& info, SessionResult run, StorageLock* lock, const std::string& json,
                  const std::string& picture, const std::string& saveWav, const std::string& saveRaw,
                  const vsim::Load& tabulated) {
    if (interruptSignal() != 0) return reportInterrupt("the run was stopped; nothing was written");
    Report rep = makeReport(info, std::move(run));
    readBackFiles(&rep);
    recordLastRun(rep);
    lock->release();
    std::string saveError;
    if (!saveCapture(rep.run.fed, saveWav, saveRaw, &saveError)) return fail(saveError);
    if (!tabulated.table.hz.empty()) addLoadCurve(tabulated, &rep);
    const bool jsonToStdout = json == "-";
    int jsonFd = -1;
    if (jsonToStdout) {
        // Standard output carries the JSON alone; everything else goes to stderr.
        fflush(stdout);
        jsonFd = dup(STDOUT_FILENO);
        if (jsonFd < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) return fail("cannot redirect the text report");
    }
    printReport(rep);
    fflush(stdout);
    const std::string text = reportJson(rep);
    std::string err;
    if (jsonToStdout) {
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t n = write(jsonFd, text.data() + done, text.size() - done);
            if (n <= 0) return fail("cannot write the report to standard output");
            done += static_cast<size_t>(n);
        }
        close(jsonFd);
    }
    if (!json.empty() && !jsonToStdout && !writeOutput(json, text, &err)) return fail(err);
    int status = reportStatus(rep);
    if (status == kExitNotThisRunsCurve)
        fprintf(stderr, "vandro: the identification rests on a curve file this run could not write or read back: %s %s\n",
                diagnosticsDeviceCurvePath(), rep.curveFile.problem.c_str());
    else
        for (const std::string& w : rep.warnings) fprintf(stderr, "vandro: warning: %s\n", w.c_str());
    if (!picture.empty()) {
        const int drawn = drawReportPicture(text, jsonToStdout ? "" : json, picture, stdout);
        if (drawn == kExitUsage) return drawn;
        if (drawn != 0) status = drawn;
    }
    return status;
}

int runCapture(const CaptureRequest& q, RunInfo info) {
    StorageLock lock;
    SessionResult r;
    vsim::Load tabulated;
    std::string err;
    const int mode = modeNumber(q.mode);
    if (!q.replay && !q.loadFile.empty()) {
        if (const int status = takeStorage(&lock, info.storageRoot, q.wait)) return status;
        if (!simulateLoadFile(q.loadFile, mode, q.options, true, &info, &r, &tabulated, &err, q.feed)) return fail(err);
    } else if (!q.replay) {
        vsim::Load load;
        if (q.resistorOhms > 0)
            load = vsim::resistorLoad("resistor-" + shortNumber(q.resistorOhms), q.resistorOhms);
        else if (!vsim::findPreset(q.preset, &load, &err))
            return fail(err);
        if (const int status = takeStorage(&lock, info.storageRoot, q.wait)) return status;
        if (!simulateLoad(load, load.name, mode, q.options, true, &info, &r, &err, q.feed)) return fail(err);
    } else {
        CaptureInput capture;
        const bool ok = q.files.size() == 1 ? openCaptureInput(q.files[0], &capture, &err)
                                            : vsim::readRawCapture(q.files[0], q.files[1], &capture.samples, &err);
        if (!ok) return fail(err);
        info.command = "replay";
        info.source = q.files.size() == 1 ? q.files[0] : q.files[0] + " + " + q.files[1];
        if (const int status = takeStorage(&lock, info.storageRoot, q.wait)) return status;
        r = replayCapture(&capture, mode, true, q.feed);
    }
    return finish(info, std::move(r), &lock, q.json, q.picture, q.saveWav, q.saveRaw, tabulated);
}
