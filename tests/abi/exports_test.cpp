// Checks the shared library itself: what its dynamic symbol table exports, and
// that a client loading it with dlopen can drive the entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

static std::set<std::string> exportedSymbols() {
    std::set<std::string> names;
    std::string cmd = std::string("'") + VANDRO_NM + "' -D --defined-only '" + VANDRO_SHARED_LIBRARY + "'";
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return names;
    char line[4096];
    while (fgets(line, sizeof line, p) != nullptr) {
        char addr[64], type[8], name[4000];
        if (sscanf(line, "%63s %7s %3999s", addr, type, name) == 3) names.insert(name);
    }
    pclose(p);
    return names;
}

TEST(Exports, OnlyThePublicInterfaceLeaves) {
    std::set<std::string> names = exportedSymbols();
    ASSERT_FALSE(names.empty());
    for (const char* required :
         {"VandroInit", "VandroReset", "VandroResetRetry", "VandroClose", "VandroHandleBuffer",
          "VandroDefault", "threshY", "threshU", "threshYDec", "threshUDec",
          "_Z11importCurvePKcPdi", "_Z11exportCurvePdiRNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
          "_Z13openDebugFilePKc", "_Z16writeArrayToFilePK12kiss_fft_cpxiiPKc",
          "_Z7lowpassPdi", "_Z19createHanningWindowPdi"})
        EXPECT_EQ(names.count(required), 1u) << required;
    for (const std::string& n : names) {
        // kissfft's C functions; our own functions may take a kiss_fft_cpx.
        EXPECT_NE(n.rfind("kiss_", 0), 0u) << n;
        EXPECT_EQ(n.find("5Eigen"), std::string::npos) << n;
        for (const char* internal : {"readBuffer", "clearAccumulators", "property_get", "gSpec",
                                     "gBinCount", "gRaw", "captureRaw", "finishMeasurement"})
            EXPECT_EQ(n.find(internal), std::string::npos) << n;
    }
}

TEST(Exports, DlopenClientDrivesTheEntryPoints) {
    void* lib = dlopen(VANDRO_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto init = reinterpret_cast<int (*)()>(dlsym(lib, "VandroInit"));
    auto handle = reinterpret_cast<int (*)(int16_t*, int, float*, int)>(
        dlsym(lib, "VandroHandleBuffer"));
    auto close = reinterpret_cast<void (*)()>(dlsym(lib, "VandroClose"));
    auto thresh = reinterpret_cast<const double*>(dlsym(lib, "threshYDec"));
    ASSERT_TRUE(init && handle && close && thresh);
    std::vector<int16_t> silence(16384, 0);
    EXPECT_EQ(handle(silence.data(), 16384, nullptr, 0), -1);  // before init
    EXPECT_EQ(init(), 5);
    EXPECT_EQ(handle(silence.data(), 16384, nullptr, 0), 0);
    EXPECT_EQ(thresh[0], 1117e-7);
    close();
    close();
    EXPECT_EQ(handle(silence.data(), 16384, nullptr, 0), -1);  // after close
    // Not unloaded: android-base keeps a process-lifetime property map that an
    // unload would orphan (a leak report that is not the library's).
}
