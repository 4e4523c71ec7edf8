// SPDX-License-Identifier: Apache-2.0
// vandro: the library's main job on a workstation. Simulated or captured
// buffers go through the library exactly as an audio stack feeds them; the
// report says what the library answered and why, from what this run computed.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "tools/apply.h"
#include "tools/batch.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/plot.h"
#include "tools/provenance.h"
#include "tools/readback.h"
#include "tools/report.h"
#include "tools/rig.h"
#include "tools/session.h"
#include "tools/storage_lock.h"
#include "util/curve_file.h"

static const char kStatuses[] =
    "Exit status: 0 done (result 1), 2 not enough data after 120 buffers, 3 measurement failed,\n"
    "4 resistor or line input, 5 new headset, 6 input ended first, 7 call refused,\n"
    "11 rig check marginal, 12 rig check failed,\n"
    "8 the picture could not be drawn (the report was written), 9 an identification rests on a curve file\n"
    "this run could not write or read back, 10 another run holds the storage root (--no-wait),\n"
    "1 bad arguments or files.";

// Two library buffers: the ring holds four, and the program empties it after every burst.
static const int kMaxPeriodFrames = 2 * VANDRO_FRAMES_PER_BUFFER;

// A finite number from lo to hi, the whole argument; the message states the real range.
static CLI::Validator numberFrom(double lo, double hi, const std::string& what) {
    return CLI::Validator(
        [=](std::string& text) {
            char* end = nullptr;
            const double v = strtod(text.c_str(), &end);
            const bool ok = !text.empty() && end == text.c_str() + text.size() && std::isfinite(v) && v >= lo && v <= hi;
            char range[96];
            snprintf(range, sizeof range, "must be a number from %g to %g", lo, hi);
            return ok ? std::string() : std::string(range) + what;
        },
        "NUMBER");
}

static std::string shortNumber(double v) {
    char text[32];
    snprintf(text, sizeof text, "%g", v);
    return text;
}

static int modeNumber(const std::string& mode) {
    return mode == "identify" ? VANDRO_MODE_IDENTIFY : (mode == "curve" ? VANDRO_MODE_CURVES : VANDRO_MODE_FIT);
}

static int fail(const std::string& message) {
    fprintf(stderr, "vandro: %s\n", message.c_str());
    return kExitUsage;
}

