// The process-wide table of download hosts: which addresses of a name may be used, and how much
// each is in use.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "support/os/event.h"
#include "support/os/net.h"

namespace Tarnlo {

// For every host name ever named, the addresses that serve the right file with a count of the
// connections now using each. The order of the addresses, by their value as the processor reads it,
// decides who comes first.
//
// Threads: any thread may call any operation. A probing pass runs on a thread of its own, which
// owns all it touches; the caller, and everyone who needs the table meanwhile, waits for it or for
// its own stop event (which may be null), so that a stop never waits for a resolver and a thread
// that dies never leaves the table held. Lifetime: an entry is never removed, a probed host never
// probed again.
class DownHostMgr {
 public:
  using AddressMap = std::map<os::Ipv4Address, std::int32_t>;

  DownHostMgr();
  DownHostMgr(const DownHostMgr&) = delete;
  DownHostMgr& operator=(const DownHostMgr&) = delete;

  // The one table of the process.
  static DownHostMgr& Shared();

  // Fills the host of the URL, once: resolves it, asks every address for the file's length, and
  // keeps the addresses that the majority agrees with. True when the host has an address then;
  // false too for a null URL and when stopped.
  bool InitHost(const wchar_t* url, const os::Event* stop);

  // The least used address of the host, now used once more; 0 when it has none or when stopped.
  os::Ipv4Address AcquireHostIp(const std::wstring& host, const os::Event* stop);

  // Takes one use back. Unknown hosts and addresses change nothing; a count never falls below 0.
  // Never waits for a probing pass.
  void ReleaseHostIp(const std::wstring& host, os::Ipv4Address address) noexcept;

  // A copy of one host's addresses; does not insert an entry.
  [[nodiscard]] AddressMap Addresses(const std::wstring& host) const;
  [[nodiscard]] bool HasEntry(const std::wstring& host) const;

 private:
  struct Table;
  std::shared_ptr<Table> m_table;
};

}  // namespace Tarnlo
