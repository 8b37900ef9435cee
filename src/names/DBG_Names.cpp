#include "DBG_Names.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "DBG_Output.h"

namespace dbg_names {
namespace {

char const outOfArray[] = "ERROR : OUT OF ARRAY !!!";

// Only the upper bound is tested: callers never pass negative values.
char const* nameBelow(std::string const* table, std::int32_t bound, std::int32_t value)
{
    return value >= bound ? outOfArray : table[value].c_str();
}

// Bounded by the table's own size, whatever the bound member says.
template <std::size_t size>
char const* nameWithin(std::string const (&table)[size], std::int32_t value)
{
    return nameBelow(table, static_cast<std::int32_t>(size), value);
}

}  // namespace

char const* liveName(VCOM_Codec v) { return nameBelow(DBG_Output::codecToStr, DBG_Output::codecToStrMAX, v); }
char const* liveName(VCOM_Direction v) { return nameBelow(DBG_Output::directionToStr, DBG_Output::directionToStrMAX, v); }
char const* liveName(VCOM_Sin v) { return nameBelow(DBG_Output::sinToStr, DBG_Output::sinToStrMAX, v); }
char const* liveName(VCOM_Ulaw v) { return nameBelow(DBG_Output::ulawToStr, DBG_Output::ulawToStrMAX, v); }
char const* liveName(VCOM_HangUpSource v) { return nameBelow(DBG_Output::hangupSourceToStr, DBG_Output::hangupSourceToStrMAX, v); }
char const* liveName(VCOM_OpeTyp v) { return nameBelow(DBG_Output::opeTypToStr, DBG_Output::opeTypToStrMAX, v); }
char const* liveName(VCOM_Reason v) { return nameBelow(DBG_Output::reasonToStr, DBG_Output::reasonToStrMAX, v); }
char const* liveName(VCOM_Address_Plan v) { return nameBelow(DBG_Output::addressPlanToStr, DBG_Output::addressPlanToStrMAX, v); }
char const* liveName(VCOM_Address_Type v) { return nameBelow(DBG_Output::addressTypeToStr, DBG_Output::addressTypeToStrMAX, v); }
char const* liveName(VCOM_Address_Presentation v) { return nameBelow(DBG_Output::addressPresentationToStr, DBG_Output::addressPresentationToStrMAX, v); }
// The user-agent table has no bound member.
char const* liveName(VCOM_UAgent v) { return fixedName(v); }

char const* fixedName(VCOM_Codec v) { return nameWithin(DBG_Output::codecToStr, v); }
char const* fixedName(VCOM_Direction v) { return nameWithin(DBG_Output::directionToStr, v); }
char const* fixedName(VCOM_Sin v) { return nameWithin(DBG_Output::sinToStr, v); }
char const* fixedName(VCOM_Ulaw v) { return nameWithin(DBG_Output::ulawToStr, v); }
char const* fixedName(VCOM_HangUpSource v) { return nameWithin(DBG_Output::hangupSourceToStr, v); }
char const* fixedName(VCOM_OpeTyp v) { return nameWithin(DBG_Output::opeTypToStr, v); }
char const* fixedName(VCOM_Reason v) { return nameWithin(DBG_Output::reasonToStr, v); }
char const* fixedName(VCOM_Address_Plan v) { return nameWithin(DBG_Output::addressPlanToStr, v); }
char const* fixedName(VCOM_Address_Type v) { return nameWithin(DBG_Output::addressTypeToStr, v); }
char const* fixedName(VCOM_Address_Presentation v) { return nameWithin(DBG_Output::addressPresentationToStr, v); }
char const* fixedName(VCOM_UAgent v) { return nameWithin(DBG_Output::uagentToStr, v); }

char const* causeName(VCOM_Cause value)
{
    // The empty text ends the table; it is tested before the value, so the
    // terminator's own value never matches.
    DBG_CauseStr const* entry = DBG_Output::causeToStr;
    while (!entry->text.empty() && entry->value != value)
        ++entry;
    return entry->text.c_str();
}

}  // namespace dbg_names
