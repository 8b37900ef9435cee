// The operator console against the IMC stand-in, in process: the expectedBanner, the
// "exit" lines, how lines reach the manager, what happens without one, and
// the Tcl handler reading from a real pipe on fd 0.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>
#include <tcl.h>

#include "DBG_InManager.h"
#include "DBG_OutManager.h"
#include "ImcProbe.h"
#include "TestSupport.h"

namespace {

// The console's calls on Tcl, in order, while a test watches them.
struct TclCall {
    std::string name;
    void const* object = nullptr;  // the channel, or the string record
    int mask = 0;
    Tcl_ChannelProc* procedure = nullptr;
    ClientData clientData = nullptr;
    std::string coutSoFar;    // what the watching capture held at the call
    bool zeroFilled = false;  // the record was all zero bytes (Tcl_DStringInit)
};

bool watchingTcl = false;
std::vector<TclCall> tclCalls;
CoutCapture const* coutWhileWatching = nullptr;

void recordTclCall(TclCall call)
{
    if (!watchingTcl)
        return;
    if (coutWhileWatching)
        call.coutSoFar = coutWhileWatching->text();
    tclCalls.push_back(call);
}

template <typename Function>
Function nextTcl(char const* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" void Tcl_CreateChannelHandler(Tcl_Channel channel, int mask, Tcl_ChannelProc* procedure,
                                         ClientData clientData)
{
    using Create = void (*)(Tcl_Channel, int, Tcl_ChannelProc*, ClientData);
    static Create const next = nextTcl<Create>("Tcl_CreateChannelHandler");
    recordTclCall({"create", channel, mask, procedure, clientData, "", false});
    next(channel, mask, procedure, clientData);
}

extern "C" void Tcl_DeleteChannelHandler(Tcl_Channel channel, Tcl_ChannelProc* procedure, ClientData clientData)
{
    using Delete = void (*)(Tcl_Channel, Tcl_ChannelProc*, ClientData);
    static Delete const next = nextTcl<Delete>("Tcl_DeleteChannelHandler");
    recordTclCall({"delete", channel, 0, procedure, clientData, "", false});
    next(channel, procedure, clientData);
}

extern "C" int Tcl_Close(Tcl_Interp* interpreter, Tcl_Channel channel)
{
    using Close = int (*)(Tcl_Interp*, Tcl_Channel);
    static Close const next = nextTcl<Close>("Tcl_Close");
    recordTclCall({"close", channel, 0, nullptr, interpreter, "", false});
    return next(interpreter, channel);
}

extern "C" void Tcl_DStringInit(Tcl_DString* record)
{
    using Init = void (*)(Tcl_DString*);
    static Init const next = nextTcl<Init>("Tcl_DStringInit");
    unsigned char const* const bytes = reinterpret_cast<unsigned char const*>(record);
    bool const zeroFilled = std::all_of(bytes, bytes + sizeof *record, [](unsigned char b) { return b == 0; });
    recordTclCall({"init", record, 0, nullptr, nullptr, "", zeroFilled});
    next(record);
}

extern "C" int Tcl_Gets(Tcl_Channel channel, Tcl_DString* record)
{
    using Gets = int (*)(Tcl_Channel, Tcl_DString*);
    static Gets const next = nextTcl<Gets>("Tcl_Gets");
    recordTclCall({"gets", record, 0, nullptr, channel, "", false});
    return next(channel, record);
}

namespace {

volatile sig_atomic_t sigtermCount = 0;

extern "C" void recordSigterm(int)
{
    sigtermCount = sigtermCount + 1;
}

// The signal is the process's own; give it a moment in case another thread
// takes it.
bool sigtermArrived()
{
    for (int i = 0; i < 200 && sigtermCount == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return sigtermCount != 0;
}

bool sigtermStaysAway()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return sigtermCount == 0;
}

// SIGTERM held back from this thread while it lives, so that a signal sent
// stays pending unless a thread that lets it in takes it. The gateway may
// take its signals on a thread of its own: a signal sent to the process
// reaches such a thread, one raised reaches the raising thread only.
class SigtermHeldBack {
public:
    SigtermHeldBack()
    {
        sigemptyset(&m_term);
        sigaddset(&m_term, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &m_term, &m_previous);
    }

    // Whatever is still pending here is taken back before the mask goes.
    ~SigtermHeldBack()
    {
        timespec const none = {0, 0};
        while (sigtimedwait(&m_term, nullptr, &none) == SIGTERM) {
        }
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }

