// How the command observer enters and leaves the IMC manager's routing, on
// its own and as built by the output manager.
#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
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

void expectCall(Call const& call, Operation operation, std::string const& key,
                IMC_CommandObserver const* observer)
{
    EXPECT_EQ(call.operation, operation);
    EXPECT_EQ(call.text, key);
    EXPECT_EQ(call.observer, observer);
}

#if !defined(__SANITIZE_ADDRESS__)
// A thread's whole work: an observer whose "help" registration fails or is
// cancelled, so that "DBG" is released again.
void* buildObserver(void* manager)
{
    DBG_CmdObserver observer(static_cast<IMC_Manager*>(manager));
    return nullptr;
}

// In a death test's child: the thread blocks in `blocked` ("help"'s
// registration, or the release of "DBG" after it failed) until it is
// cancelled; it must end with "DBG" released, and the process go on.
void cancelWhileBlockedIn(Operation blocked)
{
    if (blocked == Operation::Unregistration)
        imc_standin::injectFault(Operation::Registration, Fault::RuntimeError, 1, 1);
    imc_standin::injectFault(blocked, Fault::BlockUntilCancelled, 1, blocked == Operation::Registration ? 1 : 0);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, buildObserver, imc_standin::manager()) != 0)
        _exit(2);
    for (int waited = 0; imc_standin::blockedCalls() == 0; ++waited) {
        if (waited == 20000)
            _exit(3);  // 20 s: it never got there
        usleep(1000);
    }
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    std::fputs(result == PTHREAD_CANCELED ? "cancelled thread ended" : "thread not cancelled", stderr);
    if (textsOf(Operation::Unregistration) == std::vector<std::string>{"DBG"})
        std::fputs(", DBG released", stderr);
    _exit(0);
}
#endif

}  // namespace

class CmdObserverRegistration : public ::testing::Test {
protected:
    ~CmdObserverRegistration() override { imc_standin::setAnswerHandler(nullptr); }

    std::vector<std::string> answers;
    ImcSession session;

    // Routes a line and returns the answers it produced.
    std::vector<std::string> route(std::string const& line)
    {
        answers.clear();
        imc_standin::setAnswerHandler([this](std::string const& answer) { answers.push_back(answer); });
        imc_standin::manager()->receiveCommand(0, line);
        return answers;
    }
};

TEST_F(CmdObserverRegistration, ConstructorRegistersDbgThenHelpWithItself)
{
    IMC_Manager* manager = imc_standin::manager();
    DBG_CmdObserver observer(manager);
    EXPECT_EQ(observer.pImcManager, manager);
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 2u);
    IMC_CommandObserver const* self = &observer;
    expectCall(calls[0], Operation::Registration, "DBG", self);
    expectCall(calls[1], Operation::Registration, "help", self);
}

TEST_F(CmdObserverRegistration, DestructorUnregistersInTheSameOrder)
{
    auto observer = std::make_unique<DBG_CmdObserver>(imc_standin::manager());
    IMC_CommandObserver const* self = observer.get();
    imc_standin::clearCalls();
    observer.reset();
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 2u);
    expectCall(calls[0], Operation::Unregistration, "DBG", self);
    expectCall(calls[1], Operation::Unregistration, "help", self);
}

TEST_F(CmdObserverRegistration, DestroyedThroughTheBaseUnregisters)
{
    IMC_CommandObserver* observer = new DBG_CmdObserver(imc_standin::manager());
    imc_standin::clearCalls();
    delete observer;
    std::vector<Call> const unregistrations = callsOf(Operation::Unregistration);
    ASSERT_EQ(unregistrations.size(), 2u);
    EXPECT_EQ(unregistrations[0].text, "DBG");
    EXPECT_EQ(unregistrations[1].text, "help");
}

TEST_F(CmdObserverRegistration, RegisteredKeysAreRoutedToItUntilItIsDestroyed)
{
    EXPECT_EQ(route("help"), (std::vector<std::string>{"Unknown command help\n"}));
    {
        DBG_CmdObserver observer(imc_standin::manager());
        std::vector<std::string> const whileRegistered = route("help");
        ASSERT_EQ(whileRegistered.size(), 1u);
        EXPECT_NE(whileRegistered[0], "Unknown command help\n");
    }
    EXPECT_EQ(route("help"), (std::vector<std::string>{"Unknown command help\n"}));
    EXPECT_EQ(route("DBG help"), (std::vector<std::string>{"Unknown command DBG\n"}));
}

