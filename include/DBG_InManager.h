// The operator console: reads lines from Tcl's standard input channel on the
// host's event loop. "exit" anywhere in a line, or end of input, signals the
// process with SIGTERM; every other line goes to the IMC manager as a command.
#ifndef DBG_INMANAGER_H
#define DBG_INMANAGER_H

#include <string>

#include <tcl.h>

#include "DBG_Export.h"

class DBG_EXPORT DBG_InManager {
public:
    static DBG_InManager* instance();  // attaches and prints the banner once
    static void desinstance();         // detaches and closes standard input

    virtual ~DBG_InManager();

    static void Tcl_StdinHandler(ClientData clientData, int mask);
    void onStdInput(std::string const& line);
    void printHeader();

    // Attaches the handler and prints the banner; instance() is the way in.
    DBG_InManager();

    Tcl_Channel chan;
    static DBG_InManager* pInManager;

private:
    DBG_InManager(DBG_InManager const&);             // not copyable: never defined
    DBG_InManager& operator=(DBG_InManager const&);  // not assignable: never defined
};

#endif