    SigtermHeldBack(SigtermHeldBack const&) = delete;
    SigtermHeldBack& operator=(SigtermHeldBack const&) = delete;

    // Sent by now: pending, or taken already by a thread that lets it in.
    bool sent() const
    {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGTERM) == 1 || sigtermCount > 0;
    }

    // Whether another thread, waiting for it, can take it.
    bool takenByAnotherThread() const
    {
        if (sigtermCount > 0)
            return true;
        bool taken = false;
        std::thread waiter([this, &taken] {
            timespec const limit = {2, 0};
            taken = sigtimedwait(&m_term, nullptr, &limit) == SIGTERM;
        });
        waiter.join();
        return taken;
    }

private:
    sigset_t m_term;
    sigset_t m_previous;
};

// A capture that notes, at each flush, whether SIGTERM was sent by then.
class SigtermWatchingCapture : public CoutCapture {
public:
    explicit SigtermWatchingCapture(SigtermHeldBack const& held) : m_held(held) {}
    std::vector<bool> sentAtFlush;

protected:
    int sync() override
    {
        sentAtFlush.push_back(m_held.sent());
        return CoutCapture::sync();
    }

private:
    SigtermHeldBack const& m_held;
};

// The banner's lines, each with its line end.
std::vector<std::string> bannerLines()
{
    std::vector<std::string> lines;
    std::string const banner = expectedBanner;
    for (std::size_t begin = 0, end; (end = banner.find('\n', begin)) != std::string::npos; begin = end + 1)
        lines.push_back(banner.substr(begin, end + 1 - begin));
    return lines;
}

// Every test gets a pipe as fd 0 before Tcl first looks at standard input,
// and a SIGTERM that is counted instead of ending the test program.
class Console : public ::testing::Test {
protected:
    void SetUp() override
    {
        Tcl_FindExecutable(nullptr);
        struct sigaction action = {};
        action.sa_handler = recordSigterm;
        sigemptyset(&action.sa_mask);
        ASSERT_EQ(sigaction(SIGTERM, &action, &m_previousAction), 0);
        sigtermCount = 0;
        m_savedStdin = fcntl(0, F_DUPFD_CLOEXEC, 3);  // -1: the runner gave no stdin
        m_writeEnd = stdinPipe();
        ASSERT_NE(m_writeEnd, -1);
        if (testsBefore++ > 0)
            giveTclAStandardInput();
    }

    void TearDown() override
    {
        DBG_InManager::desinstance();
        closeWriteEnd();
        if (m_savedStdin != -1) {
            dup2(m_savedStdin, 0);
            close(m_savedStdin);
        } else {
            close(0);
        }
        sigaction(SIGTERM, &m_previousAction, nullptr);
    }

    // Makes fd 0 the read end of a new pipe; returns the write end.
    static int stdinPipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return -1;
        if (ends[0] != 0) {  // with fd 0 closed the read end lands there
            if (dup2(ends[0], 0) != 0)
                return -1;
            close(ends[0]);
        }
        return ends[1];
    }

    // A console closes Tcl's standard input channel when it goes, and Tcl
    // never makes another: a test after it in the same process gets a new
    // one on the new fd 0. The first test leaves it to Tcl.
    static void giveTclAStandardInput()
    {
        if (Tcl_GetStdChannel(TCL_STDIN))
            return;
        Tcl_Channel const channel = Tcl_MakeFileChannel(reinterpret_cast<ClientData>(0), TCL_READABLE);
        ASSERT_NE(channel, nullptr);
        Tcl_SetStdChannel(channel, TCL_STDIN);
    }

