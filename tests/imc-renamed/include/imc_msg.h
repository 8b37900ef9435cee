// A test-only message record: the same 2060 bytes, fields named and typed
// otherwise than in the stand-in (a signed code, plain char bytes).
#ifndef IMC_MSG_H
#define IMC_MSG_H

#include <cstdint>

struct imc_msg {
    char hdr[2];
    signed char from;
    char pad[5];
    std::int32_t req;
    char payload[2048];
};

#endif
