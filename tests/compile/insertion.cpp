// Never built with the tests: CheckUnnamedInsertions.cmake compiles it once
// per case, with TARGET the output manager or a sink and VALUE a voice
// enumeration.
#include "DBG_OutManager.h"
#include "DBG_Output.h"

TARGET& insert(TARGET& target)
{
    return target << VALUE(1);
}
