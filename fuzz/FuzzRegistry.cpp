#include "FuzzRegistry.h"

#include <map>

namespace dbg_fuzz {

namespace {

// Built on first use: the registrations run during static initialisation,
// in no fixed order.
std::map<std::string, Check>& checks()
{
    static std::map<std::string, Check> byName;
    return byName;
}

}  // namespace

Registration::Registration(char const* target, Check check)
{
    checks()[target] = check;
}

std::vector<std::string> registeredTargets()
{
    std::vector<std::string> names;
    for (auto const& entry : checks())
        names.push_back(entry.first);
    return names;
}

std::string check(std::string const& target, std::uint8_t const* data, std::size_t size)
{
    auto const found = checks().find(target);
    if (found == checks().end())
        return "no fuzz target " + target + " is registered";
    return found->second(data, size);
}

}  // namespace dbg_fuzz
