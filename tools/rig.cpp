// SPDX-License-Identifier: Apache-2.0
#include "tools/rig.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "engine/diagnostics.h"
#include "tools/batch.h"
#include "tools/command.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/plot.h"
#include "tools/report.h"
#include "tools/rig_signal.h"

using nlohmann::json;

// Where the rig's verdict draws its lines.
static const double kReferenceHz = 1000.0;     // the sense resistance is read here
static const double kSenseShare = 0.02;        // further from the assumed sense resistor: marginal
static const double kBandMarginDb = 6.0;       // a band this close to its thresholds: marginal
static const double kSwapContrast = 1.1;       // a resistor this far from the sense resistor tells a swap
static const double kLoadingMaxOhms = 1e6;     // a fitted input resistance above this is no loading

enum Verdict { kPass, kMarginal, kFail };
static const char* const kVerdictNames[] = {"pass", "marginal", "fail"};

struct RigItem {
    std::string item;
    Verdict verdict;
    std::string line;
};

struct RigBand {
    std::string path, name;
    double fromHz = 0, toHz = 0;
    double levelDb = NAN;    // the weakest bin's level above its thresholds
    bool accepted = true;    // every bin reached what the library needs
};

struct CaptureResult {
    RigCapture capture;
    SessionResult run;
    bool haveCurve = false;
    std::vector<double> hz, ohms, mismatchDb;
    double ohmsAtReference = NAN, senseOhms = NAN, mismatchMaxDb = NAN, mismatchMaxHz = NAN;
    bool haveTest = false;
    double ripple = NAN, allowance = NAN, margin = NAN;
    std::vector<RigBand> bands;
    int weakest = -1;
    Disturbances dist;
    bool swapped = false, swapTellable = false;
    std::vector<RigItem> items;
    Verdict verdict = kPass;
};

// The inputs' loading, from two or more resistors.
struct LoadingFit {
    bool done = false;
    bool readingsFall = false;  // a larger resistor read lower: swapped inputs read S^2 / R
    int captures = 0, values = 0;
    double senseOhms = NAN, inputOhms = NAN, residualOhms = NAN;
};

static std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
static std::string format(const char* fmt, ...) {
    char text[512];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    return text;
}

static std::string hzText(double hz) { return hz < 1000 ? format("%.0f Hz", hz) : format("%.1f kHz", hz / 1000); }

static std::string rangeText(double from, double to) {
    if (to < 1000) return format("%.0f-%.0f Hz", from, to);
    if (from >= 1000) return format("%.1f-%.1f kHz", from / 1000, to / 1000);
    return hzText(from) + "-" + hzText(to);
}

// The bands the check reports: each analysis path cut at round frequencies.
static std::vector<RigBand> bandsOf(const CoverageRecord& c) {
    struct Cut {
        bool decimated;
        double lo, hi;
    };
    static const Cut cuts[] = {{true, 0, 100},     {true, 100, 300},     {true, 300, 1e9},     {false, 0, 1000},
                               {false, 1000, 2000}, {false, 2000, 4000}, {false, 4000, 8000}, {false, 8000, 1e9}};
    std::vector<RigBand> bands;
    for (const Cut& cut : cuts) {
        RigBand b;
        b.path = cut.decimated ? "decimated" : "full-rate";
        bool any = false;
        const int first = cut.decimated ? c.decFirst : 0, last = cut.decimated ? c.decLast : kFullBins - 1;
        for (int k = first; k <= last; k++) {
            const double hz = cut.decimated ? c.decHz[k] : c.fullHz[k];
            if (hz < cut.lo || hz >= cut.hi) continue;
            const double level = cut.decimated ? c.decHeadroomDb[k] : c.fullHeadroomDb[k];
            const int count = cut.decimated ? c.decCounts[k] : c.fullCounts[k];
            if (!any) b.fromHz = hz;
            b.toHz = hz;
            any = true;
            if (count < (cut.decimated ? c.decNeeded : c.fullNeeded)) b.accepted = false;
            if (std::isfinite(level) && !(level >= b.levelDb)) b.levelDb = level;  // the weakest bin that took any
        }
        if (!any) continue;
        b.name = b.path + " " + rangeText(b.fromHz, b.toHz);
        bands.push_back(b);
    }
    return bands;
}

