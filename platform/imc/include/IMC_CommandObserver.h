// Stand-in for the IMC library's command observer base. The maker's own
// header can replace this one at build time (DBG_IMC_INCLUDE_DIR).
#ifndef IMC_COMMANDOBSERVER_H
#define IMC_COMMANDOBSERVER_H

#include <string>

// A module that answers command lines registers an observer with the
// IMC manager under one or more keys. Slot order: destructor, command.
class IMC_CommandObserver {
public:
    virtual ~IMC_CommandObserver();
    // Called with every command line that carries one of the observer's
    // keys; the int tells where the line came from.
    virtual void command(std::string const& line, int source) = 0;
};

#endif
