// SPDX-License-Identifier: Apache-2.0
// The vandro program as a user runs it (its test build, on the suite's storage
// root): exit statuses, error lines, reports that show only this run.
#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "tools/cli_run.h"
#include "tools/spawn.h"
#include "util/curve_file.h"

using nlohmann::json;


static void writeCapture(const std::string& path, const std::string& preset, int buffers) {
    vsim::Load load;
    vsim::findPreset(preset, &load, nullptr);
    std::vector<int16_t> samples;
    vsim::synthesize(load, vsim::CaptureOptions(), buffers, &samples, nullptr, nullptr);
    vsim::writeWav(path, samples, nullptr);
}

static void replaceAll(std::string& s, const std::string& from, const std::string& to) {
    for (size_t at; (at = s.find(from)) != std::string::npos;) s.replace(at, from.size(), to);
}

class Cli : public ::testing::Test {
  protected:
    void SetUp() override { resetEngine(), dir = storageRoot() + "/cli/", makeDirs(dir); }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

// Holds the storage lock as another run would, while it lives.
struct HeldLock {
    int fd = open((storageRoot() + "/.vandro.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    HeldLock() { EXPECT_EQ(flock(fd, LOCK_EX), 0); }
    ~HeldLock() { close(fd); }
};

static std::string referenceOf(double ohms, int nanLine = 0) {
    std::string text;
    for (int i = 1; i <= 228; i++) text += i == nanLine ? "nan\n" : std::to_string(ohms) + "\n";
    return text;
}

// Every malformed input and hostile storage gets one line on stderr and its status (data/cli_errors.txt).
TEST_F(Cli, BadInputsGetOneLineAndTheirStatus) {
    vsim::writeWav(dir + "a.wav", std::vector<int16_t>(2 * 4800, 1000), nullptr);
    const std::string data = storageRoot() + "/data/", curve = data + "device_impedance.dat";
    const std::map<std::string, std::function<void()>> setups = {
        {"curve-dir", [&] { writeText(data + "default_device_impedance.dat", referenceOf(30)), makeDirs(curve); }},
        {"unwritten", [&] { makeDirs(curve), vandro({"measure"}); }},
        {"nan-reference", [&] { writeText(data + "default_device_impedance.dat", referenceOf(30, 5)); }},
        {"damaged-record", [&] { writeText(data + "vandro-last-run.json", "{bad"); }},
        {"record-dir", [&] { makeDirs(data + "vandro-last-run.json"); }},
        {"no-curve", [&] { vandro({"measure"}), std::filesystem::remove(curve); }},
        {"huge-wav", [&] {  // 4 GiB of silence that takes no disk: read only as far as the run goes
             std::ofstream f(storageRoot() + "/huge.wav", std::ios::binary);
             const uint32_t n = 0xFFFFFFF0u, fmt[] = {16, 0x20001, 44100, 176400, 0x100004};
             f.write("RIFF", 4), f.write((const char*)&n, 4), f.write("WAVEfmt ", 8), f.write((const char*)fmt, 20);
             f.write("data", 4), f.write((const char*)&n, 4);
             f.close();
             std::filesystem::resize_file(storageRoot() + "/huge.wav", 44ull + n); }}};
    std::ifstream rows(referenceFile("cli_errors.txt"));
    int count = 0;
    for (std::string row; std::getline(rows, row);) {
        if (row.empty() || row[0] == '#') continue;
        std::string setup;
        int status = 1;
        if (row[0] == '[') {
            std::istringstream(row.substr(1, row.find(']') - 1)) >> setup >> status;
            row = row.substr(row.find(']') + 2);
        }
        replaceAll(row, "$IN", referenceFile("cli")), replaceAll(row, "$OUT/", dir), replaceAll(row, "$OUT", dir);
        replaceAll(row, "$ROOT", storageRoot());
        replaceAll(row, "$LONG", dir + std::string(256 - dir.size() - 13, 'L'));
        const size_t split = row.find("=>");
        std::vector<std::string> args;
        std::istringstream words(row.substr(0, split));
        for (std::string w; words >> w;) args.push_back(w == "\"\"" ? "" : w);
        removeTree(storageRoot() + "/data"), makeDirs(storageRoot() + "/data");
        if (setup != "lock" && !setup.empty()) setups.at(setup)();
        const std::unique_ptr<HeldLock> held(setup == "lock" ? new HeldLock : nullptr);
        const CliRun r = vandro(args);
        EXPECT_EQ(r.status, status) << row << "\n" << r.err;
        const std::string line = row.substr(std::min(row.size(), split + 3));  // after "=> "
        EXPECT_EQ(r.err.rfind(line, 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), line.empty() ? 0 : 1) << r.err;
        std::vector<std::string> left;
        for (const auto& e : std::filesystem::directory_iterator(dir)) left.push_back(e.path().filename());
        EXPECT_EQ(left, std::vector<std::string>{"a.wav"}) << row;
        count++;
    }
    EXPECT_EQ(count, 39);
    ASSERT_EQ(vandro({"apply", referenceFile("cli/ok.json"), dir + "a.wav", dir + "o.flac"}).status, 0);  // the format its name asks for
    char magic[4] = {};
    std::ifstream(dir + "o.flac", std::ios::binary).read(magic, 4);
    EXPECT_EQ(std::string(magic, 4), "fLaC");
    // Every extension the README promises for apply's output.
    std::stringstream readme;
    readme << std::ifstream(referenceFile("../../README.md")).rdbuf();
    const std::string text = readme.str(), from = "(any libsndfile writes: ";
    ASSERT_NE(text.find(from), std::string::npos);
    std::istringstream listed(text.substr(text.find(from) + from.size(), text.find("...", text.find(from)) - text.find(from) - from.size()));
    int extensions = 0;
    for (std::string ext; listed >> ext; extensions++) {
        ext = ext.substr(0, ext.find(','));
        EXPECT_EQ(vandro({"apply", referenceFile("cli/ok.json"), dir + "a.wav", dir + "o" + ext}).status, 0) << ext;
    }
    EXPECT_EQ(extensions, 4);
}

// The report agrees with the library's files; what a run fed, saved as a WAV
// and as raw files, replays to the same 25 coefficients; identification and apply.
TEST_F(Cli, ReportsSavedCapturesIdentificationAndApply) {
    const std::string raw = dir + std::string(255 - dir.size() - 13, 'r');  // rawDataI.dat at 255 bytes: the longest taken
    const CliRun m = vandro({"measure", "--preset", "dual-ba", "--offset", "12345", "--save-wav", dir + "fed.wav",
                             "--save-raw", raw, "--json", dir + "m.json"});
    ASSERT_EQ(m.status, 0) << m.err;
    const json direct = readJson(dir + "m.json");
    EXPECT_EQ(direct["schema"], 1);
    EXPECT_EQ(direct["buffers"], 38);
    EXPECT_EQ(direct["source"]["offset"], 12345);
    EXPECT_EQ(direct["headphone_type_name"], "in-ear");
    std::vector<double> onDisk(228);
    ASSERT_EQ(importCurve(dataFile("device_impedance.dat").c_str(), onDisk.data(), 228), 0);
    for (int i = 0; i < 228; i++) ASSERT_NEAR(direct["device_curve"]["ohms"][i].get<double>(), onDisk[i], 5e-7);
    // Any burst size and sample format of the feed gives the same bits.
    const std::string wav = dir + "fed.wav";
    for (const std::vector<std::string>& args : {std::vector<std::string>{"replay", wav, "--period", "96", "--format", "s24"},
                                                 {"replay", wav, "--period", "441", "--format", "f32"},
                                                 {"replay", wav, "--period", "random", "--seed", "7", "--format", "s32"},
                                                 {"replay", raw}, {"replay", raw + "/rawDataI.dat", raw + "/rawDataV.dat"}}) {
        std::vector<std::string> withJson = args;
        withJson.insert(withJson.end(), {"--json", "-"});
        const CliRun r = vandro(withJson);
        EXPECT_EQ(r.status, 0) << args[1] << r.err;
        const json j = json::parse(r.out, nullptr, false);
        EXPECT_EQ(j["coefficients"], direct["coefficients"]) << args[1];
        EXPECT_EQ(j["feed"]["frames_dropped"], 0);
        EXPECT_EQ(j["feed"]["buffers_processed"], 38);
    }
    const CliRun def = vandro({"default"});
    EXPECT_EQ(def.status, 0) << def.err;
    EXPECT_NE(def.out.find("from: replay " + raw + "/rawDataI.dat"), std::string::npos) << def.out;
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
// Ten buffers are not enough: the report shows no device curve, although an
// earlier run left one on storage (the short bands are in the batch rows).
TEST_F(Cli, DefaultAndAShortRun) {
    ASSERT_EQ(vandro({"measure", "--preset", "resistor-32"}).status, 4);
    const CliRun warned = vandro({"default"});
    EXPECT_EQ(warned.status, 0) << warned.err;
    EXPECT_NE(warned.out.find("warning: that run's result was 4, not 1"), std::string::npos) << warned.out;
    writeText(dataFile("device_impedance.dat"), "1.0\n");
    EXPECT_NE(vandro({"default"}).err.find("was not written by this program's last run (measure resistor-32"), std::string::npos);
    writeCapture(dir + "ten.wav", "inear-16", 10);
    const CliRun r = vandro({"replay", dir + "ten.wav", "--json", dir + "ten.json"});
    EXPECT_EQ(r.status, 6) << r.err;
    EXPECT_NE(r.out.find("Device curve: none (this run did not reach it)"), std::string::npos) << r.out;
    const json j = readJson(dir + "ten.json");
    EXPECT_TRUE(j["device_curve"].is_null());
    EXPECT_EQ(j["coverage"][1], json::parse(R"({"path": "full", "from_hz": 432.3529411764706, "to_hz": 13921.764705882353,
                                                "accepted": 160, "needed": 600, "bins": 157})"));
    const CliRun def = vandro({"default"});  // the last run built no curve
    EXPECT_EQ(def.status, 1);
    EXPECT_NE(def.err.find("did not produce a device curve"), std::string::npos) << def.err;
}

TEST_F(Cli, BatchGivesEveryCaptureItsRow) {
    writeCapture(dir + "good.wav", "dual-ba", 40);
    writeCapture(dir + "short.wav", "dual-ba", 5);
    std::filesystem::copy_file(dir + "good.wav", dir + "n\xff.wav");  // a name that is not UTF-8
    writeText(dir + "bad.wav", "not audio");
    writeText(dir + "flat.csv", "freq_hz,z_ohm\n20,32\n20000,32\n");
    writeText(dir + "broken.zma", "20 32 0\n10 33 0\n");
    const CliRun r = vandro({"batch", dir + "good.wav", dir + "n\xff.wav", dir + "short.wav", dir + "bad.wav", "--load", dir + "flat.csv",
                             dir + "broken.zma", "--csv", dir + "b.csv", "--jsonl", dir + "b.jsonl"});
    EXPECT_EQ(r.status, 6) << r.err;  // the status of the first capture that did not give result 1
    const std::vector<std::string> rows = readLines(dir + "b.csv"), starts = {
        "file,result,meaning,buffers,headphone_type,reason,clipped_samples,short_bands",
        dir + "good.wav,1,done: 25 coefficients written,38,1,,0,", dir + "n\xff.wav,1,",
        // Short bands by hand: 16 full-rate blocks and one decimated spectrum a buffer, on the
        // library's axes (full-rate bins 5..161 at k 22050/255 Hz, decimated 6..158 at k 1378/255 Hz).
        dir + "short.wav,0,the input ended before the library had enough data,5,,,0,"
              "decimated 32.4-853.8 Hz 5/37; full 432.4-13921.8 Hz 80/600",
        dir + "bad.wav,,error,0,,",
        dir + "flat.csv,4,load rejected",  // a flat 32 ohm curve is a resistor to the library
        dir + "broken.zma,,error,0,," + dir + "broken.zma:2: frequencies are not increasing,,"};
    ASSERT_EQ(rows.size(), starts.size());
    for (size_t i = 0; i < rows.size(); i++) EXPECT_EQ(rows[i].rfind(starts[i], 0), 0u) << rows[i];
    const std::vector<std::string> reports = readLines(dir + "b.jsonl");
    ASSERT_EQ(reports.size(), 6u);
    const json odd = json::parse(reports[1]);  // valid UTF-8: the byte is U+FFFD, name_bytes keeps it
    EXPECT_EQ(odd["source"]["name"], dir + "n\xef\xbf\xbd.wav");
    EXPECT_EQ(odd["source"]["name_bytes"], dir + "n\\xFF.wav");
}

// The picture's name is only ever a file name: a quote in it runs nothing, the
// file named is the file written, and a picture that cannot be drawn is one
// line and status 8 with the report still written.
TEST_F(Cli, PicturesAreDrawnWithoutAShell) {
    const std::string odd = dir + "x';touch INJECTED;'.png";
    for (const std::string& name : {odd, dir + "picture"}) EXPECT_EQ(vandro({"measure", "--preset", "inear-16", "--plot", name}).status, 0);
    EXPECT_TRUE(fileExists(odd) && fileExists(dir + "picture") && !fileExists("INJECTED"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 2) << "only the pictures were written";
    for (const std::string& bad : {dir + "missing/p.png", dir + "p.xyz"}) {
        const CliRun f = vandro({"measure", "--preset", "inear-16", "--json", dir + "r.json", "--plot", bad});
        EXPECT_EQ(f.status, 8) << bad;
        EXPECT_EQ(f.err.rfind("vandro: the picture could not be drawn: ", 0), 0u) << f.err;
        EXPECT_EQ(std::count(f.err.begin(), f.err.end(), '\n'), 1) << f.err;
        EXPECT_TRUE(fileExists(dir + "r.json"));
    }
}

// Starts the program without waiting for it: its pid, and its stderr on *errFd.
static pid_t startVandro(std::vector<std::string> args, int* errFd) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    args.insert(args.begin(), VANDRO_CLI);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, VANDRO_CLI, &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    *errFd = fds[0];
    return pid;
}

// A second run waits for the storage root and says so once; it runs when the
// first lets go. The test holds the lock and reads the waiting line, no sleep.
TEST_F(Cli, ASecondRunWaitsForTheStorageRoot) {
    std::optional<HeldLock> held(std::in_place);
    int errFd = -1;
    const pid_t pid = startVandro({"measure"}, &errFd);
    ASSERT_GT(pid, 0);
    std::string err;
    char c;
    while (err.find('\n') == std::string::npos && read(errFd, &c, 1) == 1) err += c;
    EXPECT_EQ(err, "vandro: waiting: another run holds the storage root (" + storageRoot() + "/.vandro.lock)\n");
    EXPECT_FALSE(fileExists(dataFile("device_impedance.dat")));
    held.reset();
    while (read(errFd, &c, 1) == 1) err += c;
    close(errFd);
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_TRUE(fileExists(dataFile("device_impedance.dat")));
}

// SIGINT once the first row is read: the batch keeps its finished rows whole,
// writes no row for the capture it cut short, says so once and exits 130.
TEST_F(Cli, AnInterruptedBatchKeepsItsFinishedRows) {
    writeCapture(dir + "a.wav", "dual-ba", 40);
    ASSERT_EQ(mkfifo((dir + "rows").c_str(), 0600), 0);
    const std::string wav = dir + "a.wav", csv = dir + "rows";
    int errFd = -1;
    const pid_t pid = startVandro({"batch", wav, wav, wav, "--csv", csv}, &errFd);
    ASSERT_GT(pid, 0);
    FILE* rows = fopen(csv.c_str(), "r");
    ASSERT_NE(rows, nullptr);
    char line[4096];
    std::vector<std::string> got;
    while (got.size() < 2 && fgets(line, sizeof line, rows) != nullptr) got.push_back(line);
    kill(pid, SIGINT);
    while (fgets(line, sizeof line, rows) != nullptr) got.push_back(line);
    fclose(rows);
    std::string err;
    for (char c; read(errFd, &c, 1) == 1;) err += c;
    close(errFd);
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 130) << err;
    ASSERT_GE(got.size(), 2u);
    EXPECT_LT(got.size(), 4u);
    for (const std::string& row : got) EXPECT_EQ(row.back(), '\n');
    EXPECT_EQ(got[1].rfind(wav + ",1,", 0), 0u) << got[1];
    EXPECT_EQ(err, "vandro: interrupted by SIGINT: batch stopped after " + std::to_string(got.size() - 1) +
                       " of 3 captures; their rows are in " + csv + "\n");
}
