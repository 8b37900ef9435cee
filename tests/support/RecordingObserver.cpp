#include "RecordingObserver.h"

#include <utility>

#include "IMC_StandIn.h"

RecordingObserver::RecordingObserver(std::string name, std::vector<std::string>* log)
    : m_name(std::move(name)), m_log(log)
{
}

void RecordingObserver::command(std::string const& line, int source)
{
    received.push_back({line, source, imc_standin::manager()->consoleFlag});
    if (m_log)
        m_log->push_back(m_name + ":" + line);
}
