#include "hosts/length_poll.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>

#include "hosts/network_use.h"
#include "support/run_aside.h"

namespace Tarnlo {
namespace {

os::HeadAnswer AskAside(const os::HeadRequest& request, const os::Event* stop) {
  const auto reached = std::make_shared<std::atomic<os::HeadStage>>(os::HeadStage::kNothing);
  const std::optional<os::HeadAnswer> answer = RunAside<os::HeadAnswer>(
      [request, reached] {
        const NetworkUse network;
        return os::SendHead(request, reached.get());
      },
      stop, kHeadBoundMs);
  if (answer.has_value()) return *answer;
  // A length that comes after the exchange was given up is not known.
  return {std::min(reached->load(), os::HeadStage::kConnected), 0};
}

void ReportSteps(os::HeadStage reached, int first_step, const std::function<void(int)>& step) {
  if (reached >= os::HeadStage::kSessionOpened) step(first_step);
  if (reached >= os::HeadStage::kConnected) step(first_step + 1);
  if (reached >= os::HeadStage::kLengthKnown) step(first_step + 2);
}

}  // namespace

LengthVotes PollLengths(const LengthPoll& poll, const os::Event* stop,
                        const std::function<void(int)>& step) {
  LengthVotes votes;
  for (const os::Ipv4Address address : poll.addresses) {
    const os::HeadAnswer answer =
        AskAside({address, poll.url.port, poll.url.path, poll.url.host, poll.refresh}, stop);
    if (stop != nullptr && stop->IsSet()) break;
    ReportSteps(answer.reached, poll.first_step, step);
    if (answer.content_length != 0) votes[answer.content_length].push_back(address);
  }
  return votes;
}

}  // namespace Tarnlo
