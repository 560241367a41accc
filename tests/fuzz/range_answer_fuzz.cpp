// Whether an answer's body may be written, and where it says to begin.
#include <limits>
#include <optional>
#include <string>

#include "support/text.h"
#include "tests/fuzz/fuzz.h"
#include "transfer/range_answer.h"
#include "transfer/response_head.h"

namespace Tarnlo::fuzz {
namespace {

void CheckWritten(std::int64_t first, std::int64_t other, const std::wstring& after) {
  const std::wstring value =
      L"bytes " + NumberToWide(first) + L"-" + NumberToWide(other) + L"/" + after;
  Require(ParseContentRangeStart(value) == first, "a range that is written is read");
  const std::wstring head = L"HTTP/1.1 206 Partial Content\r\ncontent-range:" + value;
  const bool plain = !ContainsAny(after, L"\r\n");
  if (!plain) return;
  const std::wstring whole = head + L"\r\n\r\n";
  Require(AcceptRangeAnswer(whole, 0, first) == RangeAnswer::kAccepted, "the range asked for");
  Require(other == first || AcceptRangeAnswer(whole, 0, other) == RangeAnswer::kRefused,
          "another range");
}

void CheckAny(const std::wstring& head, std::int64_t range_start, std::int64_t asked) {
  const RangeAnswer answer = AcceptRangeAnswer(head, range_start, asked);
  const std::int32_t status = ParseStatusCode(head.substr(0, head.find(kHeadEnd) + 4));
  const std::size_t end = head.find(kHeadEnd);
  if (end == std::wstring::npos || status < 200 || status > 299) {
    Require(answer == RangeAnswer::kRefused, "no head, no success: nothing is written");
  } else if (status == 206) {
    Require(answer != RangeAnswer::kStartOver, "a part is not the whole");
  } else {
    Require(answer != RangeAnswer::kAccepted || asked == 0, "the whole begins at byte 0");
    Require(answer != RangeAnswer::kStartOver || range_start == 0, "only the first range");
  }
  if (end == std::wstring::npos) return;
  Require(AcceptRangeAnswer(head.substr(0, end + 4) + L"Content-Range: bytes 7-8/9\r\n\r\n",
                            range_start, asked) == answer,
          "what follows the head does not matter");
  if (answer != RangeAnswer::kAccepted || status != 206) return;
  const std::wstring lying = head.substr(0, end) + L"\r\nContent-Range: bytes " +
                             NumberToWide(asked == 0 ? 1 : asked - 1) + L"-9/*\r\n\r\n";
  Require(AcceptRangeAnswer(lying, range_start, asked) == RangeAnswer::kRefused,
          "one line that says otherwise is enough");
}

void RunInput(Input input) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  const std::int64_t start = input.Take<std::int64_t>() & kMax;
  const std::int64_t received = input.Take<std::int64_t>() & kMax;
  const std::int64_t asked = received <= kMax - start ? start + received : start;
  const std::wstring text = Wide(input.rest());
  const std::optional<std::int64_t> first = ParseContentRangeStart(text);
  Require(first.value_or(0) >= 0, "a first byte is not negative");
  CheckWritten(start, received, text);
  CheckAny(text, start, asked);
  CheckAny(L"HTTP/1.1 206 P\r\n" + text, start, asked);
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
