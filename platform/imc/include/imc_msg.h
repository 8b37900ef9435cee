// Stand-in for the IMC library's message record. The maker's own header can
// replace this one at build time (DBG_IMC_INCLUDE_DIR).
#ifndef IMC_MSG_H
#define IMC_MSG_H

#include <cstddef>
#include <cstdint>

// One inter-module message: a fixed 2060-byte record, multi-byte fields in
// the processor's native byte order.
struct imc_msg {
    std::uint16_t header;      // offset 0
    std::uint8_t sender;       // offset 2: identifier byte of the posting manager
    std::uint8_t reserved[5];  // offsets 3 to 7
    std::uint32_t code;        // offset 8: request code
    std::uint8_t body[2048];   // offset 12
};

static_assert(sizeof(imc_msg) == 2060, "imc_msg is a 2060-byte record");
static_assert(offsetof(imc_msg, sender) == 2, "sender byte at offset 2");
static_assert(offsetof(imc_msg, code) == 8, "request code at offset 8");
static_assert(offsetof(imc_msg, body) == 12, "body at offset 12");

#endif
