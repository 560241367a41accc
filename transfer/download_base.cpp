#include "transfer/download_base.h"

#include "hosts/down_host_mgr.h"
#include "support/simple_log.h"
#include "transfer/current_job.h"
#include "transfer/url_file_name.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kStackBytes = 0x800000;
constexpr std::uint32_t kStopMs = 1000;
constexpr std::uint32_t kRetryMs = 100;
constexpr int kAttempts = 2;
constexpr wchar_t kUserAgent[] = L"Mozilla/4.0 (compatible; MSIE 8.0; Windows NT 6.1; Trident/4.0)";

}  // namespace

CDownloadBase::CDownloadBase() : m_strUserAgent(kUserAgent) {
  Reset();
}

CDownloadBase::~CDownloadBase() {
  Stop();
}

bool CDownloadBase::SetUrl(const std::wstring& url) {
  return Tarnlo::SetUrl(m_url, url);
}

void CDownloadBase::SetCredentials(const wchar_t* user, const wchar_t* password) {
  m_strUser = user != nullptr ? user : L"";
  m_strPassword = user != nullptr && password != nullptr ? password : L"";
}

std::wstring CDownloadBase::RemoteFileName() const {
  return GetUrlFileName(m_url.m_strObject).name;
}

bool CDownloadBase::IsNotifying() const {
  return m_setup.owner == nullptr || m_setup.owner->IsNotifying();
}

// --- Range -------------------------------------------------------------------------------------

void CDownloadBase::Reset() {
  CloseThread();
  m_range.Assign(0, 0, 0);
  m_bSucceeded = false;
  m_hFile.Close();
}

void CDownloadBase::TakeRange(std::int64_t start, std::int64_t length, std::int64_t received) {
  Reset();
  m_range.Assign(start, length, received);
}

void CDownloadBase::SetRangeLength(std::int64_t length) {
  m_range.SetLength(length);
  ReportRangeLength();
}

void CDownloadBase::ReportRangeLength() {
  SendEvent(m_setup.observer, m_setup.index, m_setup.task_id, kEventRangeLength, m_range.length());
}

// --- Thread ------------------------------------------------------------------------------------

bool CDownloadBase::Download(std::int64_t start, std::int64_t length, std::int64_t received) {
  const auto log = [&](int step) {
    LogInfo("CDownloadBase Download %d: %ld %ld %ld", step, Low32(start), Low32(length),
            Low32(received));
  };
  log(1);
  if (length == 0) {
    m_bSucceeded = true;
    return true;
  }
  m_bSucceeded = false;
  m_range.Assign(start, length, received);
  SetRangeLength(length);
  if (m_nContentLength > 0 && length > m_nContentLength) SetRangeLength(m_nContentLength);
  m_hThread = os::Thread::Start(kStackBytes, &ThreadProc_Download, this);
  log(m_hThread.valid() ? 3 : 2);
  return m_hThread.valid();
}

