// The DBG commands: DBG_CmdObserver::command and its one answer per line,
// read back from the IMC stand-in's record of answerCommand calls.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "DBG_CmdObserver.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "ImcProbe.h"
#include "ReferenceModels.h"
#include "TestSupport.h"

namespace {

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

std::vector<std::string> answers()
{
    std::vector<std::string> found;
    for (Call const& call : imc_standin::calls())
        if (call.operation == Operation::AnswerCommand)
            found.push_back(call.text);
    return found;
}

DBG_Output* currentSink()
{
    return DBG_OutManager::instance()->pOutput;
}

std::string currentSinkName()
{
    return std::string(*currentSink());
}

bool sinkIsConsole()
{
    DBG_Output* sink = currentSink();
    return typeid(*sink) == typeid(DBG_Output);
}

bool sinkIsFile()
{
    DBG_Output* sink = currentSink();
    return typeid(*sink) == typeid(DBG_OutputFile);
}

bool sinkIsImc()
{
    DBG_Output* sink = currentSink();
    return typeid(*sink) == typeid(DBG_OutputImc);
}

// Works in a directory for the length of a scope.
class WorkingDirectory {
public:
    explicit WorkingDirectory(std::string const& path)
    {
        char previous[4096];
        if (!getcwd(previous, sizeof previous))
            throw std::runtime_error("getcwd failed");
        m_previous = previous;
        if (chdir(path.c_str()) != 0)
            throw std::runtime_error("chdir failed: " + path);
    }
    ~WorkingDirectory() { EXPECT_EQ(chdir(m_previous.c_str()), 0); }

private:
    std::string m_previous;
};

// The stand-in runs and the output manager, with its observer, is built.
class CommandTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(DBG_OutManager::instance()->pCmdObserver, nullptr);
        observer = DBG_OutManager::instance()->pCmdObserver;
        ASSERT_EQ(observer->pImcManager, imc_standin::manager());
        // Answers are read from the record; none is printed.
        imc_standin::setAnswerHandler(discardAnswer);
        imc_standin::clearCalls();
    }
    void TearDown() override { imc_standin::setAnswerHandler(nullptr); }

    static void discardAnswer(std::string const&) {}

    // The one answer a line gets; the test fails unless there is exactly one.
    std::string answerTo(std::string const& line, int source = 0)
    {
        imc_standin::clearCalls();
        observer->command(line, source);
        std::vector<std::string> const given = answers();
        EXPECT_EQ(given.size(), 1u) << "line: " << line;
        return given.empty() ? std::string("<no answer>") : given.front();
    }

    ScratchDir scratch;
    ImcSession session;
    DBG_CmdObserver* observer = nullptr;
};

// Same, with /current isolated for the version command.
class VersionCommandTest : public CommandTest {
protected:
    void SetUp() override
    {
        DBG_ISOLATE_CURRENT(isolation);
        CommandTest::SetUp();
    }

    CurrentConfigIsolation isolation;
};

}  // namespace

TEST_F(CommandTest, HelpTextIsTheFixed460Characters)
{
    ASSERT_EQ(std::strlen(expectedHelpText), 460u);
    EXPECT_EQ(answerTo("DBG help"), expectedHelpText);
}

TEST_F(CommandTest, HelpKeyAloneGetsTheHelpText)
{
    EXPECT_EQ(answerTo("help"), expectedHelpText);
}

TEST_F(CommandTest, UnknownDbgCommandGetsTheHelpText)
{
    EXPECT_EQ(answerTo("DBG foo"), expectedHelpText);
    EXPECT_EQ(answerTo("DBG"), expectedHelpText);
}

TEST_F(CommandTest, EmptyLineGetsTheHelpText)
{
    EXPECT_EQ(answerTo(""), expectedHelpText);
}

