#include "tests/support/test_socket.h"

#include "tests/support/native_socket.h"

namespace Tarnlo::test {
namespace {

NativeSocket NativeOf(const os::SocketHandle& handle) {
  return static_cast<NativeSocket>(handle.get());
}

}  // namespace

os::Ipv4Address AddressOf(const std::string& dotted) {
  return inet_addr(dotted.c_str());
}

bool TestSocket::WaitReadable(std::uint32_t milliseconds) const {
  return AwaitSocket(NativeOf(m_handle), true, milliseconds);
}

bool TestSocket::WaitWritable(std::uint32_t milliseconds) const {
  return AwaitSocket(NativeOf(m_handle), false, milliseconds);
}

int TestSocket::Receive(char* bytes, std::size_t capacity) {
  return ReceiveFrom(NativeOf(m_handle), bytes, capacity);
}

int TestSocket::Send(const char* bytes, std::size_t count) {
  return SendTo(NativeOf(m_handle), bytes, count);
}

void TestSocket::ShutdownSend() {
  ShutdownSendOf(NativeOf(m_handle));
}

void TestSocket::Reset() {
  linger at_once{};
  at_once.l_onoff = 1;
  at_once.l_linger = 0;
  SetSocketOption(NativeOf(m_handle), SO_LINGER, &at_once, sizeof(at_once));
  m_handle.Reset();
}

void TestSocket::SetReceiveBuffer(int bytes) {
  SetSocketOption(NativeOf(m_handle), SO_RCVBUF, &bytes, sizeof(bytes));
}

TestListener::TestListener(const std::string& address, std::uint16_t port, int backlog)
    : m_network_started(os::StartNetwork()) {
  const NativeSocket listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  m_handle.Reset(static_cast<os::SocketHandle::Value>(listener));
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = AddressOf(address);
  socklen_t length = sizeof(name);
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
  if (!valid() || !AwaitSocket(NativeOf(m_handle), true, milliseconds)) return {};
  const NativeSocket accepted = accept(NativeOf(m_handle), nullptr, nullptr);
  TestSocket result(static_cast<os::SocketHandle::Value>(accepted));
  if (result.valid()) SetNonBlocking(accepted);
  return result;
}

}  // namespace Tarnlo::test
