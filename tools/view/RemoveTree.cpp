#include "RemoveTree.h"

#include <ftw.h>

#include <cstdio>

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
