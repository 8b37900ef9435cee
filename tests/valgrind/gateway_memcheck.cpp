// The demo gateway host under Valgrind's memcheck for an operator session
// with every command, each answer awaited before the next line: no memcheck
// error, and no leak but the console's per-line Tcl_DString records, which
// must come to exactly one record per line read, all from the one
// allocation in DBG_InManager::Tcl_StdinHandler.
//
// usage: gateway_memcheck VALGRIND GATEWAY SUPPRESSIONS
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <tcl.h>

#include "ChildProcess.h"
#include "ScratchDir.h"

namespace {

constexpr int answerTimeoutMs = 60000;  // memcheck is slow to start

char const helpText[] =
    "key DBG:\n\tDBG help : display this specific help\n\tDBG out [std | imc | file <name>]\n\t\tnone : get the "
    "current output mode\n\t\tstd  : debug traces send to standard output\n\t\timc  : debug traces send to imc "
    "(debug module)\n\t\tfile <name> : debug traces send to file <name>\n\tDBG stop : stop the sip gw (like "
    "Ctrl-C)\n\tDBG read : read configuration\n\tDBG version : return the version number\n\tDBG memchk 0|1 : "
    "unset/set memory check\n\tDBG memtrc 0|1 : unset/set memory trace\n";

int failures = 0;

void fail(std::string const& what)
{
    std::cerr << "gateway_memcheck: " << what << "\n";
    ++failures;
}

std::string fileContent(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "usage: gateway_memcheck VALGRIND GATEWAY SUPPRESSIONS\n";
        return 2;
    }
    std::unique_ptr<ScratchDir> const scratch = plainScratchDir();
    std::string const log = scratch->file("memcheck.log");
    std::string const traceFile = scratch->file("gw.trace");

    struct Step {
        std::string line;
        std::string answer;  // what must follow, through the prompt
    };
    std::vector<Step> const session = {
        {"help", std::string(helpText) + ">"},
        {"DBG out std", "Debug Output set to console\n>"},
        {"DBG out imc", "Debug Output set to IMC\n>"},
        {"DBG out file " + traceFile, "Debug Output set to file " + traceFile + "\n>"},
        {"DBG version", "Version is "},
        {"DBG read", "Read configuration\n>"},
        {"DBG memchk 1", "Binary is not instrumented\n>"},
        {"DBG memtrc 0", "Binary is not instrumented\n>"},
        {"EXIT", "Unknown command EXIT\n>"},
        {"DBG stop", "VELTA : processing manual shutdown...\nStoping SIP gateway ...\n>"},
    };

    ChildProcess gateway;
    std::string const started = gateway.start(
        argv[1],
        {"--tool=memcheck", "--error-exitcode=99", "--leak-check=full", "--show-leak-kinds=definite,indirect",
         "--errors-for-leak-kinds=definite,indirect", "--suppressions=" + std::string(argv[3]), "-v",
         "--num-callers=40", "--log-file=" + log, argv[2], "--traffic", "100"},
        ChildProcess::Terminal::Pipe);
    if (!started.empty()) {
        fail("cannot start valgrind: " + started);
        return 1;
    }
    std::string output = gateway.readThrough("+==========================+\n>\n", answerTimeoutMs);
    if (output.find("+==========================+\n>\n") == std::string::npos)
        fail("no banner; got: " + output);

    int linesRead = 0;
    for (Step const& step : session) {
        if (failures)
            break;
        if (!gateway.send(step.line + "\n")) {
            fail("cannot send " + step.line);
            break;
        }
        ++linesRead;
        std::string marker = step.answer;
        std::string got = gateway.readThrough(marker, answerTimeoutMs);
        if (step.line == "DBG version" && got.find(marker) != std::string::npos)
            got += gateway.readThrough("\n>", answerTimeoutMs), marker += "...\n>";
        if (got.find(step.answer) == std::string::npos || got.compare(got.size() - 1, 1, ">") != 0)
            fail("after \"" + step.line + "\" expected " + step.answer + "; got: " + got);
    }

    int status = 0;
    if (!gateway.waitExit(status, 120000)) {
        fail("the gateway did not end after DBG stop");
        gateway.killAndReap();
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        fail("valgrind ended with status " + std::to_string(status) +
             (WIFEXITED(status) && WEXITSTATUS(status) == 99 ? " (memcheck found errors)" : ""));
    }

    std::string const report = fileContent(log);
    std::smatch match;
    if (!std::regex_search(report, match, std::regex("ERROR SUMMARY: ([0-9,]+) errors")) || match[1] != "0")
        fail("memcheck reports errors");
    if (std::regex_search(report, match, std::regex("definitely lost: ([0-9,]+) bytes")) && match[1] != "0")
        fail("definitely lost: " + match[1].str() + " bytes outside the console records");
    if (std::regex_search(report, match, std::regex("indirectly lost: ([0-9,]+) bytes")) && match[1] != "0")
        fail("indirectly lost: " + match[1].str() + " bytes");
    std::size_t const recordSize = sizeof(Tcl_DString);
    std::string const expectedBytes = std::to_string(linesRead * recordSize);
    std::string const expectedBlocks = std::to_string(linesRead);
    auto withCommas = [](std::string digits) {
        for (int i = int(digits.size()) - 3; i > 0; i -= 3)
            digits.insert(std::size_t(i), ",");
        return digits;
    };
    std::regex const recordLine("used_suppression: +[0-9]+ dbg-console-line-record [^\n]*suppressed: ([0-9,]+) "
                                "bytes in ([0-9,]+) blocks");
    if (!std::regex_search(report, match, recordLine))
        fail("the console records were not found in the leak report");
    else if (match[1] != withCommas(expectedBytes) || match[2] != withCommas(expectedBlocks))
        fail("console records: " + match[1].str() + " bytes in " + match[2].str() + " blocks, expected " +
             expectedBytes + " bytes in " + expectedBlocks + " blocks (" + std::to_string(linesRead) +
             " lines of " + std::to_string(recordSize) + " bytes)");
    std::string const traces = fileContent(traceFile);

    if (failures) {
        std::cerr << "---- memcheck log ----\n" << report;
    } else {
        std::cout << "[ MEMCHECK ] " << linesRead << " console lines, 0 errors, 0 bytes lost but "
                  << expectedBytes << " bytes in " << expectedBlocks << " console records (" << recordSize
                  << " bytes each); " << traces.size() << " bytes of traffic in the trace file\n";
    }
    return failures ? 1 : 0;
}
