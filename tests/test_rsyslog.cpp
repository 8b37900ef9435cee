// A demo host's trace file carried by Debian's rsyslogd over RELP in mutual
// TLS with the shipped configurations: one rsyslogd as the gateway's side
// (imfile, omrelp with no queue between them), one as the collector
// (imrelp, one file per gateway's address), both run as this user in the
// foreground on loopback, each with its own configuration, work directory
// and state. One run goes through 20 rotations by the shipped logrotate
// configuration, two selections of the same name without a rename, and a
// stop of each rsyslogd; another through SIGKILLs of either at their worst
// moments. The collector's file must then hold every trace, whole, but the
// last buffer's worth before each same-name selection, which the host
// writes and at once empties away itself; duplicates and traces out of
// order only just after the restarts, and at rotations the renamed file's
// last write. The configurations shipped before, and the shipped one
// without its input on the rotated name, fail those checks.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "Rsyslogd.h"
#include "TestSupport.h"
#include "TracingHost.h"

namespace {

char const gatewayName[] = "gateway-1";
// The address the gateway connects from: the collector files by it.
char const gatewayAddress[] = "127.0.0.2";
char const gatewayCertificate[] = "gateway-1.gateways.example.org";
constexpr int rotations = 20;
// What the host's file stream holds before it writes: at most this much of
// the traces before a same-name selection is emptied away with the file.
constexpr std::size_t streamBuffer = 8192;
// Lines of the collector's file, from where it stood when a restart began,
// within which duplicates and traces out of order are allowed.
constexpr std::size_t restartWindow = 6000;
// What may come again per restart: what imfile read since it last saved its
// position (at most what the host wrote at once, its buffer, about 100
// traces), or RELP's window (128 lines), sent again when the collector went
// before it acknowledged them.
constexpr std::size_t duplicatesPerRestart = 128;
// RELP's window: what the gateway's side sent and the collector had not
// yet filed. imfile saves its position once it handed lines to RELP, not
// once they are acknowledged, so those lines are lost when the gateway's
// side crashes (also after the collector went, before it is back).
constexpr std::size_t relpWindow = 128;

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

// What the collector's file says of the traces the host wrote.
struct Delivery {
    std::vector<std::string> problems;
    std::size_t traces = 0;
    std::size_t emptiedBySelection = 0;  // the host's own, at same-name selections
    std::size_t cutLines = 0;
    std::size_t duplicates = 0;
    std::size_t duplicatesAtRotations = 0;  // the renamed file's last write
    std::size_t outOfOrder = 0;
    std::size_t lostInFlight = 0;  // sent, not yet filed, when the gateway's side crashed
};

class Pipeline : public ::testing::Test {
protected:
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(access(rsyslogdPath, X_OK), 0) << rsyslogdPath << " is missing: ./run test installs rsyslog";
        ASSERT_EQ(access(logrotatePath, X_OK), 0) << logrotatePath << " is missing: ./run test installs logrotate";
        traceFile = scratch->file("gateway.trace");
        environment = {"LC_ALL=C", "XDG_RUNTIME_DIR=" + scratch->path()};
        ASSERT_EQ(mkdir(scratch->file("gateways").c_str(), 0700), 0);
        ASSERT_NO_FATAL_FAILURE(makeFleetPki(scratch->file("pki"), {"collector.example.org", gatewayCertificate}));
        port = freeLoopbackPort();
        ASSERT_GT(port, 0);
    }

    // The shipped configurations (or, for `Configurations::Old`, those
    // shipped before), each included by a main file of this run's own: its
    // work directory, the gateway's name, loopback, this run's port, files
    // and certificates, and omrelp retrying every second.
    void writeConfigurations(bool reopenOnTruncate)
    {
        bool const old = configurations == Configurations::Old;
        std::string gateway = gatewaySide(readFile(old ? DBG_RSYSLOG_OLD_GATEWAY : DBG_RSYSLOG_GATEWAY_EXAMPLE),
                                          traceFile, port, gatewayAddress,
                                          scratch->file("pki/" + std::string(gatewayCertificate) + "/"));
        if (!reopenOnTruncate) {
            ASSERT_EQ(replaceAll(gateway, "reopenOnTruncate=\"on\"", "reopenOnTruncate=\"off\""), 2);
        }
        if (configurations == Configurations::WithoutTheRotatedFile) {
            std::size_t const named = gateway.find("File=\"" + traceFile + ".1\"");
            ASSERT_NE(named, std::string::npos);
            std::size_t const begin = gateway.rfind("input(", named);
            gateway.erase(begin, gateway.find(")\n", named) + 2 - begin);
        }
        forwarder.configure(gateway, gatewayName);
        collector.configure(collectorSide(readFile(old ? DBG_RSYSLOG_OLD_COLLECTOR : DBG_RSYSLOG_COLLECTOR_EXAMPLE),
                                          scratch->file("gateways/"), port,
                                          scratch->file("pki/collector.example.org/")));
        // The old collector filed by the host name the message claims.
        collectedFile = scratch->file("gateways/" + std::string(old ? gatewayName : gatewayAddress) + ".trace");
    }

