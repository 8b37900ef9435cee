// The output manager: the singleton, switching the sink, forwarding, and its
// command observer's life.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "DBG_CmdObserver.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "ImcProbe.h"
#include "TestSupport.h"

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

namespace {

std::string const NUL(1, '\0');

std::string displayName(DBG_Output const& sink)
{
    return sink;
}

// A recording sink that also runs a probe when it is destroyed.
class ProbedSink : public RecordingSink {
public:
    ProbedSink(std::vector<std::string>* events, std::function<void()> probe)
        : RecordingSink(events), m_probe(std::move(probe))
    {
    }
    ~ProbedSink() override { m_probe(); }

private:
    std::function<void()> m_probe;
};

// Replaces the manager's sink by a recording one.
void installRecording(DBG_OutManager* manager, std::vector<std::string>* events)
{
    delete manager->pOutput;
    manager->pOutput = new RecordingSink(events);
}

}  // namespace

class OutManagerTest : public ::testing::Test {
protected:
    // Declared before the session: the session destroys the manager, and
    // with it any recording sink that still writes into these.
    std::vector<std::string> events;
    std::vector<std::string> moreEvents;
    ImcSession session;
};

// No IMC manager is started here: the stand-in throws std::runtime_error.
class OutManagerWithoutImc : public ::testing::Test {
protected:
    ~OutManagerWithoutImc() override { DBG_OutManager::desinstance(); }
};

TEST_F(OutManagerTest, InstanceTwiceGivesTheSameManager)
{
    DBG_OutManager* first = DBG_OutManager::instance();
    DBG_OutManager* second = DBG_OutManager::instance();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(callsOf(Operation::Instance).size(), 1u);
}

TEST_F(OutManagerTest, StartsOnTheConsole)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    ASSERT_NE(manager->pOutput, nullptr);
    EXPECT_EQ(displayName(*manager->pOutput), "console");
    CoutCapture capture;
    *manager << std::string("on ") << 1 << static_cast<unsigned char>('!');
    manager->flush(false, "o", 1);
    EXPECT_EQ(capture.text(), "on 1!");
}

TEST_F(OutManagerTest, DesinstanceThenInstanceBuildsAFreshConsoleManager)
{
    DBG_OutManager* first = DBG_OutManager::instance();
    ScratchDir scratch;
    first->setFileOutput(scratch.file("t.txt"));
    DBG_OutManager::desinstance();
    imc_standin::clearCalls();
    DBG_OutManager* second = DBG_OutManager::instance();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(displayName(*second->pOutput), "console");
    EXPECT_NE(second->pCmdObserver, nullptr);
    // Built anew: the IMC manager was asked again and the observer registered.
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].operation, Operation::Instance);
    EXPECT_EQ(calls[1].operation, Operation::Registration);
    EXPECT_EQ(calls[2].operation, Operation::Registration);
    EXPECT_EQ(DBG_OutManager::instance(), second);
}

TEST_F(OutManagerTest, DesinstanceWithoutManagerDoesNothing)
{
    DBG_OutManager::desinstance();
    DBG_OutManager::desinstance();
    EXPECT_TRUE(imc_standin::calls().empty());
    DBG_OutManager* manager = DBG_OutManager::instance();
    ASSERT_NE(manager, nullptr);
    DBG_OutManager::desinstance();
    imc_standin::clearCalls();
    DBG_OutManager::desinstance();
    EXPECT_TRUE(imc_standin::calls().empty());
}

TEST_F(OutManagerTest, DisplayNamesAfterEachSelection)
{
    ScratchDir scratch;
    DBG_OutManager* manager = DBG_OutManager::instance();
    std::string const path = scratch.file("x");
    manager->setFileOutput(path);
    EXPECT_EQ(displayName(*manager->pOutput), "file " + path);
    manager->setImcOutput();
    EXPECT_EQ(displayName(*manager->pOutput), "IMC");
    manager->setConsoleOutput();
    EXPECT_EQ(displayName(*manager->pOutput), "console");
}

TEST_F(OutManagerWithoutImc, WorksWithoutCommandObserver)
{
    DBG_OutManager* manager = nullptr;
    ASSERT_NO_THROW(manager = DBG_OutManager::instance());
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(manager->pCmdObserver, nullptr);
    EXPECT_EQ(displayName(*manager->pOutput), "console");
    CoutCapture capture;
    *manager << std::string("still works ") << 7;
    manager->flush(true, "o", 1);
    EXPECT_EQ(capture.text(), "still works 7");
}

