#include "ShutdownSocketPaths.h"

ShutdownSocketPaths::ShutdownSocketPaths(pid_t pid) : m_pid(pid)
{
    removeFor(m_pid);
}

ShutdownSocketPaths::~ShutdownSocketPaths()
{
    removeFor(m_pid);
}

std::string ShutdownSocketPaths::ownPath(pid_t pid)
{
    return "/tmp//dbg" + std::to_string(pid) + ".key";
}

std::string ShutdownSocketPaths::listenerPath(pid_t pid)
{
    return "/tmp//" + std::to_string(pid) + ".key";
}

void ShutdownSocketPaths::removeFor(pid_t pid)
{
    unlink(ownPath(pid).c_str());
    unlink(listenerPath(pid).c_str());
}
