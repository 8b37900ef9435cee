// The file sink: truncation, exact bytes, buffering until destruction, and
// files that cannot be opened.
#include <gtest/gtest.h>

#include <dirent.h>
#include <limits.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "TestSupport.h"

namespace {

// Runs with the process's working directory moved into another one.
class WorkingDirectory {
public:
    explicit WorkingDirectory(std::string const& directory)
    {
        char buffer[PATH_MAX];
        if (getcwd(buffer, sizeof buffer))
            m_previous = buffer;
        m_changed = chdir(directory.c_str()) == 0;
        EXPECT_TRUE(m_changed) << "cannot enter " << directory;
    }
    ~WorkingDirectory()
    {
        if (m_changed && !m_previous.empty()) {
            EXPECT_EQ(chdir(m_previous.c_str()), 0);
        }
    }

private:
    std::string m_previous;
    bool m_changed = false;
};

std::string displayName(DBG_Output const& sink)
{
    return sink;
}

}  // namespace

TEST(FileSinkOutput, DisplayNameIsFileAndTheNameAsGiven)
{
    ScratchDir scratch;
    std::string const path = scratch.file("trace.txt");
    DBG_OutputFile sink(path);
    EXPECT_EQ(displayName(sink), "file " + path);
}

TEST(FileSinkOutput, DisplayNameKeepsTheNameUnresolved)
{
    ScratchDir scratch;
    std::string const path = scratch.path() + "/./sub/../trace.txt";
    DBG_OutputFile sink(path);
    EXPECT_EQ(displayName(sink), "file " + path);
}

TEST(FileSinkOutput, CreatesAMissingFileEmpty)
{
    ScratchDir scratch;
    std::string const path = scratch.file("new.txt");
    ASSERT_FALSE(fileExists(path));
    {
        DBG_OutputFile sink(path);
        EXPECT_TRUE(fileExists(path));
        EXPECT_EQ(readFile(path), "");
    }
    EXPECT_EQ(readFile(path), "");
}

TEST(FileSinkOutput, TruncatesAnExistingFile)
{
    ScratchDir scratch;
    std::string const path = scratch.file("old.txt");
    writeFile(path, "earlier content that must go\n");
    {
        DBG_OutputFile sink(path);
        EXPECT_EQ(readFile(path), "");
    }
    EXPECT_EQ(readFile(path), "");
}

TEST(FileSinkOutput, TruncatesAndThenHoldsOnlyTheNewText)
{
    ScratchDir scratch;
    std::string const path = scratch.file("old.txt");
    writeFile(path, "0123456789012345678901234567890123456789");
    {
        DBG_OutputFile sink(path);
        sink << std::string("new");
    }
    EXPECT_EQ(readFile(path), "new");
}

TEST(FileSinkOutput, StringIntAndCharGiveExactlySixBytes)
{
    ScratchDir scratch;
    std::string const path = scratch.file("six.txt");
    {
        DBG_OutputFile sink(path);
        DBG_Output& afterText = sink << std::string("abc");
        DBG_Output& afterInt = sink << 12;
        DBG_Output& afterChar = sink << static_cast<unsigned char>(10);
        EXPECT_EQ(&afterText, &sink);
        EXPECT_EQ(&afterInt, &sink);
        EXPECT_EQ(&afterChar, &sink);
    }
    std::string const content = readFile(path);
    EXPECT_EQ(content, "abc12\n");
    EXPECT_EQ(content.size(), 6u);
}

TEST(FileSinkOutput, UnsignedCharIsOneCharacterAndIntIsDecimal)
{
    ScratchDir scratch;
    std::string const path = scratch.file("chars.txt");
    {
        DBG_OutputFile sink(path);
        sink << static_cast<unsigned char>(48) << 48 << static_cast<unsigned char>(65) << -65
             << static_cast<unsigned char>(0) << static_cast<unsigned char>(255);
    }
    EXPECT_EQ(readFile(path), std::string("048A-65\0\xFF", 9));
}

