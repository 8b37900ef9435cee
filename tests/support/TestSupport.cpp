#include "TestSupport.h"

#include <fcntl.h>
#include <dirent.h>
#include <ftw.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include <gtest/gtest.h>

#include "DBG_OutManager.h"
#include "ImcProbe.h"

CoutCapture::CoutCapture() : m_previous(std::cout.rdbuf(m_captured.rdbuf()))
{
}

CoutCapture::~CoutCapture()
{
    std::cout.rdbuf(m_previous);
}

std::string CoutCapture::text() const
{
    return m_captured.str();
}

ScratchDir::ScratchDir()
{
    char const* base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/dbg-test-XXXXXX";
    if (!mkdtemp(&pattern[0]))
        throw std::runtime_error("cannot create a scratch directory " + pattern);
    m_path = pattern;
}

namespace {
int removeEntry(char const* path, struct stat const*, int, struct FTW*)
{
    return remove(path);
}
}  // namespace

ScratchDir::~ScratchDir()
{
    nftw(m_path.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string readFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << path;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void writeFile(std::string const& path, std::string const& content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    ASSERT_TRUE(file.good()) << "cannot write " << path;
}

bool fileExists(std::string const& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

RecordingSink::~RecordingSink()
{
    m_events->push_back("destroyed");
}

DBG_Output& RecordingSink::operator<<(std::string const& text)
{
    m_events->push_back("text:" + text);
    return *this;
}

DBG_Output& RecordingSink::operator<<(int number)
{
    m_events->push_back("int:" + std::to_string(number));
    return *this;
}

DBG_Output& RecordingSink::operator<<(unsigned char character)
{
    m_events->push_back(std::string("char:") + char(character));
    return *this;
}

void RecordingSink::flush(bool isError, std::string origin, int line)
{
    m_events->push_back("flush:" + std::to_string(isError) + ":" + origin + ":" + std::to_string(line));
}

ImcSession::ImcSession(unsigned char identifier)
{
    imc_standin::start(identifier);
    imc_standin::setTraceStream(nullptr);
    imc_standin::clearFaults();
    imc_standin::clearCalls();
    imc_standin::setRecording(true);
}

ImcSession::~ImcSession()
{
    imc_standin::clearFaults();
    DBG_OutManager::desinstance();
    imc_standin::setRecording(false);
    imc_standin::clearCalls();
    imc_standin::stop();
    imc_standin::setTraceStream(&std::cout);
}

namespace {

// "<step> failed: <reason> (errno <n>)".
std::string failure(std::string const& step, int error)
{
    return step + " failed: " + std::strerror(error) + " (errno " + std::to_string(error) + ")";
}

char const privilegeHint[] = "; these tests must run as root with CAP_SYS_ADMIN";

}  // namespace

char const CurrentConfigIsolation::directory[] = "/current";
char const CurrentConfigIsolation::configFile[] = "/current/config.rc";

CurrentConfigIsolation::~CurrentConfigIsolation()
{
    leave();
}

void CurrentConfigIsolation::enter()
{
    ASSERT_EQ(m_lock, -1) << "CurrentConfigIsolation entered twice";
    m_lock = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int error = errno;
    ASSERT_NE(m_lock, -1) << failure("open(\"/\")", error);
    int result = flock(m_lock, LOCK_EX);
    error = errno;
    ASSERT_EQ(result, 0) << failure("flock(\"/\", LOCK_EX)", error);
    result = unshare(CLONE_NEWNS);
    error = errno;
    ASSERT_EQ(result, 0) << failure("unshare(CLONE_NEWNS)", error) << privilegeHint;
    result = mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    error = errno;
    ASSERT_EQ(result, 0) << failure("making / recursively private", error) << privilegeHint;
    result = mkdir(directory, 0755);
    error = errno;
    if (result == 0) {
        m_createdDirectory = true;
    } else {
        ASSERT_EQ(error, EEXIST) << failure("mkdir(/current)", error) << privilegeHint;
        struct stat status;
        result = stat(directory, &status);
        error = errno;
        ASSERT_EQ(result, 0) << failure("stat(/current)", error);
        ASSERT_TRUE(S_ISDIR(status.st_mode)) << "/current exists and is not a directory";
    }
    result = mount("dbg-test", directory, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
    error = errno;
    ASSERT_EQ(result, 0) << failure("mounting a tmpfs on /current", error) << privilegeHint;
    m_mounted = true;
}

void CurrentConfigIsolation::leave()
{
    if (m_mounted) {
        int const result = umount2(directory, 0);
        int const error = errno;
        EXPECT_EQ(result, 0) << failure("umount(/current)", error);
        m_mounted = false;
    }
    if (m_createdDirectory) {
        int const result = rmdir(directory);
        int const error = errno;
        EXPECT_EQ(result, 0) << failure("rmdir(/current)", error);
        m_createdDirectory = false;
    }
    if (m_lock != -1) {
        close(m_lock);  // releases the lock
        m_lock = -1;
    }
}

ShutdownSocketPaths::ShutdownSocketPaths()
{
    unlink(ownPath().c_str());
    unlink(listenerPath().c_str());
}

ShutdownSocketPaths::~ShutdownSocketPaths()
{
    unlink(ownPath().c_str());
    unlink(listenerPath().c_str());
}

void ShutdownSocketPaths::removeFor(pid_t pid)
{
    unlink(("/tmp//dbg" + std::to_string(pid) + ".key").c_str());
    unlink(("/tmp//" + std::to_string(pid) + ".key").c_str());
}

std::string ShutdownSocketPaths::ownPath()
{
    return "/tmp//dbg" + std::to_string(getpid()) + ".key";
}

std::string ShutdownSocketPaths::listenerPath()
{
    return "/tmp//" + std::to_string(getpid()) + ".key";
}

DatagramListener::DatagramListener(std::string const& path)
{
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        ADD_FAILURE() << "socket path too long: " << path;
        return;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    m_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int error = errno;
    if (m_fd == -1) {
        ADD_FAILURE() << failure("socket(AF_UNIX, SOCK_DGRAM)", error);
        return;
    }
    int const result = bind(m_fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
    error = errno;
    if (result == -1) {
        ADD_FAILURE() << failure("bind(" + path + ")", error);
        close(m_fd);
        m_fd = -1;
    }
}

DatagramListener::~DatagramListener()
{
    if (m_fd != -1)
        close(m_fd);
}

bool DatagramListener::receive(std::string* data, std::string* senderPath)
{
    char buffer[4096];
    sockaddr_un sender;
    std::memset(&sender, 0, sizeof sender);
    socklen_t senderLength = sizeof sender;
    ssize_t const received = recvfrom(m_fd, buffer, sizeof buffer, MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr*>(&sender), &senderLength);
    if (received < 0)
        return false;
    data->assign(buffer, static_cast<std::size_t>(received));
    std::size_t const pathRoom =
        senderLength > offsetof(sockaddr_un, sun_path) ? senderLength - offsetof(sockaddr_un, sun_path) : 0;
    senderPath->assign(sender.sun_path, strnlen(sender.sun_path, std::min(pathRoom, sizeof sender.sun_path)));
    return true;
}

std::vector<imc_standin::Call> callsOf(imc_standin::Operation operation)
{
    std::vector<imc_standin::Call> found;
    for (imc_standin::Call const& call : imc_standin::calls())
        if (call.operation == operation)
            found.push_back(call);
    return found;
}

std::vector<imc_standin::Operation> operations()
{
    std::vector<imc_standin::Operation> found;
    for (imc_standin::Call const& call : imc_standin::calls())
        found.push_back(call.operation);
    return found;
}

std::vector<std::string> entriesOf(std::string const& directory)
{
    std::vector<std::string> names;
    DIR* dir = opendir(directory.c_str());
    if (!dir) {
        ADD_FAILURE() << "cannot list " << directory;
        return names;
    }
    while (dirent* entry = readdir(dir)) {
        std::string const name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}
