#include <winsock2.h>

#include "tests/support/native_socket.h"
#include "tests/support/test_socket.h"

namespace Tarnlo::test {
namespace {

os::SocketHandle NotBlocking(SOCKET socket) {
  os::SocketHandle handle(socket);
  u_long on = 1;
  if (handle.valid()) ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
  return handle;
}

void SetOption(NativeSocket socket, int name, const void* value, std::size_t size) {
  setsockopt(socket, SOL_SOCKET, name, static_cast<const char*>(value), static_cast<int>(size));
}

}  // namespace

os::Ipv4Address AddressOf(const std::string& dotted) {
  return inet_addr(dotted.c_str());
}

os::SocketHandle ListenAt(const std::string& address, std::uint16_t port, int backlog) {
  os::SocketHandle listener = NotBlocking(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = AddressOf(address);
  if (bind(listener.get(), reinterpret_cast<sockaddr*>(&name), sizeof(name)) != 0 ||
      listen(listener.get(), backlog) != 0) {
    listener.Reset();
  }
  return listener;
}

os::SocketHandle AcceptFrom(NativeSocket listener) {
  return NotBlocking(accept(listener, nullptr, nullptr));
}

std::uint16_t PortOf(NativeSocket listener) {
  sockaddr_in name{};
  int length = sizeof(name);
  getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length);
  return ntohs(name.sin_port);
}

bool AwaitSocket(NativeSocket socket, bool reading, std::uint32_t milliseconds) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(socket, &set);
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(milliseconds / 1000);
  time.tv_usec = static_cast<decltype(time.tv_usec)>(milliseconds % 1000 * 1000);
  const int count = static_cast<int>(socket) + 1;
  return select(count, reading ? &set : nullptr, reading ? nullptr : &set, nullptr, &time) > 0;
}

void SetReceiveBufferOf(NativeSocket socket, int bytes) {
  SetOption(socket, SO_RCVBUF, &bytes, sizeof(bytes));
}

void ResetAtClose(NativeSocket socket) {
  constexpr linger kAtOnce{1, 0};
  SetOption(socket, SO_LINGER, &kAtOnce, sizeof(kAtOnce));
}

int ReceiveFrom(NativeSocket socket, char* bytes, std::size_t capacity) {
  return recv(socket, bytes, static_cast<int>(capacity), 0);
}

int SendTo(NativeSocket socket, const char* bytes, std::size_t count) {
  const int sent = send(socket, bytes, static_cast<int>(count), 0);
  return sent < 0 && WSAGetLastError() == WSAEWOULDBLOCK ? 0 : sent;
}

void ShutdownSendOf(NativeSocket socket) {
  shutdown(socket, SD_SEND);
}

}  // namespace Tarnlo::test
