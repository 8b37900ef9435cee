// The IMC sink: the buffer that is rewound and never emptied, the hand-over
// to the IMC manager's trace and error operations, and the failure paths.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "DBG_Output.h"
#include "DBG_OutputImc.h"
#include "ImcProbe.h"
#include "TestSupport.h"

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

namespace {

std::string const NUL(1, '\0');

// The texts handed to trace or error, in order.
std::vector<std::string> sentTexts()
{
    std::vector<std::string> texts;
    for (Call const& call : imc_standin::calls())
        if (call.operation == Operation::Trace || call.operation == Operation::Error)
            texts.push_back(call.text);
    return texts;
}

// Flushes as an ordinary trace and returns the one text that went out.
std::string flushAndTake(DBG_Output& sink)
{
    imc_standin::clearCalls();
    sink.flush(false, "take", 1);
    std::vector<std::string> const texts = sentTexts();
    EXPECT_EQ(texts.size(), 1u);
    return texts.empty() ? std::string() : texts.front();
}

}  // namespace

class ImcSinkTest : public ::testing::Test {
protected:
    ImcSession session;
};

TEST_F(ImcSinkTest, DisplayName)
{
    DBG_OutputImc sink;
    std::string const name = sink;
    EXPECT_EQ(name, "IMC");
}

TEST_F(ImcSinkTest, MakingAndInsertingCallsNothingOnTheManager)
{
    {
        DBG_OutputImc sink;
        sink << std::string("abc") << 5 << static_cast<unsigned char>('z');
    }
    EXPECT_TRUE(imc_standin::calls().empty());
}

TEST_F(ImcSinkTest, InsertionsReturnTheSink)
{
    DBG_OutputImc sink;
    DBG_Output& afterText = sink << std::string("a");
    DBG_Output& afterInt = sink << 1;
    DBG_Output& afterChar = sink << static_cast<unsigned char>('c');
    EXPECT_EQ(&afterText, &sink);
    EXPECT_EQ(&afterInt, &sink);
    EXPECT_EQ(&afterChar, &sink);
}

TEST_F(ImcSinkTest, FirstFlushWithNothingSendsExactlyOneNul)
{
    DBG_OutputImc sink;
    sink.flush(false, "origin", 1);
    std::vector<Call> const traces = callsOf(Operation::Trace);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(traces[0].text, NUL);
    EXPECT_EQ(traces[0].text.size(), 1u);
}

TEST_F(ImcSinkTest, OneTraceIsTheTextAndANul)
{
    DBG_OutputImc sink;
    sink << std::string("hello ") << 42 << static_cast<unsigned char>('!');
    EXPECT_EQ(flushAndTake(sink), "hello 42!" + NUL);
}

TEST_F(ImcSinkTest, ShortTraceAfterALongOneKeepsTheTailBehindItsNul)
{
    DBG_OutputImc sink;
    sink << std::string("abcdef");
    std::string const first = flushAndTake(sink);
    EXPECT_EQ(first, "abcdef" + NUL);
    EXPECT_EQ(first.size(), 7u);
    sink << std::string("xy");
    std::string const second = flushAndTake(sink);
    EXPECT_EQ(second, "xy" + NUL + "def" + NUL);
    EXPECT_EQ(second.size(), 7u);
}

TEST_F(ImcSinkTest, TracesOfVaryingLengths)
{
    DBG_OutputImc sink;
    std::string const longText = "0123456789ABCDEF";  // 16
    std::string const shortText = "ab";
    std::string const mediumText = "wxyz1234";           // 8
    std::string const longerText(20, 'L');

    sink << longText;
    EXPECT_EQ(flushAndTake(sink), "0123456789ABCDEF" + NUL);

    sink << shortText;
    EXPECT_EQ(flushAndTake(sink), "ab" + NUL + "3456789ABCDEF" + NUL);

    sink << mediumText;
    EXPECT_EQ(flushAndTake(sink), "wxyz1234" + NUL + "9ABCDEF" + NUL);

    sink << longerText;
    EXPECT_EQ(flushAndTake(sink), std::string(20, 'L') + NUL);

    sink << std::string("q");
    EXPECT_EQ(flushAndTake(sink), "q" + NUL + std::string(18, 'L') + NUL);

    sink << std::string(20, 'M');
    EXPECT_EQ(flushAndTake(sink), std::string(20, 'M') + NUL);
}

