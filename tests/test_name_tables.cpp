// The exported name tables and their bounds, byte for byte.
#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "DBG_Output.h"

namespace {

template <std::size_t N>
std::vector<std::string> tableOf(std::string const (&table)[N])
{
    return std::vector<std::string>(std::begin(table), std::end(table));
}

template <typename Pair>
std::ptrdiff_t offsetOfValue(Pair const& pair)
{
    return reinterpret_cast<char const*>(&pair.value) - reinterpret_cast<char const*>(&pair);
}

template <typename Pair>
std::ptrdiff_t offsetOfText(Pair const& pair)
{
    return reinterpret_cast<char const*>(&pair.text) - reinterpret_cast<char const*>(&pair);
}

std::vector<std::pair<int, std::string>> const expectedCauses = {
    {1, "UNASSIGNED  (Unallocated Number)"},
    {2, "N_ROUTE_NETWK (No route to specified)"},
    {3, "N_ROUTE_DEST (No route to destination)"},
    {16, "NORM_REL (Normal call clearing)"},
    {17, "USER_BUSY (User busy)"},
    {18, "NO_USER_RESP (No user responding)"},
    {19, "NO_ANSWER_USER (No answer from user (user alerted))"},
    {20, "SUBSCRIBER_ABSENT (Subsciber absent)"},
    {21, "CALL_REJ (Call rejected)"},
    {22, "CHANGED_NUM (Number changed)"},
    {23, "REDIR_N_DEST (Redirection to new destination)"},
    {25, "EXCH_ROUT_ERR (Exchange routing error)"},
    {27, "DEST_OUT_OF_ORD (Destination out of order)"},
    {28, "INV_NUM_FORMAT (Invalid number format (address incomplete))"},
    {29, "FAC_REJ (Facility rejected)"},
    {31, "NORM_CAU (Normal unspecified)"},
    {34, "N_CH_AVAIL (No circuit/ channel available)"},
    {38, "NETWK_OOS (Network Out Of Order)"},
    {39, "PERM_FR_MODE_OOS (Permanent frame mode connection out of service)"},
    {41, "NETW_PERT (Temporary Failure)"},
    {42, "NETW_OVLD (Switching equipment congestion)"},
    {44, "REQ_CH_N_AVAIL (Requested cicuit/channel not available)"},
    {47, "RES_NOT_AVAIL (Resource unavailable, unspecified)"},
    {49, "SERV_QUAL_N_AVAIL (Quality of service not available)"},
    {50, "FAC_N_SUBSCR (Requested facility not subscribed)"},
    {55, "CUG_IC_BARRED (Incoming calls barred within CUG)"},
    {57, "BC_N_ACCEPT_1 (Bearer capability not authorized)"},
    {58, "BC_N_ACCEPT_2 (Bearer capability not presently available)"},
    {63, "SERV_NOT_AVAIL (Service or option not available, unspecified)"},
    {65, "BS_NOT_AVAIL (Bearer capability not implemented)"},
    {69, "FEAT_NOT_AVAIL (Requested facility not implemented)"},
    {70, "DIG_BC_AVAIL (Only restricted digital info available)"},
    {79, "UNUSED_SERV (Service or option not implemented, unspecified)"},
    {81, "INV_CR (Invalid call reference value)"},
    {82, "UNEX_CH (Identified channel does not exist)"},
    {83, "UNEX_CI (unexisting call identity)"},
    {84, "CI_USED (Call identity in use)"},
    {85, "N_CALL_SUSP (No call suspended)"},
    {86, "CALL_CLEARED (Call having the requested call identity has been cleared)"},
    {87, "CUG_NOT_MEMBER (User not member of CUG)"},
    {88, "INCOMP_DEST (Incompatible destination)"},
    {102, "TIM_EXPIRY (Recovery of timer expiry)"},
    {111, "PROT_ERR (Protocol error, unspecified)"},
    {124, "REQ_TERM_OK (Request Terminated Ok)"},
    {125, "REQ_TERM_KO (Request Terminated Ko)"},
    {126, "NONE (None)"},
    {127, "INTW_NOT_SPEC (Interworking, not implemented)"},
    {128, "UNSUPP_MEDIA (Unsupported Media Type)"},
    {129, "REDIRECT_REJECT (Redirect reject)"},
    {130, "SIPS_REQUIRED (Sips required)"},
};

}  // namespace

