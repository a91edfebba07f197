#include "util/IniReader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace {

/** A reader of a file with this content. */
CIniReader reader_of(const std::string& content) {
    const kova::test::TempDir directory;
    const std::string path = directory.path() / "test.ini";
    std::ofstream(path, std::ios::binary) << content;
    CIniReader reader;
    EXPECT_TRUE(reader.ReadConfig(path));
    return reader;
}

std::string value_of(const CIniReader& reader, const char* section, const char* key) {
    return reader.ReadString(section, key, "<missing>");
}

}  // namespace

TEST(IniReader, ReadsWhatTheConfigurationFileSays) {
    const CIniReader reader = reader_of("[config]\nkey = value # note\nother=1\n[channel0]\nkey\t=\tx y \n");
    EXPECT_EQ(value_of(reader, "config", "key"), "value");
    EXPECT_EQ(value_of(reader, "config", "other"), "1");
    EXPECT_EQ(value_of(reader, "channel0", "key"), "x y");
    EXPECT_EQ(value_of(reader, "channel0", "other"), "<missing>");
}

TEST(IniReader, FileThatCannotBeOpenedIsFalseAndForgetsWhatWasRead) {
    CIniReader reader = reader_of("[config]\nkey=value\n");
    EXPECT_FALSE(reader.ReadConfig("/nonexistent/kova.ini"));
    EXPECT_EQ(value_of(reader, "config", "key"), "<missing>");
}

TEST(IniReader, AFileThatCannotBeReadIsFalseAndForgetsWhatWasRead) {
    const kova::test::TempDir directory;
    CIniReader reader = reader_of("[config]\nkey=value\n");
    EXPECT_FALSE(reader.ReadConfig(directory.path()));
    EXPECT_EQ(value_of(reader, "config", "key"), "<missing>");
}

