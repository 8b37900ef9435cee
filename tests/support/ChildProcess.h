// Drives a child program as an operator would: its standard input and output
// through pipes or through a pseudo-terminal. Every wait has a time limit,
// and the destructor kills and reaps a child that is still there.
#ifndef DBG_CHILD_PROCESS_H
#define DBG_CHILD_PROCESS_H

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

// <build>, for a test program at <build>/tests/<program>. Read when the
// program starts: once a test has entered a private view of the file system
// from inside a chroot, the kernel names the program by its path outside.
inline std::string const buildDirectory = [] {
    char self[PATH_MAX];
    ssize_t const length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return std::string();
    std::string path(self, std::size_t(length));
    path.erase(path.rfind('/'));  // <build>/tests
    path.erase(path.rfind('/'));  // <build>
    return path;
}();

// <build>/tools/<name>.
inline std::string toolPath(char const* name)
{
    return buildDirectory + "/tools/" + name;
}

class ChildProcess {
public:
    enum class Terminal { Pipe, Pty };

    ChildProcess() = default;
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;
    ~ChildProcess() { killAndReap(); }

    // A step the child takes between fork and exec, after its standard
    // input and output are in place: only async-signal-safe calls. A
    // non-zero result ends the child with that status instead of the exec.
    using BeforeExec = std::function<int()>;

    // Starts path with args; environment variables in `setEnv` ("NAME=value")
    // replace those of the same name. Returns "" or what went wrong.
    std::string start(std::string const& path, std::vector<std::string> const& args, Terminal terminal,
                      std::vector<std::string> const& setEnv = {}, BeforeExec const& beforeExec = nullptr)
    {
        if (access(path.c_str(), X_OK) != 0)
            return "not executable: " + path;
        // In a cross build the target program runs under the same emulator
        // as the tests (DBG_TEST_EMULATOR, its words separated by blanks).
        std::vector<std::string> argStrings;
        if (char const* emulator = getenv("DBG_TEST_EMULATOR")) {
            std::istringstream words(emulator);
            for (std::string word; words >> word;)
                argStrings.push_back(word);
        }
        argStrings.push_back(path);
        argStrings.insert(argStrings.end(), args.begin(), args.end());
        std::vector<std::string> envStrings;
        for (char** entry = environ; *entry; ++entry) {
            std::string const variable = *entry;
            bool replaced = false;
            for (auto const& set : setEnv)
                replaced = replaced || variable.compare(0, set.find('=') + 1, set, 0, set.find('=') + 1) == 0;
            if (!replaced)
                envStrings.push_back(variable);
        }
        envStrings.insert(envStrings.end(), setEnv.begin(), setEnv.end());
        std::vector<char*> argv = pointers(argStrings);
        std::vector<char*> envp = pointers(envStrings);

        int childIn = -1;
        int childOut = -1;
        std::string slaveName;
        if (terminal == Terminal::Pipe) {
            int input[2];
            int output[2];
            if (pipe2(input, O_CLOEXEC) != 0)
                return "pipe: " + std::string(strerror(errno));
            if (pipe2(output, O_CLOEXEC) != 0) {
                close(input[0]);
                close(input[1]);
                return "pipe: " + std::string(strerror(errno));
            }
            childIn = input[0];
            m_in = input[1];
            m_out = output[0];
            childOut = output[1];
        } else {
            int const master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0 || !ptsname(master)) {
                if (master != -1)
                    close(master);
                return "pseudo-terminal: " + std::string(strerror(errno));
            }
            slaveName = ptsname(master);
            m_in = m_out = master;
            m_pty = true;
        }
        fcntl(m_in, F_SETFL, fcntl(m_in, F_GETFL) | O_NONBLOCK);
        fcntl(m_out, F_SETFL, fcntl(m_out, F_GETFL) | O_NONBLOCK);

