// TCP over IPv4 and name resolution.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/os/handle.h"

namespace Tarnlo::os {

using Ipv4Address = std::uint32_t;  // in network byte order: the first octet is lowest in memory

// Asks for version 2.2 of the system's sockets; true when exactly that is granted. Each success is
// balanced by one `StopNetwork`.
bool StartNetwork();
void StopNetwork();

// Every address of the name, in the order the system gives them; empty when it does not resolve.
// A null name means this machine. May block for many seconds.
std::vector<Ipv4Address> ResolveName(const char* name);

std::string DottedText(Ipv4Address address);

enum class Readiness { kReady, kTimedOut, kError };

// A TCP socket. Threads: one thread at a time, closing included.
class Socket {
 public:
  Socket() = default;
  static Socket OpenTcp();

  [[nodiscard]] bool valid() const { return m_handle.valid(); }
  void Close() { m_handle.Reset(); }

  bool SetBlocking(bool blocking);

  enum class ConnectState { kDone, kPending, kFailed };
  ConnectState StartConnect(Ipv4Address address, std::uint16_t port);

  Readiness WaitReadable(std::uint32_t milliseconds) const;
  Readiness WaitWritable(std::uint32_t milliseconds) const;

  // One call each: the count moved, 0 when the peer closed (receiving), -1 on failure.
  int Send(const char* bytes, int count);
  int Receive(char* bytes, int capacity);

 private:
  SocketHandle m_handle;
};

}  // namespace Tarnlo::os