TEST(IniReader, FailureWritesNothing) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(CIniReader().ReadConfig("/nonexistent/kova.ini"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(IniReader, EmptyFileIsASuccess) {
    EXPECT_EQ(value_of(reader_of(""), "config", "key"), "<missing>");
}

TEST(IniReader, ReadingAgainReplacesEverything) {
    const kova::test::TempDir directory;
    const std::string path = directory.path() / "test.ini";
    std::ofstream(path) << "[config]\nfirst=1\n";
    CIniReader reader;
    ASSERT_TRUE(reader.ReadConfig(path));
    std::ofstream(path) << "[config]\nsecond=2\n";
    ASSERT_TRUE(reader.ReadConfig(path));
    EXPECT_EQ(value_of(reader, "config", "first"), "<missing>");
    EXPECT_EQ(value_of(reader, "config", "second"), "2");
}

TEST(IniReader, LastLineNeedsNoLineFeed) {
    EXPECT_EQ(value_of(reader_of("[config]\nkey=value"), "config", "key"), "value");
}

TEST(IniReader, LineEndsOfWindowsAreStripped) {
    EXPECT_EQ(value_of(reader_of("[config]\r\nkey=value\r\n"), "config", "key"), "value");
}

TEST(IniReader, LineWithAHashInFrontIsAComment) {
    EXPECT_EQ(value_of(reader_of("[config]\n#key=value\n#[other]\nlast=1\n"), "config", "key"), "<missing>");
    EXPECT_EQ(value_of(reader_of("[config]\n#[other]\nlast=1\n"), "config", "last"), "1");
}

TEST(IniReader, HashInsideAValueEndsIt) {
    EXPECT_EQ(value_of(reader_of("[config]\nkey=ab#cd\n"), "config", "key"), "ab");
}

TEST(IniReader, HashBeforeTheEqualSignLeavesNoLine) {
    EXPECT_EQ(value_of(reader_of("[config]\nke#y=value\n"), "config", "ke"), "<missing>");
}

TEST(IniReader, HeaderIndentedByTwoBlanksIsNotTheSection) {
    const CIniReader reader = reader_of("  [config]\nkey=value\n");
    EXPECT_EQ(value_of(reader, "config", "key"), "<missing>");
    EXPECT_EQ(value_of(reader, "config]", "key"), "value");
}

TEST(IniReader, IndentedHeaderTakesCharactersFromBehindItsBracket) {
    EXPECT_EQ(value_of(reader_of("  [config]abcdef\nkey=value\n"), "config]a", "key"), "value");
}

TEST(IniReader, SectionNameIsNotTrimmed) {
    EXPECT_EQ(value_of(reader_of("[ config ]\nkey=value\n"), " config ", "key"), "value");
}

TEST(IniReader, ValueInBracketsMakesAHeader) {
    const CIniReader reader = reader_of("[config]\na=[b]\nkey=value\n");
    EXPECT_EQ(value_of(reader, "config", "a"), "<missing>");
    EXPECT_EQ(value_of(reader, "config", "key"), "<missing>");
    EXPECT_EQ(value_of(reader, "b]", "key"), "value");
}

TEST(IniReader, BracketsBehindAHashMakeAHeader) {
    const CIniReader reader = reader_of("[config]\nkey=value # see [x]\nlast=1\n");
    EXPECT_EQ(value_of(reader, "config", "key"), "<missing>");
    EXPECT_EQ(value_of(reader, "x]", "last"), "1");
}

TEST(IniReader, OneBracketAloneIsText) {
    EXPECT_EQ(value_of(reader_of("[config]\nkey=a]b\n"), "config", "key"), "a]b");
    EXPECT_EQ(value_of(reader_of("[config]\nkey=a[b\n"), "config", "key"), "a[b");
}

TEST(IniReader, BracketsTheWrongWayRoundStayInsideTheLine) {
    EXPECT_EQ(value_of(reader_of("]abc[def\nkey=value\n"), "def", "key"), "value");
    EXPECT_EQ(value_of(reader_of("][\nkey=value\n"), "", "key"), "value");
}

TEST(IniReader, FirstEqualSignSplits) {
    EXPECT_EQ(value_of(reader_of("[config]\nkey=a=b\n"), "config", "key"), "a=b");
}

TEST(IniReader, LineWithoutEqualSignOrKeyIsSkipped) {
    const CIniReader reader = reader_of("[config]\nword\n = value\n\n   \nlast=1\n");
    EXPECT_EQ(value_of(reader, "config", "word"), "<missing>");
    EXPECT_EQ(value_of(reader, "config", ""), "<missing>");
    EXPECT_EQ(value_of(reader, "config", "last"), "1");
}

TEST(IniReader, EmptyValueIsAValue) {
    const CIniReader reader = reader_of("[config]\nkey=\n");
    EXPECT_EQ(reader.ReadString("config", "key", "default"), "");
    EXPECT_EQ(reader.ReadInt32("config", "key", 5), 0);
    EXPECT_EQ(reader.ReadUInt32("config", "key", 5), 0U);
    EXPECT_EQ(reader.ReadUInt16("config", "key", 5), 0U);
}

TEST(IniReader, NamesAreCaseSensitive) {
    const CIniReader reader = reader_of("[config]\nKey=value\n");
    EXPECT_EQ(value_of(reader, "config", "key"), "<missing>");
    EXPECT_EQ(value_of(reader, "Config", "Key"), "<missing>");
    EXPECT_EQ(value_of(reader, "config", "Key"), "value");
}

TEST(IniReader, LastOfTwoEqualKeysWins) {
    EXPECT_EQ(value_of(reader_of("[config]\nkey=1\nkey=2\n"), "config", "key"), "2");
}

TEST(IniReader, FirstKeyBeforeAnyHeaderIsDropped) {
    const CIniReader reader = reader_of("first=1\nsecond=2\n[config]\nkey=value\n");
    EXPECT_EQ(value_of(reader, "", "first"), "<missing>");
    EXPECT_EQ(value_of(reader, "", "second"), "2");
    EXPECT_EQ(value_of(reader, "config", "key"), "value");
}

TEST(IniReader, RepeatedSectionTakesOverTheKeysOfTheOneBefore) {
    const CIniReader reader = reader_of("[a]\nx=1\n[b]\ny=2\n[a]\nz=3\n");
    EXPECT_EQ(value_of(reader, "a", "x"), "<missing>");
    EXPECT_EQ(value_of(reader, "a", "y"), "2");
    EXPECT_EQ(value_of(reader, "a", "z"), "3");
    EXPECT_EQ(value_of(reader, "a", ""), "");
    EXPECT_EQ(value_of(reader, "b", "y"), "2");
    EXPECT_EQ(value_of(reader, "b", "z"), "<missing>");
}

TEST(IniReader, SectionWithoutKeysExists) {
    const CIniReader reader = reader_of("[empty]\n[config]\nkey=value\n");
    EXPECT_EQ(value_of(reader, "empty", "key"), "<missing>");
    EXPECT_EQ(value_of(reader, "config", "key"), "value");
}

TEST(IniReader, MissingSectionOrKeyGivesTheDefault) {
    const CIniReader reader = reader_of("[config]\nkey=1\n");
    EXPECT_EQ(reader.ReadString("other", "key", "default"), "default");
    EXPECT_EQ(reader.ReadString("config", "other", "default"), "default");
    EXPECT_EQ(reader.ReadInt32("config", "other", -5), -5);
    EXPECT_EQ(reader.ReadUInt32("config", "other", 4000000000U), 4000000000U);
    EXPECT_EQ(reader.ReadUInt16("config", "other", 65535), 65535U);
}

TEST(IniReader, NullNamesAreMissing) {
    const CIniReader reader = reader_of("[config]\nkey=1\n");
    EXPECT_EQ(reader.ReadString(nullptr, "key", "default"), "default");
    EXPECT_EQ(reader.ReadString("config", nullptr, "default"), "default");
    EXPECT_EQ(reader.ReadString("config", "other", nullptr), "");
    EXPECT_EQ(reader.ReadInt32(nullptr, nullptr, 3), 3);
}

TEST(IniReader, LookUpThatFailsLeavesTheValueAlone) {
    const CIniReader reader = reader_of("[config]\nkey=1\n");
    std::string value = "before";
    EXPECT_FALSE(reader.ReadCommon("config", "other", value));
    EXPECT_EQ(value, "before");
    EXPECT_TRUE(reader.ReadCommon("config", "key", value));
    EXPECT_EQ(value, "1");
}

TEST(IniReader, NumberIsWhatTheTextBeginsWith) {
    const CIniReader reader = reader_of("[config]\na=abc\nb=12abc\nc= -7\nd=+8\ne=0x10\nf=1.9\n");
    EXPECT_EQ(reader.ReadInt32("config", "a", 5), 0);
    EXPECT_EQ(reader.ReadInt32("config", "b", 5), 12);
    EXPECT_EQ(reader.ReadInt32("config", "c", 5), -7);
    EXPECT_EQ(reader.ReadInt32("config", "d", 5), 8);
    EXPECT_EQ(reader.ReadInt32("config", "e", 5), 0);
    EXPECT_EQ(reader.ReadInt32("config", "f", 5), 1);
}

TEST(IniReader, SixteenBitValueIsCut) {
    const CIniReader reader = reader_of("[config]\na=70000\nb=-1\nc=65536\n");
    EXPECT_EQ(reader.ReadUInt16("config", "a", 5), 4464U);
    EXPECT_EQ(reader.ReadUInt16("config", "b", 5), 65535U);
    EXPECT_EQ(reader.ReadUInt16("config", "c", 5), 0U);
}

TEST(IniReader, ThirtyTwoBitValueIsCut) {
    const CIniReader reader = reader_of("[config]\na=4294967295\nb=4294967297\nc=-1\nd=202116108\n");
    EXPECT_EQ(reader.ReadUInt32("config", "a", 5), 4294967295U);
    EXPECT_EQ(reader.ReadUInt32("config", "b", 5), 1U);
    EXPECT_EQ(reader.ReadUInt32("config", "c", 5), 4294967295U);
    EXPECT_EQ(reader.ReadUInt32("config", "d", 5), 0x0C0C0C0CU);
    EXPECT_EQ(reader.ReadInt32("config", "a", 5), -1);
}

TEST(IniReader, HeaderLineSetsTheSectionAlone) {
    std::string section;
    std::string key = "k";
    std::string value = "v";
    EXPECT_TRUE(CIniReader::AnalyseLine("[config]", section, key, value));
    EXPECT_EQ(section, "config");
    EXPECT_EQ(key, "k");
    EXPECT_EQ(value, "v");
}

TEST(IniReader, DataLineLeavesTheSectionAlone) {
    std::string section = "s";
    std::string key;
    std::string value;
    EXPECT_TRUE(CIniReader::AnalyseLine("\tkey = a b \r", section, key, value));
    EXPECT_EQ(section, "s");
    EXPECT_EQ(key, "key");
    EXPECT_EQ(value, "a b");
}

TEST(IniReader, TrimStripsBothEndsAlone) {
    std::string text = " \t\r\na b\t \n";
    CIniReader::Trim(text);
    EXPECT_EQ(text, "a b");
    std::string blanks = " \t ";
    CIniReader::Trim(blanks);
    EXPECT_EQ(blanks, "");
    std::string empty;
    CIniReader::Trim(empty);
    EXPECT_EQ(empty, "");
}
