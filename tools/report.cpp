#include "tools/report.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

std::string resultMeaning(int result, const std::string& mode, bool inputEnded) {
    if (inputEnded && result == 0) return "the input ended before the library had enough data";
    switch (result) {
        case 1:
            if (mode == "identify") return "same headset as the stored reference";
            if (mode == "curve") return "device and target curves done";
            return "done: 25 coefficients written";
        case 2: return "not enough data after 120 buffers (source has insufficient frequency span)";
        case 3: return "the measurement failed (see the reason below)";
        case 4: return "load rejected: a resistor or a high-impedance line input";
        case 5: return "new headset: differs from the stored reference";
        default: return "the library refused the call";
    }
}

int exitStatus(const SessionResult& r) {
    if (r.inputEnded && r.result == 0) return 6;
    if (r.result == 1) return 0;
    if (r.result >= 2 && r.result <= 5) return r.result;
    return 7;
}

static void printCurve(const Diagnosis& d) {
    if (!d.haveCurve) {
        printf("Device curve: none on storage\n");
        return;
    }
    auto at = [&](double f) {
        size_t i = 0;
        while (i + 1 < d.curveFreq.size() && d.curveFreq[i + 1] <= f) i++;
        return d.curveOhms[i];
    };
    size_t lo = 0, hi = 0;
    for (size_t i = 0; i < d.curveOhms.size(); i++) {
        if (d.curveOhms[i] < d.curveOhms[lo]) lo = i;
        if (d.curveOhms[i] > d.curveOhms[hi]) hi = i;
    }
    printf("Device curve (228 points, 43 Hz .. 13.9 kHz):\n");
    printf("  |Z| at 100 Hz %.2f ohm, at 1 kHz %.2f ohm\n", at(100), at(1000));
    printf("  minimum %.2f ohm at %.0f Hz, maximum %.2f ohm at %.0f Hz\n", d.curveOhms[lo],
           d.curveFreq[lo], d.curveOhms[hi], d.curveFreq[hi]);
}

static void printResonances(const Diagnosis& d) {
    if (!d.searched) return;
    const char* type = d.headphoneType == 0 ? "concha" : (d.headphoneType == 1 ? "in-ear" : "none");
    printf("Headphone type: %s (%d); model gain %.0f\n", type, d.headphoneType, d.modelGain);
    printf("Resonances (from the stored curve):\n");
    for (const Resonance& r : d.resonances)
        printf("  %8.1f Hz   q %7.3f   height %7.3f\n", r.freq, r.q, r.height);
}

static void printCoefficients(const SessionResult& r, const Diagnosis& d) {
    printf("Coefficients, one section per row:\n");
    printf("             b0            b1            b2            a1            a2\n");
    for (int k = 0; k < 5; k++) {
        printf("  %d", k);
        for (int i = 0; i < 5; i++) printf("  %12.8f", r.coefficients[5 * k + i]);
        printf("\n");
    }
    if (!d.targetDb.empty())
        printf("Realised cascade vs target, 20 Hz .. 20 kHz: RMS %.3f dB, largest %.3f dB at %.0f Hz "
               "(level offset %.2f dB removed)\n",
               d.rmsDeviationDb, d.maxDeviationDb, d.maxDeviationAt, d.levelOffsetDb);
}

void printReport(const RunInfo& info, const SessionResult& r, const Diagnosis& d) {
    printf("vandro %s: %s, mode %s\n", info.command.c_str(), info.source.c_str(), info.mode.c_str());
    if (!info.sourceNote.empty()) printf("  %s\n", info.sourceNote.c_str());
    if (info.simulated)
        printf("  seed %lu, level %.1f dBFS, %s\n", info.seed, info.levelDbfs,
               std::isinf(info.snrDb) ? "no noise" : ("SNR " + std::to_string(info.snrDb) + " dB").c_str());
    if (info.clippedSamples > 0) printf("  warning: %ld samples clipped in the capture\n", info.clippedSamples);
    printf("Result %d: %s\n", r.result, resultMeaning(r.result, info.mode, r.inputEnded).c_str());
    printf("Buffers used: %d\n", r.buffers);
    for (const LoggedLine& l : r.log)
        if (l.priority >= 6 || l.text == "New Headset Detected")
            printf("  library: %s\n", l.text.c_str());
    printCurve(d);
    printResonances(d);
    if (r.result == 1 && info.mode == "fit") printCoefficients(r, d);
    printf("Curve files: %s/data (device_impedance.dat, default_device_impedance.dat)\n",
           info.storageRoot.c_str());
}

bool writeJson(const std::string& path, const RunInfo& info, const SessionResult& r,
               const Diagnosis& d, std::string* error) {
    using nlohmann::json;
    json j;
    j["command"] = info.command;
    j["source"] = {{"name", info.source}, {"note", info.sourceNote}, {"simulated", info.simulated}};
    if (info.simulated) {
        j["source"]["seed"] = info.seed;
        j["source"]["level_dbfs"] = info.levelDbfs;
        j["source"]["snr_db"] = std::isinf(info.snrDb) ? json(nullptr) : json(info.snrDb);
    }
    j["mode"] = info.mode;
    j["result"] = r.result;
    j["result_meaning"] = resultMeaning(r.result, info.mode, r.inputEnded);
    j["exit_status"] = exitStatus(r);
    j["buffers"] = r.buffers;
    j["storage_root"] = info.storageRoot;
    j["log"] = json::array();
    for (const LoggedLine& l : r.log) j["log"].push_back({{"priority", l.priority}, {"tag", l.tag}, {"text", l.text}});
    if (d.haveCurve) j["device_curve"] = {{"freq_hz", d.curveFreq}, {"ohms", d.curveOhms}};
    if (d.searched) {
        j["headphone_type"] = d.headphoneType;
        j["model_gain"] = d.modelGain;
        j["resonances"] = json::array();
        for (const Resonance& x : d.resonances) j["resonances"].push_back({{"freq_hz", x.freq}, {"q", x.q}, {"height", x.height}});
        j["target_curve"] = {{"freq_hz", d.targetFreq}, {"db", d.targetDb}};
    }
    if (r.result == 1 && info.mode == "fit") {
        json rows = json::array();
        for (int k = 0; k < 5; k++)
            rows.push_back(std::vector<float>(r.coefficients + 5 * k, r.coefficients + 5 * k + 5));
        j["coefficients"] = rows;  // b0 b1 b2 a1 a2 per section, as the library returned them
        j["realised"] = {{"freq_hz", d.responseFreq}, {"db", d.responseDb}, {"sections_db", d.sectionDb}};
        j["deviation"] = {{"rms_db", d.rmsDeviationDb}, {"max_db", d.maxDeviationDb},
                          {"max_at_hz", d.maxDeviationAt}, {"level_offset_db", d.levelOffsetDb}};
    }
    std::ofstream out(path);
    if (!out) {
        if (error != nullptr) *error = path + ": cannot write";
        return false;
    }
    out << j.dump(1) << "\n";
    return out.good();
}
