// Asking the addresses of a host, one after another, how long a file is.
#pragma once

#include <cstdint>
#include <functional>
#include <set>

#include "hosts/majority_vote.h"
#include "support/os/event.h"
#include "support/os/head_client.h"
#include "support/os/net.h"

namespace Tarnlo {

// An exchange that the system's own limits do not end is given up after this time.
inline constexpr std::uint32_t kHeadBoundMs = 100;

struct LengthPoll {
  os::CrackedUrl url;
  std::set<os::Ipv4Address> addresses;  // asked in ascending order
  bool refresh = false;
  // The number of the step "session opened"; the connection's and the length's follow it.
  int first_step = 0;
};

// Every exchange runs on a thread of its own. `step` is called on the calling thread. Ends early
// when `stop` (which may be null) is set.
LengthVotes PollLengths(const LengthPoll& poll, const os::Event* stop,
                        const std::function<void(int)>& step);

}  // namespace Tarnlo
