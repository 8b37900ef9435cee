// An IMC command observer that keeps every line the manager gives it, with
// the line's source and the manager's console flag at that moment. With a
// shared log it also notes "<name>:<line>" there, so that a test sees the
// order among several observers.
#ifndef DBG_RECORDING_OBSERVER_H
#define DBG_RECORDING_OBSERVER_H

#include <string>
#include <vector>

#include "IMC_CommandObserver.h"

class RecordingObserver : public IMC_CommandObserver {
public:
    struct Received {
        std::string line;
        int source;
        int consoleFlag;
        bool operator==(Received const& other) const
        {
            return line == other.line && source == other.source && consoleFlag == other.consoleFlag;
        }
    };

    explicit RecordingObserver(std::string name = std::string(), std::vector<std::string>* log = nullptr);
    void command(std::string const& line, int source) override;

    std::vector<Received> received;

private:
    std::string m_name;
    std::vector<std::string>* m_log;
};

#endif