    void writeStdin(std::string const& bytes)
    {
        ASSERT_EQ(write(m_writeEnd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }

    void closeWriteEnd()
    {
        if (m_writeEnd != -1)
            close(m_writeEnd);
        m_writeEnd = -1;
    }

    // The console, created with its expectedBanner out of the way.
    DBG_InManager* console()
    {
        CoutCapture quiet;
        return DBG_InManager::instance();
    }

private:
    static inline int testsBefore = 0;
    struct sigaction m_previousAction = {};
    int m_savedStdin = -1;
    int m_writeEnd = -1;
};

TEST_F(Console, BannerIsSevenBoxLinesAndAPromptLine)
{
    CoutCapture out;
    ASSERT_NE(DBG_InManager::instance(), nullptr);
    EXPECT_EQ(out.text(), expectedBanner);
    std::string const text = out.text();
    std::size_t begin = 0;
    for (int line = 0; line < 7; ++line) {
        std::size_t const end = text.find('\n', begin);
        ASSERT_NE(end, std::string::npos);
        EXPECT_EQ(end - begin, 28u) << "line " << line + 1;
        begin = end + 1;
    }
    EXPECT_EQ(text.substr(begin), ">\n");
}

// The host may build a console of its own and read the instance pointer.
TEST_F(Console, EveryMemberIsPublic)
{
    static_assert(std::is_default_constructible<DBG_InManager>::value, "public constructor");
    EXPECT_EQ(DBG_InManager::pInManager, nullptr);
    {
        CoutCapture out;
        DBG_InManager const own;
        EXPECT_EQ(out.text(), expectedBanner);
        EXPECT_EQ(DBG_InManager::pInManager, nullptr) << "a console made directly is not the instance";
    }
    DBG_InManager* const made = console();
    EXPECT_EQ(DBG_InManager::pInManager, made);
    DBG_InManager::desinstance();
    EXPECT_EQ(DBG_InManager::pInManager, nullptr);
}

TEST_F(Console, SecondInstanceCallReturnsTheSameConsoleWithoutBanner)
{
    CoutCapture out;
    DBG_InManager* const first = DBG_InManager::instance();
    DBG_InManager* const second = DBG_InManager::instance();
    EXPECT_EQ(first, second);
    EXPECT_EQ(out.text(), expectedBanner);
}

TEST_F(Console, InstanceAfterDesinstancePrintsTheBannerAgain)
{
    CoutCapture out;
    ASSERT_NE(DBG_InManager::instance(), nullptr);
    DBG_InManager::desinstance();
    // The first console closed Tcl's standard input: the second one has
    // nothing to attach to, and must not fall over that.
    DBG_InManager* const again = DBG_InManager::instance();
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->chan, nullptr);
    EXPECT_EQ(out.text(), std::string(expectedBanner) + expectedBanner);
}

TEST_F(Console, ConsoleAfterDesinstanceReadsTheStandardInputTheHostGivesAgain)
{
    ImcSession imc;
    console();
    DBG_InManager::desinstance();
    int const writeEnd = stdinPipe();
    ASSERT_NE(writeEnd, -1);
    ASSERT_EQ(write(writeEnd, "EXIT\n", 5), 5);
    close(writeEnd);
    Tcl_SetStdChannel(Tcl_MakeFileChannel(reinterpret_cast<ClientData>(intptr_t(0)), TCL_READABLE),
                      TCL_STDIN);
    CoutCapture out;
    DBG_InManager* const again = DBG_InManager::instance();
    ASSERT_NE(again->chan, nullptr);
    imc_standin::clearCalls();
    DBG_InManager::Tcl_StdinHandler(again->chan, TCL_READABLE);
    auto const received = callsOf(imc_standin::Operation::ReceiveCommand);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].text, "EXIT");
    EXPECT_EQ(out.text(), std::string(expectedBanner) + "Unknown command EXIT\n>");
}

TEST_F(Console, WithoutStandardInputTheBannerStillComes)
{
    close(0);
    // A channel given by the fixture, after a test before this one in the
    // same process, goes too: Tcl would have made none.
    if (Tcl_Channel const given = Tcl_GetStdChannel(TCL_STDIN))
        Tcl_Close(nullptr, given);
    CoutCapture out;
    DBG_InManager* const in = DBG_InManager::instance();
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(in->chan, nullptr);
    EXPECT_EQ(out.text(), expectedBanner);
    DBG_InManager::desinstance();
}

class ConsoleExitLine : public Console, public ::testing::WithParamInterface<char const*> {
};

TEST_P(ConsoleExitLine, SignalsSigtermAndPrintsNothing)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    CoutCapture out;
    in->onStdInput(GetParam());
    EXPECT_TRUE(sigtermArrived());
    EXPECT_EQ(sigtermCount, 1);
    EXPECT_EQ(out.text(), "");
    EXPECT_TRUE(imc_standin::calls().empty()) << "the manager was involved";
}

INSTANTIATE_TEST_SUITE_P(Lines, ConsoleExitLine,
                         ::testing::Values("exit", "DBG exit", "nexit", "  exit now"));

