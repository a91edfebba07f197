#include "util/UstCharArray.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace {

template <size_t N>
std::string text_of(const CUstCharArray<N>& array) {
    return std::string(array.data(), array.Length());
}

template <size_t N>
CUstCharArray<N> array_of(const std::string& text) {
    CUstCharArray<N> array;
    array.UnSafeCopyFrom(text.c_str());
    return array;
}

template <size_t M, size_t N>
std::vector<std::string> split(const CUstCharArray<N>& array, char separator) {
    std::vector<CUstCharArray<M>> fields;
    array.SplitByChar(fields, separator);
    std::vector<std::string> texts;
    for (const CUstCharArray<M>& field : fields) {
        texts.push_back(text_of(field));
    }
    return texts;
}

}  // namespace

TEST(UstCharArray, IsItsBytesAndNothingElse) {
    EXPECT_EQ(sizeof(CUstCharArray<4>), 4U);
    EXPECT_EQ(sizeof(CAddressType), 256U);
    EXPECT_EQ(sizeof(CMACType), 256U);
    EXPECT_EQ(sizeof(CIPType), 256U);
    EXPECT_EQ(sizeof(CConfigFileNameType), 256U);
    EXPECT_EQ(sizeof(CInstrumentListType), 4096U);
    EXPECT_EQ(sizeof(CFPGADMANameType), 64U);
    EXPECT_TRUE(std::is_trivially_copyable_v<CAddressType>);
}

TEST(UstCharArray, StartsEmpty) {
    const CUstCharArray<8> array;
    EXPECT_EQ(array.Length(), 0U);
    EXPECT_EQ(array.Size(), 8U);
    EXPECT_STREQ(array.data(), "");
}

TEST(UstCharArray, ClearWritesTheFirstByteOnly) {
    CUstCharArray<8> array("abc");
    array.Clear();
    EXPECT_EQ(array.Length(), 0U);
    EXPECT_EQ(std::memcmp(array.data(), "\0bc\0", 4), 0);
}

TEST(UstCharArray, LengthOfABufferWithoutNulIsItsSize) {
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(CUstCharArray<4>::BuffCast(buffer).Length(), 4U);
}

TEST(UstCharArray, ConstructingASixteenArrayFromALiteralOf31BytesKeeps15Characters) {
    const CUstCharArray<16> array("abcdefghijklmnopqrstuvwxyz0123");
    EXPECT_EQ(text_of(array), "abcdefghijklmno");
}

TEST(UstCharArray, LiteralOfTheArraysSizeFitsExactly) {
    EXPECT_EQ(text_of(CUstCharArray<4>("abc")), "abc");
}

TEST(UstCharArray, LiteralIsCopiedByItsSizeAndNotScanned) {
    CUstCharArray<8> array("xxxxxxx");
    array._MyCopy("ab\0cd");
    EXPECT_EQ(std::memcmp(array.data(), "ab\0cd\0xx", 6), 0);
    EXPECT_EQ(text_of(array), "ab");
}

TEST(UstCharArray, LiteralThatBeginsWithNulClears) {
    CUstCharArray<8> array("abc");
    array._MyCopy("\0zz");
    EXPECT_EQ(std::memcmp(array.data(), "\0bc\0", 4), 0);
}

TEST(UstCharArray, CopyFromALiteralCopiesItsCharacters) {
    CUstCharArray<4> array("zzz");
    EXPECT_EQ(text_of(array.CopyFrom("abcdef")), "abc");
    EXPECT_EQ(text_of(array.CopyFrom("")), "");
}

TEST(UstCharArray, CopyFromALargerArrayIsCut) {
    const CUstCharArray<32> source("0123456789");
    CUstCharArray<8> array;
    EXPECT_EQ(text_of(array.CopyFrom(source)), "0123456");
    EXPECT_EQ(array.data()[7], '\0');
}

TEST(UstCharArray, CopyFromASmallerArrayTakesItsStringAlone) {
    CUstCharArray<8> array("xxxxxxx");
    EXPECT_EQ(text_of(array.CopyFrom(CUstCharArray<4>("ab"))), "ab");
    EXPECT_EQ(std::memcmp(array.data(), "ab\0xxxx", 8), 0);
}

