#include <winsock2.h>
#include <ws2tcpip.h>

#include "tests/support/test_socket.h"

namespace Tarnlo::test {
namespace {

using Native = SOCKET;
bool WouldBlock() {
  return WSAGetLastError() == WSAEWOULDBLOCK;
}
void SetNonBlocking(Native socket) {
  u_long on = 1;
  ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
}

Native NativeOf(const os::SocketHandle& handle) {
  return static_cast<Native>(handle.get());
}

bool Wait(Native socket, bool reading, std::uint32_t milliseconds) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(socket, &set);
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(milliseconds / 1000);
  time.tv_usec = static_cast<decltype(time.tv_usec)>(milliseconds % 1000 * 1000);
  const int count = static_cast<int>(socket) + 1;
  return select(count, reading ? &set : nullptr, reading ? nullptr : &set, nullptr, &time) > 0;
}

template <typename T>
void SetOption(Native socket, int name, const T& value) {
  setsockopt(socket, SOL_SOCKET, name, reinterpret_cast<const char*>(&value), sizeof(value));
}

}  // namespace

os::Ipv4Address AddressOf(const std::string& dotted) {
  return inet_addr(dotted.c_str());
}

bool TestSocket::WaitReadable(std::uint32_t milliseconds) const {
  return Wait(NativeOf(m_handle), true, milliseconds);
}

bool TestSocket::WaitWritable(std::uint32_t milliseconds) const {
  return Wait(NativeOf(m_handle), false, milliseconds);
}

int TestSocket::Receive(char* bytes, std::size_t capacity) {
  return static_cast<int>(recv(NativeOf(m_handle), bytes, static_cast<int>(capacity), 0));
}

int TestSocket::Send(const char* bytes, std::size_t count) {
  const auto sent = send(NativeOf(m_handle), bytes, static_cast<int>(count), 0);
  if (sent < 0 && WouldBlock()) return 0;
  return static_cast<int>(sent);
}

void TestSocket::ShutdownSend() {
  shutdown(NativeOf(m_handle), SD_SEND);
}

void TestSocket::Reset() {
  linger at_once{};
  at_once.l_onoff = 1;
  at_once.l_linger = 0;
  SetOption(NativeOf(m_handle), SO_LINGER, at_once);
  m_handle.Reset();
}

void TestSocket::SetReceiveBuffer(int bytes) {
  SetOption(NativeOf(m_handle), SO_RCVBUF, bytes);
}

TestListener::TestListener(const std::string& address, std::uint16_t port, int backlog)
    : m_network_started(os::StartNetwork()) {
  const Native listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  m_handle.Reset(static_cast<os::SocketHandle::Value>(listener));
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = AddressOf(address);
  int length = sizeof(name);
  auto* const generic = reinterpret_cast<sockaddr*>(&name);
  if (bind(listener, generic, length) != 0 || listen(listener, backlog) != 0 ||
      getsockname(listener, generic, &length) != 0) {
    m_handle.Reset();
    return;
  }
  SetNonBlocking(listener);
  m_port = ntohs(name.sin_port);
}

TestListener::~TestListener() {
  m_handle.Reset();
  if (m_network_started) os::StopNetwork();
}

TestSocket TestListener::Accept(std::uint32_t milliseconds) {
  if (!valid() || !Wait(NativeOf(m_handle), true, milliseconds)) return {};
  const Native accepted = accept(NativeOf(m_handle), nullptr, nullptr);
  TestSocket result(static_cast<os::SocketHandle::Value>(accepted));
  if (result.valid()) SetNonBlocking(accepted);
  return result;
}

}  // namespace Tarnlo::test
