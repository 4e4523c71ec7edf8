// SPDX-License-Identifier: Apache-2.0
// vandro: the library's main job on a workstation. Simulated or captured
// buffers go through the library exactly as an audio stack feeds them; the
// report says what the library answered and why, from what this run computed.
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "sim/capture.h"
#include "sim/presets.h"
#include "tools/apply.h"
#include "tools/batch.h"
#include "tools/command.h"
#include "tools/default.h"
#include "tools/interrupt.h"
#include "tools/measure.h"
#include "tools/output_file.h"
#include "tools/report.h"
#include "tools/rig.h"
#include "tools/signal.h"

static const char kStatuses[] =
    "Exit status: 0 done (result 1), 2 not enough data after 120 buffers, 3 measurement failed,\n"
    "4 resistor or line input, 5 new headset, 6 input ended first, 7 call refused,\n"
    "8 the picture could not be drawn (the report was written), 9 an identification rests on a curve file\n"
    "this run could not write or read back, 10 another run holds the storage root (--no-wait),\n"
    "11 rig check marginal, 12 rig check failed, 1 bad arguments or files.";

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

// A capture named by its folder is read from these two files.
static void addFolderFiles(const std::string& path, std::vector<std::string>* inputs) {
    inputs->insert(inputs->end(), {path + "/rawDataI.dat", path + "/rawDataV.dat"});
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
        for (const std::string& c : captures) addFolderFiles(c, &inputs);
        outputs = {{"--csv", batchOptions.csv}};
        if (!batchOptions.jsonl.empty()) outputs.push_back({"--jsonl", batchOptions.jsonl});
    }
    if (!loadFile.empty()) inputs.push_back(loadFile);
    for (const std::string& f : files) addFolderFiles(f, &inputs);
    for (const auto& [option, path] : {std::pair<std::string, std::string>{"--json", json}, {"--plot", png},
                                       {"--save-wav", saveWav}})
        if (!path.empty() && path != "-") outputs.push_back({option, path});
    if (!rawDir.empty())
        outputs.insert(outputs.end(), {{"--save-raw", rawDir + "/rawDataI.dat"}, {"--save-raw", rawDir + "/rawDataV.dat"}});
    if (*rigCommand) {
        if (!rigInputs(&rig, &err)) return fail(err);
        for (const RigCapture& c : rig.captures) inputs.push_back(c.path), addFolderFiles(c.path, &inputs);
        for (const auto& [option, path] : {std::pair<std::string, std::string>{"--json", rig.json}, {"--plot", rig.picture}})
            if (!path.empty() && path != "-") outputs.push_back({option, path});
    }
    if (!distinctOutputs(inputs, outputs, &err)) return fail(err);
    if (*apply) return applyReport(report, in, out);
    if (!prepareStorage(info.storageRoot, &err)) return fail(err);
    if (*def) return storeReference(info.storageRoot, !noWait);
    if (*signal) return writeStimulus(stimulusPath, seconds, options);
    FeedOptions feed;
    feed.random = period == "random";
    feed.periodFrames = feed.random ? 0 : std::stoi(period);
    feed.seed = options.seed;
    for (int f = 0; f < 4; f++)
        if (format == feedFormatName(f)) feed.format = f;
    if (*batch) {
        StorageLock lock;
        if (const int status = takeStorage(&lock, info.storageRoot, !noWait)) return status;
        return runBatch(captures, loads, batchOptions, modeNumber(mode), info);
    }
    if (*rigCommand) {
        StorageLock lock;
        if (const int status = takeStorage(&lock, info.storageRoot, !noWait)) return status;
        rig.feed = feed;
        return runRig(rig);
    }
    CaptureRequest request;
    request.replay = replay->parsed();
    request.preset = preset, request.loadFile = loadFile, request.resistorOhms = resistorOhms, request.files = files;
    request.options = options, request.feed = feed, request.wait = !noWait;
    request.mode = mode, request.json = json, request.picture = png, request.saveWav = saveWav, request.saveRaw = saveRaw;
    return runCapture(request, info);
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
