// The demo host tracing every millisecond into a trace file, driven as an
// operator would: the file selected on its console, stopped with
// "DBG stop"; killed, its shutdown sockets removed, if the test ends first.
#ifndef DBG_TRACING_HOST_H
#define DBG_TRACING_HOST_H

#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ScratchDir.h"

inline constexpr char logrotatePath[] = "/usr/sbin/logrotate";

// The shipped logrotate configuration `configuration` made for `traceFile`,
// keeping `keep` rotated files, with the dbgctl built here (under the
// emulator in a cross build); false when it is not shaped as expected.
bool adaptLogrotateExample(std::string& configuration, std::string const& traceFile, int keep);

// logrotate forced on `configuration`, run as this user with its files in
// `scratch`; its status, its messages in `messages`.
int forceLogrotate(ScratchDir const& scratch, std::string const& configuration, std::string& messages);

class TracingHost {
public:
    TracingHost() = default;
    ~TracingHost();
    TracingHost(TracingHost const&) = delete;
    TracingHost& operator=(TracingHost const&) = delete;

    // Starts the host with `environment` and selects `traceFile`; returns
    // the step of the file's first trace. Failures are test failures.
    unsigned long startOn(std::string const& traceFile, std::vector<std::string> const& environment);
    // Waits until the host has written into `traceFile`: its stream writes
    // only when its buffer is full.
    void waitForTraces(std::string const& traceFile);
    void stop();

private:
    ChildProcess m_host;
};

#endif
