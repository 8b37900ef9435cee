// The manager's seam for test doubles, internal to the stand-in's build and
// never installed. An installed probe sees each operation with its
// arguments before the manager carries it out, and may throw in its place.
// A shipped process installs none: the manager then copies and checks
// nothing.
#ifndef IMC_PROBE_H
#define IMC_PROBE_H

#include <string>

#include "IMC_Manager.h"

namespace imc_standin {

class Probe {
public:
    virtual ~Probe() = default;
    // false: instance() answers null instead of the manager.
    virtual bool instance(unsigned char module) = 0;
    virtual void registration(IMC_CommandObserver const* observer, std::string const& key) = 0;
    virtual void unregistration(IMC_CommandObserver const* observer, std::string const& key) = 0;
    virtual void receiveCommand(int source, std::string const& line) = 0;
    virtual void answerCommand(std::string const& answer) = 0;
    virtual void trace(std::string const& text, std::string const& origin, int line) = 0;
    virtual void error(std::string const& text, std::string const& origin, int line) = 0;
    virtual void post(imc_msg const& msg) = 0;
    virtual void coreDumpExit(int cause) = 0;
};

// Null removes the probe; the caller keeps ownership.
void setProbe(Probe* probe);

}  // namespace imc_standin

#endif
