// Fuzz target "imc_sink": the input is a program of insertions and flushes
// on one DBG_OutputImc (some flushes with the manager missing or its trace
// or error failing); the texts the IMC stand-in receives must equal a model
// of the buffer: rewound after a delivered flush, never emptied, one NUL
// written at each flush that found the manager.
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "DBG_OutputImc.h"
#include "FuzzRegistry.h"
#include "ImcCalls.h"
#include "ImcProbe.h"
#include "VCOM_Types.h"

namespace {

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

// The buffer as the sink must keep it: written at a position that a
// delivered flush moves back to the start, its extent never shrinking.
struct BufferModel {
    std::string content;
    std::size_t position = 0;

    void write(std::string const& bytes)
    {
        for (char c : bytes) {
            if (position < content.size())
                content[position] = c;
            else
                content.push_back(c);
            ++position;
        }
    }
};

struct Handed {
    bool isError;
    std::string text;
    std::string origin;
    int line;
};

std::string describe(Handed const& handed)
{
    return (handed.isError ? "error " : "trace ") + quoted(handed.text) + " " + quoted(handed.origin) + ":" +
           std::to_string(handed.line);
}

char const* const codecNames[] = {"nil",  "g711alaw", "g711ulaw", "g723",    "g729",
                                  "g729a", "g711nil", "g729nil",  "g722", "g722.2"};

void startStandIn()
{
    static bool const started = [] {
        imc_standin::start(0x5A);
        imc_standin::setTraceStream(nullptr);
        imc_standin::setRecording(true);
        return true;
    }();
    static_cast<void>(started);
}

// One flush with the fault raised once on the operation: true when it
// passed std::runtime_error on.
bool flushThrows(DBG_OutputImc& sink, Operation operation, Fault fault, bool isError, std::string const& origin,
                 int line)
{
    imc_standin::injectFault(operation, fault, 1);
    bool threw = false;
    try {
        sink.flush(isError, origin, line);
    } catch (std::runtime_error const&) {
        threw = true;
    }
    imc_standin::clearFaults();
    return threw;
}

std::string checkImcSink(std::uint8_t const* data, std::size_t size)
{
    startStandIn();
    imc_standin::clearFaults();
    imc_standin::clearCalls();

    DBG_OutputImc sink;
    BufferModel model;
    std::vector<Handed> expected;
    std::string failure;
    std::size_t i = 0;
    auto next = [&]() -> std::uint8_t { return i < size ? data[i++] : 0; };
    std::string const origin = "imc%sink.cpp";

    while (i < size && failure.empty()) {
        std::uint8_t const op = data[i++] % 8;
        int const line = static_cast<int>(i);
        switch (op) {
        case 0: {  // a string of up to 255 bytes
            std::size_t count = next();
            if (count > size - i)
                count = size - i;
            std::string const text(reinterpret_cast<char const*>(data + i), count);
            i += count;
            sink << text;
            model.write(text);
            break;
        }
        case 1: {  // a 32-bit integer
            std::uint32_t bits = 0;
            for (int b = 0; b < 4; ++b)
                bits = (bits << 8) | next();
            int const number = static_cast<int>(bits);
            sink << number;
            model.write(std::to_string(number));
            break;
        }
        case 2: {  // one byte
            unsigned char const c = next();
            sink << c;
            model.write(std::string(1, char(c)));
            break;
        }
        case 3:
        case 4: {  // a delivered trace or error
            bool const isError = op == 4;
            try {
                sink.flush(isError, origin, line);
            } catch (std::exception const& error) {
                failure = std::string("flush threw: ") + error.what();
                break;
            }
            model.write(std::string(1, '\0'));
            expected.push_back({isError, model.content, origin, line});
            model.position = 0;
            break;
        }
        case 5: {  // a codec, by name
            int const value = next() % 16;
            sink << static_cast<VCOM_Codec>(value);
            model.write(value < 10 ? codecNames[value] : "ERROR : OUT OF ARRAY !!!");
            break;
        }
        case 6: {  // no manager at the flush: nothing written, nothing sent
            bool const null = next() & 1;
            if (!flushThrows(sink, Operation::Instance, null ? Fault::NullInstance : Fault::RuntimeError, false,
                             origin, line))
                failure = "flush without a manager did not throw std::runtime_error";
            break;
        }
        case 7: {  // the manager's trace or error fails: NUL written, not rewound
            bool const isError = next() & 1;
            if (!flushThrows(sink, isError ? Operation::Error : Operation::Trace, Fault::RuntimeError, isError,
                             origin, line)) {
                failure = "flush whose delivery failed did not throw std::runtime_error";
                break;
            }
            model.write(std::string(1, '\0'));
            expected.push_back({isError, model.content, origin, line});
            break;
        }
        }
    }
    if (!failure.empty())
        return failure;

    std::vector<Handed> handed;
    for (Call const& call : imc_standin::calls())
        if (call.operation == Operation::Trace || call.operation == Operation::Error)
            handed.push_back({call.operation == Operation::Error, call.text, call.origin, call.number});
    imc_standin::clearCalls();
    if (handed.size() != expected.size())
        return std::to_string(handed.size()) + " texts handed over, model " + std::to_string(expected.size());
    for (std::size_t n = 0; n < handed.size(); ++n) {
        Handed const& got = handed[n];
        Handed const& want = expected[n];
        if (got.isError != want.isError || got.text != want.text || got.origin != want.origin ||
            got.line != want.line)
            return "text " + std::to_string(n + 1) + ": " + describe(got) + ", model " + describe(want);
    }
    return "";
}

dbg_fuzz::Registration const registration("imc_sink", checkImcSink);

}  // namespace
