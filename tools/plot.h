// SPDX-License-Identifier: Apache-2.0
// Pictures of a report, drawn by the plot script with matplotlib. The script is
// run as a child process with an argument vector (never through a shell).
#pragma once

#include <string>
#include <vector>

// The plot script: beside the program (build tree) or in ../share/vandro (installed).
std::string plotScriptPath();
// Draws the JSON report in jsonPath into picturePath (format from its
// extension; PNG when it has none). Empty on success, else one line saying why.
std::string drawPicture(const std::string& jsonPath, const std::string& picturePath);
