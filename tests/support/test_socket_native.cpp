#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "tests/support/native_socket.h"
#include "tests/support/test_socket.h"

namespace Tarnlo::test {
namespace {

int NumberOf(NativeSocket socket) {
  return static_cast<int>(socket);
}

os::SocketHandle NotBlocking(int number) {
  os::SocketHandle handle(static_cast<NativeSocket>(number));
  if (handle.valid()) fcntl(number, F_SETFL, O_NONBLOCK);
  return handle;
}

void SetOption(NativeSocket socket, int name, const void* value, std::size_t size) {
  setsockopt(NumberOf(socket), SOL_SOCKET, name, value, static_cast<socklen_t>(size));
}

}  // namespace

os::Ipv4Address AddressOf(const std::string& dotted) {
  return inet_addr(dotted.c_str());
}

os::SocketHandle ListenAt(const std::string& address, std::uint16_t port, int backlog) {
  os::SocketHandle listener = NotBlocking(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = AddressOf(address);
  const int number = NumberOf(listener.get());
  // What is left of connections to an earlier listener does not keep a port of the test's choice.
  const int reuse = port != 0 ? 1 : 0;
  SetOption(listener.get(), SO_REUSEADDR, &reuse, sizeof(reuse));
  if (bind(number, reinterpret_cast<sockaddr*>(&name), sizeof(name)) != 0 ||
      listen(number, backlog) != 0) {
    listener.Reset();
  }
  return listener;
}

os::SocketHandle AcceptFrom(NativeSocket listener) {
  return NotBlocking(accept4(NumberOf(listener), nullptr, nullptr, SOCK_CLOEXEC));
}

std::uint16_t PortOf(NativeSocket listener) {
  sockaddr_in name{};
  socklen_t length = sizeof(name);
  getsockname(NumberOf(listener), reinterpret_cast<sockaddr*>(&name), &length);
  return ntohs(name.sin_port);
}

bool AwaitSocket(NativeSocket socket, bool reading, std::uint32_t milliseconds) {
  pollfd entry{NumberOf(socket), static_cast<short>(reading ? POLLIN : POLLOUT), 0};
  return poll(&entry, 1, static_cast<int>(milliseconds)) > 0;
}

void SetReceiveBufferOf(NativeSocket socket, int bytes) {
  SetOption(socket, SO_RCVBUF, &bytes, sizeof(bytes));
}

void ResetAtClose(NativeSocket socket) {
  constexpr linger kAtOnce{1, 0};
  SetOption(socket, SO_LINGER, &kAtOnce, sizeof(kAtOnce));
}

int ReceiveFrom(NativeSocket socket, char* bytes, std::size_t capacity) {
  return static_cast<int>(recv(NumberOf(socket), bytes, capacity, 0));
}

int SendTo(NativeSocket socket, const char* bytes, std::size_t count) {
  const auto sent = send(NumberOf(socket), bytes, count, MSG_NOSIGNAL);
  if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
  return static_cast<int>(sent);
}

void ShutdownSendOf(NativeSocket socket) {
  shutdown(NumberOf(socket), SHUT_WR);
}

}  // namespace Tarnlo::test
