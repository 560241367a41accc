#include <fcntl.h>
#include <poll.h>

#include <cerrno>

#include "tests/support/native_socket.h"

namespace Tarnlo::test {

void SetNonBlocking(NativeSocket socket) {
  fcntl(socket, F_SETFL, O_NONBLOCK);
}

bool AwaitSocket(NativeSocket socket, bool reading, std::uint32_t milliseconds) {
  pollfd entry{socket, static_cast<short>(reading ? POLLIN : POLLOUT), 0};
  return poll(&entry, 1, static_cast<int>(milliseconds)) > 0;
}

void SetSocketOption(NativeSocket socket, int name, const void* value, std::size_t size) {
  setsockopt(socket, SOL_SOCKET, name, value, static_cast<socklen_t>(size));
}

int ReceiveFrom(NativeSocket socket, char* bytes, std::size_t capacity) {
  return static_cast<int>(recv(socket, bytes, capacity, 0));
}

int SendTo(NativeSocket socket, const char* bytes, std::size_t count) {
  const auto sent = send(socket, bytes, count, MSG_NOSIGNAL);
  if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
  return static_cast<int>(sent);
}

void ShutdownSendOf(NativeSocket socket) {
  shutdown(socket, SHUT_WR);
}

}  // namespace Tarnlo::test
