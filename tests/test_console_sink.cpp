// The console sink (DBG_Output itself) and the hexadecimal dump.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "DBG_DumpSize.h"
#include "DBG_Output.h"
#include "TestSupport.h"

namespace {

// Counts how often std::cout is asked to push its bytes out (sync), and keeps
// what it is given.
class SyncCountingBuffer : public std::stringbuf {
public:
    int syncs = 0;

protected:
    int sync() override
    {
        ++syncs;
        return std::stringbuf::sync();
    }
};

std::vector<unsigned char> countingBytes(std::size_t count, unsigned first = 0)
{
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes.push_back(static_cast<unsigned char>(first + i));
    return bytes;
}

std::string dumpOf(std::vector<unsigned char> const& bytes)
{
    return DBG_Output::hexaDump(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

}  // namespace

TEST(ConsoleSinkOutput, DisplayName)
{
    DBG_Output console;
    std::string const name = console;
    EXPECT_EQ(name, "console");
}

TEST(ConsoleSinkOutput, StringIsWrittenWholeWithEmbeddedNul)
{
    CoutCapture capture;
    DBG_Output console;
    std::string const text("ab\0cd\n\0", 7);
    DBG_Output& result = console << text;
    EXPECT_EQ(&result, &console);
    EXPECT_EQ(capture.text(), text);
    EXPECT_EQ(capture.text().size(), 7u);
}

// std::cout formats the text as its own insertion does: a width set on it
// pads the next string, and only that one.
TEST(ConsoleSinkOutput, StringTakesTheWidthAndFillOfStdCout)
{
    PaddedCoutCapture capture(6, '*');
    DBG_Output console;
    console << std::string("ab") << std::string("cd");
    EXPECT_EQ(capture.text(), "****abcd");
}

// A character too is std::cout's own insertion of it.
TEST(ConsoleSinkOutput, UnsignedCharTakesTheWidthAndFillOfStdCout)
{
    PaddedCoutCapture capture(3, '*');
    DBG_Output console;
    console << static_cast<unsigned char>('A') << static_cast<unsigned char>('B');
    EXPECT_EQ(capture.text(), "**AB");
}

// A module may leave std::cout in hexadecimal, with a width: each insertion
// follows that state, as std::cout's own would, and leaves it as it was.
TEST(ConsoleSinkOutput, InsertionsFollowAndKeepTheStateAModuleLeftOnStdCout)
{
    struct Case {
        std::ios::fmtflags flags;
        std::string number, text, character;
    };
    for (Case const& state : {Case{moduleDecimal, "***255", "****ab", "*****A"},
                              Case{moduleHexadecimal, "**0XFF", "****ab", "*****A"}}) {
        DBG_Output console;
        {
            PaddedCoutCapture capture(6, '*', state.flags);
            console << 255;
            EXPECT_EQ(capture.text(), state.number);
            EXPECT_EQ(std::cout.flags(), state.flags);
        }
        {
            PaddedCoutCapture capture(6, '*', state.flags);
            console << std::string("ab");
            EXPECT_EQ(capture.text(), state.text);
            EXPECT_EQ(std::cout.flags(), state.flags);
        }
        {
            PaddedCoutCapture capture(6, '*', state.flags);
            console << static_cast<unsigned char>('A');
            EXPECT_EQ(capture.text(), state.character);
            EXPECT_EQ(std::cout.flags(), state.flags);
        }
    }
}

TEST(ConsoleSinkOutput, EmptyStringWritesNothing)
{
    CoutCapture capture;
    DBG_Output console;
    console << std::string();
    EXPECT_EQ(capture.text(), "");
}

TEST(ConsoleSinkOutput, IntIsWrittenInDecimal)
{
    CoutCapture capture;
    DBG_Output console;
    DBG_Output& result = console << 48;
    EXPECT_EQ(&result, &console);
    EXPECT_EQ(capture.text(), "48");
}

TEST(ConsoleSinkOutput, NegativeAndExtremeInts)
{
    CoutCapture capture;
    DBG_Output console;
    console << -7 << 0 << 2147483647 << (-2147483647 - 1);
    EXPECT_EQ(capture.text(), "-702147483647-2147483648");
}

TEST(ConsoleSinkOutput, UnsignedCharIsOneCharacter)
{
    CoutCapture capture;
    DBG_Output console;
    DBG_Output& result = console << static_cast<unsigned char>(48);
    EXPECT_EQ(&result, &console);
    EXPECT_EQ(capture.text(), "0");
}

TEST(ConsoleSinkOutput, UnsignedChar65IsLetterA)
{
    CoutCapture capture;
    DBG_Output console;
    console << static_cast<unsigned char>(65);
    EXPECT_EQ(capture.text(), "A");
}

TEST(ConsoleSinkOutput, Int65IsTwoDigits)
{
    CoutCapture capture;
    DBG_Output console;
    console << 65;
    EXPECT_EQ(capture.text(), "65");
}

TEST(ConsoleSinkOutput, UnsignedCharZeroAndHighBytes)
{
    CoutCapture capture;
    DBG_Output console;
    console << static_cast<unsigned char>(0) << static_cast<unsigned char>(10)
            << static_cast<unsigned char>(255);
    EXPECT_EQ(capture.text(), std::string("\0\n\xFF", 3));
}

TEST(ConsoleSinkOutput, InsertionsChainWithoutSeparator)
{
    CoutCapture capture;
    DBG_Output console;
    DBG_Output& result = console << std::string("id=") << 12 << static_cast<unsigned char>('x')
                                 << std::string(" end");
    EXPECT_EQ(&result, &console);
    EXPECT_EQ(capture.text(), "id=12x end");
}

TEST(ConsoleSinkOutput, FlushPrintsNothing)
{
    CoutCapture capture;
    DBG_Output console;
    console << std::string("before");
    console.flush(true, "origin.cpp", 12);
    console.flush(false, "", 0);
    console.flush(true, std::string("x\0y", 3), -1);
    console << std::string("after");
    EXPECT_EQ(capture.text(), "beforeafter");
}

TEST(ConsoleSinkOutput, FlushDoesNotFlushStdCout)
{
    SyncCountingBuffer buffer;
    std::streambuf* previous = std::cout.rdbuf(&buffer);
    DBG_Output console;
    console << std::string("text");
    console.flush(false, "origin", 1);
    console.flush(true, "origin", 2);
    int const syncsAfterSinkFlush = buffer.syncs;
    std::cout.flush();  // the stream's own flush does reach the buffer
    int const syncsAfterStreamFlush = buffer.syncs;
    std::cout.rdbuf(previous);
    EXPECT_EQ(syncsAfterSinkFlush, 0);
    EXPECT_EQ(syncsAfterStreamFlush, 1);
    EXPECT_EQ(buffer.str(), "text");
}

TEST(ConsoleSinkOutput, DestroyingThroughTheBaseWritesNothing)
{
    CoutCapture capture;
    DBG_Output* console = new DBG_Output;
    *console << std::string("x");
    delete console;
    EXPECT_EQ(capture.text(), "x");
}

TEST(HexaDumpFormat, NullPointerWithLengthZeroIsEmpty)
{
    EXPECT_EQ(DBG_Output::hexaDump(nullptr, 0), "");
}

TEST(HexaDumpFormat, LengthZeroDoesNotReadData)
{
    unsigned char const data[] = {0xAB};
    EXPECT_EQ(DBG_Output::hexaDump(data, 0), "");
}

TEST(HexaDumpFormat, OneByte)
{
    unsigned char const data[] = {0x0A};
    std::string const dump = DBG_Output::hexaDump(data, 1);
    EXPECT_EQ(dump, " 0A");
    EXPECT_EQ(dump.size(), 3u);
}

TEST(HexaDumpFormat, EightBytesEndInABlank)
{
    std::string const dump = dumpOf(countingBytes(8));
    EXPECT_EQ(dump, " 00 01 02 03 04 05 06 07 ");
    EXPECT_EQ(dump.size(), 25u);
    EXPECT_EQ(dump.back(), ' ');
}

TEST(HexaDumpFormat, SixteenBytesEndInALineFeed)
{
    std::string const dump = dumpOf(countingBytes(16));
    EXPECT_EQ(dump, " 00 01 02 03 04 05 06 07  08 09 0A 0B 0C 0D 0E 0F\n");
    EXPECT_EQ(dump.size(), 50u);
    EXPECT_EQ(dump.back(), '\n');
}

TEST(HexaDumpFormat, SeventeenBytes)
{
    std::string const dump = dumpOf(countingBytes(17));
    EXPECT_EQ(dump, " 00 01 02 03 04 05 06 07  08 09 0A 0B 0C 0D 0E 0F\n 10");
    EXPECT_EQ(dump.size(), 53u);
}

TEST(HexaDumpFormat, EighteenBytesZeroToHex11)
{
    std::string const dump = dumpOf(countingBytes(18));
    EXPECT_EQ(dump, " 00 01 02 03 04 05 06 07  08 09 0A 0B 0C 0D 0E 0F\n 10 11");
    EXPECT_EQ(dump.size(), 56u);
}

TEST(HexaDumpFormat, TwentyFourBytesEndInABlankOnTheSecondLine)
{
    std::string const dump = dumpOf(countingBytes(24, 0xE0));
    EXPECT_EQ(dump,
              " E0 E1 E2 E3 E4 E5 E6 E7  E8 E9 EA EB EC ED EE EF\n"
              " F0 F1 F2 F3 F4 F5 F6 F7 ");
}

TEST(HexaDumpFormat, ThirtyTwoBytesEndInALineFeed)
{
    std::string const dump = dumpOf(countingBytes(32, 0x20));
    EXPECT_EQ(dump,
              " 20 21 22 23 24 25 26 27  28 29 2A 2B 2C 2D 2E 2F\n"
              " 30 31 32 33 34 35 36 37  38 39 3A 3B 3C 3D 3E 3F\n");
}

TEST(HexaDumpFormat, LengthsUpToSeventyFollowTheFormulaAndTheModel)
{
    for (unsigned int n = 0; n <= 70; ++n) {
        std::vector<unsigned char> const bytes = countingBytes(n, 0x9C);
        std::string const dump = DBG_Output::hexaDump(n == 0 ? nullptr : bytes.data(), n);
        EXPECT_EQ(dump.size(), 3u * n + n / 8) << "length " << n;
        EXPECT_EQ(dump, hexDumpModel(bytes.data(), bytes.size())) << "length " << n;
        if (n == 0)
            continue;
        if (n % 16 == 0) {
            EXPECT_EQ(dump.back(), '\n') << "length " << n;
        } else if (n % 8 == 0) {
            EXPECT_EQ(dump.back(), ' ') << "length " << n;
        } else {
            EXPECT_NE(dump.back(), ' ') << "length " << n;
        }
        EXPECT_EQ(dump.front(), ' ') << "length " << n;
    }
}

TEST(HexaDumpFormat, EveryByteValueInUpperCase)
{
    std::vector<unsigned char> const bytes = countingBytes(256);
    std::string const dump = dumpOf(bytes);
    EXPECT_EQ(dump, hexDumpModel(bytes.data(), bytes.size()));
    EXPECT_EQ(dump.size(), 3u * 256 + 256 / 8);
    EXPECT_EQ(dump.find_first_of("abcdef"), std::string::npos);
    EXPECT_EQ(dump.substr(16 * 15 * 3 + 15 * 2),
              " F0 F1 F2 F3 F4 F5 F6 F7  F8 F9 FA FB FC FD FE FF\n");
    for (unsigned value = 0; value < 256; ++value) {
        unsigned char const byte = static_cast<unsigned char>(value);
        char expected[8];
        std::snprintf(expected, sizeof expected, " %02X", value);
        EXPECT_EQ(DBG_Output::hexaDump(&byte, 1), expected) << "byte " << value;
    }
}

// The size check hexaDump makes, also with a bound as small as a 32-bit
// string's: a dump of exactly the bound is allowed; one character more, and
// the largest length of all (whose size wraps in 32 bits), are refused.
TEST(HexaDumpSize, ADumpPastTheLargestStringIsRefused)
{
    unsigned long long const largest32 = 0x7FFFFFFFULL;
    EXPECT_EQ(dbg_output::dumpSize(8, 25), 25u);
    EXPECT_EQ(dbg_output::dumpSize(17, 53), 53u);
    EXPECT_EQ(dbg_output::dumpSize(687194763, largest32), 2147483634u);
    EXPECT_EQ(dbg_output::dumpSize(UINT_MAX, ULLONG_MAX), 3ULL * UINT_MAX + UINT_MAX / 8);
    struct Refused {
        unsigned int length;
        unsigned long long largest;
    };
    for (Refused const refused : {Refused{8, 24}, Refused{17, 52}, Refused{UINT_MAX, largest32}}) {
        try {
            dbg_output::dumpSize(refused.length, refused.largest);
            ADD_FAILURE() << "length " << refused.length << " is not refused";
        } catch (std::length_error const& error) {
            EXPECT_STREQ(error.what(), "DBG_Output::hexaDump: length too large");
        }
    }
}

TEST(HexaDumpFormat, WritesNothingToTheConsole)
{
    CoutCapture capture;
    unsigned char const data[] = {1, 2, 3};
    std::string const dump = DBG_Output::hexaDump(data, 3);
    EXPECT_EQ(dump, " 01 02 03");
    EXPECT_EQ(capture.text(), "");
}

TEST(HexaDumpFormat, ReadsOnlyTheGivenLength)
{
    unsigned char const data[] = {0x11, 0x22, 0x33, 0x44};
    EXPECT_EQ(DBG_Output::hexaDump(data, 2), " 11 22");
    EXPECT_EQ(DBG_Output::hexaDump(data + 2, 2), " 33 44");
}
