#include "tests/support/cdn.h"

#include <cstdio>
#include <map>
#include <utility>

#include "hosts/network_use.h"
#include "tests/support/test_socket.h"

namespace Tarnlo::test {
namespace {

const std::map<int, std::string> kNetworks = {{1, "127.0.4."}, {2, "127.0.3."}, {3, "127.0.2."},
                                              {4, "127.0.6."}, {8, "127.0.1."}, {20, "127.0.5."}};
constexpr int kPortTries = 20;

}  // namespace

std::vector<std::string> CdnAddresses(int count) {
  std::vector<std::string> addresses;
  for (int i = 1; i <= count; ++i) addresses.push_back(kNetworks.at(count) + std::to_string(i));
  return addresses;
}

Cdn::Cdn(int count, std::string name, std::uint16_t port)
    : m_name(std::move(name)), m_network(kNetworks.at(count)) {
  const NetworkUse network;
  const std::size_t addresses = os::ResolveName(m_name.c_str()).size();
  if (addresses != static_cast<std::size_t>(count)) {
    std::fprintf(stderr, "%s has %zu addresses here: run with tests/support/hosts as hosts file\n",
                 m_name.c_str(), addresses);
    return;
  }
  // A port that is free at one address may be taken at another.
  for (int i = 0; i < kPortTries && !m_valid; ++i) m_valid = Listen(count, port);
}

bool Cdn::Listen(int count, std::uint16_t port) {
  m_servers.clear();
  m_port = port;
  for (int i = 1; i <= count; ++i) {
    m_servers.push_back(std::make_unique<FaultServer>(m_network + std::to_string(i), m_port));
    if (!m_servers.back()->valid()) return false;
    m_port = m_servers.back()->port();
  }
  return true;
}

os::Ipv4Address Cdn::address(std::size_t index) const {
  return AddressOf(m_network + std::to_string(index + 1));
}

std::wstring Cdn::Url(const std::string& path) const {
  const std::string url = "http://" + m_name + ":" + std::to_string(m_port) + path;
  return {url.begin(), url.end()};
}

void Cdn::ServeEverywhere(const std::string& path, const FaultScript& script) {
  for (const std::unique_ptr<FaultServer>& server : m_servers) {
    if (server != nullptr) server->Serve(path) = script;
  }
}

}  // namespace Tarnlo::test
