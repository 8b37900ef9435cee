// Many threads on the one output: traces from several threads while the
// operator switches the output between files, the console and the IMC
// manager; every trace arrives exactly once and whole. And the IMC manager
// is never called with the output's lock held: a manager that delivers a
// command from inside its own trace, or on another thread while a trace is
// handed to it, or that takes a lock of its own for both, does not hang.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "TestSupport.h"

namespace {

using imc_standin::Operation;
using namespace std::chrono_literals;

constexpr int tracingThreads = 4;

// Fewer traces where every instruction is emulated or instrumented.
int tracesPerThread()
{
    return std::getenv("DBG_TEST_EMULATOR") ? 2000 : 20000;
}

// Runs `scenario` on a thread of its own. Should it not end in time, the
// library hangs: the program says so and ends at once, failed, instead of
// hanging its test run.
void finishesWithin(std::chrono::seconds limit, char const* what, std::function<void()> scenario)
{
    std::packaged_task<void()> task(std::move(scenario));
    std::future<void> done = task.get_future();
    std::thread runner(std::move(task));
    if (done.wait_for(limit) != std::future_status::ready) {
        std::fprintf(stderr, "deadlock: %s did not end within %lld s\n", what,
                     static_cast<long long>(limit.count()));
        std::fflush(stderr);
        std::_Exit(1);
    }
    runner.join();
    done.get();
}

// Trace n of thread t: "<T t n xx…100%>" and a line feed, its length
// varying (the IMC sink keeps the tails of longer traces behind shorter
// ones); every third an error, "<E t n xx…>(why)". A sink receives the
// trace's "%" doubled.
std::string traceText(int thread, int n)
{
    return "<T " + std::to_string(thread) + " " + std::to_string(n) + " " + std::string(std::size_t(n % 7), 'x') +
           "100%>\n";
}

std::string errorText(int thread, int n)
{
    return "<E " + std::to_string(thread) + " " + std::to_string(n) + " " + std::string(std::size_t(n % 5), 'x') + ">";
}

std::string escapedTraceText(int thread, int n)
{
    std::string text = traceText(thread, n);
    text.insert(text.find('%'), "%");
    return text;
}

bool isError(int n)
{
    return n % 3 == 0;
}

// Traces all of thread t's traces; with an allowance, waits while the
// threads together have traced as many as it allows.
void traceAll(int thread, std::atomic<int>* traced, std::atomic<int> const* allowance = nullptr)
{
    DBG_Log const log;
    for (int n = 0; n < tracesPerThread(); ++n) {
        while (allowance && *traced >= *allowance)
            std::this_thread::yield();
        if (isError(n))
            log.error(errorText(thread, n), "why", "o", thread);
        else
            log.trace(traceText(thread, n), "o", thread);
        ++*traced;
    }
}

// Every (thread, number) found, and what could not be read as a whole
// trace.
struct Arrivals {
    std::map<std::pair<int, int>, int> counts;
    std::vector<std::string> garbage;
};

// Reads `text` as whole traces one after another, as the sinks must have
// written them; anything else is garbage, reported with where it stands.
void readTraces(std::string const& where, std::string const& text, Arrivals* arrivals)
{
    std::size_t at = 0;
    while (at < text.size()) {
        int thread = -1;
        int n = -1;
        char kind = 0;
        std::size_t const close = text.find('>', at);
        if (close != std::string::npos && text[at] == '<' &&
            std::sscanf(text.c_str() + at, "<%c %d %d ", &kind, &thread, &n) == 3) {
            std::string const wanted = kind == 'T' ? escapedTraceText(thread, n) : errorText(thread, n) + "(why)";
            if (text.compare(at, wanted.size(), wanted) == 0 && (kind == 'T') != isError(n)) {
                ++arrivals->counts[{thread, n}];
                at += wanted.size();
                continue;
            }
        }
        arrivals->garbage.push_back(where + " at " + std::to_string(at) + ": " +
                                    quoted(text.substr(at, 60)));
        return;
    }
}

// The IMC stand-in writes each trace as "IMC trace o:<thread> <text>\n"
// (errors "IMC ERROR"), the text read up to its NUL.
std::string imcTraceTexts(std::string const& stream, std::vector<std::string>* garbage)
{
    std::string texts;
    std::size_t at = 0;
    while (at < stream.size()) {
        int thread = -1;
        char kind[8] = {};
        int consumed = 0;
        if (std::sscanf(stream.c_str() + at, "IMC %5s o:%d %n", kind, &thread, &consumed) != 2 || consumed == 0) {
            garbage->push_back("IMC stream at " + std::to_string(at) + ": " + quoted(stream.substr(at, 60)));
            break;
        }
        at += std::size_t(consumed);
        bool const trace = std::string(kind) == "trace";
        // A trace's text ends in its own line feed, an error's in ")".
        std::size_t const end = stream.find(trace ? "\n\n" : ")\n", at);
        if (end == std::string::npos) {
            garbage->push_back("IMC stream at " + std::to_string(at) + ": unended");
            break;
        }
        texts += stream.substr(at, end + 1 - at);
        at = end + 2;
    }
    return texts;
}

class ThreadsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        imc_standin::setRecording(false);
        imc_standin::setTraceStream(&imcStream);
        imc_standin::setAnswerHandler([this](std::string const& answer) {
            std::lock_guard<std::mutex> const guard(answersLock);
            answers.push_back(answer);
        });
        manager = DBG_OutManager::instance();
    }
    void TearDown() override
    {
        imc_standin::setAnswerHandler(nullptr);
    }

    // Switches between new files and the console until `count` reaches
    // `total`, naming each file after `prefix` in `files`.
    void switchFilesAndConsoleUntil(std::atomic<int> const& count, int total, std::string const& prefix,
                                    std::vector<std::string>* files)
    {
        for (int k = 0; count < total; ++k) {
            if (k % 2 == 0) {
                files->push_back(scratch->file(prefix + std::to_string(k)));
                manager->setFileOutput(files->back());
            } else {
                manager->setConsoleOutput();
            }
            std::this_thread::sleep_for(100us);
        }
    }

    // A command as the IMC manager delivers it, from any thread.
    void command(std::string const& line) { imc_standin::manager()->receiveCommand(1, line); }

    std::unique_ptr<ScratchDir> scratch = plainScratchDir();
    std::ostringstream imcStream;
    std::mutex answersLock;
    std::vector<std::string> answers;
    ImcSession session;
    DBG_OutManager* manager = nullptr;
};

}  // namespace

