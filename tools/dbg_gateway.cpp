// Demo gateway host: the debug library at work as the gateway process uses
// it. It starts the IMC manager stand-in, serves remote commands for
// dbgctl (RemoteCommands.h), opens the operator console on standard input,
// listens for the manual shutdown datagram at
// /tmp//<pid>.key, re-reads its configuration on IMC request 600, and
// simulates call traffic as traces on a Tcl timer. Everything runs on the
// Tcl event loop until a shutdown is asked for ("exit" on the console, end
// of input, "DBG stop", SIGTERM or SIGINT, the signals even while standard
// output is stalled); it then tears the library down and removes the socket
// files it made.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include <tcl.h>

#include "DBG_InManager.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_Version.h"
#include "IMC_StandIn.h"
#include "RemoteCommands.h"
#include "VCOM_Types.h"

namespace {

char const traceOrigin[] = "dbg_gateway.cpp";
constexpr int defaultTrafficMs = 5000;
constexpr unsigned char managerIdentifier = 0x2A;
constexpr std::uint32_t readConfigurationRequest = 600;

struct Options {
    int trafficMs = defaultTrafficMs;
    bool imc = true;
};

void printUsage(std::ostream& out, char const* program)
{
    out << "usage: " << program << " [--traffic MS] [--no-imc] [--help]\n"
        << "  --traffic MS  one simulated call trace every MS milliseconds (default "
        << defaultTrafficMs << ", 0: no traffic)\n"
        << "  --no-imc      run without the IMC manager: console lines are lost\n"
        << "  --help        this text\n"
        << "Type \"help\" on the console for the DBG commands, \"exit\" to stop.\n"
        << "From another terminal: dbgctl DBG out file <name>, through this host's own command\n"
        << "socket $XDG_RUNTIME_DIR/dbg/gateway-<pid>.sock (/tmp/dbg-<uid>/gateway-<pid>.sock\n"
        << "without XDG_RUNTIME_DIR).\n";
}

// Parses the command line; exits on --help (0) or on a bad option (2).
Options parseOptions(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string const arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            printUsage(std::cout, argv[0]);
            std::exit(0);
        } else if (arg == "--no-imc") {
            options.imc = false;
        } else if (arg == "--traffic" && i + 1 < argc) {
            char* end = nullptr;
            errno = 0;
            long const value = std::strtol(argv[++i], &end, 10);
            if (errno != 0 || end == argv[i] || *end != '\0' || value < 0 || value > 3600000) {
                std::cerr << argv[0] << ": --traffic wants milliseconds from 0 to 3600000\n";
                std::exit(2);
            }
            options.trafficMs = int(value);
        } else {
            std::cerr << argv[0] << ": unknown argument " << arg << "\n";
            printUsage(std::cerr, argv[0]);
            std::exit(2);
        }
    }
    return options;
}

// ---- shutdown requests -----------------------------------------------------

bool shutdownRequested = false;
int signalPipe[2] = {-1, -1};
int discardOutput = -1;  // /dev/null, for a standard output that takes nothing

// Async-signal-safe: write(), poll() and dup2() only; the event loop does
// the rest.
extern "C" void onSignal(int)
{
    int const saved = errno;
    char const byte = 's';
    ssize_t const written = write(signalPipe[1], &byte, 1);
    static_cast<void>(written);  // a full pipe already holds a request
    // A standard output that takes nothing now (a terminal held by Ctrl-S,
    // a pipe nobody reads) would keep the gateway in its write, which the C
    // library resumes after the signal: the rest goes to /dev/null, so the
    // stop can go on.
    pollfd output = {1, POLLOUT, 0};
    if (poll(&output, 1, 0) == 0)
        dup2(discardOutput, 1);
    errno = saved;
}

void drainSignalPipe()
{
    char bytes[64];
    while (read(signalPipe[0], bytes, sizeof bytes) > 0)
        shutdownRequested = true;
}

void onSignalPipe(ClientData, int)
{
    drainSignalPipe();
}

bool setUpSignals()
{
    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    discardOutput = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (discardOutput == -1)
        return false;
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a console read blocked on a partial line gives way.
    if (sigaction(SIGTERM, &action, nullptr) != 0 || sigaction(SIGINT, &action, nullptr) != 0)
        return false;
    // A reader that went away must not kill the gateway mid-trace.
    signal(SIGPIPE, SIG_IGN);
    Tcl_CreateFileHandler(signalPipe[0], TCL_READABLE, onSignalPipe, nullptr);
    return true;
}

void tearDownSignals()
{
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    Tcl_DeleteFileHandler(signalPipe[0]);
    close(signalPipe[0]);
    close(signalPipe[1]);
    close(discardOutput);
}

