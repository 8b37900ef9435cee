// Symbol visibility of the library: everything is hidden unless marked.
// Every public header includes this one, and through it the check of the
// module's std::string ABI.
#ifndef DBG_EXPORT_H
#define DBG_EXPORT_H

#include "DBG_StringAbi.h"

#define DBG_EXPORT __attribute__((visibility("default")))

#endif
