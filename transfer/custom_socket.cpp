#include "transfer/custom_socket.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "hosts/network_use.h"
#include "support/os/clock.h"
#include "support/os/code_page.h"
#include "support/os/wait.h"
#include "support/run_aside.h"
#include "support/simple_log.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr std::uint32_t kConnectMs = 5000;  // each of two waits
constexpr std::uint32_t kSendMs = 30000;
constexpr std::uint32_t kReceiveMs = 10000;
constexpr std::uint32_t kSliceMs = 50;  // how late a stop may be noticed

// A resolver left behind may outlive the socket that asked.
os::Ipv4Address FirstAddress(const std::optional<std::string>& name) {
  const NetworkUse network;
  const auto addresses = os::ResolveName(name ? name->c_str() : nullptr);
  return addresses.empty() ? 0 : addresses.front();
}

}  // namespace

CCustomizeSocket::CCustomizeSocket() : m_network_started(InitWinsock()) {
  // Nothing here draws random numbers; a host that does on this thread finds its generator seeded.
  std::srand(static_cast<unsigned>(os::UnixSeconds()));
}

CCustomizeSocket::~CCustomizeSocket() {
  Close();
  if (m_network_started) os::StopNetwork();
}

bool CCustomizeSocket::InitWinsock() {
  return os::StartNetwork();
}

os::Ipv4Address CCustomizeSocket::ResolveHost(const wchar_t* name) const {
  std::optional<std::string> narrow;
  if (name != nullptr) narrow = NarrowHostName(name);
  return RunAside<os::Ipv4Address>([narrow] { return FirstAddress(narrow); }, m_stop, os::kForever)
      .value_or(0);
}

bool CCustomizeSocket::Connect(const wchar_t* name, std::uint16_t port) {
  if (name == nullptr) {
    LogWarn("CCustomizeSocket Connect 1");
    return false;
  }
  const os::Ipv4Address address = ResolveHost(name);
  if (address == 0) {
    LogWarn("CCustomizeSocket Connect 2");
    return false;
  }
  return Connect(address, port);
}

bool CCustomizeSocket::Connect(os::Ipv4Address address, std::uint16_t port) {
  Close();
  os::Socket socket = os::Socket::OpenTcp();
  if (!socket.valid()) {
    LogWarn("CCustomizeSocket Connect 3: %ld", Low32(address));
    return false;
  }
  const std::string dotted = os::DottedText(address);
  if (!socket.SetBlocking(false)) {
    LogWarn("CCustomizeSocket Connect 4: %d", -1);
    return false;
  }
  if (socket.StartConnect(address, port) == os::Socket::ConnectState::kFailed) {
    LogWarn("CCustomizeSocket Connect 5: %d", -1);
    return false;
  }
  if (!AwaitConnected(socket)) {
    LogWarn("CCustomizeSocket Connect 6");
    return false;
  }
  if (!socket.SetBlocking(true)) {
    LogWarn("CCustomizeSocket Connect 7: %d", -1);
    return false;
  }
  m_socket = std::move(socket);
  m_ip = address;
  m_connected = true;
  m_strIp.assign(dotted.begin(), dotted.end());
  m_port = port;
  LogInfo("CCustomizeSocket Connect ip: %s", dotted.c_str());
  return true;
}

// Only writability is watched, so a refusal is seen by nothing but the end of both waits; an error
// of the wait itself counts as connected and shows at the first send.
bool CCustomizeSocket::AwaitConnected(const os::Socket& socket) const {
  Awaited outcome = Awaited::kTimedOut;
  for (int attempt = 0; attempt < 2 && outcome == Awaited::kTimedOut; ++attempt) {
    outcome = Await(socket, Side::kWrite, kConnectMs);
  }
  return outcome == Awaited::kReady || outcome == Awaited::kError;
}

void CCustomizeSocket::Close() {
  m_connected = false;
  m_socket.Close();
  m_ip = 0;
}

bool CCustomizeSocket::Send(const char* bytes, std::int32_t count) {
  if (bytes == nullptr || count < 1) return true;
  if (!m_connected) return false;
  if (Await(m_socket, Side::kWrite, kSendMs) != Awaited::kReady) return false;
  return m_socket.Send(bytes, count) != -1;
}

bool CCustomizeSocket::Send(const wchar_t* text) {
  const std::wstring_view view(text);
  if (view.size() >= kMaxText) return false;
  // The terminator is converted and sent with the text.
  const auto bytes = os::WideToCodePage(std::wstring_view(text, view.size() + 1), os::kAnsi);
  if (!bytes) return true;
  return Send(bytes->data(), static_cast<std::int32_t>(bytes->size()));
}

std::int32_t CCustomizeSocket::Receive(char* buffer, std::int32_t capacity) {
  if (capacity < 0) return -1;
  const auto fail = [](int number) {
    LogInfo("CCustomizeSocket Receive err %d", number);
    return -1;
  };
  if (!m_connected) return fail(1);
  switch (Await(m_socket, Side::kRead, kReceiveMs)) {
    case Awaited::kError:
      return fail(3);
    case Awaited::kTimedOut:
      return fail(4);
    case Awaited::kStopped:
      return fail(6);
    case Awaited::kReady:
      break;
  }
  const int count = m_socket.Receive(buffer, capacity);
  if (count < 0) return fail(6);
  if (count == 0) {
    fail(5);
    Close();
  }
  return count;
}

CCustomizeSocket::Awaited CCustomizeSocket::Await(const os::Socket& socket, Side side,
                                                  std::uint32_t limit_ms) const {
  const std::uint32_t begin = os::TickMs();
  for (;;) {
    if (m_stop != nullptr && m_stop->IsSet()) return Awaited::kStopped;
    const std::uint32_t elapsed = os::TickMs() - begin;
    const std::uint32_t slice = elapsed < limit_ms ? std::min(kSliceMs, limit_ms - elapsed) : 0;
    const os::Readiness readiness =
        side == Side::kRead ? socket.WaitReadable(slice) : socket.WaitWritable(slice);
    if (readiness == os::Readiness::kReady) return Awaited::kReady;
    if (readiness == os::Readiness::kError) return Awaited::kError;
    if (slice == 0) return Awaited::kTimedOut;
  }
}

}  // namespace Tarnlo
