// SPDX-License-Identifier: Apache-2.0
#include "tools/report.h"

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/coverage.h"

using nlohmann::json;

Report makeReport(const RunInfo& info, SessionResult run) {
    Report rep;
    rep.info = info;
    rep.run = std::move(run);
    const DiagnosticRecord& d = *rep.run.record;
    if (d.haveCoefficients) {
        rep.response = realisedResponse(d.coefficients, d.haveTarget ? d.targetDb : nullptr);
        rep.haveResponse = true;
    }
    return rep;
}

std::string resultMeaning(int result, const std::string& mode, bool inputEnded) {
    if (inputEnded && result == VANDRO_COLLECTING)
        return "the input ended before the library had enough data";
    switch (result) {
        case VANDRO_DONE:
            if (mode == "identify") return "same headset as the stored reference";
            if (mode == "curve") return "device and target curves done";
            return "done: 25 coefficients written";
        case VANDRO_NOT_ENOUGH_DATA: return "not enough data: 120 buffers did not suffice (source has insufficient frequency span)";
        case VANDRO_FAILED: return "the measurement failed";
        case VANDRO_REJECTED_LOAD: return "load rejected: a resistor or a high-impedance line input";
        case VANDRO_NEW_HEADSET: return "new headset: differs from the stored reference";
        default: return "the library refused the call";
    }
}

int exitStatus(const SessionResult& r) {
    if (r.inputEnded && r.result == VANDRO_COLLECTING) return kExitInputEnded;
    if (r.result == VANDRO_DONE) return kExitDone;
    if (r.result >= VANDRO_NOT_ENOUGH_DATA && r.result <= VANDRO_NEW_HEADSET) return r.result;
    return kExitRefused;
}

// Length of the well-formed UTF-8 sequence at s[i] (2 to 4 bytes), or 0.
static size_t utf8Sequence(const std::string& s, size_t i) {
    const unsigned char c = s[i];
    const size_t n = c >= 0xC2 && c <= 0xDF ? 2 : c >= 0xE0 && c <= 0xEF ? 3 : c >= 0xF0 && c <= 0xF4 ? 4 : 0;
    if (n == 0 || i + n > s.size()) return 0;
    const unsigned char c1 = s[i + 1];
    if ((c == 0xE0 && c1 < 0xA0) || (c == 0xED && c1 > 0x9F) || (c == 0xF0 && c1 < 0x90) || (c == 0xF4 && c1 > 0x8F))
        return 0;  // overlong, a surrogate, or beyond U+10FFFF
    for (size_t k = 1; k < n; k++)
        if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return 0;
    return n;
}

