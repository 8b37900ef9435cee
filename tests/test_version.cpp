// DBG_Version: the two values read from /current/config.rc. Every test runs
// in a mount namespace of its own with an empty tmpfs on /current.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "DBG_Version.h"
#include "TestSupport.h"

namespace {

// The bytes of a literal, embedded NULs included.
template <std::size_t Size>
std::string bytes(char const (&text)[Size])
{
    return std::string(text, Size - 1);
}

class VersionTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(m_isolation.enter()); }
    void TearDown() override { m_isolation.leave(); }

    static void writeConfig(std::string const& content)
    {
        ASSERT_NO_FATAL_FAILURE(writeFile(CurrentConfigIsolation::configFile, content));
        ASSERT_EQ(readFile(CurrentConfigIsolation::configFile), content);
    }

private:
    CurrentConfigIsolation m_isolation;
};

}  // namespace

TEST_F(VersionTest, NoFileLeavesBothEmpty)
{
    ASSERT_FALSE(fileExists(CurrentConfigIsolation::configFile));
    DBG_Version* version = nullptr;
    EXPECT_NO_THROW(version = new DBG_Version);
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(version->m_voipVersion, "");
    EXPECT_EQ(version->m_traxoValue, "");
    delete version;
}

TEST_F(VersionTest, EmptyFileLeavesBothEmpty)
{
    writeConfig("");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
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

TEST_F(VersionTest, KeywordAloneGivesAnEmptyVersionAndEndsTheScan)
{
    writeConfig("voip\nTRAXO 1\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, KeywordFollowedByX)
{
    writeConfig("voipX\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "X");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, CapitalisedKeywordIsNotRecognised)
{
    writeConfig("Voip1\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST_F(VersionTest, BlankBeforeTheKeywordIsNotRecognised)
{
    writeConfig(" voip1\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST_F(VersionTest, UnrecognisedLinesAreSkippedAndTheScanGoesOn)
{
    writeConfig("Voip1\n voip2\n\tvoip3\nVOIP4\n\n# voip5\nvoi\nvoip6\nvoip7\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "6");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, TraxoAfterVoipIsNotRead)
{
    writeConfig("voip 2.0\nTRAXO 3.0\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, " 2.0");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, LastTraxoBeforeVoipWins)
{
    writeConfig("TRAXO first\nother\nTRAXO second\nvoip1\nTRAXO third\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " second");
    EXPECT_EQ(version.m_voipVersion, "1");
}

TEST_F(VersionTest, TraxoWithoutVoipIsKept)
{
    writeConfig("TRAXO 5\nsomething else\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " 5");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST_F(VersionTest, ValuesAreCutAfterTheirEleventhCharacter)
{
    writeConfig("TRAXO 01.02\nvoip 3.4.5-build7\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " 01.02");
    EXPECT_EQ(version.m_voipVersion, " 3.4.5-buil");
}

TEST_F(VersionTest, LongTraxoValueIsCutAfterItsEleventhCharacter)
{
    writeConfig("TRAXO 01.02.03.04\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " 01.02.03.0");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST_F(VersionTest, ExactlyElevenCharactersAreKeptWhole)
{
    writeConfig("TRAXO12345678901\nvoipabcdefghijk\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, "12345678901");
    EXPECT_EQ(version.m_voipVersion, "abcdefghijk");
}

TEST_F(VersionTest, TraxoWithFewerThanElevenCharacters)
{
    writeConfig("TRAXOab\nvoipZ\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, "ab");
    EXPECT_EQ(version.m_voipVersion, "Z");
}

TEST_F(VersionTest, TraxoAloneGivesAnEmptyValueAndTheScanGoesOn)
{
    writeConfig("TRAXO 1\nTRAXO\nvoipZ\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, "");
    EXPECT_EQ(version.m_voipVersion, "Z");
}

TEST_F(VersionTest, ValueIsTakenRawWithBlanksEqualsAndTabs)
{
    writeConfig("TRAXO=\t1 \nvoip=  x\t\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, "=\t1 ");
    EXPECT_EQ(version.m_voipVersion, "=  x\t");
}

TEST_F(VersionTest, CarriageReturnIsKept)
{
    writeConfig("TRAXO 7\r\nvoip 1.2\r\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " 7\r");
    EXPECT_EQ(version.m_voipVersion, " 1.2\r");
}

TEST_F(VersionTest, CarriageReturnBeyondTheEleventhCharacterIsCut)
{
    writeConfig("voip12345678901\r\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "12345678901");
}

TEST_F(VersionTest, LastLineWithoutLineFeedIsRead)
{
    writeConfig("TRAXO 1\nvoip7");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "7");
    EXPECT_EQ(version.m_traxoValue, " 1");
}

TEST_F(VersionTest, LastTraxoLineWithoutLineFeedIsRead)
{
    writeConfig("TRAXO 1\nTRAXO 2");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " 2");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST_F(VersionTest, LongLineBeforeVoipEndsTheScan)
{
    writeConfig(std::string(300, 'a') + "\nvoip1\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, TraxoAfterAnOverLongLineIsNotRead)
{
    writeConfig("TRAXO 1\n" + std::string(300, 'b') + "\nTRAXO 2\nvoip3\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " 1");
    EXPECT_EQ(version.m_voipVersion, "");
}

TEST_F(VersionTest, LineOf253CharactersIsReadAndTheScanGoesOn)
{
    std::string const line = "TRAXO" + std::string(248, 'c');
    ASSERT_EQ(line.size(), 253u);
    writeConfig(line + "\nvoip5\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, std::string(11, 'c'));
    EXPECT_EQ(version.m_voipVersion, "5");
}

TEST_F(VersionTest, LineOf254CharactersIsReadWholeAndTheScanGoesOn)
{
    std::string const filler(254, 'd');
    std::string const traxo = "TRAXO" + std::string(249, 'e');
    ASSERT_EQ(traxo.size(), 254u);
    writeConfig(filler + "\n" + traxo + "\nvoip6\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, std::string(11, 'e'));
    EXPECT_EQ(version.m_voipVersion, "6");
}

TEST_F(VersionTest, VoipLineOf254Characters)
{
    std::string const line = "voip0123456789" + std::string(240, 'f');
    ASSERT_EQ(line.size(), 254u);
    writeConfig(line + "\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "0123456789f");
}

TEST_F(VersionTest, LineOf255CharactersEndsTheScanUnexamined)
{
    std::string const line = "voip" + std::string(251, 'g');
    ASSERT_EQ(line.size(), 255u);
    writeConfig("TRAXO 1\n" + line + "\nvoip7\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, " 1");
}

TEST_F(VersionTest, LineOf256CharactersEndsTheScan)
{
    std::string const line(256, 'h');
    writeConfig(line + "\nvoip8\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, LineOfThousandsOfCharactersEndsTheScan)
{
    writeConfig("TRAXO" + std::string(5000, 'i') + "\nvoip9\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, OverLongLastLineWithoutLineFeedEndsTheScan)
{
    writeConfig("TRAXO 1\nvoip" + std::string(400, 'j'));
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "");
    EXPECT_EQ(version.m_traxoValue, " 1");
}

TEST_F(VersionTest, LineIsTakenUpToItsFirstNul)
{
    writeConfig(bytes("voip12\0" "34\n"));
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "12");
}

TEST_F(VersionTest, LineStartingWithNulIsNotRecognisedAndTheScanGoesOn)
{
    writeConfig(bytes("TRAXO 1\n\0voip9\nTRAXO\0 5\nvoip4\n"));
    DBG_Version const version;
    EXPECT_EQ(version.m_voipVersion, "4");
    EXPECT_EQ(version.m_traxoValue, "");
}

TEST_F(VersionTest, NulInsideTheElevenCharactersShortensTheValue)
{
    writeConfig(bytes("TRAXO ab\0cdefgh\nvoip\0\nvoipW\n"));
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, " ab");
    EXPECT_EQ(version.m_voipVersion, "");  // "voip" followed by NUL is a voip line
}

TEST_F(VersionTest, DirectoryInPlaceOfTheFileLeavesBothEmpty)
{
    ASSERT_EQ(mkdir(CurrentConfigIsolation::configFile, 0755), 0);
    DBG_Version* version = nullptr;
    EXPECT_NO_THROW(version = new DBG_Version);
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(version->m_voipVersion, "");
    EXPECT_EQ(version->m_traxoValue, "");
    delete version;
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

TEST_F(VersionTest, CharactersBehindANulStillCountForTheLineLength)
{
    writeConfig("TRAXO1" + std::string(1, '\0') + std::string(250, 'k') + "\nvoip2\n");
    DBG_Version const version;
    EXPECT_EQ(version.m_traxoValue, "");
    EXPECT_EQ(version.m_voipVersion, "");
}
