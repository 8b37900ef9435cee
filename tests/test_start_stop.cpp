// DBG_CmdObserver::startCommand (the configuration request posted to the
// IMC manager) and stopCommand (the shutdown datagram "q"). This program
// interposes sendto to see the datagram's destination as the library
// passes it.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "DBG_CmdObserver.h"
#include "ImcProbe.h"
#include "ReferenceModels.h"
#include "TestSupport.h"

namespace {

// One sendto call as it was made, and what standard output had flushed by
// then (when a CoutCapture was in place).
struct SentDatagram {
    std::string data;
    std::string destination;  // the address's bytes, as many as passed
    socklen_t length = 0;
    std::vector<std::string> flushedBefore;
};

std::vector<SentDatagram> sentDatagrams;
CoutCapture const* outputWhileSending = nullptr;

// One bind call: the address's bytes, as many as passed.
std::vector<std::string> boundAddresses;

// The domain, type and protocol of one socket call.
std::vector<std::vector<int>> socketsMade;

}  // namespace

namespace {
// When not 0, every successful close leaves errno at this value, as a
// system may: errno after a successful call is unspecified.
int errnoAfterClose = 0;
}  // namespace

extern "C" int close(int descriptor)
{
    using Close = int (*)(int);
    static Close const next = reinterpret_cast<Close>(dlsym(RTLD_NEXT, "close"));
    int const result = next(descriptor);
    if (result == 0 && errnoAfterClose != 0)
        errno = errnoAfterClose;
    return result;
}

namespace {
// When not 0, socket fails with this errno.
int socketFailure = 0;
// When not 0, every getpid leaves errno at this value, as a system may.
int errnoAfterGetpid = 0;
}  // namespace

extern "C" int socket(int domain, int type, int protocol)
{
    using Socket = int (*)(int, int, int);
    static Socket const next = reinterpret_cast<Socket>(dlsym(RTLD_NEXT, "socket"));
    socketsMade.push_back({domain, type, protocol});
    if (socketFailure != 0) {
        errno = socketFailure;
        return -1;
    }
    return next(domain, type, protocol);
}

extern "C" pid_t getpid()
{
    using GetPid = pid_t (*)();
    static GetPid const next = reinterpret_cast<GetPid>(dlsym(RTLD_NEXT, "getpid"));
    pid_t const pid = next();
    if (errnoAfterGetpid != 0)
        errno = errnoAfterGetpid;
    return pid;
}

extern "C" int bind(int descriptor, sockaddr const* address, socklen_t length)
{
    using Bind = int (*)(int, sockaddr const*, socklen_t);
    static Bind const next = reinterpret_cast<Bind>(dlsym(RTLD_NEXT, "bind"));
    boundAddresses.emplace_back(reinterpret_cast<char const*>(address), length);
    return next(descriptor, address, length);
}

namespace {
// The thread in sendto, while a test watches for it; 0 until then.
std::atomic<bool> watchingSendingThread{false};
std::atomic<pid_t> sendingThread{0};
}  // namespace

extern "C" ssize_t sendto(int descriptor, void const* data, size_t size, int flags, sockaddr const* address,
                          socklen_t length)
{
    using Sendto = ssize_t (*)(int, void const*, size_t, int, sockaddr const*, socklen_t);
    static Sendto const next = reinterpret_cast<Sendto>(dlsym(RTLD_NEXT, "sendto"));
    if (watchingSendingThread)
        sendingThread = static_cast<pid_t>(syscall(SYS_gettid));
    SentDatagram sent;
    sent.data.assign(static_cast<char const*>(data), size);
    if (address)
        sent.destination.assign(reinterpret_cast<char const*>(address), length);
    sent.length = length;
    if (outputWhileSending)
        sent.flushedBefore = outputWhileSending->flushed();
    sentDatagrams.push_back(sent);
    return next(descriptor, data, size, flags, address, length);
}

