// The server's side of TCP, for tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "support/os/handle.h"
#include "support/os/net.h"

namespace Tarnlo::test {

// "127.0.0.1" as the library has it.
os::Ipv4Address AddressOf(const std::string& dotted);

// One end of a connection that was accepted. Never blocks longer than asked.
class TestSocket {
 public:
  TestSocket() = default;
  explicit TestSocket(os::SocketHandle handle) : m_handle(std::move(handle)) {}

  [[nodiscard]] bool valid() const { return m_handle.valid(); }
  [[nodiscard]] bool WaitReadable(std::uint32_t milliseconds) const;
  [[nodiscard]] bool WaitWritable(std::uint32_t milliseconds) const;
  // Bytes moved; 0 when the peer closed (receiving) or nothing moved (sending); -1 on failure.
  int Receive(char* bytes, std::size_t capacity);
  int Send(const char* bytes, std::size_t count);
  void ShutdownSend();
  void Reset();  // ends the connection with a reset
  void Close() { m_handle.Reset(); }
  // Fails the peer's sends sooner: how much the system takes in for us.
  void SetReceiveBuffer(int bytes);

 private:
  os::SocketHandle m_handle;
};

// Threads: accepts on one, closed by the same.
class TestListener {
 public:
  // Port 0 takes a free one. A listener that could not be had is not valid.
  TestListener(const std::string& address, std::uint16_t port, int backlog);
  TestListener(const TestListener&) = delete;
  TestListener& operator=(const TestListener&) = delete;
  ~TestListener();

  [[nodiscard]] bool valid() const { return m_handle.valid(); }
  [[nodiscard]] std::uint16_t port() const { return m_port; }
  // Not valid when nobody came in time.
  TestSocket Accept(std::uint32_t milliseconds);

 private:
  const bool m_network_started;
  os::SocketHandle m_handle;
  const std::uint16_t m_port;
};

}  // namespace Tarnlo::test