TEST_F(Console, UpperCaseExitGoesToTheManager)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    CoutCapture out;
    in->onStdInput("EXIT");
    EXPECT_TRUE(sigtermStaysAway());
    auto const received = callsOf(imc_standin::Operation::ReceiveCommand);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].text, "EXIT");
    EXPECT_EQ(received[0].number, 0);
    EXPECT_EQ(out.text(), "Unknown command EXIT\n>");
}

TEST_F(Console, EmptyLineGoesToTheManagerThenThePrompt)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    CoutCapture out;
    in->onStdInput("");
    auto const received = callsOf(imc_standin::Operation::ReceiveCommand);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].text, "");
    EXPECT_EQ(received[0].number, 0);
    EXPECT_EQ(out.text(), ">");
}

TEST_F(Console, LineGoesToTheManagerUntrimmedWithModule15)
{
    ImcSession imc;
    DBG_OutManager::instance();
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    CoutCapture out;
    std::string const line = "  DBG out \t std  ";
    in->onStdInput(line);
    auto const& calls = imc_standin::calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[0].operation, imc_standin::Operation::Instance);
    EXPECT_EQ(calls[0].number, 15);
    EXPECT_EQ(calls[1].operation, imc_standin::Operation::ReceiveCommand);
    EXPECT_EQ(calls[1].text, line);
    EXPECT_EQ(calls[1].number, 0);
    EXPECT_EQ(out.text(), "Debug Output set to console\n>");
}

TEST_F(Console, ConsoleFlagIsSetBeforeTheManagerRoutesTheLine)
{
    ImcSession imc;
    RecordingObserver probe;
    imc_standin::manager()->registration(&probe, "probe");
    // Outside the console the flag stays down: the probe can tell.
    imc_standin::manager()->receiveCommand(0, "probe direct");
    DBG_InManager* const in = console();
    CoutCapture out;
    in->onStdInput("probe console");
    imc_standin::manager()->unregistration(&probe, "probe");
    ASSERT_EQ(probe.received.size(), 2u);
    EXPECT_EQ(probe.received[0].line, "probe direct");
    EXPECT_EQ(probe.received[0].consoleFlag, 0);
    EXPECT_EQ(probe.received[1].line, "probe console");
    EXPECT_EQ(probe.received[1].consoleFlag, 1);
    EXPECT_EQ(out.text(), ">");
}

TEST_F(Console, WithoutAManagerEveryLineIsLost)
{
    DBG_InManager* const in = console();
    ASSERT_EQ(imc_standin::manager(), nullptr);
    CoutCapture out;
    in->onStdInput("help");
    in->onStdInput("DBG out std");
    EXPECT_EQ(out.text(), "command lost\n>command lost\n>");
}

// Every banner line and "command lost" end with std::endl: each is on its
// way to the operator before the next one is written.
TEST_F(Console, BannerLinesAreFlushedOneByOne)
{
    CoutCapture output;
    ASSERT_NE(DBG_InManager::instance(), nullptr);
    std::vector<std::string> const lines = bannerLines();
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(output.flushed(), lines);
    EXPECT_EQ(output.unflushed(), "");
}

// Every text of the console is inserted into std::cout as the stream
// formats it: a width set on std::cout pads it. The base another module
// left on std::cout stays as it was.
TEST_F(Console, BannerTakesTheWidthOfStdCoutAndKeepsItsBase)
{
    for (std::ios::fmtflags const flags : {moduleDecimal, moduleHexadecimal}) {
        PaddedCoutCapture output(30, '.', flags);
        ASSERT_NE(DBG_InManager::instance(), nullptr);
        std::string padded;
        for (std::string const& line : bannerLines())
            padded += paddedText(line, 31, '.');
        EXPECT_EQ(output.text(), padded);
        EXPECT_EQ(std::cout.flags(), flags);
        DBG_InManager::desinstance();
    }
}

TEST_F(Console, CommandLostAndPromptTakeTheWidthOfStdCoutAndKeepItsBase)
{
    DBG_InManager* const in = console();
    ASSERT_EQ(imc_standin::manager(), nullptr);
    for (std::ios::fmtflags const flags : {moduleDecimal, moduleHexadecimal}) {
        PaddedCoutCapture output(14, '.', flags);
        in->onStdInput("help");
        EXPECT_EQ(output.text(), "..command lost\n.............>");
        EXPECT_EQ(std::cout.flags(), flags);
    }
}

