// SPDX-License-Identifier: Apache-2.0
// Child processes, started with an argument vector and never through a shell.
#pragma once

#include <string>
#include <vector>

// Runs argv[0] (searched on PATH when it has no slash) with argv. Its exit
// status, or -1 when it could not start or ended on a signal. What it writes
// on stderr goes to *err and on stdout to *out, when given; stdout goes to
// /dev/null when out is null.
int runProgram(const std::vector<std::string>& argv, std::string* err, std::string* out = nullptr);