TEST(UstCharArray, CopyFromABufferWithoutNulStopsAtItsEnd) {
    char buffer[4] = {'a', 'b', 'c', 'd'};
    CUstCharArray<8> array;
    EXPECT_EQ(text_of(array.CopyFrom(CUstCharArray<4>::BuffCast(buffer))), "abcd");
}

TEST(UstCharArray, CopyFromAnEmptyArrayClears) {
    CUstCharArray<8> array("abc");
    EXPECT_EQ(text_of(array.CopyFrom(CUstCharArray<4>())), "");
}

TEST(UstCharArray, CopyOfARangeIsBoundedByLengthSourceAndRoom) {
    const CUstCharArray<32> source("0123456789");
    CUstCharArray<5> array;
    EXPECT_EQ(text_of(array.CopyFrom(source, 2, 3)), "234");
    EXPECT_EQ(text_of(array.CopyFrom(source, 8, 100)), "89");
    EXPECT_EQ(text_of(array.CopyFrom(source, 1, 100)), "1234");
    EXPECT_EQ(text_of(array.CopyFrom(source, 1, 0)), "");
    EXPECT_EQ(text_of(array.CopyFrom(source, 9, SIZE_MAX)), "9");
}

TEST(UstCharArray, CopyFromThePositionBehindTheSourceClears) {
    const CUstCharArray<32> source("0123");
    CUstCharArray<5> array("abc");
    EXPECT_EQ(text_of(array.CopyFrom(source, 4, 1)), "");
    array.CopyFrom("abc");
    EXPECT_EQ(text_of(array.CopyFrom(source, SIZE_MAX, SIZE_MAX)), "");
}

TEST(UstCharArray, CopyOfARangeOfItselfMovesIt) {
    CUstCharArray<16> array("0123456789");
    EXPECT_EQ(text_of(array.CopyFrom(array, 3, 5)), "34567");
}

TEST(UstCharArray, UnSafeCopyOf300CharactersInto256Keeps255) {
    const std::string text(300, 'q');
    CUstCharArray<256> array;
    array.UnSafeCopyFrom(text.c_str());
    EXPECT_EQ(text_of(array), std::string(255, 'q'));
    EXPECT_EQ(array.data()[255], '\0');
}

TEST(UstCharArray, UnSafeCopyFillsTheRestWithNuls) {
    CUstCharArray<8> array("xxxxxxx");
    array.UnSafeCopyFrom("ab");
    EXPECT_EQ(std::memcmp(array.data(), "ab\0\0\0\0\0", 8), 0);
}

TEST(UstCharArray, UnSafeCopyOfNullChangesNothing) {
    CUstCharArray<8> array("abc");
    EXPECT_EQ(text_of(array.UnSafeCopyFrom(nullptr)), "abc");
}

TEST(UstCharArray, FullArrayIgnoresACharacter) {
    CUstCharArray<64> array = array_of<64>(std::string(63, 'a'));
    array.Append('b');
    EXPECT_EQ(text_of(array), std::string(63, 'a'));
}

TEST(UstCharArray, LastFreePlaceTakesACharacter) {
    CUstCharArray<64> array = array_of<64>(std::string(62, 'a'));
    array.Append('b');
    EXPECT_EQ(text_of(array), std::string(62, 'a') + "b");
    EXPECT_EQ(array.Length(), 63U);
}

TEST(UstCharArray, ArrayOfOneByteTakesNothing) {
    char buffer[2] = {'\0', 'x'};
    char(&first)[1] = reinterpret_cast<char(&)[1]>(buffer);
    CUstCharArray<1>& array = CUstCharArray<1>::BuffCast(first);
    array.Append('b').Append("cd").Append(-12);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], 'x');
}

TEST(UstCharArray, BufferWithoutNulIsNotWrittenPastItsEnd) {
    struct {
        char text[4] = {'a', 'b', 'c', 'd'};
        char behind[4] = {'e', 'f', 'g', 'h'};
    } memory;
    CUstCharArray<4>& array = CUstCharArray<4>::BuffCast(memory.text);
    array.Append('x').Append("yz");
    EXPECT_EQ(std::memcmp(memory.text, "abcd", 4), 0);
    array.Append(12345);
    EXPECT_EQ(std::memcmp(memory.text, "abc\0", 4), 0);
    EXPECT_EQ(std::memcmp(memory.behind, "efgh", 4), 0);
}