TEST_F(OutManagerWithoutImc, DestroyingWithoutObserverIsQuiet)
{
    imc_standin::setRecording(true);
    imc_standin::clearCalls();
    DBG_OutManager::instance();
    std::vector<Call> const made = imc_standin::calls();
    ASSERT_EQ(made.size(), 1u);
    EXPECT_EQ(made[0].operation, Operation::Instance);
    EXPECT_EQ(made[0].number, 255);
    DBG_OutManager::desinstance();
    EXPECT_EQ(imc_standin::calls().size(), 1u);
    imc_standin::setRecording(false);
    imc_standin::clearCalls();
}

TEST_F(OutManagerTest, WithAStartedImcManagerTheObserverIsRegistered)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    ASSERT_NE(manager->pCmdObserver, nullptr);
    EXPECT_EQ(manager->pCmdObserver->pImcManager, imc_standin::manager());
    IMC_CommandObserver const* observer = manager->pCmdObserver;
    std::vector<Call> const registrations = callsOf(Operation::Registration);
    ASSERT_EQ(registrations.size(), 2u);
    EXPECT_EQ(registrations[0].text, "DBG");
    EXPECT_EQ(registrations[0].observer, observer);
    EXPECT_EQ(registrations[1].text, "help");
    EXPECT_EQ(registrations[1].observer, observer);
}

TEST_F(OutManagerTest, NullImcInstanceGivesAManagerWithoutObserver)
{
    imc_standin::injectFault(Operation::Instance, Fault::NullInstance, 1);
    DBG_OutManager* manager = nullptr;
    ASSERT_NO_THROW(manager = DBG_OutManager::instance());
    EXPECT_EQ(manager->pCmdObserver, nullptr);
    EXPECT_TRUE(callsOf(Operation::Registration).empty());
    EXPECT_EQ(displayName(*manager->pOutput), "console");
}

TEST_F(OutManagerTest, OtherExceptionFromImcInstancePassesOutAndStoresNothing)
{
    imc_standin::injectFault(Operation::Instance, Fault::OtherException, 1);
    EXPECT_THROW(DBG_OutManager::instance(), std::logic_error);
    EXPECT_TRUE(callsOf(Operation::Registration).empty());
    imc_standin::clearCalls();
    // Nothing was stored: the next call builds a manager from the start.
    DBG_OutManager* manager = DBG_OutManager::instance();
    ASSERT_NE(manager, nullptr);
    ASSERT_EQ(callsOf(Operation::Instance).size(), 1u);
    EXPECT_EQ(callsOf(Operation::Registration).size(), 2u);
    EXPECT_NE(manager->pCmdObserver, nullptr);
}

TEST_F(OutManagerTest, InsertionsReachTheSinkInOrderAndReturnTheManager)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    installRecording(manager, &events);
    DBG_OutManager& afterInt = *manager << 42;
    DBG_OutManager& afterText = *manager << std::string("abc");
    DBG_OutManager& afterChar = *manager << static_cast<unsigned char>('Z');
    EXPECT_EQ(&afterInt, manager);
    EXPECT_EQ(&afterText, manager);
    EXPECT_EQ(&afterChar, manager);
    EXPECT_EQ(events, (std::vector<std::string>{"int:42", "text:abc", "char:Z"}));
}

TEST_F(OutManagerTest, ChainedInsertionsKeepTheirOrderAndBytes)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    installRecording(manager, &events);
    DBG_OutManager& result = *manager << std::string("a\0b", 3) << -1 << std::string("")
                                      << static_cast<unsigned char>(48) << 48;
    EXPECT_EQ(&result, manager);
    EXPECT_EQ(events, (std::vector<std::string>{std::string("text:a\0b", 8), "int:-1", "text:",
                                                "char:0", "int:48"}));
}

TEST_F(OutManagerTest, FlushReachesTheSinkUnchanged)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    installRecording(manager, &events);
    manager->flush(true, "text", 7);
    manager->flush(false, "", -3);
    EXPECT_EQ(events, (std::vector<std::string>{"flush:1:text:7", "flush:0::-3"}));
}

TEST_F(OutManagerTest, SwitchingDestroysTheOldSinkBeforeTheNewFileExists)
{
    ScratchDir scratch;
    std::string const path = scratch.file("new.txt");
    bool fileExistedAtDestruction = true;
    DBG_OutManager* manager = DBG_OutManager::instance();
    delete manager->pOutput;
    manager->pOutput =
        new ProbedSink(&events, [&] { fileExistedAtDestruction = fileExists(path); });
    manager->setFileOutput(path);
    EXPECT_EQ(events, (std::vector<std::string>{"destroyed"}));
    EXPECT_FALSE(fileExistedAtDestruction);
    EXPECT_TRUE(fileExists(path));
    EXPECT_EQ(displayName(*manager->pOutput), "file " + path);
}

