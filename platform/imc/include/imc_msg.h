// Stand-in for the IMC library's message record. The maker's own header can
// replace this one at build time (DBG_IMC_INCLUDE_DIR).
#ifndef IMC_MSG_H
#define IMC_MSG_H

#include <stdint.h>

// One inter-module message: a fixed 2060-byte record, multi-byte fields in
// the processor's native byte order (checked where the stand-in is built).
struct imc_msg {
    uint16_t header;      // offset 0
    uint8_t sender;       // offset 2: identifier byte of the posting manager
    uint8_t reserved[5];  // offsets 3 to 7
    uint32_t code;        // offset 8: request code
    uint8_t body[2048];   // offset 12
};

#endif
