// dbgctl against a running demo gateway host: the host started as a program
// with its console on a pipe, dbgctl run as a second program (or as another
// user), each command line going over the host's own command socket.
#include <fcntl.h>
#include <grp.h>
#include <limits.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "HostMemory.h"
#include "RemoteCommands.h"
#include "TestSupport.h"

namespace {

constexpr uid_t nobody = 65534;

// What dbgctl wrote on its terminal, with the terminal's CR LF undone.
std::string fromTerminal(std::string text)
{
    for (std::size_t at; (at = text.find("\r\n")) != std::string::npos;)
        text.erase(at, 1);
    return text;
}

std::string octalMode(std::string const& path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return "missing";
    std::ostringstream mode;
    mode << std::oct << (status.st_mode & 07777);
    return mode.str();
}

// A connected client socket, blocking; -1 on failure.
int connectTo(std::string const& path)
{
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    int const descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1)
        return -1;
    if (connect(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

// Everything until the peer closes, or what came when the time is up.
std::string readUntilClosed(int descriptor, int timeoutMs, bool* closed = nullptr)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string text;
    if (closed)
        *closed = false;
    for (;;) {
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0)
            return text;
        pollfd ready = {descriptor, POLLIN, 0};
        if (poll(&ready, 1, int(left)) <= 0)
            continue;
        char chunk[4096];
        ssize_t const got = read(descriptor, chunk, sizeof chunk);
        if (got <= 0) {
            if (closed)
                *closed = true;
            return text;
        }
        text.append(chunk, std::size_t(got));
    }
}

// Whole traffic traces, and how many: every line one call's trace.
bool wholeTraces(std::string const& text, std::size_t& count)
{
    count = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 5, "call ") != 0)
            return false;
        ++count;
    }
    return text.empty() || text.back() == '\n';
}

struct Outcome {
    int status = -1;
    std::string output;  // standard output and error together
};

