// The name that a URL gives the file.
#pragma once

#include <string>

namespace Tarnlo {

struct UrlFileName {
  std::wstring name;       // with its extension, decoded
  std::wstring extension;  // without its point
};

// Of a path with or without a query. All empty when it cannot be split.
UrlFileName GetUrlFileName(const std::wstring& object);

}  // namespace Tarnlo
