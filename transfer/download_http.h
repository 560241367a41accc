// A transfer worker that speaks HTTP/1.1.
#pragma once

#include <cstdint>
#include <string>

#include "transfer/download_base.h"

namespace Tarnlo {

// Sends one of two GET requests over the worker's connection, for what is missing of its range or
// for the first two bytes, follows redirects without end, and hands the body to the receive loop.
//
// Threads: the worker's own, or the one that calls `GetRemoteSiteInfo`.
class CDownloadHttp : public CDownloadBase {
 public:
  CDownloadHttp() = default;
  CDownloadHttp(const CDownloadHttp&) = delete;
  CDownloadHttp& operator=(const CDownloadHttp&) = delete;
  // Stops first: the thread calls this class's operations.
  ~CDownloadHttp() override { Stop(); }

  bool GetRemoteSiteInfo_Pro() override;
  bool DownloadOnce() override;

  void SetCookie(const std::wstring& cookie) { m_strCookie = cookie; }

 protected:
  void BuildRangeRequest(std::wstring& request);
  void BuildProbeRequest(std::wstring& request);

  // Connects anew, sends, and appends the answer to `head` up to and including the chunk that
  // holds the empty line. That line is found within one chunk only. Bytes behind it go to `body`,
  // at most `*body_length`, which becomes their number; both may be null.
  bool SendRequest(const std::wstring& request, std::wstring& head, char* body, int* body_length);
  // True when a range request was answered by other than a redirect, an error or an error page.
  bool RequestHttpData(char* body, int* body_length);
  bool ProbeRangeSupport();

  // Judge an answer and keep what it says. `redirected`: the URL has changed, ask again.
  bool ParseResponseString(const std::wstring& head, bool& redirected, bool& content_error);
  bool ParseRedirectResponse(const std::wstring& head, bool& redirected);

 private:
  void BuildRequestFor(const std::wstring& range_line, std::wstring& request);
  bool ReadHead(std::wstring& head, char* body, int* body_length);
  // Whether the body of the last answer belongs where the file is positioned, which it may move to
  // the range's start.
  bool AcceptBody();
  bool FollowLocation(const std::wstring& head, bool logged);
  void KeepRemoteInfo(const std::wstring& head);

  std::wstring m_strHead;           // of the last accepted answer, last chunk included
  bool m_bBodyFollowsHead = false;  // no empty line was missed before the one that was found
};

}  // namespace Tarnlo
