// A fleet of gateways and one collector, each a Debian rsyslogd run as this
// user in the foreground on loopback with the shipped configurations: every
// gateway connects from an address of its own (127.0.0.2, 127.0.0.3, ...)
// with a certificate of its own from the fleet's CA, and all claim the same
// host name. The collector must file each line by the address it came from,
// whole and once. Then the peers mutual TLS must keep out: a self-signed
// certificate in a gateway's name, a CA-signed one for a name outside the
// gateways' domain, a sender without TLS, and, from the gateway's side, a
// collector with a CA-signed certificate for another name. Each refusal runs
// beside a legitimate control that gets through, so that "nothing arrived"
// means "refused" and not "not yet".
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Rsyslogd.h"
#include "TestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

// What the collector's certificate is for, and the gateways' names.
char const collectorName[] = "collector.example.org";
char const gatewayDomain[] = ".gateways.example.org";
// The host name every gateway of these tests claims.
char const claimedHostName[] = "gateway-1";
// The host writes its trace file through a stream buffer of this size:
// the file grows by whole buffers, which cut lines anywhere.
constexpr std::size_t hostWrite = 8192;

std::string gatewayCertificate(int number)
{
    return "gw" + std::to_string(number) + gatewayDomain;
}

// The address the gateway numbered `number` connects from: 127.0.0.1 is the
// collector's.
std::string gatewayAddress(int number)
{
    return "127.0.0." + std::to_string(number + 1);
}

std::string numberedLines(std::string const& sender, int count)
{
    std::string text;
    for (int line = 1; line <= count; ++line)
        text += sender + " line " + std::to_string(line) + "\n";
    return text;
}

// "2024-05-01T12:34:56.123456+02:00": the collector's time of receipt, with
// or without its fraction of a second, in Z or an offset.
bool isRfc3339(std::string const& time)
{
    auto digits = [&](std::size_t from, std::size_t count) {
        if (time.size() < from + count)
            return false;
        for (std::size_t index = from; index < from + count; ++index)
            if (!std::isdigit(static_cast<unsigned char>(time[index])))
                return false;
        return true;
    };
    if (!(digits(0, 4) && time[4] == '-' && digits(5, 2) && time[7] == '-' && digits(8, 2) && time[10] == 'T' &&
          digits(11, 2) && time[13] == ':' && digits(14, 2) && time[16] == ':' && digits(17, 2)))
        return false;
    std::size_t at = 19;
    if (at < time.size() && time[at] == '.') {
        std::size_t const fraction = ++at;
        while (at < time.size() && std::isdigit(static_cast<unsigned char>(time[at])))
            ++at;
        if (at == fraction)
            return false;
    }
    if (time.size() == at + 1 && time[at] == 'Z')
        return true;
    return time.size() == at + 6 && (time[at] == '+' || time[at] == '-') && digits(at + 1, 2) &&
           time[at + 3] == ':' && digits(at + 4, 2);
}

// The senders' traces a collector's file holds: each line "<time> <sender>
// line <n>", taken apart; what is not such a line is a problem.
struct Filed {
    std::map<std::string, std::vector<int>> linesBySender;
    std::vector<std::string> problems;
};

Filed filedIn(std::string const& path)
{
    Filed filed;
    for (std::string const& line : linesOf(readFile(path))) {
        std::size_t const blank = line.find(' ');
        std::size_t const word = blank == std::string::npos ? blank : line.find(" line ", blank + 1);
        char* end = nullptr;
        long const number = word == std::string::npos ? 0 : std::strtol(line.c_str() + word + 6, &end, 10);
        bool const whole = word != std::string::npos && isRfc3339(line.substr(0, blank)) && number > 0 &&
                           end != line.c_str() + word + 6 && *end == '\0' &&
                           line.find(' ', blank + 1) == word;
        if (!whole) {
            if (filed.problems.size() < 10)
                filed.problems.push_back("not a whole line: \"" + line + "\"");
            continue;
        }
        filed.linesBySender[line.substr(blank + 1, word - blank - 1)].push_back(int(number));
    }
    return filed;
}

