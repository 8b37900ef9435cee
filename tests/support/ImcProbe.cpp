#include "ImcProbe.h"

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>

#include "IMC_Probe.h"

namespace imc_standin {
namespace {

struct InjectedFault {
    Fault fault = Fault::None;
    int remaining = 0;  // negative: until cleared
    int skip = 0;       // calls still to go through first
};

class RecordingProbe : public Probe {
public:
    RecordingProbe() { setProbe(this); }
    // Static objects destroyed after this one may still call the manager.
    ~RecordingProbe() override { setProbe(nullptr); }

    bool instance(unsigned char module) override
    {
        record(Operation::Instance, "", "", module);
        return raiseDueFault(Operation::Instance) != Fault::NullInstance;
    }
    void registration(IMC_CommandObserver const* observer, std::string const& key) override
    {
        record(Operation::Registration, key, "", 0, observer);
        raiseDueFault(Operation::Registration);
    }
    void unregistration(IMC_CommandObserver const* observer, std::string const& key) override
    {
        record(Operation::Unregistration, key, "", 0, observer);
        raiseDueFault(Operation::Unregistration);
    }
    void receiveCommand(int source, std::string const& line) override
    {
        record(Operation::ReceiveCommand, line, "", source);
        raiseDueFault(Operation::ReceiveCommand);
    }
    void answerCommand(std::string const& answer) override
    {
        record(Operation::AnswerCommand, answer);
        raiseDueFault(Operation::AnswerCommand);
    }
    void trace(std::string const& text, std::string const& origin, int line) override
    {
        record(Operation::Trace, text, origin, line);
        raiseDueFault(Operation::Trace);
    }
    void error(std::string const& text, std::string const& origin, int line) override
    {
        record(Operation::Error, text, origin, line);
        raiseDueFault(Operation::Error);
    }
    void post(imc_msg const& msg) override
    {
        record(Operation::Post, "", "", 0, nullptr, &msg);
        raiseDueFault(Operation::Post);
    }
    void coreDumpExit(int cause) override
    {
        record(Operation::CoreDumpExit, "", "", cause);
        raiseDueFault(Operation::CoreDumpExit);
    }

    // Guards the faults, the reactions and the record: the library calls
    // the manager from many threads.
    std::mutex lock;
    std::map<Operation, InjectedFault> faults;
    std::map<Operation, std::function<void()>> reactions;
    bool recording = false;
    std::vector<Call> calls;
    std::atomic<int> blocked{0};

private:
    void record(Operation operation, std::string const& text = std::string(),
                std::string const& origin = std::string(), int number = 0,
                IMC_CommandObserver const* observer = nullptr, imc_msg const* msg = nullptr)
    {
        std::function<void()> reaction;
        {
            std::lock_guard<std::mutex> const guard(lock);
            auto const found = reactions.find(operation);
            if (found != reactions.end())
                reaction = found->second;
            if (recording)
                calls.push_back(makeCall(operation, text, origin, number, observer, msg));
        }
        if (reaction)
            reaction();
    }

    static Call makeCall(Operation operation, std::string const& text, std::string const& origin, int number,
                         IMC_CommandObserver const* observer, imc_msg const* msg)
    {
        Call call;
        call.operation = operation;
        call.text = text;
        call.origin = origin;
        call.number = number;
        call.observer = observer;
        if (msg) {
            auto const* bytes = reinterpret_cast<unsigned char const*>(msg);
            call.record.assign(bytes, bytes + sizeof *msg);
        }
        return call;
    }

    // The fault now due for an operation, counting it down.
    Fault dueFault(Operation operation)
    {
        std::lock_guard<std::mutex> const guard(lock);
        auto found = faults.find(operation);
        if (found == faults.end() || found->second.remaining == 0)
            return Fault::None;
        if (found->second.skip > 0) {
            --found->second.skip;
            return Fault::None;
        }
        if (found->second.remaining > 0)
            --found->second.remaining;
        return found->second.fault;
    }

    // Throws the due fault; a fault that is not an exception is returned.
    Fault raiseDueFault(Operation operation)
    {
        Fault const fault = dueFault(operation);
        switch (fault) {
        case Fault::RuntimeError:
            throw std::runtime_error("injected fault");
        case Fault::OtherException:
            throw std::logic_error("injected fault");
        case Fault::ForeignException:
            throw NonStandardFault();
        case Fault::BadAlloc:
            throw std::bad_alloc();
        case Fault::BlockUntilCancelled:
            // pthread_testcancel rather than a blocking call: qemu-user
            // cannot unwind a cancellation out of a system call on PowerPC.
            ++blocked;
            for (;;) {
                pthread_testcancel();
                sched_yield();
            }
        case Fault::None:
        case Fault::NullInstance:
            break;
        }
        return fault;
    }
};

// Installed by the first use of anything below.
RecordingProbe& probe()
{
    static RecordingProbe installed;
    return installed;
}

}  // namespace

void injectFault(Operation operation, Fault fault, int times, int skip)
{
    std::lock_guard<std::mutex> const guard(probe().lock);
    probe().faults[operation] = InjectedFault{fault, times, skip};
}

void clearFaults()
{
    std::lock_guard<std::mutex> const guard(probe().lock);
    probe().faults.clear();
    probe().reactions.clear();
}

void react(Operation operation, std::function<void()> action)
{
    std::lock_guard<std::mutex> const guard(probe().lock);
    if (action)
        probe().reactions[operation] = std::move(action);
    else
        probe().reactions.erase(operation);
}

int blockedCalls()
{
    return probe().blocked;
}

void setRecording(bool on)
{
    std::lock_guard<std::mutex> const guard(probe().lock);
    probe().recording = on;
}

std::vector<Call> const& calls()
{
    return probe().calls;
}

void clearCalls()
{
    std::lock_guard<std::mutex> const guard(probe().lock);
    probe().calls.clear();
}

}  // namespace imc_standin
