// Shared helpers of the test programs.
#ifndef DBG_TEST_SUPPORT_H
#define DBG_TEST_SUPPORT_H

#include <sys/types.h>

#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "DBG_Output.h"
#include "ExpectedTexts.h"
#include "ImcProbe.h"

// Collects everything written to std::cout while it lives.
class CoutCapture {
public:
    CoutCapture();
    ~CoutCapture();
    std::string text() const;

private:
    std::ostringstream m_captured;
    std::streambuf* m_previous;
};

// A private directory below $TMPDIR (or /tmp), removed with all it holds.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    std::string const& path() const { return m_path; }
    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// The whole content of a file, byte for byte; fails the test if unreadable.
std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& content);
bool fileExists(std::string const& path);

// A sink that records every call made on it, one event per call, for
// checking what the output manager and the logger forward:
// "text:<bytes>", "int:<n>", "char:<c>", "flush:<0|1>:<origin>:<line>".
class RecordingSink : public DBG_Output {
public:
    explicit RecordingSink(std::vector<std::string>* events) : m_events(events) {}
    ~RecordingSink() override;
    operator std::string const() const override { return "recording"; }
    DBG_Output& operator<<(std::string const& text) override;
    DBG_Output& operator<<(int number) override;
    DBG_Output& operator<<(unsigned char character) override;
    void flush(bool isError, std::string origin, int line) override;

private:
    std::vector<std::string>* m_events;
};

// Starts the IMC stand-in with call recording on and traces discarded; at
// the end destroys the output manager and stops the stand-in.
class ImcSession {
public:
    explicit ImcSession(unsigned char identifier = 0x5A);
    ~ImcSession();
};

// Gives this process its own view of /current: a private mount namespace in
// which a fresh, empty tmpfs is mounted on /current, so the fixed
// configuration file /current/config.rc can be written and removed freely.
// /current is created when missing and removed again by leave(). Processes
// that use this class take turns (a lock on "/" held from enter() to
// leave()), so one never removes the directory another still mounts on.
// Needs root (CAP_SYS_ADMIN); any failing step is a fatal test failure that
// names the step and the reason.
class CurrentConfigIsolation {
public:
    static char const directory[];   // "/current"
    static char const configFile[];  // "/current/config.rc"

    CurrentConfigIsolation() = default;
    ~CurrentConfigIsolation();
    CurrentConfigIsolation(CurrentConfigIsolation const&) = delete;
    CurrentConfigIsolation& operator=(CurrentConfigIsolation const&) = delete;

    void enter();  // use with ASSERT_NO_FATAL_FAILURE
    void leave();  // idempotent

private:
    int m_lock = -1;
    bool m_createdDirectory = false;
    bool m_mounted = false;
};

// The two local socket paths of the shutdown request of this process:
// ownPath() "/tmp//dbg<pid>.key", where the library binds, and
// listenerPath() "/tmp//<pid>.key", where the gateway listens. Both are
// removed when the guard is made and again when it goes.
class ShutdownSocketPaths {
public:
    ShutdownSocketPaths();
    ~ShutdownSocketPaths();
    ShutdownSocketPaths(ShutdownSocketPaths const&) = delete;
    ShutdownSocketPaths& operator=(ShutdownSocketPaths const&) = delete;

    static std::string ownPath();
    static std::string listenerPath();
    // For a host this test had to kill: it could not remove its own.
    static void removeFor(pid_t pid);
};

// A local datagram socket bound at a path (the file is left for the caller
// to remove). A failure to set it up is a test failure and leaves fd() -1.
class DatagramListener {
public:
    explicit DatagramListener(std::string const& path);
    ~DatagramListener();
    DatagramListener(DatagramListener const&) = delete;
    DatagramListener& operator=(DatagramListener const&) = delete;

    int fd() const { return m_fd; }
    // One waiting datagram and the path it was sent from, without blocking;
    // false when nothing is waiting.
    bool receive(std::string* data, std::string* senderPath);

private:
    int m_fd = -1;
};

// The recorded IMC calls of one operation, and the operations in order.
std::vector<imc_standin::Call> callsOf(imc_standin::Operation operation);
std::vector<imc_standin::Operation> operations();

// Names of the entries of a directory, sorted, "." and ".." left out; a
// directory that cannot be listed fails the test.
std::vector<std::string> entriesOf(std::string const& directory);

#endif
