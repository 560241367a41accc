// The table of tasks.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "engine/download_manager.h"
#include "manager/operation_gate.h"
#include "support/os/lock.h"
#include "support/task_event.h"

namespace Tarnlo {

// What a query learns of a task, at one moment.
struct TaskReading {
  std::int32_t id = -1;
  std::uint32_t elapsed_ms = 0;  // since this run, or its present attempt, began
  CDownloadManager::ProgressFigures figures;
  std::wstring url;
  std::wstring folder;
  std::wstring file_name;
};

// Owns a job and the texts to start it again with for each task, in the order they were added; an
// id has one row at most.
//
// Threads: any. Operations exclude each other for their whole run, which includes the end of a job
// that is stopped: 5,000 ms at the most, and 1,000 ms for each thread that has to be ended by
// force. Queries never wait for an operation: they find nothing while one is under way; they do not
// exclude each other.
// An operation that stops or replaces a task is refused on that task's own threads, where it would
// wait for itself, and changes nothing. On a thread of a task that is being stopped an operation
// gives up waiting for its turn and is refused likewise.
// Lifetime: the destructor stops every job, silently. The observer outlives it.
// Lock order: the gate, then the table's lock, then a job's own locks. No lock is held while host
// code runs.
class CTaskManager {
 public:
  static constexpr std::size_t kTextCapacity = 2048;  // of URL and folder, terminator included
  static constexpr std::size_t kNameCapacity = 1024;

  explicit CTaskManager(IObserver* observer) : m_observer(observer) {}
  CTaskManager(const CTaskManager&) = delete;
  CTaskManager& operator=(const CTaskManager&) = delete;
  virtual ~CTaskManager();

  // The id, or -1. Texts that do not fit their capacity are refused before anything is removed. A
  // task whose download cannot be started stays in the table. A null folder is the temporary folder
  // in the table and still null for the job, which refuses it: the task can only be continued.
  std::int32_t AddTask(const wchar_t* url, const wchar_t* folder, const wchar_t* file_name,
                       std::int32_t id, const wchar_t* version, const wchar_t* md5,
                       std::int32_t restart);
  // 1, for an unknown id too; 0 when refused.
  std::int32_t RemoveTask(std::int32_t id);
  std::int32_t PauseTask(std::int32_t id);
  // 1 when it was started again or had never been stopped; 0 when unknown, refused or not started.
  // A task whose end is being told is started when that callback is back, which is waited for, but
  // not for longer than 5,000 ms; other operations go on meanwhile.
  std::int32_t ContinueTask(std::int32_t id);
  // 0 when there is nothing to do or it was refused, else 1.
  std::int32_t CancelAllTasks();

  [[nodiscard]] std::int32_t count() const { return m_count; }

  // Copies the row's texts, each cut to the buffer that is given for it, with its terminator; an
  // empty buffer is passed over. Always 0; the buffers stay as they are when the id is unknown or
  // an operation is under way.
  std::int32_t GetTaskTexts(std::int32_t id, std::span<wchar_t> url, std::span<wchar_t> folder,
                            std::span<wchar_t> file_name) const;
  // False when the id is unknown or an operation is under way.
  bool ReadTask(std::int32_t id, TaskReading& reading) const;
  // The same for the current job: the one last added, or after a removal a neighbour's.
  bool ReadCurrentTask(TaskReading& reading) const;

 private:
  struct TaskEntry {
    std::unique_ptr<CDownloadManager> job;
    std::wstring url;
    std::wstring folder;
    std::wstring file_name;
    std::int32_t id = 0;
  };
  using Rows = std::list<TaskEntry>;

  [[nodiscard]] Rows::iterator FindRow(std::int32_t id) REQUIRES(m_lock);
  // Nothing while the end of the task's run is being told.
  std::optional<std::int32_t> TryContinue(std::int32_t id);
  // Without an id: the current job's.
  template <typename Use>
  bool ReadRow(std::optional<std::int32_t> id, Use use) const;
  void RemoveRow(std::int32_t id) REQUIRES(m_gate, m_lock);
  TaskEntry& AppendRow(std::int32_t id, const wchar_t* version, const wchar_t* md5)
      REQUIRES(m_gate, m_lock);
  static void SilenceAndStop(CDownloadManager& job);
  static void Read(const TaskEntry& row, TaskReading& reading);

  IObserver* const m_observer;
  OperationGate m_gate;
  // Changed by operations alone; read by queries without waiting.
  std::atomic<std::int32_t> m_count{0};
  std::atomic<std::int32_t> m_position{0};  // while it is 0, `CancelAllTasks` does nothing
  mutable os::Lock m_lock;                  // exclusively for the whole of an operation
  Rows m_rows GUARDED_BY(m_lock);
  CDownloadManager* m_current GUARDED_BY(m_lock) = nullptr;
};

}  // namespace Tarnlo
