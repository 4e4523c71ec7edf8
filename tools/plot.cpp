#include "tools/plot.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

extern char** environ;

static std::string programDir() {
    std::error_code ec;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : self.parent_path().string();
}

std::string plotScriptPath() {
    const std::string dir = programDir();
    for (const std::string& candidate : {dir + "/plot.py", dir + "/../share/vandro/plot.py"}) {
        std::error_code ec;
        if (std::filesystem::is_regular_file(candidate, ec))
            return std::filesystem::weakly_canonical(candidate, ec).string();
    }
    return dir + "/../share/vandro/plot.py";
}

int runProgram(const std::vector<std::string>& argv, std::string* stderrText) {
    int err[2];
    if (pipe(err) != 0) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, err[0]);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(err[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(err[0], buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    close(err[0]);
    if (stderrText != nullptr) *stderrText = text;
    if (rc != 0) {
        if (stderrText != nullptr) *stderrText = argv[0] + ": " + strerror(rc);
        return -1;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string drawPicture(const std::string& jsonPath, const std::string& picturePath) {
    std::string text;
    const int rc = runProgram({VANDRO_PYTHON, plotScriptPath(), jsonPath, picturePath}, &text);
    if (rc == 0) return "";
    // The script's own one-line reason, else what the start-up said.
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    const size_t lastLine = text.rfind('\n');
    if (lastLine != std::string::npos) text = text.substr(lastLine + 1);
    return text.empty() ? "the plot script failed (status " + std::to_string(rc) + ")" : text;
}
