// SPDX-License-Identifier: Apache-2.0
#include "tools/apply.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/output_file.h"

#include "engine/vandro.h"

static int fail(const std::string& message) {
    fprintf(stderr, "vandro: %s\n", message.c_str());
    return 1;
}

// The 25 coefficients of a report (b0 b1 b2 a1 a2 per section), checked: five
// rows of five finite numbers whose sections are stable.
static bool readCoefficients(const std::string& path, double c[VANDRO_NUM_COEFS], std::string* error) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        *error = path + ": is a directory, not a report";
        return false;
    }
    std::ifstream in(path);
    if (!in) {
        *error = path + ": cannot read";
        return false;
    }
    const nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
    if (j.is_discarded()) {
        *error = path + ": not a JSON report";
        return false;
    }
    if (!j.is_object() || !j.contains("coefficients") || !j["coefficients"].is_array() ||
        j["coefficients"].size() != VANDRO_NUM_SECTIONS) {
        *error = path + ": not a report of a finished fit (no 5 x 5 coefficients)";
        return false;
    }
    for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) {
        const nlohmann::json& row = j["coefficients"][k];
        if (!row.is_array() || row.size() != VANDRO_COEFS_PER_SECTION) {
            *error = path + ": coefficient row " + std::to_string(k) + " is not 5 numbers";
            return false;
        }
        for (int i = 0; i < VANDRO_COEFS_PER_SECTION; i++) {
            if (!row[i].is_number() || !std::isfinite(row[i].get<double>())) {
                *error = path + ": coefficient " + std::to_string(i) + " of section " + std::to_string(k) +
                         " is not a finite number";
                return false;
            }
            c[VANDRO_COEFS_PER_SECTION * k + i] = row[i].get<double>();
        }
        // 1 + a1 z^-1 + a2 z^-2 has both roots inside the unit circle exactly when:
        const double a1 = c[VANDRO_COEFS_PER_SECTION * k + 3], a2 = c[VANDRO_COEFS_PER_SECTION * k + 4];
        if (!(fabs(a2) < 1.0 && fabs(a1) < 1.0 + a2)) {
            *error = path + ": section " + std::to_string(k) + " is unstable (a1 " + std::to_string(a1) +
                     ", a2 " + std::to_string(a2) + "); refusing to apply it";
            return false;
        }
    }
    return true;
}

// The major format libsndfile writes for a file name's extension; 0 if none.
static int majorFormatFor(const std::string& path, std::string* known) {
    std::string ext = std::filesystem::path(path).extension().string();
    if (!ext.empty()) ext = ext.substr(1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char ch) { return std::tolower(ch); });
    if (ext == "aif") ext = "aiff";
    if (ext == "ogg") ext = "oga";  // libsndfile names its Ogg container by the audio-only extension
    if (ext == "mp3") ext = "m1a";
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
    int found = 0;
    for (int m = 0; m < count; m++) {
        SF_FORMAT_INFO info = {};
        info.format = m;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof info);
        const std::string listed = std::string(".") + info.extension;
        if ((", " + *known + ", ").find(", " + listed + ", ") == std::string::npos)  // some containers share one
            *known += (known->empty() ? "" : ", ") + listed;
        if (found == 0 && !ext.empty() && ext == info.extension) found = info.format;
    }
    return found;
}

// The input's own sample format when the output's container takes it, else the first that fits.
static int outputFormat(int major, int inputFormat, int channels, int rate) {
    const int subtypes[] = {inputFormat & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24,
                            SF_FORMAT_FLOAT, SF_FORMAT_VORBIS, SF_FORMAT_OPUS};
    for (int sub : subtypes) {
        SF_INFO probe = {};
        probe.format = major | sub;
        probe.channels = channels;
        probe.samplerate = rate;
        if (sf_format_check(&probe)) return probe.format;
    }
    return 0;
}

int applyReport(const std::string& report, const std::string& input, const std::string& output) {
    double c[VANDRO_NUM_COEFS];
    std::string err;
    if (!readCoefficients(report, c, &err)) return fail(err);
    std::string known;
    const int major = majorFormatFor(output, &known);
    if (major == 0)
        return fail(output + ": unknown audio format for this name (libsndfile writes " + known + ")");
    SF_INFO info = {};
    SNDFILE* in = sf_open(input.c_str(), SFM_READ, &info);
    if (in == nullptr) return fail(input + ": cannot read: " + sf_strerror(nullptr));
    if (info.samplerate != VANDRO_DESIGN_RATE_HZ)
        fprintf(stderr, "vandro: note: the sections are designed for %d Hz; %s is %d Hz\n",
                VANDRO_DESIGN_RATE_HZ, input.c_str(), info.samplerate);
    SF_INFO outInfo = {};
    outInfo.channels = info.channels;
    outInfo.samplerate = info.samplerate;
    outInfo.format = outputFormat(major, info.format, info.channels, info.samplerate);
    std::string temp;
    if (outInfo.format == 0 || !beginOutput(output, &temp, &err)) {
        sf_close(in);
        return fail(outInfo.format == 0 ? output + ": this format cannot hold " + std::to_string(info.channels) +
                                              " channel(s) at " + std::to_string(info.samplerate) + " Hz"
                                        : err);
    }
    SNDFILE* out = sf_open(temp.c_str(), SFM_WRITE, &outInfo);
    if (out == nullptr) {
        sf_close(in);
        abandonOutput(temp);
        return fail(output + ": cannot write: " + sf_strerror(nullptr));
    }
    sf_command(out, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    // Block by block, so that memory stays small whatever the file's size:
    // direct form I per channel and section, in double, its state carried over.
    const int channels = info.channels;
    const sf_count_t block = std::max<sf_count_t>(1, (1 << 20) / channels);
    std::vector<double> x(static_cast<size_t>(block) * channels), state(static_cast<size_t>(channels) * 4 * VANDRO_NUM_SECTIONS, 0.0);
    long frames = 0, clipped = 0;
    double peak = 0;
    bool whole = true;
    for (sf_count_t got; whole && (got = sf_readf_double(in, x.data(), block)) > 0; frames += static_cast<long>(got)) {
        for (int ch = 0; ch < channels; ch++)
            for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) {
                const double* s = c + VANDRO_COEFS_PER_SECTION * k;
                double* z = &state[(static_cast<size_t>(ch) * VANDRO_NUM_SECTIONS + k) * 4];  // x1, x2, y1, y2
                for (sf_count_t n = 0; n < got; n++) {
                    double& v = x[n * channels + ch];
                    const double y = s[0] * v + s[1] * z[0] + s[2] * z[1] - s[3] * z[2] - s[4] * z[3];
                    z[1] = z[0], z[0] = v, z[3] = z[2], z[2] = y;
                    v = y;
                }
            }
        for (sf_count_t n = 0; n < got * channels; n++) {
            peak = std::max(peak, fabs(x[n]));
            clipped += fabs(x[n]) > 1.0;
        }
        whole = sf_writef_double(out, x.data(), got) == got;
    }
    sf_close(in);
    const std::string why = whole ? "the file could not be completed" : sf_strerror(out);
    if (sf_close(out) != 0 || !whole) {
        abandonOutput(temp);
        return fail(output + ": cannot write: " + why);
    }
    if (!finishOutput(output, temp, &err)) return fail(err);
    printf("Filtered %ld frames, %d channel(s): peak %.3f (%.2f dBFS)\n", frames, channels, peak,
           20 * log10(peak > 0 ? peak : 1e-12));
    if (clipped > 0) printf("warning: %ld samples clipped at full scale\n", clipped);
    return 0;
}
