// From the manager's reports to the host's four callbacks.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "api/tarnlo.h"
#include "manager/callback.h"

namespace Tarnlo {

// What the host has set; null: not called. One for the whole module.
struct HostCallbacks {
  std::atomic<StartCallback> start{nullptr};
  std::atomic<CompleteCallback> complete{nullptr};
  std::atomic<ProcessCallback> process{nullptr};
  std::atomic<FailCallback> fail{nullptr};
};
inline constinit HostCallbacks g_host_callbacks;

// Holds nothing: reads the callbacks at the moment of each report, so that one that is set later
// receives what comes later. An exception that a callback lets out ends here, in a line of the log.
class CBmgr final : public IDownloaderManagerCallBack {
 public:
  void OnTaskMessage(std::int32_t id, const std::wstring& text) override;
  void OnTaskValue(std::int32_t id, std::int64_t value) override;
  void OnTaskProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                      std::int32_t bytes_per_second) override;
  void OnTaskComplete(std::int32_t id, std::int32_t zero) override;
  void OnTaskFail(std::int32_t id, NsResultEnum result) override;
  void OnTaskStage(std::int32_t id, std::int32_t code, std::int32_t stage,
                   std::int64_t value) override;
  void OnTaskStart(std::int32_t id) override;
};

}  // namespace Tarnlo
