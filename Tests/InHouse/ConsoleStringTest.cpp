#include "RyGConsoleString.h"

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

namespace
{

using Support::Hex;
using Support::tBytes;

tBytes Image(const RyGConsoleString& value)
{
    tBytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

RyGConsoleString FromImage(const tBytes& bytes)
{
    RyGConsoleString value;
    std::memcpy(static_cast<void*>(&value), bytes.data(), sizeof value);
    return value;
}

static_assert(sizeof(RyGConsoleString) == 13, "stored and sent whole");
static_assert(std::is_trivially_copyable<RyGConsoleString>::value, "copied as bytes");
static_assert(alignof(RyGConsoleString) == 1, "values lie side by side");

TEST(ConsoleString, AFreshOneIsThirteenZeros)
{
    EXPECT_EQ(tBytes(13, 0), Image(RyGConsoleString()));
    EXPECT_EQ("", RyGConsoleString().Text());
}

TEST(ConsoleString, TextIsFilledUpWithZeros)
{
    EXPECT_EQ(Hex("4f 75 74 31 00 00 00 00 00 00 00 00 00"), Image("Out1"));
    EXPECT_EQ("Out1", RyGConsoleString("Out1").Text());
}

TEST(ConsoleString, TwelveCharactersFitAndTheThirteenthIsCut)
{
    const tBytes expected = Hex("31 32 33 34 35 36 37 38 39 30 41 42 00");
    for (const char* szText : {"1234567890AB", "1234567890ABC", "1234567890ABCDEFGH"})
    {
        EXPECT_EQ(expected, Image(szText)) << szText;
        EXPECT_EQ(expected, Image(std::string(szText))) << szText;
    }
    EXPECT_EQ("1234567890AB", RyGConsoleString("1234567890ABC").Text());
}

TEST(ConsoleString, NullIsTheEmptyText)
{
    const char* szNull = nullptr;
    EXPECT_EQ(tBytes(13, 0), Image(szNull));
}

TEST(ConsoleString, AStringEndsAtItsFirstZero)
{
    EXPECT_EQ(RyGConsoleString("ab"), RyGConsoleString(std::string("ab\0cd", 5)));
    EXPECT_EQ(RyGConsoleString(), RyGConsoleString(std::string()));
}

TEST(ConsoleString, ReadsNoMoreOfItsSourceThanItTakes)
{
    const std::unique_ptr<char[]> pText(new char[12]); // no zero at the end
    std::memcpy(pText.get(), "unterminated", 12);
    EXPECT_EQ("unterminated", RyGConsoleString(pText.get()).Text());
}

TEST(ConsoleString, CharactersAboveAsciiStayAsTheyAre)
{
    EXPECT_EQ(Hex("c3 a4 ff 00 00 00 00 00 00 00 00 00 00"), Image("\xc3\xa4\xff"));
    EXPECT_EQ("\xc3\xa4\xff", RyGConsoleString("\xc3\xa4\xff").Text());
}

TEST(ConsoleString, ThirteenCharactersFromANetworkAreReadWithoutOverrun)
{
    const auto pValue = std::make_unique<RyGConsoleString>(FromImage(tBytes(13, 'x')));
    EXPECT_EQ(std::string(13, 'x'), pValue->Text());
    EXPECT_EQ(0, std::memcmp(pValue->Data(), "xxxxxxxxxxxxx", 13));
}

TEST(ConsoleString, EqualityLooksAtAllThirteenBytes)
{
    EXPECT_TRUE(RyGConsoleString("Mix 1") == RyGConsoleString(std::string("Mix 1")));
    EXPECT_FALSE(RyGConsoleString("Mix 1") != RyGConsoleString("Mix 1"));
    for (std::size_t n = 0; n < 13; ++n)
    {
        tBytes other(13, 0);
        other[n] = 1;
        EXPECT_TRUE(FromImage(other) != RyGConsoleString()) << n;
        EXPECT_FALSE(FromImage(other) == RyGConsoleString()) << n;
    }
}

TEST(ConsoleString, ACopyIsEqualAndIndependent)
{
    RyGConsoleString first("Mono");
    const RyGConsoleString copy(first);
    first = "Stereo";
    EXPECT_EQ("Mono", copy.Text());
    EXPECT_EQ(Hex("53 74 65 72 65 6f 00 00 00 00 00 00 00"), Image(first));
    first = "LR";
    EXPECT_EQ(Hex("4c 52 00 00 00 00 00 00 00 00 00 00 00"), Image(first));
}

} // namespace
