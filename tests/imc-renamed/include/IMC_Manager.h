// A test-only manager: the operations the library calls, with the
// identifier byte under another name and type; only the console flag and
// the integer member keep the names the library's access header gives them.
#ifndef IMC_MANAGER_H
#define IMC_MANAGER_H

#include <cstdint>
#include <string>

#include "IMC_CommandObserver.h"
#include "imc_msg.h"

class IMC_Manager {
public:
    typedef int ExitCause;

    static IMC_Manager* instance(unsigned char moduleNumber);

    int registration(IMC_CommandObserver* obs, const std::string& key);
    int unregistration(IMC_CommandObserver* obs, const std::string& key);
    int receiveCommand(int from, const std::string& text);
    int answerCommand(const std::string& text);
    int trace(const std::string& text, const std::string& file, int lineNumber) const;
    int error(const std::string& text, const std::string& file, int lineNumber) const;
    int post(imc_msg& message);
    static void coreDumpExit(ExitCause why);

    signed char mgr_id;
    std::uint8_t consoleFlag;
    std::int16_t flags;
    std::int32_t counter;
    int traceLevel;
};

#endif
