// Where this user's gateways listen for remote commands, and a gateway's
// socket there: the rule the demo host binds by and dbgctl finds it by.
// The directory is $XDG_RUNTIME_DIR/dbg when that variable names a
// directory, else /tmp/dbg-<uid>; the socket is gateway-<pid>.sock in it.
#ifndef DBG_REMOTE_SOCKET_PATH_H
#define DBG_REMOTE_SOCKET_PATH_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace gateway_remote {

inline std::string remoteSocketDirectory()
{
    char const* runtime = std::getenv("XDG_RUNTIME_DIR");
    struct stat status;
    if (runtime && runtime[0] == '/' && stat(runtime, &status) == 0 && S_ISDIR(status.st_mode))
        return std::string(runtime) + "/dbg";
    return "/tmp/dbg-" + std::to_string(geteuid());
}

inline std::string remoteSocketPathOf(std::string const& directory, std::string const& pid)
{
    return directory + "/gateway-" + pid + ".sock";
}

}  // namespace gateway_remote

#endif
