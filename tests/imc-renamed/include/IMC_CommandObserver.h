// A test-only IMC interface shaped as another maker could ship it: the same
// operations and bytes as the stand-in, other names and types for the fields.
#ifndef IMC_COMMANDOBSERVER_H
#define IMC_COMMANDOBSERVER_H

#include <string>

class IMC_CommandObserver {
public:
    virtual ~IMC_CommandObserver() {}
    virtual void command(const std::string& commandLine, int origin) = 0;
};

#endif