// Nothing may leave the thread: whatever goes wrong is a failed run.
std::uint32_t CDownloadBase::ThreadProc_Download(void* worker) {
  CDownloadBase& self = *static_cast<CDownloadBase*>(worker);
  const CurrentJobScope scope(self.m_setup.owner, self.m_hStopEvent);
  bool result = false;
  try {
    result = self.RunAttempts();
  } catch (...) {
    result = false;
  }
  try {
    return self.DownloadEnd(result) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

bool CDownloadBase::RunAttempts() {
  constexpr StepLog step("ThreadProc_Download");
  step(1);
  for (int failed = 0; failed < kAttempts; ++failed) {
    step(2);
    if (DownloadOnce()) {
      step(3);
      step(7);
      return true;
    }
    step(4);
    if (m_setup.progress != nullptr) {
      step(5);
      m_setup.progress(m_setup.index, 0, 0, m_setup.progress_context);
    }
    step(6);
    if (m_hStopEvent.Wait(kRetryMs)) return false;
  }
  step(7);
  return false;
}

bool CDownloadBase::DownloadEnd(bool result) {
  constexpr StepLog step("DownloadEnd");
  step(1);
  m_bSucceeded = result;
  ReleaseConnection();
  m_Socket.Close();
  const bool had_file = m_hFile.valid();
  m_hFile.Close();
  if (had_file) step(2);
  return result;
}

void CDownloadBase::SignalStop() {
  m_hStopEvent.Set();
}

// The socket is the worker thread's own as long as that thread lives, so it is closed after it.
void CDownloadBase::Stop() {
  SignalStop();
  if (m_hThread.valid()) {
    if (!m_hThread.WaitForEnd(kStopMs)) m_hThread.Terminate();
    m_hThread.Close();
  }
  ReleaseConnection();
  m_Socket.Close();
}

// --- Connection --------------------------------------------------------------------------------

bool CDownloadBase::ConnectToHost() {
  if (!m_hStopEvent.valid() || m_url.m_strHost.empty()) return false;
  m_Socket.SetStopEvent(&m_hStopEvent);
  const os::Ipv4Address address =
      DownHostMgr::Shared().AcquireHostIp(m_url.m_strHost, &m_hStopEvent);
  if (address == 0) return m_Socket.Connect(m_url.m_strHost.c_str(), m_url.m_nPort);
  return m_Socket.Connect(address, m_url.m_nPort);
}

// A connection that runs to its end is given back at each of the places that end it, as often as
// it was taken: once before the request and once for it. A stopped one is given back once.
os::Ipv4Address CDownloadBase::TakeConnectedAddress() {
  return m_hStopEvent.IsSet() ? m_Socket.TakeIp() : m_Socket.ip();
}

void CDownloadBase::ReleaseConnection() {
  DownHostMgr::Shared().ReleaseHostIp(m_url.m_strHost, TakeConnectedAddress());
}

bool CDownloadBase::GetRemoteSiteInfo() {
  constexpr StepLog step("CDownloadBase GetRemoteSiteInfo");
  step(1);
  if (!DownHostMgr::Shared().InitHost(m_url.m_strUrl.c_str(), &m_hStopEvent)) return false;
  step(2);
  const bool answered = GetRemoteSiteInfo_Pro();
  step(answered ? 3 : 4);
  ReleaseConnection();
  m_Socket.Close();
  return answered;
}

bool CDownloadBase::GetRemoteSiteInfo_Pro() {
  return false;
}

bool CDownloadBase::DownloadOnce() {
  constexpr StepLog step("CDownloadBase DownloadOnce");
  step(1);
  if (!OpenTargetFile()) {
    step(2);
    return false;
  }
  if (m_Socket.connected()) return true;
  step(3);
  if (ConnectToHost()) return true;
  step(4);
  return false;
}

// --- File --------------------------------------------------------------------------------------

bool CDownloadBase::OpenTargetFile() {
  const auto open = [this](os::FileCreation creation) {
    m_hFile = os::File::Open(m_setup.file_path, os::FileAccess::kReadWrite,
                             os::FileShare::kReadWrite, creation);
    return m_hFile.valid();
  };
  m_hFile.Close();
  if (!open(os::FileCreation::kOpenExisting) && !open(os::FileCreation::kCreateNew)) return false;
  return m_hFile.Seek(m_range.start() + m_range.received());
}

std::int64_t CDownloadBase::WriteToFile(const char* bytes, std::int32_t count) {
  if (bytes == nullptr || count < 0) return -1;
  const auto written = m_hFile.Write(bytes, static_cast<std::uint32_t>(count));
  if (!written) return -1;
  const std::int64_t received = m_range.AddReceived(*written);
  if (m_setup.progress != nullptr) {
    m_setup.progress(m_setup.index, received, *written, m_setup.progress_context);
  }
  return *written == static_cast<std::uint32_t>(count) ? received : -1;
}

}  // namespace Tarnlo