std::string escapedName(const std::string& name, bool allBytes) {
    std::string out;
    for (size_t i = 0; i < name.size();) {
        const unsigned char c = name[i];
        const size_t n = c >= 0x80 && !allBytes ? utf8Sequence(name, i) : 0;
        if (n > 0) {
            out += name.substr(i, n);
            i += n;
            continue;
        }
        if (c >= 0x20 && c < 0x7F) {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
        i++;
    }
    return out;
}

int reportStatus(const Report& rep) {
    const bool identify = rep.info.mode == "identify";
    if (identify && rep.curveFile.checked && !rep.curveFile.fromThisRun) return kExitNotThisRunsCurve;
    return exitStatus(rep.run);
}

const char* headphoneTypeName(int type) { return type == 0 ? "concha" : (type == 1 ? "in-ear" : ""); }

static bool unfinished(const SessionResult& r) {
    return r.result == VANDRO_COLLECTING || r.result == VANDRO_NOT_ENOUGH_DATA;
}

static std::string dbfs(double v) {
    if (!std::isfinite(v)) return "silent";
    char s[32];
    snprintf(s, sizeof s, "%.1f dBFS", v);
    return s;
}

static void printCapture(const CaptureCheck& c) {
    printf("Capture: I peak %s, RMS %s; V peak %s, RMS %s; %ld clipped samples\n", dbfs(c.peakDbfs[0]).c_str(),
           dbfs(c.rmsDbfs[0]).c_str(), dbfs(c.peakDbfs[1]).c_str(), dbfs(c.rmsDbfs[1]).c_str(),
           c.clippedSamples);
    if (c.clippedSamples > 0)
        printf("  warning: %ld samples at full scale: the capture clipped, the curve is distorted\n",
               c.clippedSamples);
    if (!c.hint.empty()) printf("  hint: %s\n", c.hint.c_str());
}

// How the capture reached the library: the bursts, and the feed's counters.
static void printFeed(const SessionResult& r) {
    const VandroFeedStatus& f = r.feed;
    const std::string bursts = r.feedOptions.random ? "random bursts of 1..1024 frames (seed " +
                                                          std::to_string(r.feedOptions.seed) + ")"
                                                    : "bursts of " + std::to_string(r.feedOptions.periodFrames) +
                                                          (r.feedOptions.periodFrames == 1 ? " frame" : " frames");
    printf("Feed: %s, %s; %lu frames pushed, %lu dropped, %lu samples clipped in conversion, longest burst %u frames\n",
           bursts.c_str(), feedFormatName(r.feedOptions.format), static_cast<unsigned long>(f.framesPushed),
           static_cast<unsigned long>(f.framesDropped), static_cast<unsigned long>(f.clippedSamples), f.longestPush);
}

static void printCoverage(const DiagnosticRecord& d) {
    if (!d.haveCoverage) return;
    std::vector<ShortBand> bands = shortBands(d.coverage);
    printf("Coverage: %zu band(s) short of data\n", bands.size());
    for (const ShortBand& b : bands)
        printf("  %-9s %8.1f .. %8.1f Hz (%d bins): %d of %d %s\n", b.path.c_str(), b.fromHz, b.toHz, b.bins,
               b.accepted, b.needed, b.path == "full" ? "blocks" : "spectra");
}

static void printCurve(const DiagnosticRecord& d) {
    if (!d.haveDeviceCurve) {
        printf("Device curve: none (this run did not reach it)\n");
        return;
    }
    auto at = [&](double f) {
        int i = 0;
        while (i + 1 < kDeviceCurvePoints && d.curveHz[i + 1] <= f) i++;
        return d.curveOhms[i];
    };
    int lo = 0, hi = 0;
    for (int i = 0; i < kDeviceCurvePoints; i++) {
        if (d.curveOhms[i] < d.curveOhms[lo]) lo = i;
        if (d.curveOhms[i] > d.curveOhms[hi]) hi = i;
    }
    printf("Device curve (%d points, %.0f Hz .. %.1f kHz):\n", kDeviceCurvePoints, d.curveHz[0],
           d.curveHz[kDeviceCurvePoints - 1] / 1000);
    printf("  |Z| at 100 Hz %.2f ohm, at 1 kHz %.2f ohm\n", at(100), at(1000));
    printf("  minimum %.2f ohm at %.0f Hz, maximum %.2f ohm at %.0f Hz\n", d.curveOhms[lo], d.curveHz[lo],
           d.curveOhms[hi], d.curveHz[hi]);
}

static void printSearch(const DiagnosticRecord& d) {
    if (!d.searched) return;
    printf("Headphone type: %s (%d); model gain %.0f\n", headphoneTypeName(d.headphoneType), d.headphoneType,
           d.modelGain);
    printf("Resonances, as the library found them:\n");
    for (int i = 0; i < d.resonances.n; i++)
        printf("  %8.1f Hz   q %7.3f   height %7.3f\n", d.resonances.freq[i], d.resonances.q[i],
               d.resonances.height[i]);
}

static void printCoefficients(const Report& rep) {
    const float* c = rep.run.record->coefficients;
    printf("Coefficients, one section per row (48 kHz; a0 = 1):\n");
    printf("             b0            b1            b2            a1            a2\n");
    for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) {
        printf("  %d", k);
        for (int i = 0; i < VANDRO_COEFS_PER_SECTION; i++) printf("  %12.8f", c[VANDRO_COEFS_PER_SECTION * k + i]);
        printf("\n");
    }
    const Response& r = rep.response;
    if (r.compared)
        printf("Realised cascade vs target, 20 Hz .. 20 kHz: RMS %.3f dB, largest %.3f dB at %.0f Hz "
               "(level offset %.2f dB removed)\n",
               r.rmsDb, r.maxDb, r.maxAtHz, r.levelOffsetDb);
}