TEST_F(Console, PromptAfterACommandTakesTheWidthOfStdCoutAndKeepsItsBase)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    for (std::ios::fmtflags const flags : {moduleDecimal, moduleHexadecimal}) {
        PaddedCoutCapture output(3, '.', flags);
        in->onStdInput("");
        EXPECT_EQ(output.text(), "..>");
        EXPECT_EQ(std::cout.flags(), flags);
    }
}

TEST_F(Console, CommandLostIsFlushedBeforeThePrompt)
{
    DBG_InManager* const in = console();
    ASSERT_EQ(imc_standin::manager(), nullptr);
    CoutCapture output;
    in->onStdInput("help");
    EXPECT_EQ(output.flushed(), (std::vector<std::string>{"command lost\n", ">"}));
    EXPECT_EQ(output.unflushed(), "");
}

TEST_F(Console, NullManagerLosesTheLine)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::injectFault(imc_standin::Operation::Instance, imc_standin::Fault::NullInstance);
    imc_standin::clearCalls();
    CoutCapture out;
    in->onStdInput("help");
    in->onStdInput("help");
    EXPECT_EQ(out.text(), "command lost\n>command lost\n>");
    EXPECT_TRUE(callsOf(imc_standin::Operation::ReceiveCommand).empty());
}

TEST_F(Console, RuntimeErrorFromTheManagerLosesTheLine)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::injectFault(imc_standin::Operation::ReceiveCommand, imc_standin::Fault::RuntimeError, 1);
    CoutCapture out;
    in->onStdInput("EXIT");
    in->onStdInput("EXIT");
    EXPECT_EQ(out.text(), "command lost\n>Unknown command EXIT\n>");
}

TEST_F(Console, OtherExceptionsLeaveTheConsole)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::injectFault(imc_standin::Operation::ReceiveCommand, imc_standin::Fault::OtherException);
    CoutCapture out;
    EXPECT_THROW(in->onStdInput("help"), std::logic_error);
    EXPECT_EQ(out.text(), "");
}

// Watches the console's calls on Tcl for the life of the guard.
class TclWatch {
public:
    explicit TclWatch(CoutCapture const* capture = nullptr)
    {
        tclCalls.clear();
        coutWhileWatching = capture;
        watchingTcl = true;
    }
    ~TclWatch()
    {
        watchingTcl = false;
        coutWhileWatching = nullptr;
    }
    TclWatch(TclWatch const&) = delete;
    TclWatch& operator=(TclWatch const&) = delete;
};

std::vector<TclCall> tclCallsNamed(std::vector<std::string> const& names)
{
    std::vector<TclCall> found;
    for (TclCall const& call : tclCalls)
        if (std::find(names.begin(), names.end(), call.name) != names.end())
            found.push_back(call);
    return found;
}

// The handler is attached, for readable events with the channel as its
// client data, before the banner is printed.
TEST_F(Console, HandlerIsAttachedBeforeTheBanner)
{
    CoutCapture out;
    DBG_InManager* in = nullptr;
    {
        TclWatch const watch(&out);
        in = DBG_InManager::instance();
    }
    ASSERT_NE(in, nullptr);
    std::vector<TclCall> const creates = tclCallsNamed({"create"});
    ASSERT_EQ(creates.size(), 1u);
    EXPECT_EQ(creates[0].object, static_cast<void const*>(in->chan));
    EXPECT_EQ(creates[0].mask, TCL_READABLE);
    EXPECT_EQ(creates[0].procedure, &DBG_InManager::Tcl_StdinHandler);
    EXPECT_EQ(creates[0].clientData, static_cast<ClientData>(in->chan));
    EXPECT_EQ(creates[0].coutSoFar, "");
    EXPECT_EQ(out.text(), expectedBanner);
}

// The handler is removed with the same arguments, then the channel closed
// without an interpreter.
TEST_F(Console, DesinstanceRemovesTheHandlerThenClosesTheChannel)
{
    Tcl_Channel const channel = console()->chan;
    ASSERT_NE(channel, nullptr);
    {
        TclWatch const watch;
        DBG_InManager::desinstance();
    }
    std::vector<TclCall> const calls = tclCallsNamed({"delete", "close"});
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].name, "delete");
    EXPECT_EQ(calls[0].object, static_cast<void const*>(channel));
    EXPECT_EQ(calls[0].procedure, &DBG_InManager::Tcl_StdinHandler);
    EXPECT_EQ(calls[0].clientData, static_cast<ClientData>(channel));
    EXPECT_EQ(calls[1].name, "close");
    EXPECT_EQ(calls[1].object, static_cast<void const*>(channel));
    EXPECT_EQ(calls[1].clientData, nullptr);
}

