// SPDX-License-Identifier: Apache-2.0
// Pictures of a report, drawn by the plot script with matplotlib. The script is
// run as a child process with an argument vector (never through a shell).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// The plot script: beside the program (build tree) or in ../share/vandro (installed).
std::string plotScriptPath();
// Draws the JSON report in jsonPath into picturePath (format from its
// extension; PNG when it has none). Empty on success, else one line saying why.
std::string drawPicture(const std::string& jsonPath, const std::string& picturePath);
// Draws a report into picture, whole or not at all: from jsonPath when the
// report was written there, else from jsonText through a scratch file. 0 with
// "Plot: PICTURE" on out; 8 with one line on stderr when it could not be
// drawn; 1 when the scratch file could not be written.
int drawReportPicture(const std::string& jsonText, const std::string& jsonPath, const std::string& picture, FILE* out);