        m_pid = fork();
        if (m_pid == -1) {
            std::string const failure = "fork: " + std::string(strerror(errno));
            if (childIn != -1) {
                close(childIn);
                close(childOut);
            }
            closeDescriptors();
            return failure;
        }
        if (m_pid == 0) {
            // Only async-signal-safe calls from here to exec.
            if (terminal == Terminal::Pipe) {
                dup2(childIn, 0);
                dup2(childOut, 1);
            } else {
                setsid();
                int const slave = open(slaveName.c_str(), O_RDWR);  // becomes the controlling terminal
                if (slave == -1)
                    _exit(126);
                dup2(slave, 0);
                dup2(slave, 1);
                dup2(slave, 2);
                if (slave > 2)
                    close(slave);
            }
            ::signal(SIGPIPE, SIG_DFL);
            if (beforeExec)
                if (int const status = beforeExec())
                    _exit(status);
            execve(argv[0], argv.data(), envp.data());
            _exit(127);
        }
        if (childIn != -1) {
            close(childIn);
            close(childOut);
        }
        return "";
    }

    pid_t pid() const { return m_pid; }

    // Writes all bytes, reading the child's output meanwhile so that neither
    // side blocks the other.
    bool send(std::string const& bytes, int timeoutMs = 5000)
    {
        auto const deadline = clock::now() + std::chrono::milliseconds(timeoutMs);
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            if (m_in == -1 || clock::now() >= deadline)
                return false;
            pollfd fds[2] = {{m_in, POLLOUT, 0}, {m_out, POLLIN, 0}};
            int const count = m_out == m_in || m_eof ? 1 : 2;
            if (poll(fds, count, remaining(deadline)) < 0 && errno != EINTR)
                return false;
            if (count == 2 && (fds[1].revents & (POLLIN | POLLHUP)))
                readSome();
            if (fds[0].revents & POLLOUT) {
                ssize_t const written = write(m_in, bytes.data() + sent, bytes.size() - sent);
                if (written > 0)
                    sent += std::size_t(written);
                else if (written < 0 && errno != EAGAIN && errno != EINTR)
                    return false;
            } else if (fds[0].revents & (POLLERR | POLLHUP)) {
                return false;
            }
        }
        return true;
    }

    // Ends the child's input (pipes only; a terminal is ended by its EOF
    // character).
    void closeInput()
    {
        if (!m_pty && m_in != -1) {
            close(m_in);
            m_in = -1;
        }
    }

    // The next `count` bytes of output, or fewer if the time runs out or the
    // output ends.
    std::string read(std::size_t count, int timeoutMs = 5000)
    {
        auto const deadline = clock::now() + std::chrono::milliseconds(timeoutMs);
        while (m_buffer.size() < count && !m_eof && waitReadable(deadline))
            readSome();
        return take(std::min(count, m_buffer.size()));
    }

    // Output up to and including `marker`, or all there is if it does not
    // come in time.
    std::string readThrough(std::string const& marker, int timeoutMs = 5000)
    {
        auto const deadline = clock::now() + std::chrono::milliseconds(timeoutMs);
        while (m_buffer.find(marker) == std::string::npos && !m_eof && waitReadable(deadline))
            readSome();
        std::size_t const found = m_buffer.find(marker);
        return take(found == std::string::npos ? m_buffer.size() : found + marker.size());
    }

    // All output until the child closes it.
    std::string readToEnd(int timeoutMs = 5000)
    {
        auto const deadline = clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!m_eof && waitReadable(deadline))
            readSome();
        return take(m_buffer.size());
    }

    // Output that comes within the given time, however much.
    std::string readFor(int milliseconds)
    {
        auto const deadline = clock::now() + std::chrono::milliseconds(milliseconds);
        while (!m_eof && waitReadable(deadline))
            readSome();
        return take(m_buffer.size());
    }

    bool outputEnded() const { return m_eof; }

    // Waits for the child to end; false if it is still there at the limit.
    bool waitExit(int& status, int timeoutMs = 5000)
    {
        auto const deadline = clock::now() + std::chrono::milliseconds(timeoutMs);
        while (m_pid > 0) {
            pid_t const done = waitpid(m_pid, &status, WNOHANG);
            if (done == m_pid) {
                m_pid = -1;
                return true;
            }
            if (done == -1 || clock::now() >= deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    bool running()
    {
        if (m_pid <= 0)
            return false;
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            m_lastStatus = status;
            return false;
        }
        return true;
    }

    int lastStatus() const { return m_lastStatus; }

    void signal(int number)
    {
        if (m_pid > 0)
            kill(m_pid, number);
    }

    void killAndReap()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            int status = 0;
            waitExit(status, 5000);
        }
        closeDescriptors();
    }

private:
    using clock = std::chrono::steady_clock;

    static std::vector<char*> pointers(std::vector<std::string>& strings)
    {
        std::vector<char*> result;
        for (auto& text : strings)
            result.push_back(&text[0]);
        result.push_back(nullptr);
        return result;
    }

    static int remaining(clock::time_point deadline)
    {
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
        return left > 0 ? int(left) : 0;
    }

    bool waitReadable(clock::time_point deadline)
    {
        if (m_out == -1)
            return false;
        pollfd fd = {m_out, POLLIN, 0};
        int const ready = poll(&fd, 1, remaining(deadline));
        if (ready < 0 && errno == EINTR)
            return clock::now() < deadline;
        return ready > 0;
    }

    void readSome()
    {
        char chunk[65536];
        ssize_t const got = ::read(m_out, chunk, sizeof chunk);
        if (got > 0)
            m_buffer.append(chunk, std::size_t(got));
        else if (got == 0 || (errno != EAGAIN && errno != EINTR))
            m_eof = true;  // a terminal whose other side closed answers EIO
    }

    std::string take(std::size_t count)
    {
        std::string const taken = m_buffer.substr(0, count);
        m_buffer.erase(0, count);
        return taken;
    }

    void closeDescriptors()
    {
        if (m_in != -1 && m_in != m_out)
            close(m_in);
        if (m_out != -1)
            close(m_out);
        m_in = m_out = -1;
    }

    pid_t m_pid = -1;
    int m_in = -1;
    int m_out = -1;
    bool m_pty = false;
    bool m_eof = false;
    int m_lastStatus = 0;
    std::string m_buffer;
};

#endif
