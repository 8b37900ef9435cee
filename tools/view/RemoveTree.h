// Removes a file or a directory with everything below it.
#ifndef DBG_REMOVE_TREE_H
#define DBG_REMOVE_TREE_H

#include <string>

// Links are removed, never followed.
void removeTree(std::string const& path);

#endif
