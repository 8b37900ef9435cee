// The test-only manager's state, for the tests built on the renamed headers.
#ifndef DBG_RENAMED_MANAGER_H
#define DBG_RENAMED_MANAGER_H

#include <string>
#include <vector>

#include "IMC_Manager.h"

namespace renamed_imc {

// The one manager instance() returns, with this identifier byte.
IMC_Manager& start(unsigned char identifier);

// Every record posted, byte for byte, and every command line received with
// the console flag as it stood when the line came.
extern std::vector<std::vector<unsigned char>> posted;
extern std::vector<std::string> received;
extern std::vector<int> consoleFlagOnReceive;

}  // namespace renamed_imc

#endif