// The curve's value at hz, linear in log f between its neighbours.
static double valueAt(const std::vector<double>& hz, const std::vector<double>& v, double at) {
    for (size_t i = 0; i + 1 < hz.size(); i++)
        if (hz[i] <= at && at <= hz[i + 1]) {
            const double t = log(at / hz[i]) / log(hz[i + 1] / hz[i]);
            return v[i] + t * (v[i + 1] - v[i]);
        }
    return NAN;
}

static void readCurve(CaptureResult* r) {
    const DiagnosticRecord& d = *r->run.record;
    r->haveCurve = d.haveDeviceCurve;
    if (!r->haveCurve) return;
    r->hz.assign(d.curveHz, d.curveHz + kDeviceCurvePoints);
    r->ohms.assign(d.curveOhms, d.curveOhms + kDeviceCurvePoints);
    r->ohmsAtReference = valueAt(r->hz, r->ohms, kReferenceHz);
    // The curve is S x I / V with S the sense resistor it assumes: the real one is S x known / reading.
    r->senseOhms = diagnosticsCurveOhmsPerRatio() * r->capture.knownOhms / r->ohmsAtReference;
    r->mismatchMaxDb = 0;
    for (size_t i = 0; i < r->ohms.size(); i++) {
        r->mismatchDb.push_back(20 * log10(r->ohms[i] / r->ohmsAtReference));
        if (!(fabs(r->mismatchDb[i]) <= fabs(r->mismatchMaxDb))) r->mismatchMaxDb = r->mismatchDb[i], r->mismatchMaxHz = r->hz[i];
    }
    // Swapped inputs read S^2 / R instead of R; only a resistor away from S tells them apart.
    const double s = diagnosticsCurveOhmsPerRatio(), known = r->capture.knownOhms;
    r->swapTellable = fabs(log(known / s)) > log(kSwapContrast);
    r->swapped = r->swapTellable && fabs(log(r->ohmsAtReference * known / (s * s))) < fabs(log(r->ohmsAtReference / known));
    r->haveTest = d.haveResistorTest;
    if (r->haveTest) {
        r->ripple = d.resistorTest.ripple;
        r->allowance = d.resistorTest.allowance;
        r->margin = r->allowance - r->ripple;
    }
}

static void add(CaptureResult* r, const std::string& item, Verdict v, const std::string& line) {
    r->items.push_back({item, v, line});
    if (v > r->verdict) r->verdict = v;
}

static void judgeCurve(CaptureResult* r) {
    const double known = r->capture.knownOhms;
    if (!r->haveCurve) {
        add(r, "curve", kFail, "the library built no device curve (result " + std::to_string(r->run.result) + ": " +
                                   resultMeaning(r->run.result, "curve", r->run.inputEnded) + ")");
        return;
    }
    const long broken = std::count_if(r->ohms.begin(), r->ohms.end(), [](double v) { return !std::isfinite(v); });
    if (broken > 0 || !std::isfinite(r->senseOhms)) {
        add(r, "curve", kFail, format("%ld of the curve's %zu points are not numbers (the library's smoothing overflows "
                                      "at high impedance): nothing can be read from it", broken, r->ohms.size()));
        r->senseOhms = r->mismatchMaxDb = r->margin = NAN;
        return;
    }
    if (r->haveTest) {
        const Verdict v = r->margin < 0 ? kFail : (r->margin < r->allowance / 2 ? kMarginal : kPass);
        add(r, "resistor test", v,
            format("ripple %.3f ohm over the points the test reads, allowance %.3f ohm: margin %.3f ohm%s", r->ripple,
                   r->allowance, r->margin,
                   v == kFail ? format(" (the library would not call this %g ohm resistor a resistor)", known).c_str()
                              : (v == kMarginal ? " (under half the allowance)" : "")));
    }
    const double s = diagnosticsCurveOhmsPerRatio();
    add(r, "sense resistor", fabs(r->senseOhms / s - 1) > kSenseShare ? kMarginal : kPass,
        format("effective %.3f ohm (%+.2f %% from %.0f ohm): the curve reads %.3f ohm at 1 kHz for %g ohm; "
               "%s",
               r->senseOhms, 100 * (r->senseOhms / s - 1), s, r->ohmsAtReference, known,
               r->swapped ? "meaningless while the inputs are swapped" : "a flat gain mismatch between the inputs is folded in"));
    add(r, "gain mismatch", kPass,
        format("largest %+.3f dB at %s relative to 1 kHz (its cost shows in the resistor test)", r->mismatchMaxDb,
               hzText(r->mismatchMaxHz).c_str()));
}