TEST_F(ImcSinkTest, TraceAsLongAsTheLongestIsFollowedOnlyByItsNul)
{
    DBG_OutputImc sink;
    sink << std::string("12345");
    flushAndTake(sink);
    sink << std::string("abcde");
    EXPECT_EQ(flushAndTake(sink), "abcde" + NUL);
}

TEST_F(ImcSinkTest, FlushWithNothingSinceTheLastOneBeginsWithNul)
{
    DBG_OutputImc sink;
    sink << std::string("abc");
    EXPECT_EQ(flushAndTake(sink), "abc" + NUL);
    std::string const empty = flushAndTake(sink);
    EXPECT_EQ(empty, NUL + "bc" + NUL);
    EXPECT_EQ(empty.front(), '\0');
}

TEST_F(ImcSinkTest, EmbeddedNulIsBufferedLikeAnyByte)
{
    DBG_OutputImc sink;
    sink << std::string("a\0b", 3) << 12 << static_cast<unsigned char>(10);
    EXPECT_EQ(flushAndTake(sink), std::string("a\0b12\n\0", 7));
}

TEST_F(ImcSinkTest, ErrorFlagTrueCallsOnlyErrorOnce)
{
    DBG_OutputImc sink;
    sink << std::string("bad thing");
    imc_standin::clearCalls();
    sink.flush(true, "SIP_Call.cpp", 4242);
    std::vector<Call> const errors = callsOf(Operation::Error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_TRUE(callsOf(Operation::Trace).empty());
    EXPECT_EQ(errors[0].text, "bad thing" + NUL);
    EXPECT_EQ(errors[0].origin, "SIP_Call.cpp");
    EXPECT_EQ(errors[0].number, 4242);
}

TEST_F(ImcSinkTest, ErrorFlagFalseCallsOnlyTraceOnce)
{
    DBG_OutputImc sink;
    sink << std::string("fine thing");
    imc_standin::clearCalls();
    sink.flush(false, "SIP_Reg.cpp", 17);
    std::vector<Call> const traces = callsOf(Operation::Trace);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_TRUE(callsOf(Operation::Error).empty());
    EXPECT_EQ(traces[0].text, "fine thing" + NUL);
    EXPECT_EQ(traces[0].origin, "SIP_Reg.cpp");
    EXPECT_EQ(traces[0].number, 17);
}

TEST_F(ImcSinkTest, OriginAndLinePassedExactly)
{
    DBG_OutputImc sink;
    std::string const origin("mod:%s 100%\0tail", 16);
    sink.flush(true, origin, -5);
    sink.flush(false, "", 0);
    sink.flush(false, "x", 2147483647);
    std::vector<Call> const errors = callsOf(Operation::Error);
    std::vector<Call> const traces = callsOf(Operation::Trace);
    ASSERT_EQ(errors.size(), 1u);
    ASSERT_EQ(traces.size(), 2u);
    EXPECT_EQ(errors[0].origin, origin);
    EXPECT_EQ(errors[0].number, -5);
    EXPECT_EQ(traces[0].origin, "");
    EXPECT_EQ(traces[0].number, 0);
    EXPECT_EQ(traces[1].origin, "x");
    EXPECT_EQ(traces[1].number, 2147483647);
}

TEST_F(ImcSinkTest, TextIsNotEscapedOrExtended)
{
    DBG_OutputImc sink;
    sink << std::string("100% %d \\n\n");
    EXPECT_EQ(flushAndTake(sink), "100% %d \\n\n" + NUL);
}

TEST_F(ImcSinkTest, ManagerAskedWith255BeforeEveryFlush)
{
    DBG_OutputImc sink;
    sink << std::string("one");
    sink.flush(false, "a", 1);
    sink << std::string("two");
    sink.flush(true, "b", 2);
    sink.flush(false, "c", 3);
    std::vector<Call> const& calls = imc_standin::calls();
    ASSERT_EQ(calls.size(), 6u);
    Operation const expected[] = {Operation::Instance, Operation::Trace, Operation::Instance,
                                  Operation::Error, Operation::Instance, Operation::Trace};
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].operation, expected[i]) << "call " << i;
        if (calls[i].operation == Operation::Instance) {
            EXPECT_EQ(calls[i].number, 255) << "call " << i;
        }
    }
}

