// SPDX-License-Identifier: Apache-2.0
#include "tools/spawn.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern char** environ;

// Reads both pipes until both close, so that neither side can fill and stall the child.
static void drain(int errFd, int outFd, std::string* err, std::string* out) {
    pollfd fds[2] = {{errFd, POLLIN, 0}, {outFd, POLLIN, 0}};
    std::string* sinks[2] = {err, out};
    char buf[4096];
    for (int open = outFd < 0 ? 1 : 2; open > 0;) {
        if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            const ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sinks[i]->append(buf, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                close(fds[i].fd);
                fds[i].fd = -1;
                open--;
            }
        }
    }
}

int runProgram(const std::vector<std::string>& argv, std::string* err, std::string* out) {
    int errPipe[2], outPipe[2] = {-1, -1};
    if (pipe(errPipe) != 0) return -1;
    if (out != nullptr && pipe(outPipe) != 0) {
        close(errPipe[0]), close(errPipe[1]);
        return -1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (out != nullptr) {
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, outPipe[0]);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, errPipe[0]);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(errPipe[1]);
    if (out != nullptr) close(outPipe[1]);
    std::string errText, outText;
    drain(errPipe[0], outPipe[0], &errText, &outText);
    if (out != nullptr) *out = outText;
    if (err != nullptr) *err = rc != 0 ? argv[0] + ": " + strerror(rc) : errText;
    if (rc != 0) return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
