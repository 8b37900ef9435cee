// Benchmarks of the trace path and of the library's other costly operations,
// with the references they are judged against (plain streams, stdio, spdlog)
// in the same program and run, so that ratios between them hold on any host.
//
// The console sink writes to standard output; for the whole run it goes to
// /dev/null and the report goes to standard error (and to --benchmark_out).
#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "BenchSupport.h"
#include "CurrentConfigIsolation.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "DBG_Version.h"
#include "IMC_Manager.h"
#include "IMC_StandIn.h"
#include "ReferenceModels.h"

namespace {

using bench::AllocationScope;

std::size_t const messageSizes[] = {16, 64, 256, 1024};

// Files are written where DBG_BENCH_DIR says, else in /dev/shm when there is
// one (no disk write-back to disturb the clock), else in /tmp.
std::string scratchPath(std::string const& name)
{
    if (char const* directory = std::getenv("DBG_BENCH_DIR"))
        return std::string(directory) + "/" + name;
    if (access("/dev/shm", W_OK) == 0)
        return "/dev/shm/" + name;
    return "/tmp/" + name;
}

// A file grows by every operation; past this many bytes it is started
// again, with the clock and the allocation count stopped.
constexpr std::size_t fileBudget = std::size_t(64) << 20;
// An IMC buffer that is only inserted into (no flush) is flushed this often.
constexpr std::size_t bufferBudget = std::size_t(1) << 20;

// Runs `operation` for every iteration; `restart` runs, off the clock,
// whenever `bytesPerOperation` has added up to `budget`.
template <typename Operation, typename Restart>
void measure(benchmark::State& state, std::size_t bytesPerOperation, std::size_t budget,
             Operation operation, Restart restart)
{
    std::size_t used = 0;
    AllocationScope allocations;
    for (auto _ : state) {
        operation();
        used += bytesPerOperation;
        if (used >= budget) {
            state.PauseTiming();
            allocations.pause();
            restart();
            used = 0;
            allocations.resume();
            state.ResumeTiming();
        }
    }
    state.counters["allocs/op"] = allocations.perOperation(state.iterations());
}

template <typename Operation>
void measure(benchmark::State& state, Operation operation)
{
    measure(state, 0, 1, operation, [] {});
}

enum class Sink { Console, File, Imc };

char const* sinkName(Sink sink)
{
    switch (sink) {
    case Sink::Console:
        return "console";
    case Sink::File:
        return "file";
    case Sink::Imc:
        return "imc";
    }
    return "?";
}

void selectSink(Sink sink, std::string const& path)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    switch (sink) {
    case Sink::Console:
        manager->setConsoleOutput();
        break;
    case Sink::File:
        manager->setFileOutput(path);
        break;
    case Sink::Imc:
        manager->setImcOutput();
        break;
    }
}

// --- DBG_Log::trace and DBG_Log::error on each sink -------------------------

void logBench(benchmark::State& state, Sink sink, bool isError, std::string const& text,
              std::string const& origin)
{
    std::string const path = scratchPath("dbg-bench-log.txt");
    selectSink(sink, path);
    DBG_Log const log;
    std::size_t written = percentDoubled(text).size();
    if (isError)
        written += bench::errorDetail.size() + 2;
    std::size_t const perOperation = sink == Sink::File ? written : 0;
    auto restart = [&] { selectSink(sink, path); };
    if (isError)
        measure(state, perOperation, fileBudget,
                [&] { log.error(text, bench::errorDetail, origin, bench::traceLine); }, restart);
    else
        measure(state, perOperation, fileBudget,
                [&] { log.trace(text, origin, bench::traceLine); }, restart);
    DBG_OutManager::instance()->setConsoleOutput();
    std::remove(path.c_str());
}

// --- References ------------------------------------------------------------

// spdlog, the way a project would set it up to write exactly the message:
// one synchronous file sink (FileSink: the single-threaded one, or the
// thread-safe one with its lock), pattern "%v", no line end added.
template <typename FileSink>
std::unique_ptr<spdlog::logger> spdlogFileLogger(std::string const& path)
{
    auto logger = std::make_unique<spdlog::logger>("bench", std::make_shared<FileSink>(path, true));
    logger->set_formatter(
        std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, std::string()));
    return logger;
}

