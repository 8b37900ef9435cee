// The exported name tables. They are defined in this one file, in this
// order, so that loading the library builds them in that order and unloading
// destroys them in the reverse one.
#include "DBG_Output.h"

#include <cstddef>

std::string DBG_Output::codecToStr[10] = {
    "nil", "g711alaw", "g711ulaw", "g723", "g729",
    "g729a", "g711nil", "g729nil", "g722", "g722.2"};

std::string DBG_Output::directionToStr[3] = {"undetermined", "from network", "to network"};

std::string DBG_Output::addressPlanToStr[7] = {
    "unknown", "ISDN", "data", "telex", "national", "private", "nil"};

std::string DBG_Output::addressPresentationToStr[4] = {
    "allowed", "restricted", "not avail (interworking)", "not available"};

std::string DBG_Output::addressTypeToStr[7] = {
    "unknown", "national", "international", "network specific",
    "subscriber", "abbreviated", "ddi"};

std::string DBG_Output::sinToStr[4] = {"nil", "bc_speech", "info_num_without_restriction", "31khz"};

std::string DBG_Output::ulawToStr[3] = {"mulaw", "alaw", "nil"};

std::string DBG_Output::hangupSourceToStr[3] = {"local", "remote", "nil"};

std::string DBG_Output::statusToStr[9] = {
    "Register 200 OK",
    "Register failed",
    "Register 500 Server Error",
    "Register timeout",
    "Register 423 Interval Too Brief",
    "Register 401 Unauthorized",
    "Register 400 Invalid Request",
    "Register 403 Forbidden",
    "Register 404 Not Found"};

// Searched linearly up to the empty text; the terminator's value is never
// compared.
DBG_CauseStr DBG_Output::causeToStr[51] = {
    {VCOM_Cause(1), "UNASSIGNED  (Unallocated Number)"},
    {VCOM_Cause(2), "N_ROUTE_NETWK (No route to specified)"},
    {VCOM_Cause(3), "N_ROUTE_DEST (No route to destination)"},
    {VCOM_Cause(16), "NORM_REL (Normal call clearing)"},
    {VCOM_Cause(17), "USER_BUSY (User busy)"},
    {VCOM_Cause(18), "NO_USER_RESP (No user responding)"},
    {VCOM_Cause(19), "NO_ANSWER_USER (No answer from user (user alerted))"},
    {VCOM_Cause(20), "SUBSCRIBER_ABSENT (Subsciber absent)"},
    {VCOM_Cause(21), "CALL_REJ (Call rejected)"},
    {VCOM_Cause(22), "CHANGED_NUM (Number changed)"},
    {VCOM_Cause(23), "REDIR_N_DEST (Redirection to new destination)"},
    {VCOM_Cause(25), "EXCH_ROUT_ERR (Exchange routing error)"},
    {VCOM_Cause(27), "DEST_OUT_OF_ORD (Destination out of order)"},
    {VCOM_Cause(28), "INV_NUM_FORMAT (Invalid number format (address incomplete))"},
    {VCOM_Cause(29), "FAC_REJ (Facility rejected)"},
    {VCOM_Cause(31), "NORM_CAU (Normal unspecified)"},
    {VCOM_Cause(34), "N_CH_AVAIL (No circuit/ channel available)"},
    {VCOM_Cause(38), "NETWK_OOS (Network Out Of Order)"},
    {VCOM_Cause(39), "PERM_FR_MODE_OOS (Permanent frame mode connection out of service)"},
    {VCOM_Cause(41), "NETW_PERT (Temporary Failure)"},
    {VCOM_Cause(42), "NETW_OVLD (Switching equipment congestion)"},
    {VCOM_Cause(44), "REQ_CH_N_AVAIL (Requested cicuit/channel not available)"},
    {VCOM_Cause(47), "RES_NOT_AVAIL (Resource unavailable, unspecified)"},
    {VCOM_Cause(49), "SERV_QUAL_N_AVAIL (Quality of service not available)"},
    {VCOM_Cause(50), "FAC_N_SUBSCR (Requested facility not subscribed)"},
    {VCOM_Cause(55), "CUG_IC_BARRED (Incoming calls barred within CUG)"},
    {VCOM_Cause(57), "BC_N_ACCEPT_1 (Bearer capability not authorized)"},
    {VCOM_Cause(58), "BC_N_ACCEPT_2 (Bearer capability not presently available)"},
    {VCOM_Cause(63), "SERV_NOT_AVAIL (Service or option not available, unspecified)"},
    {VCOM_Cause(65), "BS_NOT_AVAIL (Bearer capability not implemented)"},
    {VCOM_Cause(69), "FEAT_NOT_AVAIL (Requested facility not implemented)"},
    {VCOM_Cause(70), "DIG_BC_AVAIL (Only restricted digital info available)"},
    {VCOM_Cause(79), "UNUSED_SERV (Service or option not implemented, unspecified)"},
    {VCOM_Cause(81), "INV_CR (Invalid call reference value)"},
    {VCOM_Cause(82), "UNEX_CH (Identified channel does not exist)"},
    {VCOM_Cause(83), "UNEX_CI (unexisting call identity)"},
    {VCOM_Cause(84), "CI_USED (Call identity in use)"},
    {VCOM_Cause(85), "N_CALL_SUSP (No call suspended)"},
    {VCOM_Cause(86), "CALL_CLEARED (Call having the requested call identity has been cleared)"},
    {VCOM_Cause(87), "CUG_NOT_MEMBER (User not member of CUG)"},
    {VCOM_Cause(88), "INCOMP_DEST (Incompatible destination)"},
    {VCOM_Cause(102), "TIM_EXPIRY (Recovery of timer expiry)"},
    {VCOM_Cause(111), "PROT_ERR (Protocol error, unspecified)"},
    {VCOM_Cause(124), "REQ_TERM_OK (Request Terminated Ok)"},
    {VCOM_Cause(125), "REQ_TERM_KO (Request Terminated Ko)"},
    {VCOM_Cause(126), "NONE (None)"},
    {VCOM_Cause(127), "INTW_NOT_SPEC (Interworking, not implemented)"},
    {VCOM_Cause(128), "UNSUPP_MEDIA (Unsupported Media Type)"},
    {VCOM_Cause(129), "REDIRECT_REJECT (Redirect reject)"},
    {VCOM_Cause(130), "SIPS_REQUIRED (Sips required)"},
    {VCOM_Cause(1), ""}};

