// Faults injected into every IMC operation the library calls, at each of its
// call sites, as std::runtime_error and std::logic_error: one table, one test
// per row, each checking what is caught and what passes on, what stays in the
// IMC sink's buffer, which answer is (not) sent. Then the file faults the
// file sink meets: a directory, a full device, a read-only file system and an
// over-long path.
//
// Socket faults of "DBG stop" (bind path present, nobody listening, no
// descriptor left) are in test_start_stop.cpp.
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>
#include <tcl.h>

#include "DBG_CmdObserver.h"
#include "DBG_InManager.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputImc.h"
#include "ImcProbe.h"
#include "TestSupport.h"

namespace {

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

bool sinkIs(std::type_info const& type)
{
    DBG_Output* sink = DBG_OutManager::instance()->pOutput;
    return typeid(*sink) == type;
}

std::string withNul(char const* text)
{
    return std::string(text) + '\0';
}

// One row: the operation and the fault, how many of its calls go through
// first (skip) and how many the fault hits (times, -1 for all), an optional
// second fault the scenario needs, and the number of faults the scenario
// must meet. `inChild` rows end their process (a death test): their faults
// are met in the child.
struct FaultCase {
    char const* name;
    Operation operation;
    Fault fault;
    int times;
    int skip;
    int expectedFaults;
    void (*scenario)();
    Operation alsoOperation = Operation::Instance;
    Fault alsoFault = Fault::None;
    bool inChild = false;
};

void PrintTo(FaultCase const& row, std::ostream* out)
{
    *out << row.name;
}

FaultCase const* current = nullptr;

// Injects the row's faults; the scenario calls it at the moment it means.
void arm()
{
    imc_standin::clearCalls();
    imc_standin::injectFault(current->operation, current->fault, current->times, current->skip);
    if (current->alsoFault != Fault::None)
        imc_standin::injectFault(current->alsoOperation, current->alsoFault);
}

// How many calls of an operation the armed fault hit.
int faultsMet(Operation operation, int times, int skip)
{
    int const calls = static_cast<int>(callsOf(operation).size()) - skip;
    if (calls <= 0)
        return 0;
    return times < 0 || calls < times ? calls : times;
}

// The faults met so far, for scenarios that clear the record before they
// end; -1 until noted.
int notedFaults = -1;

int faultsMetByRow()
{
    int met = faultsMet(current->operation, current->times, current->skip);
    if (current->alsoFault != Fault::None)
        met += faultsMet(current->alsoOperation, -1, 0);
    return met;
}

void noteFaultsMet()
{
    notedFaults = faultsMetByRow();
}

// Standard input is a pipe of this process for the console rows (Tcl
// attaches to fd 0); the console is created with its banner out of the way.
class ConsoleInput {
public:
    ConsoleInput()
    {
        Tcl_FindExecutable(nullptr);
        m_saved = fcntl(0, F_DUPFD_CLOEXEC, 3);
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2 failed");
        dup2(ends[0], 0);
        if (ends[0] != 0)
            close(ends[0]);
        m_writeEnd = ends[1];
        CoutCapture quiet;
        m_console = DBG_InManager::instance();
    }
    ~ConsoleInput()
    {
        DBG_InManager::desinstance();
        close(m_writeEnd);
        if (m_saved != -1) {
            dup2(m_saved, 0);
            close(m_saved);
        }
    }
    DBG_InManager* operator->() const { return m_console; }

private:
    DBG_InManager* m_console = nullptr;
    int m_saved = -1;
    int m_writeEnd = -1;
};

// ---- scenarios ---------------------------------------------------------------

void outManagerWithoutObserver()
{
    arm();
    DBG_OutManager* const manager = DBG_OutManager::instance();
    EXPECT_EQ(manager->pCmdObserver, nullptr);
    EXPECT_TRUE(sinkIs(typeid(DBG_Output)));
    EXPECT_TRUE(callsOf(Operation::Registration).empty());
    CoutCapture out;
    *manager << "still traced";
    EXPECT_EQ(out.text(), "still traced");
}

void outManagerNotBuilt()
{
    arm();
    EXPECT_THROW(DBG_OutManager::instance(), std::logic_error);
    noteFaultsMet();
    imc_standin::clearFaults();
    imc_standin::clearCalls();
    // Nothing half-made was kept: the next instance() builds a whole one.
    DBG_OutManager* const manager = DBG_OutManager::instance();
    EXPECT_NE(manager->pCmdObserver, nullptr);
    EXPECT_EQ(textsOf(Operation::Registration), (std::vector<std::string>{"DBG", "help"}));
}

template <typename Exception>
void imcSinkKeepsTheTextWhenTheManagerIsMissing()
{
    DBG_OutputImc sink;
    sink << std::string("ab");
    arm();
    EXPECT_THROW(sink.flush(false, "origin", 1), Exception);
    EXPECT_TRUE(callsOf(Operation::Trace).empty());
    imc_standin::clearFaults();
    sink << std::string("cd");
    sink.flush(false, "origin", 2);
    EXPECT_EQ(textsOf(Operation::Trace), std::vector<std::string>{withNul("abcd")});
}

void loggerFallsBack()
{
    DBG_OutManager* const manager = DBG_OutManager::instance();
    arm();
    DBG_Log const log;
    EXPECT_EQ(log.m_imcValue, &log.m_imcFallback);
    EXPECT_EQ(*log.m_imcValue, -1);
    EXPECT_EQ(log.m_out, manager);
}

void loggerNotBuilt()
{
    DBG_OutManager::instance();
    arm();
    EXPECT_THROW({ DBG_Log const log; }, std::logic_error);
}

// The console loses the line: nothing reaches the manager's routing.
void consoleLosesTheLine()
{
    DBG_OutManager::instance();
    ConsoleInput console;
    arm();
    CoutCapture out;
    console->onStdInput("DBG out imc");
    EXPECT_EQ(out.text(), "command lost\n>");
    EXPECT_TRUE(callsOf(Operation::AnswerCommand).empty());
    EXPECT_TRUE(sinkIs(typeid(DBG_Output)));
}

void consolePassesItOn()
{
    DBG_OutManager::instance();
    ConsoleInput console;
    arm();
    CoutCapture out;
    EXPECT_THROW(console->onStdInput("DBG out imc"), std::logic_error);
    EXPECT_EQ(out.text(), "");
    EXPECT_TRUE(callsOf(Operation::AnswerCommand).empty());
    EXPECT_TRUE(sinkIs(typeid(DBG_Output)));
}

// The answer fails after the switch was made: the console reports the line
// lost (std::runtime_error) or lets the failure through (other types).
template <typename Exception>
void answerFailsAfterTheSwitch()
{
    DBG_OutManager::instance();
    ConsoleInput console;
    arm();
    CoutCapture out;
    if (typeid(Exception) == typeid(std::runtime_error)) {
        console->onStdInput("DBG out imc");
        EXPECT_EQ(out.text(), "command lost\n>");
    } else {
        EXPECT_THROW(console->onStdInput("DBG out imc"), Exception);
        EXPECT_EQ(out.text(), "");
    }
    EXPECT_EQ(textsOf(Operation::AnswerCommand), std::vector<std::string>{"Debug Output set to IMC\n"});
    EXPECT_TRUE(sinkIs(typeid(DBG_OutputImc)));
    EXPECT_EQ(imc_standin::manager()->consoleFlag, 0);
}

// "DBG read" without a manager for its identifier byte: the failure leaves
// the command before anything is posted or answered.
template <typename Exception>
void readUnanswered()
{
    DBG_CmdObserver* const observer = DBG_OutManager::instance()->pCmdObserver;
    ASSERT_NE(observer, nullptr);
    arm();
    CoutCapture out;
    EXPECT_THROW(observer->command("DBG read", 0), Exception);
    EXPECT_EQ(out.text(), "");
    EXPECT_TRUE(callsOf(Operation::Post).empty());
    EXPECT_TRUE(callsOf(Operation::AnswerCommand).empty());
}

void firstRegistrationFails()
{
    arm();
    DBG_OutManager* const manager = DBG_OutManager::instance();
    EXPECT_EQ(manager->pCmdObserver, nullptr);
    EXPECT_EQ(textsOf(Operation::Registration), std::vector<std::string>{"DBG"});
    noteFaultsMet();
    imc_standin::clearFaults();
    imc_standin::clearCalls();
    CoutCapture out;
    imc_standin::manager()->receiveCommand(0, "DBG out imc");
    EXPECT_EQ(textsOf(Operation::AnswerCommand), std::vector<std::string>{"Unknown command DBG\n"});
    EXPECT_TRUE(sinkIs(typeid(DBG_Output)));
}

void secondRegistrationFails()
{
    arm();
    DBG_OutManager* const manager = DBG_OutManager::instance();
    EXPECT_EQ(manager->pCmdObserver, nullptr);
    EXPECT_EQ(textsOf(Operation::Registration), (std::vector<std::string>{"DBG", "help"}));
    EXPECT_EQ(textsOf(Operation::Unregistration), std::vector<std::string>{"DBG"});
    noteFaultsMet();
    imc_standin::clearFaults();
    imc_standin::clearCalls();
    CoutCapture out;
    imc_standin::manager()->receiveCommand(0, "DBG out imc");
    imc_standin::manager()->receiveCommand(0, "help");
    EXPECT_EQ(textsOf(Operation::AnswerCommand),
              (std::vector<std::string>{"Unknown command DBG\n", "Unknown command help\n"}));
    EXPECT_TRUE(sinkIs(typeid(DBG_Output)));
}

void registrationPassesItOn()
{
    arm();
    EXPECT_THROW(DBG_OutManager::instance(), std::logic_error);
    std::vector<std::string> const released = textsOf(Operation::Unregistration);
    if (current->skip == 1)
        EXPECT_EQ(released, std::vector<std::string>{"DBG"});
    else
        EXPECT_TRUE(released.empty());
}

// A failing unregistration does not keep the other key registered.
void unregistrationFails()
{
    DBG_OutManager::instance();
    arm();
    EXPECT_NO_THROW(DBG_OutManager::desinstance());
    EXPECT_EQ(textsOf(Operation::Unregistration), (std::vector<std::string>{"DBG", "help"}));
    noteFaultsMet();
    imc_standin::clearFaults();
    imc_standin::clearCalls();
    // Only the key whose release went through may be routed: the other one
    // still names the destroyed observer in the manager's table.
    std::string const released = current->skip == 0 ? "help" : "DBG";
    CoutCapture out;
    imc_standin::manager()->receiveCommand(0, released);
    EXPECT_EQ(textsOf(Operation::AnswerCommand), std::vector<std::string>{"Unknown command " + released + "\n"});
}

// In a process that is to die: no core file, standard output joined to
// the standard error the death test reads.
void preparedToDie()
{
    rlimit const noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::cout.rdbuf(std::cerr.rdbuf());
}

void destroyWithFailingUnregistration()
{
    preparedToDie();
    DBG_OutManager::instance();
    arm();
    DBG_OutManager::desinstance();
}

// Another exception type cannot leave a destructor: the process ends
// through std::terminate, whatever the runtime prints on the way (its
// words differ between optimised and debug builds).
void unregistrationEndsTheProcess()
{
    EXPECT_EXIT(destroyWithFailingUnregistration(), ::testing::KilledBySignal(SIGABRT), "");
}

// The IMC manager's trace or error fails: the failure passes the logger, the
// buffer keeps the text and its NUL and is not rewound, so the next trace
// is appended behind it.
template <typename Exception>
void deliveryFails()
{
    DBG_OutManager::instance()->setImcOutput();
    DBG_Log const log;
    arm();
    bool const isError = current->operation == Operation::Error;
    if (isError) {
        EXPECT_THROW(log.error("ab", "d", "origin", 1), Exception);
        imc_standin::clearFaults();
        log.error("x", "y", "origin", 2);
        std::string const first = withNul("ab(d)");
        EXPECT_EQ(textsOf(Operation::Error), (std::vector<std::string>{first, first + withNul("x(y)")}));
        EXPECT_TRUE(callsOf(Operation::Trace).empty());
    } else {
        EXPECT_THROW(log.trace("ab", "origin", 1), Exception);
        imc_standin::clearFaults();
        log.trace("x", "origin", 2);
        EXPECT_EQ(textsOf(Operation::Trace), (std::vector<std::string>{withNul("ab"), withNul("ab") + withNul("x")}));
        EXPECT_TRUE(callsOf(Operation::Error).empty());
    }
}

// The post fails with std::runtime_error: "Start Command Failed", then the
// manager's exit path with cause 0, which ends the process.
void postFailsAndTheProcessExits()
{
    DBG_CmdObserver* const observer = DBG_OutManager::instance()->pCmdObserver;
    ASSERT_NE(observer, nullptr);
    EXPECT_EXIT((preparedToDie(), arm(), observer->command("DBG read", 0)), ::testing::KilledBySignal(SIGABRT),
                "^Start Command Failed\nIMC : core dump exit \\(cause 0\\)\n");
}

// The post fails with std::runtime_error and the exit path itself fails:
// the report comes first, the exit is asked with cause 0, its failure
// passes on and no answer is sent.
template <typename Exception>
void exitPathFails()
{
    DBG_CmdObserver* const observer = DBG_OutManager::instance()->pCmdObserver;
    ASSERT_NE(observer, nullptr);
    arm();
    CoutCapture out;
    EXPECT_THROW(observer->command("DBG read", 0), Exception);
    EXPECT_EQ(out.text(), "Start Command Failed\n");
    std::vector<Call> const exits = callsOf(Operation::CoreDumpExit);
    ASSERT_EQ(exits.size(), 1u);
    EXPECT_EQ(exits[0].number, 0);
    EXPECT_EQ(callsOf(Operation::Post).size(), 1u);
    EXPECT_TRUE(callsOf(Operation::AnswerCommand).empty());
}

void postPassesItOn()
{
    DBG_CmdObserver* const observer = DBG_OutManager::instance()->pCmdObserver;
    ASSERT_NE(observer, nullptr);
    arm();
    CoutCapture out;
    EXPECT_THROW(observer->command("DBG read", 0), std::logic_error);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(callsOf(Operation::Post).size(), 1u);
    EXPECT_TRUE(callsOf(Operation::CoreDumpExit).empty());
    EXPECT_TRUE(callsOf(Operation::AnswerCommand).empty());
}

constexpr Fault Runtime = Fault::RuntimeError;
constexpr Fault Logic = Fault::OtherException;

// clang-format off
std::vector<FaultCase> const faultCases = {
    // name                                     operation                  fault    times skip faults scenario
    {"OutManagerInstance_RuntimeError",         Operation::Instance,       Runtime, 1, 0, 1, outManagerWithoutObserver},
    {"OutManagerInstance_LogicError",           Operation::Instance,       Logic,   1, 0, 1, outManagerNotBuilt},
    {"ImcSinkFlushInstance_RuntimeError",       Operation::Instance,       Runtime, 1, 0, 1, imcSinkKeepsTheTextWhenTheManagerIsMissing<std::runtime_error>},
    {"ImcSinkFlushInstance_LogicError",         Operation::Instance,       Logic,   1, 0, 1, imcSinkKeepsTheTextWhenTheManagerIsMissing<std::logic_error>},
    {"LoggerInstance_RuntimeError",             Operation::Instance,       Runtime, 1, 0, 1, loggerFallsBack},
    {"LoggerInstance_LogicError",               Operation::Instance,       Logic,   1, 0, 1, loggerNotBuilt},
    {"ConsoleInstance15_RuntimeError",          Operation::Instance,       Runtime, 1, 0, 1, consoleLosesTheLine},
    {"ConsoleInstance15_LogicError",            Operation::Instance,       Logic,   1, 0, 1, consolePassesItOn},
    {"StartCommandInstance_RuntimeError",       Operation::Instance,       Runtime, 1, 0, 1, readUnanswered<std::runtime_error>},
    {"StartCommandInstance_LogicError",         Operation::Instance,       Logic,   1, 0, 1, readUnanswered<std::logic_error>},
    {"FirstRegistration_RuntimeError",          Operation::Registration,   Runtime, 1, 0, 1, firstRegistrationFails},
    {"SecondRegistration_RuntimeError",         Operation::Registration,   Runtime, 1, 1, 1, secondRegistrationFails},
    {"FirstRegistration_LogicError",            Operation::Registration,   Logic,   1, 0, 1, registrationPassesItOn},
    {"SecondRegistration_LogicError",           Operation::Registration,   Logic,   1, 1, 1, registrationPassesItOn},
    {"FirstUnregistration_RuntimeError",        Operation::Unregistration, Runtime, 1, 0, 1, unregistrationFails},
    {"SecondUnregistration_RuntimeError",       Operation::Unregistration, Runtime, 1, 1, 1, unregistrationFails},
    {"Unregistration_LogicError",               Operation::Unregistration, Logic,   1, 0, 1, unregistrationEndsTheProcess, Operation::Instance, Fault::None, true},
    {"ReceiveCommand_RuntimeError",             Operation::ReceiveCommand, Runtime, 1, 0, 1, consoleLosesTheLine},
    {"ReceiveCommand_LogicError",               Operation::ReceiveCommand, Logic,   1, 0, 1, consolePassesItOn},
    {"AnswerCommand_RuntimeError",              Operation::AnswerCommand,  Runtime, 1, 0, 1, answerFailsAfterTheSwitch<std::runtime_error>},
    {"AnswerCommand_LogicError",                Operation::AnswerCommand,  Logic,   1, 0, 1, answerFailsAfterTheSwitch<std::logic_error>},
    {"Trace_RuntimeError",                      Operation::Trace,          Runtime, 1, 0, 1, deliveryFails<std::runtime_error>},
    {"Trace_LogicError",                        Operation::Trace,          Logic,   1, 0, 1, deliveryFails<std::logic_error>},
    {"Error_RuntimeError",                      Operation::Error,          Runtime, 1, 0, 1, deliveryFails<std::runtime_error>},
    {"Error_LogicError",                        Operation::Error,          Logic,   1, 0, 1, deliveryFails<std::logic_error>},
    {"Post_RuntimeError",                       Operation::Post,           Runtime, 1, 0, 1, postFailsAndTheProcessExits, Operation::Instance, Fault::None, true},
    {"Post_LogicError",                         Operation::Post,           Logic,   1, 0, 1, postPassesItOn},
    {"CoreDumpExit_RuntimeError",               Operation::CoreDumpExit,   Runtime, 1, 0, 2, exitPathFails<std::runtime_error>, Operation::Post, Runtime},
    {"CoreDumpExit_LogicError",                 Operation::CoreDumpExit,   Logic,   1, 0, 2, exitPathFails<std::logic_error>, Operation::Post, Runtime},
};
// clang-format on

class FaultMatrix : public ::testing::TestWithParam<FaultCase> {
protected:
    void SetUp() override
    {
        notedFaults = -1;  // a row before this one, in the same process, may have noted its own
        imc_standin::setAnswerHandler([](std::string const&) {});
    }
    void TearDown() override { imc_standin::setAnswerHandler(nullptr); }

