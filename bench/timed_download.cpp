#include "bench/timed_download.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <future>

#include "engine/download_manager.h"

namespace Tarnlo::bench {
namespace {

class EndObserver : public IObserver {
 public:
  void Notify(TaskEvent* event, std::intptr_t /*message_parameter*/) override {
    if (event->type == kEventFinished)
      m_result.set_value(static_cast<std::int32_t>(event->payload));
    FreeEvent(event);
  }
  std::int32_t Await() { return m_result.get_future().get(); }

 private:
  std::promise<std::int32_t> m_result;
};

}  // namespace

TimedDownload Download(const std::wstring& url, const std::wstring& folder) {
  EndObserver observer;
  CDownloadManager job;
  job.SetObserver(&observer);
  const auto begin = std::chrono::steady_clock::now();
  if (!job.Download(url.c_str(), folder.c_str(), L"", 1, true)) return {kResultNoRemoteInfo, 0};
  const std::int32_t result = observer.Await();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  return {result, took.count()};
}

double Median(std::vector<double> values) {
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double MegabytesPerSecond(std::int64_t bytes, double seconds) {
  return seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0;
}

}  // namespace Tarnlo::bench
