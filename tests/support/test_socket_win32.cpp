#include "tests/support/native_socket.h"

namespace Tarnlo::test {

void SetNonBlocking(NativeSocket socket) {
  u_long on = 1;
  ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
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

void SetSocketOption(NativeSocket socket, int name, const void* value, std::size_t size) {
  setsockopt(socket, SOL_SOCKET, name, static_cast<const char*>(value), static_cast<int>(size));
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
