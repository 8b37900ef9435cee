#include "TestSupport.h"

#include <dirent.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include <gtest/gtest.h>

#include "DBG_OutManager.h"
#include "ImcProbe.h"

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

long long fileSize(std::string const& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? static_cast<long long>(status.st_size) : -1;
}

bool replaceOnce(std::string& text, std::string const& from, std::string const& to)
{
    std::size_t const at = text.find(from);
    if (at == std::string::npos || text.find(from, at + 1) != std::string::npos)
        return false;
    text.replace(at, from.size(), to);
    return true;
}

std::vector<std::string> linesOf(std::string const& text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

std::size_t lineCount(std::string const& path)
{
    if (!fileExists(path))
        return 0;
    std::string const text = readFile(path);
    return std::size_t(std::count(text.begin(), text.end(), '\n'));
}

int replaceAll(std::string& text, std::string const& from, std::string const& to)
{
    int count = 0;
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
        ++count;
    }
    return count;
}

std::string hostCommand(std::string const& command, int& status)
{
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    if (!pipe) {
        status = -1;
        return output;
    }
    char chunk[65536];
    for (std::size_t got; (got = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        output.append(chunk, got);
    int const result = pclose(pipe);
    status = WIFEXITED(result) ? WEXITSTATUS(result) : 1000 + result;
    return output;
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

}  // namespace

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

void skipOrFail(std::string const& reason)
{
    char const* const noSkip = getenv("DBG_TEST_NO_SKIP");
    if (noSkip && *noSkip)
        ADD_FAILURE() << "DBG_TEST_NO_SKIP is set, so this test may not skip: " << reason;
    else
        GTEST_SKIP() << reason;
}
