// dbgctl: sends one command line to a running gateway host and prints its
// answer, e.g. "dbgctl DBG out file /var/log/gw.trace" to switch the debug
// output of a daemonised gateway. It talks to the host's remote command
// socket, found as RemoteSocketPath.h says.
//
// Exit status: 0 answered, 1 no gateway answered or it refused, 2 misuse.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "RemoteSocketPath.h"

namespace {

constexpr int defaultTimeoutMs = 5000;

char const* program = "dbgctl";

void printUsage(std::ostream& out)
{
    out << "usage: " << program << " [--pid PID | --socket PATH] [--timeout MS] COMMAND...\n"
        << "  Sends COMMAND (its words joined by blanks) to a running gateway host, as\n"
        << "  if typed on its console, and prints the answer. \"" << program
        << " help\" lists the commands.\n"
        << "  --pid PID      the gateway with this process id (needed when several run)\n"
        << "  --socket PATH  the command socket itself\n"
        << "  --timeout MS   how long to wait for the answer (default " << defaultTimeoutMs << ")\n"
        << "Exit status: 0 answered, 1 no gateway answered or it refused, 2 misuse.\n";
}

[[noreturn]] void misuse(std::string const& text)
{
    std::cerr << program << ": " << text << "\n";
    printUsage(std::cerr);
    std::exit(2);
}

[[noreturn]] void fail(std::string const& text)
{
    std::cerr << program << ": " << text << "\n";
    std::exit(1);
}

long number(char const* text, long low, long high, char const* what)
{
    char* end = nullptr;
    errno = 0;
    long const value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < low || value > high)
        misuse(std::string(what) + " wants a number from " + std::to_string(low) + " to " + std::to_string(high));
    return value;
}

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline)
{
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? int(left) : 0;
}

