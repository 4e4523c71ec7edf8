#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/log_capture.h"
#include "support/test_env.h"
#include "util/curve_file.h"

class CurveFile : public ::testing::Test {
  protected:
    void SetUp() override {
        resetEngine();
        dir = storageRoot() + "/files";
    }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

TEST_F(CurveFile, OpenMakesEachDirectoryWithTheDecimal666ModeButNotTheFileName) {
    mode_t old = umask(0);
    FILE* f = openDebugFile((dir + "//a/b/dump.x/c.dat").c_str());
    umask(old);
    EXPECT_EQ(f, nullptr);  // "dump.x" holds a dot, so it is never made
    struct stat st;
    ASSERT_EQ(stat((dir + "/a/b").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 01232u);  // 666 decimal
    EXPECT_FALSE(fileExists(dir + "/a/b/dump.x"));
    EXPECT_EQ(countLog(6, "VandroCalc-Utils",
                       "Failed to open debug file: " + dir + "//a/b/dump.x/c.dat"),
              1);

    f = openDebugFile((dir + "/a/b/ok.dat").c_str());
    ASSERT_NE(f, nullptr);
    fclose(f);
    EXPECT_TRUE(fileExists(dir + "/a/b/ok.dat"));
}

TEST_F(CurveFile, OpenUsesOnlyTheFirst255Characters) {
    std::string base = dir + "/long/";
    std::string name = "x.dat" + std::string(255 - base.size() - 5, 'n');
    FILE* f = openDebugFile((base + name + "IGNORED").c_str());
    ASSERT_NE(f, nullptr);
    fclose(f);
    EXPECT_TRUE(fileExists(base + name));
}

TEST_F(CurveFile, WritersUseTheirLineFormats) {
    double d[3] = {1.5, -0.000123456789012345, 3.0};
    float fl[2] = {0.1f, -2.0f};
    kiss_fft_cpx c[1] = {{1.0, -2.5}};
    int n[3] = {7, -8, 9};
    writeArrayToFile(d, 0, 2, (dir + "/d.dat").c_str());
    writeArrayToFile(fl, 0, 2, (dir + "/f.dat").c_str());
    writeArrayToFile(c, 0, 1, (dir + "/c.dat").c_str());
    writeFloatArrayToFile(d, 1, 3, (dir + "/short.dat").c_str());
    writeIntArrayToFile(n, 1, 3, (dir + "/i.dat").c_str());
    EXPECT_EQ(readLines(dir + "/d.dat"),
              (std::vector<std::string>{"1.500000000000e+00", "-1.234567890123e-04"}));
    EXPECT_EQ(readLines(dir + "/f.dat"),
              (std::vector<std::string>{"1.000000014901e-01", "-2.000000000000e+00"}));
    EXPECT_EQ(readLines(dir + "/c.dat"),
              (std::vector<std::string>{"1.000000000000e+00 + i-2.500000000000e+00"}));
    EXPECT_EQ(readLines(dir + "/short.dat"), (std::vector<std::string>{"-0.000123", "3.000000"}));
    EXPECT_EQ(readLines(dir + "/i.dat"), (std::vector<std::string>{"-8", "9"}));

    // An empty range (or a negative start) still creates or truncates the file.
    writeArrayToFile(d, 2, 2, (dir + "/d.dat").c_str());
    writeIntArrayToFile(n, -1, 3, (dir + "/i.dat").c_str());
    EXPECT_TRUE(fileExists(dir + "/d.dat"));
    EXPECT_TRUE(readLines(dir + "/d.dat").empty());
    EXPECT_TRUE(readLines(dir + "/i.dat").empty());
}

TEST_F(CurveFile, ExportedCurveImportsBackToSixDecimals) {
    double curve[228], back[228];
    for (int k = 0; k < 228; k++) curve[k] = 30.0 + k / 7.0;
    std::string path = dir + "/device_impedance.dat";
    EXPECT_EQ(exportCurve(curve, 228, path), 0);
    std::string text;
    EXPECT_EQ(importCurve(path.c_str(), back, 228), 0);
    for (int k = 0; k < 228; k++) ASSERT_NEAR(back[k], curve[k], 5e-7) << k;
    EXPECT_EQ(readLines(path)[1], "30.142857");

    float fcurve[2] = {0.5f, 1.25f};
    std::string fpath = dir + "/float.dat";
    EXPECT_EQ(exportCurve(fcurve, 2, fpath), 0);
    EXPECT_EQ(readLines(fpath)[1], "1.250000000000e+00");
    // A write that cannot happen is logged but still answers 0.
    std::string bad = dir + "/x.d/no.dat";
    EXPECT_EQ(exportCurve(curve, 228, bad), 0);
    EXPECT_EQ(countLog(6, "VandroCalc-Utils", "Failed to open debug file: " + bad), 1);
}

TEST_F(CurveFile, ImportInsistsOnTheExactLineCountAndNeverOverruns) {
    std::string path = dir + "/c.dat";
    double curve[4] = {-1, -1, -1, -1};
    const int n = 3;

    EXPECT_EQ(importCurve(path.c_str(), curve, n), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Utils", "File " + path + " could not be opened"), 1);

    makeDirs(dir);
    for (const char* text : {"1\n2\n", "1\n2\n3", "1\n2\n3\n\n", ""}) {
        writeText(path, text);
        clearLog();
        EXPECT_EQ(importCurve(path.c_str(), curve, n), -1) << text;
        // The message names 2048 whatever n is.
        EXPECT_EQ(countLog(6, "VandroCalc-Utils", "File not size 2048: " + path), 1);
        EXPECT_EQ(curve[0], -1.0);  // untouched
    }

    // Text after the last newline is not read past n values.
    writeText(path, "1.5\nabc\n3e2\n4\n");
    EXPECT_EQ(importCurve(path.c_str(), curve, 4), 0);
    writeText(path, "7\n8\n9\n99");
    EXPECT_EQ(importCurve(path.c_str(), curve, n), 0);
    EXPECT_EQ(curve[0], 7.0);
    EXPECT_EQ(curve[2], 9.0);
    EXPECT_EQ(curve[3], 4.0);  // the canary keeps its value

    const char binary[] = "\x01\xff\0zz\n5junk\n\n";
    writeText(path, std::string(binary, sizeof binary - 1));
    EXPECT_EQ(importCurve(path.c_str(), curve, n), 0);
    EXPECT_EQ(curve[0], 0.0);
    EXPECT_EQ(curve[1], 5.0);
    EXPECT_EQ(curve[2], 0.0);
    EXPECT_EQ(importCurve(dir.c_str(), curve, n), -1);  // a directory
}
