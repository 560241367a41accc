#include "hosts/down_host_mgr.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <optional>
#include <utility>

#include "hosts/length_poll.h"
#include "hosts/majority_vote.h"
#include "hosts/network_use.h"
#include "hosts/step_relay.h"
#include "support/os/head_client.h"
#include "support/os/lock.h"
#include "support/os/wait.h"
#include "support/process_object.h"
#include "support/run_aside.h"
#include "support/simple_log.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr StepLog kInitHostLog("DownHostMgr InitHost");

// One pass over the addresses of a URL's host: what its thread needs, and what it found.
struct Pass {
  os::CrackedUrl url;
  std::optional<std::string> narrow_host;  // nothing means this machine
  StepRelay steps;
  std::atomic<bool> has_addresses{false};  // the result; read when `steps` has finished
};

// Tells whoever waits that nothing follows, however the work ends.
class FinishAtExit {
 public:
  explicit FinishAtExit(StepRelay& steps) : m_steps(steps) {}
  FinishAtExit(const FinishAtExit&) = delete;
  FinishAtExit& operator=(const FinishAtExit&) = delete;
  ~FinishAtExit() { m_steps.Finish(); }

 private:
  StepRelay& m_steps;
};

DownHostMgr::AddressMap LoadHostAddresses(const Pass& pass) {
  DownHostMgr::AddressMap found;
  const char* const name = pass.narrow_host ? pass.narrow_host->c_str() : nullptr;
  for (const os::Ipv4Address address : os::ResolveName(name)) found.emplace(address, 0);
  return found;
}

// Removes every address that is not of the majority; without a vote all stay.
void KeepMajority(const LengthVotes& votes, DownHostMgr::AddressMap& addresses, StepRelay& steps) {
  const Majority majority = FindMajority(votes);
  for (int change = 0; change < majority.leader_changes; ++change) steps.Step(8);
  if (majority.length == 0) return;
  steps.Step(9);
  std::erase_if(addresses, [&](const auto& entry) {
    const bool agrees =
        std::ranges::find(majority.addresses, entry.first) != majority.addresses.end();
    if (!agrees) steps.Step(10);
    return !agrees;
  });
}

DownHostMgr::AddressMap ProbeAddresses(Pass& pass) {
  const NetworkUse network;
  DownHostMgr::AddressMap addresses = LoadHostAddresses(pass);
  LengthPoll poll{pass.url, {}, true, 4};
  for (const auto& [address, uses] : addresses) poll.addresses.insert(address);
  const LengthVotes votes =
      PollLengths(poll, nullptr, [&pass](int number) { pass.steps.Step(number); });
  pass.steps.Step(7);
  KeepMajority(votes, addresses, pass.steps);
  pass.steps.Step(11);
  return addresses;
}

// The first address that nobody uses, else the first of those with the smallest count; its count
// goes up. 0 when there is none.
os::Ipv4Address TakeLeastUsed(DownHostMgr::AddressMap& addresses) {
  const auto chosen =
      std::ranges::min_element(addresses, {}, [](const auto& entry) { return entry.second; });
  if (chosen == addresses.end()) return 0;
  ++chosen->second;
  return chosen->first;
}

}  // namespace

// The table is in a pass's hands for its turn; whoever needs it meanwhile waits for the turn's end.
// The lock guards the fields for a few instructions at a time.
struct DownHostMgr::Table {
  mutable os::Lock lock;
  std::map<std::wstring, AddressMap> hosts GUARDED_BY(lock);
  std::shared_ptr<os::Event> turn GUARDED_BY(lock);  // set at its end; null while no pass runs

  class Turn;

  // Runs the pass on a thread of its own; false when there is none to be had.
  static bool Start(const std::shared_ptr<Table>& table, const std::shared_ptr<Pass>& pass);
  void Run(Pass& pass);
  // Runs `use` on the host's addresses while no pass runs; nothing when stopped first.
  template <typename Use>
  auto UseHost(const std::wstring& host, const os::Event* stop, Use use)
      -> std::optional<decltype(use(std::declval<AddressMap&>()))>;
};

