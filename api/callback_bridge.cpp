#include "api/callback_bridge.h"

#include "support/simple_log.h"

namespace Tarnlo {
namespace {

constexpr StepLog kLog("CBmgr callback");

// Calls the host, on its own risk but not on ours: the thread goes on whatever comes out.
template <typename Callback, typename... Arguments>
void Call(const std::atomic<Callback>& slot, Arguments... arguments) {
  const Callback callback = slot;
  if (callback == nullptr) return;
  try {
    callback(arguments...);
  } catch (...) {
    kLog.Error(1);
  }
}

}  // namespace

void CBmgr::OnTaskMessage(std::int32_t /*id*/, const std::wstring& /*text*/) {}

void CBmgr::OnTaskValue(std::int32_t /*id*/, std::int64_t /*value*/) {}

void CBmgr::OnTaskProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                           std::int32_t bytes_per_second) {
  Call(g_host_callbacks.process, id, downloaded, total, bytes_per_second);
}

void CBmgr::OnTaskComplete(std::int32_t id, std::int32_t /*zero*/) {
  Call(g_host_callbacks.complete, id);
}

void CBmgr::OnTaskFail(std::int32_t id, NsResultEnum result) {
  Call(g_host_callbacks.fail, id, result);
}

void CBmgr::OnTaskStage(std::int32_t /*id*/, std::int32_t /*code*/, std::int32_t /*stage*/,
                        std::int64_t /*value*/) {}

void CBmgr::OnTaskStart(std::int32_t id) {
  Call(g_host_callbacks.start, id);
}

}  // namespace Tarnlo
