// A module that makes a grouping locale global: the library's own streams
// (the shutdown paths of DBG stop, the file sink, the IMC sink's buffer)
// still write plain decimal, while the console writes as std::cout is set,
// which the library leaves as the module left it.
#include <gtest/gtest.h>

#include <unistd.h>

#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "DBG_CmdObserver.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "ImcProbe.h"
#include "TestSupport.h"

namespace {

// A separator between every two digits: 23450 reads "2,3,4,5,0", so every
// number of two digits or more shows it. Built here, no system locale needed.
class EveryDigitGrouped : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\1"; }
};

std::locale grouping()
{
    return std::locale(std::locale::classic(), new EveryDigitGrouped);
}

// What a module does with std::locale::global, undone at the test's end.
class GlobalLocale {
public:
    explicit GlobalLocale(std::locale const& locale) : m_previous(std::locale::global(locale)) {}
    ~GlobalLocale() { std::locale::global(m_previous); }
    GlobalLocale(GlobalLocale const&) = delete;
    GlobalLocale& operator=(GlobalLocale const&) = delete;

private:
    std::locale m_previous;
};

class ModuleLocale : public ::testing::Test {
protected:
    ImcSession session;
    ScratchDir scratch;
};

}  // namespace

// The setup itself: a stream made under the global locale groups.
TEST_F(ModuleLocale, AStreamMadeUnderTheGlobalLocaleGroups)
{
    GlobalLocale const module(grouping());
    std::ostringstream stream;
    stream << 23450;
    EXPECT_EQ(stream.str(), "2,3,4,5,0");
}

TEST_F(ModuleLocale, FileSinkWritesPlainDecimal)
{
    std::string const path = scratch.file("numbers.trace");
    {
        GlobalLocale const module(grouping());
        DBG_OutputFile sink(path);
        sink << 23450;
    }
    EXPECT_EQ(readFile(path), "23450");
}

TEST_F(ModuleLocale, ImcSinkWritesPlainDecimal)
{
    GlobalLocale const module(grouping());
    DBG_OutputImc sink;
    sink << 23450;
    imc_standin::clearCalls();
    sink.flush(false, "o", 1);
    EXPECT_EQ(textsOf(imc_standin::Operation::Trace), std::vector<std::string>{std::string("23450\0", 6)});
}

// The shutdown request goes from /tmp//dbg<pid>.key to /tmp//<pid>.key, the
// pid in plain decimal: the gateway listens there.
TEST_F(ModuleLocale, StopBindsAndSendsToThePlainPaths)
{
    ASSERT_GE(getpid(), 10) << "a one-digit process id has nothing to group";
    ShutdownSocketPaths const paths;
    DatagramListener listener(ShutdownSocketPaths::listenerPath());
    ASSERT_NE(listener.fd(), -1);
    DBG_CmdObserver observer(imc_standin::manager());
    CoutCapture capture;
    {
        GlobalLocale const module(grouping());
        observer.stopCommand();
    }
    EXPECT_EQ(capture.text(), "VELTA : processing manual shutdown...\n");
    std::string data;
    std::string sender;
    ASSERT_TRUE(listener.receive(&data, &sender));
    EXPECT_EQ(data, "q");
    EXPECT_EQ(sender, ShutdownSocketPaths::ownPath());
}

// The console sink writes as std::cout is set: the library does not change
// the stream that modules share.
TEST_F(ModuleLocale, ConsoleFollowsStdCoutAsTheModuleLeftIt)
{
    GlobalLocale const module(grouping());
    DBG_Output console;
    CoutCapture capture;
    console << 23450;
    std::locale const previous = std::cout.imbue(grouping());
    console << std::string(" ") << 23450;
    std::cout.imbue(previous);
    EXPECT_EQ(capture.text(), "23450 2,3,4,5,0");
}
