#include "support/os/net.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>

#include "support/os/clock.h"
#include "support/os/fault_point.h"

namespace Tarnlo::os {
namespace {

constexpr std::size_t kMaxResolverBytes = 1024 * 1024;

// Which sockets have a connect under way, by their number: the failure of one is told apart from a
// connection that broke.
std::array<std::atomic<bool>, 65536> g_connecting{};

void SetConnecting(std::uintptr_t socket, bool connecting) {
  if (socket < g_connecting.size()) g_connecting[socket].store(connecting);
}
bool IsConnecting(std::uintptr_t socket) {
  return socket < g_connecting.size() && g_connecting[socket].load();
}

std::string NameOfThisMachine() {
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

// What happened on the socket, 0 for nothing within the time, -1 for a socket that is none.
int Poll(std::uintptr_t socket, short events, std::uint32_t milliseconds) {
  pollfd entry{static_cast<int>(socket), events, 0};
  const auto limit =
      static_cast<int>(std::min<std::uint32_t>(milliseconds, std::numeric_limits<int>::max()));
  const int count = poll(&entry, 1, limit);
  if (count <= 0) return count;
  return (entry.revents & POLLNVAL) != 0 ? -1 : entry.revents;
}

Readiness FromPoll(int happened) {
  if (happened == 0) return Readiness::kTimedOut;
  return happened < 0 ? Readiness::kError : Readiness::kReady;
}

}  // namespace

bool StartNetwork() {
  if (Fails(Call::kStartNetwork)) return false;
  return true;
}

void StopNetwork() {}

std::vector<Ipv4Address> ResolveName(const char* name) {
  if (Fails(Call::kResolve)) return {};
  const std::string text = name == nullptr || *name == '\0' ? NameOfThisMachine() : name;
  std::vector<char> buffer(8192);
  hostent entry{};
  hostent* answer = nullptr;
  int error = 0;
  while (gethostbyname2_r(text.c_str(), AF_INET, &entry, buffer.data(), buffer.size(), &answer,
                          &error) == ERANGE &&
         buffer.size() < kMaxResolverBytes) {
    buffer.resize(buffer.size() * 2);
  }
  std::vector<Ipv4Address> addresses;
  if (answer == nullptr || answer->h_addrtype != AF_INET) return addresses;
  for (char** each = answer->h_addr_list; *each != nullptr; ++each) {
    Ipv4Address address = 0;
    std::memcpy(&address, *each, sizeof(address));
    addresses.push_back(address);
  }
  return addresses;
}

std::string DottedText(Ipv4Address address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  const in_addr native{address};
  return inet_ntop(AF_INET, &native, text.data(), text.size()) == nullptr ? "" : text.data();
}

Socket Socket::OpenTcp() {
  Socket made;
  if (Fails(Call::kSocket)) return made;
  const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  if (descriptor < 0) return made;
  made.m_handle.Reset(static_cast<SocketHandle::Value>(descriptor));
  SetConnecting(made.m_handle.get(), false);
  return made;
}

bool Socket::SetBlocking(bool blocking) {
  if (Fails(Call::kSetBlocking)) return false;
  const int descriptor = static_cast<int>(m_handle.get());
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags < 0) return false;
  return fcntl(descriptor, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
}

Socket::ConnectState Socket::StartConnect(Ipv4Address address, std::uint16_t port) {
  if (Fails(Call::kConnect)) return ConnectState::kFailed;
  sockaddr_in target{};
  target.sin_family = AF_INET;
  target.sin_port = htons(port);
  target.sin_addr.s_addr = address;
  const auto* const name = reinterpret_cast<const sockaddr*>(&target);
  if (connect(static_cast<int>(m_handle.get()), name, sizeof(target)) == 0) {
    return ConnectState::kDone;
  }
  if (errno != EINPROGRESS) return ConnectState::kFailed;
  SetConnecting(m_handle.get(), true);
  return ConnectState::kPending;
}

Readiness Socket::WaitReadable(std::uint32_t milliseconds) const {
  if (!valid() || Fails(Call::kWaitReadable)) return Readiness::kError;
  return FromPoll(Poll(m_handle.get(), POLLIN, milliseconds));
}

Readiness Socket::WaitWritable(std::uint32_t milliseconds) const {
  if (!valid() || Fails(Call::kWaitWritable)) return Readiness::kError;
  const std::uint32_t begin = TickMs();
  const int happened = Poll(m_handle.get(), POLLOUT, milliseconds);
  if (happened > 0 && IsConnecting(m_handle.get())) {
    if ((happened & (POLLERR | POLLHUP)) != 0) {  // refused: on Windows nobody is told
      SleepMs(milliseconds - std::min(TickMs() - begin, milliseconds));
      return Readiness::kTimedOut;
    }
    SetConnecting(m_handle.get(), false);
  }
  return FromPoll(happened);
}

int Socket::Send(const char* bytes, int count) {
  if (Fails(Call::kSend)) return -1;
  const auto size = static_cast<std::size_t>(count);
  return static_cast<int>(send(static_cast<int>(m_handle.get()), bytes, size, MSG_NOSIGNAL));
}

int Socket::Receive(char* bytes, int capacity) {
  if (Fails(Call::kReceive)) return -1;
  const auto size = static_cast<std::size_t>(capacity);
  return static_cast<int>(recv(static_cast<int>(m_handle.get()), bytes, size, 0));
}

}  // namespace Tarnlo::os