TEST_F(ThreadsTest, TracesFromFourThreadsWhileTheOutputSwitchesArriveOnceAndWhole)
{
    std::string console;
    int switches = 0;
    std::vector<std::string> files;
    std::vector<std::string> expectedAnswers;
    {
        CoutCapture capture;
        // The operator's switches go in turn to a file (a new name each
        // time), the console and the IMC manager; the threads trace a
        // share of their traces between two switches, however the two
        // cores are shared.
        int const total = tracingThreads * tracesPerThread();
        int const share = total / 40;
        std::atomic<int> traced{0};
        std::atomic<int> allowance{0};
        std::vector<std::thread> tracers;
        for (int t = 0; t < tracingThreads; ++t)
            tracers.emplace_back(traceAll, t, &traced, &allowance);
        while (traced < total) {
            std::string line;
            switch (switches % 3) {
            case 0:
                files.push_back(scratch->file("trace" + std::to_string(switches)));
                line = "DBG out file " + files.back();
                expectedAnswers.push_back("Debug Output set to file " + files.back() + "\n");
                break;
            case 1:
                line = "DBG out std";
                expectedAnswers.push_back("Debug Output set to console\n");
                break;
            default:
                line = "DBG out imc";
                expectedAnswers.push_back("Debug Output set to IMC\n");
            }
            command(line);
            ++switches;
            allowance += share;
            while (traced < std::min(total, allowance.load()))
                std::this_thread::yield();
        }
        for (std::thread& tracer : tracers)
            tracer.join();
        command("DBG out std");  // closes the last file
        expectedAnswers.push_back("Debug Output set to console\n");
        console = capture.text();
    }
    ASSERT_GE(switches, 40);

    Arrivals arrivals;
    readTraces("console", console, &arrivals);
    for (std::string const& file : files)
        readTraces(file, readFile(file), &arrivals);
    readTraces("IMC", imcTraceTexts(imcStream.str(), &arrivals.garbage), &arrivals);
    EXPECT_EQ(arrivals.garbage, std::vector<std::string>());
    int missing = 0;
    int repeated = 0;
    for (int t = 0; t < tracingThreads; ++t) {
        for (int n = 0; n < tracesPerThread(); ++n) {
            auto const found = arrivals.counts.find({t, n});
            int const count = found == arrivals.counts.end() ? 0 : found->second;
            missing += count == 0;
            repeated += count > 1;
        }
    }
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(repeated, 0);
    EXPECT_EQ(answers, expectedAnswers);
}