    ImcSession session;
};

}  // namespace

TEST_P(FaultMatrix, OutcomeAsTheFaultDictates)
{
    FaultCase const& row = GetParam();
    current = &row;
    row.scenario();
    if (HasFatalFailure())
        return;
    int met = row.expectedFaults;
    if (!row.inChild)
        met = notedFaults >= 0 ? notedFaults : faultsMetByRow();
    EXPECT_EQ(met, row.expectedFaults) << "faults met by " << row.name;
    std::printf("[ FAULTS   ] %s: %d injected%s\n", row.name, met, row.inChild ? " (in the ended process)" : "");
}

INSTANTIATE_TEST_SUITE_P(Imc, FaultMatrix, ::testing::ValuesIn(faultCases),
                         [](::testing::TestParamInfo<FaultCase> const& info) { return std::string(info.param.name); });

TEST(FaultMatrixSummary, EveryImcOperationMeetsBothExceptionTypes)
{
    int total = 0;
    std::vector<std::pair<Operation, Fault>> covered;
    for (FaultCase const& row : faultCases) {
        total += row.expectedFaults;
        covered.emplace_back(row.operation, row.fault);
    }
    for (Operation operation : {Operation::Instance, Operation::Registration, Operation::Unregistration,
                                Operation::ReceiveCommand, Operation::AnswerCommand, Operation::Trace,
                                Operation::Error, Operation::Post, Operation::CoreDumpExit}) {
        for (Fault fault : {Runtime, Logic}) {
            bool found = false;
            for (auto const& pair : covered)
                found = found || (pair.first == operation && pair.second == fault);
            EXPECT_TRUE(found) << "operation " << int(operation) << " fault " << int(fault) << " not in the table";
        }
    }
    std::printf("[ FAULTS   ] %zu cases, %d IMC faults injected\n", faultCases.size(), total);
}

