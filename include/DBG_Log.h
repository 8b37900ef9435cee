// The modules' front for one trace or one error line: percent signs in the
// text are doubled, the text goes into the output manager, then a flush
// with the error flag, origin and line.
#ifndef DBG_LOG_H
#define DBG_LOG_H

#include <stdint.h>

#include <string>

#include "DBG_Export.h"

class DBG_OutManager;

class DBG_EXPORT DBG_Log {
public:
    DBG_Log();
    // Slot order is the binary interface: error comes before trace.
    virtual ~DBG_Log();
    // Writes text, then "(" detail ")"; the detail is not escaped.
    virtual void error(std::string const& text, std::string const& detail,
                       std::string const& origin, int line) const;
    virtual void trace(std::string const& text, std::string const& origin, int line) const;

    // Local date and time in ctime's layout, line feed included.
    std::string date() const;

    DBG_OutManager* m_out;       // not owned
    int32_t* m_imcValue;    // the IMC manager's integer member, or m_imcFallback
    int32_t m_imcFallback;  // always -1
};

#endif