// A module's own switches between the IMC manager and the console, made
// straight on the manager while four threads trace: every trace once and
// whole.
TEST_F(ThreadsTest, DirectSwitchesBetweenImcAndConsoleWhileFourThreadsTrace)
{
    std::string console;
    {
        CoutCapture capture;
        std::atomic<int> traced{0};
        std::vector<std::thread> tracers;
        for (int t = 0; t < tracingThreads; ++t)
            tracers.emplace_back([t, &traced] { traceAll(t, &traced); });
        for (int k = 0; traced < tracingThreads * tracesPerThread(); ++k) {
            if (k % 2 == 0)
                manager->setImcOutput();
            else
                manager->setConsoleOutput();
            std::this_thread::sleep_for(50us);
        }
        for (std::thread& tracer : tracers)
            tracer.join();
        manager->setConsoleOutput();
        console = capture.text();
    }
    Arrivals arrivals;
    readTraces("console", console, &arrivals);
    readTraces("IMC", imcTraceTexts(imcStream.str(), &arrivals.garbage), &arrivals);
    EXPECT_EQ(arrivals.garbage, std::vector<std::string>());
    EXPECT_EQ(arrivals.counts.size(), std::size_t(tracingThreads * tracesPerThread()));
    for (auto const& arrival : arrivals.counts)
        EXPECT_EQ(arrival.second, 1) << "trace " << arrival.first.first << " " << arrival.first.second;
}

TEST_F(ThreadsTest, TwoThreadsTracingIntoOneFileLeaveEveryTraceWhole)
{
    std::string const file = scratch->file("both.trace");
    manager->setFileOutput(file);
    std::atomic<int> traced{0};
    std::thread first([&traced] { traceAll(0, &traced); });
    std::thread second([&traced] { traceAll(1, &traced); });
    first.join();
    second.join();
    manager->setConsoleOutput();

    Arrivals arrivals;
    readTraces(file, readFile(file), &arrivals);
    EXPECT_EQ(arrivals.garbage, std::vector<std::string>());
    EXPECT_EQ(arrivals.counts.size(), std::size_t(2 * tracesPerThread()));
}

// A module's own insertions into the manager: each whole, while another
// thread switches between two files and the console.
TEST_F(ThreadsTest, DirectInsertionsAreWholeCallByCallWhileTheOutputSwitches)
{
    std::vector<std::string> files;
    std::string console;
    {
        CoutCapture capture;
        std::atomic<int> inserted{0};
        std::vector<std::thread> writers;
        for (int t = 0; t < tracingThreads; ++t) {
            writers.emplace_back([this, t, &inserted] {
                for (int k = 0; k < tracesPerThread() / 3; ++k) {
                    *manager << escapedTraceText(t, 3 * k + 1);
                    ++inserted;
                }
            });
        }
        switchFilesAndConsoleUntil(inserted, tracingThreads * (tracesPerThread() / 3), "direct", &files);
        for (std::thread& writer : writers)
            writer.join();
        manager->setConsoleOutput();
        console = capture.text();
    }
    Arrivals arrivals;
    readTraces("console", console, &arrivals);
    for (std::string const& file : files)
        readTraces(file, readFile(file), &arrivals);
    EXPECT_EQ(arrivals.garbage, std::vector<std::string>());
    EXPECT_EQ(arrivals.counts.size(), std::size_t(tracingThreads * (tracesPerThread() / 3)));
}