TEST_F(OutManagerTest, EverySelectionReplacesTheSink)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    installRecording(manager, &events);
    manager->setConsoleOutput();
    EXPECT_EQ(events, (std::vector<std::string>{"destroyed"}));

    installRecording(manager, &moreEvents);
    manager->setImcOutput();
    EXPECT_EQ(moreEvents, (std::vector<std::string>{"destroyed"}));
    EXPECT_EQ(displayName(*manager->pOutput), "IMC");
}

TEST_F(OutManagerTest, ImcSinkIsSelectedWithoutAskingTheImcManager)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    imc_standin::clearCalls();
    manager->setImcOutput();
    EXPECT_TRUE(imc_standin::calls().empty());
}

TEST_F(OutManagerTest, TracesThroughTheImcSinkReachTheImcManager)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    imc_standin::clearCalls();
    *manager << std::string("hello ") << 3;
    manager->flush(true, "module.cpp", 9);
    *manager << std::string("hi");
    manager->flush(false, "other.cpp", 10);
    std::vector<Call> const errors = callsOf(Operation::Error);
    std::vector<Call> const traces = callsOf(Operation::Trace);
    ASSERT_EQ(errors.size(), 1u);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(errors[0].text, "hello 3" + NUL);
    EXPECT_EQ(errors[0].origin, "module.cpp");
    EXPECT_EQ(errors[0].number, 9);
    EXPECT_EQ(traces[0].text, "hi" + NUL + "lo 3" + NUL);
    EXPECT_EQ(traces[0].origin, "other.cpp");
    EXPECT_EQ(traces[0].number, 10);
}

TEST_F(OutManagerTest, UnflushedImcTextIsLostOnSwitch)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    *manager << std::string("lost text");
    imc_standin::clearCalls();
    manager->setConsoleOutput();
    EXPECT_TRUE(imc_standin::calls().empty());
    manager->setImcOutput();
    manager->flush(false, "o", 1);
    std::vector<Call> const traces = callsOf(Operation::Trace);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(traces[0].text, NUL);
}

TEST_F(OutManagerTest, FileTextIsWrittenOutOnSwitch)
{
    ScratchDir scratch;
    std::string const path = scratch.file("kept.txt");
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setFileOutput(path);
    *manager << std::string("kept") << 5 << static_cast<unsigned char>('\n');
    manager->flush(false, "o", 1);
    EXPECT_EQ(readFile(path), "");
    manager->setConsoleOutput();
    EXPECT_EQ(readFile(path), "kept5\n");
}

TEST_F(OutManagerTest, FileTextIsWrittenOutWhenTheManagerIsDestroyed)
{
    ScratchDir scratch;
    std::string const path = scratch.file("end.txt");
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setFileOutput(path);
    *manager << std::string("last words");
    DBG_OutManager::desinstance();
    EXPECT_EQ(readFile(path), "last words");
}

TEST_F(OutManagerTest, DestructionDestroysTheSinkThenUnregistersTheObserver)
{
    std::vector<Call> callsAtSinkDestruction;
    bool probed = false;
    DBG_OutManager* manager = DBG_OutManager::instance();
    IMC_CommandObserver const* observer = manager->pCmdObserver;
    ASSERT_NE(observer, nullptr);
    delete manager->pOutput;
    manager->pOutput = new ProbedSink(&events, [&] {
        probed = true;
        callsAtSinkDestruction = imc_standin::calls();
    });
    imc_standin::clearCalls();
    DBG_OutManager::desinstance();
    ASSERT_TRUE(probed);
    EXPECT_EQ(events, (std::vector<std::string>{"destroyed"}));
    EXPECT_TRUE(callsAtSinkDestruction.empty());
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].operation, Operation::Unregistration);
    EXPECT_EQ(calls[0].text, "DBG");
    EXPECT_EQ(calls[0].observer, observer);
    EXPECT_EQ(calls[1].operation, Operation::Unregistration);
    EXPECT_EQ(calls[1].text, "help");
    EXPECT_EQ(calls[1].observer, observer);
}

