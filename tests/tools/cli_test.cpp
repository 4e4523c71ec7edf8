// The vandro program as a user runs it (its test build, on the suite's storage
// root): exit statuses, error lines, reports that show only this run.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "util/curve_file.h"

using nlohmann::json;

struct CliRun {
    int status;
    std::string out, err;
};

static std::string drain(int fd) {
    std::string s;
    char buf[4096];
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) s.append(buf, static_cast<size_t>(n));
    close(fd);
    return s;
}

// Runs the program with these arguments (no shell), in the folder dir.
static CliRun vandro(const std::vector<std::string>& args, const std::string& dir = ".") {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return {-1, "", ""};
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1), dup2(err[1], 2), close(out[0]), close(err[0]);
        if (chdir(dir.c_str()) != 0) _exit(126);
        std::vector<char*> argv{const_cast<char*>(VANDRO_CLI)};
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(VANDRO_CLI, argv.data());
        _exit(127);
    }
    close(out[1]), close(err[1]);
    CliRun r{-1, drain(out[0]), drain(err[0])};
    int st = 0;
    waitpid(pid, &st, 0);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return r;
}

static json readJson(const std::string& path) { return json::parse(std::ifstream(path), nullptr, false); }

static std::vector<int16_t> capture(const std::string& preset, int buffers) {
    vsim::Load load;
    vsim::findPreset(preset, &load, nullptr);
    std::vector<int16_t> samples;
    vsim::synthesize(load, vsim::CaptureOptions(), buffers, &samples, nullptr, nullptr);
    return samples;
}

