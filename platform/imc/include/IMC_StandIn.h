// Control of the IMC stand-in, for hosts and tests. Not part of the maker's
// interface: nothing in the debug library includes it.
#ifndef IMC_STANDIN_H
#define IMC_STANDIN_H

#include <cstddef>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "IMC_Manager.h"

namespace imc_standin {

enum class Operation {
    Instance,
    Registration,
    Unregistration,
    ReceiveCommand,
    AnswerCommand,
    Trace,
    Error,
    Post,
    CoreDumpExit
};

enum class Fault {
    None,
    RuntimeError,    // throws std::runtime_error("injected fault")
    OtherException,  // throws std::logic_error("injected fault")
    NullInstance     // instance() returns null (Operation::Instance only)
};

// One call made on the manager, with its arguments.
struct Call {
    Operation operation;
    std::string text;  // key, line, answer, trace or error text (all bytes)
    std::string origin;
    int number = 0;    // instance module, command source, trace line, exit cause
    IMC_CommandObserver const* observer = nullptr;
    std::vector<unsigned char> record;  // posted record, byte for byte
};

// How much of an unknown key the "Unknown command" answer quotes.
constexpr std::size_t unknownKeyQuoteLimit = 64;

// Host side.
void start(unsigned char identifier);
void stop();
IMC_Manager* manager();  // null while not started
void setTraceStream(std::ostream* stream);  // null discards traces and errors
void setPostHandler(std::function<void(imc_msg const&)> handler);
void setAnswerHandler(std::function<void(std::string const&)> handler);
std::function<void(std::string const&)> answerHandler();

// Remote commands, for an operator's dbgctl: a local stream socket on which
// each connection carries one command line, delivered like a console line
// (receiveCommand), and gets the line's answer back before it is closed.
// The socket is <directory>/gateway-<pid>.sock, the directory being
// $XDG_RUNTIME_DIR/dbg when that variable names a directory, else
// /tmp/dbg-<uid>; the directory is kept at mode 0700, the socket at 0600,
// and a connection from any other user than this process's is refused.
//
// The stand-in never blocks and has no event loop of its own: it tells the
// host which descriptors to watch through `watch` (events 0: stop watching,
// said before the descriptor is closed), and the host calls serviceRemote
// when one is ready.
// Where this user's gateways listen, and a gateway's socket there; inline,
// so a client (dbgctl) finds them without linking the stand-in.
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

enum RemoteEvent { RemoteReadable = 1, RemoteWritable = 2 };
using RemoteWatch = std::function<void(int descriptor, int events)>;
constexpr std::size_t remoteLineLimit = 4096;     // bytes before the line end
constexpr std::size_t remoteConnectionLimit = 16;  // beyond: the oldest is dropped
// Listens; returns "" or why it cannot. Needs a started manager.
std::string startRemote(RemoteWatch watch);
void serviceRemote(int descriptor, int events);
// Closes every connection, removes the socket, and the directory when
// nothing else is left in it.
void stopRemote();

// Test side. A fault hits after `skip` calls of the operation have gone
// through, then stays until cleared, or for `times` calls when given.
void injectFault(Operation operation, Fault fault, int times = -1, int skip = 0);
void clearFaults();
void setRecording(bool on);
std::vector<Call> const& calls();
void clearCalls();

}  // namespace imc_standin

#endif