namespace {

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

constexpr unsigned char identifier = 0xA7;

std::string socketMessage(int error)
{
    return "VELTA : cannot create debug socket (" + std::to_string(error) + "\n";
}

char const shutdownMessage[] = "VELTA : processing manual shutdown...\n";

// A local address as stopCommand passes it: a whole sockaddr_un of 110
// bytes, zero but for the family and the path.
std::string wholeAddress(std::string const& path)
{
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    EXPECT_EQ(sizeof address, 110u);
    return std::string(reinterpret_cast<char const*>(&address), sizeof address);
}

// The scheduling state of one of this process's threads ('S': asleep in a
// call), from /proc.
char threadState(pid_t thread)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string const line((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::size_t const end = line.rfind(") ");
    return end == std::string::npos || end + 2 >= line.size() ? '?' : line[end + 2];
}

bool isSocket(std::string const& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

// The stand-in runs with identifier 0xA7; one observer is built on it.
class StartTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(observer.pImcManager, imc_standin::manager());
        imc_standin::clearCalls();
    }

    ImcSession session{identifier};
    DBG_CmdObserver observer{imc_standin::manager()};
};

class StartDeathTest : public StartTest {
protected:
    // Runs in the dying child: no core file, standard output joins the
    // checked standard error, the post fails with std::runtime_error.
    void startWithFailingPost()
    {
        rlimit const noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        std::cout.rdbuf(std::cerr.rdbuf());
        imc_standin::injectFault(Operation::Post, Fault::RuntimeError);
        observer.startCommand();
    }
};

class StopTest : public StartTest {
protected:
    ShutdownSocketPaths paths;
    std::string const ownPath = ShutdownSocketPaths::ownPath();
    std::string const listenerPath = ShutdownSocketPaths::listenerPath();
};

}  // namespace

TEST_F(StartTest, PostsTheConfigurationRequestByteForByte)
{
    observer.startCommand();
    EXPECT_EQ(operations(), (std::vector<Operation>{Operation::Instance, Operation::Post}));
    std::vector<Call> const posts = callsOf(Operation::Post);
    ASSERT_EQ(posts.size(), 1u);
    ASSERT_EQ(posts[0].record.size(), 2060u);
    EXPECT_EQ(posts[0].record, configurationRequestModel(identifier));
    for (std::size_t offset = 0; offset < posts[0].record.size(); ++offset) {
        if (offset != 2 && (offset < 8 || offset > 11)) {
            EXPECT_EQ(posts[0].record[offset], 0) << "offset " << offset;
        }
    }
    EXPECT_EQ(posts[0].record[2], 0xA7);
}

TEST_F(StartTest, AsksForTheManagerOfModule255)
{
    observer.startCommand();
    std::vector<Call> const instances = callsOf(Operation::Instance);
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0].number, 255);
}

TEST_F(StartTest, RequestCodeIsInTheHostsByteOrder)
{
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ || __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__,
                  "a little- or big-endian host");
    constexpr bool littleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    std::vector<unsigned char> const little{0x58, 0x02, 0x00, 0x00};
    std::vector<unsigned char> const big{0x00, 0x00, 0x02, 0x58};

    observer.startCommand();
    std::vector<Call> const posts = callsOf(Operation::Post);
    ASSERT_EQ(posts.size(), 1u);
    ASSERT_EQ(posts[0].record.size(), 2060u);
    std::vector<unsigned char> const code(posts[0].record.begin() + 8, posts[0].record.begin() + 12);
    if (littleEndian) {
        EXPECT_EQ(code, little);
    } else {
        EXPECT_EQ(code, big);
    }
}

TEST_F(StartTest, HandlerOfTheManagerReceivesTheSameRecord)
{
    std::vector<unsigned char> handled;
    imc_standin::setPostHandler([&handled](imc_msg const& message) {
        auto const* bytes = reinterpret_cast<unsigned char const*>(&message);
        handled.assign(bytes, bytes + sizeof message);
    });
    observer.startCommand();
    imc_standin::setPostHandler(nullptr);
    EXPECT_EQ(handled, configurationRequestModel(identifier));
}