TEST(FileSinkOutput, FlushBetweenInsertionsChangesNothing)
{
    ScratchDir scratch;
    std::string const path = scratch.file("flush.txt");
    {
        DBG_OutputFile sink(path);
        sink << std::string("one");
        sink.flush(false, "origin.cpp", 10);
        EXPECT_EQ(readFile(path), "");
        sink << 2;
        sink.flush(true, "origin.cpp", 11);
        EXPECT_EQ(readFile(path), "");
        sink << std::string("three");
        sink.flush(false, "", 0);
    }
    EXPECT_EQ(readFile(path), "one2three");
}

TEST(FileSinkOutput, SmallContentReachesTheFileOnlyWhenTheSinkDies)
{
    ScratchDir scratch;
    std::string const path = scratch.file("late.txt");
    auto sink = std::make_unique<DBG_OutputFile>(path);
    *sink << std::string("line one\n") << 42 << static_cast<unsigned char>('\n');
    sink->flush(false, "x", 1);
    EXPECT_EQ(readFile(path), "");
    sink.reset();
    EXPECT_EQ(readFile(path), "line one\n42\n");
}

TEST(FileSinkOutput, LargeContentReachesTheFileWhenTheBufferFills)
{
    ScratchDir scratch;
    std::string const path = scratch.file("large.txt");
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += std::to_string(i % 10) + "abcdefghi";  // 200000 bytes
    {
        DBG_OutputFile sink(path);
        sink << text;
        std::string const early = readFile(path);
        EXPECT_FALSE(early.empty());
        EXPECT_LE(early.size(), text.size());
        EXPECT_EQ(early, text.substr(0, early.size()));
    }
    EXPECT_EQ(readFile(path), text);
}

TEST(FileSinkOutput, EmbeddedNulIsWritten)
{
    ScratchDir scratch;
    std::string const path = scratch.file("nul.txt");
    std::string const text("ab\0cd\0", 6);
    {
        DBG_OutputFile sink(path);
        sink << text << std::string("\0", 1);
    }
    EXPECT_EQ(readFile(path), std::string("ab\0cd\0\0", 7));
}

TEST(FileSinkOutput, MissingDirectoryIsSilentAndCreatesNothing)
{
    ScratchDir scratch;
    std::string const path = scratch.file("missing/deeper/trace.txt");
    {
        std::unique_ptr<DBG_OutputFile> sink;
        ASSERT_NO_THROW(sink = std::make_unique<DBG_OutputFile>(path));
        EXPECT_EQ(displayName(*sink), "file " + path);
        EXPECT_NO_THROW(*sink << std::string("lost") << 1 << static_cast<unsigned char>('x'));
        EXPECT_NO_THROW(*sink << VCOM_Codec(1) << VCOM_Cause(17));
        EXPECT_NO_THROW(sink->flush(true, "origin", 3));
        EXPECT_NO_THROW(sink.reset());
    }
    EXPECT_FALSE(fileExists(path));
    EXPECT_FALSE(fileExists(scratch.file("missing")));
    EXPECT_TRUE(entriesOf(scratch.path()).empty());
}

TEST(FileSinkOutput, EmptyNameIsSilentAndCreatesNothing)
{
    ScratchDir scratch;
    WorkingDirectory inside(scratch.path());
    {
        std::unique_ptr<DBG_OutputFile> sink;
        ASSERT_NO_THROW(sink = std::make_unique<DBG_OutputFile>(""));
        EXPECT_EQ(displayName(*sink), "file ");
        EXPECT_NO_THROW(*sink << std::string("lost") << 7 << static_cast<unsigned char>('y'));
        EXPECT_NO_THROW(sink.reset());
    }
    EXPECT_TRUE(entriesOf(scratch.path()).empty());
}

TEST(FileSinkOutput, RelativeNameResolvesAgainstTheWorkingDirectory)
{
    ScratchDir scratch;
    {
        WorkingDirectory inside(scratch.path());
        DBG_OutputFile sink("relative.txt");
        EXPECT_EQ(displayName(sink), "file relative.txt");
        sink << std::string("here");
    }
    EXPECT_EQ(readFile(scratch.file("relative.txt")), "here");
}

