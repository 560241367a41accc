// A TCP connection with a limit on every wait.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "support/os/event.h"
#include "support/os/net.h"

namespace Tarnlo {

// Owns one IPv4 socket and one start of the system's network. Connect, send and receive wait for
// the socket in short slices and give up when the stop event is set. Every failure is a logged
// return value.
//
// Threads: one at a time, closing included; `TakeIp` and `ip` may be called by any.
// Lifetime: the stop event, where one is given, outlives the object.
// States: closed (no socket, address 0) and connected. `Connect` starts from closed whatever was
// open. A failed send and a receive that failed or took too long leave the connection as it is.
class CCustomizeSocket {
 public:
  CCustomizeSocket();
  CCustomizeSocket(const CCustomizeSocket&) = delete;
  CCustomizeSocket& operator=(const CCustomizeSocket&) = delete;
  virtual ~CCustomizeSocket();

  static bool InitWinsock();

  void SetStopEvent(const os::Event* stop) { m_stop = stop; }

  // The first address of the name, 0 when it has none or when stopped. Null means this machine.
  [[nodiscard]] os::Ipv4Address ResolveHost(const wchar_t* name) const;

  bool Connect(const wchar_t* name, std::uint16_t port);
  bool Connect(os::Ipv4Address address, std::uint16_t port);
  // Without a word to the log; a closed socket may be closed again.
  void Close();

  // One send for all; what the system does not take of it is not sent. Nothing to send is sent.
  // A stop ends the wait for room. The send itself would block beyond the stop's reach, and only
  // the forced end of its thread would end it, where the system has some room but not for all:
  // not in the product, whose one send on a connection is a request that finds the system's empty
  // buffer larger than itself.
  bool Send(const char* bytes, std::int32_t count);
  // In the system's code page, with the terminating zero, which goes on the wire too. Text of
  // `kMaxText` characters or more is refused.
  bool Send(const wchar_t* text);
  // Bytes read, 0 when the peer closed, -1 on failure, after ten seconds, and when stopped.
  std::int32_t Receive(char* buffer, std::int32_t capacity);

  [[nodiscard]] bool connected() const { return m_connected; }
  [[nodiscard]] const std::wstring& GetIp() const { return m_strIp; }
  [[nodiscard]] std::uint16_t port() const { return m_port; }
  [[nodiscard]] os::Ipv4Address ip() const { return m_ip; }
  // The connected address, for the one who asks first; 0 for all later ones.
  os::Ipv4Address TakeIp() { return m_ip.exchange(0); }

  static constexpr std::size_t kMaxText = 20480;

 private:
  enum class Side { kRead, kWrite };
  enum class Awaited { kReady, kTimedOut, kError, kStopped };
  Awaited Await(const os::Socket& socket, Side side, std::uint32_t limit_ms) const;
  [[nodiscard]] bool AwaitConnected(const os::Socket& socket) const;

  const bool m_network_started;
  os::Socket m_socket;
  bool m_connected = false;
  const os::Event* m_stop = nullptr;
  std::uint16_t m_port = 0;
  std::wstring m_strIp;
  std::atomic<os::Ipv4Address> m_ip{0};
};

}  // namespace Tarnlo
