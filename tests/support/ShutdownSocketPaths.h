// The two local socket paths of a process's shutdown request: ownPath
// "/tmp//dbg<pid>.key", where the library binds, and listenerPath
// "/tmp//<pid>.key", where the gateway listens. The guard removes both
// when it is made and again when it goes.
#ifndef DBG_SHUTDOWN_SOCKET_PATHS_H
#define DBG_SHUTDOWN_SOCKET_PATHS_H

#include <sys/types.h>
#include <unistd.h>

#include <string>

class ShutdownSocketPaths {
public:
    explicit ShutdownSocketPaths(pid_t pid = getpid());
    ~ShutdownSocketPaths();
    ShutdownSocketPaths(ShutdownSocketPaths const&) = delete;
    ShutdownSocketPaths& operator=(ShutdownSocketPaths const&) = delete;

    static std::string ownPath(pid_t pid = getpid());
    static std::string listenerPath(pid_t pid = getpid());
    // For a host a test had to kill: it could not remove its own.
    static void removeFor(pid_t pid);

private:
    pid_t m_pid;
};

#endif