// Whether band a is weaker than b: a band not accepted, else the lower level.
static bool weaker(const RigBand& a, const RigBand& b) {
    return (!a.accepted && b.accepted) || (a.accepted == b.accepted && a.levelDb < b.levelDb);
}

static void judgeBands(CaptureResult* r) {
    if (!r->run.record->haveCoverage) return;
    r->bands = bandsOf(r->run.record->coverage);
    for (size_t b = 0; b < r->bands.size(); b++) {
        const RigBand& band = r->bands[b];
        if (r->weakest < 0 || weaker(band, r->bands[r->weakest])) r->weakest = static_cast<int>(b);
    }
    if (r->weakest < 0) return;
    const RigBand& w = r->bands[r->weakest];
    if (!w.accepted)
        add(r, "bands", kFail, "the " + w.name + " band's bins were not all accepted");
    else
        add(r, "bands", w.levelDb < kBandMarginDb ? kMarginal : kPass,
            format("weakest: %s, %.1f dB above its acceptance thresholds", w.name.c_str(), w.levelDb));
}

static void judgeInputs(CaptureResult* r) {
    const CaptureCheck& c = r->run.capture;
    const Disturbances& d = r->dist;
    if (c.checks & VANDRO_FEED_CHECK_I_SILENT) add(r, "inputs", kFail, "the I input is silent");
    if (c.checks & VANDRO_FEED_CHECK_V_SILENT) add(r, "inputs", kFail, "the V input is silent");
    if (r->swapped)
        add(r, "inputs", kFail,
            format("swapped (or not a %g ohm resistor): the curve reads %.2f ohm at 1 kHz, nearer the %.2f ohm a swap gives",
                   r->capture.knownOhms,
                   r->ohmsAtReference, pow(diagnosticsCurveOhmsPerRatio(), 2) / r->capture.knownOhms));
    else if (r->haveCurve && !r->swapTellable)
        add(r, "inputs", kPass, format("a swap cannot be told with %g ohm (too close to the sense resistor)", r->capture.knownOhms));
    if (d.alike && d.correlation < 0)
        add(r, "inputs", kPass, "one input is inverted (the library reads magnitudes only)");
    const bool said = std::any_of(r->items.begin(), r->items.end(), [](const RigItem& i) { return i.item == "inputs"; });
    if (!said && d.alike) add(r, "inputs", kPass, "both carry the same waveform, in the right order and polarity");
    for (int ch = 0; ch < 2; ch++)
        if (d.clippedRuns[ch] > 0)
            add(r, "clipping", kFail, format("the %s input clipped: %ld runs at full scale", ch == 0 ? "I" : "V", d.clippedRuns[ch]));
}

// A level per input, "none" where an input shows none.
static std::string pair(const double* v, const char* unit) {
    const auto one = [unit](double x) { return std::isfinite(x) ? format("%.1f %s", x, unit) : std::string("none"); };
    return "I " + one(v[0]) + ", V " + one(v[1]);
}

