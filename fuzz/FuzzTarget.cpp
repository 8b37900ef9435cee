// One libFuzzer target; DBG_FUZZ_TARGET names which property it checks
// (fuzz/CMakeLists.txt builds one executable per target). A violated
// property is reported on standard error and aborts, so libFuzzer keeps the
// input as a crash artifact.
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FuzzProperties.h"

#ifndef DBG_FUZZ_TARGET
#error "DBG_FUZZ_TARGET must name the target"
#endif

namespace {

char const target[] = DBG_FUZZ_TARGET;
bool createdCurrent = false;

[[noreturn]] void cannotIsolate(char const* step)
{
    int const error = errno;
    std::fprintf(stderr,
                 "fuzz_%s: cannot isolate /current: %s failed: %s (errno %d).\n"
                 "The configuration reader opens exactly /current/config.rc; this target writes it only\n"
                 "inside a private mount namespace on a tmpfs, which needs root (CAP_SYS_ADMIN).\n",
                 target, step, std::strerror(error), error);
    std::abort();
}

void leaveCurrent()
{
    umount2("/current", MNT_DETACH);
    if (createdCurrent)
        rmdir("/current");
}

// A private mount namespace with a fresh tmpfs on /current, for the whole
// run. The lock on "/" is the one the test suite's isolation takes, so test
// programs that use /current wait for the run to end instead of removing
// the directory under it.
void isolateCurrent()
{
    int const lock = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (lock == -1)
        cannotIsolate("open(\"/\")");
    if (flock(lock, LOCK_EX) != 0)
        cannotIsolate("flock(\"/\")");
    if (unshare(CLONE_NEWNS) != 0)
        cannotIsolate("unshare(CLONE_NEWNS)");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        cannotIsolate("making / recursively private");
    if (mkdir("/current", 0755) == 0) {
        createdCurrent = true;
    } else {
        struct stat status;
        if (errno != EEXIST || stat("/current", &status) != 0 || !S_ISDIR(status.st_mode))
            cannotIsolate("mkdir(/current)");
    }
    if (mount("dbg-fuzz", "/current", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=16m") != 0) {
        int const error = errno;
        if (createdCurrent)
            rmdir("/current");
        errno = error;
        cannotIsolate("mounting a tmpfs on /current");
    }
    std::atexit(leaveCurrent);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string const name = target;
    if (name == "version")
        isolateCurrent();
    if (name == "command")
        dbg_fuzz::CommandBench::instance();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const failure = dbg_fuzz::checkTarget(target, data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "fuzz_%s: property violated: %s\n", target, failure.c_str());
        std::abort();
    }
    return 0;
}
