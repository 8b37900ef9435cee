#include "DBG_InManager.h"

#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <iostream>
#include <stdexcept>

#include "DBG_ImcAccess.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define DBG_LEFT_ALLOCATED(object) __lsan_ignore_object(object)
#else
#define DBG_LEFT_ALLOCATED(object) static_cast<void>(object)
#endif

DBG_InManager* DBG_InManager::pInManager = nullptr;

DBG_InManager* DBG_InManager::instance()
{
    if (!pInManager)
        pInManager = new DBG_InManager;
    return pInManager;
}

void DBG_InManager::desinstance()
{
    delete pInManager;
    pInManager = nullptr;
}

DBG_InManager::DBG_InManager() : chan(Tcl_GetStdChannel(TCL_STDIN))
{
    // Tcl has no standard input channel when fd 0 is closed, and none after
    // an earlier console closed it: nothing to attach to then.
    if (chan)
        Tcl_CreateChannelHandler(chan, TCL_READABLE, Tcl_StdinHandler, chan);
    printHeader();
}

DBG_InManager::~DBG_InManager()
{
    if (!chan)
        return;
    Tcl_DeleteChannelHandler(chan, Tcl_StdinHandler, chan);
    Tcl_Close(nullptr, chan);
}

void DBG_InManager::Tcl_StdinHandler(ClientData clientData, int)
{
    Tcl_Channel const channel = static_cast<Tcl_Channel>(clientData);
    // Each event leaves its record allocated; the gateway has always run so.
    auto* record = new Tcl_DString;
    DBG_LEFT_ALLOCATED(record);
    std::memset(record, 0, sizeof *record);
    Tcl_DStringInit(record);
    Tcl_Gets(channel, record);
    if (Tcl_Eof(channel))
        kill(getpid(), SIGTERM);
    std::string const line(Tcl_DStringValue(record), Tcl_DStringLength(record));
    if (pInManager)
        pInManager->onStdInput(line);
    Tcl_DStringFree(record);
}

void DBG_InManager::onStdInput(std::string const& line)
{
    if (line.find("exit") != std::string::npos) {
        kill(getpid(), SIGTERM);
        return;
    }
    try {
        IMC_Manager& manager = requireImcManager(imcConsoleModule);
        markConsoleLine(manager);
        manager.receiveCommand(0, line);
        std::cout << ">" << std::flush;
    } catch (std::runtime_error const&) {
        std::cout << "command lost" << std::endl;
        std::cout << ">" << std::flush;
    }
}

void DBG_InManager::printHeader()
{
    std::cout << "+==========================+" << std::endl;
    std::cout << "|    SIP trunk Gateway     |" << std::endl;
    std::cout << "+--------------------------+" << std::endl;
    std::cout << "|   Command line Mode:     |" << std::endl;
    std::cout << "|    - help to start       |" << std::endl;
    std::cout << "|    - exit to stop        |" << std::endl;
    std::cout << "+==========================+" << std::endl;
    std::cout << ">" << std::endl;
}
