// What an answer means to the worker.
#include <algorithm>

#include "support/simple_log.h"
#include "support/text.h"
#include "transfer/download_http.h"
#include "transfer/redirect.h"
#include "transfer/response_head.h"

namespace Tarnlo {
namespace {

constexpr StepLog kStep("CDownloadHttp ParseResponseString");
constexpr std::int32_t kPartialContent = 206;

bool IsRedirect(std::int32_t status) {
  return status >= 300 && status <= 399;
}
bool IsSuccess(std::int32_t status) {
  return status >= 200 && status <= 299;
}

}  // namespace

bool CDownloadHttp::ParseResponseString(const std::wstring& head, bool& redirected,
                                        bool& content_error) {
  redirected = false;
  content_error = false;
  const std::int32_t status = ParseStatusCode(head);
  if (status == 0) {
    kStep(1);
    return false;
  }
  if (IsRedirect(status)) {
    redirected = true;
    return FollowLocation(head, true);
  }
  if (!IsSuccess(status)) return false;
  if (GetHeaderValue(head, L"content-type:").find(L"error") != std::wstring::npos) {
    content_error = true;
    kStep(6);
    return false;
  }
  if (m_setup.index == kProbeIndex) KeepRemoteInfo(head);
  const std::wstring modified = GetHeaderValue(head, L"last-modified:");
  if (!modified.empty()) {
    kStep(8);
    m_strLastModified = ConvertHttpDate(modified);
  }
  m_bRangeSupported = status == kPartialContent;
  kStep(m_bRangeSupported ? 9 : 10);
  return true;
}

bool CDownloadHttp::ParseRedirectResponse(const std::wstring& head, bool& redirected) {
  redirected = false;
  const std::int32_t status = ParseStatusCode(head);
  if (IsRedirect(status)) {
    redirected = true;
    return FollowLocation(head, false);
  }
  if (!IsSuccess(status)) return false;
  m_bRangeSupported = status == kPartialContent;
  return true;
}

bool CDownloadHttp::FollowLocation(const std::wstring& head, bool logged) {
  const LocationResult result =
      ApplyLocation(GetHeaderValue(head, L"location:"), m_url, m_strReferer);
  int number = 5;
  if (result.kind == LocationKind::kAbsolute) {
    if (result.usable) m_strEffectiveUrl = m_url.m_strUrl;
    number = result.usable ? 3 : 2;
  } else if (result.kind == LocationKind::kPath) {
    number = 4;
  }
  if (logged) kStep(number);
  return result.usable;
}

void CDownloadHttp::KeepRemoteInfo(const std::wstring& head) {
  kStep(7);
  // A negative length is none: as one, it would be taken for a file of too many bytes.
  m_nContentLength =
      std::max<std::int64_t>(ParseNumber(GetHeaderValue(head, L"content-length:")), 0);
  if (!IsNotifying()) return;
  SendTextEvent(m_setup.observer, m_setup.task_id, kEventRemoteName, RemoteFileName().c_str());
  SendEvent(m_setup.observer, kWholeJob, m_setup.task_id, kEventContentLength, m_nContentLength);
}

}  // namespace Tarnlo
