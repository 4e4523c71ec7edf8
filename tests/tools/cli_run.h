// SPDX-License-Identifier: Apache-2.0
// Runs the program's test build as a user runs it, never through a shell.
#pragma once

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/spawn.h"

struct CliRun {
    int status;
    std::string out, err;
};

inline CliRun vandro(std::vector<std::string> args) {
    CliRun r;
    args.insert(args.begin(), VANDRO_CLI);
    r.status = runProgram(args, &r.err, &r.out);
    return r;
}

inline nlohmann::json readJson(const std::string& path) {
    return nlohmann::json::parse(std::ifstream(path), nullptr, false);
}
