#include "support/os/net.h"

#include <array>
#include <cstring>

#include "support/os/fault_point.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

constexpr WORD kVersion = 0x0202;

fd_set Only(SocketHandleTraits::Value socket) {
  fd_set set{};
  set.fd_count = 1;
  set.fd_array[0] = static_cast<SOCKET>(socket);
  return set;
}

timeval Limit(std::uint32_t milliseconds) {
  return timeval{static_cast<long>(milliseconds / 1000),
                 static_cast<long>(milliseconds % 1000 * 1000)};
}

Readiness FromSelect(int answer) {
  if (answer == 0) return Readiness::kTimedOut;
  return answer < 0 ? Readiness::kError : Readiness::kReady;
}

}  // namespace

bool StartNetwork() {
  if (Fails(Call::kStartNetwork)) return false;
  WSADATA data{};
  if (WSAStartup(kVersion, &data) != 0) return false;
  if (data.wVersion == kVersion) return true;
  WSACleanup();
  return false;
}

void StopNetwork() {
  WSACleanup();
}

std::vector<Ipv4Address> ResolveName(const char* name) {
  if (Fails(Call::kResolve)) return {};
  std::vector<Ipv4Address> addresses;
  // The answer is a buffer of this thread.
  const hostent* const answer = gethostbyname(name);  // NOLINT(concurrency-mt-unsafe)
  if (answer == nullptr || answer->h_addrtype != AF_INET ||
      answer->h_length != static_cast<short>(sizeof(Ipv4Address))) {
    return addresses;
  }
  for (char** entry = answer->h_addr_list; *entry != nullptr; ++entry) {
    Ipv4Address address = 0;
    std::memcpy(&address, *entry, sizeof(address));
    addresses.push_back(address);
  }
  return addresses;
}

std::string DottedText(Ipv4Address address) {
  in_addr native{};
  native.s_addr = address;
  // A buffer of this thread, reused by later calls.
  const char* const text = inet_ntoa(native);  // NOLINT(concurrency-mt-unsafe)
  return text == nullptr ? std::string() : std::string(text);
}

Socket Socket::OpenTcp() {
  Socket made;
  if (Fails(Call::kSocket)) return made;
  made.m_handle.Reset(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  return made;
}

bool Socket::SetBlocking(bool blocking) {
  if (Fails(Call::kSetBlocking)) return false;
  u_long non_blocking = blocking ? 0 : 1;
  return ioctlsocket(m_handle.get(), static_cast<long>(FIONBIO), &non_blocking) == 0;
}

Socket::ConnectState Socket::StartConnect(Ipv4Address address, std::uint16_t port) {
  if (Fails(Call::kConnect)) return ConnectState::kFailed;
  sockaddr_in target{};
  target.sin_family = AF_INET;
  target.sin_port = htons(port);
  target.sin_addr.s_addr = address;
  if (connect(m_handle.get(), reinterpret_cast<const sockaddr*>(&target), sizeof(target)) == 0) {
    return ConnectState::kDone;
  }
  return WSAGetLastError() == WSAEWOULDBLOCK ? ConnectState::kPending : ConnectState::kFailed;
}

Readiness Socket::WaitReadable(std::uint32_t milliseconds) const {
  if (!valid() || Fails(Call::kWaitReadable)) return Readiness::kError;
  fd_set set = Only(m_handle.get());
  timeval limit = Limit(milliseconds);
  return FromSelect(select(0, &set, nullptr, nullptr, &limit));
}

Readiness Socket::WaitWritable(std::uint32_t milliseconds) const {
  if (!valid() || Fails(Call::kWaitWritable)) return Readiness::kError;
  fd_set set = Only(m_handle.get());
  timeval limit = Limit(milliseconds);
  return FromSelect(select(0, nullptr, &set, nullptr, &limit));
}

int Socket::Send(const char* bytes, int count) {
  if (Fails(Call::kSend)) return -1;
  return send(m_handle.get(), bytes, count, 0);
}

int Socket::Receive(char* bytes, int capacity) {
  if (Fails(Call::kReceive)) return -1;
  return recv(m_handle.get(), bytes, capacity, 0);
}

}  // namespace Tarnlo::os
