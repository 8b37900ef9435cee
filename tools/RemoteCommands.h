// Remote commands, for an operator's dbgctl: the demo host listens on a
// local stream socket (RemoteSocketPath.h) on which each connection carries
// one command line, delivered like a console line (receiveCommand on the
// IMC stand-in's manager), and gets the line's answer back before it is
// closed. The directory is kept at mode 0700, the socket at 0600, and a
// connection from any other user than this process's is refused.
//
// The server never blocks and has no event loop of its own: it tells the
// host which descriptors to watch through `watch` (events 0: stop watching,
// said before the descriptor is closed), and the host calls serviceRemote
// when one is ready.
#ifndef DBG_REMOTE_COMMANDS_H
#define DBG_REMOTE_COMMANDS_H

#include <cstddef>
#include <functional>
#include <string>

namespace gateway_remote {

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

}  // namespace gateway_remote

#endif