class Dbgctl : public ::testing::Test {
protected:
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        // The runtime directory doubles as the place of trace files, whose
        // path must hold neither "std" nor "imc" ("DBG out file <path>").
        do
            runtime = std::make_unique<ScratchDir>();
        while (runtime->path().find("std") != std::string::npos || runtime->path().find("imc") != std::string::npos);
        // Others may pass through it: what keeps them out is the gateway's
        // own directory below it.
        ASSERT_EQ(chmod(runtime->path().c_str(), 0711), 0);
        socketDirectory = runtime->path() + "/dbg";
        environment = {"LC_ALL=C", "XDG_RUNTIME_DIR=" + runtime->path()};
    }

    void TearDown() override
    {
        for (auto& gateway : gateways) {
            pid_t const running = gateway->pid();
            gateway->killAndReap();
            if (running > 0)
                ShutdownSocketPaths::removeFor(running);
        }
    }

    // Starts a host, reads its expectedBanner; its command socket is there then.
    ChildProcess& startGateway(std::vector<std::string> const& args = {"--traffic", "0"})
    {
        gateways.push_back(std::make_unique<ChildProcess>());
        ChildProcess& gateway = *gateways.back();
        std::string const started = gateway.start(toolPath("dbg-gateway"), args, ChildProcess::Terminal::Pipe,
                                                  environment);
        EXPECT_EQ(started, "");
        EXPECT_EQ(gateway.read(std::strlen(expectedBanner), 10000), expectedBanner);
        EXPECT_TRUE(fileExists(socketOf(gateway.pid()))) << socketOf(gateway.pid());
        return gateway;
    }

    std::string socketOf(pid_t pid) const
    {
        return socketDirectory + "/gateway-" + std::to_string(pid) + ".sock";
    }

    // dbgctl as this test's user, on a terminal of its own.
    Outcome dbgctl(std::vector<std::string> const& args)
    {
        ChildProcess client;
        Outcome outcome;
        std::string const started =
            client.start(toolPath("dbgctl"), args, ChildProcess::Terminal::Pty, environment);
        EXPECT_EQ(started, "");
        outcome.output = fromTerminal(client.readToEnd(15000));
        EXPECT_TRUE(client.waitExit(outcome.status, 15000)) << "dbgctl is still running";
        outcome.status = WIFEXITED(outcome.status) ? WEXITSTATUS(outcome.status) : 1000 + outcome.status;
        return outcome;
    }

    // dbgctl as uid and gid 65534, its standard error joined to its output.
    // With `overrideDirectories` it keeps CAP_DAC_OVERRIDE, as a tool
    // started by root with that capability would: it reaches the socket
    // through the private directory, and only the gateway's check of its
    // peer's credentials stands in its way. The program runs from a copy
    // that user can reach wherever the build tree lives (it loads only
    // system libraries).
    Outcome dbgctlAsNobody(std::vector<std::string> const& args, bool overrideDirectories)
    {
        Outcome outcome;
        std::string const program = runtime->file("dbgctl");
        EXPECT_EQ(copyProgram(toolPath("dbgctl"), program), "");
        ChildProcess client;
        std::string const started = client.start(
            program, args, ChildProcess::Terminal::Pipe, environment, [overrideDirectories] {
                if (dup2(1, 2) == -1)
                    return 119;
                if (overrideDirectories && prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0)
                    return 120;
                if (setgroups(0, nullptr) != 0 || setresgid(nobody, nobody, nobody) != 0 ||
                    setresuid(nobody, nobody, nobody) != 0)
                    return 121;
                if (overrideDirectories) {
                    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
                    __user_cap_data_struct data[2] = {};
                    data[0].effective = data[0].permitted = data[0].inheritable = 1u << CAP_DAC_OVERRIDE;
                    if (syscall(SYS_capset, &header, data) != 0)
                        return 122;
                    if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_OVERRIDE, 0, 0) != 0)
                        return 123;
                }
                return 0;
            });
        EXPECT_EQ(started, "");
        client.closeInput();
        outcome.output = client.readToEnd(15000);
        EXPECT_TRUE(client.waitExit(outcome.status, 15000)) << "dbgctl as nobody did not end";
        outcome.status = WIFEXITED(outcome.status) ? WEXITSTATUS(outcome.status) : 1000 + outcome.status;
        return outcome;
    }

    // Types a line on a host's console and expects exactly `answer` back.
    void ask(ChildProcess& gateway, std::string const& line, std::string const& answer)
    {
        ASSERT_TRUE(gateway.send(line + "\n")) << line;
        EXPECT_EQ(gateway.read(answer.size(), 10000), answer) << "after " << line;
    }

    // "exit" on the console: status 0, and its socket is gone.
    void stop(ChildProcess& gateway, std::string const& rest = "")
    {
        pid_t const pid = gateway.pid();
        ASSERT_TRUE(gateway.send("exit\n"));
        int status = -1;
        ASSERT_TRUE(gateway.waitExit(status, 10000)) << "still running";
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
        EXPECT_EQ(gateway.readToEnd(), rest);
        EXPECT_FALSE(fileExists(socketOf(pid)));
    }

    std::unique_ptr<ScratchDir> runtime;
    std::string socketDirectory;
    std::vector<std::string> environment;
    std::vector<std::unique_ptr<ChildProcess>> gateways;
};

