#include "DBG_Version.h"

#include <fstream>

namespace {

char const configurationPath[] = "/current/config.rc";

// Lines are at most 254 characters; a longer one ends the scan.
constexpr std::streamsize lineBufferSize = 256;
constexpr std::streamsize lineReadCount = 255;
constexpr std::string::size_type valueLength = 11;

}  // namespace

DBG_Version::DBG_Version()
{
    std::ifstream file(configurationPath);
    if (file.bad())
        return;
    std::string const voipKeyword("voip");
    std::string const traxoCode("TRAXO");
    char buffer[lineBufferSize];
    while (file.getline(buffer, lineReadCount, '\n')) {
        std::string const line(buffer);
        if (line.compare(0, traxoCode.size(), traxoCode) == 0) {
            m_traxoValue = line.substr(traxoCode.size(), valueLength);
        } else if (line.compare(0, voipKeyword.size(), voipKeyword) == 0) {
            m_voipVersion = line.substr(voipKeyword.size(), valueLength);
            break;
        }
    }
}

DBG_Version::~DBG_Version() = default;
