// The process's IMC manager, for the library's own use. The maker's manager
// may answer null instead of throwing when there is none; both mean the same
// here, so a null answer becomes the std::runtime_error every caller already
// handles.
#ifndef DBG_IMCACCESS_H
#define DBG_IMCACCESS_H

#include <stdexcept>

#include "IMC_Manager.h"

inline IMC_Manager& requireImcManager(unsigned char module)
{
    IMC_Manager* manager = IMC_Manager::instance(module);
    if (!manager)
        throw std::runtime_error("no Manager");
    return *manager;
}

#endif
