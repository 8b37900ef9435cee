// Reading the IMC stand-in's record of calls: by operation, in order, and
// as text for failure messages.
#ifndef DBG_IMC_CALLS_H
#define DBG_IMC_CALLS_H

#include <string>
#include <vector>

#include "ImcProbe.h"

std::vector<imc_standin::Call> callsOf(imc_standin::Operation operation);
std::vector<std::string> textsOf(imc_standin::Operation operation);
std::vector<imc_standin::Operation> operations();

std::string operationName(imc_standin::Operation operation);
// " name(\"text\")" per call, or " none".
std::string describeCalls(std::vector<imc_standin::Call> const& calls);
// Arbitrary bytes in double quotes, non-printable ones as \xHH.
std::string quoted(std::string const& bytes);

#endif
