// The IMC stand-in the other tests rely on: its manager, routing, answers,
// traces, posts, injected faults and the record of calls.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <atomic>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <string>
#include <utility>
#include <vector>

#include "IMC_Manager.h"
#include "ImcProbe.h"
#include "TestSupport.h"

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

namespace {

class ThrowingObserver : public IMC_CommandObserver {
public:
    void command(std::string const&, int) override { throw std::runtime_error("observer failed"); }
};

std::string instanceFailure(unsigned char module)
{
    try {
        IMC_Manager::instance(module);
    } catch (std::runtime_error const& failure) {
        return failure.what();
    }
    return "<no exception>";
}

// The abort must leave no core file behind.
[[noreturn]] void abortWithoutCoreFile(IMC_Manager::ExitCause cause)
{
    rlimit noCore;
    noCore.rlim_cur = 0;
    noCore.rlim_max = 0;
    setrlimit(RLIMIT_CORE, &noCore);
    IMC_Manager::coreDumpExit(cause);
}

}  // namespace

class ImcStandInTest : public ::testing::Test {
protected:
    ~ImcStandInTest() override
    {
        imc_standin::setAnswerHandler(nullptr);
        imc_standin::setPostHandler(nullptr);
    }

    std::vector<std::string> answers;
    ImcSession session{0x5A};

    void collectAnswers()
    {
        imc_standin::setAnswerHandler([this](std::string const& answer) { answers.push_back(answer); });
    }
};

TEST(ImcStandInLifecycle, InstanceThrowsBeforeStartAndAfterStop)
{
    EXPECT_EQ(imc_standin::manager(), nullptr);
    EXPECT_EQ(instanceFailure(255), "no IMC manager");
    imc_standin::start(7);
    EXPECT_NE(imc_standin::manager(), nullptr);
    EXPECT_EQ(IMC_Manager::instance(255), imc_standin::manager());
    imc_standin::stop();
    EXPECT_EQ(imc_standin::manager(), nullptr);
    EXPECT_EQ(instanceFailure(15), "no IMC manager");
}

TEST(ImcStandInLifecycle, StartedManagerCarriesItsIdentifierAndZeroes)
{
    imc_standin::start(0x42);
    IMC_Manager* manager = imc_standin::manager();
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(manager->identifier, 0x42);
    EXPECT_EQ(manager->consoleFlag, 0);
    EXPECT_EQ(manager->traceLevel, 0);
    unsigned char firstByte = 0;
    std::memcpy(&firstByte, manager, 1);
    EXPECT_EQ(firstByte, 0x42);
    // Starting again keeps the manager that exists.
    imc_standin::start(0x43);
    EXPECT_EQ(imc_standin::manager(), manager);
    EXPECT_EQ(manager->identifier, 0x42);
    imc_standin::stop();
}

TEST(ImcStandInLifecycle, RecordingIsOffUntilAsked)
{
    imc_standin::start(1);
    imc_standin::clearCalls();
    IMC_Manager::instance(3);
    EXPECT_TRUE(imc_standin::calls().empty());
    imc_standin::setRecording(true);
    IMC_Manager::instance(4);
    ASSERT_EQ(imc_standin::calls().size(), 1u);
    EXPECT_EQ(imc_standin::calls()[0].number, 4);
    imc_standin::setRecording(false);
    IMC_Manager::instance(5);
    EXPECT_EQ(imc_standin::calls().size(), 1u);
    imc_standin::clearCalls();
    EXPECT_TRUE(imc_standin::calls().empty());
    imc_standin::stop();
}

TEST_F(ImcStandInTest, RoutesByTheFirstWord)
{
    RecordingObserver dbg("dbg");
    RecordingObserver help("help");
    IMC_Manager* manager = imc_standin::manager();
    manager->registration(&dbg, "DBG");
    manager->registration(&help, "help");
    collectAnswers();
    manager->receiveCommand(3, "DBG out std");
    manager->receiveCommand(4, "  DBG\tversion");
    manager->receiveCommand(5, "help me");
    ASSERT_EQ(dbg.received.size(), 2u);
    EXPECT_EQ(dbg.received[0], (RecordingObserver::Received{"DBG out std", 3, 0}));
    EXPECT_EQ(dbg.received[1], (RecordingObserver::Received{"  DBG\tversion", 4, 0}));
    ASSERT_EQ(help.received.size(), 1u);
    EXPECT_EQ(help.received[0], (RecordingObserver::Received{"help me", 5, 0}));
    EXPECT_TRUE(answers.empty());
    manager->unregistration(&dbg, "DBG");
    manager->unregistration(&help, "help");
}

