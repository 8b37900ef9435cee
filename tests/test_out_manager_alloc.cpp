// Allocation failures: the output manager when building the new sink
// fails (the old sink is gone already, so the console takes over and the
// failure passes on), the IMC sink when its buffer cannot grow, hexaDump
// when its result cannot be made; and what a trace allocates and keeps.
// This program replaces the global allocator to make allocations fail,
// and hears of every object registered for destruction at exit.
#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputImc.h"
#include "TestSupport.h"

// The replaced operator delete frees with free() what operator new took
// with malloc(); once both are inlined into a caller, g++'s optimiser
// pairs the caller's new with that free() and warns.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {
int allocationsToFail = 0;
std::size_t allocationLimit = SIZE_MAX;  // larger allocations fail
long liveAllocations = 0;  // made by operator new and not deleted yet
long allocationsMade = 0;
}

void* operator new(std::size_t size)
{
    if (allocationsToFail > 0) {
        --allocationsToFail;
        throw std::bad_alloc();
    }
    if (size > allocationLimit)
        throw std::bad_alloc();
    if (void* memory = std::malloc(size ? size : 1)) {
        ++liveAllocations;
        ++allocationsMade;
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    if (memory)
        --liveAllocations;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

namespace {
// Every object registered for destruction at exit, the library's included
// (its calls find this program's __cxa_atexit), in a fixed array: the
// first come before the allocator and the program are set up.
void* exitDestroyed[1024];
int exitDestroyedCount = 0;

bool traceAtExit = false;

// Runs after every exit-time destructor of the library: registered by a
// pre-initialisation function, before the library is initialised.
void traceAfterTheLibrary()
{
    if (!traceAtExit)
        return;
    std::cout.rdbuf(std::cerr.rdbuf());  // where the death test reads
    *DBG_OutManager::instance() << std::string("traced after the library's exit-time destructors\n");
}

void registerBeforeTheLibrary(int, char**, char**)
{
    std::atexit(traceAfterTheLibrary);
}

__attribute__((section(".preinit_array"), used)) void (*const preinit)(int, char**, char**) = registerBeforeTheLibrary;
}  // namespace

extern "C" int __cxa_atexit(void (*destructor)(void*), void* object, void* dso)
{
    using Register = int (*)(void (*)(void*), void*, void*);
    static Register const registerForExit = reinterpret_cast<Register>(dlsym(RTLD_NEXT, "__cxa_atexit"));
    if (exitDestroyedCount < int(sizeof exitDestroyed / sizeof exitDestroyed[0]))
        exitDestroyed[exitDestroyedCount++] = object;
    return registerForExit(destructor, object, dso);
}

class OutManagerAllocation : public ::testing::Test {
protected:
    ImcSession session;
    ScratchDir scratch;

    static std::string currentName()
    {
        return *DBG_OutManager::instance()->pOutput;
    }
};

TEST_F(OutManagerAllocation, FailingImcSinkLeavesTheConsole)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setFileOutput(scratch.file("before.trace"));
    allocationsToFail = 1;
    EXPECT_THROW(manager->setImcOutput(), std::bad_alloc);
    EXPECT_EQ(currentName(), "console");
    CoutCapture capture;
    *manager << std::string("still ") << 1;
    EXPECT_EQ(capture.text(), "still 1");
}

// Not even a console sink can be allocated: the manager still holds a
// console that writes, the failure passes on, and the next switch works.
TEST_F(OutManagerAllocation, SwitchWithoutAnyMemoryStillLeavesAUsableConsole)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setFileOutput(scratch.file("before.trace"));
    std::string const after = scratch.file("after.trace");
    allocationsToFail = 2;  // the file sink, and a console to take over
    EXPECT_THROW(manager->setFileOutput(after), std::bad_alloc);
    allocationsToFail = 0;
    ASSERT_NE(manager->pOutput, nullptr);
    EXPECT_EQ(currentName(), "console");
    {
        CoutCapture capture;
        *manager << std::string("still ") << 1;
        manager->flush(false, "o", 1);
        EXPECT_EQ(capture.text(), "still 1");
    }
    manager->setImcOutput();
    EXPECT_EQ(currentName(), "IMC");
}

TEST_F(OutManagerAllocation, FailingConsoleSinkStillLeavesAUsableConsole)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    allocationsToFail = 2;  // the console sink, and another to take over
    EXPECT_THROW(manager->setConsoleOutput(), std::bad_alloc);
    allocationsToFail = 0;
    ASSERT_NE(manager->pOutput, nullptr);
    EXPECT_EQ(currentName(), "console");
    CoutCapture capture;
    *manager << 7;
    EXPECT_EQ(capture.text(), "7");
}

