// Sample source for the mutation operators' own test: each function holds
// the sites of one operator.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

bool below(int a, int b)
{
    return a < b && b != 0;
}

int limit(int value)
{
    if (value > 9)
        return 9;
    return value;
}

void announce(std::ostream& out, std::string const& text)
{
    out << text;
    out << "ok" << std::endl;
    out << 'x' << std::flush;
}

int twice(int value)
{
    int result = value;
    result += value;
    return result;
}

void guarded(void (*step)())
{
    try {
        step();
    } catch (std::runtime_error const&) {
    } catch (...) {
        throw;
    }
}

int endpoint()
{
    int const descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    close(descriptor);
    return descriptor;
}

int halved(int count)
{
    int total = 0;
    for (int i = 0; i < count; ++i)
        total += i;
    while (total > 100)
        total /= 2;
    return total;
}

int parsed(std::string const& text)
{
    try {
        return std::stoi(text);
    } catch (std::invalid_argument const&) {
        return 0;
    }
}

// A stream of its own: no one else can set a width on it.
std::string joined(std::string const& text)
{
    std::ostringstream local;
    local << text << '.';
    return local.str();
}

// Flags a system call accepts in place of the given ones.
void flagged(int descriptor, char const* path)
{
    sendto(descriptor, "q", 1, 0, nullptr, 0);
    close(open(path, O_WRONLY | O_TRUNC));
}

// The own process signalled.
void ended()
{
    kill(getpid(), SIGTERM);
}

// A statement moved past the next call beyond its neighbour.
void ordered(std::ostream& out, int value)
{
    int copy = value;
    copy += 1;
    value = copy * 2;
    out << copy << value;
}

// A shared stream's state met by the insertions.
void told(int number)
{
    std::cout << "n=" << number;
}
