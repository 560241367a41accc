// One HEAD exchange through the system's HTTP client, and its way of splitting a URL.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "support/os/net.h"

namespace Tarnlo::os {

struct CrackedUrl {
  std::wstring host;  // as written
  std::wstring path;  // escaped, without the query
  std::uint16_t port = 0;
};
// For which parts of the URL the caller has room, 511 characters each.
enum class RoomFor { kAllParts, kHostPathAndQuery };
// A URL that the system cannot split gives empty texts and port 0, and so does one with a part that
// does not fit its room. Parts without room may have any length.
CrackedUrl CrackUrl(const std::wstring& url, RoomFor room);

struct HeadRequest {
  Ipv4Address address = 0;
  std::uint16_t port = 0;
  std::wstring path;
  std::wstring host;     // what the Host header names
  bool refresh = false;  // ask proxies and caches for a fresh answer
};

// How far an exchange came; each value includes those before it.
enum class HeadStage { kNothing, kSessionOpened, kConnected, kLengthKnown };

struct HeadAnswer {
  HeadStage reached = HeadStage::kNothing;
  std::uint32_t content_length = 0;  // 0 unless the length is known
};

// Resolve, connect, send and receive are limited to 10, 6, 6 and 10 ms as far as the system keeps
// to that: only an address that answers at once takes part. The status of the answer is not looked
// at. `reached` (which may be null) follows the exchange, for whoever does not wait for its end.
HeadAnswer SendHead(const HeadRequest& request, std::atomic<HeadStage>* reached = nullptr);

// Client handles open in this process now.
int OpenHeadHandles();

}  // namespace Tarnlo::os
