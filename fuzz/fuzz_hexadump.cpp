// Fuzz target "hexadump": the dump of the input bytes is 3n + floor(n/8)
// characters long and equals the reference model's text.
#include <string>

#include "DBG_Output.h"
#include "FuzzRegistry.h"
#include "ImcCalls.h"
#include "ReferenceModels.h"

namespace {

std::string checkHexaDump(std::uint8_t const* data, std::size_t size)
{
    unsigned int const length = static_cast<unsigned int>(size);
    std::string const dump = DBG_Output::hexaDump(length ? data : nullptr, length);
    std::size_t const expectedLength = 3 * std::size_t(length) + length / 8;
    if (dump.size() != expectedLength)
        return "dump of " + std::to_string(length) + " bytes is " + std::to_string(dump.size()) +
               " characters, expected " + std::to_string(expectedLength);

    std::string const model = hexDumpModel(data, length);
    if (model != dump)
        return "dump " + quoted(dump) + ", model " + quoted(model);
    return "";
}

dbg_fuzz::Registration const registration("hexadump", checkHexaDump);

}  // namespace
