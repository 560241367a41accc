// Keeps every report in words, and runs what a test wants to run inside it.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "manager/callback.h"

namespace Tarnlo::test {

// Reports read like "OnTaskFail 7 3". Threads: any; hooks are set before tasks run.
class RecordingCallBack final : public IDownloaderManagerCallBack {
 public:
  using Hook = std::function<void(std::int32_t id)>;
  using StageHook = std::function<void(std::int32_t id, std::int32_t code, std::int32_t stage)>;
  Hook on_start;
  Hook on_progress;
  Hook on_complete;
  Hook on_fail;
  Hook on_value;
  StageHook on_stage;

  void OnTaskMessage(std::int32_t id, const std::wstring& text) override {
    Record("OnTaskMessage", id, std::string(text.begin(), text.end()));
  }
  void OnTaskValue(std::int32_t id, std::int64_t value) override {
    Record("OnTaskValue", id, value);
    Run(on_value, id);
  }
  void OnTaskProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                      std::int32_t bytes_per_second) override {
    Record("OnTaskProgress", id, downloaded, total, bytes_per_second);
    Run(on_progress, id);
  }
  void OnTaskComplete(std::int32_t id, std::int32_t zero) override {
    Record("OnTaskComplete", id, zero);
    Run(on_complete, id);
  }
  void OnTaskFail(std::int32_t id, NsResultEnum result) override {
    Record("OnTaskFail", id, result);
    Run(on_fail, id);
  }
  void OnTaskStage(std::int32_t id, std::int32_t code, std::int32_t stage,
                   std::int64_t value) override {
    Record("OnTaskStage", id, code, stage, value);
    if (on_stage) on_stage(id, code, stage);
  }
  void OnTaskStart(std::int32_t id) override {
    Record("OnTaskStart", id);
    Run(on_start, id);
  }

  [[nodiscard]] std::vector<std::string> Reports() const {
    const std::lock_guard guard(m_mutex);
    return m_reports;
  }
  [[nodiscard]] int Count(const std::string& beginning) const {
    const std::lock_guard guard(m_mutex);
    return CountLocked(beginning);
  }
  // Until that many reports begin so. False after half a minute.
  [[nodiscard]] bool Await(const std::string& beginning, int count = 1) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(30),
                              [&] { return CountLocked(beginning) >= count; });
  }

 private:
  static std::string Text(const std::string& text) { return text; }
  static std::string Text(std::int64_t number) { return std::to_string(number); }
  static void Run(const Hook& hook, std::int32_t id) {
    if (hook) hook(id);
  }
  template <typename... Values>
  void Record(std::string report, Values... values) {
    (report.append(" ").append(Text(values)), ...);
    const std::lock_guard guard(m_mutex);
    m_reports.push_back(report);
    m_changed.notify_all();
  }
  [[nodiscard]] int CountLocked(const std::string& beginning) const {
    return static_cast<int>(
        std::count_if(m_reports.begin(), m_reports.end(),
                      [&](const std::string& report) { return report.starts_with(beginning); }));
  }

  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  std::vector<std::string> m_reports;
};

}  // namespace Tarnlo::test