// Disturbances that reach the library's decisions only through the margin and the band levels.
static void describeDisturbances(CaptureResult* r) {
    const Disturbances& d = r->dist;
    if (d.periods == 0) {
        add(r, "noise", kPass, format("not measured: the capture is shorter than one stimulus period (%ld frames)",
                                      stimulusPeriodFrames()));
    } else {
        size_t worst = 0;
        for (size_t b = 0; b < d.noiseDbfs.size(); b++)
            if (std::fmax(d.noiseDbfs[b][0], d.noiseDbfs[b][1]) > std::fmax(d.noiseDbfs[worst][0], d.noiseDbfs[worst][1]))
                worst = b;
        if (!r->bands.empty())
            add(r, "noise", kPass, "loudest in the " + r->bands[worst].name + " band: " + pair(d.noiseDbfs[worst].data(), "dBFS"));
        std::string lines;
        for (const HumLine& h : d.hum) lines += format("%s%.0f Hz: ", lines.empty() ? "" : "; ", h.hz) + pair(h.dbfs, "dBFS");
        add(r, "hum", kPass, d.hum.empty() ? "none found" : format("%.0f Hz mains: ", d.mainsHz) + lines);
    }
    const double dcPercent[2] = {100 * d.dc[0], 100 * d.dc[1]};
    add(r, "dc", kPass, format("I %+.3f %%, V %+.3f %% of full scale", dcPercent[0], dcPercent[1]));
    add(r, "delay", kPass,
        d.alike ? format("V lags I by %+.2f frames (%.1f us; the library reads magnitudes only)", d.delayFrames,
                         1e6 * d.delayFrames / VANDRO_CAPTURE_RATE_HZ)
                : "not measured: the inputs do not carry the same waveform");
}

static CaptureResult checkCapture(const RigCapture& capture, SessionResult run) {
    CaptureResult r;
    r.capture = capture;
    r.run = std::move(run);
    readCurve(&r);
    judgeCurve(&r);
    judgeBands(&r);
    std::vector<SignalBand> bands;
    for (const RigBand& b : r.bands) bands.push_back({b.fromHz, b.toHz});
    r.dist = measureDisturbances(r.run.fed, bands);
    judgeInputs(&r);
    describeDisturbances(&r);
    return r;
}

// 1 / reading = (Rs / S) (1 / R + 1 / Rin): a straight line in 1 / R, fitted over the captures.
static LoadingFit fitLoading(const std::vector<CaptureResult>& results) {
    LoadingFit f;
    std::vector<double> x, y;
    for (const CaptureResult& r : results)
        if (r.haveCurve && std::isfinite(r.senseOhms) && r.ohmsAtReference > 0) {
            if (std::find(x.begin(), x.end(), 1 / r.capture.knownOhms) == x.end()) f.values++;
            x.push_back(1 / r.capture.knownOhms), y.push_back(1 / r.ohmsAtReference);
        }
    f.captures = static_cast<int>(x.size());
    if (f.values < 2) return f;
    double mx = 0, my = 0, sxx = 0, sxy = 0;
    for (size_t i = 0; i < x.size(); i++) mx += x[i] / x.size(), my += y[i] / x.size();
    for (size_t i = 0; i < x.size(); i++) sxx += (x[i] - mx) * (x[i] - mx), sxy += (x[i] - mx) * (y[i] - my);
    const double a = sxy / sxx, b = my - a * mx, s = diagnosticsCurveOhmsPerRatio();
    f.readingsFall = !(a > 0);
    if (f.readingsFall) return f;
    f.done = true;
    f.senseOhms = s * a;
    f.inputOhms = b > 0 && a / b < kLoadingMaxOhms ? a / b : INFINITY;
    double sq = 0;
    for (size_t i = 0; i < x.size(); i++) {
        const double fitted = 1 / (a * x[i] + b);
        sq += (fitted - 1 / y[i]) * (fitted - 1 / y[i]);
    }
    f.residualOhms = sqrt(sq / x.size());
    return f;
}

static json number(double v) { return std::isfinite(v) ? json(v) : json(nullptr); }

static json numbers(const std::vector<double>& v) {
    json j = json::array();
    for (double x : v) j.push_back(number(x));
    return j;
}

