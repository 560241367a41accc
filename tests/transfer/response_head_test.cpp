#include "transfer/response_head.h"

#include <gtest/gtest.h>

namespace Tarnlo {
namespace {

TEST(ParseStatusCodeTest, ReadsTheNumberBehindTheFirstBlank) {
  EXPECT_EQ(ParseStatusCode(L"HTTP/1.1 206 Partial Content\r\n\r\n"), 206);
  EXPECT_EQ(ParseStatusCode(L"http/1.0   404  Not Found\r\n\r\n"), 404);
  EXPECT_EQ(ParseStatusCode(L"HTTP/1.1 200\r\nDate: x y\r\n\r\n"), 200);
}

TEST(ParseStatusCodeTest, Is0WhenThereIsNone) {
  EXPECT_EQ(ParseStatusCode(L""), 0);
  EXPECT_EQ(ParseStatusCode(L"HTTP/1.1\r\n\r\n"), 0);
  EXPECT_EQ(ParseStatusCode(L" "), 0);
  EXPECT_EQ(ParseStatusCode(L"HTTP/1.1 OK \r\n\r\n"), 0);
}

TEST(ParseStatusCodeTest, LosesTheLastCharacterWhenNoBlankFollows) {
  EXPECT_EQ(ParseStatusCode(L"HTTP/1.1 206"), 20);
  EXPECT_EQ(ParseStatusCode(L"HTTP/1.1 206\r\n\r\n"), 206);
}

TEST(ParseStatusCodeTest, DoesNotOverflow) {
  EXPECT_EQ(ParseStatusCode(L"X 99999999999999999999 Y"), 2147483647);
  EXPECT_EQ(ParseStatusCode(L"X -99999999999999999999 Y"), -2147483647 - 1);
}

TEST(GetHeaderValueTest, MatchesNamesInAnyCaseAndKeepsTheValuesCase) {
  EXPECT_EQ(GetHeaderValue(L"A: b\r\nLOCATION:  /Path/X \r\nC: d\r\n\r\n", L"location:"),
            L"/Path/X");
  EXPECT_EQ(GetHeaderValue(L"A: b\r\nlocation: x\r\n\r\n", L"LocaTion:"), L"x");
}

TEST(GetHeaderValueTest, IsEmptyWhenAbsent) {
  EXPECT_EQ(GetHeaderValue(L"A: b\r\n\r\n", L"location:"), L"");
  EXPECT_EQ(GetHeaderValue(L"", L"location:"), L"");
}

TEST(GetHeaderValueTest, FindsANameInsideAnotherHeader) {
  EXPECT_EQ(GetHeaderValue(L"Content-Location: /other\r\nLocation: /own\r\n\r\n", L"location:"),
            L"/other");
  EXPECT_EQ(GetHeaderValue(L"X: content-length: 7\r\nContent-Length: 9\r\n", L"content-length:"),
            L"7");
}

TEST(GetHeaderValueTest, ReadsToTheEndWhenTheLineDoesNotEnd) {
  EXPECT_EQ(GetHeaderValue(L"Location: /x", L"location:"), L"/x");
  EXPECT_EQ(GetHeaderValue(L"Location:", L"location:"), L"");
}

TEST(GetHeaderValueTest, IgnoresTheCaseOfAsciiLettersOnly) {
  // The Kelvin sign's lower case is "k", but it is no letter from A to Z.
  EXPECT_EQ(GetHeaderValue(L"\x212A: a\r\nK: b\r\n", L"k:"), L"b");
}

TEST(ConvertHttpDateTest, TurnsTheDateAround) {
  EXPECT_EQ(ConvertHttpDate(L"Sun, 06 Nov 1994 08:49:37 GMT"), L"1994-11-06 08:49:37");
  EXPECT_EQ(ConvertHttpDate(L"Sun,06 jAN 1994 08:49:37"), L"1994-01-06 08:49:37");
}

TEST(ConvertHttpDateTest, KeepsItsShapeWhateverItIsGiven) {
  EXPECT_EQ(ConvertHttpDate(L"Sun, 06 Xyz 1994 08:49:37 GMT"), L"1994--1-06 08:49:37");
  EXPECT_EQ(ConvertHttpDate(L""), L"--1- ");
  EXPECT_EQ(ConvertHttpDate(L","), L"--1- ");
  EXPECT_EQ(ConvertHttpDate(L"06 Nov 1994 08:49:37 GMT"), L"1994-11-06 08:49:37");
}

}  // namespace
}  // namespace Tarnlo
