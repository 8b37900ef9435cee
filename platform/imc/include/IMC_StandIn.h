// Control of the IMC stand-in, for hosts and tests. Not part of the maker's
// interface: nothing in the debug library includes it.
#ifndef IMC_STANDIN_H
#define IMC_STANDIN_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "IMC_Manager.h"

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
    NullInstance     // instance() returns null (Operation::Instance only)
};

// One call made on the manager, with its arguments.
struct Call {
    Operation operation;
    std::string text;  // key, line, answer, trace or error text (all bytes)
    std::string origin;
    int number = 0;    // instance module, command source, trace line, exit cause
    IMC_CommandObserver const* observer = nullptr;
    std::vector<unsigned char> record;  // posted record, byte for byte
};

// Host side.
void start(unsigned char identifier);
void stop();
IMC_Manager* manager();  // null while not started
void setTraceStream(std::ostream* stream);  // null discards traces and errors
void setPostHandler(std::function<void(imc_msg const&)> handler);
void setAnswerHandler(std::function<void(std::string const&)> handler);

// Test side. A fault hits after `skip` calls of the operation have gone
// through, then stays until cleared, or for `times` calls when given.
void injectFault(Operation operation, Fault fault, int times = -1, int skip = 0);
void clearFaults();
void setRecording(bool on);
std::vector<Call> const& calls();
void clearCalls();

}  // namespace imc_standin

#endif
