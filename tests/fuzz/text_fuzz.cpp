// Text: trimming, replacing, case, numbers, and the way between narrow and wide.
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "support/os/code_page.h"
#include "support/text.h"
#include "tests/fuzz/fuzz.h"

namespace Tarnlo::fuzz {
namespace {

void CheckNumber(std::int64_t number, const std::wstring& text) {
  const std::wstring written = NumberToWide(number);
  Require(ParseNumber(written) == number, "a number that is written is read");
  Require(ParseNumber(L" \t" + written + L"x" + text) == number, "up to what is no digit");
  const bool digits = !text.empty() && text.find_first_not_of(L"0123456789") == std::wstring::npos;
  if (!digits) return;
  const std::size_t zeros = text.find_first_not_of(L'0');
  const std::wstring plain = zeros == std::wstring::npos ? L"0" : text.substr(zeros);
  using Limits = std::numeric_limits<std::int64_t>;
  const std::int64_t value = ParseNumber(text);
  Require(NumberToWide(value) == plain || value == Limits::max(), "digits are their number");
  Require(value != Limits::max() || plain.size() >= 19, "only large numbers are the largest");
  Require(ParseNumber(L"-" + text) == -value || value == Limits::max(), "and below zero");
}

void CheckForm(const std::wstring& text, const std::wstring& from, const std::wstring& to) {
  const std::wstring trimmed = Trim(text);
  Require(Contains(text, trimmed) && Trim(trimmed) == trimmed, "trimmed is trimmed");
  const std::wstring blanks = TrimBlanks(text);
  Require(!blanks.starts_with(L' ') && !blanks.ends_with(L' '), "no blank is left");
  Require(Contains(text, blanks) && blanks.size() >= trimmed.size(), "and no more is taken");
  const std::wstring lower = ToLower(text);
  Require(lower.size() == text.size() && ToLower(lower) == lower, "lower case stays");
  Require(ToUpper(text).size() == text.size(), "a character for each");
  Require(EqualIgnoringCase(text, lower) && EqualIgnoringCase(lower, text), "case is ignored");
  Require(EqualIgnoringCase(from, to) == EqualIgnoringCase(to, from), "both ways alike");
  std::wstring replaced = text;
  ReplaceAll(replaced, from, to);
  if (!Contains(text, from) || from.empty()) Require(replaced == text, "nothing to replace");
  if (from.size() == 1 && !Contains(to, from))
    Require(!Contains(replaced, from), "all is replaced");
  if (to == from) Require(replaced == text, "the same for the same");
}

void CheckConversion(const std::string& bytes, const std::wstring& text) {
  const std::string narrow = WideToNarrow(text);
  Require(narrow.empty() || narrow.size() == text.size(), "as many bytes as characters, or none");
  const std::wstring wide = NarrowToWide(bytes);
  Require(wide.size() <= bytes.size() && !Contains(wide, std::wstring(1, L'\0')),
          "text ends at its terminator");
  const std::wstring page = os::CodePageToWide(bytes, os::kAnsi);
  Require(page.size() == bytes.size(), "a character a byte");
  Require(os::WideToCodePage(page, os::kAnsi).value_or("") == bytes, "and back");
}

void RunInput(Input input) {
  const auto number = input.Take<std::int64_t>();
  const std::wstring from = Wide(input.Line());
  const std::wstring to = Wide(input.Line());
  const std::string bytes(input.rest());
  const std::wstring text = Wide(bytes);
  CheckNumber(number, text);
  CheckForm(text, from, to);
  CheckConversion(bytes, text);
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
