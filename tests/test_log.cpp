// DBG_Log: percent escaping, the insertions and the flush it makes on the
// output manager, the IMC integer it designates, and date().
#include <ctime>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "ImcProbe.h"
#include "TestSupport.h"

namespace {

using imc_standin::Call;
using imc_standin::Operation;
using Events = std::vector<std::string>;

// Puts a RecordingSink in place of the manager's current sink.
void recordOutput(Events* events)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    delete manager->pOutput;
    manager->pOutput = new RecordingSink(events);
}

// Destroys the output manager at the end of a test that runs without the
// IMC stand-in (ImcSession does it otherwise).
struct OutManagerCleanup {
    ~OutManagerCleanup() { DBG_OutManager::desinstance(); }
};

// Fixture: the stand-in runs, the manager's sink records. `events` lives
// longer than the session, which destroys the sink.
class LogTest : public ::testing::Test {
protected:
    void SetUp() override { recordOutput(&events); }

    Events events;
    ImcSession session;
};

}  // namespace

TEST_F(LogTest, TraceDoublesThePercentSignAndFlushesAsATrace)
{
    DBG_Log const log;
    log.trace("50% done", "x", 7);
    EXPECT_EQ(events, (Events{"text:50%% done", "flush:0:x:7"}));
}

TEST_F(LogTest, TraceOfASinglePercentSignInsertsTwo)
{
    DBG_Log const log;
    log.trace("%", "origin", 0);
    EXPECT_EQ(events, (Events{"text:%%", "flush:0:origin:0"}));
}

TEST_F(LogTest, TraceOfTwoPercentSignsInsertsFour)
{
    DBG_Log const log;
    log.trace("%%", "o", 2);
    EXPECT_EQ(events, (Events{"text:%%%%", "flush:0:o:2"}));
}

TEST_F(LogTest, PercentSignsAtStartEndAndSideBySide)
{
    DBG_Log const log;
    log.trace("%a%%b%%%c%", "o", 3);
    log.trace("%%%x", "o", 4);
    log.trace("x%%%", "o", 5);
    EXPECT_EQ(events, (Events{"text:%%a%%%%b%%%%%%c%%", "flush:0:o:3", "text:%%%%%%x", "flush:0:o:4",
                              "text:x%%%%%%", "flush:0:o:5"}));
}

TEST_F(LogTest, EachTextIsEscapedAloneWhateverCameBefore)
{
    std::string const longer = std::string(300, 'a') + "%" + std::string(300, 'b');
    DBG_Log const log;
    log.trace(longer, "o", 1);
    log.trace("x%", "o", 2);
    log.error("%", "%", "o", 3);
    log.trace("%y", "o", 4);
    EXPECT_EQ(events, (Events{"text:" + std::string(300, 'a') + "%%" + std::string(300, 'b'), "flush:0:o:1",
                              "text:x%%", "flush:0:o:2", "text:%%", "text:(", "text:%", "text:)",
                              "flush:1:o:3", "text:%%y", "flush:0:o:4"}));
}

TEST_F(LogTest, ATraceFromTheLastDestructorsOfAThreadIsStillEscaped)
{
    std::string const first = std::string(40, 'a') + "%";
    std::string const last = std::string(40, 'b') + "%";
    struct TracesWhenDestroyed {
        DBG_Log const& log;
        std::string const& text;
        ~TracesWhenDestroyed()
        {
            log.trace(text, "end", 2);
            log.trace("no sign", "end", 3);  // and one without "%" goes in as it is
        }
    };
    DBG_Log const log;
    std::thread([&] {
        // Destroyed at the thread's end, among its last destructors.
        thread_local TracesWhenDestroyed const lastWords{log, last};
        log.trace(first, "start", 1);
    }).join();
    EXPECT_EQ(events, (Events{"text:" + std::string(40, 'a') + "%%", "flush:0:start:1",
                              "text:" + std::string(40, 'b') + "%%", "flush:0:end:2", "text:no sign",
                              "flush:0:end:3"}));
}

TEST_F(LogTest, EmptyTraceInsertsAnEmptyTextAndStillFlushes)
{
    DBG_Log const log;
    log.trace("", "empty", -1);
    EXPECT_EQ(events, (Events{"text:", "flush:0:empty:-1"}));
}

TEST_F(LogTest, TraceLeavesEveryOtherByteValueAlone)
{
    std::string text;
    std::string expected;
    for (int value = 0; value < 256; ++value) {
        char const byte = static_cast<char>(value);
        text += byte;
        expected += byte;
        if (byte == '%')
            expected += '%';
    }
    ASSERT_EQ(text.size(), 256u);
    ASSERT_EQ(expected.size(), 257u);

    DBG_Log const log;
    log.trace(text, "bytes", 256);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0], "text:" + expected);
    EXPECT_EQ(events[1], "flush:0:bytes:256");
}

