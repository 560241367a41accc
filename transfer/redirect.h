// Following a "Location".
#pragma once

#include <string>

#include "transfer/url.h"

namespace Tarnlo {

enum class LocationKind { kAbsolute, kPath, kRelative };

struct LocationResult {
  LocationKind kind = LocationKind::kAbsolute;
  bool usable = false;  // host and path are known
};

// Turns the record to the location, a header's value. The referer becomes the directory of the URL
// that is left, usable or not.
LocationResult ApplyLocation(std::wstring location, UrlRecord& url, std::wstring& referer);

}  // namespace Tarnlo
