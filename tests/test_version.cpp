// DBG_Version: the line rules driven with in-memory streams, then the fixed
// path /current/config.rc end to end in a private view of the file system
// (skipped, with the reason, where the kernel grants no namespace).
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "DBG_Version.h"
#include "DBG_VersionLines.h"
#include "TestSupport.h"

namespace {

// The bytes of a literal, embedded NULs included.
template <std::size_t Size>
std::string bytes(char const (&text)[Size])
{
    return std::string(text, Size - 1);
}

struct Values {
    std::string m_voipVersion;
    std::string m_traxoValue;
};

// What the scan finds in `content`, read as the configuration file.
Values scan(std::string const& content)
{
    std::istringstream lines(content);
    Values values;
    dbg_version::scanLines(lines, values.m_voipVersion, values.m_traxoValue);
    return values;
}

class VersionTest : public ::testing::Test {
protected:
    void SetUp() override { DBG_ISOLATE_CURRENT(m_isolation); }

    static void writeConfig(std::string const& content)
    {
        ASSERT_NO_FATAL_FAILURE(writeFile(CurrentConfigIsolation::configFile, content));
        ASSERT_EQ(readFile(CurrentConfigIsolation::configFile), content);
    }

    static void expectBothEmptyWithoutAnException()
    {
        DBG_Version* version = nullptr;
        EXPECT_NO_THROW(version = new DBG_Version);
        ASSERT_NE(version, nullptr);
        EXPECT_EQ(version->m_voipVersion, "");
        EXPECT_EQ(version->m_traxoValue, "");
        delete version;
    }

private:
    CurrentConfigIsolation m_isolation;
};

}  // namespace

TEST(VersionLines, BadStreamIsNotRead)
{
    std::istringstream lines("voip1\nTRAXO2\n");
    lines.setstate(std::ios::badbit);
    std::string voip = "before";
    std::string traxo = "before";
    dbg_version::scanLines(lines, voip, traxo);
    EXPECT_EQ(voip, "before");
    EXPECT_EQ(traxo, "before");
}

