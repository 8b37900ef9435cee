#include "DBG_VersionLines.h"

namespace {

// Lines are at most 254 characters; a longer one ends the scan.
constexpr std::streamsize lineBufferSize = 256;
constexpr std::streamsize lineReadCount = 255;
constexpr std::string::size_type valueLength = 11;

}  // namespace

namespace dbg_version {

void scanLines(std::istream& lines, std::string& voipVersion, std::string& traxoValue)
{
    if (lines.bad())
        return;
    std::string const voipKeyword("voip");
    std::string const traxoCode("TRAXO");
    char buffer[lineBufferSize];
    // fail() rather than the stream's conversion to bool, which an
    // unoptimised build calls in libstdc++ 5's.
    while (!lines.getline(buffer, lineReadCount, '\n').fail()) {
        std::string const line(buffer);
        if (line.compare(0, traxoCode.size(), traxoCode) == 0) {
            traxoValue = line.substr(traxoCode.size(), valueLength);
        } else if (line.compare(0, voipKeyword.size(), voipKeyword) == 0) {
            voipVersion = line.substr(voipKeyword.size(), valueLength);
            break;
        }
    }
}

}  // namespace dbg_version
