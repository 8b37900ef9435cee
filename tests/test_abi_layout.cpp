// The binary interface modules are compiled against: virtual slot order of
// every exported class and the data layout they read. Under the Itanium C++
// ABI a pointer to a virtual member function holds 1 + the slot's byte
// offset in the vtable, and a pointer to a data member holds its offset.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "DBG_CmdObserver.h"
#include "DBG_InManager.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "DBG_Version.h"
#include "IMC_Manager.h"

namespace {

template <typename MemberFunction>
std::ptrdiff_t slotOf(MemberFunction function)
{
    static_assert(sizeof function == 2 * sizeof(std::ptrdiff_t), "Itanium member function pointer");
    std::ptrdiff_t words[2];
    std::memcpy(words, &function, sizeof words);
    EXPECT_EQ(words[0] % std::ptrdiff_t(sizeof(void*)), 1) << "not a virtual function";
    return (words[0] - 1) / std::ptrdiff_t(sizeof(void*));
}

template <typename Member>
std::ptrdiff_t offsetOfMember(Member member)
{
    static_assert(sizeof member == sizeof(std::ptrdiff_t), "Itanium data member pointer");
    std::ptrdiff_t offset;
    std::memcpy(&offset, &member, sizeof offset);
    return offset;
}

// The destructor takes slots 0 and 1 (complete and deleting).
constexpr std::ptrdiff_t firstAfterDestructor = 2;

template <typename Sink>
void expectSinkSlots()
{
    using Insert = DBG_Output& (Sink::*)(std::string const&);
    EXPECT_EQ(slotOf(static_cast<std::string const (Sink::*)() const>(&Sink::operator std::string const)), 2);
    EXPECT_EQ(slotOf(static_cast<Insert>(&Sink::operator<<)), 3);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(int)>(&Sink::operator<<)), 4);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(unsigned char)>(&Sink::operator<<)), 5);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Codec)>(&Sink::operator<<)), 6);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Direction)>(&Sink::operator<<)), 7);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Sin)>(&Sink::operator<<)), 8);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Ulaw)>(&Sink::operator<<)), 9);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_HangUpSource)>(&Sink::operator<<)), 10);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Cause)>(&Sink::operator<<)), 11);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_OpeTyp)>(&Sink::operator<<)), 12);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Reason)>(&Sink::operator<<)), 13);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Address_Plan)>(&Sink::operator<<)), 14);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Address_Type)>(&Sink::operator<<)), 15);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_Address_Presentation)>(&Sink::operator<<)), 16);
    EXPECT_EQ(slotOf(static_cast<DBG_Output& (Sink::*)(VCOM_UAgent)>(&Sink::operator<<)), 17);
    EXPECT_EQ(slotOf(&Sink::flush), 18);
}

}  // namespace

TEST(SlotOrder, ConsoleSink)
{
    expectSinkSlots<DBG_Output>();
}

TEST(SlotOrder, FileSinkKeepsTheSinkOrder)
{
    expectSinkSlots<DBG_OutputFile>();
}

TEST(SlotOrder, ImcSinkKeepsTheSinkOrder)
{
    expectSinkSlots<DBG_OutputImc>();
}

TEST(SlotOrder, OutputManagerHasNineEnumerationInsertions)
{
    using M = DBG_OutManager;
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(std::string const&)>(&M::operator<<)), firstAfterDestructor);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(int)>(&M::operator<<)), 3);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(unsigned char)>(&M::operator<<)), 4);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Codec)>(&M::operator<<)), 5);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Direction)>(&M::operator<<)), 6);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Sin)>(&M::operator<<)), 7);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Ulaw)>(&M::operator<<)), 8);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_HangUpSource)>(&M::operator<<)), 9);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Cause)>(&M::operator<<)), 10);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Address_Plan)>(&M::operator<<)), 11);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Address_Type)>(&M::operator<<)), 12);
    EXPECT_EQ(slotOf(static_cast<M& (M::*)(VCOM_Address_Presentation)>(&M::operator<<)), 13);
    EXPECT_EQ(slotOf(&M::flush), 14);
}

TEST(SlotOrder, LoggerHasErrorBeforeTrace)
{
    EXPECT_EQ(slotOf(&DBG_Log::error), firstAfterDestructor);
    EXPECT_EQ(slotOf(&DBG_Log::trace), 3);
}

TEST(SlotOrder, CommandObserverOverridesCommandAfterTheDestructor)
{
    EXPECT_EQ(slotOf(&IMC_CommandObserver::command), firstAfterDestructor);
    EXPECT_EQ(slotOf(&DBG_CmdObserver::command), firstAfterDestructor);
}

