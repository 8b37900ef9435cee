// Never built with the tests: CheckRefusedInsertions.cmake compiles it once per
// case, with TARGET the output manager or a sink and VALUE a voice
// enumeration.
#include "DBG_OutManager.h"
#include "DBG_Output.h"

void insert(TARGET& target)
{
    target << VALUE(1);
}