    void startCollector()
    {
        ASSERT_NO_FATAL_FAILURE(collector.start(environment));
        ASSERT_NO_FATAL_FAILURE(waitUntilListening(port));
    }

    void startForwarder() { ASSERT_NO_FATAL_FAILURE(forwarder.start(environment)); }

    // The step of the last trace in the collector's file, or -1.
    long lastCollected()
    {
        std::vector<std::string> const lines = fileExists(collectedFile) ? linesOf(readFile(collectedFile))
                                                                         : std::vector<std::string>();
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            std::size_t const blank = line->find(' ');
            if (blank != std::string::npos && stepOf(line->substr(blank + 1)) >= 0)
                return stepOf(line->substr(blank + 1));
        }
        return -1;
    }

    // Ends `daemon` (the collector or the gateway's side), stopped or
    // crashed; notes where the collector's file stood and, for a crash of
    // the gateway's side, its last trace.
    void end(Rsyslogd& daemon, bool crash)
    {
        restartsAt.push_back(lineCount(collectedFile));
        if (&daemon == &forwarder && crash)
            inFlightMayBeLostAfter.push_back(lastCollected());
        if (crash) {
            ASSERT_NO_FATAL_FAILURE(daemon.crash());
        } else {
            ASSERT_NO_FATAL_FAILURE(daemon.stop());
        }
    }

    void startAgain(Rsyslogd& daemon)
    {
        if (&daemon == &collector) {
            ASSERT_NO_FATAL_FAILURE(startCollector());
        } else {
            ASSERT_NO_FATAL_FAILURE(startForwarder());
        }
    }

    // Ends `daemon`, leaves it away for `secondsAway` and starts it again.
    void restart(Rsyslogd& daemon, int secondsAway, bool crash = false)
    {
        ASSERT_NO_FATAL_FAILURE(end(daemon, crash));
        std::this_thread::sleep_for(std::chrono::seconds(secondsAway));
        ASSERT_NO_FATAL_FAILURE(startAgain(daemon));
    }

    // The step of the trace file's first trace, once the host wrote it.
    void noteFirstNew(std::vector<unsigned long>& firstNew)
    {
        ASSERT_NO_FATAL_FAILURE(host.waitForTraces(traceFile));
        std::vector<std::string> const lines = linesOf(readFile(traceFile));
        ASSERT_FALSE(lines.empty());
        long const step = stepOf(lines.front());
        ASSERT_GE(step, 0) << "the file does not begin with a whole trace: " << lines.front();
        firstNew.push_back(static_cast<unsigned long>(step));
    }

    // The shipped logrotate configuration forced once; notes the step of
    // the new file's first trace.
    void rotate(std::string const& rotation)
    {
        std::string messages;
        ASSERT_EQ(forceLogrotate(*scratch, rotation, messages), 0) << "rotation:\n" << messages;
        EXPECT_EQ(messages, "");
        ASSERT_NO_FATAL_FAILURE(noteFirstNew(rotationsFirstNew));
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
        ASSERT_NO_FATAL_FAILURE(noteFirstNew(selectionsFirstNew));
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
        ASSERT_NO_FATAL_FAILURE(forwarder.stop());
        ASSERT_NO_FATAL_FAILURE(collector.stop());
    }

    // What the collector's file says of the traces from `first` to `last`.
    Delivery delivery();
    // One line on what a run saw, for the log.
    void report(Delivery const& result);
    enum class Configurations { Shipped, Old, WithoutTheRotatedFile };
    // The crashes of either side at their worst moments through the
    // `chosen` configurations, with traffic and rotations by the shipped
    // logrotate configuration.
    void crashAtTheWorstMoments(Configurations chosen);

    Clock::time_point const began = Clock::now();
    Configurations configurations = Configurations::Shipped;
    std::unique_ptr<ScratchDir> scratch = plainScratchDir();
    std::string traceFile;
    std::string collectedFile;
    std::vector<std::string> environment;
    int port = -1;
    unsigned long first = 0;
    unsigned long last = 0;
    std::vector<unsigned long> selectionsFirstNew;
    std::vector<unsigned long> rotationsFirstNew;
    std::vector<std::size_t> restartsAt;
    // The collector's last trace when the gateway's side crashed, each
    // time: what it had sent beyond that may be lost.
    std::vector<long> inFlightMayBeLostAfter;
    // Stopped in this order, last declared first, when a test ends early.
    Rsyslogd collector{*scratch, "central"};
    Rsyslogd forwarder{*scratch, "forwarder"};
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

    // Duplicates and traces out of order, each just after a restart, but
    // for the gateway's last write into a renamed file: read both by the
    // input that follows the file and by the one on the rotated name.
    auto const inLastWriteBeforeRotation = [&](long step) {
        return std::any_of(rotationsFirstNew.begin(), rotationsFirstNew.end(), [&](unsigned long firstNew) {
            std::size_t bytes = 0;
            for (unsigned long each = static_cast<unsigned long>(step); each < firstNew; ++each)
                bytes += trafficTrace(each).size();
            return step >= 0 && static_cast<unsigned long>(step) < firstNew && bytes <= streamBuffer;
        });
    };
    std::set<long> seen;
    long highest = -1;
    for (std::size_t index = 0; index < arrived.size(); ++index) {
        long const step = arrived[index];
        if (step < 0)
            continue;
        bool const again = !seen.insert(step).second;
        bool const back = step < highest;
        highest = std::max(highest, step);
        result.outOfOrder += back && !again;
        if (again && inLastWriteBeforeRotation(step)) {
            ++result.duplicatesAtRotations;
            continue;
        }
        result.duplicates += again;
        bool const nearRestart = std::any_of(restartsAt.begin(), restartsAt.end(), [&](std::size_t at) {
            return index >= at && index < at + restartWindow;
        });
        if ((again || back) && !nearRestart)
            result.problems.push_back("trace " + std::to_string(step) + (again ? " again" : " out of order") +
                                      " at line " + std::to_string(index + 1) + ", away from the restarts");
    }
    std::size_t const duplicatesAllowed = restartsAt.size() * duplicatesPerRestart;
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
        bool const inFlight = std::any_of(inFlightMayBeLostAfter.begin(), inFlightMayBeLostAfter.end(),
                                          [&](long after) {
                                              return long(run.first) > after &&
                                                     run.second < static_cast<unsigned long>(after) + relpWindow;
                                          });
        if (inFlight) {
            result.lostInFlight += run.second - run.first + 1;
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

void Pipeline::report(Delivery const& result)
{
    std::cout << "rsyslog pipeline: traces " << first << " to " << last << " (" << result.traces << "), "
              << rotationsFirstNew.size() << " rotations, " << selectionsFirstNew.size() << " same-name selections ("
              << result.emptiedBySelection << " traces emptied by the host, " << result.cutLines
              << " cut lines), " << restartsAt.size() << " restarts, " << result.duplicates
              << " duplicates after them, " << result.duplicatesAtRotations << " at rotations, "
              << result.outOfOrder << " out of order, " << result.lostInFlight << " lost in flight, "
              << std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - began).count() << " s\n";
}

