#include "DBG_OutManager.h"

#include <mutex>
#include <new>
#include <stdexcept>
#include <typeinfo>

#include "DBG_CmdObserver.h"
#include "DBG_ImcAccess.h"
#include "DBG_ImcTrace.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "DBG_WholeTrace.h"

DBG_OutManager* DBG_OutManager::pOutManager = nullptr;

namespace {

// The one lock: it serialises the manager's sinks (every insertion, flush,
// switch and name read) and guards pOutManager while threads run. The IMC manager is never
// called while it is held. Constant-initialised and trivially destroyed,
// so a module may still trace from its static destructors.
std::mutex outputLock;

// Counts switches and IMC traces taken, under the lock: a failed hand-over
// puts its text back only if neither happened meanwhile.
unsigned long outputEvents = 0;

// The console sink left in place when a new sink cannot be built, not even
// a console: built on first use in storage of its own (no allocation) and
// never destroyed, so it outlives every module's static destructors.
DBG_Output& lastResortConsole()
{
    alignas(DBG_Output) static unsigned char storage[sizeof(DBG_Output)];
    static DBG_Output* const console = new (storage) DBG_Output;
    return *console;
}

void destroySink(DBG_Output* sink)
{
    if (sink != &lastResortConsole())
        delete sink;
}

// Hands an IMC sink's trace to the IMC manager: taken out under the lock,
// handed over with the lock released (the IMC manager may deliver a
// command that switches the output, on this thread or on one that waits
// for the lock), put back under the lock should the hand-over fail.
void handOverImcTrace(std::unique_lock<std::mutex>& lock, DBG_OutputImc& sink, bool isError,
                      std::string const& origin, int line)
{
    dbg_output::ImcTrace trace(sink);
    unsigned long const taken = ++outputEvents;
    lock.unlock();
    try {
        trace.handOver(isError, origin, line);
    } catch (...) {
        lock.lock();
        if (outputEvents == taken && trace.untouched(sink))
            trace.putBack(sink);
        throw;
    }
}

// Ends the trace on the current sink, the lock held. An IMC sink is told
// by its type's own information object, which is this library's: compared
// by address, without comparing names.
void endTrace(std::unique_lock<std::mutex>& lock, DBG_OutManager& manager, bool isError,
              std::string const& origin, int line)
{
    DBG_Output* const sink = manager.pOutput;
    if (&typeid(*sink) == &typeid(DBG_OutputImc))
        handOverImcTrace(lock, static_cast<DBG_OutputImc&>(*sink), isError, origin, line);
    else
        sink->flush(isError, origin, line);
}

}  // namespace

// Built with the lock released: building registers the DBG commands with
// the IMC manager. Should two threads build at once, the first manager
// stored is everybody's, and the other is destroyed at once.
DBG_OutManager* DBG_OutManager::instance()
{
    {
        std::lock_guard<std::mutex> const guard(outputLock);
        if (pOutManager)
            return pOutManager;
    }
    DBG_OutManager* const built = new DBG_OutManager;
    DBG_OutManager* const kept = [built] {
        std::lock_guard<std::mutex> const guard(outputLock);
        if (!pOutManager)
            pOutManager = built;
        return pOutManager;
    }();
    if (kept != built)
        delete built;
    return kept;
}

// The host's, once its threads have stopped: no lock. Destroying the
// manager unregisters its commands with the IMC manager.
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
    std::lock_guard<std::mutex> const guard(outputLock);
    ++outputEvents;
    destroySink(pOutput);
    pOutput = &lastResortConsole();
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
    std::lock_guard<std::mutex> const guard(outputLock);
    *pOutput << text;
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(int number)
{
    std::lock_guard<std::mutex> const guard(outputLock);
    *pOutput << number;
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(unsigned char character)
{
    std::lock_guard<std::mutex> const guard(outputLock);
    *pOutput << character;
    return *this;
}

void DBG_OutManager::flush(bool isError, std::string origin, int line)
{
    std::unique_lock<std::mutex> lock(outputLock);
    endTrace(lock, *this, isError, origin, line);
}

namespace dbg_output {

void writeTrace(DBG_OutManager& manager, std::initializer_list<std::string const*> texts,
                bool isError, std::string const& origin, int line)
{
    std::unique_lock<std::mutex> lock(outputLock);
    for (std::string const* text : texts)
        *manager.pOutput << *text;
    endTrace(lock, manager, isError, origin, line);
}

std::string outputName(DBG_OutManager const& manager)
{
    std::lock_guard<std::mutex> const guard(outputLock);
    return *manager.pOutput;
}

}  // namespace dbg_output
