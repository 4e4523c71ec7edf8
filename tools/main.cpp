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
#include "tools/plot.h"
#include "tools/provenance.h"
#include "tools/report.h"
#include "tools/session.h"
#include "util/curve_file.h"

static const char kStatuses[] =
    "Exit status: 0 done (result 1), 2 not enough data after 120 buffers, 3 measurement failed,\n"
    "4 resistor or line input, 5 new headset, 6 input ended first, 7 call refused,\n"
    "8 the picture could not be drawn (the report was written), 1 bad arguments or files.";

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

static bool writeText(const std::string& path, const std::string& text, std::string* error) {
    std::ofstream out(path);
    out << text;
    out.close();
    if (!out.good()) {
        *error = path + ": cannot write the report";
        return false;
    }
    return true;
}

// The reference curve beside this run's, for an identification.
static void addReference(Report& rep) {
    std::vector<double> ohms(kDeviceCurvePoints);
    if (rep.run.record->identified &&
        importCurve(diagnosticsReferenceCurvePath(), ohms.data(), kDeviceCurvePoints) == 0)
        rep.referenceOhms = ohms;
    takeLog();  // the program's own read is not the measurement's
}

static void recordLastRun(const Report& rep) {
    LastRun last;
    last.command = rep.info.command + " " + rep.info.source + " (mode " + rep.info.mode + ")";
    last.source = rep.info.source;
    last.time = timeNow();
    last.result = rep.run.result;
    last.wroteCurve = rep.run.record->haveDeviceCurve;
    if (last.wroteCurve) last.curveDigest = fileDigest(diagnosticsDeviceCurvePath());
    std::string err;
    if (!writeLastRun(lastRunPath(rep.info.storageRoot), last, &err))
        fprintf(stderr, "vandro: warning: %s (vandro default will refuse this run's curve)\n", err.c_str());
}

// Report, JSON and picture for a finished run; returns the exit status.
static int finish(const RunInfo& info, SessionResult run, const std::string& json, const std::string& picture) {
    Report rep = makeReport(info, std::move(run));
    addReference(rep);
    recordLastRun(rep);
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
    if (!json.empty() && !jsonToStdout && !writeText(json, text, &err)) return fail(err);
    int status = exitStatus(rep.run);
    if (!picture.empty()) {
        std::string jsonPath = jsonToStdout || json.empty() ? "" : json;
        char temp[] = "/tmp/vandro-report-XXXXXX";
        if (jsonPath.empty()) {
            const int fd = mkstemp(temp);
            if (fd < 0) return fail("cannot make a temporary file for the picture");
            close(fd);
            jsonPath = temp;
            if (!writeText(jsonPath, text, &err)) return fail(err);
        }
        const std::string why = drawPicture(jsonPath, picture);
        if (jsonPath == temp) unlink(temp);
        if (why.empty()) {
            printf("Plot: %s\n", picture.c_str());
        } else {
            fprintf(stderr, "vandro: the picture could not be drawn: %s\n", why.c_str());
            status = kExitNoPicture;
        }
    }
    return status;
}

static std::vector<int16_t> gReplay;  // the captured samples being replayed
static size_t gReplayAt = 0;

static bool replayNext(int16_t* out) {
    if (gReplayAt + VANDRO_SAMPLES_PER_BUFFER > gReplay.size()) return false;
    std::copy(gReplay.begin() + gReplayAt, gReplay.begin() + gReplayAt + VANDRO_SAMPLES_PER_BUFFER, out);
    gReplayAt += VANDRO_SAMPLES_PER_BUFFER;
    return true;
}

static int storeReference(const std::string& root) {
    LastRun last;
    std::string err;
    if (!readLastRun(lastRunPath(root), &last, &err)) return fail("no reference stored: " + err);
    const std::string run = last.command + " at " + last.time;
    if (!last.wroteCurve)
        return fail("no reference stored: the last run (" + run + ") did not produce a device curve");
    if (fileDigest(diagnosticsDeviceCurvePath()) != last.curveDigest)
        return fail("no reference stored: " + std::string(diagnosticsDeviceCurvePath()) +
                    " was not written by this program's last run (" + run + ")");
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

int main(int argc, char** argv) {
    CLI::App app{"vandro: headset impedance measurement and compensation, on a workstation"};
    app.footer(kStatuses);
    app.require_subcommand(1);
    std::string preset = vsim::defaultPresetName(), mode = "fit", json, png;
    vsim::CaptureOptions options;
    std::vector<std::string> files;
    const CLI::Validator fileName(
        [](std::string& s) { return s.empty() ? std::string("needs a file name") : std::string(); }, "FILE");

    CLI::App* measure = app.add_subcommand("measure", "simulate a load's capture and run the library on it");
    measure->add_option("--preset", preset, "load to simulate (see: vandro presets)")->capture_default_str();
    measure->add_option("--seed", options.seed, "excitation and noise seed")
        ->check(CLI::NonNegativeNumber)->capture_default_str();
    measure->add_option("--level", options.levelDbfs, "drive peak in dBFS")
        ->check(CLI::Range(-120.0, 0.0))->capture_default_str();
    measure->add_option("--snr", options.snrDb, "noise on each channel, dB below its RMS (default: none)")
        ->check(CLI::Range(-60.0, 200.0));
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
    CLI::App* def = app.add_subcommand("default", "make the last measured curve the identification reference");
    CLI::App* list = app.add_subcommand("presets", "list the simulator's loads");
    std::string report, in, out;
    CLI::App* apply = app.add_subcommand("apply", "run an audio file through the five sections of a report");
    apply->add_option("report", report, "a JSON report of a fit")->required()->check(fileName);
    apply->add_option("input", in, "audio file to filter")->required()->check(fileName);
    apply->add_option("output", out, "filtered audio file (format from its extension)")->required()->check(fileName);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return kExitUsage;
    }

    RunInfo info;
    info.storageRoot = diagnosticsStorageRoot();
    info.mode = mode;
    if (*list) {
        for (const vsim::Load& l : vsim::presets()) printf("%-12s %s\n", l.name.c_str(), l.note.c_str());
        return kExitDone;
    }
    if (*apply) return applyReport(report, in, out);
    std::string err;
    if (!prepareStorage(info.storageRoot, &err)) return fail(err);
    if (*def) return storeReference(info.storageRoot);
    SessionResult r;
    if (*measure) {
        vsim::Load load;
        if (!vsim::findPreset(preset, &load, &err)) return fail(err);
        vsim::CaptureStream stream;
        if (!vsim::openCapture(load, options, &stream, &err)) return fail(err);
        info.command = "measure";
        info.source = load.name;
        info.sourceNote = load.note;
        info.simulated = true;
        info.seed = options.seed;
        info.levelDbfs = options.levelDbfs;
        info.snrDb = options.snrDb;
        r = runSession([&](int16_t* b) { vsim::nextBuffer(&stream, b); return true; }, modeNumber(mode), true);
    } else {
        bool ok = files.size() == 1 ? vsim::readWav(files[0], &gReplay, &err)
                                    : vsim::readRawCapture(files[0], files[1], &gReplay, &err);
        if (!ok) return fail(err);
        info.command = "replay";
        info.source = files.size() == 1 ? files[0] : files[0] + " + " + files[1];
        r = runSession(replayNext, modeNumber(mode), true);
    }
    return finish(info, std::move(r), json, png);
}
