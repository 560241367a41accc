#include "support/os/head_client.h"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>

#include "support/os/code_page.h"
#include "support/os/fault_point.h"

namespace Tarnlo::os {
namespace {

constexpr long kConnectMs = 16;   // resolve and connect
constexpr long kExchangeMs = 16;  // send and receive
constexpr long kMaxRedirects = 10;
constexpr std::size_t kMaxPart = 511;

std::atomic<int> g_open_handles{0};

struct CurlTraits {
  using Value = CURL*;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value value) { return value != nullptr; }
  static void Close(Value value) {
    curl_easy_cleanup(value);
    g_open_handles.fetch_sub(1);
  }
};
using CurlHandle = UniqueHandle<CurlTraits>;

CurlHandle OpenSession() {
  static const bool started = curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK;
  CURL* const session = started ? curl_easy_init() : nullptr;
  if (session != nullptr) g_open_handles.fetch_add(1);
  return CurlHandle(session);
}

// Lines of a request's head.
class HeaderList {
 public:
  HeaderList() = default;
  HeaderList(const HeaderList&) = delete;
  HeaderList& operator=(const HeaderList&) = delete;
  ~HeaderList() { curl_slist_free_all(m_list); }
  void Add(const std::string& line) { m_list = curl_slist_append(m_list, line.c_str()); }
  [[nodiscard]] curl_slist* get() const { return m_list; }

 private:
  curl_slist* m_list = nullptr;
};

std::string Narrow(const std::wstring& text) {
  return WideToCodePage(text, kUtf8).value_or("");
}

// The length that the answer to a request names; false when there is no answer or no length.
bool QueryLength(CURL* session, const HeadRequest& request, std::uint32_t& length) {
  const std::string url = "http://" + DottedText(request.address) + ":" +
                          std::to_string(request.port) +
                          (request.path.empty() ? "/" : Narrow(request.path));
  HeaderList headers;
  headers.Add("Host: " + Narrow(request.host));
  headers.Add("Accept:");
  if (request.refresh) {
    headers.Add("Pragma: no-cache");
    headers.Add("Cache-Control: no-cache");
  }
  curl_easy_setopt(session, CURLOPT_URL, url.c_str());
  curl_easy_setopt(session, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(session, CURLOPT_NOBODY, 1L);
  curl_easy_setopt(session, CURLOPT_NOPROXY, "*");
  curl_easy_setopt(session, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(session, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(session, CURLOPT_MAXREDIRS, kMaxRedirects);
  curl_easy_setopt(session, CURLOPT_CONNECTTIMEOUT_MS, kConnectMs);
  curl_easy_setopt(session, CURLOPT_TIMEOUT_MS, kConnectMs + kExchangeMs);
  curl_off_t number = -1;
  if (curl_easy_perform(session) != CURLE_OK ||
      curl_easy_getinfo(session, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &number) != CURLE_OK ||
      number < 0) {
    return false;
  }
  // A longer one is told as the largest signed number.
  constexpr curl_off_t kMaxLength = std::numeric_limits<std::int32_t>::max();
  length = static_cast<std::uint32_t>(std::min(number, kMaxLength));
  return true;
}

std::wstring Escaped(const std::wstring& path) {
  constexpr std::wstring_view kEscaped = L" \"#%<>[\\]^`{|}~";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::wstring result;
  for (const char c : Narrow(path)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 31 && byte < 127 && kEscaped.find(byte) == std::wstring_view::npos) {
      result += static_cast<wchar_t>(byte);
    } else {
      result += L'%';
      result += static_cast<wchar_t>(kDigits[byte >> 4]);
      result += static_cast<wchar_t>(kDigits[byte & 15]);
    }
  }
  return result;
}

// Takes ":port" off the end; false when it is no port.
bool TakePort(std::wstring& host, std::uint16_t& port) {
  const std::size_t colon = host.find(L':');
  if (colon == std::wstring::npos) return true;
  const std::wstring digits = host.substr(colon + 1);
  host.resize(colon);
  unsigned number = 0;
  for (const wchar_t c : digits) {
    if (c < L'0' || c > L'9') return false;
    number = number * 10 + static_cast<unsigned>(c - L'0');
    if (number > std::numeric_limits<std::uint16_t>::max()) return false;
  }
  if (!digits.empty()) port = static_cast<std::uint16_t>(number);
  return true;
}

// Takes "user:password@" off the front; false when one of them does not fit its room.
bool TakeUser(std::wstring& host, RoomFor room) {
  const std::size_t at = host.rfind(L'@');
  if (at == std::wstring::npos) return true;
  const std::size_t user_end = std::min(host.find(L':'), at);
  host.erase(0, at + 1);
  return room != RoomFor::kAllParts || (user_end <= kMaxPart && at - user_end <= kMaxPart + 1);
}

}  // namespace

CrackedUrl CrackUrl(const std::wstring& url, RoomFor room) {
  CrackedUrl parts;
  std::size_t begin = 0;
  if (url.starts_with(L"http://")) {
    begin = 7;
    parts.port = 80;
  } else if (url.starts_with(L"https://")) {
    begin = 8;
    parts.port = 443;
  } else {
    return {};
  }
  const std::size_t host_end = std::min(url.find_first_of(L"/?#", begin), url.size());
  const std::size_t path_end = std::min(url.find_first_of(L"?#", host_end), url.size());
  parts.host = url.substr(begin, host_end - begin);
  parts.path = Escaped(url.substr(host_end, path_end - host_end));
  if (!TakeUser(parts.host, room) || !TakePort(parts.host, parts.port) || parts.host.empty() ||
      parts.host.size() > kMaxPart || parts.host.find(L'\\') != std::wstring::npos ||
      parts.path.size() > kMaxPart || url.size() - path_end > kMaxPart) {
    return {};
  }
  return parts;
}

HeadAnswer SendHead(const HeadRequest& request, std::atomic<HeadStage>* reached) {
  HeadAnswer answer;
  if (Fails(Call::kHead)) return answer;
  const auto reach = [&](HeadStage stage) {
    answer.reached = stage;
    if (reached != nullptr) reached->store(stage);
  };
  const CurlHandle session = OpenSession();
  if (!session.valid()) return answer;
  // A connection is made by sending only.
  reach(HeadStage::kConnected);
  if (QueryLength(session.get(), request, answer.content_length)) {
    reach(HeadStage::kLengthKnown);
  }
  return answer;
}

int OpenHeadHandles() {
  return g_open_handles.load();
}

}  // namespace Tarnlo::os