TEST_F(LogTest, OriginAndLineArePassedThroughUnchanged)
{
    DBG_Log const log;
    log.trace("t", "50% of origin", 2147483647);
    log.error("e", "d", "", -2147483647 - 1);
    EXPECT_EQ(events, (Events{"text:t", "flush:0:50% of origin:2147483647", "text:e", "text:(", "text:d",
                              "text:)", "flush:1::-2147483648"}));
}

TEST_F(LogTest, ErrorEscapesTheTextButNotTheDetail)
{
    DBG_Log const log;
    log.error("a%b", "c%d", "x", 1);
    EXPECT_EQ(events, (Events{"text:a%%b", "text:(", "text:c%d", "text:)", "flush:1:x:1"}));
}

TEST_F(LogTest, ErrorWithAnEmptyDetailStillWritesTheParentheses)
{
    DBG_Log const log;
    log.error("no detail", "", "y", 9);
    EXPECT_EQ(events, (Events{"text:no detail", "text:(", "text:", "text:)", "flush:1:y:9"}));
}

TEST_F(LogTest, ErrorWithEmptyTextAndDetail)
{
    DBG_Log const log;
    log.error("", "", "z", 0);
    EXPECT_EQ(events, (Events{"text:", "text:(", "text:", "text:)", "flush:1:z:0"}));
}

TEST_F(LogTest, LoggerKeepsTheOutputManagerAndFollowsASwitchOfSink)
{
    DBG_Log const log;
    EXPECT_EQ(log.m_out, DBG_OutManager::instance());
    log.trace("first", "a", 1);
    Events second;
    recordOutput(&second);  // the first sink is destroyed here
    log.trace("second", "b", 2);
    EXPECT_EQ(events, (Events{"text:first", "flush:0:a:1", "destroyed"}));
    EXPECT_EQ(second, (Events{"text:second", "flush:0:b:2"}));
    DBG_OutManager::desinstance();  // while `second` still lives
    EXPECT_EQ(second.back(), "destroyed");
}

TEST_F(LogTest, SeveralLoggersShareTheOneManager)
{
    DBG_Log const first;
    DBG_Log const second;
    EXPECT_EQ(first.m_out, second.m_out);
    first.trace("1", "a", 1);
    second.error("2", "%", "b", 2);
    EXPECT_EQ(events, (Events{"text:1", "flush:0:a:1", "text:2", "text:(", "text:%", "text:)", "flush:1:b:2"}));
}

TEST(LogFile, ErrorReachesAFileAsTextAndDetailInParentheses)
{
    ScratchDir scratch;
    ImcSession session;
    std::string const name = scratch.file("errors.txt");
    DBG_OutManager::instance()->setFileOutput(name);
    {
        DBG_Log const log;
        log.error("open failed", "ENOENT", "file.cpp", 12);
    }
    DBG_OutManager::instance()->setConsoleOutput();  // closes the file
    EXPECT_EQ(readFile(name), "open failed(ENOENT)");
}

TEST(LogFile, TracesFollowEachOtherWithoutSeparator)
{
    ScratchDir scratch;
    ImcSession session;
    std::string const name = scratch.file("traces.txt");
    DBG_OutManager::instance()->setFileOutput(name);
    {
        DBG_Log const log;
        log.trace("100%", "a", 1);
        log.trace("", "a", 2);
        log.error("x", "y%", "a", 3);
    }
    DBG_OutManager::instance()->setConsoleOutput();
    EXPECT_EQ(readFile(name), "100%%x(y%)");
}

TEST(LogImc, TraceReachesTheManagersTraceWithItsTerminatingNul)
{
    ImcSession session;
    DBG_OutManager::instance()->setImcOutput();
    DBG_Log const log;
    imc_standin::clearCalls();
    log.trace("50% done", "x", 7);

    std::vector<Call> const traces = callsOf(Operation::Trace);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(traces[0].text, std::string("50%% done\0", 10));
    EXPECT_EQ(traces[0].origin, "x");
    EXPECT_EQ(traces[0].number, 7);
    EXPECT_TRUE(callsOf(Operation::Error).empty());
}

TEST(LogImc, ErrorReachesTheManagersError)
{
    ImcSession session;
    DBG_OutManager::instance()->setImcOutput();
    DBG_Log const log;
    imc_standin::clearCalls();
    log.error("a%b", "c%d", "x", 1);

    std::vector<Call> const errors = callsOf(Operation::Error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].text, std::string("a%%b(c%d)\0", 10));
    EXPECT_EQ(errors[0].origin, "x");
    EXPECT_EQ(errors[0].number, 1);
    EXPECT_TRUE(callsOf(Operation::Trace).empty());
}