TEST_F(CommandTest, LowerCaseCommandGetsTheHelpTextAndStopsNothing)
{
    ShutdownSocketPaths paths;
    CoutCapture capture;
    EXPECT_EQ(answerTo("dbg stop"), expectedHelpText);
    EXPECT_EQ(answerTo("DBG Stop"), expectedHelpText);
    EXPECT_EQ(capture.text(), "");
    EXPECT_FALSE(fileExists(ShutdownSocketPaths::ownPath()));
}

TEST_F(CommandTest, HelpChangesNothing)
{
    DBG_Output* const before = currentSink();
    EXPECT_EQ(answerTo("help"), expectedHelpText);
    EXPECT_EQ(currentSink(), before);
    EXPECT_EQ(operations(), std::vector<Operation>{Operation::AnswerCommand});
}

TEST_F(CommandTest, OutAloneReportsTheConsoleAndChangesNothing)
{
    DBG_Output* const before = currentSink();
    EXPECT_EQ(answerTo("DBG out"), "Debug Output set to console\n");
    EXPECT_EQ(currentSink(), before);
    EXPECT_TRUE(sinkIsConsole());
}

TEST_F(CommandTest, OutAloneReportsTheCurrentImcSink)
{
    DBG_OutManager::instance()->setImcOutput();
    DBG_Output* const before = currentSink();
    EXPECT_EQ(answerTo("DBG out"), "Debug Output set to IMC\n");
    EXPECT_EQ(currentSink(), before);
}

TEST_F(CommandTest, OutFileSelectsAFileSinkOfThatName)
{
    std::string const name = scratch.file("trace.txt");
    EXPECT_EQ(answerTo("DBG out file " + name), "Debug Output set to file " + name + "\n");
    ASSERT_TRUE(sinkIsFile());
    EXPECT_EQ(currentSinkName(), "file " + name);
    EXPECT_TRUE(fileExists(name));

    *DBG_OutManager::instance() << std::string("into the file");
    DBG_OutManager::instance()->setConsoleOutput();
    EXPECT_EQ(readFile(name), "into the file");
}

TEST_F(CommandTest, OutFileWithNothingBehindGivesAnEmptyName)
{
    EXPECT_EQ(answerTo("DBG out file "), "Debug Output set to file \n");
    ASSERT_TRUE(sinkIsFile());
    EXPECT_EQ(currentSinkName(), "file ");
}

TEST_F(CommandTest, OutFileWithoutItsBlankChangesNothing)
{
    DBG_Output* const before = currentSink();
    EXPECT_EQ(answerTo("DBG out file"), "Debug Output set to console\n");
    EXPECT_EQ(currentSink(), before);
}

TEST_F(CommandTest, FileNameKeepsItsBlanks)
{
    WorkingDirectory here(scratch.path());
    EXPECT_EQ(answerTo("DBG out file a b.txt"), "Debug Output set to file a b.txt\n");
    ASSERT_TRUE(sinkIsFile());
    EXPECT_EQ(currentSinkName(), "file a b.txt");
    EXPECT_TRUE(fileExists(scratch.file("a b.txt")));
    DBG_OutManager::instance()->setConsoleOutput();
}

TEST_F(CommandTest, FileNameStartsBehindTheFirstFileWord)
{
    WorkingDirectory here(scratch.path());
    EXPECT_EQ(answerTo("DBG out file x file y"), "Debug Output set to file x file y\n");
    EXPECT_EQ(currentSinkName(), "file x file y");
    EXPECT_EQ(answerTo("DBG out file  lead"), "Debug Output set to file  lead\n");
    EXPECT_EQ(currentSinkName(), "file  lead");
    EXPECT_EQ(answerTo("DBG outfile trail "), "Debug Output set to file trail \n");
    EXPECT_EQ(currentSinkName(), "file trail ");
    DBG_OutManager::instance()->setConsoleOutput();
    EXPECT_TRUE(fileExists(scratch.file("x file y")));
    EXPECT_TRUE(fileExists(scratch.file(" lead")));
    EXPECT_TRUE(fileExists(scratch.file("trail ")));
}

