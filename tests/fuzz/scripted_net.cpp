#include "tests/fuzz/scripted_net.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <utility>

#include "support/os/fault_point.h"
#include "support/os/net.h"

namespace Tarnlo {
namespace {

// The script and how far it has come.
struct Playing {
  fuzz::NetScript script;
  int calls = 0;
  int receives = 0;
  std::size_t connections = 0;
  os::SocketHandle peer;  // of the connection made last
  std::size_t sent = 0;   // of its answer
};

Playing& Now() {
  static Playing playing;
  return playing;
}

int Number(const os::SocketHandle& handle) {
  return static_cast<int>(handle.get());
}

// The pair holds less than a long answer: the rest follows as it is read.
void SendOn() {
  Playing& now = Now();
  const std::string* const answer = fuzz::LastAnswer();
  if (answer == nullptr || !now.peer.valid()) return;
  const ssize_t count = send(Number(now.peer), answer->data() + now.sent, answer->size() - now.sent,
                             MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count > 0) now.sent += static_cast<std::size_t>(count);
  if (now.sent == answer->size()) shutdown(Number(now.peer), SHUT_WR);
}

}  // namespace

void fuzz::Play(NetScript script) {
  Now() = Playing{std::move(script), 0, 0, 0, os::SocketHandle(), 0};
}

const std::string* fuzz::LastAnswer() {
  const Playing& now = Now();
  return now.connections == 0 ? nullptr : &now.script.answers[now.connections - 1];
}

namespace os {

bool Fails(Call /*call*/) {
  return ++Now().calls == Now().script.failing_call;
}
std::uint32_t ScaledWait(std::uint32_t /*milliseconds*/) {
  return 0;
}
std::uint32_t ScaledInterval(std::uint32_t milliseconds) {
  return milliseconds;
}

bool StartNetwork() {
  return !Fails(Call::kStartNetwork);
}
void StopNetwork() {}
std::vector<Ipv4Address> ResolveName(const char* /*name*/) {
  return {};
}
std::string DottedText(Ipv4Address /*address*/) {
  return "127.0.0.1";
}

Socket Socket::OpenTcp() {
  Socket made;
  std::array<int, 2> pair{};
  if (Fails(Call::kSocket) ||
      socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) != 0) {
    return made;
  }
  made.m_handle.Reset(static_cast<SocketHandle::Value>(pair[0]));
  Now().peer.Reset(static_cast<SocketHandle::Value>(pair[1]));
  return made;
}

bool Socket::SetBlocking(bool /*blocking*/) {
  return !Fails(Call::kSetBlocking);
}

Socket::ConnectState Socket::StartConnect(Ipv4Address /*address*/, std::uint16_t /*port*/) {
  Playing& now = Now();
  if (Fails(Call::kConnect) || now.connections == now.script.answers.size()) {
    return ConnectState::kFailed;
  }
  ++now.connections;
  now.sent = 0;
  SendOn();
  return ConnectState::kDone;
}

Readiness Socket::WaitReadable(std::uint32_t /*milliseconds*/) const {
  return !valid() || Fails(Call::kWaitReadable) ? Readiness::kError : Readiness::kReady;
}
Readiness Socket::WaitWritable(std::uint32_t /*milliseconds*/) const {
  return !valid() || Fails(Call::kWaitWritable) ? Readiness::kError : Readiness::kReady;
}

int Socket::Send(const char* bytes, int count) {
  if (Fails(Call::kSend)) return -1;
  return static_cast<int>(send(static_cast<int>(m_handle.get()), bytes,
                               static_cast<std::size_t>(count), MSG_NOSIGNAL | MSG_DONTWAIT));
}

int Socket::Receive(char* bytes, int capacity) {
  Playing& now = Now();
  if (++now.receives == now.script.watched_receive && now.script.at_receive) {
    now.script.at_receive();
  }
  if (Fails(Call::kReceive)) return -1;
  SendOn();
  const auto& limits = now.script.most_bytes;
  const std::size_t limit = limits[static_cast<std::size_t>(now.receives) % limits.size()];
  auto size = static_cast<std::size_t>(capacity);
  if (limit > 0) size = std::min(size, limit);
  return static_cast<int>(recv(static_cast<int>(m_handle.get()), bytes, size, 0));
}

}  // namespace os
}  // namespace Tarnlo