TEST(NameTableContents, Codec)
{
    EXPECT_EQ(tableOf(DBG_Output::codecToStr),
              (std::vector<std::string>{"nil", "g711alaw", "g711ulaw", "g723", "g729", "g729a",
                                        "g711nil", "g729nil", "g722", "g722.2"}));
}

TEST(NameTableContents, Direction)
{
    EXPECT_EQ(tableOf(DBG_Output::directionToStr),
              (std::vector<std::string>{"undetermined", "from network", "to network"}));
}

TEST(NameTableContents, AddressPlan)
{
    EXPECT_EQ(tableOf(DBG_Output::addressPlanToStr),
              (std::vector<std::string>{"unknown", "ISDN", "data", "telex", "national", "private",
                                        "nil"}));
}

TEST(NameTableContents, AddressPresentation)
{
    EXPECT_EQ(tableOf(DBG_Output::addressPresentationToStr),
              (std::vector<std::string>{"allowed", "restricted", "not avail (interworking)",
                                        "not available"}));
}

TEST(NameTableContents, AddressType)
{
    EXPECT_EQ(tableOf(DBG_Output::addressTypeToStr),
              (std::vector<std::string>{"unknown", "national", "international", "network specific",
                                        "subscriber", "abbreviated", "ddi"}));
}

TEST(NameTableContents, Sin)
{
    EXPECT_EQ(tableOf(DBG_Output::sinToStr),
              (std::vector<std::string>{"nil", "bc_speech", "info_num_without_restriction",
                                        "31khz"}));
}

TEST(NameTableContents, Ulaw)
{
    EXPECT_EQ(tableOf(DBG_Output::ulawToStr),
              (std::vector<std::string>{"mulaw", "alaw", "nil"}));
}

TEST(NameTableContents, HangUpSource)
{
    EXPECT_EQ(tableOf(DBG_Output::hangupSourceToStr),
              (std::vector<std::string>{"local", "remote", "nil"}));
}

TEST(NameTableContents, Status)
{
    EXPECT_EQ(tableOf(DBG_Output::statusToStr),
              (std::vector<std::string>{"Register 200 OK", "Register failed",
                                        "Register 500 Server Error", "Register timeout",
                                        "Register 423 Interval Too Brief",
                                        "Register 401 Unauthorized",
                                        "Register 400 Invalid Request", "Register 403 Forbidden",
                                        "Register 404 Not Found"}));
}

TEST(NameTableContents, OpeTyp)
{
    EXPECT_EQ(tableOf(DBG_Output::opeTypToStr),
              (std::vector<std::string>{"nil", "fwd req", "trf req", "trf act", "trf ack",
                                        "trf abd", "trf setup", "trf mis"}));
}

TEST(NameTableContents, Reason)
{
    EXPECT_EQ(tableOf(DBG_Output::reasonToStr),
              (std::vector<std::string>{"nil", "uncond. fwd", "hangup", "trf3 rej", "cd trf rej",
                                        "ope rej"}));
}

TEST(NameTableContents, UAgent)
{
    EXPECT_EQ(tableOf(DBG_Output::uagentToStr),
              (std::vector<std::string>{"Undefined GW", "WebRTC GW"}));
}

TEST(NameTableContents, CauseEntries)
{
    ASSERT_EQ(expectedCauses.size(), 50u);
    for (std::size_t i = 0; i < expectedCauses.size(); ++i) {
        EXPECT_EQ(static_cast<int>(DBG_Output::causeToStr[i].value), expectedCauses[i].first)
            << "position " << i;
        EXPECT_EQ(DBG_Output::causeToStr[i].text, expectedCauses[i].second) << "position " << i;
    }
}

TEST(NameTableContents, CauseTerminatorIsOneWithEmptyText)
{
    DBG_CauseStr const& terminator = DBG_Output::causeToStr[50];
    EXPECT_EQ(static_cast<int>(terminator.value), 1);
    EXPECT_EQ(terminator.text, "");
    EXPECT_TRUE(terminator.text.empty());
}

TEST(NameTableContents, OnlyTheCauseTerminatorHasAnEmptyText)
{
    for (std::size_t i = 0; i < 50; ++i)
        EXPECT_FALSE(DBG_Output::causeToStr[i].text.empty()) << "position " << i;
}