TEST_F(CommandTest, FileNameHoldingImcSelectsTheImcSink)
{
    WorkingDirectory here(scratch.path());
    EXPECT_EQ(answerTo("DBG out file imc.txt"), "Debug Output set to IMC\n");
    EXPECT_TRUE(sinkIsImc());
    EXPECT_FALSE(fileExists(scratch.file("imc.txt")));
    EXPECT_EQ(answerTo("DBG out file /var/imc.log"), "Debug Output set to IMC\n");
    EXPECT_TRUE(sinkIsImc());
}

TEST_F(CommandTest, FileNameHoldingStdSelectsTheConsole)
{
    DBG_OutManager::instance()->setImcOutput();
    std::string const name = scratch.file("stdout.log");
    EXPECT_EQ(answerTo("DBG out file " + name), "Debug Output set to console\n");
    EXPECT_TRUE(sinkIsConsole());
    EXPECT_FALSE(fileExists(name));
}

TEST_F(CommandTest, StdWinsOverImc)
{
    DBG_OutManager::instance()->setImcOutput();
    EXPECT_EQ(answerTo("DBG out imc std"), "Debug Output set to console\n");
    EXPECT_TRUE(sinkIsConsole());
}

TEST_F(CommandTest, OutStdSelectsTheConsole)
{
    std::string const name = scratch.file("before.txt");
    DBG_OutManager::instance()->setFileOutput(name);
    EXPECT_EQ(answerTo("DBG out std"), "Debug Output set to console\n");
    EXPECT_TRUE(sinkIsConsole());
}

TEST_F(CommandTest, OutImcSelectsTheImcSink)
{
    EXPECT_EQ(answerTo("DBG out imc"), "Debug Output set to IMC\n");
    EXPECT_TRUE(sinkIsImc());
    EXPECT_EQ(currentSinkName(), "IMC");
}

TEST_F(CommandTest, OutfitMatchesOut)
{
    DBG_OutManager::instance()->setImcOutput();
    DBG_Output* const before = currentSink();
    EXPECT_EQ(answerTo("DBG outfit"), "Debug Output set to IMC\n");
    EXPECT_EQ(currentSink(), before);
}

TEST_F(CommandTest, MemchkAndMemtrcChangeNothing)
{
    std::string const name = scratch.file("kept.txt");
    DBG_OutManager::instance()->setFileOutput(name);
    DBG_Output* const before = currentSink();
    EXPECT_EQ(answerTo("DBG memchk 1"), "Binary is not instrumented\n");
    EXPECT_EQ(operations(), std::vector<Operation>{Operation::AnswerCommand});
    EXPECT_EQ(answerTo("DBG memtrc 0"), "Binary is not instrumented\n");
    EXPECT_EQ(operations(), std::vector<Operation>{Operation::AnswerCommand});
    EXPECT_EQ(answerTo("DBG memchk"), "Binary is not instrumented\n");
    EXPECT_EQ(answerTo("DBG memtrc 1"), "Binary is not instrumented\n");
    EXPECT_EQ(currentSink(), before);
    EXPECT_EQ(currentSinkName(), "file " + name);
}

TEST_F(CommandTest, MemchkComesBeforeOut)
{
    DBG_Output* const before = currentSink();
    EXPECT_EQ(answerTo("DBG out imc DBG memchk 1"), "Binary is not instrumented\n");
    EXPECT_EQ(answerTo("DBG memtrc 0 DBG out std"), "Binary is not instrumented\n");
    EXPECT_EQ(currentSink(), before);
}

TEST_F(CommandTest, OutComesBeforeStop)
{
    ShutdownSocketPaths paths;
    CoutCapture capture;
    EXPECT_EQ(answerTo("DBG stop DBG out"), "Debug Output set to console\n");
    EXPECT_EQ(answerTo("DBG out DBG stop"), "Debug Output set to console\n");
    EXPECT_EQ(capture.text(), "");
    EXPECT_FALSE(fileExists(ShutdownSocketPaths::ownPath()));
}

