// A small language for tests of whole jobs: a server, a folder, an observer and the job.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/download_manager.h"
#include "support/result.h"
#include "tests/support/body.h"
#include "tests/support/digest.h"
#include "tests/support/fault_server.h"
#include "tests/support/recording_observer.h"
#include "tests/support/system.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_log.h"
#include "tests/support/trailer.h"

namespace Tarnlo::test {

inline constexpr std::int32_t kTaskId = 7;
inline constexpr std::int32_t kNothingTold = -1000;  // no result within a minute

// Knows, besides the events, when and on which thread each one came.
//
// Threads: any.
class JobObserver : public RecordingObserver {
 public:
  struct Stamp {
    std::int32_t type = 0;
    std::int32_t code = 0;
    std::int64_t number = 0;  // of type 3: the bytes downloaded
    std::uint32_t tick = 0;   // after it was taken
    std::uint32_t thread = 0;
  };

  void Notify(TaskEvent* event, std::intptr_t message_parameter) override;

  [[nodiscard]] std::vector<Stamp> Stamps() const;
  [[nodiscard]] std::vector<Stamp> StampsOf(std::int32_t type) const;
  [[nodiscard]] std::size_t CountOf(std::int32_t type) const { return StampsOf(type).size(); }
  // Until there is such a report. False after a minute.
  bool Await(const std::function<bool(const Stamp&)>& wanted);
  bool AwaitCount(std::int32_t type, std::size_t count);
  // Until so many workers have reported that many bytes, written or collected.
  bool AwaitEachHas(std::size_t workers, std::int64_t bytes);
  // Called with every report, on its thread, before it is kept. Set before the job runs.
  void OnEach(std::function<void(const TaskEvent&)> action) { m_action = std::move(action); }
  // Every report of that type is kept and then lets an exception out. Set before the job runs.
  void ThrowOutOf(std::int32_t type) { m_throws_out_of = type; }

 private:
  bool AwaitThat(const std::function<bool()>& condition);  // which looks at the stamps

  mutable std::mutex m_stamp_mutex;
  std::condition_variable m_changed;
  std::vector<Stamp> m_stamps;
  std::function<void(const TaskEvent&)> m_action;
  std::optional<std::int32_t> m_throws_out_of;
};

// Everything that one job needs, so that several can run side by side.
//
//   EXPECT_EQ(Download("/f"), kResultSuccess);
//
// Threads: one; the job's own threads are gone with it.
class TestJob {
 public:
  TestJob();
  TestJob(const TestJob&) = delete;
  TestJob& operator=(const TestJob&) = delete;
  virtual ~TestJob();

  FaultServer& Server() { return *m_server; }
  JobObserver& Observer() { return m_observer; }
  CDownloadManager& Job() { return *m_job; }
  FaultScript& Serve(const std::string& path, Body body) { return m_server->Serve(path, body); }
  // Ends the server and all that belongs to it; a new one has no scripts.
  void RenewServer();
  // For the server's scripts.
  Gate& NewGate() { return m_gates.emplace_back(); }
  // Another job with the same server, folder and observer: what a new process would have.
  void RenewJob();

  [[nodiscard]] std::wstring Folder() const { return m_folder.path(); }
  [[nodiscard]] std::wstring Target(const std::wstring& name) const { return m_folder.File(name); }
  [[nodiscard]] std::wstring Temporary(const std::wstring& name) const {
    return m_folder.File(name) + L".~P2S";
  }
  [[nodiscard]] bool Has(const std::wstring& path) const { return SizeOf(path) >= 0; }
  [[nodiscard]] std::vector<std::wstring> Files() const { return m_folder.Names(); }

  // Begins a run into the folder, or from another server, or into another folder.
  bool Start(const std::string& path, const std::wstring& name = L"", bool restart = false);
  bool StartAt(const std::wstring& url, const std::wstring& name = L"", bool restart = false);
  bool StartInto(const std::wstring& folder, const std::string& path);
  // A run after one that has ended or was stopped.
  bool Continue(const std::string& path);
  // What the run tells as its end.
  std::int32_t AwaitResult();
  void AwaitRunEnd();  // told or silent
  // Until the job has that many bytes, written or collected.
  void AwaitDownloaded(std::int64_t bytes) const;
  // A whole run.
  std::int32_t Download(const std::string& path, const std::wstring& name = L"",
                        bool restart = false);
  std::int32_t DownloadAgain(const std::string& path);
  // The last run has told its success, and its first attempt led there: no byte was fetched twice
  // because an attempt had thought a good file bad.
  void ExpectOneCleanAttempt() const;
  // The attempts that the last run began.
  [[nodiscard]] std::ptrdiff_t Attempts() const;
  // Until when Faults holds a call: the job's own threads make it once they have been told to stop.
  static bool IsStoppedOrTheTests();
  // Each stop must take less than half of what it is given.
  void StopPromptly();
  void Pause();  // silent

  // The engine's log lines of the last run's job thread, abbreviated: "T3" for "[INFO] -
  // ThreadProc_DownloadMTR 3", "A9x5" for five times the same. T thread, S StartMTRDownload,
  // A AssignDownloadTask, R ReadDownloadInfo, F HandleDownloadFinished, M CheckMd5, G
  // getCdnFileSize, C CheckCdnFileSize, D Download ("Derr4" at error level).
  [[nodiscard]] std::string JobLines() const;
  // The same of the calling thread.
  [[nodiscard]] std::string OwnLines() const;
  // All of them as they are, without time and thread.
  [[nodiscard]] std::vector<std::string> JobThreadLines() const;
  [[nodiscard]] const LogReader& Log() const { return *m_log; }

  // The ranges that GET requests from number `first` on have asked for, open-ended ones left out.
  [[nodiscard]] std::vector<Interval> RangesAskedFor(std::size_t first = 0) const;

 private:
  void BeginLog();
  // Whatever a server does, the sum of what the workers have never exceeds the file, and a run
  // whose sum is right has no range that is not.
  void ExpectNoFalseSum() const;

  std::list<Gate> m_gates;
  std::unique_ptr<FaultServer> m_server;
  TempFolder m_folder;
  JobObserver m_observer;
  std::unique_ptr<CDownloadManager> m_job;
  std::unique_ptr<LogReader> m_log;
  std::size_t m_told_before = 0;
  std::uint32_t m_forced_ends = 0;
};

class JobTest : public testing::Test, public TestJob {};

}  // namespace Tarnlo::test