TEST_F(CmdObserverRegistration, FirstRegistrationThrowingStopsTheConstructor)
{
    imc_standin::injectFault(Operation::Registration, Fault::RuntimeError, 1);
    EXPECT_THROW(DBG_CmdObserver observer(imc_standin::manager()), std::runtime_error);
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].operation, Operation::Registration);
    EXPECT_EQ(calls[0].text, "DBG");
    EXPECT_TRUE(callsOf(Operation::Unregistration).empty());
}

TEST_F(CmdObserverRegistration, SecondRegistrationThrowingReleasesTheFirstKey)
{
    imc_standin::injectFault(Operation::Registration, Fault::RuntimeError, 1, 1);
    EXPECT_THROW(DBG_CmdObserver observer(imc_standin::manager()), std::runtime_error);
    std::vector<Call> const calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 3u);
    expectCall(calls[0], Operation::Registration, "DBG", calls[0].observer);
    expectCall(calls[1], Operation::Registration, "help", calls[0].observer);
    expectCall(calls[2], Operation::Unregistration, "DBG", calls[0].observer);
    // Nothing is left registered that could be called after the failure.
    EXPECT_EQ(route("DBG help"), (std::vector<std::string>{"Unknown command DBG\n"}));
}

TEST_F(CmdObserverRegistration, SecondRegistrationFailingLeavesTheManagerWithoutCommands)
{
    imc_standin::injectFault(Operation::Registration, Fault::RuntimeError, 1, 1);
    DBG_OutManager* manager = DBG_OutManager::instance();
    EXPECT_EQ(manager->pCmdObserver, nullptr);
    EXPECT_EQ(route("DBG out"), (std::vector<std::string>{"Unknown command DBG\n"}));
    EXPECT_EQ(route("help"), (std::vector<std::string>{"Unknown command help\n"}));
}

TEST_F(CmdObserverRegistration, UnregistrationFailingInTheDestructorStillReleasesTheOtherKey)
{
    auto observer = std::make_unique<DBG_CmdObserver>(imc_standin::manager());
    imc_standin::clearCalls();
    imc_standin::injectFault(Operation::Unregistration, Fault::RuntimeError, 1);
    EXPECT_NO_THROW(observer.reset());
    std::vector<Call> const unregistrations = callsOf(Operation::Unregistration);
    ASSERT_EQ(unregistrations.size(), 2u);
    EXPECT_EQ(unregistrations[0].text, "DBG");
    EXPECT_EQ(unregistrations[1].text, "help");
    EXPECT_EQ(route("help"), (std::vector<std::string>{"Unknown command help\n"}));
}

TEST_F(CmdObserverRegistration, OtherExceptionFromRegistrationPassesThrough)
{
    imc_standin::injectFault(Operation::Registration, Fault::OtherException, 1);
    EXPECT_THROW(DBG_CmdObserver observer(imc_standin::manager()), std::logic_error);
    EXPECT_EQ(callsOf(Operation::Registration).size(), 1u);
}

// The release of "DBG" after a failed registration fails too, with any
// standard exception: the caller still sees the registration's own.
class CmdObserverCleanUp : public CmdObserverRegistration, public ::testing::WithParamInterface<Fault> {};

TEST_P(CmdObserverCleanUp, FailingCleanUpDoesNotReplaceTheRegistrationFailure)
{
    imc_standin::injectFault(Operation::Registration, Fault::ForeignException, 1, 1);
    imc_standin::injectFault(Operation::Unregistration, GetParam(), 1);
    EXPECT_THROW(DBG_CmdObserver observer(imc_standin::manager()), imc_standin::NonStandardFault);
    EXPECT_EQ(callsOf(Operation::Unregistration).size(), 1u);
}

std::string standardKindName(::testing::TestParamInfo<Fault> const& info)
{
    return info.param == Fault::RuntimeError ? "RuntimeError"
           : info.param == Fault::OtherException ? "LogicError"
                                                  : "BadAlloc";
}

INSTANTIATE_TEST_SUITE_P(EveryStandardKind, CmdObserverCleanUp,
                         ::testing::Values(Fault::RuntimeError, Fault::OtherException, Fault::BadAlloc),
                         standardKindName);

// Whatever the second registration throws, standard exception or not, the
// first key is released before it passes on.
TEST_F(CmdObserverRegistration, ForeignExceptionFromTheSecondRegistrationReleasesTheFirstKey)
{
    imc_standin::injectFault(Operation::Registration, Fault::ForeignException, 1, 1);
    EXPECT_THROW(DBG_CmdObserver observer(imc_standin::manager()), imc_standin::NonStandardFault);
    std::vector<Call> const unregistrations = callsOf(Operation::Unregistration);
    ASSERT_EQ(unregistrations.size(), 1u);
    EXPECT_EQ(unregistrations[0].text, "DBG");
}

