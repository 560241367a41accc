#include "support/text.h"

#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/os/code_page.h"
#include "tests/support/meeting.h"

namespace Tarnlo {
namespace {

constexpr unsigned kWestern = 1252;
constexpr unsigned kJapanese = 932;
constexpr unsigned kNoCodePage = 12345;

std::string CurrentLocale() {
  return std::setlocale(LC_ALL, nullptr);
}

TEST(NarrowToWideTest, EmptyTextIsEmptyAndLeavesTheLocale) {
  const std::string before = CurrentLocale();
  EXPECT_EQ(NarrowToWide(""), L"");
  EXPECT_EQ(CurrentLocale(), before);
}

TEST(NarrowToWideTest, PlainTextIsWidenedAndLeavesTheLocale) {
  const std::string before = CurrentLocale();
  EXPECT_EQ(NarrowToWide("C:\\dir\\file.bin"), L"C:\\dir\\file.bin");
  EXPECT_EQ(CurrentLocale(), before);
}

TEST(NarrowToWideTest, LocaleThatTheHostHadSetIsRestored) {
  const std::string before = CurrentLocale();
  ASSERT_NE(std::setlocale(LC_NUMERIC, ""), nullptr);
  const std::string hosts = CurrentLocale();
  EXPECT_EQ(NarrowToWide("x"), L"x");
  EXPECT_EQ(CurrentLocale(), hosts);
  std::setlocale(LC_ALL, before.c_str());
}

TEST(NarrowToWideTest, TextEndsAtItsFirstTerminator) {
  EXPECT_EQ(NarrowToWide(std::string("ab\0cd", 5)), L"ab");
}

TEST(NarrowToWideTest, LongTextIsKeptWhole) {
  EXPECT_EQ(NarrowToWide(std::string(100'000, 'x')), std::wstring(100'000, L'x'));
}

// How many of 1,000 conversions did not give what is expected.
int WrongConversions(const std::string& text, const std::wstring& expected) {
  int wrong = 0;
  for (int round = 0; round < 1000; ++round) wrong += NarrowToWide(text) != expected;
  return wrong;
}

TEST(NarrowToWideTest, ManyThreadsAtOnceKeepTheLocaleAndTheText) {
  const std::string before = CurrentLocale();
  // The byte is another character in the C locale, to which each conversion returns. What it is
  // when nobody else converts: Wine knows the default locale on the first thread only.
  const std::string text = "price \x80";
  const std::wstring expected_here = NarrowToWide(text);
  std::wstring expected_there;
  std::thread([&] { expected_there = NarrowToWide(text); }).join();
  std::array<int, 8> wrong{};
  test::Meeting together(static_cast<int>(wrong.size()) + 1);
  {
    std::vector<std::jthread> threads;
    for (int& mine : wrong) {
      threads.emplace_back([&] {
        together.Attend();
        mine = WrongConversions(text, expected_there);
      });
    }
    together.Attend();
    EXPECT_EQ(WrongConversions(text, expected_here), 0);
  }
  EXPECT_EQ(wrong, (std::array<int, 8>{}));
  EXPECT_EQ(CurrentLocale(), before);
}

TEST(WideToNarrowTest, ResultHasAsManyBytesAsTheTextHasCharacters) {
  EXPECT_EQ(WideToNarrow(L""), "");
  EXPECT_EQ(WideToNarrow(L"a"), "a");
  EXPECT_EQ(WideToNarrow(L"C:\\dir\\file.bin"), "C:\\dir\\file.bin");
  EXPECT_EQ(WideToNarrow(std::wstring(5000, L'x')), std::string(5000, 'x'));
  EXPECT_EQ(WideToNarrow(L"caf\u00E9", kWestern), "caf\xE9");
}

TEST(WideToNarrowTest, CharacterThatTheCodePageLacksIsReplaced) {
  EXPECT_EQ(WideToNarrow(L"a\u65E5b", kWestern), "a?b");
}

TEST(WideToNarrowTest, TextThatNeedsMoreBytesThanCharactersIsEmpty) {
  EXPECT_EQ(WideToNarrow(L"\u65E5\u672C", kJapanese), "");
  EXPECT_EQ(WideToNarrow(L"abcdefgh\u65E5", kJapanese), "");
  EXPECT_EQ(WideToNarrow(L"caf\u00E9", os::kUtf8), "");
}

TEST(WideToNarrowTest, OneByteCharactersOfADoubleByteCodePageAreConverted) {
  EXPECT_EQ(WideToNarrow(L"abc", kJapanese), "abc");
  EXPECT_EQ(WideToNarrow(L"\uFF71\uFF72", kJapanese), "\xB1\xB2");
}

TEST(CodePageTest, WideTextIsConvertedWhenItFitsTheGivenBytes) {
  EXPECT_EQ(os::WideToCodePage(L"\u65E5\u672C", kJapanese), "\x93\xFA\x96\x7B");
  EXPECT_EQ(os::WideToCodePage(L"\u65E5\u672C", kJapanese, 4), "\x93\xFA\x96\x7B");
  EXPECT_EQ(os::WideToCodePage(L"\u65E5\u672C", kJapanese, 3), std::nullopt);
  EXPECT_EQ(os::WideToCodePage(L"a.example", os::kThreadAnsi), "a.example");
}

TEST(CodePageTest, EmptyTextIsAFailure) {
  EXPECT_EQ(os::WideToCodePage(L"", os::kAnsi), std::nullopt);
  EXPECT_EQ(os::CodePageToWide("", os::kAnsi), L"");
}

TEST(CodePageTest, UnknownCodePageConvertsNothing) {
  EXPECT_EQ(os::WideToCodePage(L"a", kNoCodePage), std::nullopt);
  EXPECT_EQ(os::CodePageToWide("a", kNoCodePage), L"");
}

TEST(CodePageTest, BytesAreWidened) {
  EXPECT_EQ(os::CodePageToWide("caf\xC3\xA9", os::kUtf8), L"caf\u00E9");
  EXPECT_EQ(os::CodePageToWide("caf\xE9", kWestern), L"caf\u00E9");
  EXPECT_EQ(os::CodePageToWide("\x93\xFA\x96\x7B", kJapanese), L"\u65E5\u672C");
}

TEST(NumberToWideTest, NumbersAreDecimal) {
  EXPECT_EQ(NumberToWide(0), L"0");
  EXPECT_EQ(NumberToWide(-1), L"-1");
  EXPECT_EQ(NumberToWide(2147483647), L"2147483647");
  EXPECT_EQ(NumberToWide(-2147483648LL), L"-2147483648");
  EXPECT_EQ(NumberToWide(std::numeric_limits<std::int64_t>::min()), L"-9223372036854775808");
}

TEST(TrimTest, WhiteSpaceGoesAtBothEndsOnly) {
  EXPECT_EQ(Trim(L""), L"");
  EXPECT_EQ(Trim(L" \t\r\n\v\f"), L"");
  EXPECT_EQ(Trim(L"\t a \r\n b \n"), L"a \r\n b");
  EXPECT_EQ(Trim(L"a"), L"a");
}

TEST(TrimTest, WhiteSpaceIsThatOfWindowsInEveryLocale) {
  const std::wstring spaces =
      L"\t\n\v\f\r \u00A0\u1680\u2000\u2005\u200A\u2028\u2029\u202F\u205F\u3000";
  EXPECT_EQ(Trim(spaces + L"a" + spaces), L"a");
  for (const wchar_t c : std::wstring(L"\b\x0E\u0085\u180E\u1FFF\u200B\uFEFF")) {
    EXPECT_EQ(Trim(std::wstring(1, c)), std::wstring(1, c)) << static_cast<unsigned>(c);
  }
}

TEST(NarrowHostNameTest, NameIsOfTheThreadsCodePage) {
  EXPECT_EQ(NarrowHostName(L"my-host"), "my-host");
  EXPECT_EQ(NarrowHostName(L"h\u00E4"), "h\xE4");
}

TEST(NarrowHostNameTest, EmptyNameAndNameThatIsNotConvertedAreNothing) {
  EXPECT_EQ(NarrowHostName(L""), std::nullopt);
  EXPECT_EQ(NarrowHostName(L"host", kNoCodePage), std::nullopt);
}

TEST(NarrowHostNameTest, TwoBytesForEachCharacterAndOneMoreAreTheBound) {
  EXPECT_EQ(NarrowHostName(L"\u3042\u3042", kJapanese), "\x82\xA0\x82\xA0");
  EXPECT_EQ(NarrowHostName(L"\u3042", os::kUtf8), "\xE3\x81\x82");
  EXPECT_EQ(NarrowHostName(L"\u3042\u3042", os::kUtf8), std::nullopt);
}

TEST(TrimBlanksTest, BlanksGoAndOtherWhiteSpaceStays) {
  EXPECT_EQ(TrimBlanks(L""), L"");
  EXPECT_EQ(TrimBlanks(L"   "), L"");
  EXPECT_EQ(TrimBlanks(L"  a b  "), L"a b");
  EXPECT_EQ(TrimBlanks(L" \ta\t "), L"\ta\t");
}

std::wstring Replaced(std::wstring text, std::wstring_view from, std::wstring_view to) {
  ReplaceAll(text, from, to);
  return text;
}

TEST(ReplaceAllTest, EveryOccurrenceIsReplacedOnce) {
  EXPECT_EQ(Replaced(L"a\\b\\c", L"\\", L"/"), L"a/b/c");
  EXPECT_EQ(Replaced(L"aaa", L"a", L"aa"), L"aaaaaa");
  EXPECT_EQ(Replaced(L"aaaa", L"aa", L""), L"");
  EXPECT_EQ(Replaced(L"abab", L"aba", L"x"), L"xb");
  EXPECT_EQ(Replaced(L"abc", L"x", L"y"), L"abc");
  EXPECT_EQ(Replaced(L"", L"x", L"y"), L"");
}

TEST(ReplaceAllTest, NothingToLookForChangesNothing) {
  EXPECT_EQ(Replaced(L"abc", L"", L"y"), L"abc");
}

TEST(CaseTest, LettersChangeAndTheRestStays) {
  EXPECT_EQ(ToLower(L"AbC-1_Z"), L"abc-1_z");
  EXPECT_EQ(ToUpper(L"aBc-1_z"), L"ABC-1_Z");
  EXPECT_EQ(ToLower(L"@AZ[`az{"), L"@az[`az{");
  EXPECT_EQ(ToUpper(L"@AZ[`az{"), L"@AZ[`AZ{");
}

// In the system's default locale, which a host may set, other letters have a case, too.
TEST(CaseTest, LocaleOfTheHostChangesNothing) {
  const std::string before = CurrentLocale();
  ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
  EXPECT_EQ(ToLower(L"\u00C4B"), L"\u00C4b");
  EXPECT_EQ(ToUpper(L"\u00E4b"), L"\u00E4B");
  EXPECT_FALSE(EqualIgnoringCase(L"\u00C4", L"\u00E4"));
  std::setlocale(LC_ALL, before.c_str());
}

TEST(EqualIgnoringCaseTest, CaseDoesNotCountAndLengthDoes) {
  EXPECT_TRUE(EqualIgnoringCase(L"Content-Length", L"content-LENGTH"));
  EXPECT_TRUE(EqualIgnoringCase(L"", L""));
  EXPECT_FALSE(EqualIgnoringCase(L"ab", L"abc"));
  EXPECT_FALSE(EqualIgnoringCase(L"abc", L"ab"));
  EXPECT_FALSE(EqualIgnoringCase(L"ab", L"ax"));
}

struct NumberCase {
  std::wstring text;
  std::int64_t number;
};

TEST(ParseNumberTest, ReadsUpToTheFirstOtherCharacter) {
  const std::vector<NumberCase> cases = {
      {L"", 0},
      {L"abc", 0},
      {L"-", 0},
      {L"+", 0},
      {L"--1", 0},
      {L"0", 0},
      {L"007", 7},
      {L"12abc", 12},
      {L" \t\r\n 34", 34},
      {L"-56", -56},
      {L"+78", 78},
      {L"1 2", 1},
      {L"1-2", 1},
      {L"0x10", 0},
      {L"- 1", 0},
      {L"100-199/5", 100},
  };
  for (const NumberCase& item : cases)
    EXPECT_EQ(ParseNumber(item.text), item.number) << item.number;
}

TEST(ParseNumberTest, StopsAtTheEndsOfTheRange) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  const std::vector<NumberCase> cases = {
      {L"9223372036854775806", kMax - 1},  {L"9223372036854775807", kMax},
      {L"9223372036854775808", kMax},      {L"9223372036854775809", kMax},
      {L"9223372036854775810", kMax},      {L"99999999999999999999999", kMax},
      {L"-9223372036854775807", kMin + 1}, {L"-9223372036854775808", kMin},
      {L"-9223372036854775809", kMin},     {L"-99999999999999999999999", kMin},
  };
  for (const NumberCase& item : cases)
    EXPECT_EQ(ParseNumber(item.text), item.number) << item.number;
}

TEST(MonthNumberTest, EveryMonthInAnyCase) {
  const std::vector<std::wstring> names = {L"Jan", L"feb", L"MAR", L"aPr", L"May", L"Jun",
                                           L"jul", L"Aug", L"sEP", L"Oct", L"Nov", L"dec"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(MonthNumber(names[i]), static_cast<int>(i) + 1);
  }
}

TEST(MonthNumberTest, AnythingElseIsNone) {
  for (const wchar_t* name :
       {L"", L"J", L"Ja", L"Janu", L"January", L"xyz", L" jan", L"m\u00E4r"}) {
    EXPECT_EQ(MonthNumber(name), -1);
  }
}

}  // namespace
}  // namespace Tarnlo
