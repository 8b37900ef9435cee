// A gateway module as it uses the debug library: a trace, a line of
// telephony values and an error, written to a trace file, then the file's
// bytes on standard output. Plain C++98, as modules of any age are.
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "DBG_Log.h"
#include "DBG_OutManager.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " TRACE-FILE\n";
        return 2;
    }
    std::string const traceFile = argv[1];
    {
        // No IMC manager in this process: the library runs without commands.
        DBG_Log const log;
        DBG_OutManager& out = *DBG_OutManager::instance();
        out.setFileOutput(traceFile);

        log.trace("module up, 100% of its trunks in service\n", "module.cpp", __LINE__);
        out << "call " << 42 << " codec " << VCOM_CODEC_G729 << " direction " << VCOM_DIR_TO_NETWORK
            << " plan " << VCOM_PLAN_ISDN << " cause " << VCOM_CAUSE_USER_BUSY << "\n";
        out.flush(false, "module.cpp", __LINE__);
        log.error("no route to 0612345678 ", "trunk 3", "module.cpp", __LINE__);
        out << "\n";
        out.flush(false, "module.cpp", __LINE__);

        // Back to the console: the file sink is closed and its bytes written.
        out.setConsoleOutput();
        DBG_OutManager::desinstance();
    }
    std::ifstream in(traceFile.c_str(), std::ios::binary);
    if (!in) {
        std::cerr << argv[0] << ": no trace file " << traceFile << "\n";
        return 1;
    }
    std::cout << std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return 0;
}
