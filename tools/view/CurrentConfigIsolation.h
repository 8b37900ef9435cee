// A private view of the file system in which /current is an empty directory
// of this process's own, so the fixed configuration file /current/config.rc
// can be written and removed freely, without root and without touching the
// machine's /current.
//
// The view is built the way rootless containers build one: a mount
// namespace (entered through a user namespace when the process lacks
// CAP_SYS_ADMIN), a fresh tmpfs as the new root, the real top-level
// directories bound into it, an empty /current beside them, and chroot. It
// works in a chroot too, where "/" is not a mount point. Once entered, the
// process and the children it starts afterwards stay in the view for good;
// each guard empties /current again when it goes, so tests that follow in
// the same process start from an empty /current.
#ifndef DBG_CURRENT_CONFIG_ISOLATION_H
#define DBG_CURRENT_CONFIG_ISOLATION_H

#include <string>

class CurrentConfigIsolation {
public:
    static char const directory[];   // "/current"
    static char const configFile[];  // "/current/config.rc"

    enum class Outcome {
        Entered,  // the view is there (or was already)
        Refused,  // the kernel grants no namespace to this process
        Failed,   // a step failed that should not
    };

    CurrentConfigIsolation() = default;
    ~CurrentConfigIsolation();
    CurrentConfigIsolation(CurrentConfigIsolation const&) = delete;
    CurrentConfigIsolation& operator=(CurrentConfigIsolation const&) = delete;

    // Needs a single-threaded process. The reason says which step failed and
    // why when the outcome is not Entered.
    Outcome enter();
    std::string const& reason() const { return m_reason; }

private:
    bool m_entered = false;
    std::string m_reason;
};

#endif
