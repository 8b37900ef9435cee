// Stand-in for the IMC library's manager, written from the interface the
// debug library uses. The maker's own header and library can replace this
// one at build time (DBG_IMC_INCLUDE_DIR, DBG_IMC_LIBRARY).
//
// Behaviour of this stand-in:
// - No manager exists until the host calls imc_standin::start(identifier)
//   (IMC_StandIn.h, the host's control of the stand-in); until then, and
//   after imc_standin::stop(), instance() throws
//   std::runtime_error("no IMC manager").
// - Once started it is a small, real manager:
//   * receiveCommand routes a line to every observer registered for the
//     line's key, the line's first blank-separated word ("DBG out std" has
//     the key "DBG"). A non-empty line whose key nobody registered is
//     answered "Unknown command <key>\n", quoting at most the key's first
//     64 bytes (imc_standin::unknownKeyQuoteLimit), and is forgotten: the
//     routing table holds only registered keys, so hostile input of any
//     length or variety costs no memory; an empty or blank line is ignored.
//   * answerCommand delivers the answer where the command came from: with
//     the console flag set (the console sets it before each line), or when
//     the host installed no answer handler, on standard output; otherwise to
//     the answer handler (imc_standin::setAnswerHandler). receiveCommand
//     clears the console flag once the line has been routed.
//   * trace and error write the text, read up to its first NUL, with its
//     origin and line to the trace destination (standard output unless the
//     host chooses another stream, imc_standin::setTraceStream), one line
//     each: "IMC trace origin:line text" or "IMC ERROR origin:line text".
//   * post hands the record to the handler the host installed
//     (imc_standin::setPostHandler); without one the record is dropped.
//   * coreDumpExit flushes standard output, says "IMC : core dump exit
//     (cause N)" on standard error and ends the process with a core dump
//     (abort).
// - It keeps no record of the calls made on it and raises no fault of its
//   own: each operation does the above and nothing more.
// - Every operation may be called from any thread, as a maker's manager
//   that delivers commands on threads of its own must allow; no lock of it
//   is held while an observer or a handler runs, so they may call it again.
//   Starting and stopping the manager are the host's, before its threads
//   start and after they end.
#ifndef IMC_MANAGER_H
#define IMC_MANAGER_H

#include <stdint.h>

#include <string>

#include "IMC_CommandObserver.h"
#include "imc_msg.h"

struct IMC_Routing;

class IMC_Manager {
public:
    enum ExitCause {
        EXIT_MANUAL = 0,
        EXIT_FATAL = 1
    };

    // The process's manager; module is the caller's module number.
    static IMC_Manager* instance(unsigned char module);

    void registration(IMC_CommandObserver* observer, std::string const& key);
    void unregistration(IMC_CommandObserver* observer, std::string const& key);
    void receiveCommand(int source, std::string const& line);
    void answerCommand(std::string const& answer);
    void trace(std::string const& text, std::string const& origin, int line) const;
    void error(std::string const& text, std::string const& origin, int line) const;
    void post(imc_msg& msg);
    static void coreDumpExit(ExitCause cause) __attribute__((noreturn));

    // Layout shared with the maker's manager: modules read these bytes
    // (checked where the stand-in is built).
    unsigned char identifier;   // offset 0: the manager's identifier byte
    unsigned char consoleFlag;  // offset 1: set to 1 by the console before a line
    uint16_t reserved;          // offset 2
    uint32_t sequence;          // offset 4
    int32_t traceLevel;         // offset 8: the integer after the first two words
    IMC_Routing* routing;       // stand-in's own state
};

#endif
