#include "tests/support/test_socket.h"

#include "tests/support/native_socket.h"

namespace Tarnlo::test {

bool TestSocket::WaitReadable(std::uint32_t milliseconds) const {
  return AwaitSocket(m_handle.get(), true, milliseconds);
}

bool TestSocket::WaitWritable(std::uint32_t milliseconds) const {
  return AwaitSocket(m_handle.get(), false, milliseconds);
}

int TestSocket::Receive(char* bytes, std::size_t capacity) {
  return ReceiveFrom(m_handle.get(), bytes, capacity);
}

int TestSocket::Send(const char* bytes, std::size_t count) {
  return SendTo(m_handle.get(), bytes, count);
}

void TestSocket::ShutdownSend() {
  ShutdownSendOf(m_handle.get());
}

void TestSocket::Reset() {
  ResetAtClose(m_handle.get());
  m_handle.Reset();
}

void TestSocket::SetReceiveBuffer(int bytes) {
  SetReceiveBufferOf(m_handle.get(), bytes);
}

TestListener::TestListener(const std::string& address, std::uint16_t port, int backlog)
    : m_network_started(os::StartNetwork()),
      m_handle(ListenAt(address, port, backlog)),
      m_port(PortOf(m_handle.get())) {}

TestListener::~TestListener() {
  m_handle.Reset();
  if (m_network_started) os::StopNetwork();
}

TestSocket TestListener::Accept(std::uint32_t milliseconds) {
  if (!valid() || !AwaitSocket(m_handle.get(), true, milliseconds)) return {};
  return TestSocket(AcceptFrom(m_handle.get()));
}

}  // namespace Tarnlo::test
