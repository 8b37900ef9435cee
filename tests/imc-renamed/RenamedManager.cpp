#include "RenamedManager.h"

#include <cstdlib>
#include <cstring>

namespace {
IMC_Manager manager;
}

std::vector<std::vector<unsigned char>> renamed_imc::posted;
std::vector<std::string> renamed_imc::received;
std::vector<int> renamed_imc::consoleFlagOnReceive;

IMC_Manager& renamed_imc::start(unsigned char identifier)
{
    std::memset(&manager, 0, sizeof manager);
    manager.mgr_id = static_cast<signed char>(identifier);
    return manager;
}

IMC_Manager* IMC_Manager::instance(unsigned char)
{
    return &manager;
}

int IMC_Manager::registration(IMC_CommandObserver*, const std::string&)
{
    return 0;
}

int IMC_Manager::unregistration(IMC_CommandObserver*, const std::string&)
{
    return 0;
}

int IMC_Manager::receiveCommand(int, const std::string& text)
{
    renamed_imc::received.push_back(text);
    renamed_imc::consoleFlagOnReceive.push_back(consoleFlag);
    return 0;
}

int IMC_Manager::answerCommand(const std::string&)
{
    return 0;
}

int IMC_Manager::trace(const std::string&, const std::string&, int) const
{
    return 0;
}

int IMC_Manager::error(const std::string&, const std::string&, int) const
{
    return 0;
}

int IMC_Manager::post(imc_msg& message)
{
    unsigned char const* bytes = reinterpret_cast<unsigned char const*>(&message);
    renamed_imc::posted.emplace_back(bytes, bytes + sizeof message);
    return 0;
}

void IMC_Manager::coreDumpExit(ExitCause)
{
    std::abort();
}
