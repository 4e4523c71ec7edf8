// SPDX-License-Identifier: Apache-2.0
#include "tools/readback.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "tools/output_file.h"
#include "tools/provenance.h"
#include "tools/report.h"
#include "util/curve_file.h"

// This run's curve as the file layer writes it; false when it cannot be rendered.
static bool fileLayerText(const double* ohms, std::string* text) {
    std::string name, why;
    if (!scratchFile(".dat", &name, &why)) return false;
    writeFloatArrayToFile(ohms, 0, kDeviceCurvePoints, name.c_str());
    const bool ok = readFileBytes(name, text, &why);
    abandonOutput(name);
    return ok;
}

static std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

// Why the file is not this run's curve, or "" when it is.
static std::string curveProblem(const std::string& path, const double* ohms) {
    std::string onDisk, expected, why;
    if (!readFileBytes(path, &onDisk, &why)) return why;
    if (!fileLayerText(ohms, &expected)) return "could not be compared: no temporary file for this run's curve";
    if (onDisk == expected) return "";
    const std::vector<std::string> got = lines(onDisk), want = lines(expected);
    for (size_t i = 0; i < got.size() && i < want.size(); i++)
        if (got[i] != want[i])
            return "holds another curve: line " + std::to_string(i + 1) + " reads " + got[i] + " where this run computed " +
                   want[i];
    return "holds " + std::to_string(got.size()) + " lines where this run's curve has " + std::to_string(want.size());
}

// "line N: TEXT" of the first value of a curve file that is not a number, or "".
static std::string firstNonNumber(const std::string& path) {
    std::vector<double> v(kDeviceCurvePoints);
    if (importCurve(path.c_str(), v.data(), kDeviceCurvePoints) != 0) return "";
    std::string text, why;
    readFileBytes(path, &text, &why);
    const std::vector<std::string> rows = lines(text);
    for (int i = 0; i < kDeviceCurvePoints; i++)
        if (!std::isfinite(v[i])) return "line " + std::to_string(i + 1) + ": " + (i < (int)rows.size() ? rows[i] : "");
    return "";
}

void readBackFiles(Report* rep) {
    const DiagnosticRecord& d = *rep->run.record;
    const std::string device = diagnosticsDeviceCurvePath(), reference = diagnosticsReferenceCurvePath();
    rep->curveFile.checked = d.haveDeviceCurve;
    if (d.haveDeviceCurve) {
        rep->curveFile.problem = curveProblem(device, d.curveOhms);
        rep->curveFile.fromThisRun = rep->curveFile.problem.empty();
        if (!rep->curveFile.fromThisRun)
            rep->warnings.push_back(device + " " + rep->curveFile.problem + ": the library could not write this run's curve there, or something else changed it");
    }
    std::vector<double> ohms(kDeviceCurvePoints);
    if (d.identified && importCurve(reference.c_str(), ohms.data(), kDeviceCurvePoints) == 0) rep->referenceOhms = ohms;
    if (d.identified && !std::isfinite(d.correlation)) {
        std::string because = "the correlation is not a number", holders;
        const std::string inReference = firstNonNumber(reference), inDevice = firstNonNumber(device);
        if (!inReference.empty()) holders = "the reference curve " + reference + " (" + inReference + ")";
        if (!inDevice.empty()) holders += (holders.empty() ? "" : " and ") + ("the device curve " + device + " (" + inDevice + ")");
        if (!holders.empty()) because += ", because values that are not numbers are in " + holders;
        rep->identificationNullBecause = because + "; the library counts that as the same headset";
        rep->warnings.push_back("the identification's \"same headset\" rests on no number: " + because);
    }
    takeLog();  // the program's own reads are not the measurement's
}