static json itemsJson(const std::vector<RigItem>& items, int capture) {
    json j = json::array();
    for (const RigItem& i : items) {
        json one = {{"item", i.item}, {"verdict", kVerdictNames[i.verdict]}, {"line", i.line}};
        if (capture >= 0) one["capture"] = capture;
        j.push_back(one);
    }
    return j;
}

static json captureJson(const CaptureResult& r) {
    const Disturbances& d = r.dist;
    json bands = json::array();
    for (size_t b = 0; b < r.bands.size(); b++) {
        const RigBand& x = r.bands[b];
        bands.push_back({{"name", x.name}, {"path", x.path}, {"from_hz", x.fromHz}, {"to_hz", x.toHz},
                         {"level_db", number(x.levelDb)}, {"accepted", x.accepted},
                         {"noise_dbfs", b < d.noiseDbfs.size() ? numbers(d.noiseDbfs[b]) : json(nullptr)}});
    }
    json hum = json::array();
    for (const HumLine& h : d.hum) hum.push_back({{"hz", h.hz}, {"dbfs", {number(h.dbfs[0]), number(h.dbfs[1])}}});
    json deviation = json::array(), testHz = json::array();
    for (size_t i = 0; i < r.ohms.size(); i++) {
        deviation.push_back(number(r.ohms[i] - r.capture.knownOhms));
        if (r.haveTest && r.run.record->resistorTest.reads[i]) testHz.push_back(r.hz[i]);
    }
    json j = {{"source", {{"name", r.capture.path}, {"name_bytes", escapedName(r.capture.path, true)}}},
              {"known_ohms", r.capture.knownOhms},
              {"result", r.run.result},
              {"result_meaning", resultMeaning(r.run.result, "curve", r.run.inputEnded)},
              {"reason", r.run.record->reason ? json(r.run.record->reason) : json(nullptr)},
              {"buffers", r.run.buffers},
              {"device_curve", r.haveCurve ? json{{"freq_hz", r.hz}, {"ohms", numbers(r.ohms)}} : json(nullptr)},
              {"deviation_ohms", deviation},
              {"ohms_at_1khz", number(r.ohmsAtReference)},
              {"sense_ohms", number(r.senseOhms)},
              {"gain_mismatch_db", numbers(r.mismatchDb)},
              {"gain_mismatch_max_db", number(r.mismatchMaxDb)},
              {"resistor_test", r.haveTest ? json{{"ripple_ohms", r.ripple}, {"allowance_ohms", r.allowance},
                                                  {"margin_ohms", r.margin}, {"points_hz", testHz}}
                                           : json(nullptr)},
              {"bands", bands},
              {"weakest_band", r.weakest >= 0 ? json(r.bands[r.weakest].name) : json(nullptr)},
              {"disturbances", {{"periods_analysed", d.periods},
                                {"rms_dbfs", {number(d.rmsDbfs[0]), number(d.rmsDbfs[1])}},
                                {"dc", {d.dc[0], d.dc[1]}},
                                {"clipped_runs", {d.clippedRuns[0], d.clippedRuns[1]}},
                                {"mains_hz", d.mainsHz > 0 ? json(d.mainsHz) : json(nullptr)},
                                {"hum", hum},
                                {"swapped", r.swapped},
                                {"swap_tellable", r.swapTellable},
                                {"inverted", d.alike && d.correlation < 0},
                                {"correlation", d.correlation},
                                {"delay_frames", d.alike ? json(d.delayFrames) : json(nullptr)}}},
              {"items", itemsJson(r.items, -1)},
              {"verdict", kVerdictNames[r.verdict]}};
    return j;
}

struct RigSummary {
    std::vector<CaptureResult> captures;
    LoadingFit loading;
    double senseOhms = NAN, marginOhms = NAN;
    std::vector<double> hz, mismatchDb;
    double mismatchMaxDb = NAN;
    int weakestCapture = -1;
    std::vector<RigItem> items;  // what only the captures together show
    Verdict verdict = kPass;
};

