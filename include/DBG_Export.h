// Symbol visibility of the library: everything is hidden unless marked.
#ifndef DBG_EXPORT_H
#define DBG_EXPORT_H

#define DBG_EXPORT __attribute__((visibility("default")))

#endif
