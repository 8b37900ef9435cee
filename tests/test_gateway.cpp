// The demo gateway host end to end: started as a program, driven through a
// pipe or a pseudo-terminal the way an operator drives the console.
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <tcl.h>

#include "ChildProcess.h"
#include "HostMemory.h"
#include "RemoteSocketPath.h"
#include "TestSupport.h"

namespace {

// What a terminal shows for program output: every line end as CR LF.
std::string onTerminal(std::string const& text)
{
    std::string shown;
    for (char const c : text) {
        if (c == '\n')
            shown += '\r';
        shown += c;
    }
    return shown;
}

// A trace as the IMC stand-in prints it: "IMC trace <origin>:<line> <text>"
// and its own line end. The source line is the host's business; any number
// is accepted.
bool takeImcTrace(std::string& text, unsigned long& step)
{
    std::string const prefix = "IMC trace dbg_gateway.cpp:";
    if (text.compare(0, prefix.size(), prefix) != 0)
        return false;
    std::size_t position = prefix.size();
    while (position < text.size() && isdigit(static_cast<unsigned char>(text[position])))
        ++position;
    if (position == prefix.size())
        return false;
    std::string const rest = " " + trafficTrace(step) + "\n";
    if (text.compare(position, rest.size(), rest) != 0)
        return false;
    text.erase(0, position + rest.size());
    ++step;
    return true;
}

// Whether the pipe that is a process's standard output fills up to its last
// page within the time: its writer is then held in a write nobody takes.
bool outputPipeFills(pid_t pid, int timeoutMs)
{
    int const pipe = open(("/proc/" + std::to_string(pid) + "/fd/1").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (pipe == -1)
        return false;
    int const capacity = fcntl(pipe, F_GETPIPE_SZ);
    int queued = 0;
    for (int waited = 0; waited < timeoutMs; waited += 10) {
        if (ioctl(pipe, FIONREAD, &queued) != 0 || queued >= capacity - 4096)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    close(pipe);
    return capacity > 0 && queued >= capacity - 4096;
}

class Gateway : public ::testing::Test {
protected:
    void SetUp() override { signal(SIGPIPE, SIG_IGN); }
    void TearDown() override
    {
        pid_t const running = child.pid();
        child.killAndReap();
        if (running > 0)
            ShutdownSocketPaths::removeFor(running);
    }

    // Starts the host and reads its expectedBanner; with a `launcher`, the
    // host is its last argument.
    void start(std::vector<std::string> const& args = {"--traffic", "0"},
               ChildProcess::Terminal terminal = ChildProcess::Terminal::Pipe,
               std::vector<std::string> environment = {}, std::vector<std::string> launcher = {})
    {
        // A fixed locale: Tcl converts console bytes by it. The command
        // socket goes into a scratch directory, so a host the test has to
        // kill leaves nothing behind.
        environment.push_back("LC_ALL=C");
        environment.push_back("XDG_RUNTIME_DIR=" + runtime.path());
        std::string program = toolPath("dbg-gateway");
        std::vector<std::string> programArgs = args;
        if (!launcher.empty()) {
            programArgs.assign(launcher.begin() + 1, launcher.end());
            programArgs.push_back(program);
            programArgs.insert(programArgs.end(), args.begin(), args.end());
            program = launcher.front();
        }
        ASSERT_EQ(child.start(program, programArgs, terminal, environment), "");
        bool const onPty = terminal == ChildProcess::Terminal::Pty;
        std::string const expected = onPty ? onTerminal(expectedBanner) : expectedBanner;
        ASSERT_EQ(child.read(expected.size()), expected);
        pid = child.pid();
        ASSERT_TRUE(fileExists(ShutdownSocketPaths::listenerPath(pid)))
            << "no shutdown listener at " << ShutdownSocketPaths::listenerPath(pid);
    }

    // Types a line and expects exactly `answer` back.
    void ask(std::string const& line, std::string const& answer)
    {
        ASSERT_TRUE(child.send(line + "\n")) << line;
        EXPECT_EQ(child.read(answer.size()), answer) << "after " << line;
    }

    // The host ends with status 0, nothing more on its output than `rest`,
    // and leaves no socket file of its own in /tmp.
    void expectCleanEnd(std::string const& rest = "")
    {
        int status = -1;
        ASSERT_TRUE(child.waitExit(status)) << "still running";
        EXPECT_TRUE(WIFEXITED(status)) << "status " << status;
        EXPECT_EQ(WEXITSTATUS(status), 0);
        EXPECT_EQ(child.readToEnd(), rest);
        EXPECT_FALSE(fileExists(ShutdownSocketPaths::listenerPath(pid)));
        EXPECT_FALSE(fileExists(ShutdownSocketPaths::ownPath(pid)));
    }

    // Types the unknown words first to first + count - 1, a batch at a time,
    // and expects each answered with its first bytes quoted.
    void typeUnknownWords(int first, int count)
    {
        int const batch = 50;
        for (int at = first; at < first + count; at += batch) {
            std::string lines;
            std::string answers;
            for (int number = at; number < std::min(at + batch, first + count); ++number) {
                std::string const word = distinctWord(number, 10 * 1024);
                lines += word + "\n";
                answers += "Unknown command " + word.substr(0, imc_standin::unknownKeyQuoteLimit) + "\n>";
            }
            ASSERT_TRUE(child.send(lines, 20000));
            ASSERT_EQ(child.read(answers.size(), 20000), answers);
        }
    }

    ScratchDir runtime;
    ChildProcess child;
    pid_t pid = -1;
};

TEST_F(Gateway, BannerComesFirstOnAPipe)
{
    start();
    EXPECT_EQ(child.readFor(100), "");
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
}

TEST_F(Gateway, HelpAndEachDbgCommandAnswerThenPrompt)
{
    start();
    auto const scratch = plainScratchDir();
    std::string const traceFile = scratch->file("gw.trace");
    ask("help", std::string(expectedHelpText) + ">");
    ask("DBG help", std::string(expectedHelpText) + ">");
    ask("DBG foo", std::string(expectedHelpText) + ">");
    ask("DBG out", "Debug Output set to console\n>");
    ask("DBG out imc", "Debug Output set to IMC\n>");
    ask("DBG out", "Debug Output set to IMC\n>");
    ask("DBG out std", "Debug Output set to console\n>");
    ask("DBG out file " + traceFile, "Debug Output set to file " + traceFile + "\n>");
    ask("DBG out", "Debug Output set to file " + traceFile + "\n>");
    ask("DBG out std", "Debug Output set to console\n>");
    EXPECT_TRUE(fileExists(traceFile));
    EXPECT_EQ(readFile(traceFile), "");
    ask("DBG memchk 1", "Binary is not instrumented\n>");
    ask("DBG memtrc 0", "Binary is not instrumented\n>");
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
}

TEST_F(Gateway, OperatorOnAPseudoTerminalStopsItWithCtrlC)
{
    start({"--traffic", "0"}, ChildProcess::Terminal::Pty);
    // The terminal echoes what is typed, then shows the answer.
    ask("help", "help\r\n" + onTerminal(expectedHelpText) + ">");
    ask("DBG out", "DBG out\r\n" + onTerminal("Debug Output set to console\n") + ">");
    ask("EXIT", "EXIT\r\n" + onTerminal("Unknown command EXIT\n") + ">");
    ASSERT_TRUE(child.send("\x03"));  // the terminal's interrupt character: SIGINT
    expectCleanEnd("^C");
}

TEST_F(Gateway, OperatorOnAPseudoTerminalEndsInputWithCtrlD)
{
    start({"--traffic", "0"}, ChildProcess::Terminal::Pty);
    ask("DBG memchk", "DBG memchk\r\n" + onTerminal("Binary is not instrumented\n") + ">");
    ASSERT_TRUE(child.send("\x04"));  // end of file at the start of a line
    // The empty last line still goes to the manager: one more prompt.
    expectCleanEnd(">");
}

TEST_F(Gateway, OperatorOnAPseudoTerminalTypesExit)
{
    start({"--traffic", "0"}, ChildProcess::Terminal::Pty);
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd("exit\r\n");
}

TEST_F(Gateway, TrafficInATraceFileByteForByte)
{
    start({"--traffic", "40"});
    auto const scratch = plainScratchDir();
    std::string const traceFile = scratch->file("traffic.trace");
    unsigned long step = 0;

    std::string const toFile = "Debug Output set to file " + traceFile + "\n>";
    ASSERT_TRUE(child.send("DBG out file " + traceFile + "\n"));
    std::string before = child.readThrough(toFile);
    ASSERT_GE(before.size(), toFile.size()) << before;
    before.erase(before.size() - toFile.size());
    takeTraces(before, step);
    EXPECT_EQ(before, "") << "not whole traces before the switch";
    unsigned long const firstInFile = step;

    // Traces now go to the file only.
    EXPECT_EQ(child.readFor(500), "");
    ASSERT_TRUE(child.send("DBG out std\n"));
    std::string const toConsole = "Debug Output set to console\n>";
    ASSERT_EQ(child.read(toConsole.size()), toConsole);

    std::string inFile = readFile(traceFile);
    EXPECT_GE(takeTraces(inFile, step), 5u) << "from trace " << firstInFile;
    EXPECT_EQ(inFile, "") << "the file holds more than whole consecutive traces";

    // And back on the console, carrying on where the file stopped.
    std::string after = child.readFor(300);
    EXPECT_GE(takeTraces(after, step), 1u) << after;
    ASSERT_TRUE(child.send("exit\n"));
    after += child.readFor(100);
    takeTraces(after, step);
    EXPECT_EQ(after, "");
    int status = -1;
    ASSERT_TRUE(child.waitExit(status));
    EXPECT_EQ(status, 0);
    takeTraces(after = child.readToEnd(), step);
    EXPECT_EQ(after, "");
}

TEST_F(Gateway, TrafficShowsAsImcTracesAfterDbgOutImc)
{
    start({"--traffic", "40"});
    unsigned long step = 0;
    std::string const toImc = "Debug Output set to IMC\n>";
    ASSERT_TRUE(child.send("DBG out imc\n"));
    std::string before = child.readThrough(toImc);
    ASSERT_GE(before.size(), toImc.size()) << before;
    before.erase(before.size() - toImc.size());
    takeTraces(before, step);
    EXPECT_EQ(before, "");

    std::string imc = child.readFor(400);
    unsigned long count = 0;
    while (takeImcTrace(imc, step))
        ++count;
    EXPECT_GE(count, 4u);
    // Cut off at the end of the read, or nothing left.
    std::string const next = "IMC trace dbg_gateway.cpp:";
    EXPECT_EQ(imc.compare(0, std::min(imc.size(), next.size()), next, 0, std::min(imc.size(), next.size())), 0)
        << imc;
    ASSERT_TRUE(child.send("exit\n"));
    int status = -1;
    ASSERT_TRUE(child.waitExit(status));
    EXPECT_EQ(status, 0);
}

TEST_F(Gateway, VersionAndReadFollowTheConfigurationFile)
{
    CurrentConfigIsolation isolation;
    DBG_ISOLATE_CURRENT(isolation);
    start();
    ask("DBG version", "Version is unknown\n>");
    ask("DBG read", "configuration read: version unknown\nRead configuration\n>");
    writeFile("/current/config.rc", "TRAXO 01.02\nvoip 3.4.5-build7\nvoip 9.9\n");
    ask("DBG version", "Version is  3.4.5-buil\n>");
    ask("DBG read", "configuration read: version  3.4.5-buil\nRead configuration\n>");
    writeFile("/current/config.rc", "voipX\n");
    ask("DBG version", "Version is X\n>");
    ask("DBG out imc", "Debug Output set to IMC\n>");
    // Through the IMC sink the report is an IMC trace.
    ASSERT_TRUE(child.send("DBG read\n"));
    std::string const answer = child.readThrough("Read configuration\n>");
    std::string const prefix = "IMC trace dbg_gateway.cpp:";
    ASSERT_EQ(answer.compare(0, prefix.size(), prefix), 0) << answer;
    std::string const suffix = " configuration read: version X\n\nRead configuration\n>";
    ASSERT_GE(answer.size(), prefix.size() + suffix.size());
    EXPECT_EQ(answer.substr(answer.size() - suffix.size()), suffix);
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
}

// ./run demo --config FILE: the host in a view of its own where FILE is
// /current/config.rc, bound, so edits in place show; the machine's
// /current stays as it is.
TEST_F(Gateway, ConfigViewShowsTheGivenFileAsTheConfiguration)
{
    auto const scratch = plainScratchDir();
    std::string const configFile = scratch->file("gateway.rc");
    writeFile(configFile, "TRAXO 01.02\nvoip 3.4.5-build7\n");
    struct stat status;
    bool const currentBefore = stat(CurrentConfigIsolation::directory, &status) == 0;
    // In a cross build the view program runs under the emulator, and starts
    // the host under it too.
    std::vector<std::string> launcher = {toolPath("dbg-config-view"), configFile};
    if (char const* emulator = getenv("DBG_TEST_EMULATOR")) {
        std::istringstream words(emulator);
        for (std::string word; words >> word;)
            launcher.push_back(word);
    }
    {
        ChildProcess probe;
        ASSERT_EQ(probe.start(launcher.front(), {configFile, "/bin/true"}, ChildProcess::Terminal::Pipe), "");
        std::string const said = probe.readToEnd();
        int status = -1;
        ASSERT_TRUE(probe.waitExit(status));
        if (WIFEXITED(status) && WEXITSTATUS(status) == 3)
            DBG_SKIP_TEST(said);
        ASSERT_EQ(status, 0) << said;
    }
    start({"--traffic", "0"}, ChildProcess::Terminal::Pipe, {}, launcher);
    ask("DBG version", "Version is  3.4.5-buil\n>");
    writeFile(configFile, "voipX\n");
    ask("DBG version", "Version is X\n>");
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
    EXPECT_EQ(stat(CurrentConfigIsolation::directory, &status) == 0, currentBefore);
}

TEST_F(Gateway, DbgStopEndsItThroughTheShutdownDatagram)
{
    start();
    ASSERT_TRUE(child.send("DBG stop\n"));
    expectCleanEnd("VELTA : processing manual shutdown...\nStoping SIP gateway ...\n>");
}

class GatewayExitLine : public Gateway, public ::testing::WithParamInterface<char const*> {
};

TEST_P(GatewayExitLine, EndsItQuietly)
{
    start();
    ASSERT_TRUE(child.send(std::string(GetParam()) + "\n"));
    expectCleanEnd();
}

INSTANTIATE_TEST_SUITE_P(Lines, GatewayExitLine, ::testing::Values("exit", "DBG exit", "  exit now"));

TEST_F(Gateway, EndOfInputEndsItAfterOneLastPrompt)
{
    start();
    ask("DBG out", "Debug Output set to console\n>");
    child.closeInput();
    expectCleanEnd(">");
}

class GatewaySignal : public Gateway, public ::testing::WithParamInterface<int> {
};

TEST_P(GatewaySignal, EndsItQuietly)
{
    start({"--traffic", "20"});
    // Everything after the banner, before and after the signal, is whole
    // traces in order: the signal cuts none of them.
    std::string rest = child.readFor(100);
    child.signal(GetParam());
    int status = -1;
    ASSERT_TRUE(child.waitExit(status));
    EXPECT_TRUE(WIFEXITED(status)) << "status " << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    rest += child.readToEnd();
    unsigned long step = 0;
    std::string const seen = rest;
    takeTraces(rest, step);
    EXPECT_EQ(rest, "") << seen;
    EXPECT_FALSE(fileExists(ShutdownSocketPaths::listenerPath(pid)));
    EXPECT_FALSE(fileExists(ShutdownSocketPaths::ownPath(pid)));
}

INSTANTIATE_TEST_SUITE_P(Signals, GatewaySignal, ::testing::Values(SIGTERM, SIGINT));

TEST_F(Gateway, UpperCaseExitGoesToTheManagerAndTheHostGoesOn)
{
    start();
    ask("EXIT", "Unknown command EXIT\n>");
    EXPECT_TRUE(child.running());
    ask("help", std::string(expectedHelpText) + ">");
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
}

TEST_F(Gateway, BadInputLeavesItAnswering)
{
    start();
    // Tcl hands lines over in its own UTF-8 form: a NUL byte as C0 80.
    std::string const nulLine("\0\0help\0x", 8);
    ASSERT_EQ(nulLine.size(), 8u);
    ask(nulLine, "Unknown command \xC0\x80\xC0\x80help\xC0\x80x\n>");
    ask("DBG memchk\x01\x02 1", "Binary is not instrumented\n>");
    ask("\x1b[A\x1b[2J\x1b]0;title\x07", "Unknown command \x1b[A\x1b[2J\x1b]0;title\x07\n>");
    ask("\t \t", ">");
    std::string const longLine(1 << 20, 'x');
    ASSERT_TRUE(child.send(longLine, 20000));
    EXPECT_EQ(child.readFor(200), "") << "answered before the line end";
    ASSERT_TRUE(child.send("\nhelp\n"));
    std::string const expected = "Unknown command " + longLine.substr(0, imc_standin::unknownKeyQuoteLimit) +
                                 "\n>" + expectedHelpText + ">";
    std::string const got = child.read(expected.size(), 20000);
    EXPECT_TRUE(got == expected) << "got " << got.size() << " bytes, expected " << expected.size();
    EXPECT_TRUE(child.running());
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
}

// Ten thousand different unknown words of 10 KB each, typed on the console:
// each is answered with a bounded quote and forgotten, so the host's
// resident memory stays where it was but for the record the console keeps
// of every line (one Tcl_DString each, kept on purpose).
TEST_F(Gateway, UnknownWordsLeaveItsMemoryFlatButForTheConsolesLineRecords)
{
    int const words = hostileWordCount();
    start({"--traffic", "0"}, ChildProcess::Terminal::Pipe, {unquarantinedAllocator});
    int const warmUp = 200;
    ASSERT_NO_FATAL_FAILURE(typeUnknownWords(0, warmUp));
    long const before = residentKiB(pid);
    ASSERT_NO_FATAL_FAILURE(typeUnknownWords(warmUp, words));
    long const after = residentKiB(pid);
    ASSERT_GT(before, 0);
    // A record and what the allocator adds to it per line, and a megabyte
    // of slack.
#if defined(__SANITIZE_ADDRESS__)
    std::size_t const allocatorCost = 128;  // AddressSanitizer's redzones and header
#else
    std::size_t const allocatorCost = 2 * sizeof(void*);
#endif
    long const records = long(words * (sizeof(Tcl_DString) + allocatorCost) / 1024);
    EXPECT_LE(after - before, records + 1024)
        << "resident " << before << " KiB before, " << after << " KiB after " << words << " words";
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
}

// SIGTERM while standard output takes nothing: the host still ends with
// status 0 and removes its socket files, as on every other stop.
class GatewayStalledOutput : public Gateway {
protected:
    void startStalling(std::vector<std::string> const& args, ChildProcess::Terminal terminal)
    {
        start(args, terminal);
        remoteSocket = gateway_remote::remoteSocketPathOf(runtime.path() + "/dbg", std::to_string(pid));
        ASSERT_TRUE(fileExists(remoteSocket));
    }

    void expectSigtermEndsIt()
    {
        child.signal(SIGTERM);
        int status = -1;
        ASSERT_TRUE(child.waitExit(status, 10000)) << "still held in its write";
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
        EXPECT_FALSE(fileExists(ShutdownSocketPaths::listenerPath(pid)));
        EXPECT_FALSE(fileExists(ShutdownSocketPaths::ownPath(pid)));
        EXPECT_FALSE(fileExists(remoteSocket));
    }

    std::string remoteSocket;
};

TEST_F(GatewayStalledOutput, SigtermEndsItWhileNobodyReadsItsPipe)
{
    ASSERT_NO_FATAL_FAILURE(startStalling({"--traffic", "0"}, ChildProcess::Terminal::Pipe));
    // An answer longer than the pipe holds: the host is left in the middle
    // of writing it.
    std::string const name(256 * 1024, 'x');
    ASSERT_TRUE(child.send("DBG out file " + name + "\n", 20000));
    ASSERT_TRUE(outputPipeFills(pid, 10000));
    expectSigtermEndsIt();
}

TEST_F(GatewayStalledOutput, SigtermEndsItWhileNobodyReadsItsTerminal)
{
    ASSERT_NO_FATAL_FAILURE(startStalling({"--traffic", "1"}, ChildProcess::Terminal::Pty));
    // Thousands of traces' time: the terminal is full, the host in the
    // middle of a line it does not take.
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
    expectSigtermEndsIt();
}

TEST_F(Gateway, WithoutTheImcManagerEveryLineIsLost)
{
    start({"--traffic", "0", "--no-imc"});
    ask("help", "command lost\n>");
    ask("DBG out std", "command lost\n>");
    ask("", "command lost\n>");
    ASSERT_TRUE(child.send("exit\n"));
    expectCleanEnd();
}

TEST_F(Gateway, WithoutTheImcManagerTrafficStillReachesTheConsole)
{
    start({"--traffic", "20", "--no-imc"});
    std::string seen = child.readFor(300);
    unsigned long step = 0;
    EXPECT_GE(takeTraces(seen, step), 3u);
    ASSERT_TRUE(child.send("exit\n"));
    int status = -1;
    ASSERT_TRUE(child.waitExit(status));
    EXPECT_EQ(status, 0);
}

TEST_F(Gateway, HelpOptionAndBadOptions)
{
    ASSERT_EQ(child.start(toolPath("dbg-gateway"), {"--help"}, ChildProcess::Terminal::Pipe), "");
    std::string const usage = child.readToEnd();
    EXPECT_EQ(usage.compare(0, 7, "usage: "), 0) << usage;
    EXPECT_NE(usage.find("--traffic MS"), std::string::npos) << usage;
    // dbgctl talks to this host's own socket, where RemoteSocketPath.h puts it.
    EXPECT_NE(usage.find(" $XDG_RUNTIME_DIR/dbg/gateway-<pid>.sock (/tmp/dbg-<uid>/gateway-<pid>.sock\n"),
              std::string::npos)
        << usage;
    int status = -1;
    ASSERT_TRUE(child.waitExit(status));
    EXPECT_EQ(status, 0);

    for (auto const& args : std::vector<std::vector<std::string>>{{"--traffic"}, {"--traffic", "-1"},
                                                                   {"--traffic", "5x"}, {"--bogus"}}) {
        ChildProcess bad;
        ASSERT_EQ(bad.start(toolPath("dbg-gateway"), args, ChildProcess::Terminal::Pipe), "");
        EXPECT_EQ(bad.readToEnd(), "") << args[0];
        ASSERT_TRUE(bad.waitExit(status));
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 2) << args[0];
    }
}

}  // namespace
