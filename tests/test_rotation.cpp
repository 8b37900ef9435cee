// A running demo host's trace file rotated by the real logrotate (run as
// this user, with its own state file), under fast traffic. The shipped
// configuration renames the file and selects the same name again through
// dbgctl: every trace ends up exactly once, in order, in the rotated files
// and the current one. copytruncate, which the configuration warns against,
// leaves the file beginning with a hole of NUL bytes.
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "TracingHost.h"

namespace {

constexpr int rotations = 20;

class Rotation : public ::testing::Test {
protected:
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(access(logrotatePath, X_OK), 0) << logrotatePath << " is missing: ./run test installs logrotate";
        scratch = plainScratchDir();
        traceFile = scratch->file("gateway.trace");
        environment = {"LC_ALL=C", "XDG_RUNTIME_DIR=" + scratch->path()};
    }

    std::unique_ptr<ScratchDir> scratch;
    std::string traceFile;
    std::vector<std::string> environment;
    TracingHost gateway;
};

TEST_F(Rotation, RenameAndSameFileAgainLoseNoTrace)
{
    // Every rotated file is kept.
    std::string configuration = readFile(DBG_LOGROTATE_EXAMPLE);
    ASSERT_TRUE(adaptLogrotateExample(configuration, traceFile, rotations + 1));

    unsigned long step = gateway.startOn(traceFile, environment);
    for (int round = 1; round <= rotations; ++round) {
        ASSERT_NO_FATAL_FAILURE(gateway.waitForTraces(traceFile));
        std::string messages;
        ASSERT_EQ(forceLogrotate(*scratch, configuration, messages), 0) << "rotation " << round << ":\n" << messages;
        EXPECT_EQ(messages, "");
        // dbgctl waited for the answer: the new file is there, and the
        // old output has written out what it held.
        ASSERT_TRUE(fileExists(traceFile)) << "rotation " << round;
    }
    gateway.stop();

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
    gateway.startOn(traceFile, environment);
    ASSERT_NO_FATAL_FAILURE(gateway.waitForTraces(traceFile));
    std::string messages;
    ASSERT_EQ(forceLogrotate(*scratch, traceFile + " {\n    rotate 1\n    copytruncate\n}\n", messages), 0) << messages;
    long long const copied = fileSize(traceFile + ".1");
    ASSERT_GT(copied, 0);
    // The host's next full buffer lands at its old offset, at or beyond
    // the size that was copied.
    ASSERT_NO_FATAL_FAILURE(gateway.waitForTraces(traceFile));
    gateway.stop();

    std::string const current = readFile(traceFile);
    ASSERT_GT(static_cast<long long>(current.size()), copied);
    EXPECT_EQ(current.substr(0, std::size_t(copied)), std::string(std::size_t(copied), '\0'))
        << "the first " << copied << " bytes are not all NUL";
}

}  // namespace