// The curve files that exist now, by name.
// The curve files this run wrote and read back, or compared with.
static std::string curveFilesText(const Report& rep) {
    std::string list;
    if (rep.curveFile.fromThisRun) list = "device_impedance.dat (this run's curve, read back)";
    if (!rep.referenceOhms.empty())
        list += (list.empty() ? "" : ", ") + std::string("default_device_impedance.dat (the reference compared with)");
    return list.empty() ? "none from this run" : list;
}

void printReport(const Report& rep) {
    const RunInfo& info = rep.info;
    const SessionResult& r = rep.run;
    const DiagnosticRecord& d = *r.record;
    printf("vandro %s: %s, mode %s\n", info.command.c_str(), escapedName(info.source).c_str(), info.mode.c_str());
    if (!info.sourceNote.empty()) printf("  %s\n", info.sourceNote.c_str());
    if (info.simulated)
        printf("  seed %lu, start offset %ld frames, level %.1f dBFS, %s\n", info.seed, info.offset, info.levelDbfs,
               std::isinf(info.snrDb) ? "no noise" : ("SNR " + std::to_string(info.snrDb) + " dB").c_str());
    if (info.simulated && vsim::impaired(info.rig)) printf("  capture path: %s\n", vsim::describe(info.rig).c_str());
    printCapture(r.capture);
    printFeed(r);
    printf("Result %d: %s\n", r.result, resultMeaning(r.result, info.mode, r.inputEnded).c_str());
    // One wording: how many the library took, and which of them answered.
    const int n = r.buffers, tens = n % 100;
    const char* th = tens >= 11 && tens <= 13 ? "th" : n % 10 == 1 ? "st" : n % 10 == 2 ? "nd" : n % 10 == 3 ? "rd" : "th";
    if (r.result != VANDRO_COLLECTING && n > 0)
        printf("Buffers: %d fed; the %d%s returned %d\n", n, n, th, r.result);
    else
        printf("Buffers: %d fed; the input ended before the library answered\n", n);
    if (d.reason != nullptr) printf("Reason: %s\n", d.reason);
    for (const LogLine& l : r.log)
        if (l.priority >= 6 || l.text == "New Headset Detected") printf("  library: %s\n", l.text.c_str());
    if (unfinished(r)) printCoverage(d);
    printCurve(d);
    printSearch(d);
    if (d.identified) {
        char correlation[32] = "not a number";
        if (std::isfinite(d.correlation)) snprintf(correlation, sizeof correlation, "%.4f", d.correlation);
        printf("Identification: correlation %s, threshold %.2f: %s%s%s\n", correlation, d.sameHeadsetThreshold,
               r.result == VANDRO_DONE ? "same headset" : "new headset",
               std::isfinite(d.correlation) ? "" : ", because the library counts a correlation that is not a number as the same headset",
               rep.curveFile.fromThisRun ? "" : ", against a curve file that is not this run's");
    }
    if (d.haveCoefficients) printCoefficients(rep);
    for (const std::string& w : rep.warnings) printf("Warning: %s\n", w.c_str());
    printf("Curve files: %s/data: %s\n", info.storageRoot.c_str(), curveFilesText(rep).c_str());
}

// A number, or null when it is not finite (the caller says why beside it).
static json number(double v) { return std::isfinite(v) ? json(v) : json(nullptr); }

static json numbers(const double* v, int n, bool* anyNull) {
    json a = json::array();
    for (int i = 0; i < n; i++) {
        a.push_back(number(v[i]));
        if (!std::isfinite(v[i])) *anyNull = true;
    }
    return a;
}