TEST(DataLayout, FieldsFollowTheVtablePointerInOrder)
{
    std::ptrdiff_t const pointer = sizeof(void*);
    EXPECT_EQ(offsetOfMember(&DBG_OutManager::pOutput), pointer);
    EXPECT_EQ(offsetOfMember(&DBG_OutManager::pCmdObserver), 2 * pointer);
    EXPECT_EQ(sizeof(DBG_OutManager), 3 * sizeof(void*));

    EXPECT_EQ(offsetOfMember(&DBG_Log::m_out), pointer);
    EXPECT_EQ(offsetOfMember(&DBG_Log::m_imcValue), 2 * pointer);
    EXPECT_EQ(offsetOfMember(&DBG_Log::m_imcFallback), 3 * pointer);

    EXPECT_EQ(offsetOfMember(&DBG_Version::m_voipVersion), pointer);
    EXPECT_EQ(offsetOfMember(&DBG_Version::m_traxoValue), pointer + std::ptrdiff_t(sizeof(std::string)));
    EXPECT_EQ(sizeof(DBG_Version), sizeof(void*) + 2 * sizeof(std::string));

    EXPECT_EQ(offsetOfMember(&DBG_InManager::chan), pointer);
    EXPECT_EQ(sizeof(DBG_InManager), 2 * sizeof(void*));

    EXPECT_EQ(offsetOfMember(&DBG_CmdObserver::pImcManager), pointer);
    EXPECT_EQ(sizeof(DBG_CmdObserver), 2 * sizeof(void*));

    EXPECT_EQ(sizeof(DBG_Output), sizeof(void*));
}

TEST(DataLayout, PairTablesHoldValueThenText)
{
    EXPECT_EQ(offsetof(DBG_CauseStr, value), 0u);
    EXPECT_EQ(sizeof(DBG_CauseStr::value), 4u);
    EXPECT_GE(offsetof(DBG_CauseStr, text), sizeof(std::int32_t));
    EXPECT_EQ(offsetof(DBG_FramingStr, value), 0u);
    EXPECT_EQ(sizeof(DBG_FramingStr::value), 4u);
    EXPECT_GE(offsetof(DBG_FramingStr, text), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(VCOM_Cause), 4u);
    EXPECT_TRUE(std::is_signed<std::underlying_type<VCOM_Cause>::type>::value);
}

TEST(DataLayout, TableSizes)
{
    std::size_t const s = sizeof(std::string);
    EXPECT_EQ(sizeof DBG_Output::codecToStr, 10 * s);
    EXPECT_EQ(sizeof DBG_Output::directionToStr, 3 * s);
    EXPECT_EQ(sizeof DBG_Output::addressPlanToStr, 7 * s);
    EXPECT_EQ(sizeof DBG_Output::addressPresentationToStr, 4 * s);
    EXPECT_EQ(sizeof DBG_Output::addressTypeToStr, 7 * s);
    EXPECT_EQ(sizeof DBG_Output::sinToStr, 4 * s);
    EXPECT_EQ(sizeof DBG_Output::ulawToStr, 3 * s);
    EXPECT_EQ(sizeof DBG_Output::hangupSourceToStr, 3 * s);
    EXPECT_EQ(sizeof DBG_Output::opeTypToStr, 8 * s);
    EXPECT_EQ(sizeof DBG_Output::reasonToStr, 6 * s);
    EXPECT_EQ(sizeof DBG_Output::uagentToStr, 2 * s);
    EXPECT_EQ(sizeof DBG_Output::statusToStr, 9 * s);
    EXPECT_EQ(sizeof DBG_Output::causeToStr, 51 * sizeof(DBG_CauseStr));
    EXPECT_EQ(sizeof DBG_Output::framingToStr, 17 * sizeof(DBG_FramingStr));
    EXPECT_EQ(sizeof DBG_Output::codecToStrMAX, 4u);
}

TEST(DataLayout, ImcRecordAndManager)
{
    EXPECT_EQ(sizeof(imc_msg), 2060u);
    EXPECT_EQ(offsetof(imc_msg, sender), 2u);
    EXPECT_EQ(offsetof(imc_msg, code), 8u);
    EXPECT_EQ(sizeof(imc_msg::code), 4u);
    EXPECT_EQ(offsetof(imc_msg, body), 12u);
    EXPECT_EQ(offsetof(IMC_Manager, identifier), 0u);
    EXPECT_EQ(offsetof(IMC_Manager, consoleFlag), 1u);
    EXPECT_EQ(sizeof(IMC_Manager::consoleFlag), 1u);
    EXPECT_EQ(offsetof(IMC_Manager, traceLevel), 8u);
    EXPECT_EQ(sizeof(IMC_Manager::traceLevel), 4u);
}
