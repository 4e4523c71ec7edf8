// SPDX-License-Identifier: Apache-2.0
#include "tools/output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

// Fixed storage, so that a signal handler can walk it without allocating.
static const int kSlots = 16;
static char gTemporaries[kSlots][4096];
static volatile sig_atomic_t gInUse[kSlots];

static bool registerTemporary(const std::string& path) {
    for (int i = 0; i < kSlots; i++)
        if (!gInUse[i] && path.size() < sizeof gTemporaries[i]) {
            memcpy(gTemporaries[i], path.c_str(), path.size() + 1);
            gInUse[i] = 1;
            return true;
        }
    return false;
}

static void forget(const std::string& path) {
    for (int i = 0; i < kSlots; i++)
        if (gInUse[i] && path == gTemporaries[i]) gInUse[i] = 0;
}

void removeTemporaries() {
    for (int i = 0; i < kSlots; i++)
        if (gInUse[i]) {
            unlink(gTemporaries[i]);
            gInUse[i] = 0;
        }
}

static std::string cannotWrite(const std::string& target, int error) {
    return target + ": cannot write: " + strerror(error);
}

// A registered temporary from a mkstemps template whose suffix has suffixLength characters.
static bool makeTemporary(std::string tmpl, int suffixLength, const std::string& target, std::string* path,
                          std::string* error) {
    const int fd = mkstemps(&tmpl[0], suffixLength);
    if (fd < 0) {
        *error = cannotWrite(target, errno);
        return false;
    }
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);  // as the file would be made without a temporary
    close(fd);
    if (!registerTemporary(tmpl)) {
        unlink(tmpl.c_str());
        *error = target + ": cannot write: too many temporary files";
        return false;
    }
    *path = tmpl;
    return true;
}

bool beginOutput(const std::string& target, std::string* writeTo, std::string* error) {
    struct stat st;
    if (stat(target.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
        *writeTo = target;
        return true;
    }
    const size_t slash = target.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : target.substr(0, slash + 1),
                      name = target.substr(dir.size());
    const size_t dot = name.rfind('.');
    const std::string ext = dot == std::string::npos || dot == 0 ? "" : name.substr(dot);
    return makeTemporary(dir + ".v" + "XXXXXX" + ext, static_cast<int>(ext.size()), target, writeTo, error);
}

bool finishOutput(const std::string& target, const std::string& writtenTo, std::string* error) {
    if (writtenTo == target) return true;
    if (rename(writtenTo.c_str(), target.c_str()) != 0) {
        *error = cannotWrite(target, errno);
        abandonOutput(writtenTo);
        return false;
    }
    forget(writtenTo);
    return true;
}

void abandonOutput(const std::string& writtenTo) {
    for (int i = 0; i < kSlots; i++)
        if (gInUse[i] && writtenTo == gTemporaries[i]) {
            unlink(gTemporaries[i]);
            gInUse[i] = 0;
        }
}

bool writeThrough(const std::string& target, const std::function<bool(const std::string& path, std::string* error)>& writer,
                  std::string* error) {
    std::string path;
    if (!beginOutput(target, &path, error)) return false;
    if (!writer(path, error)) {
        abandonOutput(path);
        for (size_t at; path != target && (at = error->find(path)) != std::string::npos;) error->replace(at, path.size(), target);
        return false;
    }
    return finishOutput(target, path, error);
}

bool writeOutput(const std::string& target, const std::string& bytes, std::string* error) {
    std::string path;
    if (!beginOutput(target, &path, error)) return false;
    const int fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    int problem = fd < 0 ? errno : 0;
    for (size_t done = 0; problem == 0 && done < bytes.size();) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) problem = n < 0 ? errno : EIO;
        else done += static_cast<size_t>(n);
    }
    if (fd >= 0 && close(fd) != 0 && problem == 0) problem = errno;
    if (problem != 0) {
        *error = cannotWrite(target, problem);
        abandonOutput(path);
        return false;
    }
    return finishOutput(target, path, error);
}

bool scratchFile(const std::string& suffix, std::string* path, std::string* error) {
    const char* dir = getenv("TMPDIR");
    const std::string base = dir != nullptr && dir[0] != '\0' ? dir : "/tmp";
    return makeTemporary(base + "/vandro-XXXXXX" + suffix, static_cast<int>(suffix.size()), base + "/vandro-*", path, error);
}

namespace {
struct FileId {
    bool special = false, exists = false;
    dev_t dev = 0;
    ino_t ino = 0;
    std::string path;  // resolved, for a file still to be made
};
FileId fileId(const std::string& path) {
    FileId id;
    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        id.exists = true;
        id.special = !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
        id.dev = st.st_dev;
        id.ino = st.st_ino;
    } else {
        std::error_code ec;
        id.path = std::filesystem::weakly_canonical(std::filesystem::absolute(path, ec), ec).string();
    }
    return id;
}
bool same(const FileId& a, const FileId& b) {
    if (a.special || b.special || a.exists != b.exists) return false;
    return a.exists ? a.dev == b.dev && a.ino == b.ino : a.path == b.path;
}
}  // namespace

bool distinctOutputs(const std::vector<std::string>& inputs,
                     const std::vector<std::pair<std::string, std::string>>& outputs, std::string* error) {
    std::vector<FileId> in, out;
    for (const std::string& p : inputs) in.push_back(fileId(p));
    for (size_t k = 0; k < outputs.size(); k++) {
        const FileId id = fileId(outputs[k].second);
        const std::string named = outputs[k].first + " " + outputs[k].second;
        for (size_t i = 0; i < in.size(); i++)
            if (same(id, in[i])) {
                *error = named + ": this output is also an input (" + inputs[i] + ")";
                return false;
            }
        for (size_t j = 0; j < out.size(); j++)
            if (same(id, out[j])) {
                *error = named + ": the same file as " + outputs[j].first + " " + outputs[j].second;
                return false;
            }
        out.push_back(id);
    }
    return true;
}
