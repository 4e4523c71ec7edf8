// SPDX-License-Identifier: Apache-2.0
#include "sim/load_file.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace vsim {

static bool fail(std::string* error, const std::string& path, long line, const std::string& why) {
    if (error != nullptr) *error = path + ":" + std::to_string(line) + ": " + why;
    return false;
}

static std::string trim(const std::string& s) {
    const size_t a = s.find_first_not_of(" \t\r"), b = s.find_last_not_of(" \t\r");
    return a == std::string::npos ? "" : s.substr(a, b - a + 1);
}

// The fields of a line: split at commas when it has any, else at white space.
static std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> out;
    if (line.find(',') != std::string::npos) {
        std::stringstream in(line);
        for (std::string f; std::getline(in, f, ',');) out.push_back(trim(f));
    } else {
        std::stringstream in(line);
        for (std::string f; in >> f;) out.push_back(f);
    }
    return out;
}

static bool number(const std::string& s, double* v) {
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    *v = strtod(s.c_str(), &end);
    return end == s.c_str() + s.size() && errno != ERANGE;
}

static std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

bool readLoadFile(const std::string& path, Load* load, std::string* error) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) return fail(error, path, 0, "is a directory, not a curve");
    std::ifstream in(path);
    if (!in) return fail(error, path, 0, std::string("cannot read: ") + strerror(errno));
    Table t;
    size_t columns = 0;
    long n = 0, last = 0;
    bool header = false;
    for (std::string raw; std::getline(in, raw);) {
        n++;
        if (n == 1 && raw.rfind("\xEF\xBB\xBF", 0) == 0) raw.erase(0, 3);  // a UTF-8 byte-order mark
        const std::string line = trim(raw);
        if (line.empty() || line[0] == '*' || line[0] == '#') continue;
        const std::vector<std::string> f = fields(line);
        double v[3];
        bool numeric = f.size() == 2 || f.size() == 3;
        for (size_t i = 0; numeric && i < f.size(); i++) numeric = number(f[i], &v[i]);
        if (!numeric) {
            std::string h = lower(line);  // the header in any case, with any spaces
            h.erase(std::remove_if(h.begin(), h.end(), [](char c) { return c == ' ' || c == '\t'; }), h.end());
            if (t.hz.empty() && !header && (h == "freq_hz,z_ohm" || h == "freq_hz,z_ohm,phase_deg")) {
                header = true;
                columns = h == "freq_hz,z_ohm" ? 2 : 3;
                continue;
            }
            return fail(error, path, n,
                        "unknown layout: expected frequency (Hz), |Z| (ohm) and an optional phase (degrees), "
                        "or the header freq_hz,z_ohm[,phase_deg]");
        }
        if (columns == 0) columns = f.size();
        if (f.size() != columns)
            return fail(error, path, n, std::to_string(f.size()) + " columns where the file has " +
                                            std::to_string(columns));
        if (!(v[0] > 0) || !std::isfinite(v[0])) return fail(error, path, n, "frequency is not a positive number");
        if (!t.hz.empty() && !(v[0] > t.hz.back()))
            return fail(error, path, n, "frequencies are not increasing");
        if (!(v[1] > 0) || !std::isfinite(v[1])) return fail(error, path, n, "|Z| is not a positive number");
        if (columns == 3 && !(fabs(v[2]) <= 90))
            return fail(error, path, n, "phase is not a number of degrees within +-90");
        t.hz.push_back(v[0]);
        t.ohms.push_back(v[1]);
        if (columns == 3) t.phaseDeg.push_back(v[2]);
        last = n;
    }
    if (t.hz.size() < 2)
        return fail(error, path, std::max(last, n), "fewer than two points (" + std::to_string(t.hz.size()) + ")");
    const std::string name = std::filesystem::path(path).filename().string();
    *load = tabulatedLoad(name, t);
    char note[160];
    snprintf(note, sizeof note, "measured curve %s: %zu points, %.1f Hz .. %.1f kHz%s", name.c_str(), t.hz.size(),
             t.hz.front(), t.hz.back() / 1000, t.phaseDeg.empty() ? ", no phase (taken as 0)" : "");
    load->note = note;
    return true;
}

}  // namespace vsim