TEST_F(CommandTest, StopComesBeforeRead)
{
    ShutdownSocketPaths paths;
    CoutCapture capture;
    EXPECT_EQ(answerTo("DBG read DBG stop"), "Stoping SIP gateway ...\n");
    for (Call const& call : imc_standin::calls())
        EXPECT_NE(call.operation, Operation::Post);
    EXPECT_EQ(capture.text(), "VELTA : processing manual shutdown...\n");
}

TEST_F(CommandTest, StopSendsTheRequestThenAnswers)
{
    ShutdownSocketPaths paths;
    DatagramListener listener(ShutdownSocketPaths::listenerPath());
    ASSERT_NE(listener.fd(), -1);
    CoutCapture capture;

    // What had happened when the answer was given.
    bool boundAtAnswer = false;
    std::string printedAtAnswer;
    imc_standin::setAnswerHandler([&](std::string const&) {
        boundAtAnswer = fileExists(ShutdownSocketPaths::ownPath());
        printedAtAnswer = capture.text();
    });
    std::string const answer = answerTo("DBG stop");
    imc_standin::setAnswerHandler(discardAnswer);

    EXPECT_EQ(answer, "Stoping SIP gateway ...\n");
    EXPECT_TRUE(boundAtAnswer);
    EXPECT_EQ(printedAtAnswer, "VELTA : processing manual shutdown...\n");
    EXPECT_EQ(capture.text(), "VELTA : processing manual shutdown...\n");
    std::string data;
    std::string sender;
    ASSERT_TRUE(listener.receive(&data, &sender));
    EXPECT_EQ(data, "q");
    EXPECT_EQ(sender, ShutdownSocketPaths::ownPath());
    EXPECT_FALSE(listener.receive(&data, &sender));
}

TEST_F(CommandTest, StopIsAnsweredEvenWhenTheSocketCannotBeBound)
{
    ShutdownSocketPaths paths;
    DatagramListener listener(ShutdownSocketPaths::listenerPath());
    ASSERT_NE(listener.fd(), -1);
    writeFile(ShutdownSocketPaths::ownPath(), "in the way");
    CoutCapture capture;
    EXPECT_EQ(answerTo("DBG stop"), "Stoping SIP gateway ...\n");
    EXPECT_EQ(capture.text(), "VELTA : cannot create debug socket (" + std::to_string(EADDRINUSE) + "\n");
    std::string data;
    std::string sender;
    EXPECT_FALSE(listener.receive(&data, &sender));
}

TEST_F(CommandTest, ReadPostsTheRequestThenAnswers)
{
    EXPECT_EQ(answerTo("DBG read"), "Read configuration\n");
    EXPECT_EQ(operations(), (std::vector<Operation>{Operation::Instance, Operation::Post, Operation::AnswerCommand}));
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].number, 255);
    EXPECT_EQ(calls[1].record, configurationRequestModel(0x5A));  // ImcSession's identifier
}

TEST_F(CommandTest, ReadComesBeforeVersion)
{
    EXPECT_EQ(answerTo("DBG version DBG read"), "Read configuration\n");
}

TEST_F(CommandTest, IntegerArgumentIsIgnored)
{
    EXPECT_EQ(answerTo("DBG out", 0), "Debug Output set to console\n");
    EXPECT_EQ(answerTo("DBG out", -7), "Debug Output set to console\n");
    EXPECT_EQ(answerTo("DBG out", 2147483647), "Debug Output set to console\n");
    EXPECT_EQ(answerTo("help", 12345), expectedHelpText);
    EXPECT_EQ(answerTo("DBG memchk 1", -1), "Binary is not instrumented\n");
    EXPECT_EQ(answerTo("DBG out imc", 99), "Debug Output set to IMC\n");
}