// ---- file faults ---------------------------------------------------------------

namespace {

// A logger over the output manager, answers discarded, in a scratch
// directory.
class FileFault : public ::testing::Test {
protected:
    void SetUp() override
    {
        imc_standin::setAnswerHandler([this](std::string const& answer) { answers.push_back(answer); });
        observer = DBG_OutManager::instance()->pCmdObserver;
        ASSERT_NE(observer, nullptr);
    }
    void TearDown() override { imc_standin::setAnswerHandler(nullptr); }

    // The output selected by command, a trace and an error through it, then
    // back to the console (closing the file, which writes what is buffered).
    void traceThrough(std::string const& name, std::string const& text)
    {
        answers.clear();
        observer->command("DBG out file " + name, 0);
        ASSERT_EQ(answers, std::vector<std::string>{"Debug Output set to file " + name + "\n"});
        DBG_Log const log;
        EXPECT_NO_THROW(log.trace(text, "origin", 1));
        EXPECT_NO_THROW(log.error(text, "detail", "origin", 2));
        CoutCapture quiet;
        EXPECT_NO_THROW(observer->command("DBG out std", 0));
    }

    ScratchDir scratch;
    ImcSession session;
    DBG_CmdObserver* observer = nullptr;
    std::vector<std::string> answers;
};

}  // namespace

