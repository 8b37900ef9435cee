#include "TracingHost.h"

#include <stdlib.h>

#include <chrono>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "TestSupport.h"

bool adaptLogrotateExample(std::string& configuration, std::string const& traceFile, int keep)
{
    std::string dbgctl = toolPath("dbgctl") + " ";
    if (char const* emulator = getenv("DBG_TEST_EMULATOR"))
        dbgctl = std::string(emulator) + " " + dbgctl;
    return replaceOnce(configuration, "/var/log/gateway/gateway.trace {", traceFile + " {") &&
           replaceOnce(configuration, "rotate 8", "rotate " + std::to_string(keep)) &&
           replaceOnce(configuration, "dbgctl DBG out file", dbgctl + "DBG out file");
}

int forceLogrotate(ScratchDir const& scratch, std::string const& configuration, std::string& messages)
{
    std::string const path = scratch.file("logrotate.conf");
    writeFile(path, configuration);
    int status = -1;
    messages = hostCommand("XDG_RUNTIME_DIR='" + scratch.path() + "' " + logrotatePath + " -f -s '" +
                               scratch.file("logrotate.state") + "' '" + path + "' 2>&1",
                           status);
    return status;
}

TracingHost::~TracingHost()
{
    pid_t const running = m_host.pid();
    m_host.killAndReap();
    if (running > 0)
        ShutdownSocketPaths::removeFor(running);
}

unsigned long TracingHost::startOn(std::string const& traceFile, std::vector<std::string> const& environment)
{
    EXPECT_EQ(m_host.start(toolPath("dbg-gateway"), {"--traffic", "1"}, ChildProcess::Terminal::Pipe, environment),
              "");
    EXPECT_EQ(m_host.read(std::strlen(expectedBanner), 10000), expectedBanner);
    EXPECT_TRUE(m_host.send("DBG out file " + traceFile + "\n"));
    std::string const answer = "Debug Output set to file " + traceFile + "\n>";
    std::string console = m_host.readThrough(answer, 10000);
    EXPECT_GE(console.size(), answer.size());
    EXPECT_EQ(console.substr(console.size() - answer.size()), answer);
    console.erase(console.size() - answer.size());
    unsigned long step = 0;
    takeTraces(console, step);
    EXPECT_EQ(console, "") << "not whole traces on the console before the switch";
    return step;
}

void TracingHost::waitForTraces(std::string const& traceFile)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (fileSize(traceFile) <= 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_GT(fileSize(traceFile), 0) << "no trace reached " << traceFile;
}

void TracingHost::stop()
{
    ASSERT_TRUE(m_host.send("DBG stop\n"));
    int status = -1;
    ASSERT_TRUE(m_host.waitExit(status, 10000)) << "still running";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}
