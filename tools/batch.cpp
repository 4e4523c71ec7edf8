// SPDX-License-Identifier: Apache-2.0
#include "tools/batch.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "sim/audio_io.h"
#include "sim/load_file.h"
#include "tools/coverage.h"
#include "tools/interrupt.h"
#include "tools/provenance.h"
#include "tools/readback.h"

bool openCaptureInput(const std::string& path, CaptureInput* capture, std::string* error) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        const std::string i = path + "/rawDataI.dat", v = path + "/rawDataV.dat";
        if (!std::filesystem::exists(i, ec) || !std::filesystem::exists(v, ec)) {
            *error = path + ": a capture folder must hold rawDataI.dat and rawDataV.dat";
            return false;
        }
        return vsim::readRawCapture(i, v, &capture->samples, error);
    }
    return vsim::openWavStream(path, &capture->wav, error);
}

SessionResult replayCapture(CaptureInput* capture, int mode, bool showProgress, const FeedOptions& feed) {
    return runSession(
        [capture](int16_t* out) {
            if (capture->wav.file != nullptr) return vsim::nextWavBuffer(&capture->wav, out);
            if (capture->at + VANDRO_SAMPLES_PER_BUFFER > capture->samples.size()) return false;
            std::copy(capture->samples.begin() + capture->at, capture->samples.begin() + capture->at + VANDRO_SAMPLES_PER_BUFFER, out);
            capture->at += VANDRO_SAMPLES_PER_BUFFER;
            return true;
        },
        mode, showProgress, feed);
}