TEST(NameTableContents, Framing)
{
    EXPECT_EQ(DBG_Output::framingToStr[0].value, 0);
    EXPECT_EQ(DBG_Output::framingToStr[0].text, "nil");
    for (int position = 1; position <= 15; ++position) {
        EXPECT_EQ(DBG_Output::framingToStr[position].value, 10 * position) << "position " << position;
        EXPECT_EQ(DBG_Output::framingToStr[position].text, std::to_string(10 * position))
            << "position " << position;
    }
    EXPECT_EQ(DBG_Output::framingToStr[1].text, "10");
    EXPECT_EQ(DBG_Output::framingToStr[15].text, "150");
}

TEST(NameTableContents, FramingTerminatorIsZeroWithEmptyText)
{
    EXPECT_EQ(DBG_Output::framingToStr[16].value, 0);
    EXPECT_EQ(DBG_Output::framingToStr[16].text, "");
}

TEST(NameTableContents, TextsKeptWithTheirOddities)
{
    EXPECT_EQ(DBG_Output::causeToStr[0].text, "UNASSIGNED  (Unallocated Number)");
    EXPECT_NE(DBG_Output::causeToStr[0].text.find("UNASSIGNED  ("), std::string::npos);
    EXPECT_EQ(DBG_Output::causeToStr[1].text, "N_ROUTE_NETWK (No route to specified)");
    EXPECT_EQ(DBG_Output::causeToStr[7].text, "SUBSCRIBER_ABSENT (Subsciber absent)");
    EXPECT_EQ(DBG_Output::causeToStr[16].text, "N_CH_AVAIL (No circuit/ channel available)");
    EXPECT_EQ(DBG_Output::causeToStr[21].text,
              "REQ_CH_N_AVAIL (Requested cicuit/channel not available)");
    EXPECT_EQ(DBG_Output::causeToStr[35].text, "UNEX_CI (unexisting call identity)");
}

TEST(NameTableContents, NilIsTheSameTextEverywhere)
{
    EXPECT_EQ(DBG_Output::codecToStr[0], "nil");
    EXPECT_EQ(DBG_Output::addressPlanToStr[6], "nil");
    EXPECT_EQ(DBG_Output::sinToStr[0], "nil");
    EXPECT_EQ(DBG_Output::ulawToStr[2], "nil");
    EXPECT_EQ(DBG_Output::hangupSourceToStr[2], "nil");
    EXPECT_EQ(DBG_Output::opeTypToStr[0], "nil");
    EXPECT_EQ(DBG_Output::reasonToStr[0], "nil");
    EXPECT_EQ(DBG_Output::framingToStr[0].text, "nil");
}

TEST(NameTableBounds, Values)
{
    EXPECT_EQ(DBG_Output::codecToStrMAX, 10);
    EXPECT_EQ(DBG_Output::directionToStrMAX, 3);
    EXPECT_EQ(DBG_Output::addressPlanToStrMAX, 7);
    EXPECT_EQ(DBG_Output::addressPresentationToStrMAX, 4);
    EXPECT_EQ(DBG_Output::addressTypeToStrMAX, 7);
    EXPECT_EQ(DBG_Output::sinToStrMAX, 4);
    EXPECT_EQ(DBG_Output::ulawToStrMAX, 3);
    EXPECT_EQ(DBG_Output::hangupSourceToStrMAX, 3);
    EXPECT_EQ(DBG_Output::opeTypToStrMAX, 8);
    EXPECT_EQ(DBG_Output::reasonToStrMAX, 6);
    EXPECT_EQ(DBG_Output::statusToStrMAX, 9);
}

TEST(NameTableBounds, AreWritableSignedInts)
{
    bool const allInt =
        std::is_same<decltype(DBG_Output::codecToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::directionToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::addressPlanToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::addressPresentationToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::addressTypeToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::sinToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::ulawToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::hangupSourceToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::opeTypToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::reasonToStrMAX), int>::value &&
        std::is_same<decltype(DBG_Output::statusToStrMAX), int>::value;
    EXPECT_TRUE(allInt);
    EXPECT_EQ(sizeof(DBG_Output::codecToStrMAX), 4u);
    int const saved = DBG_Output::statusToStrMAX;
    DBG_Output::statusToStrMAX = 3;
    EXPECT_EQ(DBG_Output::statusToStrMAX, 3);
    DBG_Output::statusToStrMAX = saved;
    EXPECT_EQ(DBG_Output::statusToStrMAX, 9);
}

