#include "engine/size_probe.h"

#include <optional>
#include <string>
#include <vector>

#include "hosts/length_poll.h"
#include "hosts/majority_vote.h"
#include "hosts/network_use.h"
#include "support/os/head_client.h"
#include "support/os/net.h"
#include "support/os/wait.h"
#include "support/run_aside.h"
#include "support/simple_log.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr StepLog kLog("CDownloadManager getCdnFileSize");

std::vector<os::Ipv4Address> ResolveHostAddresses(const std::wstring& host, const os::Event* stop) {
  std::optional<std::vector<os::Ipv4Address>> addresses = RunAside<std::vector<os::Ipv4Address>>(
      [name = WideToNarrow(host)] {
        const NetworkUse network;
        return os::ResolveName(name.c_str());
      },
      stop, os::kForever);
  return std::move(addresses).value_or(std::vector<os::Ipv4Address>());
}

}  // namespace

std::uint32_t ProbeCdnFileSize(const std::wstring& url, const os::Event* stop) {
  kLog(1);
  if (url.empty()) {
    kLog(2);
    return 0;
  }
  LengthPoll poll{os::CrackUrl(url, os::RoomFor::kHostPathAndQuery), {}, false, 3};
  for (const os::Ipv4Address address : ResolveHostAddresses(poll.url.host, stop)) {
    poll.addresses.insert(address);
  }
  const LengthVotes votes = PollLengths(poll, stop, kLog);
  if (stop != nullptr && stop->IsSet()) return 0;
  kLog(6);
  const Majority majority = FindMajority(votes);
  for (int change = 0; change < majority.leader_changes; ++change) kLog(7);
  return majority.length;
}

}  // namespace Tarnlo
