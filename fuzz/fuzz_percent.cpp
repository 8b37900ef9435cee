// Fuzz target "percent": the input, split at its first 0xFF byte into text
// and detail, goes through DBG_Log::trace (text) and DBG_Log::error (text,
// detail) into a recording sink: every "%" of the text doubled, nothing else
// changed, the detail and the origin untouched, the flush flags and lines
// passed through.
#include <exception>
#include <string>
#include <vector>

#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "FuzzRegistry.h"
#include "ImcCalls.h"
#include "RecordingSink.h"
#include "ReferenceModels.h"

namespace {

std::string describeEvents(std::vector<std::string> const& events)
{
    std::string out;
    for (std::string const& event : events)
        out += " " + quoted(event);
    return out;
}

std::string checkPercentEscaping(std::uint8_t const* data, std::size_t size)
{
    std::string const input(reinterpret_cast<char const*>(data), size);
    std::string::size_type const split = input.find('\xFF');
    std::string const text = input.substr(0, split);
    std::string const detail = split == std::string::npos ? std::string() : input.substr(split + 1);
    std::string const origin = "fuzz%s.cpp";
    int const line = static_cast<int>(size);

    std::vector<std::string> events;
    DBG_OutManager* manager = DBG_OutManager::instance();
    delete manager->pOutput;
    manager->pOutput = new RecordingSink(&events);
    std::string failure;
    try {
        DBG_Log const log;
        log.trace(text, origin, line);
        log.error(text, detail, origin, line + 1);
    } catch (std::exception const& error) {
        failure = std::string("the logger threw: ") + error.what();
    }
    manager->setConsoleOutput();
    if (!failure.empty())
        return failure;

    std::vector<std::string> const expected{
        "text:" + percentDoubled(text),
        "flush:0:" + origin + ":" + std::to_string(line),
        "text:" + percentDoubled(text),
        "text:(",
        "text:" + detail,
        "text:)",
        "flush:1:" + origin + ":" + std::to_string(line + 1),
        "destroyed",
    };
    if (events != expected)
        return "forwarded" + describeEvents(events) + ", expected" + describeEvents(expected);
    return "";
}

dbg_fuzz::Registration const registration("percent", checkPercentEscaping);

}  // namespace