// The paths the library's "DBG stop" uses, with its doubled slash.
std::string keyPath(char const* separator)
{
    std::ostringstream path;
    path << "/tmp/" << separator << getpid() << ".key";
    return path.str();
}

int listener = -1;
std::string listenerPath;

void onShutdownDatagram(ClientData, int)
{
    char byte = 0;
    ssize_t const received = recv(listener, &byte, 1, MSG_DONTWAIT);
    if (received == 1 && byte == 'q')
        shutdownRequested = true;
}

bool bindListener()
{
    listenerPath = keyPath("/");
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, listenerPath.c_str(), sizeof address.sun_path - 1);
    listener = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (listener == -1)
        return false;
    // No live process has our id, so a file of that name is a dead one's.
    unlink(listenerPath.c_str());
    if (bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        close(listener);
        listener = -1;
        return false;
    }
    Tcl_CreateFileHandler(listener, TCL_READABLE, onShutdownDatagram, nullptr);
    return true;
}

void closeListener()
{
    if (listener == -1)
        return;
    Tcl_DeleteFileHandler(listener);
    close(listener);
    unlink(listenerPath.c_str());
    listener = -1;
}

// Identity of a file, to tell one this process made from one it found.
struct FileId {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
};

FileId fileId(std::string const& path)
{
    FileId id;
    struct stat status;
    if (lstat(path.c_str(), &status) == 0) {
        id.exists = true;
        id.device = status.st_dev;
        id.inode = status.st_ino;
    }
    return id;
}

// ---- remote commands (dbgctl) -----------------------------------------------

// The stand-in's socket and connections are served by this event loop.
void onRemoteReady(ClientData data, int mask)
{
    int events = 0;
    if (mask & TCL_READABLE)
        events |= gateway_remote::RemoteReadable;
    if (mask & TCL_WRITABLE)
        events |= gateway_remote::RemoteWritable;
    gateway_remote::serviceRemote(int(reinterpret_cast<std::intptr_t>(data)), events);
}

void watchRemote(int descriptor, int events)
{
    if (events == 0) {
        Tcl_DeleteFileHandler(descriptor);
        return;
    }
    int mask = 0;
    if (events & gateway_remote::RemoteReadable)
        mask |= TCL_READABLE;
    if (events & gateway_remote::RemoteWritable)
        mask |= TCL_WRITABLE;
    Tcl_CreateFileHandler(descriptor, mask, onRemoteReady,
                          reinterpret_cast<ClientData>(static_cast<std::intptr_t>(descriptor)));
}

// ---- configuration and traffic ---------------------------------------------

std::unique_ptr<DBG_Log> gatewayLog;

void readConfiguration()
{
    DBG_Version const version;
    std::string const text = version.m_voipVersion.empty() ? "unknown" : version.m_voipVersion;
    gatewayLog->trace("configuration read: version " + text + "\n", traceOrigin, __LINE__);
}

void onImcRequest(imc_msg const& msg)
{
    if (msg.code == readConfigurationRequest)
        readConfiguration();
}

// One simulated call per three traces: setup parameters, the SETUP message
// as received, release. The calls take turns through these profiles.
struct CallProfile {
    VCOM_Direction direction;
    VCOM_Codec codec;
    VCOM_Address_Plan plan;
    VCOM_Address_Type type;
    VCOM_Address_Presentation presentation;
    VCOM_Sin bearer;
    VCOM_Ulaw law;
    VCOM_Cause cause;
    VCOM_HangUpSource side;
};

CallProfile const profiles[] = {
    {VCOM_DIR_FROM_NETWORK, VCOM_CODEC_G711ALAW, VCOM_PLAN_ISDN, VCOM_TYPE_NATIONAL,
     VCOM_PRES_ALLOWED, VCOM_SIN_BC_SPEECH, VCOM_ULAW_ALAW, VCOM_CAUSE_NORMAL_CLEARING,
     VCOM_HANGUP_REMOTE},
    {VCOM_DIR_TO_NETWORK, VCOM_CODEC_G729, VCOM_PLAN_ISDN, VCOM_TYPE_INTERNATIONAL,
     VCOM_PRES_RESTRICTED, VCOM_SIN_BC_SPEECH, VCOM_ULAW_MULAW, VCOM_CAUSE_USER_BUSY,
     VCOM_HANGUP_LOCAL},
    {VCOM_DIR_FROM_NETWORK, VCOM_CODEC_G722, VCOM_PLAN_NATIONAL, VCOM_TYPE_SUBSCRIBER,
     VCOM_PRES_NOT_AVAILABLE, VCOM_SIN_31KHZ, VCOM_ULAW_ALAW, VCOM_CAUSE_NO_ANSWER,
     VCOM_HANGUP_NIL},
};

