#include "hosts/majority_vote.h"

namespace Tarnlo {

Majority FindMajority(const LengthVotes& votes) {
  Majority leader;
  for (const auto& [length, addresses] : votes) {
    if (length == 0 || addresses.size() <= leader.addresses.size()) continue;
    leader.length = length;
    leader.addresses = addresses;
    ++leader.leader_changes;
  }
  return leader;
}

}  // namespace Tarnlo