// The console that takes over is never destroyed: a module may trace
// from its own static destructors, after the library's have run.
TEST_F(OutManagerAllocation, TheConsoleThatTakesOverIsNeverDestroyedAtExit)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    allocationsToFail = 2;
    EXPECT_THROW(manager->setConsoleOutput(), std::bad_alloc);
    allocationsToFail = 0;
    void* const console = manager->pOutput;
    EXPECT_EQ(std::find(exitDestroyed, exitDestroyed + exitDestroyedCount, console),
              exitDestroyed + exitDestroyedCount)
        << "the console of last resort is registered for destruction at exit";
}

TEST_F(OutManagerAllocation, TheConsoleThatTakesOverStillWritesAfterTheLibrarysExitTimeDestructors)
{
    EXPECT_EXIT(
        {
            DBG_OutManager* manager = DBG_OutManager::instance();
            allocationsToFail = 2;
            try {
                manager->setConsoleOutput();
            } catch (std::bad_alloc const&) {
            }
            allocationsToFail = 0;
            traceAtExit = true;
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^traced after the library's exit-time destructors\n$");
}

TEST_F(OutManagerAllocation, FailingFileSinkLeavesTheConsoleAndClosesTheOldFile)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    std::string const before = scratch.file("before.trace");
    manager->setFileOutput(before);
    *manager << std::string("kept");
    std::string const after = scratch.file("after.trace");
    allocationsToFail = 1;
    EXPECT_THROW(manager->setFileOutput(after), std::bad_alloc);
    EXPECT_EQ(currentName(), "console");
    EXPECT_EQ(readFile(before), "kept");
    EXPECT_FALSE(fileExists(after));
}

// The maker's manager may throw what it likes from a registration: the
// output manager passes it on and keeps nothing it had made.
TEST_F(OutManagerAllocation, ForeignExceptionFromTheRegistrationLeavesNothingAllocated)
{
    imc_standin::setRecording(false);
    imc_standin::injectFault(imc_standin::Operation::Registration, imc_standin::Fault::ForeignException, 1);
    long const before = liveAllocations;
    EXPECT_THROW(DBG_OutManager::instance(), imc_standin::NonStandardFault);
    EXPECT_EQ(liveAllocations, before);
}

// A flush whose trace throws ends there: the buffer is neither made good
// again nor rewound, so after a failed write the next text is discarded.
TEST_F(OutManagerAllocation, ImcSinkStaysFailedWhenTheTraceThrows)
{
    DBG_OutputImc sink;
    std::string const large(4096, 'x');
    std::string const lost("lost");
    allocationsToFail = 1;
    sink << large;  // the buffer must grow for it, and cannot
    ASSERT_EQ(allocationsToFail, 0) << "the write did not allocate";
    imc_standin::injectFault(imc_standin::Operation::Trace, imc_standin::Fault::RuntimeError, 1);
    EXPECT_THROW(sink.flush(false, "first", 1), std::runtime_error);
    sink << lost;
    imc_standin::clearCalls();
    sink.flush(false, "second", 2);
    std::vector<imc_standin::Call> const traces = callsOf(imc_standin::Operation::Trace);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(traces[0].text.find("lost"), std::string::npos);
}

// A trace with "%" allocates its escaped copy, once: sized for the text and
// its added signs, it never grows. One without "%" goes in as it is.
TEST_F(OutManagerAllocation, PercentTraceAllocatesItsEscapedCopyOnceAndAPlainTraceNothing)
{
    DBG_Log const log;
    DBG_OutManager::instance()->setFileOutput(scratch.file("percent.trace"));
    // 64 bytes with four signs: longer than a string's own buffer, and the
    // signs do not fit in room made for the text alone.
    std::string const text("call 42: 100% of the trunks, 42% busy, 3% lost, 0% idle, bye...\n");
    ASSERT_EQ(text.size(), 64u);
    std::string const plain("call 42: 100 of the trunks, 42 busy, 3 lost, 0 idle, and bye...\n");
    ASSERT_EQ(plain.size(), 64u);
    // Made beforehand: in the older std::string ABI every non-empty string
    // made from a literal allocates.
    std::string const origin("o");
    log.trace(text, origin, 1);
    long before = allocationsMade;
    log.trace(text, origin, 2);
    EXPECT_EQ(allocationsMade - before, 1);
    before = allocationsMade;
    log.trace(plain, origin, 3);
    EXPECT_EQ(allocationsMade, before);
}

// Nothing of a "%" trace outlives it: a thread that lives on keeps no
// memory of a large text it traced.
TEST_F(OutManagerAllocation, PercentTraceLeavesNothingHeldByAThreadThatLivesOn)
{
    DBG_Log const log;
    DBG_OutManager::instance()->setFileOutput(scratch.file("large.trace"));
    std::string const large = std::string(1 << 20, 'x') + "%\n";
    std::string const origin("o");
    long held = -1;
    std::thread([&] {
        long const before = liveAllocations;
        log.trace(large, origin, 1);
        held = liveAllocations - before;
    }).join();
    EXPECT_EQ(held, 0);
}

namespace {
struct LastWords {
    DBG_Log const* log;
    std::string const* text;
};
}  // namespace

// A thread's first "%" trace made from a thread-specific-data destructor,
// after its thread_local objects are gone: nothing is left behind.
TEST_F(OutManagerAllocation, PercentTraceFromAThreadsLastDestructorLeavesNothingBehind)
{
    DBG_Log const log;
    DBG_OutManager::instance()->setFileOutput(scratch.file("last.trace"));
    std::string const text = std::string(40, 'z') + "%\n";
    LastWords words{&log, &text};
    pthread_key_t key;
    ASSERT_EQ(pthread_key_create(&key,
                                 [](void* value) {
                                     LastWords const* last = static_cast<LastWords const*>(value);
                                     last->log->trace(*last->text, "end", 1);
                                 }),
              0);
    long const before = liveAllocations;
    std::thread([&] { pthread_setspecific(key, &words); }).join();
    EXPECT_EQ(liveAllocations, before);
    pthread_key_delete(key);
    DBG_OutManager::desinstance();
    std::string const expected = std::string(40, 'z') + "%%\n";
    EXPECT_EQ(readFile(scratch.file("last.trace")), expected);
}

// The parentheses around an error's detail are not made anew for each
// error: in the older std::string ABI each would allocate.
TEST_F(OutManagerAllocation, ErrorAllocatesNothingAfterTheFirst)
{
    DBG_Log const log;
    DBG_OutManager::instance()->setFileOutput(scratch.file("error.trace"));
    std::string const text("no route to 0612345678 ");
    std::string const detail("trunk 3");
    std::string const origin("o");
    log.error(text, detail, origin, 1);
    long const before = allocationsMade;
    log.error(text, detail, origin, 2);
    EXPECT_EQ(allocationsMade, before);
}

// A write into the IMC sink's buffer that fails leaves the stream bad; the
// flush makes it good again, so the next trace arrives whole.
TEST_F(OutManagerAllocation, ImcSinkIsWritableAgainAfterAFailedWriteAndAFlush)
{
    DBG_OutputImc sink;
    std::string const large(4096, 'x');
    allocationsToFail = 1;
    sink << large;  // the buffer must grow for it, and cannot
    ASSERT_EQ(allocationsToFail, 0) << "the write did not allocate";
    sink.flush(false, "first", 1);
    imc_standin::clearCalls();
    sink << std::string("whole");
    sink.flush(false, "second", 2);
    std::vector<imc_standin::Call> const traces = callsOf(imc_standin::Operation::Trace);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(traces[0].text.substr(0, 6), std::string("whole\0", 6));
    EXPECT_EQ(traces[0].origin, "second");
}

namespace {

// The largest length whose dump, 3 * length + length / 8 characters, a
// std::string can hold: every unsigned int on 64 bits; on 32 bits far less
// (the string's max_size, and the 32-bit size_t wraps from about 1.43 G).
unsigned int largestDumpableLength()
{
    unsigned long long const limit = std::string().max_size();
    auto const dumpSize = [](unsigned long long length) { return 3 * length + length / 8; };
    if (dumpSize(UINT_MAX) <= limit)
        return UINT_MAX;
    // About 8 / 25 of the limit (3 + 1/8 characters a byte), then exactly.
    unsigned long long length = limit / 25 * 8;
    while (dumpSize(length + 1) <= limit)
        ++length;
    return static_cast<unsigned int>(length);
}

}  // namespace

// The largest representable length is not refused: hexaDump goes on to
// make its result (whose allocation fails here, before any byte is read).
TEST_F(OutManagerAllocation, HexaDumpAttemptsTheLargestRepresentableLength)
{
    unsigned char const byte = 0x5A;
    allocationLimit = 1 << 20;
    EXPECT_THROW(DBG_Output::hexaDump(&byte, largestDumpableLength()), std::bad_alloc);
    allocationLimit = SIZE_MAX;
}

// A length past it is refused with std::length_error before the dump is
// allocated or a byte read: one past the limit, and the largest of all,
// whose size wraps in a 32-bit size_t. On 64 bits there is no such length
// (the assertion says so); this test bites on the 32-bit board's build.
TEST_F(OutManagerAllocation, HexaDumpRefusesALengthPastTheLimitBeforeReadingAByte)
{
    unsigned char const byte = 0x5A;
    unsigned int const largest = largestDumpableLength();
    if (sizeof(std::size_t) > 4) {
        EXPECT_EQ(largest, UINT_MAX) << "every unsigned int length is representable with a 64-bit size_t";
        return;
    }
    ASSERT_LT(largest, UINT_MAX);
    allocationLimit = 1 << 20;  // a dump allocated (short) would fail, not be written
    EXPECT_THROW(DBG_Output::hexaDump(&byte, largest + 1), std::length_error);
    EXPECT_THROW(DBG_Output::hexaDump(&byte, UINT_MAX), std::length_error);
    allocationLimit = SIZE_MAX;
}
