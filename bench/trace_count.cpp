// Counting driver, under Callgrind on the host and under qemu-ppc for the
// board: N operations per case, counted only around each case's loop
// (CountMarkers.h). Setup and warm-up are not counted. Each case's name and
// its allocations per operation go, one line each and in the order counted,
// to the file named by the second argument. Standard output receives the
// console sink's bytes: send it to /dev/null.
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

#include "AllocationCounter.h"
#include "BenchSupport.h"
#include "CountMarkers.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "IMC_StandIn.h"
#include "ReferenceModels.h"

namespace {

constexpr int operations = 10000;
constexpr int warmUp = 100;

std::FILE* cases = nullptr;

template <typename Operation>
void count(char const* name, Operation operation)
{
    for (int i = 0; i < warmUp; ++i)
        operation();
    bench::AllocationScope allocations;
    bench::startCount();
    for (int i = 0; i < operations; ++i)
        operation();
    bench::stopCount(name);
    std::fprintf(cases, "%s %g\n", name, allocations.perOperation(operations));
}

std::string scratch(char const* directory, char const* name)
{
    return std::string(directory) + "/" + name;
}

// spdlog as a project would set it up to write exactly the message: a file
// sink (FileSink: the single-threaded one or the one with a lock), "%v".
template <typename FileSink>
void countSpdlog(char const* name, std::string const& path, std::string const& text)
{
    spdlog::logger logger("count", std::make_shared<FileSink>(path, true));
    logger.set_formatter(
        std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, std::string()));
    count(name, [&] { logger.info(text); });
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SCRATCH_DIRECTORY CASES_FILE\n", argv[0]);
        return 2;
    }
    char const* directory = argv[1];
    if (!(cases = std::fopen(argv[2], "w"))) {
        std::perror(argv[2]);
        return 1;
    }
    imc_standin::start(0x5A);
    imc_standin::setTraceStream(nullptr);
    DBG_OutManager* manager = DBG_OutManager::instance();
    DBG_Log const log;
    std::string const plain = bench::message(64, false);
    std::string const percent = bench::message(64, true);
    std::string const filePath = scratch(directory, "dbg-count-file.txt");

    auto traces = [&](std::string const& sink) {
        std::string const prefix = "trace/" + sink + "/64/";
        count((prefix + "plain/short").c_str(), [&] { log.trace(plain, bench::shortOrigin, bench::traceLine); });
        count((prefix + "plain/long").c_str(), [&] { log.trace(plain, bench::longOrigin, bench::traceLine); });
        count((prefix + "percent/short").c_str(),
              [&] { log.trace(percent, bench::shortOrigin, bench::traceLine); });
        count(("error/" + sink + "/64/plain/short").c_str(),
              [&] { log.error(plain, bench::errorDetail, bench::shortOrigin, bench::traceLine); });
    };
    manager->setConsoleOutput();
    traces("console");
    manager->setFileOutput(filePath);
    traces("file");
    manager->setImcOutput();
    traces("imc");
    manager->setConsoleOutput();

    std::string const handed = plain + '\0';
    count("ref/imc_standin/64/short",
          [&] { IMC_Manager::instance(255)->trace(handed, bench::shortOrigin, bench::traceLine); });

    {
        std::ofstream file(scratch(directory, "dbg-count-ofstream.txt"));
        count("ref/ofstream_write/64", [&] { file.write(plain.data(), std::streamsize(plain.size())); });
    }
    {
        std::FILE* file = std::fopen(scratch(directory, "dbg-count-fwrite.txt").c_str(), "w");
        count("ref/fwrite/64", [&] { std::fwrite(plain.data(), 1, plain.size(), file); });
        std::fclose(file);
    }
    {
        std::ostringstream stream(std::ios::out);
        count("ref/ostringstream_str/64", [&] {
            stream.write(plain.data(), std::streamsize(plain.size()));
            std::string const taken = stream.str();
            stream.seekp(0);
        });
    }
    countSpdlog<spdlog::sinks::basic_file_sink_st>("ref/spdlog/64/plain", scratch(directory, "dbg-count-spdlog.txt"),
                                                   plain);
    countSpdlog<spdlog::sinks::basic_file_sink_mt>("ref/spdlog_mt/64/plain",
                                                   scratch(directory, "dbg-count-spdlog.txt"), plain);
    {
        // What the output lock costs a trace when no other thread holds it.
        std::mutex lock;
        count("ref/mutex/lock_unlock", [&] {
            lock.lock();
            lock.unlock();
        });
    }

    std::vector<unsigned char> data(256);
    for (unsigned int i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 37 + 11);
    count("hexadump/256", [&] { std::string const dump = DBG_Output::hexaDump(data.data(), 256); });
    count("ref/snprintf_hexdump/256",
          [&] { std::string const dump = hexDumpModel(data.data(), 256); });

    DBG_OutManager::desinstance();
    imc_standin::stop();
    for (char const* name : {"dbg-count-file.txt", "dbg-count-ofstream.txt", "dbg-count-fwrite.txt",
                             "dbg-count-spdlog.txt"})
        std::remove(scratch(directory, name).c_str());
    return std::fclose(cases) == 0 ? 0 : 1;
}