TEST(VersionLines, EmptyInputLeavesBothEmpty)
{
    Values const version = scan("");
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, KeywordAloneGivesAnEmptyVersionAndEndsTheScan)
{
    Values const version = scan("voip\nTRAXO 1\n");
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, KeywordFollowedByX)
{
    Values const version = scan("voipX\n");
    EXPECT_EQ(version.m_voipVersion, "X");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, CapitalisedKeywordIsNotRecognised)
{
    Values const version = scan("Voip1\n");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST(VersionLines, BlankBeforeTheKeywordIsNotRecognised)
{
    Values const version = scan(" voip1\n");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST(VersionLines, UnrecognisedLinesAreSkippedAndTheScanGoesOn)
{
    Values const version = scan("Voip1\n voip2\n\tvoip3\nVOIP4\n\n# voip5\nvoi\nvoip6\nvoip7\n");
    EXPECT_EQ(version.m_voipVersion, "6");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, TraxoAfterVoipIsNotRead)
{
    Values const version = scan("voip 2.0\nTRAXO 3.0\n");
    EXPECT_EQ(version.m_voipVersion, " 2.0");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, LastTraxoBeforeVoipWins)
{
    Values const version = scan("TRAXO first\nother\nTRAXO second\nvoip1\nTRAXO third\n");
    EXPECT_EQ(version.m_traxoValue, " second");
    EXPECT_EQ(version.m_voipVersion, "1");
}

TEST(VersionLines, TraxoWithoutVoipIsKept)
{
    Values const version = scan("TRAXO 5\nsomething else\n");
    EXPECT_EQ(version.m_traxoValue, " 5");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST(VersionLines, ValuesAreCutAfterTheirEleventhCharacter)
{
    Values const version = scan("TRAXO 01.02\nvoip 3.4.5-build7\n");
    EXPECT_EQ(version.m_traxoValue, " 01.02");
    EXPECT_EQ(version.m_voipVersion, " 3.4.5-buil");
}

TEST(VersionLines, LongTraxoValueIsCutAfterItsEleventhCharacter)
{
    Values const version = scan("TRAXO 01.02.03.04\n");
    EXPECT_EQ(version.m_traxoValue, " 01.02.03.0");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST(VersionLines, ExactlyElevenCharactersAreKeptWhole)
{
    Values const version = scan("TRAXO12345678901\nvoipabcdefghijk\n");
    EXPECT_EQ(version.m_traxoValue, "12345678901");
    EXPECT_EQ(version.m_voipVersion, "abcdefghijk");
}

TEST(VersionLines, TraxoWithFewerThanElevenCharacters)
{
    Values const version = scan("TRAXOab\nvoipZ\n");
    EXPECT_EQ(version.m_traxoValue, "ab");
    EXPECT_EQ(version.m_voipVersion, "Z");
}

TEST(VersionLines, TraxoAloneGivesAnEmptyValueAndTheScanGoesOn)
{
    Values const version = scan("TRAXO 1\nTRAXO\nvoipZ\n");
    EXPECT_EQ(version.m_traxoValue, "");
    EXPECT_EQ(version.m_voipVersion, "Z");
}

TEST(VersionLines, ValueIsTakenRawWithBlanksEqualsAndTabs)
{
    Values const version = scan("TRAXO=\t1 \nvoip=  x\t\n");
    EXPECT_EQ(version.m_traxoValue, "=\t1 ");
    EXPECT_EQ(version.m_voipVersion, "=  x\t");
}

TEST(VersionLines, CarriageReturnIsKept)
{
    Values const version = scan("TRAXO 7\r\nvoip 1.2\r\n");
    EXPECT_EQ(version.m_traxoValue, " 7\r");
    EXPECT_EQ(version.m_voipVersion, " 1.2\r");
}

TEST(VersionLines, CarriageReturnBeyondTheEleventhCharacterIsCut)
{
    Values const version = scan("voip12345678901\r\n");
    EXPECT_EQ(version.m_voipVersion, "12345678901");
}

TEST(VersionLines, LastLineWithoutLineFeedIsRead)
{
    Values const version = scan("TRAXO 1\nvoip7");
    EXPECT_EQ(version.m_voipVersion, "7");
    EXPECT_EQ(version.m_traxoValue, " 1");
}

TEST(VersionLines, LastTraxoLineWithoutLineFeedIsRead)
{
    Values const version = scan("TRAXO 1\nTRAXO 2");
    EXPECT_EQ(version.m_traxoValue, " 2");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST(VersionLines, LongLineBeforeVoipEndsTheScan)
{
    Values const version = scan(std::string(300, 'a') + "\nvoip1\n");
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, TraxoAfterAnOverLongLineIsNotRead)
{
    Values const version = scan("TRAXO 1\n" + std::string(300, 'b') + "\nTRAXO 2\nvoip3\n");
    EXPECT_EQ(version.m_traxoValue, " 1");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST(VersionLines, LineOf253CharactersIsReadAndTheScanGoesOn)
{
    std::string const line = "TRAXO" + std::string(248, 'c');
    ASSERT_EQ(line.size(), 253u);
    Values const version = scan(line + "\nvoip5\n");
    EXPECT_EQ(version.m_traxoValue, std::string(11, 'c'));
    EXPECT_EQ(version.m_voipVersion, "5");
}

TEST(VersionLines, LineOf254CharactersIsReadWholeAndTheScanGoesOn)
{
    std::string const filler(254, 'd');
    std::string const traxo = "TRAXO" + std::string(249, 'e');
    ASSERT_EQ(traxo.size(), 254u);
    Values const version = scan(filler + "\n" + traxo + "\nvoip6\n");
    EXPECT_EQ(version.m_traxoValue, std::string(11, 'e'));
    EXPECT_EQ(version.m_voipVersion, "6");
}

TEST(VersionLines, VoipLineOf254Characters)
{
    std::string const line = "voip0123456789" + std::string(240, 'f');
    ASSERT_EQ(line.size(), 254u);
    Values const version = scan(line + "\n");
    EXPECT_EQ(version.m_voipVersion, "0123456789f");
}

TEST(VersionLines, LineOf255CharactersEndsTheScanUnexamined)
{
    std::string const line = "voip" + std::string(251, 'g');
    ASSERT_EQ(line.size(), 255u);
    Values const version = scan("TRAXO 1\n" + line + "\nvoip7\n");
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, " 1");
}

TEST(VersionLines, LineOf256CharactersEndsTheScan)
{
    std::string const line(256, 'h');
    Values const version = scan(line + "\nvoip8\n");
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, LineOfThousandsOfCharactersEndsTheScan)
{
    Values const version = scan("TRAXO" + std::string(5000, 'i') + "\nvoip9\n");
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, OverLongLastLineWithoutLineFeedEndsTheScan)
{
    Values const version = scan("TRAXO 1\nvoip" + std::string(400, 'j'));
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, " 1");
}

TEST(VersionLines, LineIsTakenUpToItsFirstNul)
{
    Values const version = scan(bytes("voip12\0" "34\n"));
    EXPECT_EQ(version.m_voipVersion, "12");
}

TEST(VersionLines, LineStartingWithNulIsNotRecognisedAndTheScanGoesOn)
{
    Values const version = scan(bytes("TRAXO 1\n\0voip9\nTRAXO\0 5\nvoip4\n"));
    EXPECT_EQ(version.m_voipVersion, "4");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST(VersionLines, NulInsideTheElevenCharactersShortensTheValue)
{
    Values const version = scan(bytes("TRAXO ab\0cdefgh\nvoip\0\nvoipW\n"));
    EXPECT_EQ(version.m_traxoValue, " ab");
    EXPECT_EQ(version.m_voipVersion, "");  // "voip" followed by NUL is a voip line
}

TEST(VersionLines, CharactersBehindANulStillCountForTheLineLength)
{
    Values const version = scan("TRAXO1" + std::string(1, '\0') + std::string(250, 'k') + "\nvoip2\n");
    EXPECT_EQ(version.m_traxoValue, "");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST_F(VersionTest, NoFileLeavesBothEmpty)
{
    ASSERT_FALSE(fileExists(CurrentConfigIsolation::configFile));
    expectBothEmptyWithoutAnException();
}

TEST_F(VersionTest, ReadsTheFileAtItsAbsolutePathOnly)
{
    // Files of the same name elsewhere, relative to the working directory
    // too, are not read.
    ScratchDir scratch;
    ASSERT_EQ(mkdir(scratch.file("current").c_str(), 0755), 0);
    writeFile(scratch.file("current/config.rc"), "voipRELATIVE\n");
    writeFile(scratch.file("config.rc"), "voipHERE\n");
    writeFile("/current/config.rc.bak", "voipBACKUP\n");
    writeFile("/current/Config.rc", "voipCASE\n");
    char previous[4096];
    ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);
    DBG_Version const without;
    writeConfig("voipABSOLUTE\n");
    DBG_Version const with;
    ASSERT_EQ(chdir(previous), 0);
    EXPECT_EQ(without.m_voipVersion, "");
    EXPECT_EQ(with.m_voipVersion, "ABSOLUTE");
}

TEST_F(VersionTest, DirectoryInPlaceOfTheFileLeavesBothEmpty)
{
    ASSERT_EQ(mkdir(CurrentConfigIsolation::configFile, 0755), 0);
    expectBothEmptyWithoutAnException();
}

TEST_F(VersionTest, EachReaderTakesTheContentsOfItsOwnTime)
{
    writeConfig("voip1\n");
    DBG_Version const first;
    writeConfig("voip2\n");
    DBG_Version const second;
    EXPECT_EQ(first.m_voipVersion, "1");
    EXPECT_EQ(second.m_voipVersion, "2");
}

TEST_F(VersionTest, VersionAndTraxoValueComeFromTheFile)
{
    writeConfig("TRAXO 01.02\nvoip 3.4.5-build7\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " 01.02");
    EXPECT_EQ(version.m_voipVersion, " 3.4.5-buil");
}