std::string csvField(const std::string& s) {
    if (s.find_first_of(",\"\n") == std::string::npos) return s;
    std::string q = "\"";
    for (char c : s) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

static std::string bandsText(const Report& rep) {
    const SessionResult& r = rep.run;
    if (!r.record->haveCoverage || !(r.result == VANDRO_COLLECTING || r.result == VANDRO_NOT_ENOUGH_DATA)) return "";
    std::string text;
    char one[128];
    for (const ShortBand& b : shortBands(r.record->coverage)) {
        snprintf(one, sizeof one, "%s %.1f-%.1f Hz %d/%d", b.path.c_str(), b.fromHz, b.toHz, b.accepted, b.needed);
        text += (text.empty() ? "" : "; ") + std::string(one);
    }
    return text;
}

static void progress(size_t done, size_t total, const std::string& name) {
    if (!progressTerminal()) return;
    const int width = 30, filled = total > 0 ? static_cast<int>(width * done / total) : width;
    fprintf(stderr, "\r\033[K[%s%s] %zu/%zu %s", std::string(filled, '#').c_str(),
            std::string(width - filled, ' ').c_str(), done, total, escapedName(name).c_str());
    if (done == total) fprintf(stderr, "\r\033[K");
}

bool simulateLoad(const vsim::Load& load, const std::string& source, int mode, const vsim::CaptureOptions& options,
                  bool showProgress, RunInfo* info, SessionResult* run, std::string* error, const FeedOptions& feed) {
    vsim::CaptureStream stream;
    if (!vsim::openCapture(load, options, &stream, error)) return false;
    info->command = "measure";
    info->source = source;
    info->sourceNote = load.note;
    info->simulated = true;
    info->seed = options.seed;
    info->offset = stream.report.offset;
    info->levelDbfs = options.levelDbfs;
    info->snrDb = options.snrDb;
    info->rig = options.rig;
    *run = runSession([&](int16_t* b) { vsim::nextBuffer(&stream, b); return true; }, mode, showProgress, feed);
    return true;
}

bool simulateLoadFile(const std::string& path, int mode, const vsim::CaptureOptions& options, bool showProgress,
                      RunInfo* info, SessionResult* run, vsim::Load* load, std::string* error, const FeedOptions& feed) {
    if (!vsim::readLoadFile(path, load, error)) return false;
    if (simulateLoad(*load, path, mode, options, showProgress, info, run, error, feed)) return true;
    *error = path + ": " + *error;
    return false;
}

void addLoadCurve(const vsim::Load& load, Report* report) {
    report->loadHz = load.table.hz;
    for (double f : load.table.hz) report->loadOhms.push_back(std::abs(vsim::impedance(load, f)));
}

// One item of a batch: a capture file or a tabulated load.
struct Item {
    std::string name;
    bool isLoad;
};

// Runs one item into a report; false with the reason it could not run.
static bool runItem(const Item& item, int mode, long offset, const RunInfo& base, Report* rep, std::string* error) {
    RunInfo info = base;
    info.source = item.name;
    SessionResult run;
    vsim::Load load;
    if (item.isLoad) {
        vsim::CaptureOptions simulated;
        simulated.offset = offset;
        if (!simulateLoadFile(item.name, mode, simulated, false, &info, &run, &load, error)) return false;
    } else {
        CaptureInput capture;
        if (!openCaptureInput(item.name, &capture, error)) return false;
        info.command = "replay";
        run = replayCapture(&capture, mode, false);
    }
    if (interruptSignal() != 0) return false;  // cut short: neither read back nor recorded
    *rep = makeReport(info, std::move(run));
    if (item.isLoad) addLoadCurve(load, rep);
    readBackFiles(rep);
    recordLastRun(*rep);
    return true;
}

int runBatch(const std::vector<std::string>& captures, const std::vector<std::string>& loads,
             const BatchOptions& options, int mode, const RunInfo& base) {
    std::vector<Item> items;
    for (const std::string& c : captures) items.push_back({c, false});
    for (const std::string& l : loads) items.push_back({l, true});
    if (items.empty()) {
        fprintf(stderr, "vandro: batch: no captures or loads given\n");
        return kExitUsage;
    }
    if (options.offset >= 0 && !captures.empty()) {
        fprintf(stderr, "vandro: batch: --offset applies to simulated curves (--load), not to captures\n");
        return kExitUsage;
    }
    std::ofstream csv(options.csv);
    if (!csv) {
        fprintf(stderr, "vandro: %s: cannot write\n", options.csv.c_str());
        return kExitUsage;
    }
    std::ofstream jsonl;
    if (!options.jsonl.empty()) {
        jsonl.open(options.jsonl);
        if (!jsonl) {
            fprintf(stderr, "vandro: %s: cannot write\n", options.jsonl.c_str());
            return kExitUsage;
        }
    }
    // Written directly and flushed row by row: an interrupted batch keeps every finished row.
    auto written = [&] {
        csv.flush();
        if (jsonl.is_open()) jsonl.flush();
        const bool ok = csv.good() && (!jsonl.is_open() || jsonl.good());
        if (!ok) fprintf(stderr, "vandro: %s: cannot write\n", (csv.good() ? options.jsonl : options.csv).c_str());
        return ok;
    };
    csv << "file,result,meaning,buffers,headphone_type,reason,clipped_samples,short_bands\n";
    if (!written()) return kExitUsage;
    int status = kExitDone, done = 0;
    for (const Item& item : items) {
        if (interruptSignal() != 0) break;
        progress(done, items.size(), item.name);
        Report rep;
        std::string error;
        int itemStatus;
        const bool ran = runItem(item, mode, options.offset, base, &rep, &error);
        if (interruptSignal() != 0) break;  // the capture was cut short: no row
        if (ran) {
            const DiagnosticRecord& d = *rep.run.record;
            csv << csvField(item.name) << "," << rep.run.result << ","
                << csvField(resultMeaning(rep.run.result, base.mode, rep.run.inputEnded)) << "," << rep.run.buffers
                << "," << (d.searched ? std::to_string(d.headphoneType) : "") << ","
                << csvField(d.reason != nullptr ? d.reason : "") << "," << rep.run.capture.clippedSamples << ","
                << csvField(bandsText(rep)) << "\n";
            if (jsonl.is_open()) jsonl << nlohmann::json::parse(reportJson(rep)).dump() << "\n";
            itemStatus = reportStatus(rep);
        } else {
            csv << csvField(item.name) << ",,error,0,," << csvField(error) << ",,\n";
            if (jsonl.is_open())
                jsonl << nlohmann::json({{"schema", 1},
                                         {"source", {{"name", item.name}, {"name_bytes", escapedName(item.name, true)}}},
                                         {"error", error}})
                             .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                      << "\n";
            itemStatus = kExitUsage;
        }
        if (!written()) return kExitUsage;
        if (status == kExitDone) status = itemStatus;
        done++;
    }
    progress(done, items.size(), "");
    if (interruptSignal() != 0)
        return reportInterrupt("batch stopped after " + std::to_string(done) + " of " + std::to_string(items.size()) +
                               " captures; their rows are in " + options.csv);
    printf("batch: %d run(s); rows in %s\n", done, options.csv.c_str());
    return status;
}
