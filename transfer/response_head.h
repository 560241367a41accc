// Reading the head of a response.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Tarnlo {

inline constexpr std::wstring_view kHeadEnd = L"\r\n\r\n";

// 0 when there is none.
std::int32_t ParseStatusCode(std::wstring_view head);

// The rest of the line behind the first occurrence of `name` ("location:", colon included), in the
// case as written. Letters A to Z of the name match in either case. The name is found anywhere in
// the text, inside another header's name or value too.
std::wstring GetHeaderValue(std::wstring_view head, std::wstring_view name);

// "Sun, 06 Nov 1994 08:49:37 GMT" gives "1994-11-06 08:49:37".
std::wstring ConvertHttpDate(std::wstring_view text);

}  // namespace Tarnlo
