// The log: one line a step, in "tarnlo.log" in the user's temp folder.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <string>

#include "support/compiler.h"
#include "support/os/clock.h"
#include "support/os/event.h"
#include "support/os/lock.h"
#include "support/os/thread.h"

namespace Tarnlo {

enum LogLevel { kLogError = 1, kLogWarn = 2, kLogInfo = 3 };

// Appends lines to one file, which is opened, written once and closed for each line, so that it may
// be read or moved aside between any two. A file that cannot be opened loses the line, silently.
//
// Threads: any thread may log. Every write and every backup holds one process-wide mutex.
// Lifetime: the process's own logger is made by `Start`, moves its file aside at process exit and
// is never destroyed; the destructor of any other shuts it down.
class simpleLog {
 public:
  // `path` is narrow text in the system's code page; an empty one prints a complaint.
  explicit simpleLog(std::string path);
  ~simpleLog();
  simpleLog(const simpleLog&) = delete;
  simpleLog& operator=(const simpleLog&) = delete;

  // The log's path in a folder, whether or not that ends with a backslash. No folder, no path.
  static std::wstring PathIn(std::wstring folder);

  // Starts the process's logger, once; later calls do nothing. Threads: any, at once.
  static void Start();
  // The process's logger; null until `Start`.
  static simpleLog* Global();

  // Writes "[time] ", the formatted text and a line end. The level shows only inside the format.
  // A null logger writes nothing.
  static void Log(simpleLog* logger, int level, const char* format, ...) TARNLO_PRINTF(3, 4);
  static void LogArguments(simpleLog* logger, int level, const char* format, va_list arguments);

  // Starts the thread that moves the file aside once a day, in the hour before midnight.
  void StartBackups();
  // Ends that thread and moves the file aside, when `StartBackups` had been called. Takes no lock
  // but the log mutex, allocates nothing and uses no C file: at process exit other threads may have
  // died holding anything.
  void ShutDown();
  // One look of that thread: true when it is the hour for it, whether or not there was anything to
  // move; an empty file stays.
  bool BackUpWhenDue(const os::LocalTime& now);
  // How long that thread rests after the look, which it takes; one that throws is printed.
  static std::uint32_t RestAfter(const std::function<bool()>& look);

  [[nodiscard]] const std::string& path() const { return m_path; }

 private:
  // The process-wide one.
  static os::KernelMutex& Mutex();
  static std::uint32_t RunBackups(void* logger);
  void AppendLine(const char* prefix, const char* format, va_list arguments);
  // False when there is no log file afterwards.
  bool MoveAside(const os::LocalTime& now) REQUIRES(Mutex());
  friend void LogPrefixed(const char* prefix, const char* format, va_list arguments);

  const std::string m_path;
  const std::wstring m_file;  // in the system's form, a backup's name included
  // Room for a backup's name, made in advance.
  std::wstring m_backup GUARDED_BY(Mutex());
  os::Event m_stop;
  os::Lock m_start_lock;
  std::atomic<bool> m_initialised{false};  // from before the thread starts until the shutdown
  os::Thread m_backup_thread GUARDED_BY(m_start_lock);
  // The same from when it has started, for a shutdown, which takes no lock; it stays as it is then.
  std::atomic<const os::Thread*> m_running_backups{nullptr};
};

// Lines of the process's logger, with the level word and the calling thread's id in front:
// LogInfo("DownloadEnd 1") writes "[INFO] 4711 - DownloadEnd 1".
void LogInfo(const char* format, ...) TARNLO_PRINTF(1, 2);
void LogWarn(const char* format, ...) TARNLO_PRINTF(1, 2);
void LogError(const char* format, ...) TARNLO_PRINTF(1, 2);

// The numbered steps of one method: StepLog step("CDownloadManager Download"); step(1);
class StepLog {
 public:
  explicit constexpr StepLog(const char* method) : m_method(method) {}
  void operator()(int number) const { LogInfo("%s %d", m_method, number); }
  void Error(int number) const { LogError("%s err %d", m_method, number); }

 private:
  const char* m_method;
};

// A %ld of the log carries the low 32 bits of a 64-bit value, on every platform.
constexpr long Low32(std::int64_t value) {
  return static_cast<long>(static_cast<std::int32_t>(static_cast<std::uint64_t>(value)));
}

}  // namespace Tarnlo