static const RigBand& weakestBand(const RigSummary& s) {
    const CaptureResult& r = s.captures[s.weakestCapture];
    return r.bands[r.weakest];
}

static RigSummary summarise(std::vector<CaptureResult> captures) {
    RigSummary s;
    s.captures = std::move(captures);
    s.loading = fitLoading(s.captures);
    int curves = 0;
    double senseSum = 0;
    for (size_t c = 0; c < s.captures.size(); c++) {
        const CaptureResult& r = s.captures[c];
        if (r.verdict > s.verdict) s.verdict = r.verdict;
        if (std::isfinite(r.margin) && !(r.margin >= s.marginOhms)) s.marginOhms = r.margin;
        if (r.weakest >= 0 && (s.weakestCapture < 0 || weaker(r.bands[r.weakest], weakestBand(s))))
            s.weakestCapture = static_cast<int>(c);
        if (!r.haveCurve || !std::isfinite(r.senseOhms)) continue;
        senseSum += r.senseOhms;
        if (curves++ == 0) s.hz = r.hz, s.mismatchDb.assign(r.mismatchDb.size(), 0.0);
        for (size_t i = 0; i < r.mismatchDb.size(); i++) s.mismatchDb[i] += r.mismatchDb[i];
    }
    if (s.loading.readingsFall) {
        s.items.push_back({"inputs", kFail, "the larger resistors read lower: the inputs are swapped"});
        s.verdict = kFail;
    }
    // Across captures the mismatch is the mean in dB; the sense resistance the fit's, loading apart.
    if (curves > 0) {
        s.mismatchMaxDb = 0;
        for (double& m : s.mismatchDb) m /= curves, s.mismatchMaxDb = fabs(m) > fabs(s.mismatchMaxDb) ? m : s.mismatchMaxDb;
        s.senseOhms = s.loading.done ? s.loading.senseOhms : senseSum / curves;
    }
    return s;
}

static std::string senseFrom(const RigSummary& s) {
    if (s.loading.done)
        return format("%d captures of %d resistor values: the inputs' loading fitted apart; a flat gain mismatch "
                      "between the inputs is still folded in",
                      s.loading.captures, s.loading.values);
    const std::string folded = "the sense resistor, a flat gain mismatch between the inputs and any loading of the "
                               "inputs, folded into one figure";
    return s.captures.size() > 1 ? "the mean over the captures, each " + folded : "one resistor value: " + folded;
}

static json summaryJson(const RigSummary& s) {
    json items = itemsJson(s.items, -1);
    for (size_t c = 0; c < s.captures.size(); c++)
        for (const json& i : itemsJson(s.captures[c].items, static_cast<int>(c))) items.push_back(i);
    json captures = json::array();
    for (const CaptureResult& r : s.captures) captures.push_back(captureJson(r));
    json bands = json::array();
    if (s.weakestCapture >= 0) bands = captures[s.weakestCapture]["bands"];
    const LoadingFit& f = s.loading;
    json rig = {{"verdict", kVerdictNames[s.verdict]},
                {"sense_ohms", number(s.senseOhms)},
                {"sense_from", senseFrom(s)},
                {"freq_hz", s.hz},
                {"gain_mismatch_db", numbers(s.mismatchDb)},
                {"gain_mismatch_max_db", number(s.mismatchMaxDb)},
                {"resistor_margin_ohms", number(s.marginOhms)},
                {"weakest_band", s.weakestCapture >= 0 ? captures[s.weakestCapture]["weakest_band"] : json(nullptr)},
                {"weakest_band_level_db", s.weakestCapture >= 0 ? number(weakestBand(s).levelDb) : json(nullptr)},
                {"bands", bands},
                {"loading", f.done ? json{{"sense_ohms", number(f.senseOhms)}, {"input_ohms", number(f.inputOhms)},
                                          {"residual_ohms", number(f.residualOhms)}, {"captures", f.captures},
                                          {"values", f.values}}
                                   : json(nullptr)},
                {"items", items}};
    json j = {{"schema", 1}, {"command", "rig"}, {"storage_root", diagnosticsStorageRoot()}, {"captures", captures}, {"rig", rig}};
    return j;
}

