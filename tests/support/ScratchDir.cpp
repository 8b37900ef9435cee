#include "ScratchDir.h"

#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
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
        if (scratch->path().find("std") == std::string::npos && scratch->path().find("imc") == std::string::npos)
            return scratch;
    }
}

namespace {

int removeEntry(char const* path, struct stat const*, int, struct FTW*)
{
    return std::remove(path);
}

}  // namespace

void removeTree(std::string const& path)
{
    nftw(path.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
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
