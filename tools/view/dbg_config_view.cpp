// Runs a program in a private view of the file system in which a file of
// the caller's is the gateway's fixed configuration file
// /current/config.rc, without root and without touching the machine's
// /current: ./run demo --config FILE starts the demo host through it.
//
// usage: dbg-config-view FILE PROGRAM [ARGUMENT...]
// Exits 2 on misuse, 3 when the kernel refuses the view, 1 on other
// failures; else PROGRAM takes its place.
//
// FILE is bound, not copied: edits made to it in place show at the next
// "DBG version" or "DBG read".
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <string>

#include "CurrentConfigIsolation.h"

namespace {

// The kernel grants this user no namespace: nothing this program can mend.
constexpr int refusedStatus = 3;

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "usage: " << argv[0] << " FILE PROGRAM [ARGUMENT...]\n";
        return 2;
    }
    // Resolved before the view is entered: the caller's working directory
    // and its relative names are the ones meant.
    char file[PATH_MAX];
    if (!realpath(argv[1], file)) {
        std::cerr << argv[0] << ": " << argv[1] << ": " << std::strerror(errno) << "\n";
        return 2;
    }
    CurrentConfigIsolation isolation;
    CurrentConfigIsolation::Outcome const outcome = isolation.enter();
    if (outcome != CurrentConfigIsolation::Outcome::Entered) {
        std::cerr << argv[0] << ": " << isolation.reason() << "\n";
        return outcome == CurrentConfigIsolation::Outcome::Refused ? refusedStatus : 1;
    }
    char const* const target = CurrentConfigIsolation::configFile;
    int const placeholder = open(target, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (placeholder == -1 || close(placeholder) != 0 || mount(file, target, nullptr, MS_BIND, nullptr) != 0) {
        std::cerr << argv[0] << ": cannot show " << file << " as " << target << ": " << std::strerror(errno) << "\n";
        return 1;
    }
    execv(argv[2], argv + 2);
    std::cerr << argv[0] << ": cannot run " << argv[2] << ": " << std::strerror(errno) << "\n";
    return 1;
}
