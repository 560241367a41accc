#include "transfer/download_http.h"

#include <array>
#include <string_view>

#include "support/os/code_page.h"
#include "support/simple_log.h"
#include "transfer/base64.h"
#include "transfer/range_answer.h"
#include "transfer/request.h"
#include "transfer/response_head.h"

namespace Tarnlo {
namespace {

constexpr std::int32_t kChunkBytes = 20480;
constexpr std::size_t kMaxHead = std::size_t{1024} * 1024;  // bytes

// The bytes of "user:password" in the system's code page, encoded.
std::wstring Base64EncodeCredentials(const std::wstring& text) {
  const auto bytes = os::WideToCodePage(text, os::kAnsi);
  return os::CodePageToWide(EncodeBase64(bytes.value_or("")), os::kUtf8);
}

}  // namespace

void CDownloadHttp::BuildRangeRequest(std::wstring& request) {
  BuildRequestFor(MakeRangeLine(m_range.start(), m_range.length(), m_range.received()), request);
}

void CDownloadHttp::BuildProbeRequest(std::wstring& request) {
  BuildRequestFor(std::wstring(kProbeRangeLine), request);
}

void CDownloadHttp::BuildRequestFor(const std::wstring& range_line, std::wstring& request) {
  if (m_strReferer.empty()) m_strReferer = GetUrlDirectory(m_url.m_strUrl);
  RequestFields fields;
  fields.object = m_url.m_strObject;
  if (!m_strUser.empty()) {
    fields.credentials = Base64EncodeCredentials(m_strUser + L":" + m_strPassword);
  }
  fields.referer = m_strReferer;
  fields.user_agent = m_strUserAgent;
  fields.host = m_url.m_strHost;
  fields.port = m_url.m_nPort;
  fields.cookie = m_strCookie;
  request += BuildRequest(fields, range_line);
}

bool CDownloadHttp::SendRequest(const std::wstring& request, std::wstring& head, char* body,
                                int* body_length) {
  if (m_hStopEvent.IsSet()) return false;
  constexpr StepLog step("CDownloadHttp SendRequest");
  step(1);
  m_Socket.Close();
  if (!ConnectToHost()) {
    step(2);
    return false;
  }
  if (!m_Socket.Send(request.c_str())) {
    step(3);
    return false;
  }
  if (!ReadHead(head, body, body_length)) {
    step(5);
    return false;
  }
  step(6);
  return true;
}

bool CDownloadHttp::ReadHead(std::wstring& head, char* body, int* body_length) {
  constexpr StepLog step("CDownloadHttp SendRequest");
  constexpr std::string_view kEnd = "\r\n\r\n";
  const std::size_t begin = head.size();
  std::size_t taken = 0;  // bytes, which may be more than the characters they stand for
  while (taken < kMaxHead) {
    step(4);
    std::array<char, kChunkBytes> chunk{};
    const std::int32_t count = m_Socket.Receive(chunk.data(), kChunkBytes);
    if (count < 1) return false;
    const std::string_view bytes(chunk.data(), static_cast<std::size_t>(count));
    const std::size_t chunk_begin = head.size();
    head += os::CodePageToWide(bytes, os::kAnsi);
    const std::size_t end = bytes.find(kEnd);
    if (end == std::string_view::npos) {
      taken += bytes.size();
      continue;
    }
    if (taken + end + kEnd.size() > kMaxHead) return false;
    m_bBodyFollowsHead = head.find(kHeadEnd, begin) >= chunk_begin;
    if (body != nullptr && body_length != nullptr && *body_length > 0) {
      const std::string_view rest = bytes.substr(end + kEnd.size());
      const std::size_t copied = rest.copy(body, static_cast<std::size_t>(*body_length));
      *body_length = static_cast<int>(copied);
    }
    return true;
  }
  return false;
}

bool CDownloadHttp::RequestHttpData(char* body, int* body_length) {
  constexpr StepLog step("CDownloadHttp RequestHttpData");
  bool redirected = true;
  while (redirected) {
    step(1);
    std::wstring request;
    BuildRangeRequest(request);
    int length = body_length != nullptr ? *body_length : 0;
    m_strHead.clear();
    if (!SendRequest(request, m_strHead, body, &length)) {
      step(2);
      return false;
    }
    bool content_error = false;
    if (!ParseResponseString(m_strHead, redirected, content_error)) {
      step(3);
      return false;
    }
    if (!redirected && body_length != nullptr) *body_length = length;
  }
  step(4);
  return true;
}

bool CDownloadHttp::GetRemoteSiteInfo_Pro() {
  constexpr StepLog step("CDownloadHttp GetRemoteSiteInfo_Pro");
  step(1);
  if (!RequestHttpData(nullptr, nullptr)) {
    step(2);
    return false;
  }
  step(3);
  ProbeRangeSupport();  // one that fails leaves the flag clear
  return true;
}

bool CDownloadHttp::ProbeRangeSupport() {
  if (m_bRangeSupported) return true;
  bool redirected = true;
  while (redirected) {
    std::wstring request;
    std::wstring head;
    BuildProbeRequest(request);
    if (!SendRequest(request, head, nullptr, nullptr)) return false;
    if (!ParseRedirectResponse(head, redirected)) return false;
  }
  return true;
}

bool CDownloadHttp::DownloadOnce() {
  const std::int64_t length = m_range.length();
  const std::int64_t received = m_range.received();
  const auto log = [&](int step) {
    LogInfo("CDownloadHttp DownloadOnce %d: %ld %ld", step, Low32(length), Low32(received));
  };
  log(1);
  if (length >= 1 && received >= length) {
    log(2);
    return true;
  }
  if (!CDownloadBase::DownloadOnce()) return false;
  std::array<char, kChunkBytes> body{};
  int count = kChunkBytes;
  if (!RequestHttpData(body.data(), &count) || !AcceptBody()) {
    LogInfo("CDownloadHttp DownloadOnce 3: %d", count);
    return false;
  }
  LogInfo("CDownloadHttp DownloadOnce 4: %d", count);
  return RecvDataAndSaveToFile(m_Socket, body.data(), count);
}

bool CDownloadHttp::AcceptBody() {
  if (!m_bBodyFollowsHead) return false;
  const std::int64_t start = m_range.start();
  switch (AcceptRangeAnswer(m_strHead, start, start + m_range.received())) {
    case RangeAnswer::kAccepted:
      return true;
    case RangeAnswer::kStartOver:
      m_range.StartOver();
      return m_hFile.Seek(start);
    case RangeAnswer::kRefused:
      break;
  }
  return false;
}

}  // namespace Tarnlo
