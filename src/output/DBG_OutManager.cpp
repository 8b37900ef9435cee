#include "DBG_OutManager.h"

#include <stdexcept>

#include "DBG_CmdObserver.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "DBG_ImcAccess.h"

DBG_OutManager* DBG_OutManager::pOutManager = nullptr;

namespace {

// The console sink left in place when a new sink cannot be built, not even
// a console: it needs no allocation, has no state and is never deleted.
DBG_Output lastResortConsole;

void destroySink(DBG_Output* sink)
{
    if (sink != &lastResortConsole)
        delete sink;
}

}  // namespace

DBG_OutManager* DBG_OutManager::instance()
{
    if (!pOutManager)
        pOutManager = new DBG_OutManager;
    return pOutManager;
}

void DBG_OutManager::desinstance()
{
    delete pOutManager;
    pOutManager = nullptr;
}

DBG_OutManager::DBG_OutManager() : pOutput(new DBG_Output), pCmdObserver(nullptr)
{
    // Without an IMC manager the output works all the same, only the DBG
    // commands are missing.
    try {
        pCmdObserver = new DBG_CmdObserver(&requireImcManager(imcLibraryModule));
    } catch (std::runtime_error const&) {
        pCmdObserver = nullptr;
    } catch (...) {
        delete pOutput;
        throw;
    }
}

DBG_OutManager::~DBG_OutManager()
{
    destroySink(pOutput);
    delete pCmdObserver;
}

// The old sink is gone before the new one is built, so a file sink can
// reopen the very file the old one had open. Should building fail, the
// console of last resort stays and the failure passes on.
template <typename MakeSink>
void DBG_OutManager::replaceOutput(MakeSink makeSink)
{
    destroySink(pOutput);
    pOutput = &lastResortConsole;
    pOutput = makeSink();
}

void DBG_OutManager::setConsoleOutput()
{
    replaceOutput([] { return new DBG_Output; });
}

void DBG_OutManager::setFileOutput(std::string const& name)
{
    replaceOutput([&name] { return new DBG_OutputFile(name); });
}

void DBG_OutManager::setImcOutput()
{
    replaceOutput([] { return new DBG_OutputImc; });
}

DBG_OutManager& DBG_OutManager::operator<<(std::string const& text)
{
    *pOutput << text;
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(int number)
{
    *pOutput << number;
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(unsigned char character)
{
    *pOutput << character;
    return *this;
}

void DBG_OutManager::flush(bool isError, std::string origin, int line)
{
    pOutput->flush(isError, std::move(origin), line);
}
