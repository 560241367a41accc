// The head of an answer: its status and the values in it.
#include <string>
#include <string_view>

#include "support/text.h"
#include "tests/fuzz/fuzz.h"
#include "transfer/response_head.h"

namespace Tarnlo::fuzz {
namespace {

void CheckStatus(const std::wstring& head, std::uint16_t number) {
  const std::int32_t status = ParseStatusCode(head);
  Require(head.find(L' ') != std::wstring::npos || status == 0, "no blank, no status");
  const std::wstring line = L"HTTP/1.1 " + NumberToWide(number);
  Require(ParseStatusCode(line + L" x" + head) == number, "a status is read");
  Require(ParseStatusCode(line + L"\r\n\r\n") == number, "a status needs no reason");
}

void CheckValue(const std::wstring& head, const std::wstring& name) {
  const std::wstring value = GetHeaderValue(head, name);
  Require(!Contains(value, L"\r\n"), "a value ends with its line");
  Require(Trim(value) == value, "a value is trimmed");
  Require(Contains(head, value), "a value is as written");
  Require(GetHeaderValue(ToLower(head), name) == ToLower(value),
          "the case of letters does not matter");
  Require(value.empty() || Contains(ToLower(head), ToLower(name)), "a value has a name");
}

// The first of a name counts, whatever follows.
void CheckWritten(const std::wstring& head, const std::wstring& value) {
  const std::wstring line = value.substr(0, value.find(L"\r\n"));
  const std::wstring written = L"HTTP/1.1 200 OK\r\nLOCATION:" + line + L"\r\n" + head;
  Require(GetHeaderValue(written, L"location:") == Trim(line.substr(0, line.find(L"\r\n"))) ||
              line.ends_with(L'\r'),
          "a value that is written is read");
}

void RunInput(Input input) {
  const auto number = input.Take<std::uint16_t>();
  const std::wstring name = Wide(input.Line());
  const std::wstring head = Wide(input.rest());
  CheckStatus(head, number);
  for (const std::wstring_view each :
       {L"location:", L"content-type:", L"last-modified:", L"content-length:"}) {
    CheckValue(head, std::wstring(each));
  }
  CheckValue(head, name);
  CheckWritten(head, name);
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