TEST_F(StartTest, EveryRequestIsBuiltAfresh)
{
    observer.startCommand();
    observer.startCommand();
    std::vector<Call> const posts = callsOf(Operation::Post);
    ASSERT_EQ(posts.size(), 2u);
    EXPECT_EQ(posts[0].record, configurationRequestModel(identifier));
    EXPECT_EQ(posts[1].record, configurationRequestModel(identifier));
}

TEST_F(StartTest, IdentifierByteComesFromTheManagerOfModule255)
{
    // The observer's own manager is a copy with another identifier; the
    // byte posted is still the one of the manager instance(255) returns.
    IMC_Manager other(*imc_standin::manager());
    other.identifier = 0x11;
    observer.pImcManager = &other;
    observer.startCommand();
    observer.pImcManager = imc_standin::manager();
    std::vector<Call> const posts = callsOf(Operation::Post);
    ASSERT_EQ(posts.size(), 1u);
    EXPECT_EQ(posts[0].record, configurationRequestModel(identifier));
}

TEST_F(StartTest, RuntimeErrorOfThePostReportsAndExitsThroughTheManager)
{
    imc_standin::injectFault(Operation::Post, Fault::RuntimeError);
    // Instead of ending the process, the exit path throws, so the call can
    // be seen.
    imc_standin::injectFault(Operation::CoreDumpExit, Fault::OtherException);
    CoutCapture capture;
    EXPECT_THROW(observer.startCommand(), std::logic_error);
    EXPECT_EQ(capture.text(), "Start Command Failed\n");
    EXPECT_EQ(operations(),
              (std::vector<Operation>{Operation::Instance, Operation::Post, Operation::CoreDumpExit}));
    std::vector<Call> const exits = callsOf(Operation::CoreDumpExit);
    ASSERT_EQ(exits.size(), 1u);
    EXPECT_EQ(exits[0].number, 0);
}

// The line ends with std::endl: it is out of std::cout's buffer before the
// manager's exit path runs, which need not flush standard output itself.
TEST_F(StartTest, FailureLineIsFlushedBeforeTheExitPathIsCalled)
{
    imc_standin::injectFault(Operation::Post, Fault::RuntimeError);
    // The exit path throws at its first step, before anything of its own.
    imc_standin::injectFault(Operation::CoreDumpExit, Fault::OtherException);
    CoutCapture capture;
    EXPECT_THROW(observer.startCommand(), std::logic_error);
    EXPECT_EQ(capture.flushed(), std::vector<std::string>{"Start Command Failed\n"});
    EXPECT_EQ(capture.unflushed(), "");
}

// Each message is inserted into std::cout as the stream formats it: a width
// set on std::cout pads it.
// The base another module left on std::cout stays as it was.
TEST_F(StartTest, FailureLineTakesTheWidthOfStdCoutAndKeepsItsBase)
{
    for (std::ios::fmtflags const flags : {moduleDecimal, moduleHexadecimal}) {
        imc_standin::injectFault(Operation::Post, Fault::RuntimeError);
        imc_standin::injectFault(Operation::CoreDumpExit, Fault::OtherException);
        PaddedCoutCapture capture(24, '.', flags);
        EXPECT_THROW(observer.startCommand(), std::logic_error);
        EXPECT_EQ(capture.text(), "....Start Command Failed\n");
        EXPECT_EQ(std::cout.flags(), flags);
    }
}

TEST_F(StartDeathTest, RuntimeErrorOfThePostEndsTheProcessWithAbort)
{
    EXPECT_EXIT(startWithFailingPost(), ::testing::KilledBySignal(SIGABRT),
                // An emulator may report the signal on a line of its own.
                "^Start Command Failed\nIMC : core dump exit \\(cause 0\\)\n");
}

TEST_F(StartTest, LogicErrorOfThePostPropagatesWithoutExit)
{
    imc_standin::injectFault(Operation::Post, Fault::OtherException);
    CoutCapture capture;
    EXPECT_THROW(observer.startCommand(), std::logic_error);
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(operations(), (std::vector<Operation>{Operation::Instance, Operation::Post}));
}

TEST_F(StartTest, RuntimeErrorOfTheInstancePropagatesAndNothingIsPosted)
{
    imc_standin::injectFault(Operation::Instance, Fault::RuntimeError);
    CoutCapture capture;
    EXPECT_THROW(observer.startCommand(), std::runtime_error);
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(operations(), std::vector<Operation>{Operation::Instance});
}

