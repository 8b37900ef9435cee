#include "IMC_Manager.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <stdexcept>
#include <vector>

#include "IMC_StandIn.h"

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

struct IMC_Routing {
    std::map<std::string, std::vector<IMC_CommandObserver*>> observers;
};

namespace {

struct InjectedFault {
    Fault fault = Fault::None;
    int remaining = 0;  // negative: until cleared
    int skip = 0;       // calls still to go through first
};

struct StandIn {
    IMC_Manager* manager = nullptr;
    std::ostream* traceStream = &std::cout;
    std::function<void(imc_msg const&)> postHandler;
    std::function<void(std::string const&)> answerHandler;
    std::map<Operation, InjectedFault> faults;
    bool recording = false;
    std::vector<Call> calls;
};

StandIn& standIn()
{
    static StandIn state;
    return state;
}

// Nothing is copied unless a test asked for the record: hosts and
// benchmarks pay no more than a test.
void record(Operation operation, std::string const& text = std::string(),
            std::string const& origin = std::string(), int number = 0,
            IMC_CommandObserver const* observer = nullptr, imc_msg const* msg = nullptr)
{
    if (!standIn().recording)
        return;
    Call call;
    call.operation = operation;
    call.text = text;
    call.origin = origin;
    call.number = number;
    call.observer = observer;
    if (msg) {
        auto const* bytes = reinterpret_cast<unsigned char const*>(msg);
        call.record.assign(bytes, bytes + sizeof *msg);
    }
    standIn().calls.push_back(std::move(call));
}

// The fault now due for an operation, counting it down.
Fault dueFault(Operation operation)
{
    auto found = standIn().faults.find(operation);
    if (found == standIn().faults.end() || found->second.remaining == 0)
        return Fault::None;
    if (found->second.skip > 0) {
        --found->second.skip;
        return Fault::None;
    }
    if (found->second.remaining > 0)
        --found->second.remaining;
    return found->second.fault;
}

// Throws the due fault; a fault that is not an exception is returned.
Fault raiseDueFault(Operation operation)
{
    Fault const fault = dueFault(operation);
    switch (fault) {
    case Fault::RuntimeError:
        throw std::runtime_error("injected fault");
    case Fault::OtherException:
        throw std::logic_error("injected fault");
    case Fault::None:
    case Fault::NullInstance:
        break;
    }
    return fault;
}

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
    std::ostream* stream = standIn().traceStream;
    if (stream)
        *stream << "IMC " << kind << ' ' << origin << ':' << line << ' ' << text.c_str() << '\n';
}

}  // namespace

IMC_CommandObserver::~IMC_CommandObserver() = default;

IMC_Manager* IMC_Manager::instance(unsigned char module)
{
    record(Operation::Instance, "", "", module);
    if (raiseDueFault(Operation::Instance) == Fault::NullInstance)
        return nullptr;
    if (!standIn().manager)
        throw std::runtime_error("no IMC manager");
    return standIn().manager;
}

void IMC_Manager::registration(IMC_CommandObserver* observer, std::string const& key)
{
    record(Operation::Registration, key, "", 0, observer);
    raiseDueFault(Operation::Registration);
    routing->observers[key].push_back(observer);
}

void IMC_Manager::unregistration(IMC_CommandObserver* observer, std::string const& key)
{
    record(Operation::Unregistration, key, "", 0, observer);
    raiseDueFault(Operation::Unregistration);
    auto& registered = routing->observers[key];
    for (auto it = registered.begin(); it != registered.end(); ++it) {
        if (*it == observer) {
            registered.erase(it);
            break;
        }
    }
}

void IMC_Manager::receiveCommand(int source, std::string const& line)
{
    record(Operation::ReceiveCommand, line, "", source);
    raiseDueFault(Operation::ReceiveCommand);
    std::string const key = keyOf(line);
    // Looked up, never added: unknown words typed by the thousand must not
    // grow the table. A copy: an observer may unregister while it runs.
    auto const found = routing->observers.find(key);
    std::vector<IMC_CommandObserver*> const receivers =
        found == routing->observers.end() ? std::vector<IMC_CommandObserver*>() : found->second;
    try {
        if (receivers.empty() && !key.empty())
            answerCommand("Unknown command " + key.substr(0, imc_standin::unknownKeyQuoteLimit) + "\n");
        for (IMC_CommandObserver* observer : receivers)
            observer->command(line, source);
    } catch (...) {
        consoleFlag = 0;
        throw;
    }
    consoleFlag = 0;
}

void IMC_Manager::answerCommand(std::string const& answer)
{
    record(Operation::AnswerCommand, answer);
    raiseDueFault(Operation::AnswerCommand);
    if (consoleFlag || !standIn().answerHandler)
        std::cout << answer << std::flush;
    else
        standIn().answerHandler(answer);
}

void IMC_Manager::trace(std::string const& text, std::string const& origin, int line) const
{
    record(Operation::Trace, text, origin, line);
    raiseDueFault(Operation::Trace);
    writeTrace("trace", text, origin, line);
}

void IMC_Manager::error(std::string const& text, std::string const& origin, int line) const
{
    record(Operation::Error, text, origin, line);
    raiseDueFault(Operation::Error);
    writeTrace("ERROR", text, origin, line);
}

void IMC_Manager::post(imc_msg& msg)
{
    record(Operation::Post, "", "", 0, nullptr, &msg);
    raiseDueFault(Operation::Post);
    if (standIn().postHandler)
        standIn().postHandler(msg);
}

void IMC_Manager::coreDumpExit(ExitCause cause)
{
    record(Operation::CoreDumpExit, "", "", cause);
    raiseDueFault(Operation::CoreDumpExit);
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
    standIn().traceStream = stream;
}

void setPostHandler(std::function<void(imc_msg const&)> handler)
{
    standIn().postHandler = std::move(handler);
}

void setAnswerHandler(std::function<void(std::string const&)> handler)
{
    standIn().answerHandler = std::move(handler);
}

std::function<void(std::string const&)> answerHandler()
{
    return standIn().answerHandler;
}

void injectFault(Operation operation, Fault fault, int times, int skip)
{
    standIn().faults[operation] = InjectedFault{fault, times, skip};
}

void clearFaults()
{
    standIn().faults.clear();
}

void setRecording(bool on)
{
    standIn().recording = on;
}

std::vector<Call> const& calls()
{
    return standIn().calls;
}

void clearCalls()
{
    standIn().calls.clear();
}

}  // namespace imc_standin
