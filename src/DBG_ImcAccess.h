// The process's IMC manager, for the library's own use by the sinks, the
// logger and the console. The maker's manager may answer null instead of
// throwing when there is none; both mean the same here, so a null answer
// becomes the std::runtime_error every caller already handles.
#ifndef DBG_IMCACCESS_H
#define DBG_IMCACCESS_H

#include <stdexcept>

#include "IMC_Manager.h"

// The module number under which the library asks for the manager: what it
// selects is the manager's business, the library only passes it.
constexpr unsigned char imcLibraryModule = 255;
// The number the console passes with each line it hands on, likewise
// interpreted by the manager alone.
constexpr unsigned char imcConsoleModule = 15;

inline IMC_Manager& requireImcManager(unsigned char module)
{
    IMC_Manager* manager = IMC_Manager::instance(module);
    if (!manager)
        throw std::runtime_error("no Manager");
    return *manager;
}

#endif
