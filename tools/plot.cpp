// SPDX-License-Identifier: Apache-2.0
#include "tools/plot.h"

#include <filesystem>

#include "tools/command.h"
#include "tools/output_file.h"
#include "tools/report.h"
#include "tools/spawn.h"

static std::string programDir() {
    std::error_code ec;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : self.parent_path().string();
}

std::string plotScriptPath() {
    const std::string dir = programDir();
    for (const std::string& candidate : {dir + "/plot.py", dir + "/../share/vandro/plot.py"}) {
        std::error_code ec;
        if (std::filesystem::is_regular_file(candidate, ec))
            return std::filesystem::weakly_canonical(candidate, ec).string();
    }
    return dir + "/../share/vandro/plot.py";
}

std::string drawPicture(const std::string& jsonPath, const std::string& picturePath) {
    std::string text;
    const int rc = runProgram({VANDRO_PYTHON, plotScriptPath(), jsonPath, picturePath}, &text);
    if (rc == 0) return "";
    // The script's own one-line reason, else what the start-up said.
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    const size_t lastLine = text.rfind('\n');
    if (lastLine != std::string::npos) text = text.substr(lastLine + 1);
    return text.empty() ? "the plot script failed (status " + std::to_string(rc) + ")" : text;
}

int drawReportPicture(const std::string& jsonText, const std::string& jsonPath, const std::string& picture, FILE* out) {
    std::string from = jsonPath, scratch, err;
    if (from.empty()) {
        if (!scratchFile(".json", &scratch, &err) || !writeOutput(scratch, jsonText, &err)) return fail(err);
        from = scratch;
    }
    std::string why;
    writeThrough(picture, [&](const std::string& path, std::string* reason) {
        *reason = drawPicture(from, path);
        return reason->empty();
    }, &why);
    if (!scratch.empty()) abandonOutput(scratch);
    if (!why.empty()) {
        fprintf(stderr, "vandro: the picture could not be drawn: %s\n", why.c_str());
        return kExitNoPicture;
    }
    fprintf(out, "Plot: %s\n", picture.c_str());
    return 0;
}