class Cli : public ::testing::Test {
  protected:
    void SetUp() override { resetEngine(), dir = storageRoot() + "/cli/", makeDirs(dir); }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

// Every malformed input gets one line on stderr and a documented status.
TEST_F(Cli, BadInputsGetOneLineAndTheirStatus) {
    const std::string unit = "[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],";
    writeText(dir + "short.dat", "0.1\n");
    writeText(dir + "text.dat", "0.1\nnot a number\n");
    writeText(dir + "bad.json", "{ not json");
    writeText(dir + "null.json", "{\"coefficients\": [" + unit + "[null,0,0,0,0]]}");
    writeText(dir + "object.json", R"({"coefficients": {"a": 1}})");
    writeText(dir + "unstable.json", "{\"coefficients\": [" + unit + "[1,0,0,-2.1,1.2]]}");
    writeText(dir + "ok.json", "{\"coefficients\": [" + unit + "[0.5,0,0,0.1,0]]}");
    vsim::writeWav(dir + "a.wav", std::vector<int16_t>(2 * 4800, 1000), nullptr);
    const std::string d = dir;
    const struct {
        std::vector<std::string> args;
        std::string line;  // the start of the one line on stderr; status 1 for all
    } table[] = {
        {{"measure", "--preset", "nope"}, "vandro: unknown preset 'nope'; known presets: earbud-32"},
        {{"measure", "--seed", "-1"}, "vandro: --seed: Value -1 is out of range (see vandro --help)"},
        {{"measure", "--json", ""}, "vandro: --json: needs a file name"},
        {{"measure", "--mode", "sideways"}, "vandro: --mode: sideways not in {fit,identify,curve}"},
        {{}, "vandro: A subcommand is required (see vandro --help)"},
        {{"replay", d + "none.wav"}, "vandro: " + d + "none.wav: cannot read"},
        {{"replay", d}, "vandro: " + d + ": a capture folder must hold rawDataI.dat and rawDataV.dat"},
        {{"replay", d + "short.dat", d + "short.dat"}, "vandro: raw capture: shorter than one buffer"},
        {{"replay", d + "text.dat", d + "short.dat"}, "vandro: " + d + "text.dat: line 2 is not a number"},
        {{"apply", d, d + "a.wav", d + "o.wav"}, "vandro: " + d + ": is a directory, not a report"},
        {{"apply", d + "bad.json", d + "a.wav", d + "o.wav"}, "vandro: " + d + "bad.json: not a JSON report"},
        {{"apply", d + "null.json", d + "a.wav", d + "o.wav"}, "vandro: " + d + "null.json: coefficient 0 of section 4 is not a finite number"},
        {{"apply", d + "object.json", d + "a.wav", d + "o.wav"}, "vandro: " + d + "object.json: not a report of a finished fit"},
        {{"apply", d + "unstable.json", d + "a.wav", d + "o.wav"}, "vandro: " + d + "unstable.json: section 4 is unstable"},
        {{"apply", d + "ok.json", d + "a.wav", d + "o.xyz"}, "vandro: " + d + "o.xyz: unknown audio format for this name"},
    };
    for (const auto& row : table) {
        const CliRun r = vandro(row.args);
        EXPECT_EQ(r.status, 1) << row.line << "\n" << r.err;
        EXPECT_EQ(r.err.rfind(row.line, 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    ASSERT_EQ(vandro({"apply", d + "ok.json", d + "a.wav", d + "o.flac"}).status, 0);  // the format its name asks for
    char magic[4] = {};
    std::ifstream(d + "o.flac", std::ios::binary).read(magic, 4);
    EXPECT_EQ(std::string(magic, 4), "fLaC");
}

// The report agrees with the library's files; what a run fed, saved as a WAV
// and as raw files, replays to the same 25 coefficients; identification and apply.
TEST_F(Cli, ReportsSavedCapturesIdentificationAndApply) {
    const CliRun m = vandro({"measure", "--preset", "dual-ba", "--save-wav", dir + "fed.wav", "--save-raw", dir + "raw",
                             "--json", dir + "m.json"});
    ASSERT_EQ(m.status, 0) << m.err;
    const json direct = readJson(dir + "m.json");
    EXPECT_EQ(direct["schema"], 1);
    EXPECT_EQ(direct["buffers"], 38);
    EXPECT_EQ(direct["headphone_type_name"], "in-ear");
    EXPECT_EQ(direct["sample_rate_hz"], 48000);
    std::vector<double> onDisk(228);
    ASSERT_EQ(importCurve(dataFile("device_impedance.dat").c_str(), onDisk.data(), 228), 0);
    for (int i = 0; i < 228; i++) ASSERT_NEAR(direct["device_curve"]["ohms"][i].get<double>(), onDisk[i], 5e-7);
    EXPECT_LT(direct["deviation"]["rms_db"].get<double>(), 0.5);
    for (const std::vector<std::string>& args : {std::vector<std::string>{"replay", dir + "fed.wav", "--json", "-"},
                                                 {"replay", dir + "raw", "--json", "-"},
                                                 {"replay", dir + "raw/rawDataI.dat", dir + "raw/rawDataV.dat", "--json", "-"}}) {
        const CliRun r = vandro(args);
        EXPECT_EQ(r.status, 0) << args[1] << r.err;
        EXPECT_EQ(json::parse(r.out, nullptr, false)["coefficients"], direct["coefficients"]) << args[1];
    }
    const CliRun def = vandro({"default"});
    EXPECT_EQ(def.status, 0) << def.err;
    EXPECT_NE(def.out.find("from: replay " + dir + "raw/rawDataI.dat"), std::string::npos) << def.out;
    ASSERT_EQ(vandro({"measure", "--preset", "dual-ba", "--seed", "9", "--mode", "identify", "--json", dir + "id.json"}).status, 0);
    const json id = readJson(dir + "id.json")["identification"];
    EXPECT_GT(id["correlation"].get<double>(), 0.92);
    EXPECT_NEAR(id["threshold"].get<double>(), 0.92, 1e-7);
    EXPECT_EQ(vandro({"measure", "--preset", "earbud-32", "--mode", "identify"}).status, 5);
    vsim::writeWav(dir + "loud.wav", std::vector<int16_t>(2 * 48000, 30000), nullptr);
    const CliRun applied = vandro({"apply", dir + "m.json", dir + "loud.wav", dir + "out.wav"});
    EXPECT_EQ(applied.status, 0) << applied.err;
    EXPECT_NE(applied.out.find("Filtered 48000 frames"), std::string::npos) << applied.out;
}

// default stores only what the program's last run wrote and names that run.
// Ten buffers are not enough: the report shows no device curve (although an
// earlier run left one on storage) and names both short bands, counted by hand
// (16 full-rate blocks and one decimated spectrum per buffer) on the library's
// axes (full-rate bins 5..161 at k 22050/255 Hz, decimated 6..158 at k 1378/255 Hz).
TEST_F(Cli, DefaultAndAShortRun) {
    ASSERT_EQ(vandro({"measure", "--preset", "resistor-32"}).status, 4);
    const CliRun warned = vandro({"default"});
    EXPECT_EQ(warned.status, 0) << warned.err;
    EXPECT_NE(warned.out.find("warning: that run's result was 4, not 1"), std::string::npos) << warned.out;
    writeText(dataFile("device_impedance.dat"), "1.0\n");
    EXPECT_NE(vandro({"default"}).err.find("was not written by this program's last run (measure resistor-32"), std::string::npos);
    vsim::writeWav(dir + "ten.wav", capture("inear-16", 10), nullptr);
    const CliRun r = vandro({"replay", dir + "ten.wav", "--json", dir + "ten.json"});
    EXPECT_EQ(r.status, 6) << r.err;
    EXPECT_NE(r.out.find("Device curve: none (this run did not reach it)"), std::string::npos) << r.out;
    const json j = readJson(dir + "ten.json"), c = j["coverage"];
    EXPECT_TRUE(j["device_curve"].is_null());
    ASSERT_EQ(c.size(), 2u) << c.dump();
    const double bands[2][5] = {{6 * 1378.0 / 255, 158 * 1378.0 / 255, 10, 37}, {5 * 22050.0 / 255, 161 * 22050.0 / 255, 160, 600}};
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(c[i]["path"], i == 0 ? "decimated" : "full");
        EXPECT_NEAR(c[i]["from_hz"].get<double>(), bands[i][0], 1e-9);
        EXPECT_NEAR(c[i]["to_hz"].get<double>(), bands[i][1], 1e-9);
        EXPECT_EQ(c[i]["accepted"].get<double>(), bands[i][2]);
        EXPECT_EQ(c[i]["needed"].get<double>(), bands[i][3]);
    }
    const CliRun def = vandro({"default"});  // the last run built no curve
    EXPECT_EQ(def.status, 1);
    EXPECT_NE(def.err.find("did not produce a device curve"), std::string::npos) << def.err;
}

TEST_F(Cli, BatchGivesEveryCaptureItsRow) {
    vsim::writeWav(dir + "good.wav", capture("dual-ba", 40), nullptr);
    vsim::writeWav(dir + "short.wav", capture("dual-ba", 5), nullptr);
    writeText(dir + "bad.wav", "not audio");
    writeText(dir + "flat.csv", "freq_hz,z_ohm\n20,32\n20000,32\n");
    writeText(dir + "broken.zma", "20 32 0\n10 33 0\n");
    const CliRun r = vandro({"batch", dir + "good.wav", dir + "short.wav", dir + "bad.wav", "--load", dir + "flat.csv",
                             dir + "broken.zma", "--csv", dir + "b.csv", "--jsonl", dir + "b.jsonl"});
    EXPECT_EQ(r.status, 6) << r.err;  // the status of the first capture that did not give result 1
    const std::vector<std::string> rows = readLines(dir + "b.csv"), starts = {
        "file,result,meaning,buffers,headphone_type,reason,clipped_samples,short_bands",
        dir + "good.wav,1,done: 25 coefficients written,38,1,,0,",
        dir + "short.wav,0,the input ended before the library had enough data,5,,,0,"
              "decimated 32.4-853.8 Hz 5/37; full 432.4-13921.8 Hz 80/600",
        dir + "bad.wav,,error,0,,",
        dir + "flat.csv,4,load rejected",  // a flat 32 ohm curve is a resistor to the library
        dir + "broken.zma,,error,0,," + dir + "broken.zma:2: frequencies are not increasing,,"};
    ASSERT_EQ(rows.size(), starts.size());
    for (size_t i = 0; i < rows.size(); i++) EXPECT_EQ(rows[i].rfind(starts[i], 0), 0u) << rows[i];
    EXPECT_EQ(readLines(dir + "b.jsonl").size(), 5u);
}

// The picture's name is only ever a file name: a quote in it runs nothing, the
// file named is the file written, and a picture that cannot be drawn is one
// line and status 8 with the report still written.
TEST_F(Cli, PicturesAreDrawnWithoutAShell) {
    const std::string odd = "x';touch INJECTED;'.png";
    EXPECT_EQ(vandro({"measure", "--preset", "inear-16", "--plot", odd}, dir).status, 0);
    EXPECT_TRUE(fileExists(dir + odd));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1) << "only the picture was written";
    EXPECT_EQ(vandro({"measure", "--preset", "inear-16", "--plot", "picture"}, dir).status, 0);
    EXPECT_TRUE(fileExists(dir + "picture"));
    for (const std::string& bad : {dir + "missing/p.png", dir + "p.xyz"}) {
        const CliRun f = vandro({"measure", "--preset", "inear-16", "--json", dir + "r.json", "--plot", bad});
        EXPECT_EQ(f.status, 8) << bad;
        EXPECT_EQ(f.err.rfind("vandro: the picture could not be drawn: ", 0), 0u) << f.err;
        EXPECT_EQ(std::count(f.err.begin(), f.err.end(), '\n'), 1) << f.err;
        EXPECT_TRUE(fileExists(dir + "r.json"));
    }
}
