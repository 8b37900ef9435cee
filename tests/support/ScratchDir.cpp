#include "ScratchDir.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

ScratchDir::ScratchDir()
{
    char const* base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/dbg-test-XXXXXX";
    if (!mkdtemp(&pattern[0]))
        throw std::runtime_error("cannot create a scratch directory " + pattern);
    m_path = pattern;
}

ScratchDir::~ScratchDir()
{
    removeTree(m_path);
}

std::unique_ptr<ScratchDir> plainScratchDir()
{
    for (;;) {
        auto scratch = std::make_unique<ScratchDir>();
        std::string const& path = scratch->path();
        if (path.find("std") == std::string::npos && path.find("imc") == std::string::npos &&
            path.find("exit") == std::string::npos)
            return scratch;
    }
}

std::string copyProgram(std::string const& from, std::string const& to)
{
    std::ifstream source(from, std::ios::binary);
    std::ofstream target(to, std::ios::binary | std::ios::trunc);
    target << source.rdbuf();
    target.close();
    if (!source || !target)
        return "cannot copy " + from + " to " + to;
    if (chmod(to.c_str(), 0755) != 0)
        return "chmod " + to + ": " + std::strerror(errno);
    return "";
}