TEST_F(ImcStandInTest, KeyMustBeTheWholeFirstWord)
{
    RecordingObserver dbg("dbg");
    IMC_Manager* manager = imc_standin::manager();
    manager->registration(&dbg, "DBG");
    collectAnswers();
    manager->receiveCommand(0, "DBGX out");
    manager->receiveCommand(0, "show DBG");
    EXPECT_TRUE(dbg.received.empty());
    EXPECT_EQ(answers, (std::vector<std::string>{"Unknown command DBGX\n", "Unknown command show\n"}));
    manager->unregistration(&dbg, "DBG");
}

TEST_F(ImcStandInTest, EveryObserverOfAKeyReceivesInRegistrationOrder)
{
    std::vector<std::string> log;
    RecordingObserver first("first", &log);
    RecordingObserver second("second", &log);
    IMC_Manager* manager = imc_standin::manager();
    manager->registration(&first, "K");
    manager->registration(&second, "K");
    manager->receiveCommand(0, "K go");
    EXPECT_EQ(log, (std::vector<std::string>{"first:K go", "second:K go"}));
    manager->unregistration(&first, "K");
    manager->receiveCommand(0, "K again");
    EXPECT_EQ(log, (std::vector<std::string>{"first:K go", "second:K go", "second:K again"}));
    manager->unregistration(&second, "K");
}

TEST_F(ImcStandInTest, UnregisteredKeyIsAnsweredUnknown)
{
    RecordingObserver dbg("dbg");
    IMC_Manager* manager = imc_standin::manager();
    manager->registration(&dbg, "DBG");
    manager->unregistration(&dbg, "DBG");
    collectAnswers();
    manager->receiveCommand(0, "DBG out");
    manager->receiveCommand(0, "nothing");
    EXPECT_TRUE(dbg.received.empty());
    EXPECT_EQ(answers, (std::vector<std::string>{"Unknown command DBG\n", "Unknown command nothing\n"}));
}

TEST_F(ImcStandInTest, UnknownKeyIsQuotedUpToTheLimit)
{
    collectAnswers();
    std::string const whole(imc_standin::unknownKeyQuoteLimit, 'k');
    imc_standin::manager()->receiveCommand(0, whole);
    imc_standin::manager()->receiveCommand(0, whole + "K and more");
    imc_standin::manager()->receiveCommand(0, std::string(100000, 'x'));
    EXPECT_EQ(answers, (std::vector<std::string>{"Unknown command " + whole + "\n", "Unknown command " + whole + "\n",
                                                 "Unknown command " + std::string(64, 'x') + "\n"}));
}

TEST_F(ImcStandInTest, EmptyAndBlankLinesAreIgnored)
{
    collectAnswers();
    CoutCapture capture;
    imc_standin::manager()->receiveCommand(0, "");
    imc_standin::manager()->receiveCommand(0, "   ");
    imc_standin::manager()->receiveCommand(0, " \t ");
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(capture.text(), "");
}

TEST_F(ImcStandInTest, AnswerGoesToStdoutWithoutHandler)
{
    CoutCapture capture;
    imc_standin::manager()->answerCommand("plain answer\n");
    EXPECT_EQ(capture.text(), "plain answer\n");
}

TEST_F(ImcStandInTest, AnswerGoesToTheHandlerWhenConsoleFlagIsClear)
{
    collectAnswers();
    CoutCapture capture;
    imc_standin::manager()->answerCommand("to handler");
    EXPECT_EQ(answers, (std::vector<std::string>{"to handler"}));
    EXPECT_EQ(capture.text(), "");
}