class DownHostMgr::Table::Turn {
 public:
  explicit Turn(Table& table) : m_table(table), m_ended(std::make_shared<os::Event>()) {
    while (const std::shared_ptr<os::Event> other = Take()) other->Wait(os::kForever);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  ~Turn() {
    {
      const os::LockGuard guard(m_table.lock);
      m_table.turn.reset();
    }
    m_ended->Set();
  }

 private:
  // Null when this turn has begun, else the one to wait for.
  std::shared_ptr<os::Event> Take() {
    const os::LockGuard guard(m_table.lock);
    if (m_table.turn != nullptr) return m_table.turn;
    m_table.turn = m_ended;
    return nullptr;
  }

  Table& m_table;
  const std::shared_ptr<os::Event> m_ended;
};

bool DownHostMgr::Table::Start(const std::shared_ptr<Table>& table,
                               const std::shared_ptr<Pass>& pass) {
  return StartDetached([table, pass] {
    const FinishAtExit finish(pass->steps);
    table->Run(*pass);
  });
}

void DownHostMgr::Table::Run(Pass& pass) {
  const Turn mine(*this);
  {
    const os::LockGuard guard(lock);
    pass.has_addresses = !hosts[pass.url.host].empty();
  }
  if (pass.has_addresses) {  // another pass for this host came first
    pass.steps.Step(3);
    return;
  }
  AddressMap addresses = ProbeAddresses(pass);
  const os::LockGuard guard(lock);
  pass.has_addresses = !addresses.empty();
  hosts[pass.url.host] = std::move(addresses);
}

template <typename Use>
auto DownHostMgr::Table::UseHost(const std::wstring& host, const os::Event* stop, Use use)
    -> std::optional<decltype(use(std::declval<AddressMap&>()))> {
  for (;;) {
    std::shared_ptr<os::Event> other;
    {
      const os::LockGuard guard(lock);
      if (turn == nullptr) return use(hosts[host]);
      other = turn;
    }
    if (!WaitUnlessStopped(*other, stop, os::kForever)) return std::nullopt;
  }
}

DownHostMgr::DownHostMgr() : m_table(std::make_shared<Table>()) {}

DownHostMgr& DownHostMgr::Shared() {
  static ProcessObject<DownHostMgr> shared;
  return *shared;
}

bool DownHostMgr::InitHost(const wchar_t* url, const os::Event* stop) {
  kInitHostLog(1);
  if (url == nullptr) {
    kInitHostLog(2);
    return false;
  }
  const auto pass = std::make_shared<Pass>();
  pass->url = os::CrackUrl(url, os::RoomFor::kAllParts);
  const std::optional<bool> known = m_table->UseHost(
      pass->url.host, stop, [](const AddressMap& addresses) { return !addresses.empty(); });
  if (known.value_or(false)) {
    kInitHostLog(3);
    return true;
  }
  if (!known.has_value() || (stop != nullptr && stop->IsSet())) return false;
  pass->narrow_host = NarrowHostName(pass->url.host);
  if (!Table::Start(m_table, pass)) {  // no thread: as for a name that does not resolve
    kInitHostLog(7);
    kInitHostLog(11);
    return false;
  }
  return pass->steps.WriteUntilFinished(kInitHostLog, stop) && pass->has_addresses;
}

os::Ipv4Address DownHostMgr::AcquireHostIp(const std::wstring& host, const os::Event* stop) {
  return m_table->UseHost(host, stop, TakeLeastUsed).value_or(0);
}

void DownHostMgr::ReleaseHostIp(const std::wstring& host, os::Ipv4Address address) noexcept {
  const os::LockGuard guard(m_table->lock);
  try {
    AddressMap& addresses = m_table->hosts[host];
    const auto found = addresses.find(address);
    if (found != addresses.end() && found->second > 0) --found->second;
  } catch (const std::bad_alloc&) {
    // None for the empty entry of a host that is not known: there is nothing to take back.
  }
}

DownHostMgr::AddressMap DownHostMgr::Addresses(const std::wstring& host) const {
  const os::LockGuard guard(m_table->lock);
  const auto found = m_table->hosts.find(host);
  return found == m_table->hosts.end() ? AddressMap{} : found->second;
}

bool DownHostMgr::HasEntry(const std::wstring& host) const {
  const os::LockGuard guard(m_table->lock);
  return m_table->hosts.contains(host);
}

}  // namespace Tarnlo
