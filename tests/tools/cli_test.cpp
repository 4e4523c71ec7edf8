// The vandro program as a user runs it (its test build, on the suite's storage
// root): exit statuses, error lines, reports that show only this run.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "engine/vandro.h"
#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "util/curve_file.h"

#include <sndfile.h>
#include <cmath>

struct CliRun {
    int status;
    std::string out, err;
    std::string firstErrLine() const { return err.substr(0, err.find('\n')); }
};

static std::string drain(int fd) {
    std::string s;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) s.append(buf, static_cast<size_t>(n));
    close(fd);
    return s;
}

// Runs the program with these arguments (no shell), in the folder dir.
static CliRun vandro(const std::vector<std::string>& args, const std::string& dir = ".") {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return {-1, "", ""};
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        close(out[0]);
        close(err[0]);
        if (chdir(dir.c_str()) != 0) _exit(126);
        std::vector<char*> argv{const_cast<char*>(VANDRO_CLI)};
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(VANDRO_CLI, argv.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    CliRun r{-1, drain(out[0]), drain(err[0])};
    int st = 0;
    waitpid(pid, &st, 0);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return r;
}

static nlohmann::json readJson(const std::string& path) {
    std::ifstream in(path);
    return nlohmann::json::parse(in, nullptr, false);
}

static std::vector<int16_t> capture(const std::string& preset, int buffers, unsigned long seed = 1) {
    vsim::Load load;
    vsim::findPreset(preset, &load, nullptr);
    vsim::CaptureOptions o;
    o.seed = seed;
    std::vector<int16_t> samples;
    vsim::synthesize(load, o, buffers, &samples, nullptr, nullptr);
    return samples;
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

// Every malformed input gets one line on stderr and a documented status: no
// abort, no traceback.
TEST_F(Cli, BadInputsGetOneLineAndTheirStatus) {
    writeText(dir + "/short.dat", "0.1\n");
    writeText(dir + "/text.dat", "0.1\nnot a number\n");
    writeText(dir + "/bad.json", "{ not json");
    writeText(dir + "/string.json", R"({"coefficients": [[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],["x",0,0,0,0]]})");
    writeText(dir + "/null.json", R"({"coefficients": [[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[null,0,0,0,0]]})");
    writeText(dir + "/object.json", R"({"coefficients": {"a": 1}})");
    writeText(dir + "/unstable.json", R"({"coefficients": [[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[1,0,0,-2.1,1.2]]})");
    writeText(dir + "/ok.json", R"({"coefficients": [[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[1,0,0,0,0],[0.5,0,0,0.1,0]]})");
    std::vector<int16_t> audio(2 * 4800, 1000);
    vsim::writeWav(dir + "/a.wav", audio, nullptr);
    const std::string d = dir + "/";
    struct Row {
        std::vector<std::string> args;
        int status;
        std::string line;  // the start of the one line on stderr
    };
    const std::vector<Row> table = {
        {{"measure", "--preset", "nope"}, 1, "vandro: unknown preset 'nope'; known presets: earbud-32"},
        {{"measure", "--seed", "-1"}, 1, "vandro: --seed: Value -1 is out of range (see vandro --help)"},
        {{"measure", "--json", ""}, 1, "vandro: --json: needs a file name"},
        {{"measure", "--plot", ""}, 1, "vandro: --plot: needs a file name"},
        {{"measure", "--mode", "sideways"}, 1, "vandro: --mode: sideways not in {fit,identify,curve}"},
        {{"bogus"}, 1, "vandro: A subcommand is required"},
        {{}, 1, "vandro: A subcommand is required (see vandro --help)"},
        {{"replay", d + "none.wav"}, 1, "vandro: " + d + "none.wav: cannot read"},
        {{"replay", dir}, 1, "vandro: " + dir + ": a capture folder must hold rawDataI.dat and rawDataV.dat"},
        {{"replay", d + "short.dat", d + "short.dat"}, 1, "vandro: raw capture: shorter than one buffer"},
        {{"replay", d + "text.dat", d + "short.dat"}, 1, "vandro: " + d + "text.dat: line 2 is not a number"},
        {{"replay", dir, d + "short.dat"}, 1, "vandro: " + dir + ": is a directory, not a raw capture"},
        {{"apply", d + "none.json", d + "a.wav", d + "o.wav"}, 1, "vandro: " + d + "none.json: cannot read"},
        {{"apply", dir, d + "a.wav", d + "o.wav"}, 1, "vandro: " + dir + ": is a directory, not a report"},
        {{"apply", d + "bad.json", d + "a.wav", d + "o.wav"}, 1, "vandro: " + d + "bad.json: not a JSON report"},
        {{"apply", d + "string.json", d + "a.wav", d + "o.wav"}, 1,
         "vandro: " + d + "string.json: coefficient 0 of section 4 is not a finite number"},
        {{"apply", d + "null.json", d + "a.wav", d + "o.wav"}, 1,
         "vandro: " + d + "null.json: coefficient 0 of section 4 is not a finite number"},
        {{"apply", d + "object.json", d + "a.wav", d + "o.wav"}, 1,
         "vandro: " + d + "object.json: not a report of a finished fit"},
        {{"apply", d + "unstable.json", d + "a.wav", d + "o.wav"}, 1,
         "vandro: " + d + "unstable.json: section 4 is unstable"},
        {{"apply", d + "ok.json", d + "a.wav", d + "o.xyz"}, 1,
         "vandro: " + d + "o.xyz: unknown audio format for this name"},
        {{"apply", d + "ok.json", d + "none.wav", d + "o.wav"}, 1, "vandro: " + d + "none.wav: cannot read"},
    };
    for (const Row& row : table) {
        CliRun r = vandro(row.args);
        std::string cmd;
        for (const std::string& a : row.args) cmd += a + " ";
        EXPECT_EQ(r.status, row.status) << cmd << "\n" << r.err;
        EXPECT_EQ(r.firstErrLine().rfind(row.line, 0), 0u) << cmd << "\n" << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << cmd << "\n" << r.err;
    }
    // apply writes the format its output name asks for.
    ASSERT_EQ(vandro({"apply", d + "ok.json", d + "a.wav", d + "o.flac"}).status, 0);
    std::ifstream flac(d + "o.flac", std::ios::binary);
    char magic[4] = {};
    flac.read(magic, 4);
    EXPECT_EQ(std::string(magic, 4), "fLaC");
}

// Ten buffers of a real capture are not enough: the input ends first, and the
// report shows no device curve, although a finished run left one on storage.
TEST_F(Cli, ARunThatBuiltNoCurveShowsNone) {
    ASSERT_EQ(vandro({"measure", "--preset", "open-300"}).status, 4);
    ASSERT_TRUE(fileExists(dataFile("device_impedance.dat")));
    vsim::writeWav(dir + "/few.wav", capture("earbud-32", 10), nullptr);
    CliRun r = vandro({"replay", dir + "/few.wav", "--json", dir + "/few.json"});
    EXPECT_EQ(r.status, 6) << r.err;
    EXPECT_NE(r.out.find("Device curve: none (this run did not reach it)"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("|Z| at 100 Hz"), std::string::npos) << r.out;
    nlohmann::json j = readJson(dir + "/few.json");
    EXPECT_TRUE(j["device_curve"].is_null());
    EXPECT_TRUE(j["resonances"].empty());
    EXPECT_EQ(j["capture"]["clipped_samples"], 0);
    // And default refuses: the last run built no curve.
    CliRun def = vandro({"default"});
    EXPECT_EQ(def.status, 1);
    EXPECT_NE(def.err.find("did not produce a device curve"), std::string::npos) << def.err;
}

TEST_F(Cli, ReportAgreesWithTheLibrarysFilesAndReplayMatchesTheDirectRun) {
    CliRun direct = vandro({"measure", "--preset", "dual-ba", "--seed", "3", "--json", dir + "/direct.json"});
    ASSERT_EQ(direct.status, 0) << direct.err;
    nlohmann::json d = readJson(dir + "/direct.json");
    EXPECT_EQ(d["schema"], 1);
    EXPECT_EQ(d["result"], 1);
    EXPECT_EQ(d["buffers"], 38);
    EXPECT_EQ(d["headphone_type"], 1);
    EXPECT_EQ(d["headphone_type_name"], "in-ear");
    EXPECT_EQ(d["sample_rate_hz"], 48000);
    std::vector<double> onDisk(228);
    ASSERT_EQ(importCurve(dataFile("device_impedance.dat").c_str(), onDisk.data(), 228), 0);
    for (int i = 0; i < 228; i++) ASSERT_NEAR(d["device_curve"]["ohms"][i].get<double>(), onDisk[i], 5e-7);
    EXPECT_LT(d["deviation"]["rms_db"].get<double>(), 0.5);

    // The same capture through a WAV file gives the same 25 coefficients.
    ASSERT_TRUE(vsim::writeWav(dir + "/c.wav", capture("dual-ba", 40, 3), nullptr));
    CliRun replay = vandro({"replay", dir + "/c.wav", "--json", "-"});
    ASSERT_EQ(replay.status, 0) << replay.err;
    nlohmann::json fromStdout = nlohmann::json::parse(replay.out, nullptr, false);
    ASSERT_FALSE(fromStdout.is_discarded()) << replay.out;
    EXPECT_EQ(fromStdout["coefficients"], d["coefficients"]);

    // Identification: store the reference, then the same and another headset.
    CliRun def = vandro({"default"});
    EXPECT_EQ(def.status, 0) << def.err;
    EXPECT_NE(def.out.find("from: replay " + dir + "/c.wav (mode fit) at "), std::string::npos) << def.out;
    CliRun same = vandro({"measure", "--preset", "dual-ba", "--seed", "9", "--mode", "identify", "--json", dir + "/id.json"});
    EXPECT_EQ(same.status, 0) << same.err;
    nlohmann::json id = readJson(dir + "/id.json")["identification"];
    EXPECT_GT(id["correlation"].get<double>(), 0.92);
    EXPECT_NEAR(id["threshold"].get<double>(), 0.92, 1e-7);
    EXPECT_EQ(id["same"], true);
    CliRun other = vandro({"measure", "--preset", "earbud-32", "--mode", "identify"});
    EXPECT_EQ(other.status, 5);
    EXPECT_NE(other.out.find("new headset"), std::string::npos);

    // Applying the fit to audio reports what clips.
    std::vector<int16_t> loud(2 * 48000, 30000);
    vsim::writeWav(dir + "/loud.wav", loud, nullptr);
    CliRun applied = vandro({"apply", dir + "/direct.json", dir + "/loud.wav", dir + "/out.wav"});
    EXPECT_EQ(applied.status, 0) << applied.err;
    EXPECT_NE(applied.out.find("Filtered 48000 frames"), std::string::npos) << applied.out;
}

// default stores only what the program's last run wrote, and says which run that was.
TEST_F(Cli, DefaultNamesItsRunAndRefusesAForeignCurve) {
    ASSERT_EQ(vandro({"measure", "--preset", "resistor-32"}).status, 4);
    CliRun warned = vandro({"default"});
    EXPECT_EQ(warned.status, 0) << warned.err;
    EXPECT_NE(warned.out.find("warning: that run's result was 4, not 1"), std::string::npos) << warned.out;
    writeText(dataFile("device_impedance.dat"), "1.0\n");
    CliRun foreign = vandro({"default"});
    EXPECT_EQ(foreign.status, 1);
    EXPECT_NE(foreign.err.find("was not written by this program's last run (measure resistor-32"),
              std::string::npos) << foreign.err;
}

// A clipped capture is reported by replay as by measure.
TEST_F(Cli, ReplayReportsClipping) {
    std::vector<int16_t> clipped = capture("inear-16", 40);
    for (size_t i = 0; i < clipped.size(); i += 1000) clipped[i] = 32767;
    vsim::writeWav(dir + "/clipped.wav", clipped, nullptr);
    CliRun r = vandro({"replay", dir + "/clipped.wav", "--json", dir + "/clipped.json"});
    nlohmann::json j = readJson(dir + "/clipped.json");
    // Only the buffers fed count: every thousandth sample of them.
    const long fed = j["buffers"].get<long>() * VANDRO_SAMPLES_PER_BUFFER, expected = (fed + 999) / 1000;
    EXPECT_EQ(j["capture"]["clipped_samples"], expected);
    EXPECT_NE(r.out.find("the capture clipped"), std::string::npos) << r.out;
}

// The picture's name is only ever a file name: a quote in it runs nothing, the
// file named is the file written, and a picture that cannot be drawn is one
// line and status 8 with the report still written.
TEST_F(Cli, PicturesAreDrawnWithoutAShell) {
    const std::string odd = "x';touch INJECTED;'.png";
    CliRun r = vandro({"measure", "--preset", "inear-16", "--plot", odd}, dir);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fileExists(dir + "/" + odd));
    EXPECT_FALSE(fileExists(dir + "/INJECTED"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1) << "only the picture was written";
    CliRun bare = vandro({"measure", "--preset", "inear-16", "--plot", "picture"}, dir);
    EXPECT_EQ(bare.status, 0) << bare.err;
    EXPECT_TRUE(fileExists(dir + "/picture"));
    for (const std::string& bad : {dir + "/missing/p.png", dir + "/p.xyz"}) {
        CliRun f = vandro({"measure", "--preset", "inear-16", "--json", dir + "/r.json", "--plot", bad});
        EXPECT_EQ(f.status, 8) << bad;
        EXPECT_EQ(f.err.rfind("vandro: the picture could not be drawn: ", 0), 0u) << f.err;
        EXPECT_EQ(std::count(f.err.begin(), f.err.end(), '\n'), 1) << f.err;
        EXPECT_TRUE(fileExists(dir + "/r.json"));
    }
}

// A capture cut short after ten buffers: every bin of both paths is short, by
// a count made by hand (16 full-rate blocks and one decimated spectrum per
// buffer, every one accepted for this clean capture), on the library's axes
// (full-rate bins 5..161 at k x 22050/255 Hz, decimated bins 6..158 at k x 1378/255 Hz).
TEST_F(Cli, CoverageNamesTheShortBands) {
    vsim::writeWav(dir + "/ten.wav", capture("inear-16", 10), nullptr);
    CliRun r = vandro({"replay", dir + "/ten.wav", "--json", dir + "/ten.json"});
    EXPECT_EQ(r.status, 6) << r.err;
    nlohmann::json c = readJson(dir + "/ten.json")["coverage"];
    ASSERT_EQ(c.size(), 2u) << c.dump();
    EXPECT_EQ(c[0]["path"], "decimated");
    EXPECT_NEAR(c[0]["from_hz"].get<double>(), 6 * 1378.0 / 255, 1e-9);
    EXPECT_NEAR(c[0]["to_hz"].get<double>(), 158 * 1378.0 / 255, 1e-9);
    EXPECT_EQ(c[0]["accepted"], 10);
    EXPECT_EQ(c[0]["needed"], 37);
    EXPECT_EQ(c[1]["path"], "full");
    EXPECT_NEAR(c[1]["from_hz"].get<double>(), 5 * 22050.0 / 255, 1e-9);
    EXPECT_NEAR(c[1]["to_hz"].get<double>(), 161 * 22050.0 / 255, 1e-9);
    EXPECT_EQ(c[1]["accepted"], 160);
    EXPECT_EQ(c[1]["needed"], 600);
    EXPECT_NE(r.out.find("Coverage: 2 band(s) short of data"), std::string::npos) << r.out;
}

// What a run fed, saved as a WAV and as raw-capture files, replays to the same
// result and the same 25 coefficients.
TEST_F(Cli, SavedCapturesReplayToTheSameFit) {
    CliRun m = vandro({"measure", "--preset", "inear-16", "--save-wav", dir + "/fed.wav", "--save-raw",
                       dir + "/raw", "--json", dir + "/m.json"});
    ASSERT_EQ(m.status, 0) << m.err;
    const nlohmann::json direct = readJson(dir + "/m.json");
    std::vector<int16_t> fed;
    ASSERT_TRUE(vsim::readWav(dir + "/fed.wav", &fed, nullptr));
    EXPECT_EQ(fed.size(), 38u * VANDRO_SAMPLES_PER_BUFFER);
    EXPECT_EQ(readLines(dir + "/raw/rawDataI.dat").size(), 38u * VANDRO_FRAMES_PER_BUFFER);
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"replay", dir + "/fed.wav"}, {"replay", dir + "/raw"},
          {"replay", dir + "/raw/rawDataI.dat", dir + "/raw/rawDataV.dat"}}) {
        std::vector<std::string> a = args;
        a.insert(a.end(), {"--json", dir + "/r.json"});
        CliRun r = vandro(a);
        EXPECT_EQ(r.status, 0) << a[1] << r.err;
        const nlohmann::json again = readJson(dir + "/r.json");
        EXPECT_EQ(again["result"], direct["result"]) << a[1];
        EXPECT_EQ(again["coefficients"], direct["coefficients"]) << a[1];
    }
}