TEST_F(OutManagerTest, DesinstanceClearsTheInstance)
{
    DBG_OutManager::instance();
    DBG_OutManager::desinstance();
    imc_standin::clearCalls();
    DBG_OutManager::desinstance();
    EXPECT_TRUE(imc_standin::calls().empty());
    DBG_OutManager::instance();
    EXPECT_EQ(callsOf(Operation::Instance).size(), 1u);
}

namespace {

// "ab" flushed through the manager into an IMC manager that fails
// (`operation` raises `fault`, an error when `isError`), then "cd" flushed
// as a trace: what the IMC manager is handed for "cd".
std::vector<std::string> nextTraceAfterAFailedOne(Operation operation, Fault fault, bool isError)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    imc_standin::injectFault(operation, fault, 1);
    *manager << std::string("ab");
    EXPECT_ANY_THROW(manager->flush(isError, "o", 1));
    imc_standin::clearCalls();
    *manager << std::string("cd");
    manager->flush(false, "o", 2);
    return textsOf(Operation::Trace);
}

}  // namespace

// The IMC manager is handed a trace with the output's lock released. When
// the hand-over fails, the text goes back into the sink as an unsent flush
// leaves it: without its NUL when there was no manager...
TEST_F(OutManagerTest, TextOfAHandOverWithoutImcManagerGoesOutWithTheNextTrace)
{
    EXPECT_EQ(nextTraceAfterAFailedOne(Operation::Instance, Fault::RuntimeError, false),
              (std::vector<std::string>{"abcd" + NUL}));
}

// ...and with it when the manager's trace or error failed...
TEST_F(OutManagerTest, TextOfAFailedImcTraceGoesOutWithTheNextTraceBehindItsNul)
{
    EXPECT_EQ(nextTraceAfterAFailedOne(Operation::Error, Fault::RuntimeError, true),
              (std::vector<std::string>{"ab" + NUL + "cd" + NUL}));
}

// ...whatever the maker's manager throws, standard exception or not.
TEST_F(OutManagerTest, TextOfAnImcTraceFailingWithNoStandardTypeGoesOutWithTheNextTrace)
{
    EXPECT_EQ(nextTraceAfterAFailedOne(Operation::Trace, Fault::ForeignException, false),
              (std::vector<std::string>{"ab" + NUL + "cd" + NUL}));
}

// Text that reached the sink while the failing trace was with the IMC
// manager stays where it is: the failed text is not put back under it.
TEST_F(OutManagerTest, AFailedHandOverPutsNothingBackUnderTextInsertedMeanwhile)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    imc_standin::react(Operation::Trace, [manager] { *manager << std::string("zz"); });
    imc_standin::injectFault(Operation::Trace, Fault::RuntimeError, 1);
    *manager << std::string("ab");
    EXPECT_THROW(manager->flush(false, "o", 1), std::runtime_error);
    imc_standin::react(Operation::Trace, nullptr);
    imc_standin::clearCalls();
    *manager << std::string("cd");
    manager->flush(false, "o", 2);
    EXPECT_EQ(textsOf(Operation::Trace), (std::vector<std::string>{"zzcd" + NUL}));
}

// Nor into a sink that replaced it meanwhile, nor after another trace was
// taken out of the same sink.
TEST_F(OutManagerTest, AFailedHandOverPutsNothingBackAfterASwitchOrAnotherTrace)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    imc_standin::react(Operation::Trace, [manager] { manager->setImcOutput(); });
    imc_standin::injectFault(Operation::Trace, Fault::RuntimeError, 1);
    *manager << std::string("ab");
    EXPECT_THROW(manager->flush(false, "o", 1), std::runtime_error);
    // The IMC manager's trace of "ef" takes another trace out of the sink
    // (an empty one, at the start of the buffer), then fails.
    bool nested = false;
    imc_standin::react(Operation::Trace, [manager, &nested] {
        if (!nested) {
            nested = true;
            manager->flush(false, "o", 3);
        }
    });
    imc_standin::injectFault(Operation::Trace, Fault::RuntimeError, 1, 1);
    *manager << std::string("ef");
    imc_standin::clearCalls();
    EXPECT_THROW(manager->flush(false, "o", 4), std::runtime_error);
    imc_standin::react(Operation::Trace, nullptr);
    EXPECT_EQ(textsOf(Operation::Trace), (std::vector<std::string>{"ef" + NUL, NUL + "f" + NUL}));
    imc_standin::clearCalls();
    *manager << std::string("cd");
    manager->flush(false, "o", 2);
    EXPECT_EQ(textsOf(Operation::Trace), (std::vector<std::string>{"cd" + NUL}));
}