static json captureJson(const CaptureCheck& c) {
    json j = {{"peak_dbfs", {number(c.peakDbfs[0]), number(c.peakDbfs[1])}},
              {"rms_dbfs", {number(c.rmsDbfs[0]), number(c.rmsDbfs[1])}},
              {"clipped_samples", c.clippedSamples},
              {"checks", json::array()},
              {"hint", c.hint.empty() ? json(nullptr) : json(c.hint)}};
    const std::pair<int, const char*> kChecks[] = {
        {VANDRO_FEED_CHECK_I_SILENT, "i_silent"}, {VANDRO_FEED_CHECK_V_SILENT, "v_silent"}, {VANDRO_FEED_CHECK_SWAPPED, "swapped"}};
    for (const auto& [flag, name] : kChecks)
        if (c.checks & flag) j["checks"].push_back(name);
    if (!std::isfinite(c.rmsDbfs[0]) || !std::isfinite(c.rmsDbfs[1]))
        j["null_because"] = "a silent channel has no level in dBFS";
    return j;
}

static json coverageJson(const DiagnosticRecord& d) {
    json a = json::array();
    for (const ShortBand& b : shortBands(d.coverage))
        a.push_back({{"path", b.path}, {"from_hz", b.fromHz}, {"to_hz", b.toHz}, {"accepted", b.accepted},
                     {"needed", b.needed}, {"bins", b.bins}});
    return a;
}

static json curveJson(const DiagnosticRecord& d) {
    if (!d.haveDeviceCurve) return nullptr;
    bool anyNull = false;
    json j = {{"freq_hz", numbers(d.curveHz, kDeviceCurvePoints, &anyNull)},
              {"ohms", numbers(d.curveOhms, kDeviceCurvePoints, &anyNull)}};
    if (anyNull) j["null_because"] = "the library's smoothing gave values that are not finite";
    return j;
}

static json targetJson(const DiagnosticRecord& d) {
    if (!d.haveTarget) return nullptr;
    std::vector<double> hz(kTargetCurveBins);
    for (int k = 0; k < kTargetCurveBins; k++) hz[k] = targetBinHz(k);
    bool anyNull = false;
    json j = {{"freq_hz", hz}, {"db", numbers(d.targetDb, kTargetCurveBins, &anyNull)}};
    if (anyNull) j["null_because"] = "the model gave values that are not finite";
    return j;
}

