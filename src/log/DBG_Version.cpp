#include "DBG_Version.h"

#include <fstream>

#include "DBG_VersionLines.h"

namespace {

char const configurationPath[] = "/current/config.rc";

}  // namespace

DBG_Version::DBG_Version()
{
    std::ifstream file(configurationPath);
    dbg_version::scanLines(file, m_voipVersion, m_traxoValue);
}

DBG_Version::~DBG_Version() = default;