TEST(LogImc, ValueDesignatesTheManagersIntegerAfterItsFirstTwoWords)
{
    ImcSession session;
    IMC_Manager* manager = imc_standin::manager();
    ASSERT_NE(manager, nullptr);
    DBG_Log const log;
    EXPECT_EQ(log.m_imcValue, &manager->traceLevel);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(log.m_imcValue), reinterpret_cast<unsigned char*>(manager) + 8);
    EXPECT_NE(log.m_imcValue, &log.m_imcFallback);
    EXPECT_EQ(log.m_imcFallback, -1);
    manager->traceLevel = 123456;
    EXPECT_EQ(*log.m_imcValue, 123456);
    EXPECT_EQ(log.m_out, DBG_OutManager::instance());
}

TEST(LogImc, ConstructorAsksForTheManagerOfModule255)
{
    ImcSession session;
    DBG_OutManager::instance();
    imc_standin::clearCalls();
    DBG_Log const log;
    std::vector<Call> const instances = callsOf(Operation::Instance);
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0].number, 255);
}

// The first logger asks for the IMC manager, then gets the output manager,
// whose building asks again and registers the commands.
TEST(LogImc, ConstructorAsksForTheImcManagerBeforeTheOutputManager)
{
    ImcSession session;
    imc_standin::clearCalls();
    DBG_Log const log;
    EXPECT_EQ(operations(), (std::vector<Operation>{Operation::Instance, Operation::Instance,
                                                     Operation::Registration, Operation::Registration}));
}

TEST(LogImc, OtherExceptionOfTheImcInstanceLeavesTheConstructor)
{
    ImcSession session;
    DBG_OutManager::instance();  // built already: only the logger asks now
    imc_standin::injectFault(Operation::Instance, imc_standin::Fault::OtherException, 1);
    EXPECT_THROW(DBG_Log(), std::logic_error);
    EXPECT_NO_THROW(DBG_Log());
}

TEST(LogImc, OtherExceptionOfTheImcInstanceLeavesTheFirstConstructor)
{
    ImcSession session;
    imc_standin::injectFault(Operation::Instance, imc_standin::Fault::OtherException);
    EXPECT_THROW(DBG_Log(), std::logic_error);
}

TEST(LogImc, NullImcInstanceFallsBackToMinusOne)
{
    ImcSession session;
    imc_standin::injectFault(Operation::Instance, imc_standin::Fault::NullInstance);
    DBG_Log const log;
    EXPECT_EQ(log.m_imcValue, &log.m_imcFallback);
    EXPECT_EQ(*log.m_imcValue, -1);
    EXPECT_EQ(log.m_out, DBG_OutManager::instance());
}

TEST(LogWithoutImc, WorksAndDesignatesItsOwnMinusOne)
{
    ASSERT_EQ(imc_standin::manager(), nullptr);
    Events events;
    OutManagerCleanup cleanup;
    DBG_Log const log;
    EXPECT_EQ(log.m_imcValue, &log.m_imcFallback);
    EXPECT_EQ(*log.m_imcValue, -1);
    EXPECT_EQ(log.m_imcFallback, -1);
    EXPECT_EQ(log.m_out, DBG_OutManager::instance());
    EXPECT_EQ(DBG_OutManager::instance()->pCmdObserver, nullptr);

    recordOutput(&events);
    log.trace("50% done", "x", 7);
    log.error("a%b", "c%d", "x", 1);
    EXPECT_EQ(events, (Events{"text:50%% done", "flush:0:x:7", "text:a%%b", "text:(", "text:c%d", "text:)",
                              "flush:1:x:1"}));
}

TEST(LogWithoutImc, ConsoleSinkWritesTheEscapedTextToStandardOutput)
{
    OutManagerCleanup cleanup;
    CoutCapture capture;
    DBG_Log const log;
    log.trace("50% done", "x", 7);
    log.error("open failed", "ENOENT", "x", 8);
    EXPECT_EQ(capture.text(), "50%% doneopen failed(ENOENT)");
}

TEST(LogDate, IsTheCtimeTextWithItsLineFeed)
{
    OutManagerCleanup cleanup;
    DBG_Log const log;
    std::time_t const before = std::time(nullptr);
    std::string const date = log.date();
    std::time_t const after = std::time(nullptr);

    ASSERT_EQ(date.size(), 25u);
    EXPECT_EQ(date.back(), '\n');
    std::regex const layout(
        "(Sun|Mon|Tue|Wed|Thu|Fri|Sat) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
        "[ 123][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] [0-9]{4}\n");
    EXPECT_TRUE(std::regex_match(date, layout)) << date;
    std::string const first = std::ctime(&before);
    std::string const last = std::ctime(&after);
    EXPECT_TRUE(date == first || date == last) << date << first << last;
}