template <typename FileSink>
void spdlogBench(benchmark::State& state, std::string const& text)
{
    std::string const path = scratchPath("dbg-bench-spdlog.txt");
    std::unique_ptr<spdlog::logger> logger;
    auto open = [&] {
        logger.reset();
        logger = spdlogFileLogger<FileSink>(path);
    };
    open();
    measure(state, text.size(), fileBudget, [&] { logger->info(text); }, open);
    logger.reset();
    std::remove(path.c_str());
}

// --- Four threads tracing into one file --------------------------------------

// Each of the benchmark's threads traces; the first sets the file up before
// the threads start (they meet at the loop) and takes it down after.
void contendedDbgBench(benchmark::State& state, std::string const& text)
{
    std::string const path = scratchPath("dbg-bench-contended.txt");
    if (state.thread_index() == 0)
        DBG_OutManager::instance()->setFileOutput(path);
    DBG_Log const log;
    for (auto _ : state)
        log.trace(text, bench::shortOrigin, bench::traceLine);
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) {
        DBG_OutManager::instance()->setConsoleOutput();
        std::remove(path.c_str());
    }
}

std::unique_ptr<spdlog::logger> contendedLogger;

void contendedSpdlogBench(benchmark::State& state, std::string const& text)
{
    std::string const path = scratchPath("dbg-bench-contended-spdlog.txt");
    if (state.thread_index() == 0)
        contendedLogger = spdlogFileLogger<spdlog::sinks::basic_file_sink_mt>(path);
    for (auto _ : state)
        contendedLogger->info(text);
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) {
        contendedLogger.reset();
        std::remove(path.c_str());
    }
}

void ofstreamWriteBench(benchmark::State& state, std::string const& text)
{
    std::string const path = scratchPath("dbg-bench-ofstream.txt");
    std::ofstream file(path, std::ios::out | std::ios::trunc);
    auto const size = static_cast<std::streamsize>(text.size());
    measure(state, text.size(), fileBudget, [&] { file.write(text.data(), size); },
            [&] {
                file.close();
                file.open(path, std::ios::out | std::ios::trunc);
            });
    file.close();
    std::remove(path.c_str());
}

void fwriteBench(benchmark::State& state, std::string const& text)
{
    std::string const path = scratchPath("dbg-bench-fwrite.txt");
    std::FILE* file = std::fopen(path.c_str(), "w");
    measure(state, text.size(), fileBudget, [&] { std::fwrite(text.data(), 1, text.size(), file); },
            [&] {
                std::fclose(file);
                file = std::fopen(path.c_str(), "w");
            });
    std::fclose(file);
    std::remove(path.c_str());
}

// The IMC sink's floor: write the text into a string stream and take it out
// as a string (rewound after each, as the sink does).
void ostringstreamBench(benchmark::State& state, std::string const& text)
{
    std::ostringstream stream(std::ios::out);
    auto const size = static_cast<std::streamsize>(text.size());
    measure(state, [&] {
        stream.write(text.data(), size);
        std::string taken = stream.str();
        benchmark::DoNotOptimize(taken.data());
        stream.seekp(0);
    });
}

// What the IMC stand-in itself costs per trace (it asks for the manager and
// records the call): this share of an IMC trace is not the library's.
void imcStandInBench(benchmark::State& state, std::string const& text, std::string const& origin)
{
    std::string const handed = text + '\0';
    measure(state, [&] { IMC_Manager::instance(255)->trace(handed, origin, bench::traceLine); });
}

// --- Enumeration insertion and the cause search -----------------------------

template <typename Value>
void sinkInsertionBench(benchmark::State& state, Sink sink, Value value)
{
    std::string const path = scratchPath("dbg-bench-enum.txt");
    std::unique_ptr<DBG_Output> output;
    auto open = [&] {
        output.reset();
        switch (sink) {
        case Sink::Console:
            output = std::make_unique<DBG_Output>();
            break;
        case Sink::File:
            output = std::make_unique<DBG_OutputFile>(path);
            break;
        case Sink::Imc:
            output = std::make_unique<DBG_OutputImc>();
            break;
        }
    };
    open();
    std::size_t const budget = sink == Sink::Imc ? bufferBudget : fileBudget;
    // Bytes per insertion: at most the longest name; exactness does not matter here.
    measure(state, 32, budget, [&] { *output << value; },
            [&] {
                if (sink == Sink::Imc)
                    output->flush(false, bench::shortOrigin, bench::traceLine);
                else
                    open();
            });
    output.reset();
    std::remove(path.c_str());
}