// Only a standard exception of the release is held back: one of no
// standard type passes on, as a cancellation of the thread must.
TEST_F(CmdObserverRegistration, NonStandardExceptionFromTheCleanUpPassesOn)
{
    imc_standin::injectFault(Operation::Registration, Fault::RuntimeError, 1, 1);
    imc_standin::injectFault(Operation::Unregistration, Fault::ForeignException, 1);
    EXPECT_THROW(DBG_CmdObserver observer(imc_standin::manager()), imc_standin::NonStandardFault);
    EXPECT_EQ(callsOf(Operation::Unregistration).size(), 1u);
}

TEST_F(CmdObserverRegistration, FailingCleanUpStillLetsTheRegistrationFailureReachTheManagersCaller)
{
    imc_standin::injectFault(Operation::Registration, Fault::OtherException, 1, 1);
    imc_standin::injectFault(Operation::Unregistration, Fault::RuntimeError, 1);
    EXPECT_THROW(DBG_OutManager::instance(), std::logic_error);
}

TEST_F(CmdObserverRegistration, OutputManagerBuildsExactlyOneObserverOnInstance255)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    ASSERT_NE(manager->pCmdObserver, nullptr);
    EXPECT_EQ(manager->pCmdObserver->pImcManager, imc_standin::manager());
    IMC_CommandObserver const* observer = manager->pCmdObserver;
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].operation, Operation::Instance);
    EXPECT_EQ(calls[0].number, 255);
    expectCall(calls[1], Operation::Registration, "DBG", observer);
    expectCall(calls[2], Operation::Registration, "help", observer);
    // A second instance() builds nothing more.
    DBG_OutManager::instance();
    EXPECT_EQ(imc_standin::calls().size(), 3u);
}

TEST_F(CmdObserverRegistration, OutputManagerDestructionUnregistersItsObserver)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    IMC_CommandObserver const* observer = manager->pCmdObserver;
    imc_standin::clearCalls();
    DBG_OutManager::desinstance();
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 2u);
    expectCall(calls[0], Operation::Unregistration, "DBG", observer);
    expectCall(calls[1], Operation::Unregistration, "help", observer);
}

TEST_F(CmdObserverRegistration, RegistrationFailingDuringManagerConstructionLeavesNoObserver)
{
    imc_standin::injectFault(Operation::Registration, Fault::RuntimeError, 1);
    DBG_OutManager* manager = nullptr;
    ASSERT_NO_THROW(manager = DBG_OutManager::instance());
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(manager->pCmdObserver, nullptr);
    EXPECT_EQ(callsOf(Operation::Registration).size(), 1u);
    std::string const name = *manager->pOutput;
    EXPECT_EQ(name, "console");
    CoutCapture capture;
    *manager << std::string("works ") << 1;
    manager->flush(false, "o", 1);
    EXPECT_EQ(capture.text(), "works 1");
    // Without an observer, destroying the manager unregisters nothing.
    imc_standin::clearCalls();
    DBG_OutManager::desinstance();
    EXPECT_TRUE(callsOf(Operation::Unregistration).empty());
}

TEST_F(CmdObserverRegistration, OtherExceptionFromRegistrationStopsTheManager)
{
    imc_standin::injectFault(Operation::Registration, Fault::OtherException, 1);
    EXPECT_THROW(DBG_OutManager::instance(), std::logic_error);
    imc_standin::clearCalls();
    DBG_OutManager* manager = DBG_OutManager::instance();
    EXPECT_NE(manager->pCmdObserver, nullptr);
    EXPECT_EQ(callsOf(Operation::Instance).size(), 1u);
    EXPECT_EQ(callsOf(Operation::Registration).size(), 2u);
}

// Not under AddressSanitizer: glibc unwinds a cancelled thread without its
// knowledge, and its own check fails at the next throw on that thread.
#if !defined(__SANITIZE_ADDRESS__)
class CmdObserverCancellationDeathTest : public CmdObserverRegistration {};

// Cancellation unwinds the thread through the clean-up: swallowing it there
// would abort the whole process.
TEST_F(CmdObserverCancellationDeathTest, ThreadCancelledInTheCleanUpUnregistrationEndsAndTheProcessGoesOn)
{
    EXPECT_EXIT(cancelWhileBlockedIn(Operation::Unregistration), ::testing::ExitedWithCode(0),
                "cancelled thread ended, DBG released");
}

TEST_F(CmdObserverCancellationDeathTest, ThreadCancelledInTheSecondRegistrationReleasesTheFirstKeyAndEnds)
{
    EXPECT_EXIT(cancelWhileBlockedIn(Operation::Registration), ::testing::ExitedWithCode(0),
                "cancelled thread ended, DBG released");
}
#endif