DBG_FramingStr DBG_Output::framingToStr[17] = {
    {0, "nil"}, {10, "10"}, {20, "20"}, {30, "30"}, {40, "40"}, {50, "50"},
    {60, "60"}, {70, "70"}, {80, "80"}, {90, "90"}, {100, "100"}, {110, "110"},
    {120, "120"}, {130, "130"}, {140, "140"}, {150, "150"}, {0, ""}};

std::string DBG_Output::opeTypToStr[8] = {
    "nil", "fwd req", "trf req", "trf act", "trf ack", "trf abd", "trf setup", "trf mis"};

std::string DBG_Output::reasonToStr[6] = {
    "nil", "uncond. fwd", "hangup", "trf3 rej", "cd trf rej", "ope rej"};

std::string DBG_Output::uagentToStr[2] = {"Undefined GW", "WebRTC GW"};

namespace {

// A table's element count, a constant expression.
template <typename Entry, std::size_t count>
constexpr int countOf(Entry (&)[count])
{
    return static_cast<int>(count);
}

}  // namespace

// Plain data, initialised statically: no code runs for the bounds.
int DBG_Output::codecToStrMAX = countOf(codecToStr);
int DBG_Output::directionToStrMAX = countOf(directionToStr);
int DBG_Output::addressPlanToStrMAX = countOf(addressPlanToStr);
int DBG_Output::addressPresentationToStrMAX = countOf(addressPresentationToStr);
int DBG_Output::addressTypeToStrMAX = countOf(addressTypeToStr);
int DBG_Output::sinToStrMAX = countOf(sinToStr);
int DBG_Output::ulawToStrMAX = countOf(ulawToStr);
int DBG_Output::hangupSourceToStrMAX = countOf(hangupSourceToStr);
int DBG_Output::statusToStrMAX = countOf(statusToStr);
int DBG_Output::opeTypToStrMAX = countOf(opeTypToStr);
int DBG_Output::reasonToStrMAX = countOf(reasonToStr);
