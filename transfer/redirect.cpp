#include "transfer/redirect.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "support/text.h"

namespace Tarnlo {
namespace {

bool Parse(UrlRecord& url) {
  return ParseUrl(url.m_strUrl, url.m_strHost, url.m_strObject, url.m_nPort);
}

// Joins it to the URL's directory, going up once for each "../" and dropping what stands before
// one.
void JoinRelative(std::wstring_view location, std::wstring& url) {
  constexpr std::wstring_view kUp = L"../";
  int cuts = 1;
  for (std::size_t at = location.find(kUp); at != std::wstring_view::npos;
       at = location.find(kUp)) {
    location.remove_prefix(at + kUp.size());
    ++cuts;
  }
  for (; cuts > 0; --cuts) {
    const std::size_t slash = url.rfind(L'/');
    if (slash == std::wstring::npos) break;
    url.erase(slash);
  }
  if (location.starts_with(L"./")) location.remove_prefix(2);
  url += L'/';
  url += location;
}

}  // namespace

LocationResult ApplyLocation(std::wstring location, UrlRecord& url, std::wstring& referer) {
  ReplaceAll(location, L"%3A", L":");
  ReplaceAll(location, L"%2F", L"/");
  referer = GetUrlDirectory(url.m_strUrl);
  if (location.find(L"://") != std::wstring::npos) {
    url.m_strUrl = std::move(location);
    return {LocationKind::kAbsolute, Parse(url)};
  }
  std::replace(location.begin(), location.end(), L'\\', L'/');
  if (location.starts_with(L"/")) {
    url.m_strObject = std::move(location);
    return {LocationKind::kPath, true};
  }
  JoinRelative(location, url.m_strUrl);
  return {LocationKind::kRelative, Parse(url)};
}

}  // namespace Tarnlo
