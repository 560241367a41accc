#include "support/text.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <vector>

#include "support/os/code_page.h"
#include "support/os/lock.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kLongestHost = 0x3FFFFFFE;  // characters

constinit os::Lock g_locale_lock;

// NOLINTBEGIN(concurrency-mt-unsafe): calls exclude each other

// The process's locale, switched to the system's default for as long as it lives.
class SystemLocale {
 public:
  SystemLocale() : m_guard(g_locale_lock) {
    // Copied: the next call reuses the text.
    if (const char* const name = std::setlocale(LC_ALL, nullptr)) m_former = name;
    std::setlocale(LC_ALL, "");
  }
  ~SystemLocale() {
    if (!m_former.empty()) std::setlocale(LC_ALL, m_former.c_str());
  }
  SystemLocale(const SystemLocale&) = delete;
  SystemLocale& operator=(const SystemLocale&) = delete;

 private:
  os::LockGuard m_guard;
  std::string m_former;
};

// NOLINTEND(concurrency-mt-unsafe)

wchar_t LowerOf(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}
wchar_t UpperOf(wchar_t c) {
  return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}
// The characters that iswspace accepts on Windows, whatever the locale.
bool IsSpace(wchar_t c) {
  constexpr std::wstring_view kOthers = L" \u00A0\u1680\u2028\u2029\u202F\u205F\u3000";
  return (c >= L'\t' && c <= L'\r') || (c >= L'\u2000' && c <= L'\u200A') ||
         kOthers.find(c) != std::wstring_view::npos;
}

template <typename Change>
std::wstring Changed(std::wstring_view text, Change change) {
  std::wstring result(text);
  std::transform(result.begin(), result.end(), result.begin(), change);
  return result;
}

template <typename Drop>
std::wstring Trimmed(std::wstring_view text, Drop drop) {
  while (!text.empty() && drop(text.front())) text.remove_prefix(1);
  while (!text.empty() && drop(text.back())) text.remove_suffix(1);
  return std::wstring(text);
}

}  // namespace

std::wstring NarrowToWide(const std::string& text) {
  std::vector<wchar_t> buffer(text.size() + 1, L'\0');
  {
    const SystemLocale locale;
    // A sequence that is no text ends the conversion; what came before it is the result.
    static_cast<void>(std::mbstowcs(buffer.data(), text.c_str(), buffer.size()));
  }
  return {buffer.begin(), std::find(buffer.begin(), buffer.end(), L'\0')};
}

std::string WideToNarrow(std::wstring_view text) {
  return WideToNarrow(text, os::kAnsi);
}

std::string WideToNarrow(std::wstring_view text, unsigned code_page) {
  std::string bytes = os::WideToCodePage(text, code_page, text.size()).value_or("");
  // The result has as many bytes as the text has characters: blanks fill up what is missing.
  if (!bytes.empty()) bytes.resize(text.size(), ' ');
  return bytes;
}

std::optional<std::string> NarrowHostName(std::wstring_view host) {
  return NarrowHostName(host, os::kThreadAnsi);
}

std::optional<std::string> NarrowHostName(std::wstring_view host, unsigned code_page) {
  if (host.size() > kLongestHost) return std::nullopt;
  // Two bytes for each character and for the terminator, which takes one of them.
  return os::WideToCodePage(host, code_page, 2 * host.size() + 1);
}

std::wstring NumberToWide(std::int64_t number) {
  const std::string digits = std::to_string(number);
  return {digits.begin(), digits.end()};
}

std::wstring Trim(std::wstring_view text) {
  return Trimmed(text, IsSpace);
}

std::wstring TrimBlanks(std::wstring_view text) {
  return Trimmed(text, [](wchar_t c) { return c == L' '; });
}

void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to) {
  if (from.empty()) return;
  std::wstring result;
  std::size_t begin = 0;
  for (std::size_t at = text.find(from); at != std::wstring::npos; at = text.find(from, begin)) {
    result.append(text, begin, at - begin).append(to);
    begin = at + from.size();
  }
  result.append(text, begin);
  text = std::move(result);
}

std::wstring ToLower(std::wstring_view text) {
  return Changed(text, LowerOf);
}
std::wstring ToUpper(std::wstring_view text) {
  return Changed(text, UpperOf);
}

bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](wchar_t x, wchar_t y) { return LowerOf(x) == LowerOf(y); });
}

std::int64_t ParseNumber(std::wstring_view text) {
  using Limits = std::numeric_limits<std::int64_t>;
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  const bool negative = !text.empty() && text.front() == L'-';
  if (negative || (!text.empty() && text.front() == L'+')) text.remove_prefix(1);
  // Summed up below zero, where the range is larger by one.
  std::int64_t number = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') break;
    const std::int64_t digit = c - L'0';
    if (number < (Limits::min() + digit) / 10) return negative ? Limits::min() : Limits::max();
    number = number * 10 - digit;
  }
  if (negative) return number;
  return number == Limits::min() ? Limits::max() : -number;
}

int MonthNumber(std::wstring_view name) {
  static constexpr std::array<std::wstring_view, 12> kMonths = {L"jan", L"feb", L"mar", L"apr",
                                                                L"may", L"jun", L"jul", L"aug",
                                                                L"sep", L"oct", L"nov", L"dec"};
  const std::wstring lower = ToLower(name);
  const auto found = std::find(kMonths.begin(), kMonths.end(), lower);
  return found == kMonths.end() ? -1 : static_cast<int>(found - kMonths.begin()) + 1;
}

}  // namespace Tarnlo
