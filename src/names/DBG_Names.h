// Display names of the telephony values, shared by every class's insertion
// operators. Internal to the library.
#ifndef DBG_NAMES_H
#define DBG_NAMES_H

#include "VCOM_Types.h"

namespace dbg_names {

// Names checked against the bound members as they are now: the console sink
// and the output manager follow a caller's change of a bound.
char const* liveName(VCOM_Codec value);
char const* liveName(VCOM_Direction value);
char const* liveName(VCOM_Sin value);
char const* liveName(VCOM_Ulaw value);
char const* liveName(VCOM_HangUpSource value);
char const* liveName(VCOM_OpeTyp value);
char const* liveName(VCOM_Reason value);
char const* liveName(VCOM_Address_Plan value);
char const* liveName(VCOM_Address_Type value);
char const* liveName(VCOM_Address_Presentation value);
char const* liveName(VCOM_UAgent value);

// Names checked against the table sizes built into the library: the file
// and IMC sinks ignore changes of the bound members.
char const* fixedName(VCOM_Codec value);
char const* fixedName(VCOM_Direction value);
char const* fixedName(VCOM_Sin value);
char const* fixedName(VCOM_Ulaw value);
char const* fixedName(VCOM_HangUpSource value);
char const* fixedName(VCOM_OpeTyp value);
char const* fixedName(VCOM_Reason value);
char const* fixedName(VCOM_Address_Plan value);
char const* fixedName(VCOM_Address_Type value);
char const* fixedName(VCOM_Address_Presentation value);
char const* fixedName(VCOM_UAgent value);

// The cause's name, or "" for a cause the table lacks.
char const* causeName(VCOM_Cause value);

}  // namespace dbg_names

#endif
