// The gateway's version, read once from /current/config.rc when built.
#ifndef DBG_VERSION_H
#define DBG_VERSION_H

#include <string>

#include "DBG_Export.h"

class DBG_EXPORT DBG_Version {
public:
    DBG_Version();
    virtual ~DBG_Version();

    // Up to 11 raw characters after "voip" on the first line starting with it.
    std::string m_voipVersion;
    // Up to 11 raw characters after "TRAXO" on the last such line read.
    std::string m_traxoValue;
};

#endif
