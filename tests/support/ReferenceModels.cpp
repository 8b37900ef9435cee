#include "ReferenceModels.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

std::string percentDoubled(std::string const& text)
{
    std::string result;
    for (char c : text) {
        result += c;
        if (c == '%')
            result += '%';
    }
    return result;
}

std::string hexDumpModel(unsigned char const* data, std::size_t length)
{
    std::string dump;
    dump.reserve(3 * length + length / 8);
    char group[4];
    for (std::size_t i = 1; i <= length; ++i) {
        std::snprintf(group, sizeof group, " %02X", unsigned(data[i - 1]));
        dump += group;
        if (i % 16 == 0)
            dump += '\n';
        else if (i % 8 == 0)
            dump += ' ';
    }
    return dump;
}

std::string trafficTrace(unsigned long step)
{
    static char const* const setups[] = {
        " setup from network codec g711alaw plan ISDN type national presentation allowed bearer bc_speech "
        "law alaw\n",
        " setup to network codec g729 plan ISDN type international presentation restricted bearer bc_speech "
        "law mulaw\n",
        " setup from network codec g722 plan national type subscriber presentation not available bearer "
        "31khz law alaw\n"};
    static char const* const releases[] = {
        " released cause NORM_REL (Normal call clearing) by remote\n",
        " released cause USER_BUSY (User busy) by local\n",
        " released cause NO_ANSWER_USER (No answer from user (user alerted)) by nil\n"};
    unsigned long const call = step / 3 + 1;
    unsigned long const profile = (call - 1) % 3;
    std::string const head = "call " + std::to_string(call);
    switch (step % 3) {
    case 0:
        return head + setups[profile];
    case 1: {
        char reference[16];
        snprintf(reference, sizeof reference, "%02lX %02lX", (call >> 8) & 0xFF, call & 0xFF);
        return head + " SETUP 08 02 " + reference + " 05 04 03 80  90 A3 18 01\n";
    }
    default:
        return head + releases[profile];
    }
}

unsigned long takeTraces(std::string& text, unsigned long& step, std::string (*wrap)(std::string const&))
{
    unsigned long taken = 0;
    for (;;) {
        std::string const trace = wrap ? wrap(trafficTrace(step)) : trafficTrace(step);
        if (text.compare(0, trace.size(), trace) != 0)
            return taken;
        text.erase(0, trace.size());
        ++step;
        ++taken;
    }
}

std::vector<unsigned char> configurationRequestModel(unsigned char identifier)
{
    std::vector<unsigned char> bytes(2060, 0);
    bytes[2] = identifier;
    std::uint32_t const code = 600;
    std::memcpy(&bytes[8], &code, sizeof code);
    return bytes;
}