static void printCapture(FILE* out, size_t index, const CaptureResult& r) {
    fprintf(out, "Capture %zu: %s, known %g ohm: result %d (%s), %d buffers\n", index + 1,
            escapedName(r.capture.path).c_str(), r.capture.knownOhms, r.run.result,
            resultMeaning(r.run.result, "curve", r.run.inputEnded).c_str(), r.run.buffers);
    for (const RigItem& i : r.items) fprintf(out, "  %-8s %-15s %s\n", kVerdictNames[i.verdict], i.item.c_str(), i.line.c_str());
}

static void printSummary(FILE* out, const RigSummary& s) {
    for (size_t c = 0; c < s.captures.size(); c++) printCapture(out, c, s.captures[c]);
    if (s.captures.size() > 1) {
        const LoadingFit& f = s.loading;
        for (const RigItem& i : s.items) fprintf(out, "  %-8s %-15s %s\n", kVerdictNames[i.verdict], i.item.c_str(), i.line.c_str());
        if (!f.done)
            fprintf(out, "Loading: not estimated (needs captures of two resistor values that read in order)\n");
        else if (std::isinf(f.inputOhms))
            fprintf(out, "Loading: none found (no input resistance under 1 Mohm across the load); sense %.3f ohm\n", f.senseOhms);
        else
            fprintf(out, "Loading: the input across the load reads as %.0f ohm in parallel; sense %.3f ohm (fit residual %.3f ohm)\n",
                    f.inputOhms, f.senseOhms, f.residualOhms);
    }
    if (std::isfinite(s.senseOhms))
        fprintf(out, "Rig: sense %.3f ohm (%s)\n", s.senseOhms, senseFrom(s).c_str());
    else
        fprintf(out, "Rig: sense not estimated (no capture gave a curve that reads at 1 kHz)\n");
    const std::string mismatch = std::isfinite(s.mismatchMaxDb) ? format("up to %+.3f dB", s.mismatchMaxDb) : "not read";
    const std::string margin = std::isfinite(s.marginOhms) ? format("%.3f ohm", s.marginOhms) : "not read";
    fprintf(out, "Rig: gain mismatch %s; resistor margin %s", mismatch.c_str(), margin.c_str());
    if (s.weakestCapture >= 0) {
        const RigBand& w = weakestBand(s);
        fprintf(out, "; weakest band %s (%s)", w.name.c_str(), w.accepted ? format("%.1f dB", w.levelDb).c_str() : "not accepted");
    }
    fprintf(out, "\nVerdict: %s (corrections are reported, not applied: the library takes %.0f x I / V as it is)\n",
            kVerdictNames[s.verdict], diagnosticsCurveOhmsPerRatio());
}

static int writeReport(const RigOptions& options, const RigSummary& s) {
    const std::string text = summaryJson(s).dump(1, ' ', false, json::error_handler_t::replace) + "\n";
    std::string err;
    if (options.json == "-") {
        fputs(text.c_str(), stdout);
        if (fflush(stdout) != 0) return fail("cannot write the report to standard output");
    } else if (!options.json.empty() && !writeOutput(options.json, text, &err)) {
        return fail(err);
    }
    if (options.picture.empty()) return -1;
    const int drawn = drawReportPicture(text, options.json == "-" ? "" : options.json, options.picture,
                                        options.json == "-" ? stderr : stdout);
    return drawn == 0 ? -1 : drawn;
}

