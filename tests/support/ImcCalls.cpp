#include "ImcCalls.h"

#include <cstdio>

using imc_standin::Call;
using imc_standin::Operation;

std::vector<Call> callsOf(Operation operation)
{
    std::vector<Call> found;
    for (Call const& call : imc_standin::calls())
        if (call.operation == operation)
            found.push_back(call);
    return found;
}

std::vector<std::string> textsOf(Operation operation)
{
    std::vector<std::string> texts;
    for (Call const& call : callsOf(operation))
        texts.push_back(call.text);
    return texts;
}

std::vector<Operation> operations()
{
    std::vector<Operation> found;
    for (Call const& call : imc_standin::calls())
        found.push_back(call.operation);
    return found;
}

std::string operationName(Operation operation)
{
    switch (operation) {
    case Operation::Instance: return "instance";
    case Operation::Registration: return "registration";
    case Operation::Unregistration: return "unregistration";
    case Operation::ReceiveCommand: return "receiveCommand";
    case Operation::AnswerCommand: return "answerCommand";
    case Operation::Trace: return "trace";
    case Operation::Error: return "error";
    case Operation::Post: return "post";
    case Operation::CoreDumpExit: return "coreDumpExit";
    }
    return "?";
}

std::string describeCalls(std::vector<Call> const& calls)
{
    std::string out;
    for (Call const& call : calls)
        out += " " + operationName(call.operation) + "(" + quoted(call.text) + ")";
    return out.empty() ? " none" : out;
}

std::string quoted(std::string const& bytes)
{
    std::string out = "\"";
    for (unsigned char c : bytes) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c >= 0x20 && c < 0x7F) {
            out += char(c);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            out += escaped;
        }
    }
    return out + "\"";
}
