#include "CurrentConfigIsolation.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <limits.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include "RemoveTree.h"

char const CurrentConfigIsolation::directory[] = "/current";
char const CurrentConfigIsolation::configFile[] = "/current/config.rc";

namespace {

using Outcome = CurrentConfigIsolation::Outcome;

// The view is built once per process; what happened then is kept.
bool tried = false;
Outcome processOutcome = Outcome::Failed;
std::string processReason;

struct Step {
    Outcome outcome;
    std::string reason;
};

Step failed(std::string const& step, int error, Outcome outcome = Outcome::Failed)
{
    return {outcome, step + " failed: " + std::strerror(error) + " (errno " + std::to_string(error) + ")"};
}

bool writeProcFile(char const* path, std::string const& text)
{
    std::ofstream file(path);
    file << text;
    file.flush();
    return file.good();
}

// Without CAP_SYS_ADMIN: a user namespace in which this process keeps its
// own user and group ids and gains the capabilities its mount namespace
// needs. A kernel that grants none (a sysctl, a chroot, a security module)
// is the Refused outcome.
Step enterNamespaces()
{
    if (unshare(CLONE_NEWNS) == 0)
        return {Outcome::Entered, ""};
    if (errno != EPERM)
        return failed("unshare(CLONE_NEWNS)", errno);
    uid_t const uid = getuid();
    gid_t const gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        int const error = errno;
        // EINVAL: the process runs more than one thread, a fault of the caller.
        Step step = failed("unshare(CLONE_NEWUSER | CLONE_NEWNS) without root", error,
                           error == EINVAL ? Outcome::Failed : Outcome::Refused);
        step.reason += error == EINVAL ? "; the process must be single-threaded"
                                       : "; the kernel refuses this user a user namespace";
        return step;
    }
    if (!writeProcFile("/proc/self/setgroups", "deny") ||
        !writeProcFile("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1") ||
        !writeProcFile("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1"))
        return failed("mapping the user and group into the user namespace", errno);
    return {Outcome::Entered, ""};
}

// The real root, named so that an emulator's own path mapping (qemu -L
// shows its target directory as "/") leaves it alone.
char const realRoot[] = "/proc/self/root/";

struct TopLevelEntry {
    std::string name;
    mode_t type;
};

Step listRoot(std::vector<TopLevelEntry>& entries)
{
    DIR* root = opendir(realRoot);
    if (!root)
        return failed("listing /", errno);
    while (dirent* entry = readdir(root)) {
        std::string const name = entry->d_name;
        struct stat status;
        if (name == "." || name == ".." || name == "current" || lstat((realRoot + name).c_str(), &status) != 0)
            continue;
        entries.push_back({name, status.st_mode & S_IFMT});
    }
    closedir(root);
    return {Outcome::Entered, ""};
}

// Puts one top-level entry into the new root: symbolic links copied,
// directories and files bound with what is mounted below them.
Step placeEntry(TopLevelEntry const& entry, std::string const& newRoot)
{
    std::string const source = realRoot + entry.name;
    std::string const target = newRoot + "/" + entry.name;
    if (entry.type == S_IFLNK) {
        char link[PATH_MAX];
        ssize_t const length = readlink(source.c_str(), link, sizeof link - 1);
        if (length < 0 || symlink(std::string(link, std::size_t(length)).c_str(), target.c_str()) != 0)
            return failed("copying the link " + source, errno);
        return {Outcome::Entered, ""};
    }
    int const made = entry.type == S_IFDIR ? mkdir(target.c_str(), 0755)
                                           : close(open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    if (made != 0)
        return failed("making " + target, errno);
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        return failed("binding " + source + " to " + target, errno);
    return {Outcome::Entered, ""};
}

// The new root is a tmpfs on a fresh directory of /tmp. Moved onto "/"
// once it is filled, it leaves that directory free to be removed from
// inside the view, where /tmp is the real one: nothing stays behind.
Step fillAndEnter(std::string const& newRoot, std::string const& workingDirectory)
{
    if (mount("dbg-test-root", newRoot.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0)
        // EPERM: a user namespace whose capabilities a security module withholds.
        return failed("mounting a tmpfs", errno, errno == EPERM ? Outcome::Refused : Outcome::Failed);
    std::vector<TopLevelEntry> entries;
    Step step = listRoot(entries);
    for (std::size_t i = 0; i < entries.size() && step.outcome == Outcome::Entered; ++i)
        step = placeEntry(entries[i], newRoot);
    if (step.outcome != Outcome::Entered)
        return step;
    if (mkdir((newRoot + CurrentConfigIsolation::directory).c_str(), 0755) != 0)
        return failed("making /current", errno);
    if (chdir(newRoot.c_str()) != 0 || mount(".", "/", nullptr, MS_MOVE, nullptr) != 0 || chroot(".") != 0)
        return failed("moving the tmpfs root onto / and entering it", errno);
    // The copy of the tmpfs that came with /tmp's own bind.
    if (umount2(newRoot.c_str(), MNT_DETACH) != 0 || rmdir(newRoot.c_str()) != 0)
        return failed("removing " + newRoot, errno);
    if (chdir(workingDirectory.c_str()) != 0)
        return failed("returning to " + workingDirectory, errno);
    return {Outcome::Entered, ""};
}

Step buildView()
{
    char workingDirectory[PATH_MAX];
    if (!getcwd(workingDirectory, sizeof workingDirectory))
        return failed("getcwd", errno);
    char newRoot[] = "/tmp/dbg-view-XXXXXX";
    if (!mkdtemp(newRoot))
        return failed(std::string("making ") + newRoot, errno);
    Step step = enterNamespaces();
    // Keeps the mounts below from showing outside. In a chroot "/" is no
    // mount point (EINVAL); its mounts stay as the host has them.
    if (step.outcome == Outcome::Entered && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 &&
        errno != EINVAL)
        step = failed("making / recursively private", errno);
    if (step.outcome == Outcome::Entered)
        step = fillAndEnter(newRoot, workingDirectory);
    if (step.outcome != Outcome::Entered)
        rmdir(newRoot);
    return step;
}

}  // namespace

CurrentConfigIsolation::~CurrentConfigIsolation()
{
    if (m_entered) {
        removeTree(directory);
        mkdir(directory, 0755);
    }
}

CurrentConfigIsolation::Outcome CurrentConfigIsolation::enter()
{
    if (!tried) {
        tried = true;
        Step const step = buildView();
        processOutcome = step.outcome;
        processReason = "cannot isolate /current: " + step.reason;
    }
    m_entered = processOutcome == Outcome::Entered;
    m_reason = m_entered ? "" : processReason;
    return processOutcome;
}