// What is wrong with `sender`'s lines 1 to `count` in `filed`: lines missing,
// again, or out of range.
std::string checkLines(Filed const& filed, std::string const& sender, int count)
{
    auto const found = filed.linesBySender.find(sender);
    std::vector<int> lines = found == filed.linesBySender.end() ? std::vector<int>() : found->second;
    std::sort(lines.begin(), lines.end());
    std::size_t duplicates = 0;
    std::size_t outOfRange = 0;
    std::set<int> seen;
    for (int line : lines) {
        duplicates += !seen.insert(line).second;
        outOfRange += line < 1 || line > count;
    }
    std::size_t const missing = std::size_t(count) - (seen.size() - outOfRange);
    if (duplicates == 0 && outOfRange == 0 && missing == 0)
        return "";
    return sender + ": " + std::to_string(missing) + " missing, " + std::to_string(duplicates) + " again, " +
           std::to_string(outOfRange) + " out of range";
}

class RsyslogFleet : public ::testing::Test {
protected:
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(access(rsyslogdPath, X_OK), 0) << rsyslogdPath << " is missing: ./run test installs rsyslog";
        environment = {"LC_ALL=C"};
        port = freeLoopbackPort();
        ASSERT_GT(port, 0);
    }

    std::string tlsDirectory(std::string const& name) const { return scratch->file("pki/" + name + "/"); }
    std::string traceFile(std::string const& sender) const { return scratch->file(sender + ".trace"); }

    Rsyslogd& daemon(std::string const& name)
    {
        daemons.push_back(std::make_unique<Rsyslogd>(*scratch, name));
        return *daemons.back();
    }

    // A collector with the shipped configuration and the certificate made
    // for `certificate`, filing into `outputDirectory` (ending in '/'), made
    // here; started and listening.
    Rsyslogd& startCollector(std::string const& certificate, std::string const& outputDirectory)
    {
        EXPECT_EQ(mkdir(outputDirectory.c_str(), 0700), 0) << outputDirectory;
        Rsyslogd& collector = daemon("collector-" + certificate);
        collector.configure(collectorSide(readFile(DBG_RSYSLOG_COLLECTOR_EXAMPLE), outputDirectory, port,
                                          tlsDirectory(certificate)));
        collector.start(environment);
        waitUntilListening(port);
        return collector;
    }

    // The shipped gateway side of `sender` (its trace file, made here
    // empty), connecting from `address` with the TLS files of `tls`.
    std::string gatewayConfiguration(std::string const& sender, std::string const& address,
                                     std::string const& tls)
    {
        writeFile(traceFile(sender), "");
        return gatewaySide(readFile(DBG_RSYSLOG_GATEWAY_EXAMPLE), traceFile(sender), port, address, tls);
    }

    Rsyslogd& startGateway(std::string const& sender, std::string const& configuration)
    {
        Rsyslogd& gateway = daemon("gateway-" + sender);
        gateway.configure(configuration, claimedHostName);
        gateway.start(environment);
        return gateway;
    }

    // The gateways first, then the collectors: each stop must end well.
    void stopAll()
    {
        for (auto daemon = daemons.rbegin(); daemon != daemons.rend(); ++daemon)
            if ((*daemon)->running())
                (*daemon)->stop();
    }

    std::unique_ptr<ScratchDir> scratch = plainScratchDir();
    std::vector<std::string> environment;
    int port = -1;
    // Killed, if still running, before the scratch directory goes.
    std::vector<std::unique_ptr<Rsyslogd>> daemons;
};

// Appends `text` to `path` as the host does: in writes of its stream
// buffer's size, the last one shorter.
class HostLikeWriter {
public:
    HostLikeWriter(std::string path, std::string text) : m_path(std::move(path)), m_text(std::move(text)) {}

    // The next write; false when all is written.
    bool writeNext()
    {
        if (m_written >= m_text.size())
            return false;
        int const fd = open(m_path.c_str(), O_WRONLY | O_APPEND);
        EXPECT_GE(fd, 0) << m_path;
        std::size_t const size = std::min(hostWrite, m_text.size() - m_written);
        EXPECT_EQ(write(fd, m_text.data() + m_written, size), ssize_t(size)) << m_path;
        close(fd);
        m_written += size;
        return true;
    }