TEST_F(ImcStandInTest, AnswerGoesToStdoutWhenConsoleFlagIsSet)
{
    collectAnswers();
    IMC_Manager* manager = imc_standin::manager();
    manager->consoleFlag = 1;
    CoutCapture capture;
    manager->answerCommand("to console");
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(capture.text(), "to console");
    manager->consoleFlag = 0;
}

TEST_F(ImcStandInTest, ReceiveCommandClearsTheConsoleFlag)
{
    IMC_Manager* manager = imc_standin::manager();
    CoutCapture capture;
    manager->consoleFlag = 1;
    manager->receiveCommand(0, "unknownkey");
    EXPECT_EQ(manager->consoleFlag, 0);
    EXPECT_EQ(capture.text(), "Unknown command unknownkey\n");
    manager->consoleFlag = 1;
    manager->receiveCommand(0, "");
    EXPECT_EQ(manager->consoleFlag, 0);
}

TEST_F(ImcStandInTest, ConsoleFlagClearedEvenWhenTheObserverThrows)
{
    ThrowingObserver failing;
    IMC_Manager* manager = imc_standin::manager();
    manager->registration(&failing, "FAIL");
    manager->consoleFlag = 1;
    EXPECT_THROW(manager->receiveCommand(0, "FAIL now"), std::runtime_error);
    EXPECT_EQ(manager->consoleFlag, 0);
    manager->unregistration(&failing, "FAIL");
}

TEST_F(ImcStandInTest, TraceAndErrorAreWrittenUpToTheFirstNul)
{
    std::ostringstream stream;
    imc_standin::setTraceStream(&stream);
    IMC_Manager const* manager = imc_standin::manager();
    manager->trace(std::string("abc\0def\0", 8), "orig.cpp", 12);
    manager->error(std::string("bad\0tail", 8), "mod", -3);
    manager->trace(std::string("\0hidden", 7), "", 0);
    imc_standin::setTraceStream(nullptr);
    EXPECT_EQ(stream.str(),
              "IMC trace orig.cpp:12 abc\n"
              "IMC ERROR mod:-3 bad\n"
              "IMC trace :0 \n");
}

TEST_F(ImcStandInTest, NullTraceStreamDiscards)
{
    CoutCapture capture;
    imc_standin::setTraceStream(nullptr);
    imc_standin::manager()->trace("t", "o", 1);
    imc_standin::manager()->error("e", "o", 2);
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(imc_standin::calls().size(), 2u);
}

TEST_F(ImcStandInTest, TraceStreamIsStdoutByDefault)
{
    imc_standin::setTraceStream(&std::cout);
    CoutCapture capture;
    imc_standin::manager()->trace("hello", "x", 5);
    EXPECT_EQ(capture.text(), "IMC trace x:5 hello\n");
    imc_standin::setTraceStream(nullptr);
}

TEST_F(ImcStandInTest, PostHandlerReceivesTheRecord)
{
    std::vector<unsigned char> received;
    imc_standin::setPostHandler([&](imc_msg const& msg) {
        auto const* bytes = reinterpret_cast<unsigned char const*>(&msg);
        received.assign(bytes, bytes + sizeof msg);
    });
    imc_msg msg;
    std::memset(&msg, 0, sizeof msg);
    msg.sender = 0x5A;
    msg.code = 600;
    msg.body[0] = 0x11;
    msg.body[2047] = 0x22;
    imc_standin::manager()->post(msg);
    auto const* bytes = reinterpret_cast<unsigned char const*>(&msg);
    std::vector<unsigned char> const expected(bytes, bytes + sizeof msg);
    EXPECT_EQ(received.size(), 2060u);
    EXPECT_EQ(received, expected);
    ASSERT_EQ(imc_standin::calls().size(), 1u);
    EXPECT_EQ(imc_standin::calls()[0].operation, Operation::Post);
    EXPECT_EQ(imc_standin::calls()[0].record, expected);
}

TEST_F(ImcStandInTest, PostWithoutHandlerIsDropped)
{
    imc_msg msg;
    std::memset(&msg, 0, sizeof msg);
    CoutCapture capture;
    EXPECT_NO_THROW(imc_standin::manager()->post(msg));
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(imc_standin::calls().size(), 1u);
}

