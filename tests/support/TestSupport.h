// The GoogleTest layer of the test helpers: assertions on files and
// sockets, the IMC session, and the one way a test skips.
#ifndef DBG_TEST_SUPPORT_H
#define DBG_TEST_SUPPORT_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "CoutCapture.h"
#include "PaddedCoutCapture.h"
#include "CurrentConfigIsolation.h"
#include "ExpectedTexts.h"
#include "ImcCalls.h"
#include "ImcProbe.h"
#include "RecordingObserver.h"
#include "RecordingSink.h"
#include "ReferenceModels.h"
#include "ScratchDir.h"
#include "ShutdownSocketPaths.h"

// The whole content of a file, byte for byte; fails the test if unreadable.
std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& content);
bool fileExists(std::string const& path);
// Size of a file, -1 when it is not there.
long long fileSize(std::string const& path);

// Replaces the one occurrence of `from` in `text`; false when there is not
// exactly one.
bool replaceOnce(std::string& text, std::string const& from, std::string const& to);
// The whole lines of `text`, without their line feeds; an unfinished last
// line is left out.
std::vector<std::string> linesOf(std::string const& text);
// The line feeds in the file at `path`; 0 when it is not there.
std::size_t lineCount(std::string const& path);
// Replaces every occurrence of `from` in `text`; how many there were.
int replaceAll(std::string& text, std::string const& from, std::string const& to);

// Standard output of a host command run through the shell (never under the
// emulator of a cross build), and its exit status.
std::string hostCommand(std::string const& command, int& status);

// Starts the IMC stand-in with call recording on and traces discarded; at
// the end destroys the output manager and stops the stand-in.
class ImcSession {
public:
    explicit ImcSession(unsigned char identifier = 0x5A);
    ~ImcSession();
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

// Names of the entries of a directory, sorted, "." and ".." left out; a
// directory that cannot be listed fails the test.
std::vector<std::string> entriesOf(std::string const& directory);

// Every skip goes through here. With DBG_TEST_NO_SKIP set (CI does), a
// skip is a failure instead: a run that must cover every test cannot pass
// with one left out. Use as DBG_SKIP_TEST(reason); it returns.
void skipOrFail(std::string const& reason);
#define DBG_SKIP_TEST(reason) return skipOrFail(reason)

// Enters the private /current view of `isolation` (a CurrentConfigIsolation),
// skips the test when the kernel refuses it, fails it on any other failure.
#define DBG_ISOLATE_CURRENT(isolation)                                                   \
    do {                                                                                 \
        CurrentConfigIsolation::Outcome const dbgOutcome = (isolation).enter();          \
        if (dbgOutcome == CurrentConfigIsolation::Outcome::Refused)                      \
            DBG_SKIP_TEST((isolation).reason());                                         \
        ASSERT_EQ(dbgOutcome, CurrentConfigIsolation::Outcome::Entered) << (isolation).reason(); \
    } while (false)

#endif
