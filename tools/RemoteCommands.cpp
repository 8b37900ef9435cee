// Every descriptor is non-blocking and the host's event loop says when one
// is ready, so a client that hangs, half-closes or never reads cannot stall
// the gateway.
#include "RemoteCommands.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <list>
#include <stdexcept>
#include <string>

#include "IMC_Manager.h"
#include "IMC_StandIn.h"
#include "RemoteSocketPath.h"

namespace {

struct Connection {
    int descriptor = -1;
    std::string received;
    std::string answer;  // what is still to be sent
    bool answering = false;  // the line is taken: only the answer is left
};

struct Remote {
    int listener = -1;
    std::string directory;
    std::string path;
    dev_t socketDevice = 0;
    ino_t socketInode = 0;
    gateway_remote::RemoteWatch watch;
    std::list<Connection> connections;  // oldest first
};

Remote& remote()
{
    static Remote state;
    return state;
}

std::string failure(std::string const& what)
{
    return what + ": " + std::strerror(errno);
}

// Makes the directory or takes over one of ours; anything else there (a
// link, another user's directory) is not used.
std::string prepareDirectory(std::string const& directory)
{
    if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
        return failure("cannot make " + directory);
    int const descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor == -1)
        return failure("cannot open " + directory);
    struct stat status;
    std::string problem;
    if (fstat(descriptor, &status) != 0)
        problem = failure("cannot examine " + directory);
    else if (status.st_uid != geteuid())
        problem = directory + " belongs to uid " + std::to_string(status.st_uid) + ", not to this user";
    else if ((status.st_mode & 07777) != 0700 && fchmod(descriptor, 0700) != 0)
        problem = failure("cannot make " + directory + " private");
    close(descriptor);
    return problem;
}

void watch(int descriptor, int events)
{
    if (remote().watch)
        remote().watch(descriptor, events);
}

void closeConnection(std::list<Connection>::iterator connection)
{
    watch(connection->descriptor, 0);
    close(connection->descriptor);
    remote().connections.erase(connection);
}

// The line delivered as the console delivers one, the answers collected.
std::string runLine(std::string const& line)
{
    IMC_Manager* manager = imc_standin::manager();
    if (!manager)
        return "command lost\n";
    // The host's own answer handler comes back however the line ends.
    struct RestoreAnswerHandler {
        std::function<void(std::string const&)> previous = imc_standin::answerHandler();
        ~RestoreAnswerHandler() { imc_standin::setAnswerHandler(std::move(previous)); }
    } restore;
    std::string answer;
    imc_standin::setAnswerHandler([&answer](std::string const& text) { answer += text; });
    try {
        manager->consoleFlag = 0;
        manager->receiveCommand(0, line);
    } catch (std::runtime_error const&) {
        answer += "command lost\n";
    }
    return answer;
}

// Sends what the socket takes now; the connection ends with the answer.
void sendAnswer(std::list<Connection>::iterator connection)
{
    while (!connection->answer.empty()) {
        ssize_t const sent = send(connection->descriptor, connection->answer.data(), connection->answer.size(),
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            connection->answer.erase(0, std::size_t(sent));
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            watch(connection->descriptor, gateway_remote::RemoteWritable);
            return;
        } else {
            break;  // the client went away: nobody to answer
        }
    }
    closeConnection(connection);
}

void answer(std::list<Connection>::iterator connection, std::string text)
{
    connection->answering = true;
    connection->received.clear();
    connection->answer = std::move(text);
    sendAnswer(connection);
}

void receive(std::list<Connection>::iterator connection)
{
    char chunk[1024];
    for (;;) {
        ssize_t const got = recv(connection->descriptor, chunk, sizeof chunk, MSG_DONTWAIT);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (got < 0) {
            closeConnection(connection);
            return;
        }
        std::string& received = connection->received;
        if (got > 0)
            received.append(chunk, std::size_t(got));
        std::size_t const end = received.find('\n');
        if (end == std::string::npos && received.size() > gateway_remote::remoteLineLimit) {
            answer(connection, "refused: line longer than " + std::to_string(gateway_remote::remoteLineLimit) +
                                   " bytes\n");
            return;
        }
        if (end == std::string::npos && got > 0)
            continue;
        // A line end, or the client's end of sending: what came is the line,
        // as the console takes a last line without its end.
        if (end == std::string::npos && received.empty()) {
            closeConnection(connection);
            return;
        }
        std::string line = received.substr(0, end);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.size() > gateway_remote::remoteLineLimit) {
            answer(connection, "refused: line longer than " + std::to_string(gateway_remote::remoteLineLimit) +
                                   " bytes\n");
            return;
        }
        answer(connection, runLine(line));
        return;
    }
}

