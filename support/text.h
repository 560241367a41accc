// Text: between narrow and wide, trimming, replacing, case, numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tarnlo {

// Converts with the system's default locale, up to the first terminator. The process's locale is
// switched meanwhile and restored on every path. Threads: calls exclude each other; the host's own
// locale-dependent code on other threads sees the switch.
std::wstring NarrowToWide(const std::string& text);

// In the system's code page. Text that needs more bytes than it has characters gives an empty
// string: the result never is longer than the text.
std::string WideToNarrow(std::wstring_view text);
std::string WideToNarrow(std::wstring_view text, unsigned code_page);

// A host's name as the name resolver takes it. Nothing, which it takes for this machine, when the
// name is empty, cannot be converted or needs more than two bytes a character.
std::optional<std::string> NarrowHostName(std::wstring_view host);
std::optional<std::string> NarrowHostName(std::wstring_view host, unsigned code_page);

// Decimal.
std::wstring NumberToWide(std::int64_t number);

// What follows is the same in every locale, since the conversion above and the host switch it.

std::wstring Trim(std::wstring_view text);        // white space as iswspace has it, both ends
std::wstring TrimBlanks(std::wstring_view text);  // " " alone, both ends
void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to);
std::wstring ToLower(std::wstring_view text);  // A to Z alone
std::wstring ToUpper(std::wstring_view text);  // a to z alone
bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b);

// Reads like _wtoi64: blanks, a sign, digits up to the first other character; 0 when there are
// none. Beyond the range it gives the nearest value there is.
std::int64_t ParseNumber(std::wstring_view text);

// 1 to 12 for a three-letter English month name in any case, else -1.
int MonthNumber(std::wstring_view name);

}  // namespace Tarnlo