TEST_F(FileFault, DirectoryAsTheFileNameDiscardsEverything)
{
    std::string const directory = scratch.file("traces");
    ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
    traceThrough(directory, "into a directory");
    struct stat status;
    ASSERT_EQ(stat(directory.c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_TRUE(entriesOf(directory).empty());
}

TEST_F(FileFault, FullDeviceFailsOnlyWhenTheBufferIsWrittenAndNothingBreaks)
{
    // Small traces stay in the stream's buffer until the sink is closed.
    traceThrough("/dev/full", "small");
    // Large ones fill the buffer while they are inserted.
    std::string const large(256 * 1024, 'x');
    traceThrough("/dev/full", large);
    // Destroyed with the manager, too.
    answers.clear();
    observer->command("DBG out file /dev/full", 0);
    DBG_Log().trace("at shutdown", "origin", 3);
    EXPECT_NO_THROW(DBG_OutManager::desinstance());
    // The library goes on working.
    std::string const name = scratch.file("after.trace");
    DBG_OutManager::instance()->setFileOutput(name);
    DBG_Log().trace("after", "origin", 4);
    DBG_OutManager::instance()->setConsoleOutput();
    EXPECT_EQ(readFile(name), "after");
}

TEST_F(FileFault, ReadOnlyFileSystemLeavesFilesAsTheyWere)
{
    // Root ignores permission bits, so the location is a tmpfs made
    // read-only, inside the private view that also isolates /current: its
    // mount namespace is this process's own, with or without root.
    CurrentConfigIsolation isolation;
    DBG_ISOLATE_CURRENT(isolation);
    std::string const location = scratch.file("readonly");
    ASSERT_EQ(mkdir(location.c_str(), 0755), 0) << location << ": " << std::strerror(errno);
    ASSERT_EQ(mount("dbg-test", location.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755"), 0)
        << "tmpfs on " << location << ": " << std::strerror(errno);
    // Unmounted however the test ends, so that the scratch directory goes.
    std::unique_ptr<char const, void (*)(char const*)> const mounted(location.c_str(),
                                                                     [](char const* path) { umount2(path, MNT_DETACH); });
    std::string const existing = location + "/kept.trace";
    writeFile(existing, "earlier content\n");
    ASSERT_EQ(mount(nullptr, location.c_str(), nullptr, MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV, nullptr), 0)
        << "remounting " << location << " read-only: " << std::strerror(errno);
    int const probe = open((location + "/probe").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    int const probeError = errno;
    ASSERT_EQ(probe, -1) << location << " is writable after the read-only remount";
    ASSERT_EQ(probeError, EROFS);

    traceThrough(existing, "not truncated");
    traceThrough(location + "/new.trace", "not created");
    EXPECT_EQ(readFile(existing), "earlier content\n");
    EXPECT_EQ(entriesOf(location), std::vector<std::string>{"kept.trace"});
}

TEST_F(FileFault, OverLongPathIsNamedButNothingIsWritten)
{
    // Longer than PATH_MAX as a whole, and a single component longer than
    // NAME_MAX.
    std::string longPath = scratch.path();
    while (longPath.size() <= PATH_MAX)
        longPath += "/d";
    traceThrough(longPath, "too long a path");
    std::string const longName = scratch.file(std::string(NAME_MAX + 1, 'n'));
    traceThrough(longName, "too long a name");
    EXPECT_TRUE(entriesOf(scratch.path()).empty());
}