TEST_F(StartTest, LogicErrorOfTheInstancePropagatesAndNothingIsPosted)
{
    imc_standin::injectFault(Operation::Instance, Fault::OtherException);
    EXPECT_THROW(observer.startCommand(), std::logic_error);
    EXPECT_EQ(operations(), std::vector<Operation>{Operation::Instance});
}

TEST_F(StartTest, NullInstanceIsReportedAsRuntimeErrorAndNothingIsPosted)
{
    imc_standin::injectFault(Operation::Instance, Fault::NullInstance);
    CoutCapture capture;
    EXPECT_THROW(observer.startCommand(), std::runtime_error);
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(operations(), std::vector<Operation>{Operation::Instance});
}

TEST_F(StopTest, SendsOneQFromItsOwnAddressToTheGateway)
{
    ASSERT_EQ(ShutdownSocketPaths::ownPath(), ownPath);
    ASSERT_EQ(ShutdownSocketPaths::listenerPath(), listenerPath);
    DatagramListener listener(listenerPath);
    ASSERT_NE(listener.fd(), -1);
    CoutCapture capture;

    observer.stopCommand();

    EXPECT_EQ(capture.text(), shutdownMessage);
    std::string data;
    std::string sender;
    ASSERT_TRUE(listener.receive(&data, &sender));
    EXPECT_EQ(data, "q");
    EXPECT_EQ(sender, ownPath);
    EXPECT_FALSE(listener.receive(&data, &sender));
    EXPECT_TRUE(isSocket(ownPath));  // left behind
    EXPECT_TRUE(operations().empty());
}

// The destination is "/tmp/" + "/" + pid + ".key", doubled slash and all,
// in a whole sockaddr_un passed with the length 110: the other spellings
// of the same file make other address bytes.
TEST_F(StopTest, DestinationAddressIsTheGatewaysByteForByte)
{
    sentDatagrams.clear();
    CoutCapture capture;
    observer.stopCommand();
    ASSERT_EQ(sentDatagrams.size(), 1u);
    EXPECT_EQ(sentDatagrams[0].length, 110u);
    EXPECT_EQ(sentDatagrams[0].destination, wholeAddress(listenerPath));
    EXPECT_EQ(sentDatagrams[0].data, "q");
}

// The own address likewise: the whole structure, with the length 110.
TEST_F(StopTest, OwnAddressIsBoundByteForByte)
{
    boundAddresses.clear();
    CoutCapture capture;
    observer.stopCommand();
    EXPECT_EQ(boundAddresses, std::vector<std::string>{wholeAddress(ownPath)});
}

// A local datagram socket of protocol 0: other systems than this one need
// not take another protocol number for it.
TEST_F(StopTest, SocketIsALocalDatagramSocketOfProtocol0)
{
    socketsMade.clear();
    CoutCapture capture;
    observer.stopCommand();
    EXPECT_EQ(socketsMade, (std::vector<std::vector<int>>{{AF_UNIX, SOCK_DGRAM, 0}}));
}

// The socket is given back whether the request went or bind failed.
TEST_F(StopTest, NoDescriptorIsLeftOpen)
{
    std::vector<std::string> const before = entriesOf("/proc/self/fd");
    {
        CoutCapture capture;
        observer.stopCommand();
        observer.stopCommand();  // fails at bind: the first one's path is there
        ASSERT_EQ(capture.text(), shutdownMessage + socketMessage(EADDRINUSE));
    }
    EXPECT_EQ(entriesOf("/proc/self/fd"), before);
}

// std::endl: the message is on its way to the operator before the datagram
// can end the gateway.
TEST_F(StopTest, ShutdownMessageIsFlushedBeforeTheDatagramGoes)
{
    sentDatagrams.clear();
    CoutCapture output;
    outputWhileSending = &output;
    observer.stopCommand();
    outputWhileSending = nullptr;
    ASSERT_EQ(sentDatagrams.size(), 1u);
    EXPECT_EQ(sentDatagrams[0].flushedBefore, std::vector<std::string>{shutdownMessage});
    EXPECT_EQ(output.unflushed(), "");
}