TEST_F(ImcStandInTest, FaultWithACountExpires)
{
    IMC_Manager const* manager = imc_standin::manager();
    imc_standin::injectFault(Operation::Trace, Fault::RuntimeError, 2);
    EXPECT_THROW(manager->trace("a", "o", 1), std::runtime_error);
    EXPECT_THROW(manager->trace("b", "o", 2), std::runtime_error);
    EXPECT_NO_THROW(manager->trace("c", "o", 3));
    EXPECT_NO_THROW(manager->trace("d", "o", 4));
    // Faulted calls are recorded all the same.
    EXPECT_EQ(imc_standin::calls().size(), 4u);
}

TEST_F(ImcStandInTest, FaultWithoutCountStaysUntilCleared)
{
    imc_standin::injectFault(Operation::Registration, Fault::OtherException);
    RecordingObserver observer("o");
    IMC_Manager* manager = imc_standin::manager();
    for (int i = 0; i < 3; ++i)
        EXPECT_THROW(manager->registration(&observer, "K"), std::logic_error);
    imc_standin::clearFaults();
    EXPECT_NO_THROW(manager->registration(&observer, "K"));
    manager->receiveCommand(0, "K x");
    // Registrations that threw did not register.
    EXPECT_EQ(observer.received.size(), 1u);
    manager->unregistration(&observer, "K");
}

TEST_F(ImcStandInTest, FaultsOnlyHitTheirOperation)
{
    imc_standin::injectFault(Operation::Error, Fault::RuntimeError, 1);
    IMC_Manager const* manager = imc_standin::manager();
    EXPECT_NO_THROW(manager->trace("t", "o", 1));
    EXPECT_THROW(manager->error("e", "o", 2), std::runtime_error);
    EXPECT_NO_THROW(manager->error("e", "o", 3));
}

TEST_F(ImcStandInTest, InjectedRuntimeErrorSaysInjectedFault)
{
    imc_standin::injectFault(Operation::AnswerCommand, Fault::RuntimeError, 1);
    try {
        imc_standin::manager()->answerCommand("x");
        ADD_FAILURE() << "no exception";
    } catch (std::runtime_error const& failure) {
        EXPECT_STREQ(failure.what(), "injected fault");
    }
    imc_standin::injectFault(Operation::AnswerCommand, Fault::OtherException, 1);
    try {
        imc_standin::manager()->answerCommand("x");
        ADD_FAILURE() << "no exception";
    } catch (std::logic_error const& failure) {
        EXPECT_STREQ(failure.what(), "injected fault");
    }
}

TEST_F(ImcStandInTest, NullInstanceFault)
{
    imc_standin::injectFault(Operation::Instance, Fault::NullInstance, 1);
    EXPECT_EQ(IMC_Manager::instance(255), nullptr);
    EXPECT_EQ(IMC_Manager::instance(255), imc_standin::manager());
    imc_standin::injectFault(Operation::Instance, Fault::RuntimeError, 1);
    EXPECT_EQ(instanceFailure(255), "injected fault");
    EXPECT_EQ(IMC_Manager::instance(255), imc_standin::manager());
}