void accept()
{
    for (;;) {
        int const descriptor = accept4(remote().listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (descriptor == -1) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            return;  // EAGAIN: all taken; anything else: try at the next event
        }
        if (remote().connections.size() >= gateway_remote::remoteConnectionLimit)
            closeConnection(remote().connections.begin());
        remote().connections.push_back(Connection());
        auto connection = std::prev(remote().connections.end());
        connection->descriptor = descriptor;
        ucred peer;
        socklen_t length = sizeof peer;
        if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
            answer(connection, "refused: the client's user is unknown\n");
        } else if (peer.uid != geteuid()) {
            answer(connection, "refused: uid " + std::to_string(peer.uid) + " is not the gateway's user\n");
        } else {
            watch(descriptor, gateway_remote::RemoteReadable);
        }
    }
}

}  // namespace

namespace gateway_remote {

std::string startRemote(RemoteWatch watchDescriptor)
{
    Remote& state = remote();
    if (state.listener != -1)
        return "";
    if (!imc_standin::manager())
        return "no IMC manager";
    std::string const directory = remoteSocketDirectory();
    std::string const path = remoteSocketPathOf(directory, std::to_string(getpid()));
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return "socket path too long: " + path;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

    int const listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listener == -1)
        return failure("socket");
    std::string problem;
    // Another gateway may remove the directory it found empty just before
    // this one binds in it: make it again then.
    for (int attempt = 0; attempt < 3; ++attempt) {
        problem = prepareDirectory(directory);
        if (!problem.empty())
            break;
        // No live process has our id, so a socket of that name is a dead one's.
        unlink(path.c_str());
        if (bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0) {
            problem.clear();
            break;
        }
        int const error = errno;
        problem = failure("cannot bind " + path);
        if (error != ENOENT)
            break;
    }
    struct stat status;
    if (problem.empty() && (chmod(path.c_str(), 0600) != 0 || stat(path.c_str(), &status) != 0))
        problem = failure("cannot make " + path + " private");
    if (problem.empty() && listen(listener, 16) != 0)
        problem = failure("cannot listen on " + path);
    if (!problem.empty()) {
        close(listener);
        return problem;
    }
    state.listener = listener;
    state.directory = directory;
    state.path = path;
    state.socketDevice = status.st_dev;
    state.socketInode = status.st_ino;
    state.watch = std::move(watchDescriptor);
    watch(listener, RemoteReadable);
    return "";
}

void serviceRemote(int descriptor, int events)
{
    Remote& state = remote();
    if (descriptor == state.listener && state.listener != -1) {
        accept();
        return;
    }
    for (auto connection = state.connections.begin(); connection != state.connections.end(); ++connection) {
        if (connection->descriptor != descriptor)
            continue;
        if (connection->answering) {
            if (events & (RemoteWritable | RemoteReadable))
                sendAnswer(connection);
        } else if (events & RemoteReadable) {
            receive(connection);
        }
        return;
    }
}

void stopRemote()
{
    Remote& state = remote();
    if (state.listener == -1)
        return;
    while (!state.connections.empty())
        closeConnection(state.connections.begin());
    watch(state.listener, 0);
    close(state.listener);
    state.listener = -1;
    // Only the socket this process made: a successor may have bound anew.
    struct stat status;
    if (lstat(state.path.c_str(), &status) == 0 && status.st_dev == state.socketDevice &&
        status.st_ino == state.socketInode)
        unlink(state.path.c_str());
    // Fails while other gateways' sockets are in it, as it should.
    rmdir(state.directory.c_str());
    state.path.clear();
    state.directory.clear();
    state.watch = nullptr;
}

}  // namespace gateway_remote