// Each event's record is zero-filled, then initialised, then read into.
TEST_F(Console, EachRecordIsZeroFilledAndInitialisedBeforeTheLineIsRead)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    writeStdin("help\n");
    // A freed block of the record's size full of other bytes, where the
    // record is likely to be allocated next.
    void* const junk = ::operator new(sizeof(Tcl_DString));
    volatile unsigned char* const bytes = static_cast<unsigned char*>(junk);
    for (std::size_t i = 0; i < sizeof(Tcl_DString); ++i)
        bytes[i] = 0xA5;
    ::operator delete(junk);
    CoutCapture out;
    {
        TclWatch const watch;
        DBG_InManager::Tcl_StdinHandler(in->chan, TCL_READABLE);
    }
    std::vector<TclCall> const calls = tclCallsNamed({"init", "gets"});
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[0].name, "init");
    EXPECT_TRUE(calls[0].zeroFilled);
    std::vector<TclCall> const reads = tclCallsNamed({"gets"});
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].object, calls[0].object);
    EXPECT_EQ(reads[0].clientData, static_cast<ClientData>(in->chan));
}

TEST_F(Console, StdinHandlerPassesOneLineWithoutItsLineEnd)
{
    ImcSession imc;
    DBG_OutManager::instance();
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    writeStdin("DBG out imc\nEXIT\n");
    CoutCapture out;
    DBG_InManager::Tcl_StdinHandler(in->chan, TCL_READABLE);
    auto received = callsOf(imc_standin::Operation::ReceiveCommand);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].text, "DBG out imc");
    EXPECT_EQ(received[0].number, 0);
    EXPECT_EQ(out.text(), "Debug Output set to IMC\n>");
    DBG_InManager::Tcl_StdinHandler(in->chan, TCL_READABLE);
    received = callsOf(imc_standin::Operation::ReceiveCommand);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[1].text, "EXIT");
    EXPECT_EQ(out.text(), "Debug Output set to IMC\n>Unknown command EXIT\n>");
    EXPECT_TRUE(sigtermStaysAway());
}

TEST_F(Console, StdinHandlerAtEndOfInputSignalsAndStillPassesTheLine)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    closeWriteEnd();
    CoutCapture out;
    DBG_InManager::Tcl_StdinHandler(in->chan, TCL_READABLE);
    EXPECT_TRUE(sigtermArrived());
    EXPECT_EQ(sigtermCount, 1);
    auto const received = callsOf(imc_standin::Operation::ReceiveCommand);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].text, "");
    EXPECT_EQ(out.text(), ">");
}

// "exit" signals the process, not the console's thread only: a thread of
// the gateway's own may be the one that takes it.
TEST_F(Console, ExitLineSignalsTheProcessForAnyThreadToTake)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    CoutCapture out;
    SigtermHeldBack held;
    in->onStdInput("exit");
    EXPECT_TRUE(held.takenByAnotherThread());
    EXPECT_EQ(out.text(), "");
}

// At the end of input the signal goes to the process, and before the last
// line is handed on: the prompt after it finds it sent.
TEST_F(Console, EndOfInputSignalsTheProcessBeforeTheLastLineGoesOn)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    closeWriteEnd();
    SigtermHeldBack held;
    SigtermWatchingCapture out(held);
    DBG_InManager::Tcl_StdinHandler(in->chan, TCL_READABLE);
    EXPECT_EQ(out.text(), ">");
    EXPECT_EQ(out.sentAtFlush, std::vector<bool>{true});
    EXPECT_EQ(callsOf(imc_standin::Operation::ReceiveCommand).size(), 1u);
    EXPECT_TRUE(held.takenByAnotherThread());
}

TEST_F(Console, StdinHandlerHandsOverAPartialLastLineAtEndOfInput)
{
    ImcSession imc;
    DBG_InManager* const in = console();
    imc_standin::clearCalls();
    writeStdin("EXIT");
    closeWriteEnd();
    CoutCapture out;
    DBG_InManager::Tcl_StdinHandler(in->chan, TCL_READABLE);
    EXPECT_TRUE(sigtermArrived());
    auto const received = callsOf(imc_standin::Operation::ReceiveCommand);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].text, "EXIT");
    EXPECT_EQ(out.text(), "Unknown command EXIT\n>");
}

}  // namespace
