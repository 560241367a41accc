// A name of several addresses with a server at each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "support/os/net.h"
#include "tests/support/fault_server.h"

namespace Tarnlo::test {

// The names and addresses are those of tests/support/hosts: cdn1, cdn2, cdn3, cdn4, cdn8
// and cdn20.tarnlo.test with as many addresses; another name may be given the same addresses. All
// servers listen on one port.
//
// Lifetime: a server may be closed ahead of the rest; its address then refuses.
class Cdn {
 public:
  explicit Cdn(int count) : Cdn(count, "cdn" + std::to_string(count) + ".tarnlo.test") {}
  // A name that has those addresses, and a port, of which 0 is any.
  Cdn(int count, std::string name, std::uint16_t port = 0);

  // False with a line on stderr when the name does not have its addresses on this machine: the
  // tests run where tests/support/hosts is the hosts file.
  [[nodiscard]] bool valid() const { return m_valid; }
  [[nodiscard]] const std::string& name() const { return m_name; }
  [[nodiscard]] std::wstring wide_name() const { return {m_name.begin(), m_name.end()}; }
  [[nodiscard]] std::uint16_t port() const { return m_port; }
  [[nodiscard]] std::size_t size() const { return m_servers.size(); }
  // In the order in which the library keeps the addresses.
  FaultServer& operator[](std::size_t index) { return *m_servers.at(index); }
  [[nodiscard]] os::Ipv4Address address(std::size_t index) const;
  [[nodiscard]] bool IsOpen(std::size_t index) const { return m_servers.at(index) != nullptr; }
  void Close(std::size_t index) { m_servers.at(index).reset(); }
  // "http://cdn3.tarnlo.test:4711" and the path.
  [[nodiscard]] std::wstring Url(const std::string& path) const;
  // Adds the same script at every server.
  void ServeEverywhere(const std::string& path, const FaultScript& script);

 private:
  bool Listen(int count, std::uint16_t port);

  std::string m_name;
  std::string m_network;  // "127.0.2."
  std::uint16_t m_port = 0;
  std::deque<std::unique_ptr<FaultServer>> m_servers;
  bool m_valid = false;
};

// What such names have as addresses: "127.0.2.1" and so on.
std::vector<std::string> CdnAddresses(int count);

}  // namespace Tarnlo::test
