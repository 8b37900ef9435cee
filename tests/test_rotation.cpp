// A running demo host's trace file rotated by the real logrotate (run as
// this user, with its own state file), under fast traffic. The shipped
// configuration renames the file and selects the same name again through
// dbgctl: every trace ends up exactly once, in order, in the rotated files
// and the current one. copytruncate, which the configuration warns against,
// leaves the file beginning with a hole of NUL bytes.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
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
#include "TestSupport.h"

namespace {

char const logrotate[] = "/usr/sbin/logrotate";
char const shippedTraceFile[] = "/var/log/gateway/gateway.trace";
constexpr int rotations = 20;

// Size of a file, -1 when it is not there.
long long fileSize(std::string const& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? static_cast<long long>(status.st_size) : -1;
}

// Replaces the one occurrence of `from` in `text`; false when there is not
// exactly one.
bool replaceOnce(std::string& text, std::string const& from, std::string const& to)
{
    std::size_t const at = text.find(from);
    if (at == std::string::npos || text.find(from, at + 1) != std::string::npos)
        return false;
    text.replace(at, from.size(), to);
    return true;
}

// Standard output of a host command run through the shell (never under the
// emulator of a cross build), and its exit status.
std::string hostCommand(std::string const& command, int& status)
{
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    if (!pipe) {
        status = -1;
        return output;
    }
    char chunk[65536];
    for (std::size_t got; (got = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        output.append(chunk, got);
    int const result = pclose(pipe);
    status = WIFEXITED(result) ? WEXITSTATUS(result) : 1000 + result;
    return output;
}

class Rotation : public ::testing::Test {
protected:
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(access(logrotate, X_OK), 0) << logrotate << " is missing: ./run test installs logrotate";
        scratch = plainScratchDir();
        traceFile = scratch->file("gateway.trace");
        environment = {"LC_ALL=C", "XDG_RUNTIME_DIR=" + scratch->path()};
    }

    void TearDown() override
    {
        pid_t const running = gateway.pid();
        gateway.killAndReap();
        if (running > 0)
            ShutdownSocketPaths::removeFor(running);
    }

    // The host with a trace every millisecond, its output switched to the
    // trace file on the console. Returns the step of the file's first trace.
    unsigned long startGatewayOnTraceFile()
    {
        EXPECT_EQ(gateway.start(toolPath("dbg-gateway"), {"--traffic", "1"}, ChildProcess::Terminal::Pipe,
                                environment),
                  "");
        EXPECT_EQ(gateway.read(std::strlen(expectedBanner), 10000), expectedBanner);
        EXPECT_TRUE(gateway.send("DBG out file " + traceFile + "\n"));
        std::string const answer = "Debug Output set to file " + traceFile + "\n>";
        std::string console = gateway.readThrough(answer, 10000);
        EXPECT_GE(console.size(), answer.size());
        EXPECT_EQ(console.substr(console.size() - answer.size()), answer);
        console.erase(console.size() - answer.size());
        unsigned long step = 0;
        takeTraces(console, step);
        EXPECT_EQ(console, "") << "not whole traces on the console before the switch";
        return step;
    }

    // Waits until the host has written into the current trace file: its
    // stream writes only when its buffer is full.
    void waitForTraces()
    {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (fileSize(traceFile) <= 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_GT(fileSize(traceFile), 0) << "no trace reached " << traceFile;
    }

    // logrotate, forced, on `configuration`; its status, its messages in
    // `messages`.
    int rotate(std::string const& configuration, std::string& messages)
    {
        std::string const path = scratch->file("logrotate.conf");
        writeFile(path, configuration);
        int status = -1;
        messages = hostCommand("XDG_RUNTIME_DIR='" + scratch->path() + "' " + logrotate + " -f -s '" +
                                   scratch->file("logrotate.state") + "' '" + path + "' 2>&1",
                               status);
        return status;
    }

    void stopGateway()
    {
        ASSERT_TRUE(gateway.send("DBG stop\n"));
        int status = -1;
        ASSERT_TRUE(gateway.waitExit(status, 10000)) << "still running";
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    }

    std::unique_ptr<ScratchDir> scratch;
    std::string traceFile;
    std::vector<std::string> environment;
    ChildProcess gateway;
};

TEST_F(Rotation, RenameAndSameFileAgainLoseNoTrace)
{
    std::string configuration = readFile(DBG_LOGROTATE_EXAMPLE);
    // Every rotated file is kept, and dbgctl is the one built here, run
    // under the emulator in a cross build.
    std::string dbgctl = toolPath("dbgctl") + " ";
    if (char const* emulator = getenv("DBG_TEST_EMULATOR"))
        dbgctl = std::string(emulator) + " " + dbgctl;
    ASSERT_TRUE(replaceOnce(configuration, std::string(shippedTraceFile) + " {", traceFile + " {"));
    ASSERT_TRUE(replaceOnce(configuration, "rotate 8", "rotate " + std::to_string(rotations + 1)));
    ASSERT_TRUE(replaceOnce(configuration, "dbgctl DBG out file", dbgctl + "DBG out file"));

    unsigned long step = startGatewayOnTraceFile();
    for (int round = 1; round <= rotations; ++round) {
        ASSERT_NO_FATAL_FAILURE(waitForTraces());
        std::string messages;
        ASSERT_EQ(rotate(configuration, messages), 0) << "rotation " << round << ":\n" << messages;
        EXPECT_EQ(messages, "");
        // dbgctl waited for the answer: the new file is there, and the
        // old output has written out what it held.
        ASSERT_TRUE(fileExists(traceFile)) << "rotation " << round;
    }
    stopGateway();

    // Oldest first: .20.gz to .2.gz, .1 (delaycompress), the current file.
    std::vector<std::string> parts;
    for (int number = rotations; number >= 2; --number) {
        std::string const compressed = traceFile + "." + std::to_string(number) + ".gz";
        ASSERT_TRUE(fileExists(compressed)) << compressed;
        int status = -1;
        parts.push_back(hostCommand("gzip -dc '" + compressed + "'", status));
        ASSERT_EQ(status, 0) << compressed;
    }
    ASSERT_TRUE(fileExists(traceFile + ".1"));
    EXPECT_FALSE(fileExists(traceFile + ".1.gz"));
    EXPECT_FALSE(fileExists(traceFile + "." + std::to_string(rotations + 1) + ".gz"));
    parts.push_back(readFile(traceFile + ".1"));
    parts.push_back(readFile(traceFile));

    // Each file holds whole traces that carry on exactly where the one
    // before stopped: none lost, none twice, no NUL byte.
    for (std::size_t index = 0; index < parts.size(); ++index) {
        std::string rest = parts[index];
        EXPECT_EQ(rest.find('\0'), std::string::npos) << "file " << index << " holds a NUL byte";
        EXPECT_GT(takeTraces(rest, step), 0u) << "file " << index << " holds no trace";
        EXPECT_EQ(rest.substr(0, 200), "") << "file " << index << " does not go on with trace " << step;
    }
}

TEST_F(Rotation, CopytruncateLeavesTheFileBeginningWithNulBytes)
{
    startGatewayOnTraceFile();
    ASSERT_NO_FATAL_FAILURE(waitForTraces());
    std::string messages;
    ASSERT_EQ(rotate(traceFile + " {\n    rotate 1\n    copytruncate\n}\n", messages), 0) << messages;
    long long const copied = fileSize(traceFile + ".1");
    ASSERT_GT(copied, 0);
    // The host's next full buffer lands at its old offset, at or beyond
    // the size that was copied.
    ASSERT_NO_FATAL_FAILURE(waitForTraces());
    stopGateway();

    std::string const current = readFile(traceFile);
    ASSERT_GT(static_cast<long long>(current.size()), copied);
    EXPECT_EQ(current.substr(0, std::size_t(copied)), std::string(std::size_t(copied), '\0'))
        << "the first " << copied << " bytes are not all NUL";
}

}  // namespace