TEST_F(CommandTest, RuntimeErrorOfTheAnswerLeavesCommand)
{
    imc_standin::injectFault(Operation::AnswerCommand, Fault::RuntimeError);
    EXPECT_THROW(observer->command("help", 0), std::runtime_error);
    EXPECT_THROW(observer->command("DBG out imc", 0), std::runtime_error);
    EXPECT_TRUE(sinkIsImc());  // the switch was made before the answer failed
}

TEST_F(CommandTest, LogicErrorOfTheAnswerLeavesCommand)
{
    imc_standin::injectFault(Operation::AnswerCommand, Fault::OtherException);
    EXPECT_THROW(observer->command("DBG memchk 1", 0), std::logic_error);
}

TEST_F(CommandTest, LogicErrorOfThePostLeavesCommandUnanswered)
{
    imc_standin::injectFault(Operation::Post, Fault::OtherException);
    EXPECT_THROW(observer->command("DBG read", 0), std::logic_error);
    EXPECT_TRUE(answers().empty());
    EXPECT_EQ(operations(), (std::vector<Operation>{Operation::Instance, Operation::Post}));
}

TEST_F(CommandTest, MissingManagerAtReadLeavesCommandUnanswered)
{
    imc_standin::injectFault(Operation::Instance, Fault::RuntimeError);
    EXPECT_THROW(observer->command("DBG read", 0), std::runtime_error);
    EXPECT_TRUE(answers().empty());
    EXPECT_EQ(operations(), std::vector<Operation>{Operation::Instance});
}

TEST_F(CommandTest, CommandsRoutedByTheManagerSwitchTheOutput)
{
    IMC_Manager* manager = imc_standin::manager();
    std::vector<std::string> delivered;
    imc_standin::setAnswerHandler([&](std::string const& answer) { delivered.push_back(answer); });
    std::string const name = scratch.file("routed.txt");

    imc_standin::clearCalls();
    manager->receiveCommand(0, "DBG out imc");
    EXPECT_TRUE(sinkIsImc());
    manager->receiveCommand(3, "DBG out file " + name);
    EXPECT_TRUE(sinkIsFile());
    EXPECT_EQ(currentSinkName(), "file " + name);
    manager->receiveCommand(0, "DBG out std");
    EXPECT_TRUE(sinkIsConsole());
    manager->receiveCommand(0, "help");
    imc_standin::setAnswerHandler(discardAnswer);

    EXPECT_EQ(delivered, (std::vector<std::string>{"Debug Output set to IMC\n",
                                                   "Debug Output set to file " + name + "\n",
                                                   "Debug Output set to console\n", expectedHelpText}));
    EXPECT_EQ(answers(), delivered);
    EXPECT_TRUE(fileExists(name));
}

TEST_F(VersionCommandTest, UnknownWithoutConfigurationFile)
{
    ASSERT_FALSE(fileExists(CurrentConfigIsolation::configFile));
    EXPECT_EQ(answerTo("DBG version"), "Version is unknown\n");
}

TEST_F(VersionCommandTest, ReportsTheRawVersionText)
{
    writeFile(CurrentConfigIsolation::configFile, "voip 9.9\n");
    EXPECT_EQ(answerTo("DBG version"), "Version is  9.9\n");
}

TEST_F(VersionCommandTest, UnknownForAnEmptyVersionText)
{
    writeFile(CurrentConfigIsolation::configFile, "TRAXO 1.0\nvoip\n");
    EXPECT_EQ(answerTo("DBG version"), "Version is unknown\n");
}

TEST_F(VersionCommandTest, ReadsTheFileAnewEveryTime)
{
    writeFile(CurrentConfigIsolation::configFile, "voip1\n");
    EXPECT_EQ(answerTo("DBG version"), "Version is 1\n");
    writeFile(CurrentConfigIsolation::configFile, "voip2.0-build77\n");
    EXPECT_EQ(answerTo("DBG version"), "Version is 2.0-build77\n");
    ASSERT_EQ(unlink(CurrentConfigIsolation::configFile), 0);
    EXPECT_EQ(answerTo("DBG version"), "Version is unknown\n");
}
