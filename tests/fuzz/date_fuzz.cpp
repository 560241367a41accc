// The date of an answer.
#include <algorithm>
#include <array>
#include <string>

#include "support/text.h"
#include "tests/fuzz/fuzz.h"
#include "transfer/response_head.h"

namespace Tarnlo::fuzz {
namespace {

std::wstring Digits(unsigned number, std::size_t count) {
  std::wstring text = NumberToWide(number);
  if (text.size() < count) text.insert(0, count - text.size(), L'0');
  return text;
}

// Every date that the form can say is read.
void CheckWritten(Input& input) {
  static const std::array<std::wstring, 12> kMonths = {L"Jan", L"Feb", L"Mar", L"Apr",
                                                       L"May", L"Jun", L"Jul", L"Aug",
                                                       L"Sep", L"Oct", L"Nov", L"Dec"};
  const unsigned month = input.Byte() % 12U;
  const std::wstring day = Digits(input.Byte() % 32U, 2);
  const std::wstring year = Digits(input.Take<std::uint16_t>() % 10000U, 4);
  const std::wstring time = Digits(input.Byte() % 24U, 2) + L":" + Digits(input.Byte() % 60U, 2) +
                            L":" + Digits(input.Byte() % 61U, 2);
  const std::wstring date = day + L" " + kMonths[month] + L" " + year + L" " + time + L" GMT";
  const std::wstring expected = year + L"-" + Digits(month + 1, 2) + L"-" + day + L" " + time;
  Require(ConvertHttpDate(L"Sun, " + date) == expected, "a date is read");
  Require(ConvertHttpDate(date) == expected, "the day of the week may be missing");
  Require(ConvertHttpDate(L"Sun, " + ToUpper(date) + L" ") == expected, "in any case");
}

void CheckAny(const std::wstring& text) {
  const std::wstring date = ConvertHttpDate(text);
  Require(std::count(date.begin(), date.end(), L' ') == 1, "one blank between date and time");
  Require(std::count(date.begin(), date.end(), L'-') >= 2, "three parts of a date");
  Require(date.size() <= text.size() + 5, "a date has no more than was said");
  const int month = MonthNumber(text);
  Require(month == -1 || (month >= 1 && month <= 12 && text.size() == 3), "a month is a month");
}

void RunInput(Input input) {
  CheckWritten(input);
  CheckAny(Wide(input.rest()));
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
