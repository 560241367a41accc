// A transfer worker: one byte range of the remote file, over one connection, into the temporary
// file.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "support/os/event.h"
#include "support/os/file.h"
#include "support/os/thread.h"
#include "support/task_event.h"
#include "transfer/custom_socket.h"
#include "transfer/range_state.h"
#include "transfer/url.h"
#include "transfer/worker_owner.h"

namespace Tarnlo {

inline constexpr std::int32_t kProbeIndex = -1;  // the worker that learns what the server has

// Told after every write, and with (index, 0, 0) after a failed attempt. Runs on the worker's
// thread.
using ProgressFunction = void (*)(std::int32_t index, std::int64_t received, std::int64_t delta,
                                  void* context);

// What a worker is told once, before it starts. Everything pointed to outlives the worker.
struct WorkerSetup {
  std::int32_t index = kProbeIndex;
  std::int32_t task_id = -1;
  IWorkerOwner* owner = nullptr;  // null: events are always sent
  IObserver* observer = nullptr;
  ProgressFunction progress = nullptr;
  void* progress_context = nullptr;
  std::wstring file_path;  // the temporary file
};

// Holds the thread, the range, the file writing and the receive loop; a derived class speaks the
// protocol. Owns its socket, its file handle, its stop event and its thread.
//
// Threads: the job thread configures, assigns, starts, stops and resets; the worker's own thread
// (`ThreadProc_Download`) does the rest. Counters and result are read by any thread.
// Lifetime: a stop signalled once holds until the object is gone. The destructor stops.
// After a failure: what was received is in the file and counted, nothing else is.
class CDownloadBase {
 public:
  CDownloadBase();
  CDownloadBase(const CDownloadBase&) = delete;
  CDownloadBase& operator=(const CDownloadBase&) = delete;
  virtual ~CDownloadBase();

  virtual bool ConnectToHost();
  // Starts the thread on [start, start + length), of which `received` bytes are in the file. A
  // length of 0 is complete at once and starts none. False when no thread could be started.
  virtual bool Download(std::int64_t start, std::int64_t length, std::int64_t received);
  virtual bool GetRemoteSiteInfo_Pro();
  virtual bool DownloadOnce();
  virtual bool RecvDataAndSaveToFile(CCustomizeSocket& socket, const char* leading, int count);

  void Configure(const WorkerSetup& setup) { m_setup = setup; }
  bool SetUrl(const std::wstring& url);
  // A null user empties both; a null password is an empty one.
  void SetCredentials(const wchar_t* user, const wchar_t* password);

  // Learns size, range support and name, on the calling thread. True when the server answered.
  bool GetRemoteSiteInfo();

  // Tells the worker to end, wherever it is; returns at once. Threads: any.
  void SignalStop();
  // Signals, waits for the thread, at most 1,000 ms, and ends it by force after that. Threads: the
  // one that starts the worker.
  void Stop();
  // Forgets range, counters, result, thread and file. Only while no thread runs.
  void Reset();

  // Takes a range without starting on it: the bytes are this worker's and wait. Resets first.
  void TakeRange(std::int64_t start, std::int64_t length, std::int64_t received);
  void SetRangeLength(std::int64_t length);  // and tells the observer
  // Without telling the observer: of a worker that runs, which may refuse; and of one whose thread
  // has ended.
  bool TryCut(std::int64_t length) { return m_range.TryCut(length); }
  void CutEnded(std::int64_t length) { m_range.SetLength(length); }
  void ReportRangeLength();  // tells the observer what the length is

  [[nodiscard]] std::int64_t GetRangeLength() const { return m_range.length(); }
  [[nodiscard]] std::int64_t GetRemainingBytes() const { return m_range.Remaining(); }
  [[nodiscard]] std::int64_t received() const { return m_range.received(); }
  [[nodiscard]] const RangeState& range() const { return m_range; }

  [[nodiscard]] bool HasThread() const { return m_hThread.valid(); }
  [[nodiscard]] bool IsThreadRunning() const { return m_hThread.IsRunning(); }
  [[nodiscard]] std::uint32_t thread_id() const { return m_hThread.id(); }
  [[nodiscard]] os::Waitable thread() const { return m_hThread.waitable(); }
  void CloseThread() { m_hThread.Close(); }

  [[nodiscard]] bool succeeded() const { return m_bSucceeded; }
  void SetSucceeded() { m_bSucceeded = true; }

  // What `GetRemoteSiteInfo` learned.
  [[nodiscard]] bool IsRangeSupported() const { return m_bRangeSupported; }
  [[nodiscard]] std::int64_t content_length() const { return m_nContentLength; }  // -1: unknown
  [[nodiscard]] std::wstring RemoteFileName() const;
  [[nodiscard]] const std::wstring& effective_url() const { return m_strEffectiveUrl; }
  [[nodiscard]] const std::wstring& last_modified() const { return m_strLastModified; }
  [[nodiscard]] const std::wstring& user() const { return m_strUser; }
  [[nodiscard]] const std::wstring& password() const { return m_strPassword; }

 protected:
  bool DownloadEnd(bool result);
  bool OpenTargetFile();
  // The new received count, -1 on failure; a short write fails after counting what was written.
  std::int64_t WriteToFile(const char* bytes, std::int32_t count);
  // Gives the connected address back to the host table.
  void ReleaseConnection();
  // The address to give back; 0 for the next who asks, once the worker is stopped.
  os::Ipv4Address TakeConnectedAddress();
  [[nodiscard]] bool IsNotifying() const;

  WorkerSetup m_setup;
  os::Event m_hStopEvent;
  CCustomizeSocket m_Socket;
  RangeState m_range;
  UrlRecord m_url;
  std::wstring m_strEffectiveUrl;
  std::wstring m_strReferer;
  std::wstring m_strCookie;
  std::wstring m_strUserAgent;
  std::wstring m_strUser;
  std::wstring m_strPassword;
  std::wstring m_strLastModified;
  std::atomic<bool> m_bRangeSupported{false};
  std::atomic<std::int64_t> m_nContentLength{-1};
  os::File m_hFile;

 private:
  static std::uint32_t ThreadProc_Download(void* worker);
  bool RunAttempts();
  bool WriteLeadingBytes(const char* leading, int count);
  bool ReceiveBody(CCustomizeSocket& socket, char* collected);

  os::Thread m_hThread;
  std::atomic<bool> m_bSucceeded{false};
};

}  // namespace Tarnlo
