// Debian's rsyslogd as the tests and benchmarks run it: as this user, in the
// foreground, on the loopback, with a main configuration of the run's own
// (its work directory, its host name) that includes a shipped
// configuration adapted to the run. Failures are test failures.
#ifndef DBG_RSYSLOGD_H
#define DBG_RSYSLOGD_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ScratchDir.h"

inline constexpr char rsyslogdPath[] = "/usr/sbin/rsyslogd";

// A TCP port on the loopback that nothing listens on now, or -1.
int freeLoopbackPort();
// Waits (20 s at most) until a socket listens on 127.0.0.1:`port`. Read
// from the kernel's table: a connection to find out would be a failed TLS
// handshake in the collector's messages.
void waitUntilListening(int port);

// Where the shipped rsyslog configuration reads its TLS files.
inline constexpr char shippedTlsDirectory[] = "/etc/dbg-fleet/";
// The shipped trace file, rotated to .1, .2, ...
inline constexpr char shippedTraceFile[] = "/var/log/gateway/gateway.trace";

// The shipped gateway side (`shipped`, the file's text) for one run: its
// trace file (and the rotated one) `traceFile`, the collector on 127.0.0.1
// at `port`, connecting from `localAddress` when it is not empty, the TLS
// files from `tlsDirectory` (ending in '/'), retried every second.
std::string gatewaySide(std::string shipped, std::string const& traceFile, int port,
                        std::string const& localAddress, std::string const& tlsDirectory);
// The shipped collector for one run: listening on 127.0.0.1 at `port`, its
// files in `outputDirectory` (ending in '/'), the TLS files from
// `tlsDirectory` (ending in '/').
std::string collectorSide(std::string shipped, std::string const& outputDirectory, int port,
                          std::string const& tlsDirectory);

// The fleet's CA and a folder per name (ca.pem, cert.pem, key.pem) made in
// `directory` by the shipped dbg-fleet-pki.
void makeFleetPki(std::string const& directory, std::vector<std::string> const& names);

class Rsyslogd {
public:
    // Its files in `scratch`: <name>.conf (the main one), <name>-own.conf
    // (the adapted shipped one), <name>.pid and the work directory
    // <name>-work/.
    Rsyslogd(ScratchDir const& scratch, std::string name);
    Rsyslogd(Rsyslogd const&) = delete;
    Rsyslogd& operator=(Rsyslogd const&) = delete;

    // Writes the configuration: `configuration` included by a main file
    // that sets the work directory and, when not empty, the host name.
    void configure(std::string const& configuration, std::string const& hostName = "");
    // Starts it and waits until it runs (its pid file is there).
    void start(std::vector<std::string> const& environment);
    // SIGTERM: a stop, which must end well.
    void stop();
    // SIGKILL: a crash; the pid file it leaves behind removed, as the
    // system's service manager does.
    void crash();
    bool running() { return m_daemon.running(); }
    pid_t pid() const { return m_daemon.pid(); }
    std::string const& workDirectory() const { return m_work; }
    // CPU time it has used so far, in seconds, and the bytes it made the
    // kernel write to storage (/proc/<pid>/io write_bytes).
    double cpuSeconds() const;
    long long bytesWritten() const;

private:
    ScratchDir const& m_scratch;
    std::string m_name;
    std::string m_work;
    ChildProcess m_daemon;
};

#endif
