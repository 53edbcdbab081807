// QzOs installer support for POSIX: posix_spawn with a pipe, permission bits
// in place of the install directory's access list, and no code signatures.
#include "QzOsInstall.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "QzOs.h"
#include "QzOsInternal.h"

extern char** environ;

namespace QzOs {
namespace {

int64_t MonotonicMillis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Reads what the pipe holds now; false once the pipe has ended.
bool ReadAvailable(int fd, int32_t maxBytes, ProcessResult* r) {
    char buf[4096];
    for (;;) {
        const ssize_t got = ::read(fd, buf, sizeof buf);
        if (got == 0) return false;
        if (got < 0) return errno == EAGAIN || errno == EINTR;
        const int32_t room = maxBytes - r->output.Length();
        const int32_t keep = got < room ? static_cast<int32_t>(got) : (room > 0 ? room : 0);
        if (keep > 0) r->output.Append(buf, keep);
        if (keep < got) r->outputCut = true;
    }
}

// Owner everything; group and others read, and execute where the owner may.
mode_t InstallMode(mode_t mode, bool isDir) {
    const bool exec = isDir || (mode & S_IXUSR);
    return S_IRWXU | S_IRGRP | S_IROTH | (exec ? (S_IXGRP | S_IXOTH) : 0);
}

}  // namespace

const char* PlatformName() {
    return "unk";
}

uint32_t GetOwnExecutablePath(QzString* pathRet) {
    char buf[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return posix::MapErrno(errno);
    pathRet->Set(buf, static_cast<int32_t>(n));
    return 0;
}

uint32_t RunProcessCapturingOutput(const char* exePath, const std::vector<QzString>& args,
                                   uint32_t timeoutMillis, int32_t maxOutputBytes, ProcessResult* resultRet) {
    *resultRet = ProcessResult{};
    std::string exe;
    if (const uint32_t err = posix::MapPath(exePath, &exe)) return err;
    int fds[2];
    if (::pipe(fds) != 0) return posix::MapErrno(errno);
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[0], F_SETFL, O_NONBLOCK);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    posix_spawn_file_actions_addclose(&actions, fds[1]);
    std::vector<std::string> argStore;
    argStore.emplace_back(exePath);
    for (const QzString& a : args) argStore.emplace_back(a.c_str(), static_cast<size_t>(a.Length()));
    std::vector<char*> argv;
    for (std::string& a : argStore) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int spawnErr = ::posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (spawnErr != 0) {
        ::close(fds[0]);
        return posix::MapPathErrno(spawnErr, exe);
    }

    const int64_t deadline = MonotonicMillis() + timeoutMillis;
    bool pipeOpen = true;
    int status = 0;
    for (;;) {
        if (pipeOpen) pipeOpen = ReadAvailable(fds[0], maxOutputBytes, resultRet);
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) break;
        if (MonotonicMillis() >= deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            resultRet->timedOut = true;
            break;
        }
        pollfd p{fds[0], POLLIN, 0};
        ::poll(&p, pipeOpen ? 1 : 0, 50);
    }
    if (pipeOpen) ReadAvailable(fds[0], maxOutputBytes, resultRet);
    ::close(fds[0]);
    resultRet->exitCode = WIFEXITED(status) ? static_cast<uint32_t>(WEXITSTATUS(status)) : 1u;
    return 0;
}

uint32_t SetInstallDirectoryAccess(const char* dirPath, QzString* detailRet) {
    namespace fs = std::filesystem;
    detailRet->Clear();
    std::string dir;
    if (const uint32_t err = posix::MapPath(dirPath, &dir)) {
        detailRet->Set("install directory not on a mapped drive");
        return err;
    }
    struct stat st {};
    if (::lstat(dir.c_str(), &st) != 0) {
        detailRet->Set("install directory not found");
        return posix::MapPathErrno(errno, dir);
    }
    if (!S_ISDIR(st.st_mode)) {
        detailRet->Set("install directory is not a directory");
        return ErrDirectory;
    }
    if (::chmod(dir.c_str(), InstallMode(st.st_mode, true)) != 0) {
        detailRet->Set("chmod of the install directory failed");
        return posix::MapErrno(errno);
    }
    // No inheritance here: every entry below gets its bits directly. Links
    // are left alone (their bits mean nothing) and not followed.
    std::error_code ec;
    long long changed = 1;
    for (fs::recursive_directory_iterator it(dir, fs::directory_options::none, ec), end; !ec && it != end;
         it.increment(ec)) {
        struct stat est {};
        if (::lstat(it->path().c_str(), &est) != 0 || S_ISLNK(est.st_mode)) continue;
        if (::chmod(it->path().c_str(), InstallMode(est.st_mode, S_ISDIR(est.st_mode))) != 0) {
            *detailRet = QzCat("chmod failed below the install directory: ", it->path().c_str());
            return posix::MapErrno(errno);
        }
        ++changed;
    }
    if (ec) {
        *detailRet = QzCat("could not walk the install directory: ", ec.message().c_str());
        return posix::MapErrno(ec.value());
    }
    *detailRet =
        QzCat("permission bits set on ", changed, " entries: owner all, group and others read and execute");
    return 0;
}

uint32_t VerifyFileSignature(const char* path, SignatureCheck* checkRet) {
    (void)path;
    *checkRet = SignatureCheck{};
    checkRet->detail.Set("this system has no code-signature verification");
    return ErrNotSupported;
}

}  // namespace QzOs
