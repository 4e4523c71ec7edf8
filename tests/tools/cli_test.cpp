// The vandro program as a user runs it: exit statuses, error lines, reports.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/wait.h>

#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "util/curve_file.h"

struct CliRun {
    int status;
    std::string out;
};

static CliRun vandro(const std::string& args) {
    std::string cmd = std::string("'") + VANDRO_CLI + "' " + args + " 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    CliRun r{-1, ""};
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

static nlohmann::json readJson(const std::string& path) {
    std::ifstream in(path);
    return nlohmann::json::parse(in);
}

class Cli : public ::testing::Test {
  protected:
    void SetUp() override {
        resetEngine();
        dir = storageRoot() + "/cli";
        makeDirs(dir);
    }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

TEST_F(Cli, StatusesAndErrorLines) {
    CliRun r = vandro("measure --preset nope");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("vandro: unknown preset 'nope'; known presets: earbud-32"), std::string::npos) << r.out;
    EXPECT_EQ(vandro("measure --mode sideways").status, 1);
    EXPECT_EQ(vandro("").status, 1);
    EXPECT_EQ(vandro("measure --preset resistor-32").status, 4);
    CliRun line = vandro("measure --preset open-300");
    EXPECT_EQ(line.status, 4);
    EXPECT_NE(line.out.find("library: yNew[0] = "), std::string::npos) << line.out;
    EXPECT_NE(line.out.find("High impedance line in"), std::string::npos);

    CliRun missing = vandro("replay '" + dir + "/none.wav'");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.out.find("none.wav: cannot read"), std::string::npos) << missing.out;
    writeText(dir + "/short.dat", "0.1\n");
    CliRun shortRaw = vandro("replay '" + dir + "/short.dat' '" + dir + "/short.dat'");
    EXPECT_EQ(shortRaw.status, 1);
    EXPECT_NE(shortRaw.out.find("shorter than one buffer"), std::string::npos);
    // Ten buffers of a real capture are not enough: the input ends first.
    vsim::Load load;
    vsim::findPreset("inear-16", &load, nullptr);
    std::vector<int16_t> few;
    vsim::synthesize(load, vsim::CaptureOptions(), 10, &few, nullptr, nullptr);
    vsim::writeWav(dir + "/few.wav", few, nullptr);
    EXPECT_EQ(vandro("replay '" + dir + "/few.wav'").status, 6);
}

TEST_F(Cli, ReportAgreesWithTheLibrarysFilesAndReplayMatchesTheDirectRun) {
    CliRun direct = vandro("measure --preset dual-ba --seed 3 --json '" + dir + "/direct.json'");
    ASSERT_EQ(direct.status, 0) << direct.out;
    nlohmann::json d = readJson(dir + "/direct.json");
    EXPECT_EQ(d["result"], 1);
    EXPECT_EQ(d["buffers"], 38);
    EXPECT_EQ(d["headphone_type"], 1);
    std::vector<double> onDisk(228);
    ASSERT_EQ(importCurve((storageRoot() + "/data/device_impedance.dat").c_str(), onDisk.data(), 228), 0);
    for (int i = 0; i < 228; i++) ASSERT_EQ(d["device_curve"]["ohms"][i].get<double>(), onDisk[i]);
    EXPECT_LT(d["deviation"]["rms_db"].get<double>(), 0.5);

    // The same capture through a WAV file gives the same 25 coefficients.
    vsim::Load load;
    vsim::findPreset("dual-ba", &load, nullptr);
    vsim::CaptureOptions o;
    o.seed = 3;
    std::vector<int16_t> samples;
    vsim::synthesize(load, o, 40, &samples, nullptr, nullptr);
    ASSERT_TRUE(vsim::writeWav(dir + "/c.wav", samples, nullptr));
    CliRun replay = vandro("replay '" + dir + "/c.wav' --json '" + dir + "/replay.json'");
    ASSERT_EQ(replay.status, 0) << replay.out;
    EXPECT_EQ(readJson(dir + "/replay.json")["coefficients"], d["coefficients"]);

    // Identification: store the reference, then the same and another headset.
    EXPECT_EQ(vandro("default").status, 0);
    EXPECT_EQ(vandro("measure --preset dual-ba --seed 9 --mode identify").status, 0);
    CliRun other = vandro("measure --preset earbud-32 --mode identify");
    EXPECT_EQ(other.status, 5);
    EXPECT_NE(other.out.find("new headset"), std::string::npos);

    // Applying the fit to audio reports what clips.
    std::vector<int16_t> loud(2 * 48000, 30000);
    vsim::writeWav(dir + "/loud.wav", loud, nullptr);
    CliRun applied = vandro("apply '" + dir + "/direct.json' '" + dir + "/loud.wav' '" + dir + "/out.wav'");
    EXPECT_EQ(applied.status, 0) << applied.out;
    EXPECT_NE(applied.out.find("Filtered 48000 frames"), std::string::npos) << applied.out;
    EXPECT_EQ(vandro("apply '" + dir + "/none.json' '" + dir + "/loud.wav' '" + dir + "/o.wav'").status, 1);
}
