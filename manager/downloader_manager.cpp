#include "manager/downloader_manager.h"

#include "manager/copy_cut.h"

namespace Tarnlo {
namespace {

using EventOwner = std::unique_ptr<TaskEvent, decltype(&FreeEvent)>;

template <typename T>
const T* PayloadAs(const TaskEvent& event) {
  return reinterpret_cast<const T*>(static_cast<std::intptr_t>(event.payload));
}

void Dispatch(const TaskEvent& event, IDownloaderManagerCallBack& callback) {
  const std::int32_t id = event.task_id;
  switch (event.type) {
    case kEventRemoteName:
      callback.OnTaskMessage(id, PayloadAs<wchar_t>(event));
      break;
    case kEventContentLength:
      callback.OnTaskValue(id, event.payload);
      break;
    case kEventFinished: {
      const auto result = static_cast<std::int32_t>(event.payload);
      if (result != kResultSuccess) {
        callback.OnTaskFail(id, static_cast<NsResultEnum>(result));
      } else {
        callback.OnTaskComplete(id, 0);
      }
      break;
    }
    case kEventProgress: {
      const auto& progress = *PayloadAs<TaskProgress>(event);
      callback.OnTaskProgress(id, progress.downloaded, progress.total,
                              static_cast<std::int32_t>(progress.speed));
      break;
    }
    case kEventRangeLength:
    case kEventRangeProgress:
    case kEventBufferedBytes:
      callback.OnTaskStage(id, event.code, event.type - kEventRangeLength, event.payload);
      break;
    case kEventStarted:
      callback.OnTaskStart(id);
      break;
    default:
      break;
  }
}

}  // namespace

DownloaderManager::DownloaderManager() : m_tasks(std::make_unique<CTaskManager>(this)) {}

DownloaderManager::~DownloaderManager() {
  if (DownloaderManager::GetTaskCount() > 0) DownloaderManager::CancelAllTasks();
}

std::int32_t DownloaderManager::PauseTask(std::int32_t id) {
  return m_tasks ? m_tasks->PauseTask(id) : 0;
}

std::int32_t DownloaderManager::ContinueTask(std::int32_t id) {
  return m_tasks ? m_tasks->ContinueTask(id) : 0;
}

std::int32_t DownloaderManager::AddTask(const wchar_t* url, const wchar_t* folder,
                                        const wchar_t* file_name, std::int32_t id,
                                        const wchar_t* version, const wchar_t* md5,
                                        std::int32_t restart) {
  if (!m_tasks || (url == nullptr && id <= 0)) return -1;
  return m_tasks->AddTask(url, folder, file_name, id, version, md5, restart);
}

std::int32_t DownloaderManager::RemoveTask(std::int32_t id) {
  return m_tasks ? m_tasks->RemoveTask(id) : 0;
}

std::int32_t DownloaderManager::CancelTask(std::int32_t id) {
  return RemoveTask(id);
}

std::int32_t DownloaderManager::CancelAllTasks() {
  return m_tasks ? m_tasks->CancelAllTasks() : 0;
}

std::int32_t DownloaderManager::GetTaskCount() {
  return m_tasks ? m_tasks->count() : 0;
}

std::int32_t DownloaderManager::GetTaskProgress(std::int32_t id, TaskProgressInfo* info) {
  TaskReading reading;
  if (!m_tasks || !m_tasks->ReadTask(id, reading)) return 0;
  info->id = id;
  const CDownloadManager::ProgressFigures& figures = reading.figures;
  if (figures.total < 1 || figures.downloaded < 0) {
    info->total = -1;
    info->downloaded = -1;
    return 1;
  }
  info->total = figures.total;
  info->downloaded = figures.downloaded;
  const std::uint32_t seconds = reading.elapsed_ms / 1000;
  info->speed = seconds > 0 ? static_cast<std::uint32_t>(figures.run_bytes / seconds) : 0;
  CopyCut(reading.url, info->url);
  CopyCut(reading.folder, info->folder);
  CopyCut(reading.file_name, info->file_name);
  return 1;
}

DownloadInfo* DownloaderManager::GetDownloadInfo(DownloadInfo* info) {
  TaskReading reading;
  if (m_tasks) m_tasks->ReadCurrentTask(reading);
  *info = DownloadInfo{reading.id, reading.figures.total, reading.figures.downloaded,
                       reading.figures.run_bytes, reading.elapsed_ms};
  return info;
}

void DownloaderManager::SetDelivery(const Delivery& delivery) {
  const os::LockGuard guard(m_delivery_lock);
  m_delivery = delivery;
}

DownloaderManager::Delivery DownloaderManager::CurrentDelivery() const {
  const os::SharedGuard guard(m_delivery_lock);
  return m_delivery;
}

void DownloaderManager::SetNotifyWindow(os::WindowHandle window, std::uint32_t message) {
  SetDelivery({nullptr, window, message});
}

void DownloaderManager::SetCallBack(IDownloaderManagerCallBack* callback) {
  SetDelivery({callback, nullptr, 0});
}

void DownloaderManager::Notify(TaskEvent* event, std::intptr_t message_parameter) {
  EventOwner owner(event, &FreeEvent);
  if (!owner) return;
  const Delivery delivery = CurrentDelivery();
  if (delivery.window != nullptr && delivery.message != 0) {
    const auto address = reinterpret_cast<std::intptr_t>(event);
    if (os::PostToWindow(delivery.window, delivery.message,
                         static_cast<std::uintptr_t>(message_parameter), address)) {
      static_cast<void>(owner.release());
    }
    return;
  }
  if (delivery.callback != nullptr) Dispatch(*owner, *delivery.callback);
}

}  // namespace Tarnlo