TEST_F(Dbgctl, SwitchesARunningGatewaysOutputToAFileAndBack)
{
    ChildProcess& gateway = startGateway({"--traffic", "40"});
    std::string const traceFile = runtime->file("gw.trace");

    Outcome outcome = dbgctl({"DBG", "out", "file", traceFile});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Debug Output set to file " + traceFile + "\n");
    // Traces written before the switch; then nothing on the console, not
    // even the answer, which went back to dbgctl.
    std::size_t count = 0;
    std::string const before = gateway.readFor(300);
    EXPECT_TRUE(wholeTraces(before, count)) << before;
    EXPECT_EQ(gateway.readFor(600), "");

    outcome = dbgctl({"DBG", "out"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Debug Output set to file " + traceFile + "\n");
    outcome = dbgctl({"DBG out std"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Debug Output set to console\n");

    std::string const inFile = readFile(traceFile);
    EXPECT_TRUE(wholeTraces(inFile, count)) << inFile;
    EXPECT_GE(count, 5u) << inFile;
    // The traffic is back on the console.
    std::string const after = gateway.readFor(400);
    EXPECT_TRUE(wholeTraces(after, count)) << after;
    EXPECT_GE(count, 1u);
    EXPECT_EQ(readFile(traceFile), inFile) << "the file still grows";
    gateway.send("exit\n");
    int status = -1;
    ASSERT_TRUE(gateway.waitExit(status, 10000));
    EXPECT_EQ(status, 0);
}

TEST_F(Dbgctl, AnswersAsTheConsoleDoesButOnItsConnection)
{
    ChildProcess& gateway = startGateway();
    Outcome outcome = dbgctl({"help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, expectedHelpText);
    outcome = dbgctl({"DBG", "memchk", "1"});
    EXPECT_EQ(outcome.output, "Binary is not instrumented\n");
    outcome = dbgctl({"EXIT"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Unknown command EXIT\n");
    outcome = dbgctl({"DBG", "out", "imc"});
    EXPECT_EQ(outcome.output, "Debug Output set to IMC\n");
    // None of it on the console, which answers its own lines as ever.
    EXPECT_EQ(gateway.readFor(200), "");
    ask(gateway, "DBG out", "Debug Output set to IMC\n>");
    ask(gateway, "help", std::string(expectedHelpText) + ">");
    stop(gateway);
}

// Ten thousand different unknown words, each as long as a remote line may
// be, each on a connection of its own as dbgctl sends them: answered with a
// bounded quote and forgotten, they leave the gateway's memory flat.
TEST_F(Dbgctl, UnknownWordsLeaveTheGatewaysMemoryFlat)
{
    int const words = hostileWordCount();
    environment.push_back(unquarantinedAllocator);
    ChildProcess& gateway = startGateway();
    std::string const word = distinctWord(0, gateway_remote::remoteLineLimit);
    Outcome const outcome = dbgctl({word});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Unknown command " + word.substr(0, imc_standin::unknownKeyQuoteLimit) + "\n");

    std::string const socket = socketOf(gateway.pid());
    auto const sendWords = [&](int first, int count) {
        for (int number = first; number < first + count; ++number) {
            std::string const line = distinctWord(number, gateway_remote::remoteLineLimit) + "\n";
            int const descriptor = connectTo(socket);
            ASSERT_NE(descriptor, -1) << "word " << number;
            bool const sent = write(descriptor, line.data(), line.size()) == ssize_t(line.size());
            std::string const answer = readUntilClosed(descriptor, 10000);
            close(descriptor);
            ASSERT_TRUE(sent) << "word " << number;
            ASSERT_EQ(answer, "Unknown command " + line.substr(0, imc_standin::unknownKeyQuoteLimit) + "\n");
        }
    };
    int const warmUp = 200;
    ASSERT_NO_FATAL_FAILURE(sendWords(1, warmUp));
    long const before = residentKiB(gateway.pid());
    ASSERT_NO_FATAL_FAILURE(sendWords(1 + warmUp, words));
    long const after = residentKiB(gateway.pid());
    ASSERT_GT(before, 0);
    EXPECT_LE(after - before, 1024) << "resident " << before << " KiB before, " << after << " KiB after " << words
                                    << " words";
    EXPECT_EQ(gateway.readFor(100), "") << "the answers went to the connections";
    stop(gateway);
}

TEST_F(Dbgctl, DbgStopEndsTheGateway)
{
    ChildProcess& gateway = startGateway();
    pid_t const pid = gateway.pid();
    Outcome const outcome = dbgctl({"DBG", "stop"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Stoping SIP gateway ...\n");
    int status = -1;
    ASSERT_TRUE(gateway.waitExit(status, 10000));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(gateway.readToEnd(), "VELTA : processing manual shutdown...\n");
    EXPECT_FALSE(fileExists(socketOf(pid)));
    EXPECT_FALSE(fileExists(socketDirectory));
}

TEST_F(Dbgctl, SocketIsPrivateAndGoesWithTheGateway)
{
    ChildProcess& gateway = startGateway();
    std::string const socket = socketOf(gateway.pid());
    struct stat status;
    ASSERT_EQ(lstat(socketDirectory.c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(octalMode(socketDirectory), "700");
    ASSERT_EQ(lstat(socket.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(octalMode(socket), "600");
    stop(gateway);
    EXPECT_FALSE(fileExists(socketDirectory)) << "the directory it made is left";
}

TEST_F(Dbgctl, LoosenedDirectoryIsMadePrivateAgain)
{
    ASSERT_EQ(mkdir(socketDirectory.c_str(), 0755), 0);
    ChildProcess& gateway = startGateway();
    EXPECT_EQ(octalMode(socketDirectory), "700");
    stop(gateway);
}

TEST_F(Dbgctl, AnotherUsersDirectoryIsNotUsed)
{
    if (geteuid() != 0)
        DBG_SKIP_TEST("needs root: it acts as another user (uid 65534)");
    ASSERT_EQ(mkdir(socketDirectory.c_str(), 0700), 0);
    ASSERT_EQ(chown(socketDirectory.c_str(), nobody, nobody), 0);
    gateways.push_back(std::make_unique<ChildProcess>());
    ChildProcess& gateway = *gateways.back();
    // Its complaint goes to standard error, which is this test's; the
    // console still comes up, without a socket.
    ASSERT_EQ(gateway.start(toolPath("dbg-gateway"), {"--traffic", "0"}, ChildProcess::Terminal::Pipe, environment),
              "");
    EXPECT_EQ(gateway.read(std::strlen(expectedBanner), 10000), expectedBanner);
    EXPECT_FALSE(fileExists(socketOf(gateway.pid())));
    Outcome const outcome = dbgctl({"--pid", std::to_string(gateway.pid()), "help"});
    EXPECT_EQ(outcome.status, 1);
    ask(gateway, "DBG out", "Debug Output set to console\n>");
    stop(gateway);
    EXPECT_TRUE(fileExists(socketDirectory)) << "another user's directory was removed";
}

TEST_F(Dbgctl, ChoosesTheOnlyGatewayOrTheOneOfThePid)
{
    ChildProcess& first = startGateway();
    ChildProcess& second = startGateway();
    std::string const firstPid = std::to_string(first.pid());
    std::string const secondPid = std::to_string(second.pid());

    Outcome outcome = dbgctl({"DBG", "out"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output.rfind("dbgctl: several gateways are running (pids ", 0), 0u) << outcome.output;
    EXPECT_NE(outcome.output.find(" " + firstPid), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find(" " + secondPid), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("): choose one with --pid\n"), std::string::npos) << outcome.output;

    outcome = dbgctl({"--pid", secondPid, "DBG", "out", "imc"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Debug Output set to IMC\n");
    ask(first, "DBG out", "Debug Output set to console\n>");
    ask(second, "DBG out", "Debug Output set to IMC\n>");
    outcome = dbgctl({"--socket", socketOf(first.pid()), "DBG", "out"});
    EXPECT_EQ(outcome.output, "Debug Output set to console\n");

    // The socket of a gateway that died (killed) stays; it is passed over.
    second.killAndReap();
    ShutdownSocketPaths::removeFor(std::stoi(secondPid));
    EXPECT_TRUE(fileExists(socketOf(std::stoi(secondPid))));
    outcome = dbgctl({"DBG", "out"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Debug Output set to console\n");
    outcome = dbgctl({"--pid", secondPid, "DBG", "out"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "dbgctl: no gateway answers at " + socketOf(std::stoi(secondPid)) + ": Connection refused\n");
    stop(first);
    // The dead one's socket keeps the directory.
    EXPECT_TRUE(fileExists(socketDirectory));
}

TEST_F(Dbgctl, SaysSoWhenNoGatewayAnswers)
{
    Outcome outcome = dbgctl({"DBG", "out"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "dbgctl: no gateway is running for this user (no " + socketDirectory + ")\n");
    outcome = dbgctl({"--pid", "12345", "DBG", "out"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "dbgctl: no gateway answers at " + socketOf(12345) + ": No such file or directory\n");
    ASSERT_EQ(mkdir(socketDirectory.c_str(), 0700), 0);
    outcome = dbgctl({"DBG", "out"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "dbgctl: no gateway is running for this user (no live socket in " + socketDirectory + ")\n");
    outcome = dbgctl({});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output.rfind("dbgctl: no command given\nusage: dbgctl ", 0), 0u) << outcome.output;
}

TEST_F(Dbgctl, AnotherUserCannotReachThePrivateDirectory)
{
    if (geteuid() != 0)
        DBG_SKIP_TEST("needs root: it acts as another user (uid 65534)");
    ChildProcess& gateway = startGateway();
    std::string const traceFile = runtime->file("kept.trace");
    EXPECT_EQ(dbgctl({"DBG", "out", "file", traceFile}).status, 0);
    std::string const socket = socketOf(gateway.pid());
    Outcome const outcome = dbgctlAsNobody({"--pid", std::to_string(gateway.pid()), "DBG", "out", "std"}, false);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "dbgctl: cannot reach " + socket +
                                  ": Permission denied (the gateway runs as another user)\n");
    ask(gateway, "DBG out", "Debug Output set to file " + traceFile + "\n>");
    stop(gateway);
}

TEST_F(Dbgctl, AnotherUsersConnectionIsRefusedOnItsCredentials)
{
    if (geteuid() != 0)
        DBG_SKIP_TEST("needs root: it acts as another user (uid 65534)");
    ChildProcess& gateway = startGateway();
    std::string const traceFile = runtime->file("kept.trace");
    EXPECT_EQ(dbgctl({"DBG", "out", "file", traceFile}).status, 0);
    Outcome const outcome = dbgctlAsNobody({"--pid", std::to_string(gateway.pid()), "DBG", "out", "std"}, true);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "dbgctl: refused: uid 65534 is not the gateway's user\n");
    // Nothing was done for it.
    ask(gateway, "DBG out", "Debug Output set to file " + traceFile + "\n>");
    EXPECT_EQ(gateway.readFor(100), "");
    stop(gateway);
}

TEST_F(Dbgctl, HungAndHalfClosedClientsDoNotStallTheGateway)
{
    ChildProcess& gateway = startGateway();
    std::string const socket = socketOf(gateway.pid());

    // Connects and sends nothing.
    int const hung = connectTo(socket);
    ASSERT_NE(hung, -1) << strerror(errno);
    // Stops in the middle of a line.
    int const midLine = connectTo(socket);
    ASSERT_NE(midLine, -1);
    ASSERT_EQ(write(midLine, "DBG ou", 6), 6);
    // Ends its sending without a line end, and does not read yet.
    int const halfClosed = connectTo(socket);
    ASSERT_NE(halfClosed, -1);
    ASSERT_EQ(write(halfClosed, "DBG out", 7), 7);
    ASSERT_EQ(shutdown(halfClosed, SHUT_WR), 0);

    ask(gateway, "help", std::string(expectedHelpText) + ">");
    Outcome outcome = dbgctl({"DBG", "out", "imc"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Debug Output set to IMC\n");
    ask(gateway, "DBG out", "Debug Output set to IMC\n>");

    // The half-closed one got its line's answer, as the console takes a
    // last line without its end.
    bool closed = false;
    EXPECT_EQ(readUntilClosed(halfClosed, 5000, &closed), "Debug Output set to console\n");
    EXPECT_TRUE(closed);
    close(halfClosed);

    // A line past the limit is refused.
    int const flood = connectTo(socket);
    ASSERT_NE(flood, -1);
    std::string const tooLong(5000, 'x');
    ASSERT_EQ(write(flood, tooLong.data(), tooLong.size()), ssize_t(tooLong.size()));
    EXPECT_EQ(readUntilClosed(flood, 5000, &closed), "refused: line longer than 4096 bytes\n");
    EXPECT_TRUE(closed);
    close(flood);

    // Past the connection limit the oldest idle ones go first.
    std::vector<int> idle;
    for (int i = 0; i < 16; ++i) {
        idle.push_back(connectTo(socket));
        ASSERT_NE(idle.back(), -1);
    }
    ask(gateway, "help", std::string(expectedHelpText) + ">");
    EXPECT_EQ(readUntilClosed(hung, 5000, &closed), "");
    EXPECT_TRUE(closed) << "the oldest idle connection is still open";
    EXPECT_EQ(readUntilClosed(midLine, 5000, &closed), "");
    EXPECT_TRUE(closed);
    outcome = dbgctl({"DBG", "out", "std"});
    EXPECT_EQ(outcome.output, "Debug Output set to console\n");

    close(hung);
    close(midLine);
    for (int descriptor : idle)
        close(descriptor);
    stop(gateway);
}

}  // namespace
