// Control of the IMC stand-in, for a host: not part of the maker's
// interface, and nothing in the debug library includes it.
#ifndef IMC_STANDIN_H
#define IMC_STANDIN_H

#include <functional>
#include <ostream>
#include <string>

#include "IMC_Manager.h"

namespace imc_standin {

// How much of an unknown key the "Unknown command" answer quotes.
constexpr std::size_t unknownKeyQuoteLimit = 64;

// Makes the process's manager with this identifier byte; again: no effect.
void start(unsigned char identifier);
// Destroys it with its routing table; instance() throws again.
void stop();
IMC_Manager* manager();  // null while not started
void setTraceStream(std::ostream* stream);  // null discards traces and errors
void setPostHandler(std::function<void(imc_msg const&)> handler);
void setAnswerHandler(std::function<void(std::string const&)> handler);
std::function<void(std::string const&)> answerHandler();

}  // namespace imc_standin

#endif