void Pipeline::crashAtTheWorstMoments(Configurations chosen)
{
    configurations = chosen;
    std::string rotation = readFile(DBG_LOGROTATE_EXAMPLE);
    ASSERT_TRUE(adaptLogrotateExample(rotation, traceFile, 10));
    ASSERT_NO_FATAL_FAILURE(startPipeline(true));
    auto const settle = [this] {
        ASSERT_NO_FATAL_FAILURE(host.waitForTraces(traceFile));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    };
    // The gateway's side crashes just as the gateway wrote its last buffer
    // into the renamed file.
    ASSERT_NO_FATAL_FAILURE(settle());
    ASSERT_NO_FATAL_FAILURE(rotate(rotation));
    ASSERT_NO_FATAL_FAILURE(restart(forwarder, 1, true));
    // The collector crashes under traffic.
    ASSERT_NO_FATAL_FAILURE(settle());
    ASSERT_NO_FATAL_FAILURE(restart(collector, 2, true));
    // The collector crashes; while it is away the file is rotated and the
    // gateway's side crashes too: the backlog, part of it in the rotated
    // file, is only in the files.
    ASSERT_NO_FATAL_FAILURE(settle());
    ASSERT_NO_FATAL_FAILURE(end(collector, true));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_NO_FATAL_FAILURE(rotate(rotation));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_NO_FATAL_FAILURE(end(forwarder, true));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_NO_FATAL_FAILURE(startAgain(forwarder));
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    ASSERT_NO_FATAL_FAILURE(startAgain(collector));
    // The gateway's side crashes while that backlog goes out.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_NO_FATAL_FAILURE(restart(forwarder, 1, true));
    // And once more, a while after a rotation.
    ASSERT_NO_FATAL_FAILURE(settle());
    ASSERT_NO_FATAL_FAILURE(rotate(rotation));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_NO_FATAL_FAILURE(restart(forwarder, 1, true));
    ASSERT_NO_FATAL_FAILURE(settle());
    ASSERT_NO_FATAL_FAILURE(stopPipeline());
}

