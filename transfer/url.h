// Where a file is: host, port and path of a URL. Every URL is fetched over plain HTTP.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Tarnlo {

inline constexpr std::size_t kMaxUrl = 1023;  // characters of a job's URL

struct UrlRecord {
  std::wstring m_strUrl;     // as given, trimmed
  std::wstring m_strHost;    // lower case, without the port
  std::wstring m_strObject;  // path and query, as written but for the encoding of " " and "+"
  std::uint16_t m_nPort = 80;
};

// True when the text names a host and a path. The scheme is dropped, whatever it is, and assumed
// where it is missing. An empty text leaves the outputs alone; any other failure leaves host and
// path empty and the port 0.
bool ParseUrl(const std::wstring& url, std::wstring& host, std::wstring& path, std::uint16_t& port);

// Stores the trimmed text in the record and parses it into the other members.
bool SetUrl(UrlRecord& record, const std::wstring& url);

// The form in which a job keeps its URL: trimmed, with forward slashes and a scheme. Nothing when
// it does not parse or is longer than `kMaxUrl`.
std::optional<std::wstring> NormaliseUrl(const std::wstring& url);

void EncodePath(std::wstring& path);  // " " and "+", nothing else

// Up to the last "/" before the query, without it.
std::wstring GetUrlDirectory(const std::wstring& url);

}  // namespace Tarnlo
