// A chain of redirects: the first line is a URL, each other one a location.
#include <algorithm>
#include <string>

#include "support/text.h"
#include "tests/fuzz/fuzz.h"
#include "transfer/redirect.h"

namespace Tarnlo::fuzz {
namespace {

void CheckRecord(const UrlRecord& url) {
  UrlRecord parsed;
  const bool usable = ParseUrl(url.m_strUrl, parsed.m_strHost, parsed.m_strObject, parsed.m_nPort);
  Require(usable && parsed.m_strHost == url.m_strHost && parsed.m_strObject == url.m_strObject &&
              parsed.m_nPort == url.m_nPort,
          "the record is what its URL says");
}

void CheckStep(const UrlRecord& before, const UrlRecord& url, const LocationResult& result,
               std::size_t location_size) {
  Require(url.m_strUrl.size() <= before.m_strUrl.size() + location_size + 1,
          "a URL grows by its location at most");
  if (result.kind == LocationKind::kPath) {
    Require(result.usable && url.m_strObject.starts_with(L'/'), "a path is a path");
    Require(!Contains(url.m_strObject, L"\\"), "a path has forward slashes");
    Require(url.m_strUrl == before.m_strUrl && url.m_strHost == before.m_strHost &&
                url.m_nPort == before.m_nPort,
            "a path stays at its host");
    return;
  }
  if (result.usable) return CheckRecord(url);
  Require(url.m_strUrl.empty() || (url.m_strHost.empty() && url.m_strObject.empty()),
          "an unusable location leaves no host");
}

void RunInput(Input input) {
  UrlRecord url;
  if (!SetUrl(url, Wide(input.Line()))) return;
  std::wstring referer = L"old";
  for (int step = 0; step < 16 && !input.rest().empty(); ++step) {
    const std::wstring location = Wide(input.Line());
    const UrlRecord before = url;
    const LocationResult result = ApplyLocation(location, url, referer);
    Require(referer == GetUrlDirectory(before.m_strUrl), "the referer is the directory left");
    CheckStep(before, url, result, location.size());
  }
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
