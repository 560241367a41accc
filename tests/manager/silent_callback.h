// A callback to which nothing matters; a test's own overrides what matters to it.
#pragma once

#include <cstdint>
#include <string>

#include "manager/callback.h"

namespace Tarnlo::test {

// Keeps nothing, so that what is left on the heap is the manager's.
class SilentCallBack : public IDownloaderManagerCallBack {
 public:
  SilentCallBack() = default;
  SilentCallBack(const SilentCallBack&) = delete;
  SilentCallBack& operator=(const SilentCallBack&) = delete;
  virtual ~SilentCallBack() = default;

  void OnTaskMessage(std::int32_t, const std::wstring&) override {}
  void OnTaskValue(std::int32_t, std::int64_t) override {}
  void OnTaskProgress(std::int32_t, std::int64_t, std::int64_t, std::int32_t) override {}
  void OnTaskComplete(std::int32_t, std::int32_t) override {}
  void OnTaskFail(std::int32_t, NsResultEnum) override {}
  void OnTaskStage(std::int32_t, std::int32_t, std::int32_t, std::int64_t) override {}
  void OnTaskStart(std::int32_t) override {}
};

}  // namespace Tarnlo::test
