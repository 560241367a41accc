// The text of a request.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Tarnlo {

struct RequestFields {
  std::wstring object;
  std::wstring credentials;  // encoded; empty: no such header
  std::wstring referer;      // its header is sent even when it is empty
  std::wstring user_agent;
  std::wstring host;
  std::uint16_t port = 80;
  std::wstring cookie;  // empty: no such header
};

inline constexpr std::wstring_view kProbeRangeLine = L"Range: bytes=0-1\r\n";

// What is missing of the range: from behind the received bytes to its last byte, or to the end of
// the file when the length is 0 or less.
std::wstring MakeRangeLine(std::int64_t start, std::int64_t length, std::int64_t received);

// "Authorization: Basic " and the encoded credentials, without a line end.
std::wstring MakeBasicAuthHeader(const std::wstring& encoded);

// The whole head, its empty line included.
std::wstring BuildRequest(const RequestFields& fields, std::wstring_view range_line);

}  // namespace Tarnlo
