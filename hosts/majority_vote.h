// Which answer most addresses agree on.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "support/os/net.h"

namespace Tarnlo {

// Who reported which length, in the order they were asked.
using LengthVotes = std::map<std::uint32_t, std::vector<os::Ipv4Address>>;

struct Majority {
  std::uint32_t length = 0;                // 0 when nobody voted
  std::vector<os::Ipv4Address> addresses;  // who reported it
  int leader_changes = 0;                  // the first leader included
};

// Walks the lengths in ascending order; one takes the lead by strictly more addresses than the
// leader has, so that a tie keeps the smaller length. A length of 0 is no vote.
Majority FindMajority(const LengthVotes& votes);

}  // namespace Tarnlo