// The first instance() from many threads at once, twenty times over: one
// manager for all, and one observer left registered, answering each
// command once.
TEST_F(ThreadsTest, ConcurrentFirstCallsOfInstanceShareOneManager)
{
    constexpr int callers = 8;
    for (int round = 0; round < 20; ++round) {
        DBG_OutManager::desinstance();
        answers.clear();
        std::atomic<bool> go{false};
        std::vector<DBG_OutManager*> managers(callers, nullptr);
        std::vector<std::thread> threads;
        for (int i = 0; i < callers; ++i) {
            threads.emplace_back([&, i] {
                while (!go)
                    std::this_thread::yield();
                managers[std::size_t(i)] = DBG_OutManager::instance();
            });
        }
        go = true;
        for (std::thread& thread : threads)
            thread.join();
        for (DBG_OutManager* each : managers)
            ASSERT_EQ(each, managers[0]) << "round " << round;
        ASSERT_NE(managers[0], nullptr);
        EXPECT_NE(managers[0]->pCmdObserver, nullptr);
        command("DBG out");
        ASSERT_EQ(answers, (std::vector<std::string>{"Debug Output set to console\n"})) << "round " << round;
    }
}

// The IMC manager is missing at every tenth trace a thread hands over
// while four threads trace: each failed text goes back (and out joined to
// a later trace) or is dropped, never twice, and every other trace arrives
// once.
TEST_F(ThreadsTest, FailedHandOversAmongFourTracingThreadsLoseNoOtherTrace)
{
    imc_standin::react(Operation::Instance, [] {
        thread_local int handedOver = 0;
        if (++handedOver % 10 == 0)
            throw std::runtime_error("the IMC manager failed");
    });
    manager->setImcOutput();
    std::vector<std::vector<int>> failed(tracingThreads);
    std::vector<std::thread> tracers;
    for (int t = 0; t < tracingThreads; ++t) {
        tracers.emplace_back([t, &failed] {
            DBG_Log const log;
            for (int n = 1; n < tracesPerThread(); n += 3) {
                try {
                    log.trace(traceText(t, n), "o", t);
                } catch (std::runtime_error const&) {
                    failed[std::size_t(t)].push_back(n);
                }
            }
        });
    }
    for (std::thread& tracer : tracers)
        tracer.join();
    imc_standin::react(Operation::Instance, nullptr);
    manager->setConsoleOutput();

    Arrivals arrivals;
    readTraces("IMC", imcTraceTexts(imcStream.str(), &arrivals.garbage), &arrivals);
    EXPECT_EQ(arrivals.garbage, std::vector<std::string>());
    int failures = 0;
    for (int t = 0; t < tracingThreads; ++t) {
        for (int n = 1; n < tracesPerThread(); n += 3) {
            auto const found = arrivals.counts.find({t, n});
            int const count = found == arrivals.counts.end() ? 0 : found->second;
            bool const failedOne = std::find(failed[std::size_t(t)].begin(), failed[std::size_t(t)].end(), n) !=
                                   failed[std::size_t(t)].end();
            failures += failedOne;
            if (failedOne)
                EXPECT_LE(count, 1) << "trace " << t << " " << n;
            else
                EXPECT_EQ(count, 1) << "trace " << t << " " << n;
        }
    }
    EXPECT_GT(failures, 0);
}

