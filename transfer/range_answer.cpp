#include "transfer/range_answer.h"

#include <algorithm>
#include <string>

#include "support/text.h"
#include "transfer/response_head.h"

namespace Tarnlo {
namespace {

constexpr std::wstring_view kDigits = L"0123456789";

bool IsBlank(wchar_t character) {
  return character == L' ' || character == L'\t';
}

// Cuts the next header off the front: its line and those that continue it, which begin with white
// space. A line ends at its line feed, with or without a carriage return before it, so that no
// header hides behind a bare one.
std::wstring TakeHeader(std::wstring_view& head) {
  std::wstring header;
  do {
    const std::wstring_view line = head.substr(0, head.find(L'\n'));
    header += line.substr(0, line.size() - (line.ends_with(L'\r') ? 1 : 0));
    head.remove_prefix(std::min(line.size() + 1, head.size()));
  } while (!head.empty() && IsBlank(head.front()));
  return header;
}

std::optional<std::wstring> ValueOf(const std::wstring& header, std::wstring_view name) {
  const std::size_t colon = header.find(L':');
  if (colon == std::wstring::npos) return std::nullopt;
  if (ToLower(Trim(header.substr(0, colon))) != name) return std::nullopt;
  return Trim(header.substr(colon + 1));
}

// One that says otherwise is enough, if there are several.
bool EveryContentRangeStartsAt(std::wstring_view head, std::int64_t asked) {
  TakeHeader(head);  // the status line
  while (!head.empty()) {
    const auto value = ValueOf(TakeHeader(head), L"content-range");
    if (value && ParseContentRangeStart(*value).value_or(asked) != asked) return false;
  }
  return true;
}

}  // namespace

RangeAnswer AcceptRangeAnswer(std::wstring_view head, std::int64_t range_start,
                              std::int64_t asked) {
  const std::size_t end = head.find(kHeadEnd);
  if (end == std::wstring_view::npos) return RangeAnswer::kRefused;
  head = head.substr(0, end + kHeadEnd.size());
  const std::int32_t status = ParseStatusCode(head);
  if (status < 200 || status > 299) return RangeAnswer::kRefused;
  if (status == 206) {
    return EveryContentRangeStartsAt(head, asked) ? RangeAnswer::kAccepted : RangeAnswer::kRefused;
  }
  if (asked == 0) return RangeAnswer::kAccepted;
  return range_start == 0 ? RangeAnswer::kStartOver : RangeAnswer::kRefused;
}

std::optional<std::int64_t> ParseContentRangeStart(std::wstring_view value) {
  const std::size_t digits = value.find_first_of(kDigits);
  const std::size_t slash = value.find(L'/');
  if (digits == std::wstring_view::npos || slash < digits) return std::nullopt;
  const std::wstring unit = ToLower(Trim(value.substr(0, digits)));
  if (unit != L"bytes" && unit != L"bytes=" && unit != L"bytes:" && !unit.empty()) {
    return std::nullopt;
  }
  const std::size_t end = value.find_first_not_of(kDigits, digits);
  if (end == std::wstring_view::npos) return std::nullopt;
  const std::size_t dash = value.find_first_not_of(L" \t", end);
  if (dash == std::wstring_view::npos || value[dash] != L'-') return std::nullopt;
  return ParseNumber(value.substr(digits, end - digits));
}

}  // namespace Tarnlo
