// Checks the shared library itself: its dynamic symbol table against the
// export list, and that a client loading it with dlopen can drive the entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "engine/vandro.h"

// Defined symbols of the library as `nm -DC --defined-only` prints them (name
// after the address and type), run without a shell.
static std::set<std::string> exportedSymbols() {
    std::set<std::string> names;
    int fd[2];
    if (pipe(fd) != 0) return names;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fd[1], 1);
        close(fd[0]);
        execlp(VANDRO_NM, VANDRO_NM, "-D", "-C", "--defined-only", VANDRO_SHARED_LIBRARY, (char*)nullptr);
        _exit(127);
    }
    close(fd[1]);
    FILE* in = fdopen(fd[0], "r");
    char line[4096];
    while (in != nullptr && fgets(line, sizeof line, in) != nullptr) {
        std::string l(line);
        if (!l.empty() && l.back() == '\n') l.pop_back();
        size_t name = l.find(' ', l.find(' ') + 1);  // after "ADDRESS TYPE "
        if (name != std::string::npos) names.insert(l.substr(name + 1));
    }
    if (in != nullptr) fclose(in);
    int status = 0;
    waitpid(pid, &status, 0);
    return names;
}

// The symbols the export list names: C names as they are, C++ ones quoted.
static std::set<std::string> listedSymbols() {
    std::ifstream in(VANDRO_EXPORT_MAP);
    std::stringstream text;
    text << in.rdbuf();
    std::string map = std::regex_replace(text.str(), std::regex(R"(/\*[\s\S]*?\*/)"), "");
    std::set<std::string> names;
    std::smatch m;
    std::string rest = map.substr(0, map.find("local:"));
    for (std::string s = rest; std::regex_search(s, m, std::regex(R"re("([^"]+)";)re")); s = m.suffix())
        names.insert(m[1]);
    rest = rest.substr(0, rest.find("extern"));
    for (std::string s = rest; std::regex_search(s, m, std::regex(R"(\b([A-Za-z_]\w*);)")); s = m.suffix())
        names.insert(m[1]);
    return names;
}

TEST(Exports, TheLibraryExportsExactlyTheList) {
    const std::set<std::string> exported = exportedSymbols(), listed = listedSymbols();
    ASSERT_FALSE(exported.empty());
    // Six entry points, seven data symbols and 85 numeric functions.
    EXPECT_EQ(listed.size(), 98u);
    for (const std::string& n : exported) EXPECT_EQ(listed.count(n), 1u) << "exported, not listed: " << n;
    for (const std::string& n : listed) EXPECT_EQ(exported.count(n), 1u) << "listed, not exported: " << n;
    // The engine's own steps never leave, whatever the list says.
    for (const std::string& n : listed) {
        EXPECT_NE(n.rfind("kiss_", 0), 0u) << n;  // our functions may take a kiss_fft_cpx
        for (const char* internal : {"readBuffer", "clearAccumulators", "findResonances", "property_get",
                                     "finishMeasurement", "adaptFilterCurve", "Eigen::"})
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
