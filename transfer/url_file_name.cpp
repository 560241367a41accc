#include "transfer/url_file_name.h"

#include <utility>

#include "support/paths.h"
#include "support/text.h"

namespace Tarnlo {

UrlFileName GetUrlFileName(const std::wstring& object) {
  auto parts = SplitFile(object);
  if (!parts) return {};
  UrlFileName result{std::move(parts->base), std::move(parts->extension)};
  if (!result.extension.empty()) result.name += L"." + result.extension;
  ReplaceAll(result.name, L"%20", L" ");
  ReplaceAll(result.name, L"%2B", L"+");
  return result;
}

}  // namespace Tarnlo
