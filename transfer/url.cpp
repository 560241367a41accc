#include "transfer/url.h"

#include <algorithm>
#include <limits>

#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr std::wstring_view kSchemeEnd = L"://";
constexpr std::wstring_view kDefaultScheme = L"http://";

std::wstring TrimWithForwardSlashes(const std::wstring& url) {
  std::wstring text = Trim(url);
  std::replace(text.begin(), text.end(), L'\\', L'/');
  return text;
}

// A number too large for an int is the largest int; then the low 16 bits count.
std::uint16_t ParsePort(std::wstring_view text) {
  using Limits = std::numeric_limits<std::int32_t>;
  const std::int64_t number =
      std::clamp<std::int64_t>(ParseNumber(text), Limits::min(), Limits::max());
  return static_cast<std::uint16_t>(static_cast<std::uint64_t>(number) & 0xFFFF);
}

}  // namespace

bool ParseUrl(const std::wstring& url, std::wstring& host, std::wstring& path,
              std::uint16_t& port) {
  if (url.empty()) return false;
  std::wstring written = TrimWithForwardSlashes(url);
  std::wstring lower = ToLower(written);
  host.clear();
  path.clear();
  port = 0;

  // The first one counts wherever it is: a path that holds one in its query loses its own host.
  const std::size_t scheme_end = lower.find(kSchemeEnd);
  if (scheme_end != std::wstring::npos) {
    lower.erase(0, scheme_end + kSchemeEnd.size());
    written.erase(0, scheme_end + kSchemeEnd.size());
  }
  const std::size_t slash = lower.find(L'/');
  if (slash == std::wstring::npos) return false;

  path = written.substr(slash);
  EncodePath(path);
  const std::wstring authority = lower.substr(0, slash);
  const std::size_t colon = authority.find(L':');
  host = authority.substr(0, colon);
  port = colon == std::wstring::npos ? std::uint16_t{80} : ParsePort(authority.substr(colon + 1));
  return true;
}

bool SetUrl(UrlRecord& record, const std::wstring& url) {
  record.m_strUrl = Trim(url);
  return ParseUrl(record.m_strUrl, record.m_strHost, record.m_strObject, record.m_nPort);
}

std::optional<std::wstring> NormaliseUrl(const std::wstring& url) {
  std::wstring text = TrimWithForwardSlashes(url);
  if (text.find(kSchemeEnd) == std::wstring::npos) text.insert(0, kDefaultScheme);
  UrlRecord record;
  if (text.size() > kMaxUrl || !SetUrl(record, text)) return std::nullopt;
  return text;
}

void EncodePath(std::wstring& path) {
  std::wstring encoded;
  encoded.reserve(path.size());
  for (const wchar_t character : path) {
    if (character == L' ') {
      encoded += L"%20";
    } else if (character == L'+') {
      encoded += L"%2B";
    } else {
      encoded += character;
    }
  }
  path = std::move(encoded);
}

std::wstring GetUrlDirectory(const std::wstring& url) {
  const std::size_t query = url.find(L'?');
  const std::wstring text = query != std::wstring::npos && query > 0 ? url.substr(0, query) : url;
  const std::size_t slash = text.rfind(L'/');
  return slash == std::wstring::npos ? std::wstring() : text.substr(0, slash);
}

}  // namespace Tarnlo
