// The network beneath a worker that is fuzzed: each connection is a socket pair whose other end
// sends what the script says and closes. Calls of the seam can be made to fail, and no wait takes
// time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tarnlo::fuzz {

struct NetScript {
  std::vector<std::string> answers;         // a connection each; there are no more
  std::array<std::size_t, 2> most_bytes{};  // of a receive, in turn; 0: as many as there are
  int failing_call = 0;                     // of the seam, from 1; 0: none
  int watched_receive = 0;                  // before this one, from 1, `at_receive` is called
  std::function<void()> at_receive;
};

// Threads: between `Play` and the end of what uses the network, that thread alone.
void Play(NetScript script);
// What the connection made last had to send; null when none was made.
const std::string* LastAnswer();

}  // namespace Tarnlo::fuzz