TEST_F(ImcSinkTest, DestroyingWithUnflushedTextSendsNothing)
{
    {
        DBG_OutputImc sink;
        sink << std::string("never sent") << 1;
    }
    EXPECT_TRUE(imc_standin::calls().empty());
    DBG_OutputImc fresh;
    EXPECT_EQ(flushAndTake(fresh), NUL);
}

TEST_F(ImcSinkTest, DestroyedThroughTheBaseSendsNothing)
{
    DBG_Output* sink = new DBG_OutputImc;
    *sink << std::string("dropped");
    delete sink;
    EXPECT_TRUE(imc_standin::calls().empty());
}

TEST_F(ImcSinkTest, EnumerationValuesLandInTheBuffer)
{
    DBG_OutputImc sink;
    sink << std::string("codec=") << VCOM_Codec(9) << std::string(" cause=") << VCOM_Cause(17)
         << std::string(" dir=") << VCOM_Direction(2) << std::string(" ua=") << VCOM_UAgent(1);
    EXPECT_TRUE(imc_standin::calls().empty());
    EXPECT_EQ(flushAndTake(sink),
              "codec=g722.2 cause=USER_BUSY (User busy) dir=to network ua=WebRTC GW" + NUL);
}

TEST_F(ImcSinkTest, NewSinkStartsWithAnEmptyBuffer)
{
    {
        DBG_OutputImc first;
        first << std::string("a long first trace");
        flushAndTake(first);
    }
    DBG_OutputImc second;
    second << std::string("ab");
    EXPECT_EQ(flushAndTake(second), "ab" + NUL);
}

TEST_F(ImcSinkTest, InstanceThrowingKeepsTheTextForTheNextFlush)
{
    DBG_OutputImc sink;
    sink << std::string("first");
    imc_standin::injectFault(Operation::Instance, Fault::RuntimeError, 1);
    EXPECT_THROW(sink.flush(false, "o", 1), std::runtime_error);
    EXPECT_TRUE(sentTexts().empty());
    ASSERT_EQ(callsOf(Operation::Instance).size(), 1u);
    sink << std::string("second");
    EXPECT_EQ(flushAndTake(sink), "firstsecond" + NUL);
}

// Whatever the maker's manager throws, standard exception or not, the text
// stays for the next flush.
TEST_F(ImcSinkTest, AnExceptionOfNoStandardTypeFromTheTraceKeepsTheTextBehindItsNul)
{
    DBG_OutputImc sink;
    sink << std::string("first");
    imc_standin::injectFault(Operation::Trace, Fault::ForeignException, 1);
    EXPECT_THROW(sink.flush(false, "o", 1), imc_standin::NonStandardFault);
    sink << std::string("second");
    EXPECT_EQ(flushAndTake(sink), "first" + NUL + "second" + NUL);
}

TEST_F(ImcSinkTest, NullInstanceIsTreatedAsAMissingManager)
{
    DBG_OutputImc sink;
    sink << std::string("first");
    imc_standin::injectFault(Operation::Instance, Fault::NullInstance, 1);
    EXPECT_THROW(sink.flush(true, "o", 1), std::runtime_error);
    EXPECT_TRUE(sentTexts().empty());
    sink << std::string("second");
    EXPECT_EQ(flushAndTake(sink), "firstsecond" + NUL);
}