TEST(NameTableBounds, EqualTheElementCounts)
{
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::codecToStr)), DBG_Output::codecToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::directionToStr)), DBG_Output::directionToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::addressPlanToStr)),
              DBG_Output::addressPlanToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::addressPresentationToStr)),
              DBG_Output::addressPresentationToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::addressTypeToStr)),
              DBG_Output::addressTypeToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::sinToStr)), DBG_Output::sinToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::ulawToStr)), DBG_Output::ulawToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::hangupSourceToStr)),
              DBG_Output::hangupSourceToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::opeTypToStr)), DBG_Output::opeTypToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::reasonToStr)), DBG_Output::reasonToStrMAX);
    EXPECT_EQ(static_cast<int>(std::size(DBG_Output::statusToStr)), DBG_Output::statusToStrMAX);
}

TEST(NameTableSizes, ElementCountsAndByteSizes)
{
    EXPECT_EQ(std::size(DBG_Output::codecToStr), 10u);
    EXPECT_EQ(std::size(DBG_Output::directionToStr), 3u);
    EXPECT_EQ(std::size(DBG_Output::addressPlanToStr), 7u);
    EXPECT_EQ(std::size(DBG_Output::addressPresentationToStr), 4u);
    EXPECT_EQ(std::size(DBG_Output::addressTypeToStr), 7u);
    EXPECT_EQ(std::size(DBG_Output::sinToStr), 4u);
    EXPECT_EQ(std::size(DBG_Output::ulawToStr), 3u);
    EXPECT_EQ(std::size(DBG_Output::hangupSourceToStr), 3u);
    EXPECT_EQ(std::size(DBG_Output::statusToStr), 9u);
    EXPECT_EQ(std::size(DBG_Output::causeToStr), 51u);
    EXPECT_EQ(std::size(DBG_Output::framingToStr), 17u);
    EXPECT_EQ(std::size(DBG_Output::opeTypToStr), 8u);
    EXPECT_EQ(std::size(DBG_Output::reasonToStr), 6u);
    EXPECT_EQ(std::size(DBG_Output::uagentToStr), 2u);

    EXPECT_EQ(sizeof(DBG_Output::codecToStr), 10 * sizeof(std::string));
    EXPECT_EQ(sizeof(DBG_Output::uagentToStr), 2 * sizeof(std::string));
    EXPECT_EQ(sizeof(DBG_Output::causeToStr), 51 * sizeof(DBG_CauseStr));
    EXPECT_EQ(sizeof(DBG_Output::framingToStr), 17 * sizeof(DBG_FramingStr));
}

TEST(NameTableLayout, CausePairHoldsValueThenText)
{
    DBG_CauseStr const& entry = DBG_Output::causeToStr[0];
    EXPECT_EQ(offsetOfValue(entry), 0);
    EXPECT_GE(offsetOfText(entry), static_cast<std::ptrdiff_t>(sizeof(entry.value)));
    EXPECT_TRUE((std::is_same<decltype(DBG_CauseStr::value), VCOM_Cause>::value));
    EXPECT_TRUE((std::is_same<decltype(DBG_CauseStr::text), std::string>::value));
    EXPECT_EQ(sizeof(DBG_CauseStr::value), 4u);
    EXPECT_TRUE(std::is_signed<std::underlying_type_t<VCOM_Cause>>::value);
    // Aggregate order: value first, then text.
    DBG_CauseStr const made{VCOM_Cause(17), "seventeen"};
    EXPECT_EQ(static_cast<int>(made.value), 17);
    EXPECT_EQ(made.text, "seventeen");
}

TEST(NameTableLayout, FramingPairHoldsValueThenText)
{
    DBG_FramingStr const& entry = DBG_Output::framingToStr[0];
    EXPECT_EQ(offsetOfValue(entry), 0);
    EXPECT_GE(offsetOfText(entry), static_cast<std::ptrdiff_t>(sizeof(entry.value)));
    EXPECT_TRUE((std::is_same<decltype(DBG_FramingStr::value), int>::value));
    EXPECT_TRUE((std::is_same<decltype(DBG_FramingStr::text), std::string>::value));
    DBG_FramingStr const made{30, "30"};
    EXPECT_EQ(made.value, 30);
    EXPECT_EQ(made.text, "30");
}

TEST(NameTableContents, CauseValuesAscendUpToTheTerminator)
{
    for (std::size_t i = 1; i < 50; ++i)
        EXPECT_LT(static_cast<int>(DBG_Output::causeToStr[i - 1].value),
                  static_cast<int>(DBG_Output::causeToStr[i].value))
            << "position " << i;
}