TEST_F(Cli, BatchGivesEveryCaptureItsRow) {
    vsim::writeWav(dir + "/good.wav", capture("dual-ba", 40), nullptr);
    vsim::writeWav(dir + "/short.wav", capture("dual-ba", 5), nullptr);
    writeText(dir + "/bad.wav", "not audio");
    writeText(dir + "/flat.csv", "freq_hz,z_ohm\n20,32\n20000,32\n");
    writeText(dir + "/broken.zma", "20 32 0\n10 33 0\n");
    CliRun r = vandro({"batch", dir + "/good.wav", dir + "/short.wav", dir + "/bad.wav", "--load", dir + "/flat.csv",
                       dir + "/broken.zma", "--csv", dir + "/b.csv", "--jsonl", dir + "/b.jsonl"});
    EXPECT_EQ(r.status, 6) << r.err;  // the status of the first capture that did not give result 1
    const std::vector<std::string> rows = readLines(dir + "/b.csv");
    ASSERT_EQ(rows.size(), 6u);
    EXPECT_EQ(rows[0], "file,result,meaning,buffers,headphone_type,reason,clipped_samples,short_bands");
    EXPECT_EQ(rows[1].rfind(dir + "/good.wav,1,done: 25 coefficients written,38,1,,0,", 0), 0u) << rows[1];
    EXPECT_EQ(rows[2].rfind(dir + "/short.wav,0,the input ended before the library had enough data,5,,,0,"
                                  "decimated 32.4-853.8 Hz 5/37; full 432.4-13921.8 Hz 80/600",
                            0),
              0u)
        << rows[2];
    EXPECT_EQ(rows[3].rfind(dir + "/bad.wav,,error,0,,", 0), 0u) << rows[3];
    // A flat 32 ohm curve is a resistor to the library; a malformed curve is its own row.
    EXPECT_EQ(rows[4].rfind(dir + "/flat.csv,4,load rejected", 0), 0u) << rows[4];
    EXPECT_EQ(rows[5], dir + "/broken.zma,,error,0,," + dir + "/broken.zma:2: frequencies are not increasing,,")
        << rows[5];
    EXPECT_EQ(readLines(dir + "/b.jsonl").size(), 5u);
}

TEST_F(Cli, SignalWritesTheStimulus) {
    CliRun r = vandro({"signal", "--wav", dir + "/s.wav", "--seconds", "2", "--level", "-6"});
    ASSERT_EQ(r.status, 0) << r.err;
    SF_INFO info = {};
    SNDFILE* f = sf_open((dir + "/s.wav").c_str(), SFM_READ, &info);
    ASSERT_NE(f, nullptr);
    std::vector<short> s(static_cast<size_t>(info.frames));
    sf_readf_short(f, s.data(), info.frames);
    sf_close(f);
    EXPECT_EQ(info.channels, 1);
    EXPECT_EQ(info.samplerate, 44100);
    EXPECT_EQ(info.frames, 88200);
    int peak = 0;
    for (short v : s) peak = std::max(peak, std::abs(static_cast<int>(v)));
    EXPECT_NEAR(20 * log10(peak / 32768.0), -6.0, 0.01);
    // Periodic on the buffer: what the library's analysis needs.
    for (size_t t = 0; t + 8192 < s.size(); t += 997) ASSERT_EQ(s[t], s[t + 8192]) << t;
}