int runRig(const RigOptions& options) {
    std::vector<CaptureResult> results;
    for (const RigCapture& c : options.captures) {
        CaptureInput input;
        std::string err;
        if (!openCaptureInput(c.path, &input, &err)) return fail(err);
        SessionResult run = replayCapture(&input, VANDRO_MODE_CURVES, progressTerminal(), options.feed);
        if (interruptSignal() != 0) return reportInterrupt("the rig check was stopped; nothing was written");
        results.push_back(checkCapture(c, std::move(run)));
    }
    const RigSummary s = summarise(std::move(results));
    FILE* out = options.json == "-" ? stderr : stdout;
    fprintf(out, "vandro rig: %zu capture(s)\n", s.captures.size());
    printSummary(out, s);
    fflush(out);
    const int status = writeReport(options, s);
    if (status >= 0) return status;
    return s.verdict == kFail ? kRigFail : (s.verdict == kMarginal ? kRigMarginal : kRigPass);
}

CLI::App* addRigCommand(CLI::App* app, RigOptions* o) {
    CLI::App* rig = app->add_subcommand("rig", "check a capture path with captures of known resistors");
    rig->add_option("captures", o->paths, "2-channel WAV files (I, V) or raw-capture folders, each of a known resistor")
        ->required();
    rig->add_option("--known", o->knownOhms, "the resistance of each capture, in order: the n-th belongs to the n-th")
        ->required()->allow_extra_args(false)->check(CLI::Range(0.1, 100000.0));
    rig->add_option("--json", o->json, "write the report as JSON (- for standard output)");
    rig->add_option("--plot", o->picture, "draw the deviation and the margins (.png, .svg, .pdf)");
    return rig;
}

bool rigInputs(RigOptions* o, std::string* error) {
    if (o->paths.size() != o->knownOhms.size()) {
        *error = format("rig: each capture needs its --known OHMS (%zu captures, %zu values)", o->paths.size(),
                        o->knownOhms.size());
        return false;
    }
    for (size_t i = 0; i < o->paths.size(); i++) {
        if (o->paths[i].empty()) return *error = "rig: a capture needs a file name", false;
        o->captures.push_back({o->paths[i], o->knownOhms[i]});
    }
    if (o->picture == "-") return *error = "--plot: - is not a file name here", false;
    return true;
}

void addRigImpairments(CLI::App* c, vsim::RigImpairments* r) {
    const std::string group = "Capture-path impairments (for vandro rig)";
    c->add_option("--sense", r->senseOhms, "the sense resistor actually fitted, ohms")
        ->check(CLI::Range(1.0, 1000.0))->capture_default_str()->group(group);
    c->add_option("--gain-i", r->gainDb[0], "flat gain of the I input, dB")->check(CLI::Range(-40.0, 40.0))->group(group);
    c->add_option("--gain-v", r->gainDb[1], "flat gain of the V input, dB")->check(CLI::Range(-40.0, 40.0))->group(group);
    c->add_option("--tilt-i", r->tiltDbPerOctave[0], "gain slope of the I input about 1 kHz, dB per octave")
        ->check(CLI::Range(-12.0, 12.0))->group(group);
    c->add_option("--tilt-v", r->tiltDbPerOctave[1], "gain slope of the V input about 1 kHz, dB per octave")
        ->check(CLI::Range(-12.0, 12.0))->group(group);
    c->add_option("--delay", r->delayFrames, "V lags I by this many frames (fractions allowed)")
        ->check(CLI::Range(-1000.0, 1000.0))->group(group);
    c->add_option("--dc-i", r->dc[0], "DC offset of the I input, full scale = 1")->check(CLI::Range(-1.0, 1.0))->group(group);
    c->add_option("--dc-v", r->dc[1], "DC offset of the V input, full scale = 1")->check(CLI::Range(-1.0, 1.0))->group(group);
    c->add_option("--hum", r->humDbfs, "mains hum on both inputs, peak dBFS (its 3rd harmonic 6 dB down)")
        ->check(CLI::Range(-160.0, 0.0))->group(group);
    c->add_option("--loading", r->loadingOhms, "an input resistance across the load, ohms (the I input's loading)")
        ->check(CLI::Range(1.0, 1e9))->group(group);
    c->add_option("--hum-hz", r->humHz, "mains frequency")->check(CLI::Range(40.0, 70.0))->capture_default_str()->group(group);
}
