// Fuzz target "version": the input is the whole configuration file, read
// from memory by the version reader's line scan; its two values must equal
// the line model's.
#include <sstream>
#include <string>

#include "DBG_VersionLines.h"
#include "FuzzRegistry.h"
#include "ImcCalls.h"

namespace {

// The line rules: lines end at a line feed (the last may lack it); a line
// of 255 characters or more ends the reading unexamined; a line is taken up
// to its first NUL; "TRAXO" lines set the second value (the last one wins)
// and the first "voip" line sets the version and ends the reading; the 11
// characters behind the keyword are the value.
void modelScan(std::string const& content, std::string& voip, std::string& traxo)
{
    std::string::size_type position = 0;
    while (position < content.size()) {
        std::string::size_type const end = content.find('\n', position);
        std::string::size_type const length = (end == std::string::npos ? content.size() : end) - position;
        if (length >= 255)
            return;
        std::string line = content.substr(position, length);
        line = line.substr(0, line.find('\0'));
        if (line.rfind("TRAXO", 0) == 0) {
            traxo = line.substr(5, 11);
        } else if (line.rfind("voip", 0) == 0) {
            voip = line.substr(4, 11);
            return;
        }
        if (end == std::string::npos)
            return;
        position = end + 1;
    }
}

std::string checkVersion(std::uint8_t const* data, std::size_t size)
{
    std::string const content(reinterpret_cast<char const*>(data), size);
    std::string voip;
    std::string traxo;
    modelScan(content, voip, traxo);

    std::istringstream lines(content);
    std::string readVoip;
    std::string readTraxo;
    dbg_version::scanLines(lines, readVoip, readTraxo);
    if (readVoip != voip)
        return "version " + quoted(readVoip) + ", model " + quoted(voip) + " for " + quoted(content);
    if (readTraxo != traxo)
        return "TRAXO value " + quoted(readTraxo) + ", model " + quoted(traxo) + " for " + quoted(content);
    return "";
}

dbg_fuzz::Registration const registration("version", checkVersion);

}  // namespace