TEST(UstCharArray, AppendedLiteralIsCutToFit) {
    CUstCharArray<8> array("abc");
    EXPECT_EQ(text_of(array.Append("defghij")), "abcdefg");
    EXPECT_EQ(text_of(array.Append("k")), "abcdefg");
}

TEST(UstCharArray, AppendedLiteralEndsAtItsNul) {
    CUstCharArray<16> array("abc");
    EXPECT_EQ(text_of(array.Append("de\0fg")), "abcde");
    EXPECT_EQ(text_of(array.Append("")), "abcde");
}

TEST(UstCharArray, MinusSevenBehindA) {
    CUstCharArray<16> array("a");
    EXPECT_EQ(text_of(array.Append(-7)), "a-7");
}

TEST(UstCharArray, ZeroIsOneDigit) {
    CUstCharArray<16> array("a");
    EXPECT_EQ(text_of(array.Append(0)), "a0");
    EXPECT_EQ(text_of(CUstCharArray<16>().Append(0)), "0");
}

TEST(UstCharArray, SectionNameOfChannel15) {
    CUstCharArray<64> array("channel");
    EXPECT_EQ(text_of(array.Append(15)), "channel15");
}

TEST(UstCharArray, GreatestAndLeastNumbers) {
    CUstCharArray<16> greatest;
    EXPECT_EQ(text_of(greatest.Append(INT_MAX)), "2147483647");
    CUstCharArray<16> least;
    EXPECT_EQ(text_of(least.Append(INT_MIN)), "-2147483648");
}

TEST(UstCharArray, NumberWithoutRoomKeepsItsLowDigits) {
    CUstCharArray<8> array("abcd");
    EXPECT_EQ(text_of(array.Append(123456)), "abcd456");
}

TEST(UstCharArray, NumberThatFitsExactlyFillsTheArray) {
    CUstCharArray<8> array("abcd");
    EXPECT_EQ(text_of(array.Append(123)), "abcd123");
}

TEST(UstCharArray, NegativeNumberWithoutRoomKeepsItsLowDigits) {
    CUstCharArray<6> array("abc");
    EXPECT_EQ(text_of(array.Append(-1234)), "abc-4");
}

TEST(UstCharArray, FullArrayIgnoresANumber) {
    CUstCharArray<4> array("abc");
    EXPECT_EQ(text_of(array.Append(5)), "abc");
    EXPECT_EQ(text_of(array.Append(0)), "abc");
}

TEST(UstCharArray, DigitsBeginAtThePositionGiven) {
    CUstCharArray<32> array("abcdefgh");
    array.ParseInt(18446744073709551615UL, 2);
    EXPECT_EQ(text_of(array), "ab18446744073709551615");
    CUstCharArray<4> small;
    small.ParseInt(98765, 0);
    EXPECT_EQ(text_of(small), "765");
    small.ParseInt(1, 100);
    EXPECT_EQ(text_of(small), "765");
}

TEST(UstCharArray, ToInt32ReadsWhatTheTextBeginsWith) {
    EXPECT_EQ(CUstCharArray<16>("42").ToInt32(), 42);
    EXPECT_EQ(CUstCharArray<16>(" \t-17x9").ToInt32(), -17);
    EXPECT_EQ(CUstCharArray<16>("+8").ToInt32(), 8);
    EXPECT_EQ(CUstCharArray<16>("x1").ToInt32(), 0);
    EXPECT_EQ(CUstCharArray<16>().ToInt32(), 0);
}

TEST(UstCharArray, ToInt32OfABufferWithoutNulStaysInside) {
    struct {
        char text[4] = {'1', '2', '3', '4'};
        char behind[4] = {'5', '6', '7', '\0'};
    } memory;
    EXPECT_EQ(CUstCharArray<4>::BuffCast(memory.text).ToInt32(), 123);
}

TEST(UstCharArray, AllEqualsAll) {
    EXPECT_EQ(CUstCharArray<4096>("all").Comp("all"), 0);
    EXPECT_EQ(CUstCharArray<16>().Comp(""), 0);
}

