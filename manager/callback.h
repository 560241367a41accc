// What the manager tells its host through, when it does not post to a window.
#pragma once

#include <cstdint>
#include <string>

#include "support/result.h"

namespace Tarnlo {

// One operation per kind of report.
//
// Threads: called on the jobs' and workers' threads, several at once, with no lock of the library
// held. An operation may start, pause, continue and cancel tasks; what would stop or replace the
// task it is called for is refused. It lets no exception out.
// Lifetime: outlives the manager, or is replaced while no task runs.
class IDownloaderManagerCallBack {
 public:
  IDownloaderManagerCallBack() = default;
  IDownloaderManagerCallBack(const IDownloaderManagerCallBack&) = delete;
  IDownloaderManagerCallBack& operator=(const IDownloaderManagerCallBack&) = delete;

  // The file name that the server gave.
  virtual void OnTaskMessage(std::int32_t id, const std::wstring& text) = 0;
  // The length that the server gave.
  virtual void OnTaskValue(std::int32_t id, std::int64_t value) = 0;
  virtual void OnTaskProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                              std::int32_t bytes_per_second) = 0;
  virtual void OnTaskComplete(std::int32_t id, std::int32_t zero) = 0;
  virtual void OnTaskFail(std::int32_t id, NsResultEnum result) = 0;
  // Of worker `code`: the length of its range (stage 0), bytes done of it (1), bytes received and
  // not yet written (2).
  virtual void OnTaskStage(std::int32_t id, std::int32_t code, std::int32_t stage,
                           std::int64_t value) = 0;
  virtual void OnTaskStart(std::int32_t id) = 0;

 protected:
  ~IDownloaderManagerCallBack() = default;
};

}  // namespace Tarnlo