// A connected socket, or -1 with errno set.
int connectTo(std::string const& path, Clock::time_point deadline)
{
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int const descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor == -1)
        return -1;
    if (connect(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0)
        return descriptor;
    // A full backlog: the gateway is busy; wait for it within the time.
    while (errno == EAGAIN || errno == EINPROGRESS || errno == EINTR) {
        if (remainingMs(deadline) == 0) {
            errno = ETIMEDOUT;
            break;
        }
        pollfd ready = {descriptor, POLLOUT, 0};
        poll(&ready, 1, std::min(remainingMs(deadline), 50));
        if (connect(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 ||
            errno == EISCONN)
            return descriptor;
    }
    int const error = errno;
    close(descriptor);
    errno = error;
    return -1;
}

std::string describeConnectFailure(std::string const& path, int error)
{
    switch (error) {
    case ENOENT:
    case ECONNREFUSED:
        return "no gateway answers at " + path + ": " + std::strerror(error);
    case EACCES:
    case EPERM:
        return "cannot reach " + path + ": " + std::strerror(error) + " (the gateway runs as another user)";
    case ETIMEDOUT:
        return "no gateway answers at " + path + ": it accepts no connection in time";
    default:
        return "cannot connect to " + path + ": " + std::strerror(error);
    }
}

// The one live gateway socket in the directory. Sockets left by gateways
// that died are passed over.
int findGateway(std::string const& directory, std::string& path, Clock::time_point deadline)
{
    DIR* listing = opendir(directory.c_str());
    if (!listing) {
        if (errno == ENOENT)
            fail("no gateway is running for this user (no " + directory + ")");
        fail("cannot read " + directory + ": " + std::strerror(errno));
    }
    std::vector<std::string> names;
    while (dirent* entry = readdir(listing)) {
        std::string const name = entry->d_name;
        if (name.compare(0, 8, "gateway-") == 0 && name.size() > 13 && name.compare(name.size() - 5, 5, ".sock") == 0)
            names.push_back(name);
    }
    closedir(listing);
    int found = -1;
    std::vector<std::string> live;
    for (auto const& name : names) {
        std::string const candidate = directory + "/" + name;
        int const descriptor = connectTo(candidate, deadline);
        if (descriptor == -1)
            continue;
        live.push_back(name.substr(8, name.size() - 13));
        if (found == -1) {
            found = descriptor;
            path = candidate;
        } else {
            close(descriptor);
        }
    }
    if (live.empty())
        fail("no gateway is running for this user (no live socket in " + directory + ")");
    if (live.size() > 1) {
        std::string pids;
        for (auto const& pid : live)
            pids += " " + pid;
        fail("several gateways are running (pids" + pids + "): choose one with --pid");
    }
    return found;
}

bool sendAll(int descriptor, std::string const& bytes, Clock::time_point deadline)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t const written = send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (written > 0) {
            sent += std::size_t(written);
            continue;
        }
        if (written < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        if (remainingMs(deadline) == 0) {
            errno = ETIMEDOUT;
            return false;
        }
        pollfd ready = {descriptor, POLLOUT, 0};
        poll(&ready, 1, remainingMs(deadline));
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 0 && argv[0][0] != '\0') {
        char const* slash = std::strrchr(argv[0], '/');
        program = slash ? slash + 1 : argv[0];
    }
    std::string pid;
    std::string path;
    int timeoutMs = defaultTimeoutMs;
    std::string line;
    bool words = false;
    for (int i = 1; i < argc; ++i) {
        std::string const arg = argv[i];
        if (!words && (arg == "--help" || arg == "-h")) {
            printUsage(std::cout);
            return 0;
        } else if (!words && arg == "--pid" && i + 1 < argc) {
            pid = std::to_string(number(argv[++i], 1, 0x7fffffff, "--pid"));
        } else if (!words && arg == "--socket" && i + 1 < argc) {
            path = argv[++i];
        } else if (!words && arg == "--timeout" && i + 1 < argc) {
            timeoutMs = int(number(argv[++i], 1, 3600000, "--timeout"));
        } else if (!words && arg == "--") {
            words = true;
        } else if (!words && arg.compare(0, 2, "--") == 0) {
            misuse("unknown option " + arg);
        } else {
            words = true;
            line += (line.empty() ? "" : " ") + arg;
        }
    }
    if (line.empty())
        misuse("no command given");
    if (line.find_first_of("\r\n") != std::string::npos)
        misuse("the command must be one line");
    if (!pid.empty() && !path.empty())
        misuse("--pid and --socket exclude each other");

    signal(SIGPIPE, SIG_IGN);
    auto const deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int descriptor = -1;
    if (path.empty() && pid.empty()) {
        descriptor = findGateway(gateway_remote::remoteSocketDirectory(), path, deadline);
    } else {
        if (path.empty())
            path = gateway_remote::remoteSocketPathOf(gateway_remote::remoteSocketDirectory(), pid);
        descriptor = connectTo(path, deadline);
        if (descriptor == -1)
            fail(describeConnectFailure(path, errno));
    }

    // One line, then the end of sending: the gateway answers and closes.
    if (!sendAll(descriptor, line + "\n", deadline) || shutdown(descriptor, SHUT_WR) != 0) {
        // A refusal is sent at once and the connection closed: show it.
        if (errno != EPIPE && errno != ECONNRESET)
            fail("cannot send to " + path + ": " + std::strerror(errno));
    }
    std::string answer;
    for (;;) {
        char chunk[4096];
        ssize_t const got = recv(descriptor, chunk, sizeof chunk, MSG_DONTWAIT);
        if (got > 0) {
            answer.append(chunk, std::size_t(got));
            continue;
        }
        if (got == 0)
            break;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            if (errno == ECONNRESET)
                break;
            fail("cannot read the answer from " + path + ": " + std::strerror(errno));
        }
        if (remainingMs(deadline) == 0)
            fail("no answer from the gateway at " + path + " within " + std::to_string(timeoutMs) + " ms");
        pollfd ready = {descriptor, POLLIN, 0};
        poll(&ready, 1, remainingMs(deadline));
    }
    close(descriptor);
    if (answer.compare(0, 9, "refused: ") == 0) {
        std::cerr << program << ": " << answer << std::flush;
        return 1;
    }
    std::cout << answer << std::flush;
    return 0;
}