TEST_F(ImcStandInTest, EveryCallIsRecordedWithItsArguments)
{
    RecordingObserver observer("o");
    IMC_Manager* manager = imc_standin::manager();
    collectAnswers();
    IMC_Manager::instance(15);
    manager->registration(&observer, "KEY");
    manager->receiveCommand(9, "KEY line");
    manager->answerCommand(std::string("ans\0wer", 7));
    manager->trace(std::string("tr\0ace", 6), "origin.cpp", 42);
    manager->error("err", "other.cpp", -1);
    manager->unregistration(&observer, "KEY");

    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 7u);
    EXPECT_EQ(calls[0].operation, Operation::Instance);
    EXPECT_EQ(calls[0].number, 15);
    EXPECT_EQ(calls[1].operation, Operation::Registration);
    EXPECT_EQ(calls[1].text, "KEY");
    EXPECT_EQ(calls[1].observer, &observer);
    EXPECT_EQ(calls[2].operation, Operation::ReceiveCommand);
    EXPECT_EQ(calls[2].text, "KEY line");
    EXPECT_EQ(calls[2].number, 9);
    EXPECT_EQ(calls[3].operation, Operation::AnswerCommand);
    EXPECT_EQ(calls[3].text, std::string("ans\0wer", 7));
    EXPECT_EQ(calls[4].operation, Operation::Trace);
    EXPECT_EQ(calls[4].text, std::string("tr\0ace", 6));
    EXPECT_EQ(calls[4].origin, "origin.cpp");
    EXPECT_EQ(calls[4].number, 42);
    EXPECT_EQ(calls[5].operation, Operation::Error);
    EXPECT_EQ(calls[5].text, "err");
    EXPECT_EQ(calls[5].origin, "other.cpp");
    EXPECT_EQ(calls[5].number, -1);
    EXPECT_EQ(calls[6].operation, Operation::Unregistration);
    EXPECT_EQ(calls[6].text, "KEY");
    EXPECT_EQ(calls[6].observer, &observer);
    EXPECT_EQ(observer.received.size(), 1u);
    EXPECT_EQ(answers, (std::vector<std::string>{std::string("ans\0wer", 7)}));
}

TEST_F(ImcStandInTest, UnknownCommandAnswerIsRecordedAfterTheLine)
{
    collectAnswers();
    imc_standin::manager()->receiveCommand(2, "bogus arg");
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].operation, Operation::ReceiveCommand);
    EXPECT_EQ(calls[0].text, "bogus arg");
    EXPECT_EQ(calls[0].number, 2);
    EXPECT_EQ(calls[1].operation, Operation::AnswerCommand);
    EXPECT_EQ(calls[1].text, "Unknown command bogus\n");
}

TEST(ImcStandInDeathTest, CoreDumpExitAbortsWithItsMessage)
{
    EXPECT_EXIT(abortWithoutCoreFile(IMC_Manager::EXIT_FATAL), ::testing::KilledBySignal(SIGABRT),
                "IMC : core dump exit \\(cause 1\\)");
}

// A maker's manager delivers commands on threads of its own: observers
// come and go, commands, answers and traces go through from four threads at
// once, and every command reaches its observer once, every trace its line.
TEST_F(ImcStandInTest, ObserversCommandsAnswersAndTracesFromManyThreads)
{
    constexpr int threads = 4;
    constexpr int rounds = 500;
    std::atomic<int> answered{0};
    imc_standin::setAnswerHandler([&](std::string const&) { ++answered; });
    std::ostringstream traces;
    imc_standin::setTraceStream(&traces);
    IMC_Manager* const manager = imc_standin::manager();
    std::vector<RecordingObserver> observers(threads);
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            std::string const key = "K" + std::to_string(t);
            for (int n = 0; n < rounds; ++n) {
                manager->registration(&observers[std::size_t(t)], key);
                manager->receiveCommand(t, key + " " + std::to_string(n));
                manager->answerCommand("answer\n");
                manager->trace("trace " + key + std::string(1, '\0') + "tail", "o", n);
                manager->unregistration(&observers[std::size_t(t)], key);
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    imc_standin::setTraceStream(nullptr);
    for (int t = 0; t < threads; ++t) {
        std::vector<RecordingObserver::Received> const& received = observers[std::size_t(t)].received;
        ASSERT_EQ(received.size(), std::size_t(rounds));
        for (int n = 0; n < rounds; ++n)
            EXPECT_EQ(received[std::size_t(n)].line, "K" + std::to_string(t) + " " + std::to_string(n));
    }
    EXPECT_EQ(answered, threads * rounds);
    std::istringstream lines(traces.str());
    std::map<std::string, int> counts;
    for (std::string line; std::getline(lines, line);)
        ++counts[line.substr(0, line.find(':') + 1) + line.substr(line.find(' ', line.find(':')))];
    std::map<std::string, int> expected;
    for (int t = 0; t < threads; ++t)
        expected["IMC trace o: trace K" + std::to_string(t)] = rounds;
    EXPECT_EQ(counts, expected);
}
