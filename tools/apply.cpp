#include "tools/apply.h"

#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

static int fail(const std::string& message) {
    fprintf(stderr, "vandro: %s\n", message.c_str());
    return 1;
}

// The 25 coefficients of a report, b0 b1 b2 a1 a2 per section.
static bool readCoefficients(const std::string& path, double c[25], std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = path + ": cannot read";
        return false;
    }
    nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
    if (j.is_discarded() || !j.contains("coefficients") || j["coefficients"].size() != 5) {
        *error = path + ": not a report of a finished fit (no 5 x 5 coefficients)";
        return false;
    }
    for (int k = 0; k < 5; k++) {
        const nlohmann::json& row = j["coefficients"][k];
        if (!row.is_array() || row.size() != 5) {
            *error = path + ": coefficient row " + std::to_string(k) + " is not 5 numbers";
            return false;
        }
        for (int i = 0; i < 5; i++) c[5 * k + i] = row[i].get<double>();
    }
    return true;
}

int applyReport(const std::string& report, const std::string& input, const std::string& output) {
    double c[25];
    std::string err;
    if (!readCoefficients(report, c, &err)) return fail(err);
    SF_INFO info = {};
    SNDFILE* in = sf_open(input.c_str(), SFM_READ, &info);
    if (in == nullptr) return fail(input + ": cannot read: " + sf_strerror(nullptr));
    std::vector<double> x(static_cast<size_t>(info.frames) * info.channels);
    sf_readf_double(in, x.data(), info.frames);
    sf_close(in);
    if (info.samplerate != 48000)
        fprintf(stderr, "vandro: note: the sections are designed for 48000 Hz; %s is %d Hz\n",
                input.c_str(), info.samplerate);
    // Direct form I per section and channel, in double.
    for (int ch = 0; ch < info.channels; ch++) {
        for (int k = 0; k < 5; k++) {
            const double* s = c + 5 * k;
            double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
            for (sf_count_t n = 0; n < info.frames; n++) {
                double& v = x[n * info.channels + ch];
                double y = s[0] * v + s[1] * x1 + s[2] * x2 - s[3] * y1 - s[4] * y2;
                x2 = x1;
                x1 = v;
                y2 = y1;
                y1 = y;
                v = y;
            }
        }
    }
    const long frames = static_cast<long>(info.frames);  // opening for writing resets info.frames
    long clipped = 0;
    double peak = 0;
    for (double v : x) {
        peak = std::max(peak, fabs(v));
        if (fabs(v) > 1.0) clipped++;
    }
    SNDFILE* out = sf_open(output.c_str(), SFM_WRITE, &info);
    if (out == nullptr) return fail(output + ": cannot write: " + sf_strerror(nullptr));
    sf_command(out, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_writef_double(out, x.data(), frames);
    sf_close(out);
    printf("Filtered %ld frames, %d channel(s): peak %.3f (%.2f dBFS)\n", frames,
           info.channels, peak, 20 * log10(peak > 0 ? peak : 1e-12));
    if (clipped > 0) printf("warning: %ld samples clipped at full scale\n", clipped);
    return 0;
}
