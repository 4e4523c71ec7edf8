#include "tools/provenance.h"

#include <ctime>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tools/report.h"

std::string lastRunPath(const std::string& storageRoot) { return storageRoot + "/data/vandro-last-run.json"; }

std::string fileDigest(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // FNV-1a over the bytes and their count: enough to tell one run's curve from another's.
    unsigned long long h = 1469598103934665603ull;
    for (unsigned char c : bytes) h = (h ^ c) * 1099511628211ull;
    return std::to_string(bytes.size()) + ":" + std::to_string(h);
}

bool writeLastRun(const std::string& path, const LastRun& run, std::string* error) {
    nlohmann::json j = {{"command", run.command}, {"source", run.source}, {"time", run.time},
                        {"result", run.result}, {"wrote_curve", run.wroteCurve},
                        {"curve_digest", run.curveDigest}};
    std::ofstream out(path);
    out << j.dump(1) << "\n";
    if (!out.good()) {
        *error = path + ": cannot write";
        return false;
    }
    return true;
}

bool readLastRun(const std::string& path, LastRun* run, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = "no run of this program has measured a headset here (" + path + " is missing)";
        return false;
    }
    nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
    try {
        if (j.is_discarded()) throw std::runtime_error("not JSON");
        run->command = j.at("command").get<std::string>();
        run->source = j.at("source").get<std::string>();
        run->time = j.at("time").get<std::string>();
        run->result = j.at("result").get<int>();
        run->wroteCurve = j.at("wrote_curve").get<bool>();
        run->curveDigest = j.at("curve_digest").get<std::string>();
    } catch (const std::exception&) {
        *error = path + ": the record of the last run is damaged; measure again";
        return false;
    }
    return true;
}

std::string timeNow() {
    char text[32];
    const time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

void recordLastRun(const Report& rep) {
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