// The manager names the value itself and hands its current sink (here the
// IMC sink, which touches no file) a string.
template <typename Value>
void managerInsertionBench(benchmark::State& state, Value value)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    measure(state, 32, bufferBudget, [&] { *manager << value; },
            [&] { manager->flush(false, bench::shortOrigin, bench::traceLine); });
    manager->setConsoleOutput();
}

// --- hexaDump ----------------------------------------------------------------

std::vector<unsigned char> dumpData(unsigned int length)
{
    std::vector<unsigned char> data(length);
    for (unsigned int i = 0; i < length; ++i)
        data[i] = static_cast<unsigned char>(i * 37 + 11);
    return data;
}

void hexaDumpBench(benchmark::State& state, unsigned int length)
{
    auto const data = dumpData(length);
    if (DBG_Output::hexaDump(data.data(), length) != hexDumpModel(data.data(), length)) {
        state.SkipWithError("hexaDump and the snprintf dump differ");
        return;
    }
    measure(state, [&] {
        std::string dump = DBG_Output::hexaDump(data.data(), length);
        benchmark::DoNotOptimize(dump.data());
    });
}

void snprintfDumpBench(benchmark::State& state, unsigned int length)
{
    auto const data = dumpData(length);
    measure(state, [&] {
        std::string dump = hexDumpModel(data.data(), length);
        benchmark::DoNotOptimize(dump.data());
    });
}

// --- Switching the output ------------------------------------------------------

void switchBench(benchmark::State& state, Sink sink)
{
    std::string const path = scratchPath("dbg-bench-switch.txt");
    measure(state, [&] { selectSink(sink, path); });
    DBG_OutManager::instance()->setConsoleOutput();
    std::remove(path.c_str());
}

// --- DBG_Version on a 100-line configuration ---------------------------------

// DBG_Version reads exactly /current/config.rc: this process reads it in a
// private view of the file system, so the host's /current is never touched.
void versionBench(benchmark::State& state)
{
    CurrentConfigIsolation isolation;
    if (isolation.enter() != CurrentConfigIsolation::Outcome::Entered) {
        state.SkipWithError(("skipped, no private /current: " + isolation.reason()).c_str());
        return;
    }
    {
        // 98 ordinary lines, a TRAXO line, and the voip line last: the whole
        // file is read.
        std::ofstream config("/current/config.rc");
        for (int i = 1; i <= 98; ++i)
            config << "param" << i << " = value of parameter number " << i << "\n";
        config << "TRAXO 01.02\n";
        config << "voip 3.4.5-build7\n";
    }
    if (DBG_Version().m_voipVersion != " 3.4.5-buil") {
        state.SkipWithError("DBG_Version did not read the private /current/config.rc");
        return;
    }
    measure(state, [] {
        DBG_Version version;
        benchmark::DoNotOptimize(version.m_voipVersion.data());
    });
}

// --- Registration ------------------------------------------------------------

template <typename Function>
void add(std::string const& name, Function function)
{
    benchmark::RegisterBenchmark(name.c_str(), function)->Unit(benchmark::kNanosecond);
}