// The socket failure is flushed at once too.
TEST_F(StopTest, SocketFailureMessageIsFlushed)
{
    {
        CoutCapture first;
        observer.stopCommand();
    }
    CoutCapture output;
    observer.stopCommand();
    EXPECT_EQ(output.flushed(), std::vector<std::string>{socketMessage(EADDRINUSE)});
    EXPECT_EQ(output.unflushed(), "");
}

TEST_F(StopTest, MessagesTakeTheWidthOfStdCout)
{
    PaddedCoutCapture capture(50, '.');
    observer.stopCommand();
    observer.stopCommand();  // fails at bind: the first one's path is there
    // The width is the message's: the error number after it is not padded.
    EXPECT_EQ(capture.text(), paddedText(shutdownMessage, 51, '.') +
                                  paddedText("VELTA : cannot create debug socket (", 50, '.') +
                                  std::to_string(EADDRINUSE) + "\n");
}

// The error number is std::cout's insertion of it, in the base another
// module left on std::cout; that base stays as it was.
// The error number is decimal whatever base a module left std::cout in,
// and std::cout keeps that base.
TEST_F(StopTest, ErrorNumberIsDecimalAndStdCoutKeepsItsBase)
{
    for (std::ios::fmtflags const flags : {moduleDecimal, moduleHexadecimal}) {
        ShutdownSocketPaths const fresh;
        PaddedCoutCapture capture(0, '.', flags);
        observer.stopCommand();
        EXPECT_EQ(std::cout.flags(), flags);
        observer.stopCommand();  // fails at bind: the first one's path is there
        EXPECT_EQ(capture.text(), shutdownMessage + std::string("VELTA : cannot create debug socket (") +
                                      std::to_string(EADDRINUSE) + "\n");
        EXPECT_EQ(std::cout.flags(), flags);
    }
}

// After a failed bind the socket is closed first; the message shows errno
// as it is then.
TEST_F(StopTest, BindFailureMessageFollowsTheClose)
{
    {
        CoutCapture first;
        observer.stopCommand();
    }
    CoutCapture capture;
    errnoAfterClose = ENOTTY;
    observer.stopCommand();
    errnoAfterClose = 0;
    EXPECT_EQ(capture.text(), socketMessage(ENOTTY));
}

// A failed socket is reported with its own errno: nothing runs between the
// call and the message that could leave errno otherwise.
TEST_F(StopTest, SocketFailureMessageShowsTheSocketsErrno)
{
    CoutCapture capture;
    socketFailure = EMFILE;
    errnoAfterGetpid = ENOTTY;
    observer.stopCommand();
    errnoAfterGetpid = 0;
    socketFailure = 0;
    EXPECT_EQ(capture.text(), socketMessage(EMFILE));
    EXPECT_FALSE(fileExists(ownPath));
}

TEST_F(StopTest, SecondStopFailsAtBindAndSendsNothing)
{
    DatagramListener listener(listenerPath);
    ASSERT_NE(listener.fd(), -1);
    std::string data;
    std::string sender;
    {
        CoutCapture capture;
        observer.stopCommand();
        EXPECT_EQ(capture.text(), shutdownMessage);
    }
    ASSERT_TRUE(listener.receive(&data, &sender));
    EXPECT_EQ(data, "q");

    CoutCapture capture;
    observer.stopCommand();
    EXPECT_EQ(capture.text(), socketMessage(EADDRINUSE));
    EXPECT_FALSE(listener.receive(&data, &sender));
}