// The library makes its directories with its historical mode (666 decimal),
// which leaves them unusable for anyone but root; made here first, usable.
static bool prepareStorage(const std::string& root, std::string* error) {
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

// The library's file layer keeps the first 255 characters of a path.
static const size_t kLibraryPathMax = 255;

// Where --save-raw writes, refused before the run when the library's file
// layer could not take the path.
static bool rawCaptureDir(const std::string& rawDir, std::string* dir, std::string* error) {
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

// Takes the storage root for this run; 0, or the exit status when it cannot.
static int own(StorageLock* lock, const std::string& root, bool wait) {
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
        std::string jsonPath = jsonToStdout || json.empty() ? "" : json, scratch;
        if (jsonPath.empty()) {
            if (!scratchFile(".json", &scratch, &err) || !writeOutput(scratch, text, &err)) return fail(err);
            jsonPath = scratch;
        }
        std::string why;
        writeThrough(picture, [&](const std::string& path, std::string* reason) {
            *reason = drawPicture(jsonPath, path);
            return reason->empty();
        }, &why);
        if (!scratch.empty()) abandonOutput(scratch);
        if (why.empty()) {
            printf("Plot: %s\n", picture.c_str());
        } else {
            fprintf(stderr, "vandro: the picture could not be drawn: %s\n", why.c_str());
            status = kExitNoPicture;
        }
    }
    return status;
}


// The excitation alone, as a handset would play it.
static int writeStimulus(const std::string& path, double seconds, const vsim::CaptureOptions& options) {
    std::vector<int16_t> samples;
    std::string err;
    const long frames = std::lround(seconds * vsim::kSampleRate);
    if (!vsim::stimulus(options.seed, options.levelDbfs, frames, &samples, &err) ||
        !writeThrough(path, [&](const std::string& to, std::string* why) { return vsim::writeMonoWav(to, samples, why); }, &err))
        return fail(err);
    const double crest = vsim::stimulusCrest(options.seed);
    printf("Stimulus: %s (%.1f s, mono 16-bit 44.1 kHz, peak %.1f dBFS, crest factor %.2f (%.1f dB), seed %lu)\n",
           path.c_str(), frames / vsim::kSampleRate, options.levelDbfs, crest, 20 * log10(crest),
           static_cast<unsigned long>(options.seed));
    return kExitDone;
}

// Stores the last run's curve as the reference, holding the storage root throughout.
static int storeReference(const std::string& root, bool wait) {
    StorageLock lock;
    if (const int status = own(&lock, root, wait)) return status;
    LastRun last;
    std::string err, bytes, why;
    if (!readLastRun(lastRunPath(root), &last, &err)) return fail("no reference stored: " + err);
    const std::string run = last.command + " at " + last.time, device = diagnosticsDeviceCurvePath();
    if (!last.wroteCurve)
        return fail("no reference stored: the last run (" + run + ") did not produce a device curve");
    if (!last.curveReadBack)
        return fail("no reference stored: the last run (" + run + ") could not write or read back its curve: " + device +
                    " " + last.curveProblem);
    if (!readFileBytes(device, &bytes, &why))
        return fail("no reference stored: " + device + " " + why + " (the last run, " + run +
                    ", wrote it; it has been removed or replaced since)");
    if (fileDigest(device) != last.curveDigest)
        return fail("no reference stored: " + device + " was not written by this program's last run (" + run + ")");
    SessionResult r = storeDefault();
    for (const LogLine& l : r.log)
        if (l.priority >= 6) printf("  library: %s\n", l.text.c_str());
    if (r.result != 0) return fail("no reference stored (VandroDefault " + std::to_string(r.result) + ")");
    printf("Reference stored: %s\n", diagnosticsReferenceCurvePath());
    printf("  from: %s, result %d (%s)\n", run.c_str(), last.result,
           resultMeaning(last.result, "fit", false).c_str());
    if (last.result != VANDRO_DONE)
        printf("warning: that run's result was %d, not 1: its curve may not be a headset's\n", last.result);
    return 0;
}

static int run(int argc, char** argv) {
    CLI::App app{"vandro: headset impedance measurement and compensation, on a workstation"};
    app.footer(kStatuses);
    app.set_version_flag("--version", std::string("vandro ") + VANDRO_PROGRAM_VERSION + ", libvandro " +
                                          diagnosticsLibraryVersion());
    app.require_subcommand(1);
    std::string preset = vsim::defaultPresetName(), mode = "fit", json, png;
    vsim::CaptureOptions options;
    std::vector<std::string> files;
    const CLI::Validator fileName(
        [](std::string& s) { return s.empty() ? std::string("needs a file name") : std::string(); }, "FILE");

    CLI::App* measure = app.add_subcommand("measure", "simulate a load's capture and run the library on it");
    std::string loadFile;
    CLI::Option* presetOption =
        measure->add_option("--preset", preset, "load to simulate (see: vandro presets)")->capture_default_str();
    measure->add_option("--load", loadFile, "a measured impedance curve to simulate instead (.csv, .txt, .zma)")
        ->check(fileName)->excludes(presetOption);
    measure->add_option("--seed", options.seed, "excitation and noise seed")
        ->check(CLI::Range(0.0, 1.8e19))->capture_default_str();
    measure->add_option("--level", options.levelDbfs, "drive peak in dBFS")
        ->check(numberFrom(-120, 0, " dBFS"))->capture_default_str();
    measure->add_option("--offset", options.offset,
                        "start the capture this many frames into the played stimulus (default: from the seed)")
        ->check(CLI::NonNegativeNumber);
    measure->add_option("--snr", options.snrDb, "noise on each channel, dB below its RMS (default: none)")
        ->check(numberFrom(-60, 200, " dB (leave it out for no noise)"));
    double resistorOhms = 0;
    measure->add_option("--resistor", resistorOhms, "simulate a plain resistor of this many ohms instead")
        ->check(numberFrom(0.1, 100000, " ohm"))->excludes(presetOption)->excludes("--load");
    addRigImpairments(measure, &options.rig);
    CLI::App* replay = app.add_subcommand("replay", "run the library on captured data: FILE.wav, or rawDataI.dat rawDataV.dat");
    replay->add_option("files", files, "a 2-channel 16-bit 44.1 kHz WAV (I, V), or the two raw-capture files")
        ->required()->expected(1, 2)->check(fileName);
    for (CLI::App* c : {measure, replay}) {
        c->add_option("--mode", mode, "fit, identify or curve")
            ->check(CLI::IsMember({"fit", "identify", "curve"}))->capture_default_str();
        c->add_option("--json", json, "write the report as JSON (- for standard output)")->check(fileName);
        c->add_option("--plot", png, "draw the report into a picture (.png, .svg, .pdf; needs python3-matplotlib)")
            ->check(fileName);
    }
    replay->add_option("--seed", options.seed, "seed of the burst sizes of --period random")
        ->check(CLI::Range(0.0, 1.8e19))->capture_default_str();
    std::string period = "240", format = "s16";
    const CLI::Validator periodCheck(
        [](std::string& s) {
            if (s == "random") return std::string();
            char* end = nullptr;
            const long n = strtol(s.c_str(), &end, 10);
            return end != s.c_str() && *end == '\0' && n >= 1 && n <= kMaxPeriodFrames
                       ? std::string()
                       : "must be a frame count from 1 to " + std::to_string(kMaxPeriodFrames) + ", or random";
        },
        "FRAMES|random");
    for (CLI::App* c : {measure, replay}) {
        c->add_option("--period", period, "frames per audio callback, or random (1..1024, drawn from --seed)")
            ->check(periodCheck)->capture_default_str();
        c->add_option("--format", format, "sample format of the callbacks: s16, s24 (3 bytes), s32 or f32")
            ->check(CLI::IsMember({"s16", "s24", "s32", "f32"}))->capture_default_str();
    }
    std::string saveWav, saveRaw;
    for (CLI::App* c : {measure, replay}) {
        c->add_option("--save-wav", saveWav, "write the buffers fed as a 2-channel 16-bit 44.1 kHz WAV (I, V)")
            ->check(fileName);
        c->add_option("--save-raw", saveRaw, "write the buffers fed as rawDataI.dat and rawDataV.dat into DIR")
            ->check(fileName);
    }
    CLI::App* signal = app.add_subcommand("signal", "write the measurement stimulus to play on a handset");
    std::string stimulusPath;
    double seconds = 30.0;
    signal->add_option("--wav", stimulusPath, "mono 16-bit 44.1 kHz WAV to write")->required()->check(fileName);
    signal->add_option("--seconds", seconds, "length")->check(numberFrom(0.2, 3600, " seconds"))->capture_default_str();
    signal->add_option("--level", options.levelDbfs, "peak in dBFS")->check(numberFrom(-120, 0, " dBFS"))
        ->capture_default_str();
    signal->add_option("--seed", options.seed, "phases of the excitation")->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    CLI::App* batch = app.add_subcommand("batch", "run many captures (WAV files or raw-capture folders) or loads");
    std::vector<std::string> captures, loads;
    BatchOptions batchOptions;
    batch->add_option("captures", captures, "WAV files, or folders holding rawDataI.dat and rawDataV.dat")
        ->check(fileName);
    batch->add_option("--load", loads, "measured impedance curves to simulate, one row each")->check(fileName);
    batch->add_option("--csv", batchOptions.csv, "one row per capture")->required()->check(fileName);
    batch->add_option("--jsonl", batchOptions.jsonl, "one JSON report per line")->check(fileName);
    batch->add_option("--offset", batchOptions.offset, "start offset in frames of the simulated curves (--load)")
        ->check(CLI::NonNegativeNumber);
    batch->add_option("--mode", mode, "fit, identify or curve")
        ->check(CLI::IsMember({"fit", "identify", "curve"}))->capture_default_str();
    CLI::App* def = app.add_subcommand("default", "make the last measured curve the identification reference");
    bool noWait = false;
    for (CLI::App* c : {measure, replay, batch, def})
        c->add_flag("--no-wait", noWait, "when another run holds the storage root, stop (status 10) instead of waiting");
    CLI::App* list = app.add_subcommand("presets", "list the simulator's loads");
    RigOptions rig;
    CLI::App* rigCommand = addRigCommand(&app, &rig);
    rigCommand->add_flag("--no-wait", noWait, "when another run holds the storage root, stop (status 10) instead of waiting");
    rigCommand->add_option("--period", period, "frames per audio callback, or random (1..1024, drawn from --seed)")
        ->check(periodCheck)->capture_default_str();
    rigCommand->add_option("--format", format, "sample format of the callbacks: s16, s24 (3 bytes), s32 or f32")
        ->check(CLI::IsMember({"s16", "s24", "s32", "f32"}))->capture_default_str();
    std::string report, in, out;
    CLI::App* apply = app.add_subcommand("apply", "run an audio file through the five sections of a report");
    apply->add_option("report", report, "a JSON report of a fit")->required()->check(fileName);
    apply->add_option("input", in, "audio file to filter")->required()->check(fileName);
    apply->add_option("output", out, "filtered audio file (format from its extension)")->required()->check(fileName);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        // One line, in the program's own form; --help lists the options.
        std::string what = e.what();
        if (what.find("not in range") != std::string::npos && what.find(": Value ") != std::string::npos)
            what = what.substr(0, what.find(" not in range")) + " is out of range";
        return fail(what + " (see vandro --help)");
    }

    RunInfo info;
    info.storageRoot = diagnosticsStorageRoot();
    info.mode = mode;
    if (*list) {
        for (const vsim::Load& l : vsim::presets()) printf("%-12s %s\n", l.name.c_str(), l.note.c_str());
        return kExitDone;
    }
    std::string err, rawDir;
    if (!saveRaw.empty() && !rawCaptureDir(saveRaw, &rawDir, &err)) return fail(err);
    if (saveWav == "-") return fail("--save-wav: - is not a file name here (standard output carries the report)");
    std::vector<std::string> inputs = files;
    std::vector<std::pair<std::string, std::string>> outputs;
    if (*apply) inputs = {report, in}, outputs = {{"output", out}};
    if (*batch) {
        inputs = captures;
        inputs.insert(inputs.end(), loads.begin(), loads.end());
        for (const std::string& c : captures) inputs.insert(inputs.end(), {c + "/rawDataI.dat", c + "/rawDataV.dat"});
        outputs = {{"--csv", batchOptions.csv}};
        if (!batchOptions.jsonl.empty()) outputs.push_back({"--jsonl", batchOptions.jsonl});
    }
    if (!loadFile.empty()) inputs.push_back(loadFile);
    for (const std::string& f : files) inputs.insert(inputs.end(), {f + "/rawDataI.dat", f + "/rawDataV.dat"});
    for (const auto& [option, path] : {std::pair<std::string, std::string>{"--json", json}, {"--plot", png},
                                       {"--save-wav", saveWav}})
        if (!path.empty() && path != "-") outputs.push_back({option, path});
    if (!rawDir.empty())
        outputs.insert(outputs.end(), {{"--save-raw", rawDir + "/rawDataI.dat"}, {"--save-raw", rawDir + "/rawDataV.dat"}});
    if (*rigCommand) {
        if (!rigInputs(&rig, &err)) return fail(err);
        for (const RigCapture& c : rig.captures) inputs.insert(inputs.end(), {c.path, c.path + "/rawDataI.dat", c.path + "/rawDataV.dat"});
        for (const auto& [option, path] : {std::pair<std::string, std::string>{"--json", rig.json}, {"--plot", rig.picture}})
            if (!path.empty() && path != "-") outputs.push_back({option, path});
    }
    if (!distinctOutputs(inputs, outputs, &err)) return fail(err);
    if (*apply) return applyReport(report, in, out);
    if (!prepareStorage(info.storageRoot, &err)) return fail(err);
    if (*def) return storeReference(info.storageRoot, !noWait);
    if (*signal) return writeStimulus(stimulusPath, seconds, options);
    StorageLock lock;
    if (*batch) {
        if (const int status = own(&lock, info.storageRoot, !noWait)) return status;
        return runBatch(captures, loads, batchOptions, modeNumber(mode), info);
    }
    SessionResult r;
    vsim::Load tabulated;
    FeedOptions feed;
    feed.random = period == "random";
    feed.periodFrames = feed.random ? 0 : std::stoi(period);
    feed.seed = options.seed;
    for (int f = 0; f < 4; f++)
        if (format == feedFormatName(f)) feed.format = f;
    if (*rigCommand) {
        if (const int status = own(&lock, info.storageRoot, !noWait)) return status;
        rig.feed = feed;
        return runRig(rig);
    }
    if (*measure && !loadFile.empty()) {
        if (const int status = own(&lock, info.storageRoot, !noWait)) return status;
        if (!simulateLoadFile(loadFile, modeNumber(mode), options, true, &info, &r, &tabulated, &err, feed))
            return fail(err);
    } else if (*measure) {
        vsim::Load load;
        if (resistorOhms > 0)
            load = vsim::resistorLoad("resistor-" + shortNumber(resistorOhms), resistorOhms);
        else if (!vsim::findPreset(preset, &load, &err))
            return fail(err);
        if (const int status = own(&lock, info.storageRoot, !noWait)) return status;
        if (!simulateLoad(load, load.name, modeNumber(mode), options, true, &info, &r, &err, feed)) return fail(err);
    } else {
        CaptureInput capture;
        const bool ok = files.size() == 1 ? openCaptureInput(files[0], &capture, &err)
                                          : vsim::readRawCapture(files[0], files[1], &capture.samples, &err);
        if (!ok) return fail(err);
        info.command = "replay";
        info.source = files.size() == 1 ? files[0] : files[0] + " + " + files[1];
        if (const int status = own(&lock, info.storageRoot, !noWait)) return status;
        r = replayCapture(&capture, modeNumber(mode), true, feed);
    }
    return finish(info, std::move(r), &lock, json, png, saveWav, saveRaw, tabulated);
}

int main(int argc, char** argv) {
    // Whatever escapes (memory for an enormous file, a file system error) is
    // one line and status 1, never an abort.
    installInterruptHandlers();
    int status;
    try {
        status = run(argc, argv);
    } catch (const std::bad_alloc&) {
        fprintf(stderr, "vandro: out of memory\n");
        status = kExitUsage;
    } catch (const std::exception& e) {
        fprintf(stderr, "vandro: %s\n", e.what());
        status = kExitUsage;
    }
    removeTemporaries();  // whatever is left is no finished output
    return interruptSignal() != 0 ? reportInterrupt("stopped") : status;
}
