// vandro: the library's main job on a workstation. Simulated or captured
// buffers go through libvandro.so exactly as an audio stack feeds them; the
// report says what the library answered and why.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "tools/apply.h"
#include "tools/diagnosis.h"
#include "tools/report.h"
#include "tools/session.h"

static const char kStatuses[] =
    "Exit status: 0 done (result 1), 2 not enough data after 120 buffers, 3 measurement failed,\n"
    "4 resistor or line input, 5 new headset, 6 input ended first, 7 call refused,\n"
    "1 bad arguments or files.";

static int modeNumber(const std::string& mode) { return mode == "identify" ? 1 : (mode == "curve" ? 2 : 0); }

// The library makes its directories with its historical mode (666 decimal),
// which leaves them unusable for anyone but root; made here first, usable.
static void prepareStorage() {
    std::string root = VANDRO_STORAGE_ROOT;
    std::string cmd = "mkdir -p '" + root + "/data' '" + root + "/debug'";
    if (system(cmd.c_str()) != 0) fprintf(stderr, "vandro: cannot create %s\n", root.c_str());
}

static int fail(const std::string& message) {
    fprintf(stderr, "vandro: %s\n", message.c_str());
    return 1;
}

// Renders the JSON report with matplotlib.
static int plot(const std::string& json, const std::string& png) {
    std::string cmd = "'" VANDRO_PYTHON "' '" VANDRO_PLOT_SCRIPT "' '" + json + "' '" + png + "'";
    int rc = system(cmd.c_str());
    if (rc != 0) fprintf(stderr, "vandro: no plot written (%s)\n", png.c_str());
    return rc;
}

// Report, JSON and plot for a finished run; returns the exit status.
static int finish(RunInfo& info, const SessionResult& r, const std::string& json, const std::string& png) {
    const bool classified = r.result != 4 && r.result != 0 && r.result != 2;
    Diagnosis d = diagnose(info.storageRoot + "/data/device_impedance.dat", classified,
                           r.result == 1 && info.mode == "fit" ? r.coefficients : nullptr);
    takeLog();  // the diagnosis's own calls are not the measurement's
    printReport(info, r, d);
    std::string jsonPath = json;
    if (jsonPath.empty() && !png.empty()) jsonPath = png + ".json";
    std::string err;
    if (!jsonPath.empty() && !writeJson(jsonPath, info, r, d, &err)) return fail(err);
    if (!png.empty() && plot(jsonPath, png) == 0) printf("Plot: %s\n", png.c_str());
    return exitStatus(r);
}

static std::vector<int16_t> gReplay;  // the captured samples being replayed
static size_t gReplayAt = 0;

static bool replayNext(int16_t* out) {
    if (gReplayAt + vsim::kValuesPerBuffer > gReplay.size()) return false;
    std::copy(gReplay.begin() + gReplayAt, gReplay.begin() + gReplayAt + vsim::kValuesPerBuffer, out);
    gReplayAt += vsim::kValuesPerBuffer;
    return true;
}

int main(int argc, char** argv) {
    CLI::App app{"vandro: headset impedance measurement and compensation, on a workstation"};
    app.footer(kStatuses);
    app.require_subcommand(1);
    std::string preset = vsim::defaultPresetName(), mode = "fit", json, png;
    vsim::CaptureOptions options;
    std::vector<std::string> files;

    CLI::App* measure = app.add_subcommand("measure", "simulate a load's capture and run the library on it");
    measure->add_option("--preset", preset, "load to simulate (see: vandro presets)")->capture_default_str();
    measure->add_option("--seed", options.seed, "excitation and noise seed")->capture_default_str();
    measure->add_option("--level", options.levelDbfs, "drive peak in dBFS")->capture_default_str();
    measure->add_option("--snr", options.snrDb, "noise on each channel, dB below its RMS (default: none)");
    CLI::App* replay = app.add_subcommand("replay", "run the library on captured data: FILE.wav, or rawDataI.dat rawDataV.dat");
    replay->add_option("files", files, "a 2-channel 16-bit 44.1 kHz WAV (I, V), or the two raw-capture files")
        ->required()->expected(1, 2);
    for (CLI::App* c : {measure, replay}) {
        c->add_option("--mode", mode, "fit, identify or curve")
            ->check(CLI::IsMember({"fit", "identify", "curve"}))->capture_default_str();
        c->add_option("--json", json, "write the report as JSON");
        c->add_option("--plot", png, "draw the curves into a PNG (needs python3-matplotlib)");
    }
    CLI::App* def = app.add_subcommand("default", "make the last measured curve the identification reference");
    CLI::App* list = app.add_subcommand("presets", "list the simulator's loads");
    std::string report, in, out;
    CLI::App* apply = app.add_subcommand("apply", "run an audio file through the five sections of a report");
    apply->add_option("report", report, "a JSON report of a fit")->required();
    apply->add_option("input", in, "audio file to filter")->required();
    apply->add_option("output", out, "filtered audio file")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return 1;
    }

    RunInfo info;
    info.storageRoot = VANDRO_STORAGE_ROOT;
    info.mode = mode;
    if (*list) {
        for (const vsim::Load& l : vsim::presets()) printf("%-12s %s\n", l.name.c_str(), l.note.c_str());
        return 0;
    }
    if (*apply) return applyReport(report, in, out);
    prepareStorage();
    if (*def) {
        SessionResult r = storeDefault();
        for (const LoggedLine& l : r.log)
            if (l.priority >= 6) printf("  library: %s\n", l.text.c_str());
        if (r.result != 0) return fail("no reference stored: measure a headset first (VandroDefault " +
                                       std::to_string(r.result) + ")");
        printf("Reference stored: %s/data/default_device_impedance.dat\n", info.storageRoot.c_str());
        return 0;
    }
    std::string err;
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
        info.clippedSamples = stream.report.clippedSamples;
    } else {
        bool ok = files.size() == 1 ? vsim::readWav(files[0], &gReplay, &err)
                                    : vsim::readRawCapture(files[0], files[1], &gReplay, &err);
        if (!ok) return fail(err);
        info.command = "replay";
        info.source = files.size() == 1 ? files[0] : files[0] + " + " + files[1];
        r = runSession(replayNext, modeNumber(mode), true);
    }
    return finish(info, r, json, png);
}
