// URLs: parsing, the form a job keeps, the directory and the file name of one.
#include <optional>
#include <string>

#include "support/paths.h"
#include "support/text.h"
#include "tests/fuzz/fuzz.h"
#include "transfer/url.h"
#include "transfer/url_file_name.h"

namespace Tarnlo::fuzz {
namespace {

void CheckParts(const UrlRecord& record) {
  Require(record.m_strObject.starts_with(L'/'), "a path begins with a slash");
  Require(!ContainsAny(record.m_strObject, L" +\\"), "a path is encoded");
  Require(!ContainsAny(record.m_strHost, L"/\\:"), "a host is a name alone");
  Require(ToLower(record.m_strHost) == record.m_strHost, "a host is in lower case");
}

void CheckParse(const std::wstring& url) {
  std::wstring host = L"old";
  std::wstring path = L"old";
  std::uint16_t port = 4711;
  if (!ParseUrl(url, host, path, port)) {
    const bool untouched = host == L"old" && path == L"old" && port == 4711;
    const bool cleared = host.empty() && path.empty() && port == 0;
    Require(url.empty() ? untouched : cleared, "a failure leaves nothing behind");
    return;
  }
  CheckParts({url, host, path, port});
  UrlRecord again;
  Require(SetUrl(again, L"http://" + host + L":" + NumberToWide(port) + path),
          "what was parsed can be put together");
  Require(again.m_strHost == host && again.m_strObject == path && again.m_nPort == port,
          "and parses to the same");
}

void CheckNormalised(const std::wstring& url) {
  const std::optional<std::wstring> kept = NormaliseUrl(url);
  if (!kept) return;
  Require(kept->size() <= kMaxUrl, "a kept URL is not too long");
  Require(Contains(*kept, L"://") && !Contains(*kept, L"\\"), "a kept URL has its form");
  Require(Trim(*kept) == *kept && NormaliseUrl(*kept) == kept, "a kept URL stays as it is");
  UrlRecord record;
  Require(SetUrl(record, *kept) && record.m_strUrl == *kept, "a kept URL parses");
}

void CheckEncoding(const std::wstring& path) {
  if (Contains(path, L"%20") || Contains(path, L"%2B")) return;
  std::wstring text = path;
  EncodePath(text);
  Require(!ContainsAny(text, L" +"), "an encoded path has neither blank nor plus");
  std::wstring twice = text;
  EncodePath(twice);
  Require(twice == text, "encoding twice changes nothing");
  ReplaceAll(text, L"%20", L" ");
  ReplaceAll(text, L"%2B", L"+");
  Require(text == path, "decoding gives back what was encoded");
}

void CheckNames(const std::wstring& url) {
  const std::wstring directory = GetUrlDirectory(url);
  Require(url.starts_with(directory), "a directory is a URL's beginning");
  Require(directory.empty() || url[directory.size()] == L'/', "a directory ends before a slash");
  Require(url.starts_with(L"?") || !Contains(directory, L"?"), "a directory has no query");
  const UrlFileName name = GetUrlFileName(url);
  Require(!Contains(name.name, L"/") && name.name.size() < 2 * kNameCapacity, "a name is a name");
  for (const wchar_t c : name.extension) {
    const bool plain =
        (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
    Require(plain, "an extension is letters and digits");
  }
}

void RunInput(Input input) {
  const std::wstring url = Wide(input.rest());
  CheckParse(url);
  CheckNormalised(url);
  CheckEncoding(url);
  CheckNames(url);
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
