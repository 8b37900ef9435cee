// A demo host's trace file carried by Debian's rsyslogd over RELP with the
// shipped configurations: one rsyslogd as the gateway's side (imfile,
// omrelp through a disk-assisted queue), one as the collector (imrelp, one
// file per gateway), both run as this user in the foreground on loopback,
// each with its own configuration, work directory and state. One run goes
// through 20 rotations by the shipped logrotate configuration, two
// selections of the same name without a rename, and a restart of each
// rsyslogd. The collector's file must then hold every trace, whole, but the
// last buffer's worth before each same-name selection, which the host
// writes and at once empties away itself; duplicates and traces out of order
// only just after the restarts.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "TestSupport.h"
#include "TracingHost.h"

namespace {

char const rsyslogd[] = "/usr/sbin/rsyslogd";
char const gatewayName[] = "gateway-1";
constexpr int rotations = 20;
// What the host's file stream holds before it writes: at most this much of
// the traces before a same-name selection is emptied away with the file.
constexpr std::size_t streamBuffer = 8192;
// Lines of the collector's file, from where it stood when a restart began,
// within which duplicates and traces out of order are allowed.
constexpr std::size_t restartWindow = 6000;
// RELP resends what the collector had not acknowledged: at most its window
// (128 unacknowledged lines by default) per restart.
constexpr std::size_t duplicatesAllowed = 2 * 128;

using Clock = std::chrono::steady_clock;

// The step of a line that is one whole trace (without its line feed), or -1.
long stepOf(std::string const& line)
{
    if (line.compare(0, 5, "call ") != 0)
        return -1;
    char* end = nullptr;
    unsigned long const call = std::strtoul(line.c_str() + 5, &end, 10);
    if (call == 0 || end == line.c_str() + 5)
        return -1;
    std::string const rest(end);
    int const kind = rest.compare(0, 7, " setup ") == 0    ? 0
                     : rest.compare(0, 7, " SETUP ") == 0  ? 1
                     : rest.compare(0, 10, " released ") == 0 ? 2
                                                             : -1;
    if (kind < 0)
        return -1;
    unsigned long const step = 3 * (call - 1) + unsigned(kind);
    return trafficTrace(step) == line + "\n" ? long(step) : -1;
}

std::vector<std::string> linesOf(std::string const& text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

// A TCP port on the loopback that nothing listens on now.
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

bool somethingListensOn(int port)
{
    int const probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(std::uint16_t(port));
    bool const connected = connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return connected;
}

// What the collector's file says of the traces the host wrote.
struct Delivery {
    std::vector<std::string> problems;
    std::size_t traces = 0;
    std::size_t emptiedBySelection = 0;  // the host's own, at same-name selections
    std::size_t cutLines = 0;
    std::size_t duplicates = 0;
    std::size_t outOfOrder = 0;
};

class Pipeline : public ::testing::Test {
protected:
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(access(rsyslogd, X_OK), 0) << rsyslogd << " is missing: ./run test installs rsyslog";
        ASSERT_EQ(access(logrotatePath, X_OK), 0) << logrotatePath << " is missing: ./run test installs logrotate";
        scratch = plainScratchDir();
        traceFile = scratch->file("gateway.trace");
        collectedFile = scratch->file("gateways/" + std::string(gatewayName) + ".trace");
        environment = {"LC_ALL=C", "XDG_RUNTIME_DIR=" + scratch->path()};
        for (char const* directory : {"forwarder-work", "collector-work", "gateways"})
            ASSERT_EQ(mkdir(scratch->file(directory).c_str(), 0700), 0) << directory;
        port = freeLoopbackPort();
        ASSERT_GT(port, 0);
    }

    // The shipped configurations, each included by a main file of this
    // run's own: its work directory, the gateway's name, loopback, this
    // run's port and files, and omrelp retrying every second.
    void writeConfigurations(bool reopenOnTruncate)
    {
        std::string gatewaySide = readFile(DBG_RSYSLOG_GATEWAY_EXAMPLE);
        ASSERT_TRUE(replaceOnce(gatewaySide, "File=\"/var/log/gateway/gateway.trace\"", "File=\"" + traceFile + "\""));
        ASSERT_TRUE(replaceOnce(gatewaySide, "target=\"collector.example.org\"", "target=\"127.0.0.1\""));
        ASSERT_TRUE(replaceOnce(gatewaySide, "port=\"2514\"", "port=\"" + std::to_string(port) + "\""));
        ASSERT_TRUE(replaceOnce(gatewaySide, "action.resumeInterval=\"30\"", "action.resumeInterval=\"1\""));
        if (!reopenOnTruncate) {
            ASSERT_TRUE(replaceOnce(gatewaySide, "reopenOnTruncate=\"on\"", "reopenOnTruncate=\"off\""));
        }
        writeFile(scratch->file("gateway.conf"), gatewaySide);
        writeFile(scratch->file("forwarder.conf"), "global(workDirectory=\"" + scratch->file("forwarder-work") +
                                                       "\" localHostName=\"" + gatewayName + "\")\ninclude(file=\"" +
                                                       scratch->file("gateway.conf") + "\")\n");

        std::string collector = readFile(DBG_RSYSLOG_COLLECTOR_EXAMPLE);
        ASSERT_TRUE(replaceOnce(collector, "value=\"/var/log/gateways/\"",
                                "value=\"" + scratch->file("gateways/") + "\""));
        ASSERT_TRUE(replaceOnce(collector, "port=\"2514\"",
                                "address=\"127.0.0.1\" port=\"" + std::to_string(port) + "\""));
        writeFile(scratch->file("collector.conf"), collector);
        writeFile(scratch->file("central.conf"), "global(workDirectory=\"" + scratch->file("collector-work") +
                                                     "\")\ninclude(file=\"" + scratch->file("collector.conf") +
                                                     "\")\n");
    }

    void startRsyslogd(ChildProcess& daemon, std::string const& name)
    {
        std::string const pidFile = scratch->file(name + ".pid");
        unlink(pidFile.c_str());
        ASSERT_EQ(daemon.start(rsyslogd, {"-n", "-f", scratch->file(name + ".conf"), "-i", pidFile},
                               ChildProcess::Terminal::Pipe, environment),
                  "");
        auto const deadline = Clock::now() + std::chrono::seconds(20);
        while (!fileExists(pidFile) && daemon.running() && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_TRUE(daemon.running()) << "rsyslogd " << name << " ended, status " << daemon.lastStatus();
        ASSERT_TRUE(fileExists(pidFile)) << "rsyslogd " << name << " did not start";
    }

    void startCollector()
    {
        ASSERT_NO_FATAL_FAILURE(startRsyslogd(collector, "central"));
        auto const deadline = Clock::now() + std::chrono::seconds(20);
        while (!somethingListensOn(port) && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_TRUE(somethingListensOn(port)) << "the collector does not listen on port " << port;
    }

    void startForwarder() { ASSERT_NO_FATAL_FAILURE(startRsyslogd(forwarder, "forwarder")); }

    static void stopRsyslogd(ChildProcess& daemon)
    {
        daemon.signal(SIGTERM);
        int status = -1;
        ASSERT_TRUE(daemon.waitExit(status, 20000)) << "rsyslogd still running";
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "rsyslogd status " << status;
    }

    // Where the collector's file stands now, in lines.
    std::size_t collectedLines()
    {
        if (!fileExists(collectedFile))
            return 0;
        std::string const text = readFile(collectedFile);
        return std::size_t(std::count(text.begin(), text.end(), '\n'));
    }

    // Stops `daemon` (the collector or the gateway's side), leaves it away
    // for `secondsAway` and starts it again; notes where the collector's
    // file stood.
    void restart(ChildProcess& daemon, int secondsAway)
    {
        restartsAt.push_back(collectedLines());
        ASSERT_NO_FATAL_FAILURE(stopRsyslogd(daemon));
        std::this_thread::sleep_for(std::chrono::seconds(secondsAway));
        if (&daemon == &collector) {
            ASSERT_NO_FATAL_FAILURE(startCollector());
        } else {
            ASSERT_NO_FATAL_FAILURE(startForwarder());
        }
    }

    // "DBG out file" with the current name, through dbgctl; notes the step
    // of the new file's first trace.
    void selectSameFileAgain()
    {
        int status = -1;
        std::string const answer = hostCommand(
            "XDG_RUNTIME_DIR='" + scratch->path() + "' " + toolPath("dbgctl") + " DBG out file " + traceFile, status);
        ASSERT_EQ(status, 0) << answer;
        ASSERT_EQ(answer, "Debug Output set to file " + traceFile + "\n");
        ASSERT_NO_FATAL_FAILURE(host.waitForTraces(traceFile));
        std::vector<std::string> const lines = linesOf(readFile(traceFile));
        ASSERT_FALSE(lines.empty());
        long const firstNew = stepOf(lines.front());
        ASSERT_GE(firstNew, 0) << "the file does not begin with a whole trace: " << lines.front();
        selectionsFirstNew.push_back(static_cast<unsigned long>(firstNew));
    }

    // The host tracing into its file, the collector and the gateway's
    // side started; notes the step of the file's first trace.
    void startPipeline(bool reopenOnTruncate)
    {
        ASSERT_NO_FATAL_FAILURE(writeConfigurations(reopenOnTruncate));
        first = host.startOn(traceFile, environment);
        ASSERT_NO_FATAL_FAILURE(startCollector());
        ASSERT_NO_FATAL_FAILURE(startForwarder());
    }

    // The host stopped, its last trace waited for at the collector (for a
    // minute at most), both rsyslogd stopped; notes the step of that trace.
    void stopPipeline()
    {
        ASSERT_NO_FATAL_FAILURE(host.stop());
        std::vector<std::string> const lines = linesOf(readFile(traceFile));
        ASSERT_FALSE(lines.empty());
        long const lastStep = stepOf(lines.back());
        ASSERT_GT(lastStep, long(first)) << lines.back();
        last = static_cast<unsigned long>(lastStep);
        std::string const wanted = " " + trafficTrace(last);
        auto const deadline = Clock::now() + std::chrono::seconds(60);
        while (Clock::now() < deadline &&
               (!fileExists(collectedFile) || readFile(collectedFile).find(wanted) == std::string::npos))
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ASSERT_NO_FATAL_FAILURE(stopRsyslogd(forwarder));
        ASSERT_NO_FATAL_FAILURE(stopRsyslogd(collector));
    }

    // What the collector's file says of the traces from `first` to `last`.
    Delivery delivery();

    std::unique_ptr<ScratchDir> scratch;
    std::string traceFile;
    std::string collectedFile;
    std::vector<std::string> environment;
    int port = -1;
    unsigned long first = 0;
    unsigned long last = 0;
    std::vector<unsigned long> selectionsFirstNew;
    std::vector<std::size_t> restartsAt;
    // Stopped in this order, last declared first, when a test ends early.
    ChildProcess collector;
    ChildProcess forwarder;
    TracingHost host;
};

Delivery Pipeline::delivery()
{
    Delivery result;
    std::string const text = readFile(collectedFile);
    if (text.find('\0') != std::string::npos)
        result.problems.push_back("the collector's file holds a NUL byte");
    std::vector<std::string> const lines = linesOf(text);

    // Each line: the time received, a blank, the trace. A line cut by a
    // same-name selection is the start of an emptied trace followed by the
    // new file's first one.
    std::vector<long> arrived;
    std::vector<std::string> cut;
    for (std::string const& line : lines) {
        std::size_t const blank = line.find(' ');
        std::string const trace = blank == std::string::npos ? "" : line.substr(blank + 1);
        long step = stepOf(trace);
        for (unsigned long firstNew : selectionsFirstNew) {
            std::string const whole = trafficTrace(firstNew).substr(0, trafficTrace(firstNew).size() - 1);
            if (step < 0 && trace.size() > whole.size() &&
                trace.compare(trace.size() - whole.size(), whole.size(), whole) == 0) {
                step = long(firstNew);
                cut.push_back(trace.substr(0, trace.size() - whole.size()));
            }
        }
        if (step < 0)
            result.problems.push_back("not a whole trace: \"" + line + "\"");
        arrived.push_back(step);
    }

    // Duplicates and traces out of order, each just after a restart.
    std::set<long> seen;
    long highest = -1;
    for (std::size_t index = 0; index < arrived.size(); ++index) {
        long const step = arrived[index];
        if (step < 0)
            continue;
        bool const again = !seen.insert(step).second;
        bool const back = step < highest;
        highest = std::max(highest, step);
        result.duplicates += again;
        result.outOfOrder += back && !again;
        bool const nearRestart = std::any_of(restartsAt.begin(), restartsAt.end(), [&](std::size_t at) {
            return index >= at && index < at + restartWindow;
        });
        if ((again || back) && !nearRestart)
            result.problems.push_back("trace " + std::to_string(step) + (again ? " again" : " out of order") +
                                      " at line " + std::to_string(index + 1) + ", away from the restarts");
    }
    if (result.duplicates > duplicatesAllowed)
        result.problems.push_back(std::to_string(result.duplicates) + " duplicates, more than " +
                                  std::to_string(duplicatesAllowed));

    // Traces missing, by runs. The host itself empties the last buffer's
    // worth before a same-name selection: a run that ends just before the
    // new file's first trace and is shorter than the buffer.
    std::vector<std::pair<unsigned long, unsigned long>> runs;
    for (unsigned long step = first; step <= last; ++step) {
        if (seen.count(long(step)))
            continue;
        if (!runs.empty() && runs.back().second == step - 1)
            runs.back().second = step;
        else
            runs.push_back({step, step});
    }
    for (auto const& run : runs) {
        std::size_t bytes = 0;
        for (unsigned long step = run.first; step <= run.second; ++step)
            bytes += trafficTrace(step).size();
        bool const emptied = bytes < streamBuffer &&
                             std::count(selectionsFirstNew.begin(), selectionsFirstNew.end(), run.second + 1) > 0;
        if (emptied) {
            result.emptiedBySelection += run.second - run.first + 1;
            continue;
        }
        std::string problem = "traces " + std::to_string(run.first) + " to " + std::to_string(run.second) +
                              " lost (" + std::to_string(run.second - run.first + 1) + ")";
        for (std::size_t index = 0; index < selectionsFirstNew.size(); ++index) {
            unsigned long const firstNew = selectionsFirstNew[index];
            if (run.first <= firstNew && firstNew <= run.second)
                problem += ", " + std::to_string(firstNew) + " to " + std::to_string(run.second) +
                           " after the same-name selection " + std::to_string(index + 1);
        }
        result.problems.push_back(problem);
    }
    // What a cut line begins with is the start of a trace that was emptied.
    for (std::string const& start : cut) {
        bool const ofAnEmptiedTrace = std::any_of(runs.begin(), runs.end(), [&](auto const& run) {
            return trafficTrace(run.first).compare(0, start.size(), start) == 0 &&
                   start.size() < trafficTrace(run.first).size();
        });
        if (!ofAnEmptiedTrace)
            result.problems.push_back("a line begins with \"" + start + "\", not the start of an emptied trace");
    }
    result.cutLines = cut.size();
    result.traces = last - first + 1;
    return result;
}

std::string joined(std::vector<std::string> const& problems)
{
    std::string text;
    for (std::string const& problem : problems)
        text += problem + "\n";
    return text;
}

TEST_F(Pipeline, RotationsSameNameSelectionsAndRestartsLoseNoTraceOfTheFile)
{
    auto const began = Clock::now();
    std::string rotation = readFile(DBG_LOGROTATE_EXAMPLE);
    ASSERT_TRUE(adaptLogrotateExample(rotation, traceFile, rotations + 1));
    ASSERT_NO_FATAL_FAILURE(startPipeline(true));
    for (int round = 1; round <= rotations; ++round) {
        ASSERT_NO_FATAL_FAILURE(host.waitForTraces(traceFile));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        std::string messages;
        ASSERT_EQ(forceLogrotate(*scratch, rotation, messages), 0) << "rotation " << round << ":\n" << messages;
        EXPECT_EQ(messages, "");
        ASSERT_NO_FATAL_FAILURE(host.waitForTraces(traceFile));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        if (round == 4 || round == 12) {
            ASSERT_NO_FATAL_FAILURE(selectSameFileAgain());
        } else if (round == 8) {
            ASSERT_NO_FATAL_FAILURE(restart(collector, 3));
        } else if (round == 16) {
            ASSERT_NO_FATAL_FAILURE(restart(forwarder, 2));
        }
    }
    ASSERT_NO_FATAL_FAILURE(stopPipeline());

    Delivery const result = delivery();
    EXPECT_EQ(joined(result.problems), "");
    EXPECT_EQ(selectionsFirstNew.size(), 2u);
    EXPECT_EQ(restartsAt.size(), 2u);
    std::cout << "rsyslog pipeline: traces " << first << " to " << last << " (" << result.traces << "), "
              << rotations << " rotations, " << selectionsFirstNew.size() << " same-name selections ("
              << result.emptiedBySelection << " traces emptied by the host, " << result.cutLines
              << " cut lines), " << restartsAt.size() << " restarts, " << result.duplicates << " duplicates, "
              << result.outOfOrder << " out of order, "
              << std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - began).count() << " s\n";
}

// The same pipeline without reopenOnTruncate: imfile waits at its old
// offset in the emptied file, and the traces after the selection up to
// there never reach the collector. The check names them.
TEST_F(Pipeline, WithoutReopenOnTruncateTheTracesAfterASameNameSelectionAreLost)
{
    ASSERT_NO_FATAL_FAILURE(startPipeline(false));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_NO_FATAL_FAILURE(selectSameFileAgain());
    std::this_thread::sleep_for(std::chrono::milliseconds(3000));
    ASSERT_NO_FATAL_FAILURE(stopPipeline());

    std::string const report = joined(delivery().problems);
    std::string const named = std::to_string(selectionsFirstNew.front()) + " to ";
    EXPECT_NE(report.find(named), std::string::npos) << report;
    EXPECT_NE(report.find(" after the same-name selection 1"), std::string::npos) << report;
    std::cout << report;
}

}  // namespace
