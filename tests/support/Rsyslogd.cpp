#include "Rsyslogd.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

bool listening(int port)
{
    char local[32];
    std::snprintf(local, sizeof local, "0100007F:%04X", unsigned(port));
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, address, remote, state;
        if (fields >> slot >> address >> remote >> state && address == local && state == "0A")
            return true;
    }
    return false;
}

}  // namespace

int freeLoopbackPort()
{
    int const probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = -1;
    if (probe >= 0 && bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    if (probe >= 0)
        close(probe);
    return port;
}

void waitUntilListening(int port)
{
    auto const deadline = Clock::now() + std::chrono::seconds(20);
    while (!listening(port) && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(listening(port)) << "the collector does not listen on port " << port;
}

std::string gatewaySide(std::string shipped, std::string const& traceFile, int port,
                        std::string const& localAddress, std::string const& tlsDirectory)
{
    EXPECT_GE(replaceAll(shipped, shippedTraceFile, traceFile), 1) << "no trace file in the gateway's side";
    std::string const from = localAddress.empty() ? "" : " localClientIp=\"" + localAddress + "\"";
    EXPECT_TRUE(replaceOnce(shipped, "target=\"collector.example.org\"", "target=\"127.0.0.1\"" + from));
    EXPECT_TRUE(replaceOnce(shipped, "port=\"2514\"", "port=\"" + std::to_string(port) + "\""));
    EXPECT_TRUE(replaceOnce(shipped, "action.resumeInterval=\"30\"", "action.resumeInterval=\"1\""));
    replaceAll(shipped, shippedTlsDirectory, tlsDirectory);
    return shipped;
}

std::string collectorSide(std::string shipped, std::string const& outputDirectory, int port,
                          std::string const& tlsDirectory)
{
    EXPECT_TRUE(replaceOnce(shipped, "value=\"/var/log/gateways/\"", "value=\"" + outputDirectory + "\""));
    EXPECT_TRUE(replaceOnce(shipped, "port=\"2514\"", "address=\"127.0.0.1\" port=\"" + std::to_string(port) + "\""));
    replaceAll(shipped, shippedTlsDirectory, tlsDirectory);
    return shipped;
}

void makeFleetPki(std::string const& directory, std::vector<std::string> const& names)
{
    std::string command = "'" DBG_FLEET_PKI "' '" + directory + "'";
    for (std::string const& name : names)
        command += " '" + name + "'";
    int status = -1;
    std::string const said = hostCommand(command + " 2>&1", status);
    ASSERT_EQ(status, 0) << said;
}

Rsyslogd::Rsyslogd(ScratchDir const& scratch, std::string name)
    : m_scratch(scratch), m_name(std::move(name)), m_work(scratch.file(m_name + "-work"))
{
    EXPECT_EQ(mkdir(m_work.c_str(), 0700), 0) << m_work;
}

void Rsyslogd::configure(std::string const& configuration, std::string const& hostName)
{
    std::string const own = m_scratch.file(m_name + "-own.conf");
    writeFile(own, configuration);
    std::string main = "global(workDirectory=\"" + m_work + "\"";
    if (!hostName.empty())
        main += " localHostName=\"" + hostName + "\"";
    writeFile(m_scratch.file(m_name + ".conf"), main + ")\ninclude(file=\"" + own + "\")\n");
}

void Rsyslogd::start(std::vector<std::string> const& environment)
{
    std::string const pidFile = m_scratch.file(m_name + ".pid");
    unlink(pidFile.c_str());
    ASSERT_EQ(m_daemon.start(rsyslogdPath, {"-n", "-f", m_scratch.file(m_name + ".conf"), "-i", pidFile},
                             ChildProcess::Terminal::Pipe, environment),
              "");
    auto const deadline = Clock::now() + std::chrono::seconds(20);
    while (!fileExists(pidFile) && m_daemon.running() && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(m_daemon.running()) << "rsyslogd " << m_name << " ended, status " << m_daemon.lastStatus();
    ASSERT_TRUE(fileExists(pidFile)) << "rsyslogd " << m_name << " did not start";
}

void Rsyslogd::stop()
{
    m_daemon.signal(SIGTERM);
    int status = -1;
    ASSERT_TRUE(m_daemon.waitExit(status, 20000)) << "rsyslogd " << m_name << " still running";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "rsyslogd " << m_name << " status " << status;
}

void Rsyslogd::crash()
{
    m_daemon.signal(SIGKILL);
    int status = -1;
    ASSERT_TRUE(m_daemon.waitExit(status, 20000)) << "rsyslogd " << m_name << " still running";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "rsyslogd " << m_name << " status " << status;
    unlink(m_scratch.file(m_name + ".pid").c_str());
}

double Rsyslogd::cpuSeconds() const
{
    std::ifstream stat("/proc/" + std::to_string(m_daemon.pid()) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    // Fields after the command's closing parenthesis: utime and stime are
    // the 12th and 13th of them.
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    unsigned long long user = 0;
    unsigned long long system = 0;
    for (int index = 1; index <= 11 && fields >> field; ++index) {
    }
    fields >> user >> system;
    EXPECT_TRUE(fields) << "no CPU times for rsyslogd " << m_name;
    return double(user + system) / double(sysconf(_SC_CLK_TCK));
}

long long Rsyslogd::bytesWritten() const
{
    std::ifstream io("/proc/" + std::to_string(m_daemon.pid()) + "/io");
    for (std::string name; io >> name;) {
        long long value = 0;
        io >> value;
        if (name == "write_bytes:")
            return value;
    }
    ADD_FAILURE() << "no write_bytes for rsyslogd " << m_name;
    return -1;
}
