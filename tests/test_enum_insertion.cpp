// Telephony values written as their names: on the console, file and IMC
// sinks and through the output manager, with the bounds that apply to each.
#include <gtest/gtest.h>

#include <climits>
#include <iostream>
#include <string>
#include <vector>

#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "ImcProbe.h"
#include "TestSupport.h"

using imc_standin::Call;
using imc_standin::Operation;

namespace {

std::string const outOfArray = "ERROR : OUT OF ARRAY !!!";

// Sets a bound member for the life of the guard, then puts it back.
class BoundGuard {
public:
    BoundGuard(int& bound, int value) : m_bound(bound), m_saved(bound) { m_bound = value; }
    ~BoundGuard() { m_bound = m_saved; }

private:
    int& m_bound;
    int m_saved;
};

// What each enumeration is named, and the bound member that covers it.
template <typename E>
struct Naming;

template <>
struct Naming<VCOM_Codec> {
    static std::vector<std::string> names()
    {
        return {"nil", "g711alaw", "g711ulaw", "g723", "g729",
                "g729a", "g711nil", "g729nil", "g722", "g722.2"};
    }
    static int* bound() { return &DBG_Output::codecToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_Direction> {
    static std::vector<std::string> names() { return {"undetermined", "from network", "to network"}; }
    static int* bound() { return &DBG_Output::directionToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_Sin> {
    static std::vector<std::string> names()
    {
        return {"nil", "bc_speech", "info_num_without_restriction", "31khz"};
    }
    static int* bound() { return &DBG_Output::sinToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_Ulaw> {
    static std::vector<std::string> names() { return {"mulaw", "alaw", "nil"}; }
    static int* bound() { return &DBG_Output::ulawToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_HangUpSource> {
    static std::vector<std::string> names() { return {"local", "remote", "nil"}; }
    static int* bound() { return &DBG_Output::hangupSourceToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_OpeTyp> {
    static std::vector<std::string> names()
    {
        return {"nil", "fwd req", "trf req", "trf act", "trf ack", "trf abd", "trf setup", "trf mis"};
    }
    static int* bound() { return &DBG_Output::opeTypToStrMAX; }
    static constexpr bool onManager = false;
};

template <>
struct Naming<VCOM_Reason> {
    static std::vector<std::string> names()
    {
        return {"nil", "uncond. fwd", "hangup", "trf3 rej", "cd trf rej", "ope rej"};
    }
    static int* bound() { return &DBG_Output::reasonToStrMAX; }
    static constexpr bool onManager = false;
};

template <>
struct Naming<VCOM_Address_Plan> {
    static std::vector<std::string> names()
    {
        return {"unknown", "ISDN", "data", "telex", "national", "private", "nil"};
    }
    static int* bound() { return &DBG_Output::addressPlanToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_Address_Type> {
    static std::vector<std::string> names()
    {
        return {"unknown", "national", "international", "network specific",
                "subscriber", "abbreviated", "ddi"};
    }
    static int* bound() { return &DBG_Output::addressTypeToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_Address_Presentation> {
    static std::vector<std::string> names()
    {
        return {"allowed", "restricted", "not avail (interworking)", "not available"};
    }
    static int* bound() { return &DBG_Output::addressPresentationToStrMAX; }
    static constexpr bool onManager = true;
};

template <>
struct Naming<VCOM_UAgent> {
    static std::vector<std::string> names() { return {"Undefined GW", "WebRTC GW"}; }
    static int* bound() { return nullptr; }  // the table has no bound member
    static constexpr bool onManager = false;
};

// Where the insertion lands, read back as the bytes written.

template <typename Insert>
std::string onConsole(Insert insert)
{
    CoutCapture capture;
    DBG_Output console;
    DBG_Output& result = insert(console);
    EXPECT_EQ(&result, &console);
    return capture.text();
}

template <typename Insert>
std::string onFile(Insert insert)
{
    ScratchDir scratch;
    std::string const path = scratch.file("names.txt");
    {
        DBG_OutputFile sink(path);
        DBG_Output& result = insert(sink);
        EXPECT_EQ(&result, &sink);
    }
    return readFile(path);
}

// The text that went to the IMC manager at the flush, without the NUL that
// ends it (a fresh sink sends nothing behind that NUL).
std::string takeImcTrace()
{
    std::vector<std::string> texts;
    for (Call const& call : imc_standin::calls())
        if (call.operation == Operation::Trace)
            texts.push_back(call.text);
    EXPECT_EQ(texts.size(), 1u);
    if (texts.size() != 1 || texts[0].empty() || texts[0].back() != '\0') {
        ADD_FAILURE() << "no single NUL-ended trace";
        return "<none>";
    }
    std::string text = texts[0];
    text.pop_back();
    return text;
}

template <typename Insert>
std::string onImc(Insert insert)
{
    imc_standin::clearCalls();
    DBG_OutputImc sink;
    DBG_Output& result = insert(sink);
    EXPECT_EQ(&result, &sink);
    sink.flush(false, "names", 1);
    return takeImcTrace();
}

template <typename Insert>
std::string onManagerConsole(Insert insert)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setConsoleOutput();
    CoutCapture capture;
    DBG_OutManager& result = insert(*manager);
    EXPECT_EQ(&result, manager);
    return capture.text();
}

// The calls the manager made on a recording sink.
template <typename Insert>
std::vector<std::string> onManagerRecording(Insert insert)
{
    std::vector<std::string> events;
    DBG_OutManager* manager = DBG_OutManager::instance();
    delete manager->pOutput;
    manager->pOutput = new RecordingSink(&events);
    std::vector<std::string> seen;
    {
        CoutCapture capture;  // the sink's own enumeration insertions would print here
        DBG_OutManager& result = insert(*manager);
        EXPECT_EQ(&result, manager);
        seen = events;
        EXPECT_EQ(capture.text(), "");
    }
    manager->setConsoleOutput();
    return seen;
}

template <typename Insert>
std::string onManagerFile(Insert insert)
{
    ScratchDir scratch;
    std::string const path = scratch.file("manager.txt");
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setFileOutput(path);
    DBG_OutManager& result = insert(*manager);
    EXPECT_EQ(&result, manager);
    manager->setConsoleOutput();
    return readFile(path);
}

template <typename Insert>
std::string onManagerImc(Insert insert)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setImcOutput();
    imc_standin::clearCalls();
    DBG_OutManager& result = insert(*manager);
    EXPECT_EQ(&result, manager);
    manager->flush(false, "names", 1);
    std::string const text = takeImcTrace();
    manager->setConsoleOutput();
    return text;
}

template <typename E>
auto inserting(E value)
{
    return [value](auto& out) -> auto& { return out << value; };
}

std::vector<std::string> oneText(std::string const& text)
{
    return {"text:" + text};
}

// Runs a search of framingToStr the way causes are searched: stop at the
// empty text or at the value, the emptiness test first.
std::string searchFraming(int value)
{
    DBG_FramingStr const* entry = DBG_Output::framingToStr;
    while (!entry->text.empty() && entry->value != value)
        ++entry;
    return entry->text;
}

}  // namespace

template <typename E>
class IndexedNames : public ::testing::Test {
protected:
    ImcSession session;
};

using IndexedEnumerations =
    ::testing::Types<VCOM_Codec, VCOM_Direction, VCOM_Sin, VCOM_Ulaw, VCOM_HangUpSource,
                     VCOM_OpeTyp, VCOM_Reason, VCOM_Address_Plan, VCOM_Address_Type,
                     VCOM_Address_Presentation, VCOM_UAgent>;
TYPED_TEST_SUITE(IndexedNames, IndexedEnumerations);

TYPED_TEST(IndexedNames, EveryValueOnEverySink)
{
    using E = TypeParam;
    std::vector<std::string> const names = Naming<E>::names();
    for (std::size_t i = 0; i < names.size(); ++i) {
        E const value = static_cast<E>(i);
        EXPECT_EQ(onConsole(inserting(value)), names[i]) << "value " << i;
        EXPECT_EQ(onFile(inserting(value)), names[i]) << "value " << i;
        EXPECT_EQ(onImc(inserting(value)), names[i]) << "value " << i;
        if constexpr (Naming<E>::onManager) {
            EXPECT_EQ(onManagerConsole(inserting(value)), names[i]) << "value " << i;
            EXPECT_EQ(onManagerRecording(inserting(value)), oneText(names[i])) << "value " << i;
        }
    }
}

// The console inserts a name into std::cout as a C string: a width set on
// std::cout pads it, and the base another module left on it stays.
TYPED_TEST(IndexedNames, ConsoleNameTakesTheWidthOfStdCoutAndKeepsItsBase)
{
    using E = TypeParam;
    std::string const name = Naming<E>::names()[0];
    for (std::ios::fmtflags const flags : {moduleDecimal, moduleHexadecimal}) {
        PaddedCoutCapture capture(static_cast<std::streamsize>(name.size()) + 2, '*', flags);
        DBG_Output console;
        console << static_cast<E>(0);
        EXPECT_EQ(capture.text(), "**" + name);
        EXPECT_EQ(std::cout.flags(), flags);
    }
}

TYPED_TEST(IndexedNames, ValueAtTheBoundIsOutOfArrayOnEverySink)
{
    using E = TypeParam;
    int const count = static_cast<int>(Naming<E>::names().size());
    for (int v : {count, count + 1, 1000, INT_MAX}) {
        E const value = static_cast<E>(v);
        EXPECT_EQ(onConsole(inserting(value)), outOfArray) << "value " << v;
        EXPECT_EQ(onFile(inserting(value)), outOfArray) << "value " << v;
        EXPECT_EQ(onImc(inserting(value)), outOfArray) << "value " << v;
        if constexpr (Naming<E>::onManager) {
            EXPECT_EQ(onManagerConsole(inserting(value)), outOfArray) << "value " << v;
            EXPECT_EQ(onManagerRecording(inserting(value)), oneText(outOfArray)) << "value " << v;
        }
    }
    E const last = static_cast<E>(count - 1);
    EXPECT_EQ(onConsole(inserting(last)), Naming<E>::names().back());
    EXPECT_EQ(onFile(inserting(last)), Naming<E>::names().back());
    EXPECT_EQ(onImc(inserting(last)), Naming<E>::names().back());
}

TYPED_TEST(IndexedNames, LoweredBoundAppliesToConsoleAndManagerOnly)
{
    using E = TypeParam;
    std::vector<std::string> const names = Naming<E>::names();
    int const count = static_cast<int>(names.size());
    E const last = static_cast<E>(count - 1);
    int* bound = Naming<E>::bound();
    if (bound == nullptr) {
        // No bound member of its own: lowering all the others leaves it alone.
        BoundGuard codec(DBG_Output::codecToStrMAX, 0);
        BoundGuard direction(DBG_Output::directionToStrMAX, 0);
        BoundGuard sin(DBG_Output::sinToStrMAX, 0);
        BoundGuard ulaw(DBG_Output::ulawToStrMAX, 0);
        BoundGuard hangup(DBG_Output::hangupSourceToStrMAX, 0);
        BoundGuard opeTyp(DBG_Output::opeTypToStrMAX, 0);
        BoundGuard reason(DBG_Output::reasonToStrMAX, 0);
        BoundGuard plan(DBG_Output::addressPlanToStrMAX, 0);
        BoundGuard type(DBG_Output::addressTypeToStrMAX, 0);
        BoundGuard presentation(DBG_Output::addressPresentationToStrMAX, 0);
        BoundGuard status(DBG_Output::statusToStrMAX, 0);
        EXPECT_EQ(onConsole(inserting(last)), names.back());
        EXPECT_EQ(onConsole(inserting(static_cast<E>(0))), names[0]);
        EXPECT_EQ(onConsole(inserting(static_cast<E>(count))), outOfArray);
        EXPECT_EQ(onFile(inserting(last)), names.back());
        EXPECT_EQ(onImc(inserting(last)), names.back());
        return;
    }
    ASSERT_EQ(*bound, count);
    {
        BoundGuard lowered(*bound, count - 1);
        EXPECT_EQ(onConsole(inserting(last)), outOfArray);
        EXPECT_EQ(onFile(inserting(last)), names.back());
        EXPECT_EQ(onImc(inserting(last)), names.back());
        // Below the lowered bound nothing changes.
        EXPECT_EQ(onConsole(inserting(static_cast<E>(0))), names[0]);
        if constexpr (Naming<E>::onManager) {
            EXPECT_EQ(onManagerConsole(inserting(last)), outOfArray);
            EXPECT_EQ(onManagerRecording(inserting(last)), oneText(outOfArray));
            // The manager's bound applies even on a file or IMC sink.
            EXPECT_EQ(onManagerFile(inserting(last)), outOfArray);
            EXPECT_EQ(onManagerImc(inserting(last)), outOfArray);
        }
    }
    {
        BoundGuard zero(*bound, 0);
        E const first = static_cast<E>(0);
        EXPECT_EQ(onConsole(inserting(first)), outOfArray);
        EXPECT_EQ(onFile(inserting(first)), names[0]);
        EXPECT_EQ(onImc(inserting(first)), names[0]);
        if constexpr (Naming<E>::onManager) {
            EXPECT_EQ(onManagerConsole(inserting(first)), outOfArray);
            EXPECT_EQ(onManagerRecording(inserting(first)), oneText(outOfArray));
        }
    }
    // Read at every call: back to the names once the bound is restored.
    ASSERT_EQ(*bound, count);
    EXPECT_EQ(onConsole(inserting(last)), names.back());
    if constexpr (Naming<E>::onManager) {
        EXPECT_EQ(onManagerConsole(inserting(last)), names.back());
    }
}

TYPED_TEST(IndexedNames, ThroughTheManagerTheSinkGetsAStringOnFileAndImc)
{
    using E = TypeParam;
    if constexpr (Naming<E>::onManager) {
        std::vector<std::string> const names = Naming<E>::names();
        for (std::size_t i = 0; i < names.size(); ++i) {
            E const value = static_cast<E>(i);
            EXPECT_EQ(onManagerFile(inserting(value)), names[i]) << "value " << i;
            EXPECT_EQ(onManagerImc(inserting(value)), names[i]) << "value " << i;
        }
    }
}

class EnumInsertionTest : public ::testing::Test {
protected:
    ImcSession session;
};

// The manager has no name for these three, yet modules written for the
// original interface insert them: the number goes in through
// operator<<(int), as it always did. The compiler warns of it (see
// CompileCheck.*), so the warning is silenced here alone.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST_F(EnumInsertionTest, ManagerWritesTheNumberOfValuesItHasNoNameFor)
{
    DBG_OutManager* manager = DBG_OutManager::instance();
    std::vector<std::string> events;
    delete manager->pOutput;
    manager->pOutput = new RecordingSink(&events);
    DBG_OutManager& result = *manager << VCOM_OPE_TRF_SETUP << VCOM_REASON_CD_TRF_REJ << VCOM_UAGENT_WEBRTC_GW
                                      << VCOM_OpeTyp(8) << VCOM_Reason(-1) << VCOM_UAgent(INT_MAX);
    EXPECT_EQ(&result, manager);
    EXPECT_EQ(events, (std::vector<std::string>{"int:6", "int:4", "int:1", "int:8", "int:-1",
                                                "int:" + std::to_string(INT_MAX)}));

    ScratchDir scratch;
    std::string const path = scratch.file("numbers.txt");
    manager->setFileOutput(path);
    *manager << VCOM_OPE_FWD_REQ << " " << VCOM_REASON_HANGUP << " " << VCOM_UAGENT_UNDEFINED_GW;
    manager->setConsoleOutput();
    EXPECT_EQ(readFile(path), "1 2 0");

    CoutCapture capture;
    *manager << VCOM_OPE_TRF_MIS << VCOM_REASON_OPE_REJ << VCOM_UAGENT_WEBRTC_GW;
    EXPECT_EQ(capture.text(), "751");
}
#pragma GCC diagnostic pop

TEST_F(EnumInsertionTest, CodecNineAndTenOnTheConsole)
{
    EXPECT_EQ(onConsole(inserting(VCOM_Codec(9))), "g722.2");
    EXPECT_EQ(onConsole(inserting(VCOM_Codec(10))), "ERROR : OUT OF ARRAY !!!");
}

TEST_F(EnumInsertionTest, UAgentOnEverySink)
{
    EXPECT_EQ(onConsole(inserting(VCOM_UAgent(1))), "WebRTC GW");
    EXPECT_EQ(onFile(inserting(VCOM_UAgent(1))), "WebRTC GW");
    EXPECT_EQ(onImc(inserting(VCOM_UAgent(1))), "WebRTC GW");
    EXPECT_EQ(onConsole(inserting(VCOM_UAgent(2))), "ERROR : OUT OF ARRAY !!!");
    EXPECT_EQ(onFile(inserting(VCOM_UAgent(2))), "ERROR : OUT OF ARRAY !!!");
    EXPECT_EQ(onImc(inserting(VCOM_UAgent(2))), "ERROR : OUT OF ARRAY !!!");
}

TEST_F(EnumInsertionTest, CodecBoundLoweredToFive)
{
    BoundGuard lowered(DBG_Output::codecToStrMAX, 5);
    EXPECT_EQ(onConsole(inserting(VCOM_Codec(5))), "ERROR : OUT OF ARRAY !!!");
    EXPECT_EQ(onManagerConsole(inserting(VCOM_Codec(5))), "ERROR : OUT OF ARRAY !!!");
    EXPECT_EQ(onManagerRecording(inserting(VCOM_Codec(5))),
              (std::vector<std::string>{"text:ERROR : OUT OF ARRAY !!!"}));
    EXPECT_EQ(onFile(inserting(VCOM_Codec(5))), "g729a");
    EXPECT_EQ(onImc(inserting(VCOM_Codec(5))), "g729a");
    EXPECT_EQ(onConsole(inserting(VCOM_Codec(4))), "g729");
    EXPECT_EQ(onManagerConsole(inserting(VCOM_Codec(4))), "g729");
}

TEST_F(EnumInsertionTest, BoundRestoredAfterLowering)
{
    {
        BoundGuard lowered(DBG_Output::codecToStrMAX, 5);
    }
    EXPECT_EQ(DBG_Output::codecToStrMAX, 10);
    EXPECT_EQ(onConsole(inserting(VCOM_Codec(5))), "g729a");
}

TEST_F(EnumInsertionTest, CausesOnEverySink)
{
    struct Case {
        int value;
        std::string text;
    };
    std::vector<Case> const cases = {
        {17, "USER_BUSY (User busy)"},
        {130, "SIPS_REQUIRED (Sips required)"},
        {0, ""},
        {4, ""},
        {131, ""},
        {-1, ""},
        {INT_MIN, ""},
        {1, "UNASSIGNED  (Unallocated Number)"},
        {2, "N_ROUTE_NETWK (No route to specified)"},
        {127, "INTW_NOT_SPEC (Interworking, not implemented)"},
    };
    for (Case const& c : cases) {
        VCOM_Cause const cause = static_cast<VCOM_Cause>(c.value);
        EXPECT_EQ(onConsole(inserting(cause)), c.text) << "cause " << c.value;
        EXPECT_EQ(onFile(inserting(cause)), c.text) << "cause " << c.value;
        EXPECT_EQ(onImc(inserting(cause)), c.text) << "cause " << c.value;
        EXPECT_EQ(onManagerConsole(inserting(cause)), c.text) << "cause " << c.value;
        EXPECT_EQ(onManagerRecording(inserting(cause)), oneText(c.text)) << "cause " << c.value;
        EXPECT_EQ(onManagerFile(inserting(cause)), c.text) << "cause " << c.value;
        EXPECT_EQ(onManagerImc(inserting(cause)), c.text) << "cause " << c.value;
    }
}

TEST_F(EnumInsertionTest, ConsoleCauseTakesTheWidthOfStdCoutAndKeepsItsBase)
{
    for (std::ios::fmtflags const flags : {moduleDecimal, moduleHexadecimal}) {
        PaddedCoutCapture capture(24, '*', flags);
        DBG_Output console;
        console << VCOM_Cause(17);
        EXPECT_EQ(capture.text(), "***USER_BUSY (User busy)");
        EXPECT_EQ(std::cout.flags(), flags);
    }
}

TEST_F(EnumInsertionTest, MissingCauseThroughTheManagerIsAnEmptyString)
{
    std::vector<std::string> const events = onManagerRecording(
        [](DBG_OutManager& out) -> DBG_OutManager& { return out << VCOM_Cause(4) << VCOM_Cause(0); });
    EXPECT_EQ(events, (std::vector<std::string>{"text:", "text:"}));
}

TEST_F(EnumInsertionTest, EveryNamedCauseOnEverySink)
{
    for (int position = 0; position < 50; ++position) {
        DBG_CauseStr const& entry = DBG_Output::causeToStr[position];
        ASSERT_FALSE(entry.text.empty());
        EXPECT_EQ(onConsole(inserting(entry.value)), entry.text) << "position " << position;
        EXPECT_EQ(onFile(inserting(entry.value)), entry.text) << "position " << position;
        EXPECT_EQ(onImc(inserting(entry.value)), entry.text) << "position " << position;
        EXPECT_EQ(onManagerRecording(inserting(entry.value)), oneText(entry.text))
            << "position " << position;
    }
}

TEST_F(EnumInsertionTest, CauseWritesNothingElseAroundIt)
{
    std::string const written = onConsole([](DBG_Output& out) -> DBG_Output& {
        return out << std::string("[") << VCOM_Cause(0) << std::string("|") << VCOM_Cause(17)
                   << std::string("]");
    });
    EXPECT_EQ(written, "[|USER_BUSY (User busy)]");
}

TEST_F(EnumInsertionTest, DirectionThroughTheManagerIsAString)
{
    EXPECT_EQ(onManagerRecording(inserting(VCOM_Direction(1))),
              (std::vector<std::string>{"text:from network"}));
}

TEST_F(EnumInsertionTest, DirectionThroughTheManagerOnFileAndImcFollowsTheLoweredBound)
{
    EXPECT_EQ(onManagerFile(inserting(VCOM_Direction(1))), "from network");
    EXPECT_EQ(onManagerImc(inserting(VCOM_Direction(1))), "from network");
    BoundGuard lowered(DBG_Output::directionToStrMAX, 1);
    EXPECT_EQ(onManagerFile(inserting(VCOM_Direction(1))), "ERROR : OUT OF ARRAY !!!");
    EXPECT_EQ(onManagerImc(inserting(VCOM_Direction(1))), "ERROR : OUT OF ARRAY !!!");
    EXPECT_EQ(onManagerRecording(inserting(VCOM_Direction(1))),
              (std::vector<std::string>{"text:ERROR : OUT OF ARRAY !!!"}));
    EXPECT_EQ(onManagerRecording(inserting(VCOM_Direction(0))),
              (std::vector<std::string>{"text:undetermined"}));
    // The sinks themselves keep their own fixed bound.
    EXPECT_EQ(onFile(inserting(VCOM_Direction(1))), "from network");
    EXPECT_EQ(onImc(inserting(VCOM_Direction(1))), "from network");
}

TEST_F(EnumInsertionTest, ChainingUlawWritesNothingBetween)
{
    auto const chain = [](auto& out) -> auto& { return out << VCOM_Ulaw(0) << VCOM_Ulaw(1); };
    EXPECT_EQ(onConsole(chain), "mulawalaw");
    EXPECT_EQ(onFile(chain), "mulawalaw");
    EXPECT_EQ(onImc(chain), "mulawalaw");
    EXPECT_EQ(onManagerConsole(chain), "mulawalaw");
    EXPECT_EQ(onManagerRecording(chain), (std::vector<std::string>{"text:mulaw", "text:alaw"}));
}

TEST_F(EnumInsertionTest, MixedChainOnEverySink)
{
    auto const chain = [](auto& out) -> auto& {
        return out << std::string("codec ") << VCOM_Codec(1) << std::string(", plan ")
                   << VCOM_Address_Plan(1) << std::string(", type ") << VCOM_Address_Type(2)
                   << std::string(", pres ") << VCOM_Address_Presentation(2)
                   << std::string(", sin ") << VCOM_Sin(2) << std::string(", hangup ")
                   << VCOM_HangUpSource(1) << std::string(", ") << 7;
    };
    std::string const expected =
        "codec g711alaw, plan ISDN, type international, pres not avail (interworking), "
        "sin info_num_without_restriction, hangup remote, 7";
    EXPECT_EQ(onConsole(chain), expected);
    EXPECT_EQ(onFile(chain), expected);
    EXPECT_EQ(onImc(chain), expected);
    EXPECT_EQ(onManagerConsole(chain), expected);
    EXPECT_EQ(onManagerFile(chain), expected);
    EXPECT_EQ(onManagerImc(chain), expected);
}

TEST_F(EnumInsertionTest, OpeTypAndReasonOnTheSinks)
{
    auto const chain = [](DBG_Output& out) -> DBG_Output& {
        return out << VCOM_OpeTyp(6) << std::string("/") << VCOM_Reason(4);
    };
    EXPECT_EQ(onConsole(chain), "trf setup/cd trf rej");
    EXPECT_EQ(onFile(chain), "trf setup/cd trf rej");
    EXPECT_EQ(onImc(chain), "trf setup/cd trf rej");
}

TEST_F(EnumInsertionTest, FramingSearchedLikeCauses)
{
    EXPECT_EQ(searchFraming(0), "nil");
    EXPECT_EQ(searchFraming(10), "10");
    EXPECT_EQ(searchFraming(150), "150");
    EXPECT_EQ(searchFraming(155), "");
    EXPECT_EQ(searchFraming(160), "");
    EXPECT_EQ(searchFraming(-10), "");
}