// The request is sent with no flags: when the gateway's queue is full it
// waits for room rather than being dropped.
TEST_F(StopTest, RequestWaitsForRoomWhenTheGatewaysQueueIsFull)
{
    DatagramListener listener(listenerPath);
    ASSERT_NE(listener.fd(), -1);
    sockaddr_un gateway;
    std::memset(&gateway, 0, sizeof gateway);
    gateway.sun_family = AF_UNIX;
    std::memcpy(gateway.sun_path, listenerPath.data(), listenerPath.size());
    auto const sendFiller = [&gateway](int filler) {
        return sendto(filler, "f", 1, 0, reinterpret_cast<sockaddr const*>(&gateway), sizeof gateway) == 1;
    };
    // Fillers, each until its own send buffer or the gateway's queue is
    // full: the queue is full when a new one cannot send at all.
    std::vector<int> fillers;
    bool full = false;
    while (!full && fillers.size() < 256) {
        int const filler = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        ASSERT_NE(filler, -1);
        fillers.push_back(filler);
        full = !sendFiller(filler);
        while (!full && sendFiller(filler)) {
        }
        ASSERT_EQ(errno, EAGAIN);
    }
    for (int filler : fillers)
        close(filler);
    ASSERT_TRUE(full);

    // The queue is drained only once the request has been handed to the
    // system: once the thread sleeps in sendto, or has come back from it.
    CoutCapture capture;
    std::atomic<bool> stopped{false};
    sendingThread = 0;
    watchingSendingThread = true;
    std::thread stopping([this, &stopped] {
        observer.stopCommand();
        stopped = true;
    });
    for (int wait = 0; wait < 5000 && !stopped && (sendingThread == 0 || threadState(sendingThread) != 'S'); ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    watchingSendingThread = false;
    std::string data;
    std::string sender;
    bool requested = false;
    for (int wait = 0; wait < 500 && !requested; ++wait) {
        while (!requested && listener.receive(&data, &sender))
            requested = data == "q";
        if (!requested)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    stopping.join();
    EXPECT_TRUE(requested);
    EXPECT_EQ(sender, ownPath);
    EXPECT_EQ(capture.text(), shutdownMessage);
}

TEST_F(StopTest, NobodyListeningStillPrintsTheShutdownMessage)
{
    ASSERT_FALSE(fileExists(listenerPath));
    CoutCapture capture;
    observer.stopCommand();
    EXPECT_EQ(capture.text(), shutdownMessage);
    EXPECT_TRUE(isSocket(ownPath));
    EXPECT_FALSE(fileExists(listenerPath));
}

TEST_F(StopTest, NoDescriptorLeftReportsTheSocketFailure)
{
    DatagramListener listener(listenerPath);
    ASSERT_NE(listener.fd(), -1);

    // Every descriptor below the lowest free one is in use: with that as
    // the limit, socket() has none left.
    int const lowestFree = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_NE(lowestFree, -1);
    close(lowestFree);
    rlimit previous;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &previous), 0);
    rlimit lowered = previous;
    lowered.rlim_cur = static_cast<rlim_t>(lowestFree);
    std::string printed;
    int probe = -1;
    int probeError = 0;
    {
        // Set up before the limit, and the limit raised again before the
        // capture goes: a sanitizer runtime needs descriptors of its own the
        // first time it checks a call on a stream or a stream buffer type.
        CoutCapture capture;
        std::ostream unbuffered(nullptr);
        unbuffered << errno << std::endl;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lowered), 0);
        observer.stopCommand();
        probe = open("/dev/null", O_RDONLY | O_CLOEXEC);
        probeError = errno;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &previous), 0);
        printed = capture.text();
    }
    if (probe != -1)
        close(probe);

    EXPECT_EQ(probe, -1) << "the lowered limit left a descriptor free";
    EXPECT_EQ(probeError, EMFILE);
    EXPECT_EQ(printed, socketMessage(EMFILE));
    EXPECT_FALSE(fileExists(ownPath));
    std::string data;
    std::string sender;
    EXPECT_FALSE(listener.receive(&data, &sender));
}

TEST_F(StopTest, PathInTheWayReportsTheBindFailure)
{
    writeFile(ownPath, "");
    DatagramListener listener(listenerPath);
    ASSERT_NE(listener.fd(), -1);
    CoutCapture capture;
    observer.stopCommand();
    EXPECT_EQ(capture.text(), socketMessage(EADDRINUSE));
    std::string data;
    std::string sender;
    EXPECT_FALSE(listener.receive(&data, &sender));
}