TEST(FileSinkOutput, EnumerationValuesAreWrittenAsNames)
{
    ScratchDir scratch;
    std::string const path = scratch.file("names.txt");
    {
        DBG_OutputFile sink(path);
        DBG_Output& result = sink << VCOM_Codec(9) << std::string(" ") << VCOM_Direction(1)
                                  << std::string("|") << VCOM_Cause(17) << std::string("|")
                                  << VCOM_Cause(4) << std::string("|") << VCOM_UAgent(1)
                                  << std::string("|") << VCOM_Codec(10);
        EXPECT_EQ(&result, &sink);
    }
    EXPECT_EQ(readFile(path),
              "g722.2 from network|USER_BUSY (User busy)||WebRTC GW|ERROR : OUT OF ARRAY !!!");
}

// A write error puts the stream into its failed state: what follows is
// discarded, even once the file could take it again.
TEST(FileSinkOutput, WriteErrorDiscardsEverythingAfterIt)
{
    ScratchDir scratch;
    std::string const path = scratch.file("limited.trace");
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction previous = {};
    ASSERT_EQ(sigaction(SIGXFSZ, &ignore, &previous), 0);
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    rlimit lowered = limit;
    lowered.rlim_cur = 4096;
    {
        DBG_OutputFile sink(path);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lowered), 0);
        sink << std::string(65536, 'x');  // more than the stream buffers: written at once, and cut short
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        sink << std::string("after");
    }
    sigaction(SIGXFSZ, &previous, nullptr);
    std::string const content = readFile(path);
    EXPECT_EQ(content, std::string(4096, 'x'));
}

TEST(FileSinkOutput, DestroyedThroughTheBaseWritesItsText)
{
    ScratchDir scratch;
    std::string const path = scratch.file("base.txt");
    DBG_Output* sink = new DBG_OutputFile(path);
    *sink << std::string("via base ") << 5;
    EXPECT_EQ(readFile(path), "");
    delete sink;
    EXPECT_EQ(readFile(path), "via base 5");
}

class FileSinkThroughManager : public ::testing::Test {
protected:
    ScratchDir scratch;  // outlives the manager the session destroys
    ImcSession session;
};

TEST_F(FileSinkThroughManager, SameFileSelectedTwiceKeepsOnlyTheSecondText)
{
    std::string const path = scratch.file("twice.txt");
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setFileOutput(path);
    *manager << std::string("first selection\n");
    manager->setFileOutput(path);
    EXPECT_EQ(readFile(path), "");
    *manager << std::string("second selection\n");
    EXPECT_EQ(displayName(*manager->pOutput), "file " + path);
    DBG_OutManager::desinstance();
    EXPECT_EQ(readFile(path), "second selection\n");
}

TEST_F(FileSinkThroughManager, SelectingAnExistingFileEmptiesIt)
{
    std::string const path = scratch.file("existing.txt");
    writeFile(path, "old text");
    DBG_OutManager* manager = DBG_OutManager::instance();
    manager->setFileOutput(path);
    EXPECT_EQ(readFile(path), "");
    DBG_OutManager::desinstance();
    EXPECT_EQ(readFile(path), "");
}

TEST_F(FileSinkThroughManager, MissingDirectoryIsInstalledAndDiscards)
{
    std::string const path = scratch.file("nowhere/trace.txt");
    DBG_OutManager* manager = DBG_OutManager::instance();
    ASSERT_NO_THROW(manager->setFileOutput(path));
    EXPECT_EQ(displayName(*manager->pOutput), "file " + path);
    EXPECT_NO_THROW(*manager << std::string("gone") << 3 << VCOM_Codec(2));
    EXPECT_NO_THROW(manager->flush(false, "o", 1));
    manager->setConsoleOutput();
    EXPECT_FALSE(fileExists(path));
    EXPECT_TRUE(entriesOf(scratch.path()).empty());
}