// Two managers built at once, made certain: while the first call builds
// (registering its commands), another thread's first call builds and
// stores its own. The first builder then finds it and destroys its own.
TEST_F(ThreadsTest, AManagerBuiltWhileAnotherWasStoredIsDestroyedAndTheStoredOneKept)
{
    DBG_OutManager::desinstance();
    DBG_OutManager* second = nullptr;
    std::atomic<bool> raced{false};
    imc_standin::react(Operation::Registration, [&] {
        if (!raced.exchange(true))
            std::thread([&second] { second = DBG_OutManager::instance(); }).join();
    });
    imc_standin::setRecording(true);
    DBG_OutManager* const first = DBG_OutManager::instance();
    imc_standin::react(Operation::Registration, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(DBG_OutManager::instance(), second);
    // Both built observers registered; the one destroyed unregistered.
    EXPECT_EQ(callsOf(Operation::Registration).size(), 4u);
    EXPECT_EQ(callsOf(Operation::Unregistration).size(), 2u);
    command("DBG out");
    EXPECT_EQ(answers, (std::vector<std::string>{"Debug Output set to console\n"}));
}

TEST_F(ThreadsTest, ACommandDeliveredFromInsideTheImcTraceSwitchesTheOutput)
{
    std::string const file = scratch->file("switched.trace");
    std::atomic<bool> delivered{false};
    imc_standin::react(Operation::Trace, [&] {
        if (!delivered.exchange(true))
            command("DBG out file " + file);
    });
    manager->setImcOutput();
    finishesWithin(20s, "a trace whose IMC manager switches the output from inside trace()", [] {
        DBG_Log().trace("to IMC\n", "o", 1);
        DBG_Log().trace("to the file\n", "o", 2);
    });
    imc_standin::react(Operation::Trace, nullptr);
    manager->setConsoleOutput();
    EXPECT_EQ(imcStream.str(), "IMC trace o:1 to IMC\n\n");
    EXPECT_EQ(readFile(file), "to the file\n");
    EXPECT_EQ(answers, (std::vector<std::string>{"Debug Output set to file " + file + "\n"}));
}

TEST_F(ThreadsTest, ACommandOnAnotherThreadWhileATraceIsHandedToImcIsCarriedOut)
{
    std::atomic<bool> delivered{false};
    // The IMC manager's trace waits until a command it delivers on another
    // thread is done.
    imc_standin::react(Operation::Trace, [&] {
        if (!delivered.exchange(true))
            std::thread([this] { command("DBG out std"); }).join();
    });
    manager->setImcOutput();
    finishesWithin(20s, "a command on another thread while a trace is handed to the IMC manager",
                   [] { DBG_Log().trace("handed over\n", "o", 3); });
    imc_standin::react(Operation::Trace, nullptr);
    EXPECT_EQ(imcStream.str(), "IMC trace o:3 handed over\n\n");
    EXPECT_EQ(answers, (std::vector<std::string>{"Debug Output set to console\n"}));
    EXPECT_EQ(std::string(*manager->pOutput), "console");
}

// A manager with a lock of its own, taken while it delivers a command and
// while it takes a trace: switches to IMC and back while four threads
// trace do not hang.
TEST_F(ThreadsTest, SwitchesToImcUnderTrafficDoNotHangAManagerThatLocksItself)
{
    std::mutex managersOwnLock;
    imc_standin::react(Operation::Trace, [&] { std::lock_guard<std::mutex> const guard(managersOwnLock); });
    imc_standin::react(Operation::Error, [&] { std::lock_guard<std::mutex> const guard(managersOwnLock); });
    int commands = 0;
    finishesWithin(60s, "switches to IMC under traffic", [&] {
        CoutCapture capture;
        std::atomic<int> traced{0};
        std::vector<std::thread> tracers;
        for (int t = 0; t < tracingThreads; ++t)
            tracers.emplace_back([t, &traced] { traceAll(t, &traced); });
        for (int k = 0; traced < tracingThreads * tracesPerThread(); ++k) {
            std::lock_guard<std::mutex> const guard(managersOwnLock);
            command(k % 2 == 0 ? "DBG out imc" : "DBG out std");
            ++commands;
        }
        for (std::thread& tracer : tracers)
            tracer.join();
    });
    imc_standin::clearFaults();
    EXPECT_EQ(answers.size(), std::size_t(commands));
}

// A module's own int and character insertions from four threads while the
// output switches between files and the console: every one arrives.
TEST_F(ThreadsTest, IntAndCharacterInsertionsFromManyThreadsAllArrive)
{
    std::vector<std::string> files;
    std::string console;
    constexpr int each = 2000;
    {
        CoutCapture capture;
        std::atomic<int> inserted{0};
        std::vector<std::thread> writers;
        for (int t = 0; t < tracingThreads; ++t) {
            writers.emplace_back([this, &inserted] {
                for (int n = 0; n < each; ++n) {
                    *manager << 7;
                    *manager << static_cast<unsigned char>('x');
                    ++inserted;
                }
            });
        }
        switchFilesAndConsoleUntil(inserted, tracingThreads * each, "numbers", &files);
        for (std::thread& writer : writers)
            writer.join();
        manager->setConsoleOutput();
        console = capture.text();
    }
    std::string all = console;
    for (std::string const& file : files)
        all += readFile(file);
    EXPECT_EQ(std::count(all.begin(), all.end(), '7'), tracingThreads * each);
    EXPECT_EQ(std::count(all.begin(), all.end(), 'x'), tracingThreads * each);
    EXPECT_EQ(all.size(), std::size_t(2 * tracingThreads * each));
}