    void writeAll()
    {
        while (writeNext()) {
        }
    }

private:
    std::string m_path;
    std::string m_text;
    std::size_t m_written = 0;
};

// Waits until `path` holds `lines` lines, at most until `deadline`.
bool waitForLines(std::string const& path, std::size_t lines, Clock::time_point deadline)
{
    while (lineCount(path) < lines && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return lineCount(path) >= lines;
}

bool waitForLines(std::string const& path, std::size_t lines, int seconds)
{
    return waitForLines(path, lines, Clock::now() + std::chrono::seconds(seconds));
}

constexpr int fleetSize = 20;
constexpr int fleetLines = 5000;

TEST_F(RsyslogFleet, TwentyGatewaysClaimingOneNameAreEachFiledWholeAndOnceByTheirAddress)
{
    auto const began = Clock::now();
    std::vector<std::string> names = {collectorName};
    for (int number = 1; number <= fleetSize; ++number)
        names.push_back(gatewayCertificate(number));
    ASSERT_NO_FATAL_FAILURE(makeFleetPki(scratch->file("pki"), names));
    std::string const output = scratch->file("gateways/");
    ASSERT_NO_FATAL_FAILURE(startCollector(collectorName, output));

    std::vector<HostLikeWriter> writers;
    for (int number = 1; number <= fleetSize; ++number) {
        std::string const sender = "gw" + std::to_string(number);
        std::string const configuration =
            gatewayConfiguration(sender, gatewayAddress(number), tlsDirectory(gatewayCertificate(number)));
        ASSERT_NO_FATAL_FAILURE(startGateway(sender, configuration));
        writers.emplace_back(traceFile(sender), numberedLines(sender, fleetLines));
    }
    auto const writing = Clock::now();
    // One host write into every trace file in turn, a few times a second.
    for (bool more = true; more;) {
        more = false;
        for (HostLikeWriter& writer : writers)
            more = writer.writeNext() || more;
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
    // One minute for the whole fleet, not for each gateway.
    auto const deadline = Clock::now() + std::chrono::seconds(60);
    for (int number = 1; number <= fleetSize; ++number)
        EXPECT_TRUE(waitForLines(output + gatewayAddress(number) + ".trace", fleetLines, deadline))
            << "gateway " << number << ": " << lineCount(output + gatewayAddress(number) + ".trace") << " of "
            << fleetLines << " lines filed";
    double const delivered = std::chrono::duration<double>(Clock::now() - writing).count();
    ASSERT_NO_FATAL_FAILURE(stopAll());

    std::vector<std::string> expectedFiles;
    for (int number = 1; number <= fleetSize; ++number)
        expectedFiles.push_back(gatewayAddress(number) + ".trace");
    std::sort(expectedFiles.begin(), expectedFiles.end());
    EXPECT_EQ(entriesOf(output), expectedFiles);
    for (int number = 1; number <= fleetSize; ++number) {
        std::string const file = output + gatewayAddress(number) + ".trace";
        if (!fileExists(file))
            continue;
        std::string const sender = "gw" + std::to_string(number);
        Filed const filed = filedIn(file);
        for (std::string const& problem : filed.problems)
            ADD_FAILURE() << file << ": " << problem;
        EXPECT_EQ(checkLines(filed, sender, fleetLines), "") << file;
        for (auto const& [other, lines] : filed.linesBySender)
            EXPECT_EQ(other, sender) << file << " holds " << lines.size() << " lines of " << other;
    }
    std::cout << "rsyslog fleet: " << fleetSize << " gateways, " << fleetSize * fleetLines
              << " lines filed by address in " << std::fixed << std::setprecision(1) << delivered << " s after "
              << "the first write (" << std::chrono::duration<double>(Clock::now() - began).count()
              << " s in all)\n";
}

// How long a refused sender keeps trying after the control got through:
// omrelp retries every second in these runs.
constexpr auto refusedGrace = std::chrono::seconds(3);
constexpr int refusalLines = 200;

class RsyslogRefusal : public RsyslogFleet {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(RsyslogFleet::SetUp());
        ASSERT_NO_FATAL_FAILURE(
            makeFleetPki(scratch->file("pki"), {collectorName, gatewayCertificate(1), gatewayCertificate(2)}));
    }

    // `intruder`, connecting from 127.0.0.3 and writing its lines first,
    // then gw1 from 127.0.0.2: gw1's lines all reach the collector, in gw1's
    // file, and the intruder's nowhere, also a while after.
    void expectRefused(std::string const& intruderConfiguration)
    {
        std::string const output = scratch->file("gateways/");
        ASSERT_NO_FATAL_FAILURE(startCollector(collectorName, output));
        ASSERT_NO_FATAL_FAILURE(startGateway("intruder", intruderConfiguration));
        HostLikeWriter(traceFile("intruder"), numberedLines("intruder", refusalLines)).writeAll();

        std::string const control =
            gatewayConfiguration("gw1", gatewayAddress(1), tlsDirectory(gatewayCertificate(1)));
        ASSERT_NO_FATAL_FAILURE(startGateway("gw1", control));
        HostLikeWriter(traceFile("gw1"), numberedLines("gw1", refusalLines)).writeAll();
        std::string const controlFile = output + gatewayAddress(1) + ".trace";
        EXPECT_TRUE(waitForLines(controlFile, refusalLines, 20)) << "the control did not get through";
        std::this_thread::sleep_for(refusedGrace);
        ASSERT_NO_FATAL_FAILURE(stopAll());

        EXPECT_EQ(entriesOf(output), std::vector<std::string>{gatewayAddress(1) + ".trace"});
        if (fileExists(controlFile)) {
            Filed const filed = filedIn(controlFile);
            EXPECT_EQ(filed.problems, std::vector<std::string>());
            EXPECT_EQ(checkLines(filed, "gw1", refusalLines), "");
            EXPECT_EQ(filed.linesBySender.count("intruder"), 0u);
        }
    }

    std::string intruderAddress() const { return gatewayAddress(2); }
};

TEST_F(RsyslogRefusal, SelfSignedCertificateInAGatewaysNameIsRefused)
{
    // The fleet's CA certificate is no secret: the intruder checks the
    // collector with it, and shows a certificate it signed itself.
    std::string const tls = tlsDirectory("self-signed");
    ASSERT_EQ(mkdir(tls.c_str(), 0700), 0);
    writeFile(tls + "ca.pem", readFile(scratch->file("pki/ca.pem")));
    std::string const name = gatewayCertificate(1);
    int status = -1;
    std::string const said = hostCommand(
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj /CN=" + name +
            " -addext subjectAltName=DNS:" + name + " -addext extendedKeyUsage=serverAuth,clientAuth -keyout '" +
            tls + "key.pem' -out '" + tls + "cert.pem' 2>&1",
        status);
    ASSERT_EQ(status, 0) << said;
    expectRefused(gatewayConfiguration("intruder", intruderAddress(), tls));
}

TEST_F(RsyslogRefusal, CaSignedCertificateForANameOutsideTheGatewaysIsRefused)
{
    ASSERT_NO_FATAL_FAILURE(makeFleetPki(scratch->file("pki"), {"intruder.example.org"}));
    expectRefused(gatewayConfiguration("intruder", intruderAddress(), tlsDirectory("intruder.example.org")));
}

TEST_F(RsyslogRefusal, SenderWithoutTlsIsRefused)
{
    std::string plain;
    int removed = 0;
    for (std::string const& line :
         linesOf(gatewayConfiguration("intruder", intruderAddress(), tlsDirectory(gatewayCertificate(2))))) {
        std::size_t const text = line.find_first_not_of(' ');
        if (text != std::string::npos && (line.compare(text, 4, "tls=") == 0 || line.compare(text, 4, "tls.") == 0)) {
            ++removed;
            continue;
        }
        plain += line + "\n";
    }
    ASSERT_GE(removed, 2) << "no TLS settings found in the gateway's side";
    expectRefused(plain);
}

// The gateway checks the collector too: a listener with a certificate the
// fleet's CA signed for another name gets nothing from gw1. The control, a
// gateway whose side names that listener as its collector, gets through to
// it.
TEST_F(RsyslogRefusal, GatewaySendsNothingToACollectorInAnotherName)
{
    char const rogue[] = "rogue.example.org";
    ASSERT_NO_FATAL_FAILURE(makeFleetPki(scratch->file("pki"), {rogue}));
    std::string const output = scratch->file("rogue/");
    ASSERT_NO_FATAL_FAILURE(startCollector(rogue, output));
    Rsyslogd& gw1 = startGateway(
        "gw1", gatewayConfiguration("gw1", gatewayAddress(1), tlsDirectory(gatewayCertificate(1))));
    ASSERT_FALSE(HasFatalFailure());
    HostLikeWriter(traceFile("gw1"), numberedLines("gw1", refusalLines)).writeAll();

    std::string control = gatewayConfiguration("gw2", gatewayAddress(2), tlsDirectory(gatewayCertificate(2)));
    // Whatever names the gateway's side permits, this one permits only the
    // listener's.
    std::smatch permitted;
    ASSERT_TRUE(std::regex_search(control, permitted, std::regex("tls\\.permittedPeer=\\[[^\\]]*\\]")))
        << "the gateway's side names no collector";
    control.replace(std::size_t(permitted.position(0)), std::size_t(permitted.length(0)),
                    "tls.permittedPeer=[\"" + std::string(rogue) + "\"]");
    ASSERT_NO_FATAL_FAILURE(startGateway("gw2", control));
    HostLikeWriter(traceFile("gw2"), numberedLines("gw2", refusalLines)).writeAll();
    std::string const controlFile = output + gatewayAddress(2) + ".trace";
    EXPECT_TRUE(waitForLines(controlFile, refusalLines, 20)) << "the control did not get through";
    std::this_thread::sleep_for(refusedGrace);
    // rsyslogd 8.2302 disables omrelp's action when the peer's name is
    // wrong, and imfile's thread then spins in it for good and ignores
    // SIGTERM: killed here, its lines still unsent in its trace file.
    ASSERT_NO_FATAL_FAILURE(gw1.crash());
    ASSERT_NO_FATAL_FAILURE(stopAll());

    EXPECT_EQ(entriesOf(output), std::vector<std::string>{gatewayAddress(2) + ".trace"});
    if (fileExists(controlFile)) {
        Filed const filed = filedIn(controlFile);
        EXPECT_EQ(checkLines(filed, "gw2", refusalLines), "");
        EXPECT_EQ(filed.linesBySender.count("gw1"), 0u);
    }
}

// Two fleet members both claiming "gateway-1": each line lands in the file
// of the address it came from, and only there.
TEST_F(RsyslogRefusal, MemberClaimingAnothersHostNameIsFiledUnderItsOwnAddress)
{
    std::string const output = scratch->file("gateways/");
    ASSERT_NO_FATAL_FAILURE(startCollector(collectorName, output));
    for (int number : {1, 2}) {
        std::string const sender = "gw" + std::to_string(number);
        ASSERT_NO_FATAL_FAILURE(startGateway(
            sender,
            gatewayConfiguration(sender, gatewayAddress(number), tlsDirectory(gatewayCertificate(number)))));
        HostLikeWriter(traceFile(sender), numberedLines(sender, refusalLines)).writeAll();
    }
    for (int number : {1, 2})
        EXPECT_TRUE(waitForLines(output + gatewayAddress(number) + ".trace", refusalLines, 20))
            << gatewayAddress(number);
    ASSERT_NO_FATAL_FAILURE(stopAll());

    EXPECT_EQ(entriesOf(output), (std::vector<std::string>{gatewayAddress(1) + ".trace", gatewayAddress(2) + ".trace"}));
    for (int number : {1, 2}) {
        std::string const file = output + gatewayAddress(number) + ".trace";
        if (!fileExists(file))
            continue;
        Filed const filed = filedIn(file);
        EXPECT_EQ(filed.problems, std::vector<std::string>()) << file;
        EXPECT_EQ(checkLines(filed, "gw" + std::to_string(number), refusalLines), "") << file;
        EXPECT_EQ(filed.linesBySender.size(), 1u) << file << " holds another gateway's lines";
    }
}

}  // namespace