void registerAll()
{
    Sink const sinks[] = {Sink::Console, Sink::File, Sink::Imc};
    for (Sink sink : sinks) {
        std::string const s = sinkName(sink);
        for (std::size_t size : messageSizes) {
            std::string const n = std::to_string(size);
            for (bool percent : {false, true}) {
                std::string const kind = percent ? "percent" : "plain";
                std::string const text = bench::message(size, percent);
                add("trace/" + s + "/" + n + "/" + kind + "/short",
                    [=](benchmark::State& st) { logBench(st, sink, false, text, bench::shortOrigin); });
                if (!percent)
                    add("trace/" + s + "/" + n + "/" + kind + "/long",
                        [=](benchmark::State& st) { logBench(st, sink, false, text, bench::longOrigin); });
                add("error/" + s + "/" + n + "/" + kind + "/short",
                    [=](benchmark::State& st) { logBench(st, sink, true, text, bench::shortOrigin); });
            }
        }
    }
    for (std::size_t size : messageSizes) {
        std::string const n = std::to_string(size);
        std::string const plain = bench::message(size, false);
        std::string const percent = bench::message(size, true);
        add("ref/spdlog/" + n + "/plain",
            [=](benchmark::State& st) { spdlogBench<spdlog::sinks::basic_file_sink_st>(st, plain); });
        add("ref/spdlog/" + n + "/percent",
            [=](benchmark::State& st) { spdlogBench<spdlog::sinks::basic_file_sink_st>(st, percent); });
        add("ref/spdlog_mt/" + n + "/plain",
            [=](benchmark::State& st) { spdlogBench<spdlog::sinks::basic_file_sink_mt>(st, plain); });
        add("ref/ofstream_write/" + n, [=](benchmark::State& st) { ofstreamWriteBench(st, plain); });
        add("ref/fwrite/" + n, [=](benchmark::State& st) { fwriteBench(st, plain); });
        add("ref/ostringstream_str/" + n, [=](benchmark::State& st) { ostringstreamBench(st, plain); });
        add("ref/imc_standin/" + n + "/short",
            [=](benchmark::State& st) { imcStandInBench(st, plain, bench::shortOrigin); });
        add("ref/imc_standin/" + n + "/long",
            [=](benchmark::State& st) { imcStandInBench(st, plain, bench::longOrigin); });
    }
    for (Sink sink : sinks)
        add(std::string("enum/") + sinkName(sink) + "/codec",
            [=](benchmark::State& st) { sinkInsertionBench(st, sink, VCOM_CODEC_G722_2); });
    add("enum/manager/codec", [](benchmark::State& st) { managerInsertionBench(st, VCOM_CODEC_G722_2); });
    add("cause/imc/last_130", [](benchmark::State& st) { sinkInsertionBench(st, Sink::Imc, VCOM_Cause(130)); });
    add("cause/imc/missing_131", [](benchmark::State& st) { sinkInsertionBench(st, Sink::Imc, VCOM_Cause(131)); });
    add("cause/manager/last_130", [](benchmark::State& st) { managerInsertionBench(st, VCOM_Cause(130)); });
    add("cause/manager/missing_131", [](benchmark::State& st) { managerInsertionBench(st, VCOM_Cause(131)); });
    for (unsigned int length : {16u, 256u, 4096u}) {
        std::string const n = std::to_string(length);
        add("hexadump/" + n, [=](benchmark::State& st) { hexaDumpBench(st, length); });
        add("ref/snprintf_hexdump/" + n, [=](benchmark::State& st) { snprintfDumpBench(st, length); });
    }
    for (Sink sink : sinks)
        add(std::string("switch/") + sinkName(sink), [=](benchmark::State& st) { switchBench(st, sink); });
    add("version/100_lines", versionBench);
    // Traces per second of four threads together, wall-clock time: the
    // whole machine's rate, whatever else runs on it.
    std::string const contended = bench::message(64, false);
    benchmark::RegisterBenchmark("contended/dbg/file/64",
                                 [=](benchmark::State& st) { contendedDbgBench(st, contended); })
        ->Threads(4)
        ->UseRealTime();
    benchmark::RegisterBenchmark("contended/spdlog_mt/64",
                                 [=](benchmark::State& st) { contendedSpdlogBench(st, contended); })
        ->Threads(4)
        ->UseRealTime();
}

}  // namespace

int main(int argc, char** argv)
{
    // Before anything is written to it, so that standard output is fully
    // buffered whatever the terminal: the console sink's bytes are discarded.
    std::fflush(stdout);
    int const devNull = open("/dev/null", O_WRONLY);
    if (devNull == -1 || dup2(devNull, STDOUT_FILENO) == -1) {
        std::perror("dbg_bench: /dev/null on standard output");
        return 1;
    }
    close(devNull);

    // An IMC manager that discards what it is given.
    imc_standin::start(0x5A);
    imc_standin::setTraceStream(nullptr);

    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::ConsoleReporter display(benchmark::ConsoleReporter::OO_Tabular);
    display.SetOutputStream(&std::cerr);
    display.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&display);
    benchmark::Shutdown();

    DBG_OutManager::desinstance();
    imc_standin::stop();
    return 0;
}
