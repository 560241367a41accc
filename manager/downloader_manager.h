// The object behind the exported functions: tasks go in, events come out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "manager/callback.h"
#include "manager/task_manager.h"
#include "support/os/lock.h"
#include "support/os/window.h"
#include "support/task_event.h"

namespace Tarnlo {

// What `GetTaskProgress` fills, in the caller's memory. Longer texts are cut.
struct TaskProgressInfo {
  static constexpr std::size_t kTextCapacity = 512;  // terminator included

  std::int32_t id;
  std::int64_t total;       // bytes, -1 when unknown
  std::int64_t downloaded;  // bytes, -1 when unknown
  std::uint32_t speed;      // bytes per second of this run; 0 within its first second
  wchar_t url[kTextCapacity];
  wchar_t folder[kTextCapacity];
  wchar_t file_name[kTextCapacity];
};

// What `GetDownloadInfo` fills: the current job, or -1 and 0 when there is none or an operation is
// under way.
struct DownloadInfo {
  std::int32_t id;
  std::int64_t total;        // bytes, -1 when unknown
  std::int64_t downloaded;   // bytes, -1 when unknown
  std::int64_t run_bytes;    // received in this run
  std::uint32_t elapsed_ms;  // since this run, or its present attempt, began
};

// Task operations answer as the task manager's do. Threads: any.
class IDownloaderManager {
 public:
  IDownloaderManager() = default;
  IDownloaderManager(const IDownloaderManager&) = delete;
  IDownloaderManager& operator=(const IDownloaderManager&) = delete;
  virtual ~IDownloaderManager() = default;

  virtual std::int32_t PauseTask(std::int32_t id) = 0;
  virtual std::int32_t ContinueTask(std::int32_t id) = 0;
  virtual std::int32_t AddTask(const wchar_t* url, const wchar_t* folder, const wchar_t* file_name,
                               std::int32_t id, const wchar_t* version, const wchar_t* md5,
                               std::int32_t restart) = 0;
  virtual std::int32_t RemoveTask(std::int32_t id) = 0;
  // 1 when found; 0, at once, while an operation is under way.
  virtual std::int32_t GetTaskProgress(std::int32_t id, TaskProgressInfo* info) = 0;
  virtual std::int32_t CancelTask(std::int32_t id) = 0;  // the same as RemoveTask
  // The two ways of delivery exclude each other; the last call wins.
  virtual void SetNotifyWindow(os::WindowHandle window, std::uint32_t message) = 0;
  virtual void SetCallBack(IDownloaderManagerCallBack* callback) = 0;
  virtual DownloadInfo* GetDownloadInfo(DownloadInfo* info) = 0;  // returns `info`
};

// Owns the task manager and is the observer of all its jobs.
//
// Delivery to a window: each event is one posted message, its long parameter the TaskEvent. From
// then on the event is the window's, which frees it with `delete`, after its payload: of type 0 a
// wchar_t* with `delete[]`, of type 3 a TaskProgress* with `delete`; or all at once with
// `FreeEvent`. Delivery to a callback frees the event when the call is over. An event that nobody
// receives, or that cannot be posted, is freed.
//
// Threads: any; `Notify` is called on the jobs' and workers' threads and holds no lock while host
// code runs. Who receives may be changed while tasks run: an event goes to one of the two.
// Lifetime: the destructor stops and removes every task; nothing is delivered after it.
class DownloaderManager : public IDownloaderManager, public IObserver {
 public:
  DownloaderManager();
  ~DownloaderManager() override;

  std::int32_t PauseTask(std::int32_t id) override;
  std::int32_t ContinueTask(std::int32_t id) override;
  std::int32_t AddTask(const wchar_t* url, const wchar_t* folder, const wchar_t* file_name,
                       std::int32_t id, const wchar_t* version, const wchar_t* md5,
                       std::int32_t restart) override;
  std::int32_t RemoveTask(std::int32_t id) override;
  std::int32_t GetTaskProgress(std::int32_t id, TaskProgressInfo* info) override;
  std::int32_t CancelTask(std::int32_t id) override;
  void SetNotifyWindow(os::WindowHandle window, std::uint32_t message) override;
  void SetCallBack(IDownloaderManagerCallBack* callback) override;
  DownloadInfo* GetDownloadInfo(DownloadInfo* info) override;
  virtual std::int32_t GetTaskCount();
  virtual std::int32_t CancelAllTasks();

  void Notify(TaskEvent* event, std::intptr_t message_parameter) override;

 private:
  // Who receives.
  struct Delivery {
    IDownloaderManagerCallBack* callback = nullptr;
    os::WindowHandle window = nullptr;
    std::uint32_t message = 0;
  };
  void SetDelivery(const Delivery& delivery);
  Delivery CurrentDelivery() const;

  mutable os::Lock m_delivery_lock;
  Delivery m_delivery GUARDED_BY(m_delivery_lock);
  std::unique_ptr<CTaskManager> m_tasks;  // last: its end may still be waiting for a delivery
};

}  // namespace Tarnlo