// The caller of flush sees a null instance as the runtime error "no Manager".
TEST_F(ImcSinkTest, NullInstanceReachesTheCallerAsNoManager)
{
    DBG_OutputImc sink;
    imc_standin::injectFault(Operation::Instance, Fault::NullInstance, 1);
    try {
        sink.flush(false, "o", 1);
        ADD_FAILURE() << "flush did not throw";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "no Manager");
    }
}

TEST_F(ImcSinkTest, TraceThrowingLeavesTheNulAndDoesNotRewind)
{
    DBG_OutputImc sink;
    sink << std::string("old");
    imc_standin::injectFault(Operation::Trace, Fault::RuntimeError, 1);
    EXPECT_THROW(sink.flush(false, "o", 1), std::runtime_error);
    std::vector<std::string> const attempted = sentTexts();
    ASSERT_EQ(attempted.size(), 1u);
    EXPECT_EQ(attempted[0], "old" + NUL);
    sink << std::string("new");
    EXPECT_EQ(flushAndTake(sink), "old" + NUL + "new" + NUL);
    sink << std::string("x");
    EXPECT_EQ(flushAndTake(sink), "x" + NUL + "d" + NUL + "new" + NUL);
}

TEST_F(ImcSinkTest, ErrorThrowingLeavesTheNulAndDoesNotRewind)
{
    DBG_OutputImc sink;
    sink << std::string("old");
    imc_standin::injectFault(Operation::Error, Fault::RuntimeError, 1);
    EXPECT_THROW(sink.flush(true, "o", 1), std::runtime_error);
    std::vector<Call> const errors = callsOf(Operation::Error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].text, "old" + NUL);
    sink << std::string("new");
    imc_standin::clearCalls();
    sink.flush(true, "o", 2);
    std::vector<Call> const retried = callsOf(Operation::Error);
    ASSERT_EQ(retried.size(), 1u);
    EXPECT_EQ(retried[0].text, "old" + NUL + "new" + NUL);
}

TEST_F(ImcSinkTest, OtherExceptionFromInstancePassesThrough)
{
    DBG_OutputImc sink;
    sink << std::string("kept");
    imc_standin::injectFault(Operation::Instance, Fault::OtherException, 1);
    EXPECT_THROW(sink.flush(false, "o", 1), std::logic_error);
    EXPECT_TRUE(sentTexts().empty());
    EXPECT_EQ(flushAndTake(sink), "kept" + NUL);
}

TEST_F(ImcSinkTest, OtherExceptionFromTracePassesThrough)
{
    DBG_OutputImc sink;
    sink << std::string("abc");
    imc_standin::injectFault(Operation::Trace, Fault::OtherException, 1);
    EXPECT_THROW(sink.flush(false, "o", 1), std::logic_error);
    EXPECT_EQ(flushAndTake(sink), "abc" + NUL + NUL);
}

TEST_F(ImcSinkTest, OtherExceptionFromErrorPassesThrough)
{
    DBG_OutputImc sink;
    sink << std::string("abc");
    imc_standin::injectFault(Operation::Error, Fault::OtherException, 1);
    EXPECT_THROW(sink.flush(true, "o", 1), std::logic_error);
    EXPECT_EQ(flushAndTake(sink), "abc" + NUL + NUL);
}

TEST(ImcSinkWithoutManager, FlushThrowsAndKeepsTheText)
{
    imc_standin::setRecording(true);
    imc_standin::clearCalls();
    DBG_OutputImc sink;
    sink << std::string("waiting");
    EXPECT_THROW(sink.flush(false, "o", 1), std::runtime_error);
    EXPECT_TRUE(sentTexts().empty());
    ImcSession session;
    sink << std::string(" done");
    EXPECT_EQ(flushAndTake(sink), "waiting done" + NUL);
}
