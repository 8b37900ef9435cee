// The line rules of the configuration file, apart from the file itself so
// that they can be driven with any stream. Internal to the library.
#ifndef DBG_VERSION_LINES_H
#define DBG_VERSION_LINES_H

#include <istream>
#include <string>

namespace dbg_version {

// Scans `lines` for the "TRAXO" and "voip" lines and sets the two values as
// DBG_Version keeps them; a stream that is bad from the start leaves both
// untouched.
void scanLines(std::istream& lines, std::string& voipVersion, std::string& traxoValue);

}  // namespace dbg_version

#endif
