// Allocation failures: the output manager when building the new sink
// fails (the old sink is gone already, so the console takes over and the
// failure passes on), and the IMC sink when its buffer cannot grow. This
// program replaces the global allocator to make one allocation fail.
#include <cstdlib>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputImc.h"
#include "TestSupport.h"

namespace {
int allocationsToFail = 0;
long liveAllocations = 0;  // made by operator new and not deleted yet
long allocationsMade = 0;
}

void* operator new(std::size_t size)
{
    if (allocationsToFail > 0) {
        --allocationsToFail;
        throw std::bad_alloc();
    }
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

// The escaping of "%" keeps the thread's buffer from one trace to the next:
// once it is sized, a trace with "%" allocates nothing.
TEST_F(OutManagerAllocation, PercentTraceAllocatesNothingOnceTheBufferIsSized)
{
    DBG_Log const log;
    DBG_OutManager::instance()->setFileOutput(scratch.file("percent.trace"));
    std::string const text("100% of the trunks, 42% busy");
    // Made beforehand: in the older std::string ABI every non-empty string
    // made from a literal allocates.
    std::string const origin("o");
    log.trace(text, origin, 1);
    long const before = allocationsMade;
    log.trace(text, origin, 2);
    EXPECT_EQ(allocationsMade, before);
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