struct Traffic {
    int intervalMs = 0;
    unsigned long step = 0;  // trace count so far
    Tcl_TimerToken timer = nullptr;
};

Traffic traffic;

void writeTrafficTrace()
{
    unsigned long const call = traffic.step / 3 + 1;
    CallProfile const& profile = profiles[(call - 1) % (sizeof profiles / sizeof profiles[0])];
    DBG_OutManager& out = *DBG_OutManager::instance();
    switch (traffic.step % 3) {
    case 0:
        out << "call " << int(call) << " setup " << profile.direction << " codec " << profile.codec
            << " plan " << profile.plan << " type " << profile.type << " presentation "
            << profile.presentation << " bearer " << profile.bearer << " law " << profile.law << "\n";
        out.flush(false, traceOrigin, __LINE__);
        break;
    case 1: {
        // A Q.931 SETUP head: discriminator, call reference, message type,
        // bearer capability.
        unsigned char const message[] = {0x08, 0x02, (unsigned char)(call >> 8), (unsigned char)call,
                                         0x05, 0x04, 0x03, 0x80, 0x90, 0xA3, 0x18, 0x01};
        gatewayLog->trace("call " + std::to_string(call) + " SETUP" +
                              DBG_Output::hexaDump(message, sizeof message) + "\n",
                          traceOrigin, __LINE__);
        break;
    }
    default:
        out << "call " << int(call) << " released cause " << profile.cause << " by " << profile.side
            << "\n";
        out.flush(false, traceOrigin, __LINE__);
        break;
    }
    ++traffic.step;
    // Neither the console sink nor the IMC trace flushes; on a pipe the
    // operator would see the traffic only with the next prompt.
    std::cout.flush();
}

void onTrafficTimer(ClientData)
{
    writeTrafficTrace();
    traffic.timer = Tcl_CreateTimerHandler(traffic.intervalMs, onTrafficTimer, nullptr);
}

}  // namespace

int main(int argc, char** argv)
{
    Options const options = parseOptions(argc, argv);
    Tcl_FindExecutable(argv[0]);

    if (options.imc) {
        imc_standin::start(managerIdentifier);
        imc_standin::setPostHandler(onImcRequest);
    }
    // The first logger brings up the output manager and the DBG commands.
    gatewayLog.reset(new DBG_Log);

    if (!setUpSignals()) {
        std::cerr << argv[0] << ": cannot set up signal handling: " << std::strerror(errno) << "\n";
        return 1;
    }
    if (!bindListener()) {
        std::cerr << argv[0] << ": cannot bind " << listenerPath << ": " << std::strerror(errno) << "\n";
        return 1;
    }
    std::string const stopPath = keyPath("/dbg");
    FileId const stopFileBefore = fileId(stopPath);
    // Without remote commands the gateway still runs; the operator is told.
    if (options.imc) {
        std::string const problem = gateway_remote::startRemote(watchRemote);
        if (!problem.empty())
            std::cerr << argv[0] << ": no remote commands: " << problem << "\n";
    }

    DBG_InManager::instance();

    traffic.intervalMs = options.trafficMs;
    if (traffic.intervalMs > 0)
        traffic.timer = Tcl_CreateTimerHandler(traffic.intervalMs, onTrafficTimer, nullptr);

    while (!shutdownRequested) {
        Tcl_DoOneEvent(TCL_ALL_EVENTS);
        // The console's own SIGTERM ("exit", end of input) is already in
        // the pipe when its event returns: stop before the next event, so
        // an exhausted stdin is not read again.
        drainSignalPipe();
    }

    if (traffic.timer)
        Tcl_DeleteTimerHandler(traffic.timer);
    DBG_InManager::desinstance();
    gatewayLog.reset();
    // Destroys the sink: a trace file gets its buffered bytes.
    DBG_OutManager::desinstance();
    closeListener();
    // "DBG stop" leaves its own socket file behind; remove it if it is ours.
    FileId const stopFileAfter = fileId(stopPath);
    if (stopFileAfter.exists && (!stopFileBefore.exists || stopFileBefore.device != stopFileAfter.device ||
                                 stopFileBefore.inode != stopFileAfter.inode))
        unlink(stopPath.c_str());
    tearDownSignals();
    if (options.imc) {
        gateway_remote::stopRemote();
        imc_standin::setPostHandler(nullptr);
        imc_standin::stop();
    }
    std::cout << std::flush;
    return 0;
}
