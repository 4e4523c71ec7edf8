// SPDX-License-Identifier: Apache-2.0
// The shared library itself: its dynamic symbol table against the export
// list, and a client that loads it with dlopen and drives the entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "engine/vandro.h"
#include "tools/spawn.h"

// Defined dynamic symbols as `nm -D -C --defined-only` prints them (the name
// after "ADDRESS TYPE "), run without a shell.
static std::set<std::string> exportedSymbols(const char* library = VANDRO_SHARED_LIBRARY) {
    std::string text;
    runProgram({VANDRO_NM, "-D", "-C", "--defined-only", library}, nullptr, &text);
    std::istringstream lines(text);
    std::set<std::string> names;
    for (std::string l; std::getline(lines, l);)
        if (l.find(' ', l.find(' ') + 1) != std::string::npos) names.insert(l.substr(l.find(' ', l.find(' ') + 1) + 1));
    return names;
}

// The names the export list gives: C++ signatures quoted, C names bare (before "extern").
static std::set<std::string> listedSymbols(const char* exportMap = VANDRO_EXPORT_MAP) {
    std::stringstream text;
    text << std::ifstream(exportMap).rdbuf();
    const std::string map = std::regex_replace(text.str(), std::regex(R"(/\*[\s\S]*?\*/)"), ""),
                      global = map.substr(0, map.find("local:")), c = global.substr(0, global.find("extern"));
    std::set<std::string> names;
    const std::regex quoted(R"re("([^"]+)";)re"), bare(R"(\b([A-Za-z_]\w*);)");
    for (auto m = std::sregex_iterator(global.begin(), global.end(), quoted); m != std::sregex_iterator(); ++m) names.insert((*m)[1]);
    for (auto m = std::sregex_iterator(c.begin(), c.end(), bare); m != std::sregex_iterator(); ++m) names.insert((*m)[1]);
    return names;
}

TEST(Exports, TheLibraryExportsExactlyTheList) {
    const std::set<std::string> exported = exportedSymbols(), listed = listedSymbols();
    EXPECT_EQ(listed.size(), 98u);  // six entry points, seven data symbols, 85 numeric functions
    EXPECT_EQ(exported, listed);
    for (const std::string& n : listed) {  // the engine's own steps never leave, whatever the list says
        EXPECT_NE(n.rfind("kiss_", 0), 0u) << n;  // our functions may take a kiss_fft_cpx
        for (const char* internal : {"readBuffer", "clearAccumulators", "findResonances", "property_get", "finishMeasurement",
                                     "adaptFilterCurve", "Eigen::"})
            EXPECT_EQ(n.find(internal), std::string::npos) << n;
    }
}

TEST(Exports, TheFeedExportsItsEightEntryPoints) {
    const std::set<std::string> listed = listedSymbols(VANDRO_FEED_EXPORT_MAP);
    EXPECT_EQ(listed, (std::set<std::string>{"vandro_feed_create", "vandro_feed_strerror", "vandro_feed_push",
                                             "vandro_feed_start", "vandro_feed_process", "vandro_feed_status",
                                             "vandro_feed_stimulus", "vandro_feed_destroy"}));
    EXPECT_EQ(exportedSymbols(VANDRO_FEED_LIBRARY), listed);
}

TEST(Exports, DlopenClientDrivesTheEntryPoints) {
    void* lib = dlopen(VANDRO_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto init = reinterpret_cast<int (*)()>(dlsym(lib, "VandroInit"));
    auto handle = reinterpret_cast<int (*)(int16_t*, int, float*, int)>(dlsym(lib, "VandroHandleBuffer"));
    auto close = reinterpret_cast<void (*)()>(dlsym(lib, "VandroClose"));
    auto thresh = reinterpret_cast<const double*>(dlsym(lib, "threshYDec"));
    ASSERT_TRUE(init && handle && close && thresh);
    std::vector<int16_t> silence(VANDRO_SAMPLES_PER_BUFFER, 0);
    EXPECT_EQ(handle(silence.data(), VANDRO_SAMPLES_PER_BUFFER, nullptr, VANDRO_MODE_FIT), VANDRO_REFUSED);
    EXPECT_EQ(init(), VANDRO_NUM_SECTIONS);
    EXPECT_EQ(handle(silence.data(), VANDRO_SAMPLES_PER_BUFFER, nullptr, VANDRO_MODE_FIT), VANDRO_COLLECTING);
    EXPECT_EQ(thresh[0], 1117e-7);
    close();
    close();
    EXPECT_EQ(handle(silence.data(), VANDRO_SAMPLES_PER_BUFFER, nullptr, VANDRO_MODE_FIT), VANDRO_REFUSED);
    // Not unloaded: android-base keeps a process-lifetime property map that an
    // unload would orphan (a leak report that is not the library's).
}