TEST(UstCharArray, LongerOrShorterThanAllIsNotAll) {
    EXPECT_EQ(CUstCharArray<4096>("allx").Comp("all"), -1);
    EXPECT_EQ(CUstCharArray<4096>("al").Comp("all"), 1);
}

TEST(UstCharArray, OneIsForTheGreaterOther) {
    EXPECT_EQ(CUstCharArray<8>("abc").Comp("abd"), 1);
    EXPECT_EQ(CUstCharArray<8>("abd").Comp("abc"), -1);
    EXPECT_EQ(CUstCharArray<8>("abc").Comp(CUstCharArray<32>("abcd")), 1);
}

TEST(UstCharArray, CharactersCompareSigned) {
    EXPECT_EQ(CUstCharArray<8>("a").Comp("\xff"), -1);
    EXPECT_EQ(CUstCharArray<8>("\xff").Comp("a"), 1);
}

TEST(UstCharArray, ComparisonEndsWithTheOthersPositions) {
    const char other[2] = {'a', 'b'};
    EXPECT_EQ(CUstCharArray<8>("abc").Comp(CUstCharArray<2>::BuffCast(other)), 0);
}

TEST(UstCharArray, ComparisonReadsNothingBehindItself) {
    struct {
        char text[2] = {'a', 'b'};
        char behind[2] = {'c', '\0'};
    } memory;
    EXPECT_EQ(CUstCharArray<2>::BuffCast(memory.text).Comp("abc"), 1);
    EXPECT_EQ(CUstCharArray<2>::BuffCast(memory.text).Comp("ab"), 0);
}

TEST(UstCharArray, BuffCastWritesIntoTheForeignBuffer) {
    char buffer[8] = {};
    CUstCharArray<8>& array = CUstCharArray<4>::BuffCast(buffer);
    array.CopyFrom("abc");
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(static_cast<const void*>(&array), static_cast<const void*>(buffer));
}

TEST(UstCharArray, AdjacentSeparatorsEncloseAnEmptyField) {
    EXPECT_EQ(split<32>(CUstCharArray<64>("a,,b"), ','), (std::vector<std::string>{"a", "", "b"}));
    EXPECT_EQ(split<32>(CUstCharArray<64>(",a"), ','), (std::vector<std::string>{"", "a"}));
}

TEST(UstCharArray, NoFieldBehindATrailingSeparator) {
    EXPECT_EQ(split<32>(CUstCharArray<64>("a,b,"), ','), (std::vector<std::string>{"a", "b"}));
}

TEST(UstCharArray, EmptyTextHasNoFields) {
    EXPECT_EQ(split<32>(CUstCharArray<64>(), ','), std::vector<std::string>{});
}

TEST(UstCharArray, TextWithoutSeparatorIsOneField) {
    EXPECT_EQ(split<32>(CUstCharArray<64>("abc"), ','), std::vector<std::string>{"abc"});
}

TEST(UstCharArray, FieldsAreCutToTheirArrays) {
    const std::string list = std::string(40, 'a') + "," + std::string(40, 'b');
    EXPECT_EQ(split<32>(array_of<4096>(list), ','),
              (std::vector<std::string>{std::string(31, 'a'), std::string(31, 'b')}));
}

TEST(UstCharArray, SplittingAddsToWhatTheVectorHolds) {
    std::vector<CUstCharArray<8>> fields{CUstCharArray<8>("x")};
    CUstCharArray<8>("a").SplitByChar(fields, ',');
    ASSERT_EQ(fields.size(), 2U);
    EXPECT_EQ(text_of(fields[0]), "x");
    EXPECT_EQ(text_of(fields[1]), "a");
}

TEST(UstCharArray, SplittingIntoTheVectorThatHoldsTheTextIsSafe) {
    std::vector<CUstCharArray<8>> fields{CUstCharArray<8>("a,b,c")};
    fields.shrink_to_fit();
    fields[0].SplitByChar(fields, ',');
    ASSERT_EQ(fields.size(), 4U);
    EXPECT_EQ(text_of(fields[0]), "a,b,c");
    EXPECT_EQ(text_of(fields[3]), "c");
}
