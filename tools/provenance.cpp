// SPDX-License-Identifier: Apache-2.0
#include "tools/provenance.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/report.h"

std::string lastRunPath(const std::string& storageRoot) { return storageRoot + "/data/vandro-last-run.json"; }

bool readFileBytes(const std::string& path, std::string* bytes, std::string* why) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        *why = errno == ENOENT ? "is missing" : std::string("cannot be read: ") + strerror(errno);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        *why = S_ISDIR(st.st_mode) ? "is a directory" : "is not a regular file";
        return false;
    }
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *why = std::string("cannot be read: ") + strerror(errno);
        return false;
    }
    bytes->clear();
    char chunk[65536];
    ssize_t n;
    while ((n = read(fd, chunk, sizeof chunk)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0) bytes->append(chunk, static_cast<size_t>(n));
    const int readError = n < 0 ? errno : 0;
    close(fd);
    if (readError != 0) *why = std::string("cannot be read: ") + strerror(readError);
    return readError == 0;
}

std::string fileDigest(const std::string& path) {
    std::string bytes, why;
    if (!readFileBytes(path, &bytes, &why)) return "";
    // FNV-1a over the bytes and their count: enough to tell one run's curve from another's.
    unsigned long long h = 1469598103934665603ull;
    for (unsigned char c : bytes) h = (h ^ c) * 1099511628211ull;
    return std::to_string(bytes.size()) + ":" + std::to_string(h);
}

bool writeLastRun(const std::string& path, const LastRun& run, std::string* error) {
    nlohmann::json j = {{"command", run.command}, {"source", run.source}, {"time", run.time},
                        {"result", run.result}, {"wrote_curve", run.wroteCurve},
                        {"curve_read_back", run.curveReadBack}, {"curve_problem", run.curveProblem},
                        {"curve_digest", run.curveDigest}};
    const std::string temp = path + ".tmp";
    std::ofstream out(temp);
    out << j.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    out.close();
    if (!out.good() || rename(temp.c_str(), path.c_str()) != 0) {
        unlink(temp.c_str());
        *error = path + ": cannot write";
        return false;
    }
    return true;
}

bool readLastRun(const std::string& path, LastRun* run, std::string* error) {
    std::string text, why;
    if (!readFileBytes(path, &text, &why)) {
        *error = why == "is missing" ? "no run of this program has measured a headset here (" + path + " is missing)"
                                     : path + " " + why + "; it should be the record of this program's last run";
        return false;
    }
    try {
        const nlohmann::json j = nlohmann::json::parse(text);
        run->command = j.at("command").get<std::string>();
        run->source = j.at("source").get<std::string>();
        run->time = j.at("time").get<std::string>();
        run->result = j.at("result").get<int>();
        run->wroteCurve = j.at("wrote_curve").get<bool>();
        run->curveReadBack = j.at("curve_read_back").get<bool>();
        run->curveProblem = j.at("curve_problem").get<std::string>();
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
    last.wroteCurve = rep.curveFile.checked;
    last.curveReadBack = rep.curveFile.fromThisRun;
    last.curveProblem = rep.curveFile.problem;
    if (last.curveReadBack) last.curveDigest = fileDigest(diagnosticsDeviceCurvePath());
    std::string err;
    if (!writeLastRun(lastRunPath(rep.info.storageRoot), last, &err))
        fprintf(stderr, "vandro: warning: %s (vandro default will refuse this run's curve)\n", err.c_str());
}
