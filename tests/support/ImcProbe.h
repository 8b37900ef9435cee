// The IMC stand-in as the tests, fuzz targets and benchmarks drive it: a
// record of every call made on the manager with its exact arguments, and
// faults raised on any operation. It works through the manager's probe, so
// it exists only in programs that link this library (dbg_imc_probe); the
// installed stand-in has none of it.
#ifndef DBG_IMC_PROBE_H
#define DBG_IMC_PROBE_H

#include <functional>
#include <string>
#include <vector>

#include "IMC_StandIn.h"

namespace imc_standin {

enum class Operation {
    Instance,
    Registration,
    Unregistration,
    ReceiveCommand,
    AnswerCommand,
    Trace,
    Error,
    Post,
    CoreDumpExit
};

enum class Fault {
    None,
    RuntimeError,    // throws std::runtime_error("injected fault")
    OtherException,  // throws std::logic_error("injected fault")
    ForeignException,  // throws a NonStandardFault: the maker's manager may throw
                       // what it likes, not only std::exception's kin
    BadAlloc,        // throws std::bad_alloc
    NullInstance,    // instance() returns null (Operation::Instance only)
    BlockUntilCancelled  // the call waits, testing for cancellation, until its
                         // thread is cancelled
};

// What Fault::ForeignException throws: derived from no standard exception.
struct NonStandardFault {};

// One call made on the manager, with its arguments.
struct Call {
    Operation operation;
    std::string text;  // key, line, answer, trace or error text (all bytes)
    std::string origin;
    int number = 0;    // instance module, command source, trace line, exit cause
    IMC_CommandObserver const* observer = nullptr;
    std::vector<unsigned char> record;  // posted record, byte for byte
};

// A fault hits after `skip` calls of the operation have gone through, then
// stays until cleared, or for `times` calls when given. A call is recorded
// before its fault is raised.
void injectFault(Operation operation, Fault fault, int times = -1, int skip = 0);
// Clears the faults and the reactions (react()).
void clearFaults();
// How many calls have entered Fault::BlockUntilCancelled so far; read from
// any thread.
int blockedCalls();
// Runs `action` in each later call of the operation, after the call is
// recorded and before its fault is raised, on the calling thread; an empty
// action removes it. The probe holds no lock while it runs, so it may call
// the manager or the library.
void react(Operation operation, std::function<void()> action);

// Off at first: nothing is copied until a test asks for the record.
void setRecording(bool on);
std::vector<Call> const& calls();
void clearCalls();

}  // namespace imc_standin

#endif
