#include "transfer/range_answer.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace Tarnlo {
namespace {

std::wstring Partial(const std::wstring& headers, const std::wstring& rest = L"") {
  return L"HTTP/1.1 206 Partial Content\r\nServer: x\r\n" + headers + L"\r\n" + rest;
}

std::wstring Whole(const std::wstring& rest = L"") {
  return L"HTTP/1.1 200 OK\r\nServer: x\r\n\r\n" + rest;
}

TEST(RangeAnswerTest, PartialContentMustBeginWhereAsked) {
  const std::wstring head = Partial(L"Content-Range: bytes 500-999/1000\r\n");
  EXPECT_EQ(AcceptRangeAnswer(head, 500, 500), RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(head, 400, 500), RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(head, 500, 501), RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(head, 499, 499), RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(head, 0, 0), RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, PartialContentFromByte0IsNotTheWholeFileForAResumedRange) {
  const std::wstring head = Partial(L"Content-Range: bytes 0-999/1000\r\n");
  EXPECT_EQ(AcceptRangeAnswer(head, 0, 0), RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(head, 0, 10), RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, PartialContentThatDoesNotSayIsBelieved) {
  EXPECT_EQ(AcceptRangeAnswer(Partial(L""), 500, 500), RangeAnswer::kAccepted);
  for (const wchar_t* value : {L"bytes */1000", L"pages 3-4/9", L"", L"bytes x-y/z", L"bytes 3"}) {
    const std::wstring head = Partial(L"Content-Range: " + std::wstring(value) + L"\r\n");
    EXPECT_EQ(AcceptRangeAnswer(head, 500, 500), RangeAnswer::kAccepted) << value;
  }
}

TEST(RangeAnswerTest, AShorterRangeIsAsGoodAsALongerOne) {
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"Content-Range: bytes 500-500/1000\r\n"), 500, 500),
            RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"Content-Range: bytes 500-99999/*\r\n"), 500, 500),
            RangeAnswer::kAccepted);
}

TEST(RangeAnswerTest, EveryContentRangeMustAgree) {
  const std::wstring good = L"Content-Range: bytes 500-999/1000\r\n";
  const std::wstring bad = L"Content-Range: bytes 0-999/1000\r\n";
  EXPECT_EQ(AcceptRangeAnswer(Partial(good + good), 500, 500), RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(Partial(good + bad), 500, 500), RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(Partial(bad + good), 500, 500), RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, AContentRangeMayGoOnInTheNextLine) {
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"Content-Range:\r\n bytes 500-9/10\r\n"), 500, 500),
            RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"Content-Range: bytes\r\n\t500-9/10\r\n"), 7, 7),
            RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, HeaderBehindABareLineFeedIsRead) {
  for (const wchar_t* before : {L"X: y\n", L"X: y\n\n", L"X: y\r\r\n", L"\n"}) {
    const std::wstring head =
        Partial(before + std::wstring(L"Content-Range: bytes 1-2/3\nY: z\r\n"));
    EXPECT_EQ(AcceptRangeAnswer(head, 500, 500), RangeAnswer::kRefused) << before;
    EXPECT_EQ(AcceptRangeAnswer(head, 1, 1), RangeAnswer::kAccepted) << before;
  }
  EXPECT_EQ(AcceptRangeAnswer(L"HTTP/1.1 206 OK\nContent-Range: bytes 1-2/3\r\n\r\n", 500, 500),
            RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"Content-Range: bytes\n\t500-9/10\r\n"), 7, 7),
            RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, NamesMatchWholeAndInAnyCase) {
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"CONTENT-RANGE : bytes 1-2/3\r\n"), 500, 500),
            RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"X-Content-Range: bytes 1-2/3\r\n"), 500, 500),
            RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"X: content-range: bytes 1-2/3\r\n"), 500, 500),
            RangeAnswer::kAccepted);
}

TEST(RangeAnswerTest, WholeFileIsTakenFromByte0Alone) {
  EXPECT_EQ(AcceptRangeAnswer(Whole(), 0, 0), RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(Whole(), 0, 1), RangeAnswer::kStartOver);
  EXPECT_EQ(AcceptRangeAnswer(Whole(), 1, 1), RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(Whole(), 500, 600), RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, ReadsNothingBehindTheEmptyLine) {
  const std::wstring body = L"Content-Range: bytes 0-9/10\r\n";
  EXPECT_EQ(AcceptRangeAnswer(Partial(L"", body), 500, 500), RangeAnswer::kAccepted);
  EXPECT_EQ(AcceptRangeAnswer(L"HTTP/1.1\r\n\r\n 206 x", 500, 500), RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, RefusesWhatIsNoSuccessAndWhatDoesNotEnd) {
  EXPECT_EQ(AcceptRangeAnswer(L"HTTP/1.1 404 Not Found\r\n\r\n", 0, 0), RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(L"HTTP/1.1 302 Found\r\n\r\n", 0, 0), RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(L"HTTP/1.1 206 P\r\nContent-Range: bytes 0-", 0, 0),
            RangeAnswer::kRefused);
  EXPECT_EQ(AcceptRangeAnswer(L"", 0, 0), RangeAnswer::kRefused);
}

TEST(RangeAnswerTest, ReadsAStatusLineWithoutText) {
  EXPECT_EQ(AcceptRangeAnswer(L"HTTP/1.1 206\r\n\r\n", 5, 5), RangeAnswer::kAccepted);
}

TEST(ContentRangeTest, ReadsSeveralSpellings) {
  EXPECT_EQ(ParseContentRangeStart(L"bytes 5-9/10"), 5);
  EXPECT_EQ(ParseContentRangeStart(L"bytes=5-9/10"), 5);
  EXPECT_EQ(ParseContentRangeStart(L"bytes: 5-9/10"), 5);
  EXPECT_EQ(ParseContentRangeStart(L"Bytes 5-9"), 5);
  EXPECT_EQ(ParseContentRangeStart(L"5-9/*"), 5);
}

TEST(ContentRangeTest, DoesNotOverflow) {
  EXPECT_EQ(ParseContentRangeStart(L"bytes 99999999999999999999-/"),
            std::numeric_limits<std::int64_t>::max());
}

TEST(ContentRangeTest, IsNothingWhenItCannotBeRead) {
  EXPECT_EQ(ParseContentRangeStart(L"bytes */10"), std::nullopt);
  EXPECT_EQ(ParseContentRangeStart(L""), std::nullopt);
  EXPECT_EQ(ParseContentRangeStart(L"bytes -5-9/10"), std::nullopt);
  EXPECT_EQ(ParseContentRangeStart(L"bytes 5"), std::nullopt);
  EXPECT_EQ(ParseContentRangeStart(L"bytes 5 9"), std::nullopt);
}

}  // namespace
}  // namespace Tarnlo