TEST_F(Pipeline, RotationsSameNameSelectionsAndRestartsLoseNoTraceOfTheFile)
{
    std::string rotation = readFile(DBG_LOGROTATE_EXAMPLE);
    ASSERT_TRUE(adaptLogrotateExample(rotation, traceFile, rotations + 1));
    ASSERT_NO_FATAL_FAILURE(startPipeline(true));
    for (int round = 1; round <= rotations; ++round) {
        ASSERT_NO_FATAL_FAILURE(host.waitForTraces(traceFile));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ASSERT_NO_FATAL_FAILURE(rotate(rotation));
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
    report(result);
}

// SIGKILL of either rsyslogd at its worst moment loses no trace of the
// files but what the gateway's side had sent and the collector not yet
// filed when the gateway's side crashed: the files are the queue, imfile
// saves its position only behind what it sent, and reads the rotated file
// on after a restart.
TEST_F(Pipeline, CrashesOfEitherSideLoseNoTraceOfTheFiles)
{
    ASSERT_NO_FATAL_FAILURE(crashAtTheWorstMoments(Configurations::Shipped));

    Delivery const result = delivery();
    EXPECT_EQ(joined(result.problems), "");
    report(result);
}

// The configurations shipped before, through the same crashes: the lines
// waiting in rsyslogd's memory and the rotated file's unsent tail are lost,
// and a crash brings back far more than a batch. Each check names it.
TEST_F(Pipeline, TheOldConfigurationsLoseTheBacklogAtACrash)
{
    ASSERT_NO_FATAL_FAILURE(crashAtTheWorstMoments(Configurations::Old));

    Delivery const result = delivery();
    std::string const problems = joined(result.problems);
    EXPECT_NE(problems.find(" lost ("), std::string::npos) << problems;
    EXPECT_NE(problems.find(" duplicates, more than "), std::string::npos) << problems;
    report(result);
    std::cout << problems.substr(0, 2000);
}

// The shipped gateway side without its input on the rotated name: after
// the crash while the collector was away, imfile follows only the new file,
// and the rotated file's unsent tail is lost. The check names it.
TEST_F(Pipeline, WithoutTheInputOnTheRotatedNameItsUnsentTailIsLost)
{
    ASSERT_NO_FATAL_FAILURE(crashAtTheWorstMoments(Configurations::WithoutTheRotatedFile));

    Delivery const result = delivery();
    std::string const problems = joined(result.problems);
    // The rotation while the collector was away is the second: the rotated
    // file's last trace is among those named lost.
    unsigned long const lastRotated = rotationsFirstNew.at(1) - 1;
    bool named = false;
    for (std::string const& problem : result.problems) {
        unsigned long from = 0;
        unsigned long to = 0;
        named = named || (std::sscanf(problem.c_str(), "traces %lu to %lu lost", &from, &to) == 2 &&
                          from <= lastRotated && lastRotated <= to);
    }
    EXPECT_TRUE(named) << "trace " << lastRotated << " not named lost:\n" << problems;
    report(result);
    std::cout << problems.substr(0, 2000);
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
