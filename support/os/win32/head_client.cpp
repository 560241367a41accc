#include "support/os/head_client.h"

#include <array>
#include <atomic>

#include "support/os/fault_point.h"
#include "support/os/win32/windows_api.h"
// After windows.h, whose types it uses.
#include <winhttp.h>

namespace Tarnlo::os {
namespace {

constexpr DWORD kCrackBuffer = 512;
constexpr int kResolveMs = 10;
constexpr int kConnectMs = 6;
constexpr int kSendMs = 6;
constexpr int kReceiveMs = 10;
constexpr DWORD kLengthAsNumber = WINHTTP_QUERY_CONTENT_LENGTH | WINHTTP_QUERY_FLAG_NUMBER;
static_assert(kLengthAsNumber == 0x20000005);

std::atomic<int> g_open_handles{0};

struct HeadHandleTraits {
  using Value = HINTERNET;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value value) { return value != nullptr; }
  static void Close(Value value) {
    WinHttpCloseHandle(value);
    g_open_handles.fetch_sub(1);
  }
};
using HeadHandle = UniqueHandle<HeadHandleTraits>;

HeadHandle Counted(HINTERNET value) {
  if (value != nullptr) g_open_handles.fetch_add(1);
  return HeadHandle(value);
}

std::wstring DottedWide(Ipv4Address address) {
  const std::string text = DottedText(address);
  return {text.begin(), text.end()};
}

// The length that the answer to a request names; false when there is no answer or no length.
bool QueryLength(HINTERNET connection, const HeadRequest& request, std::uint32_t& length) {
  const HeadHandle exchange = Counted(
      WinHttpOpenRequest(connection, L"HEAD", request.path.c_str(), L"HTTP/1.1", WINHTTP_NO_REFERER,
                         WINHTTP_DEFAULT_ACCEPT_TYPES, request.refresh ? WINHTTP_FLAG_REFRESH : 0));
  if (!exchange.valid()) return false;
  const std::wstring host = L"Host: " + request.host;
  if (WinHttpAddRequestHeaders(exchange.get(), host.c_str(), static_cast<DWORD>(-1),
                               WINHTTP_ADDREQ_FLAG_ADD) == 0 ||
      WinHttpSendRequest(exchange.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA,
                         0, 0, 0) == 0 ||
      WinHttpReceiveResponse(exchange.get(), nullptr) == 0) {
    return false;
  }
  DWORD number = 0;
  DWORD size = sizeof(number);
  if (WinHttpQueryHeaders(exchange.get(), kLengthAsNumber, WINHTTP_HEADER_NAME_BY_INDEX, &number,
                          &size, WINHTTP_NO_HEADER_INDEX) == 0) {
    return false;
  }
  length = number;
  return true;
}

}  // namespace

CrackedUrl CrackUrl(const std::wstring& url, RoomFor room) {
  std::array<std::array<wchar_t, kCrackBuffer>, 6> buffers{};
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  parts.lpszHostName = buffers[0].data();
  parts.lpszUrlPath = buffers[1].data();
  parts.lpszExtraInfo = buffers[2].data();
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = kCrackBuffer;
  if (room == RoomFor::kAllParts) {
    parts.lpszScheme = buffers[3].data();
    parts.lpszUserName = buffers[4].data();
    parts.lpszPassword = buffers[5].data();
    parts.dwSchemeLength = parts.dwUserNameLength = parts.dwPasswordLength = kCrackBuffer;
  }
  if (WinHttpCrackUrl(url.c_str(), 0, ICU_ESCAPE, &parts) == 0) return {};
  return {buffers[0].data(), buffers[1].data(), parts.nPort};
}

HeadAnswer SendHead(const HeadRequest& request, std::atomic<HeadStage>* reached) {
  HeadAnswer answer;
  if (Fails(Call::kHead)) return answer;
  const auto reach = [&](HeadStage stage) {
    answer.reached = stage;
    if (reached != nullptr) reached->store(stage);
  };
  const HeadHandle session = Counted(WinHttpOpen(
      nullptr, WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  if (!session.valid()) return answer;
  reach(HeadStage::kSessionOpened);
  WinHttpSetTimeouts(session.get(), kResolveMs, kConnectMs, kSendMs, kReceiveMs);
  const HeadHandle connection =
      Counted(WinHttpConnect(session.get(), DottedWide(request.address).c_str(), request.port, 0));
  if (!connection.valid()) return answer;
  reach(HeadStage::kConnected);
  if (QueryLength(connection.get(), request, answer.content_length)) {
    reach(HeadStage::kLengthKnown);
  }
  return answer;
}

int OpenHeadHandles() {
  return g_open_handles.load();
}

}  // namespace Tarnlo::os
