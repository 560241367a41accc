#include "transfer/response_head.h"

#include <algorithm>
#include <limits>

#include "support/text.h"

namespace Tarnlo {
namespace {

// Cuts the next word off the front of the text.
std::wstring_view TakeWord(std::wstring_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(L' '), text.size()));
  const std::wstring_view word = text.substr(0, text.find(L' '));
  text.remove_prefix(word.size());
  return word;
}

std::wstring TwoDigits(int number) {
  const std::wstring text = NumberToWide(number);
  return text.size() < 2 ? L"0" + text : text;
}

}  // namespace

std::int32_t ParseStatusCode(std::wstring_view head) {
  const std::size_t blank = head.find(L' ');
  if (blank == std::wstring_view::npos) return 0;
  const std::wstring rest = TrimBlanks(head.substr(blank + 1));
  const std::size_t end = rest.find(L' ');
  // Without a second blank the last character is not part of the number.
  const std::size_t length = end != std::wstring::npos ? end : (rest.empty() ? 0 : rest.size() - 1);
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(ParseNumber(rest.substr(0, length)), Limits::min(), Limits::max()));
}

std::wstring GetHeaderValue(std::wstring_view head, std::wstring_view name) {
  const std::size_t at = ToLower(head).find(ToLower(name));
  if (at == std::wstring::npos) return {};
  const std::wstring_view rest = head.substr(at + name.size());
  return Trim(rest.substr(0, rest.find(L"\r\n")));
}

std::wstring ConvertHttpDate(std::wstring_view text) {
  const std::size_t comma = text.find(L',');
  if (comma != std::wstring_view::npos) text.remove_prefix(comma + 1);
  const std::wstring date = Trim(text);
  std::wstring_view rest = date;
  const std::wstring day(TakeWord(rest));
  const std::wstring_view month = TakeWord(rest);
  const std::wstring year(TakeWord(rest));
  const std::wstring time(TakeWord(rest));
  return year + L"-" + TwoDigits(MonthNumber(month)) + L"-" + day + L" " + time;
}

}  // namespace Tarnlo