std::string reportJson(const Report& rep) {
    const RunInfo& info = rep.info;
    const SessionResult& r = rep.run;
    const DiagnosticRecord& d = *r.record;
    json j;
    j["schema"] = 1;
    j["command"] = info.command;
    j["source"] = {{"name", info.source}, {"name_bytes", escapedName(info.source, true)},
                   {"note", info.sourceNote}, {"simulated", info.simulated}};
    if (info.simulated) {
        j["source"]["seed"] = info.seed;
        j["source"]["offset"] = info.offset;
        j["source"]["level_dbfs"] = info.levelDbfs;
        j["source"]["snr_db"] = number(info.snrDb);
        const vsim::RigImpairments& rig = info.rig;
        j["source"]["capture_path"] = {{"sense_ohms", rig.senseOhms},
                                       {"gain_db", {rig.gainDb[0], rig.gainDb[1]}},
                                       {"tilt_db_per_octave", {rig.tiltDbPerOctave[0], rig.tiltDbPerOctave[1]}},
                                       {"delay_frames", rig.delayFrames},
                                       {"dc", {rig.dc[0], rig.dc[1]}},
                                       {"hum_dbfs", number(rig.humDbfs)},
                                       {"hum_hz", rig.humHz},
                                       {"loading_ohms", number(rig.loadingOhms)}};
    }
    j["mode"] = info.mode;
    j["result"] = r.result;
    j["result_meaning"] = resultMeaning(r.result, info.mode, r.inputEnded);
    j["exit_status"] = reportStatus(rep);
    j["warnings"] = rep.warnings;
    j["reason"] = d.reason != nullptr ? json(d.reason) : json(nullptr);
    j["buffers"] = r.buffers;
    j["storage_root"] = info.storageRoot;
    j["capture"] = captureJson(r.capture);
    const VandroFeedStatus& f = r.feed;
    j["feed"] = {{"period_frames", r.feedOptions.random ? json("random") : json(r.feedOptions.periodFrames)},
                 {"seed", r.feedOptions.seed},
                 {"format", feedFormatName(r.feedOptions.format)},
                 {"buffers_handed", f.buffersHanded},
                 {"buffers_processed", f.buffersProcessed},
                 {"frames_pushed", f.framesPushed},
                 {"frames_dropped", f.framesDropped},
                 {"clipped_samples", f.clippedSamples},
                 {"longest_push_frames", f.longestPush}};
    j["coverage"] = unfinished(r) && d.haveCoverage ? coverageJson(d) : json::array();
    j["log"] = json::array();
    for (const LogLine& l : r.log) j["log"].push_back({{"priority", l.priority}, {"tag", l.tag}, {"text", l.text}});
    j["device_curve"] = curveJson(d);
    j["headphone_type"] = d.searched ? json(d.headphoneType) : json(nullptr);
    j["headphone_type_name"] = d.searched ? json(headphoneTypeName(d.headphoneType)) : json(nullptr);
    j["model_gain"] = d.searched ? number(d.modelGain) : json(nullptr);
    j["resonances"] = json::array();
    for (int i = 0; d.searched && i < d.resonances.n; i++)
        j["resonances"].push_back({{"freq_hz", number(d.resonances.freq[i])}, {"q", number(d.resonances.q[i])},
                                   {"height", number(d.resonances.height[i])}});
    j["target_curve"] = targetJson(d);
    j["load_curve"] = nullptr;
    if (!rep.loadHz.empty()) j["load_curve"] = {{"freq_hz", rep.loadHz}, {"ohms", rep.loadOhms}};
    j["reference_curve"] = nullptr;
    if (!rep.referenceOhms.empty()) {
        bool anyNull = false;
        j["reference_curve"] = {{"freq_hz", numbers(d.curveHz, kDeviceCurvePoints, &anyNull)},
                                {"ohms", numbers(rep.referenceOhms.data(), kDeviceCurvePoints, &anyNull)}};
        if (anyNull) j["reference_curve"]["null_because"] = "the reference curve file holds values that are not numbers";
    }
    j["curve_file"] = nullptr;
    if (rep.curveFile.checked)
        j["curve_file"] = {{"path", diagnosticsDeviceCurvePath()},
                           {"from_this_run", rep.curveFile.fromThisRun},
                           {"problem", rep.curveFile.fromThisRun ? json(nullptr) : json(rep.curveFile.problem)}};
    j["identification"] = nullptr;
    if (d.identified)
    {
        j["identification"] = {{"correlation", number(d.correlation)},
                               {"threshold", d.sameHeadsetThreshold},
                               {"same", r.result == VANDRO_DONE},
                               {"curve_from_this_run", rep.curveFile.fromThisRun}};
        if (!rep.identificationNullBecause.empty()) j["identification"]["null_because"] = rep.identificationNullBecause;
    }
    j["coefficients"] = nullptr;
    j["coefficient_order"] = {"b0", "b1", "b2", "a1", "a2"};
    j["sample_rate_hz"] = VANDRO_DESIGN_RATE_HZ;
    j["realised"] = nullptr;
    j["deviation"] = nullptr;
    if (d.haveCoefficients) {
        json rows = json::array();
        for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) {
            const float* s = d.coefficients + VANDRO_COEFS_PER_SECTION * k;
            rows.push_back(std::vector<float>(s, s + VANDRO_COEFS_PER_SECTION));  // as returned
        }
        j["coefficients"] = rows;
        const Response& resp = rep.response;
        j["realised"] = {{"freq_hz", resp.freqHz}, {"db", resp.db}, {"sections_db", resp.sectionsDb}};
        if (resp.compared)
            j["deviation"] = {{"rms_db", resp.rmsDb}, {"max_db", resp.maxDb}, {"max_at_hz", resp.maxAtHz},
                              {"level_offset_db", resp.levelOffsetDb}};
    }
    return j.dump(1, ' ', false, json::error_handler_t::replace) + "\n";  // bytes that are not UTF-8: U+FFFD
}
