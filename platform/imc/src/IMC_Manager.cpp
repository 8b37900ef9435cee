#include "IMC_Manager.h"

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "IMC_Probe.h"
#include "IMC_StandIn.h"

// The layout modules read, kept out of the headers, which modules compile
// in standards that have no static_assert.
static_assert(offsetof(IMC_Manager, identifier) == 0, "identifier byte at offset 0");
static_assert(offsetof(IMC_Manager, consoleFlag) == 1, "console flag at offset 1");
static_assert(offsetof(IMC_Manager, traceLevel) == 8,
              "integer member follows the first two 32-bit words");
static_assert(sizeof(IMC_Manager::traceLevel) == 4, "32-bit integer member");
static_assert(sizeof(imc_msg) == 2060, "imc_msg is a 2060-byte record");
static_assert(offsetof(imc_msg, sender) == 2, "sender byte at offset 2");
static_assert(offsetof(imc_msg, code) == 8, "request code at offset 8");
static_assert(offsetof(imc_msg, body) == 12, "body at offset 12");

struct IMC_Routing {
    std::map<std::string, std::vector<IMC_CommandObserver*>> observers;
};

namespace {

// One lock over the routing table, the handlers, the console flag and the
// trace destination: a maker's manager delivers commands on threads of its
// own. It is never held while an observer or a handler runs, so either may
// call the manager again, on this thread or another.
struct StandIn {
    std::mutex lock;
    IMC_Manager* manager = nullptr;
    std::ostream* traceStream = &std::cout;
    std::function<void(imc_msg const&)> postHandler;
    std::function<void(std::string const&)> answerHandler;
};

StandIn& standIn()
{
    static StandIn state;
    return state;
}

// Constant-initialised, so asking costs one load and no guard.
imc_standin::Probe* probe = nullptr;

std::string keyOf(std::string const& line)
{
    auto const begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos)
        return std::string();
    auto const end = line.find_first_of(" \t", begin);
    return line.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
}

void writeTrace(char const* kind, std::string const& text, std::string const& origin, int line)
{
    std::lock_guard<std::mutex> const guard(standIn().lock);
    std::ostream* stream = standIn().traceStream;
    if (stream)
        *stream << "IMC " << kind << ' ' << origin << ':' << line << ' ' << text.c_str() << '\n';
}

// Written only when set: commands from threads other than the console's
// leave the byte alone, so observers may read it as they run.
void clearConsoleFlag(IMC_Manager& manager)
{
    std::lock_guard<std::mutex> const guard(standIn().lock);
    if (manager.consoleFlag)
        manager.consoleFlag = 0;
}

}  // namespace

IMC_CommandObserver::~IMC_CommandObserver() = default;

IMC_Manager* IMC_Manager::instance(unsigned char module)
{
    if (probe && !probe->instance(module))
        return nullptr;
    if (!standIn().manager)
        // As in the library, from a std::string (the older ABI's boards
        // may lack the char const* constructor).
        throw std::runtime_error(std::string("no IMC manager"));
    return standIn().manager;
}

void IMC_Manager::registration(IMC_CommandObserver* observer, std::string const& key)
{
    if (probe)
        probe->registration(observer, key);
    std::lock_guard<std::mutex> const guard(standIn().lock);
    routing->observers[key].push_back(observer);
}

void IMC_Manager::unregistration(IMC_CommandObserver* observer, std::string const& key)
{
    if (probe)
        probe->unregistration(observer, key);
    std::lock_guard<std::mutex> const guard(standIn().lock);
    // The table keeps registered keys only: a key whose last observer
    // leaves goes with it, and an unknown one is not added.
    auto const found = routing->observers.find(key);
    if (found == routing->observers.end())
        return;
    std::vector<IMC_CommandObserver*>& registered = found->second;
    for (auto it = registered.begin(); it != registered.end(); ++it) {
        if (*it == observer) {
            registered.erase(it);
            break;
        }
    }
    if (registered.empty())
        routing->observers.erase(found);
}

void IMC_Manager::receiveCommand(int source, std::string const& line)
{
    if (probe)
        probe->receiveCommand(source, line);
    std::string const key = keyOf(line);
    // Looked up, never added: unknown words typed by the thousand must not
    // grow the table. A copy: an observer may unregister while it runs.
    std::vector<IMC_CommandObserver*> receivers;
    {
        std::lock_guard<std::mutex> const guard(standIn().lock);
        auto const found = routing->observers.find(key);
        if (found != routing->observers.end())
            receivers = found->second;
    }
    try {
        if (receivers.empty() && !key.empty())
            answerCommand("Unknown command " + key.substr(0, imc_standin::unknownKeyQuoteLimit) + "\n");
        for (IMC_CommandObserver* observer : receivers)
            observer->command(line, source);
    } catch (...) {
        clearConsoleFlag(*this);
        throw;
    }
    clearConsoleFlag(*this);
}

void IMC_Manager::answerCommand(std::string const& answer)
{
    if (probe)
        probe->answerCommand(answer);
    std::function<void(std::string const&)> handler;
    {
        std::lock_guard<std::mutex> const guard(standIn().lock);
        if (!consoleFlag)
            handler = standIn().answerHandler;
    }
    if (handler)
        handler(answer);
    else
        std::cout << answer << std::flush;
}

void IMC_Manager::trace(std::string const& text, std::string const& origin, int line) const
{
    if (probe)
        probe->trace(text, origin, line);
    writeTrace("trace", text, origin, line);
}

void IMC_Manager::error(std::string const& text, std::string const& origin, int line) const
{
    if (probe)
        probe->error(text, origin, line);
    writeTrace("ERROR", text, origin, line);
}

void IMC_Manager::post(imc_msg& msg)
{
    if (probe)
        probe->post(msg);
    std::function<void(imc_msg const&)> handler;
    {
        std::lock_guard<std::mutex> const guard(standIn().lock);
        handler = standIn().postHandler;
    }
    if (handler)
        handler(msg);
}

void IMC_Manager::coreDumpExit(ExitCause cause)
{
    if (probe)
        probe->coreDumpExit(cause);
    std::cout.flush();
    std::cerr << "IMC : core dump exit (cause " << cause << ")" << std::endl;
    std::abort();
}

namespace imc_standin {

void start(unsigned char identifier)
{
    if (standIn().manager)
        return;
    auto* manager = new IMC_Manager();  // value-initialised: all zero
    manager->identifier = identifier;
    manager->routing = new IMC_Routing;
    standIn().manager = manager;
}

void stop()
{
    if (!standIn().manager)
        return;
    delete standIn().manager->routing;
    delete standIn().manager;
    standIn().manager = nullptr;
}

IMC_Manager* manager()
{
    return standIn().manager;
}

void setTraceStream(std::ostream* stream)
{
    std::lock_guard<std::mutex> const guard(standIn().lock);
    standIn().traceStream = stream;
}

void setPostHandler(std::function<void(imc_msg const&)> handler)
{
    std::lock_guard<std::mutex> const guard(standIn().lock);
    standIn().postHandler = std::move(handler);
}

void setAnswerHandler(std::function<void(std::string const&)> handler)
{
    std::lock_guard<std::mutex> const guard(standIn().lock);
    standIn().answerHandler = std::move(handler);
}

std::function<void(std::string const&)> answerHandler()
{
    std::lock_guard<std::mutex> const guard(standIn().lock);
    return standIn().answerHandler;
}

void setProbe(Probe* installed)
{
    probe = installed;
}

}  // namespace imc_standin
