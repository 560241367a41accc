// A host's callbacks: they note everything down, and do what a test wants done inside them.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/tarnlo.h"
#include "support/process_object.h"

namespace Tarnlo::test {

// The one record of this process: callbacks are plain functions. Notes read like "fail 7 5".
//
// Threads: any; hooks are set while no task runs.
// Lifetime: never destroyed, since the library calls until the process is gone.
class HostRecord {
 public:
  static HostRecord& Get() {
    static ProcessObject<HostRecord> record;
    return *record;
  }

  std::function<void(std::int32_t id)> on_start;
  std::function<void(std::int32_t id)> on_progress;
  std::function<void(std::int32_t id)> on_complete;

  static void Start(std::int32_t id) {
    Get().Note("start " + std::to_string(id));
    Run(Get().on_start, id);
  }
  static void Progress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                       std::int32_t /*bytes_per_second*/) {
    std::string note = "progress " + std::to_string(id);
    note += " " + std::to_string(total);
    if (downloaded < 0 || downloaded > total) note += " impossible";
    Get().Note(note);
    Run(Get().on_progress, id);
  }
  static void Complete(std::int32_t id) {
    Get().Note("complete " + std::to_string(id));
    Run(Get().on_complete, id);
  }
  static void Fail(std::int32_t id, NsResultEnum result) {
    std::string note = "fail " + std::to_string(id);
    Get().Note(note += " " + std::to_string(result));
  }

  // A callback notes itself; a test notes what its hooks saw.
  void Note(const std::string& note) {
    const std::lock_guard guard(m_mutex);
    m_notes.push_back(note);
    m_threads.push_back(std::this_thread::get_id());
    m_changed.notify_all();
  }

  void Clear() {
    on_start = on_progress = on_complete = nullptr;
    const std::lock_guard guard(m_mutex);
    m_notes.clear();
    m_threads.clear();
  }
  [[nodiscard]] std::vector<std::string> Notes() const {
    const std::lock_guard guard(m_mutex);
    return m_notes;
  }
  // How often exactly this was noted; with a blank at the end, how many notes begin so.
  [[nodiscard]] int Count(const std::string& note) const {
    const std::lock_guard guard(m_mutex);
    return CountLocked(note);
  }
  // False after half a minute.
  [[nodiscard]] bool Await(const std::string& note, int count = 1) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(30),
                              [&] { return CountLocked(note) >= count; });
  }
  [[nodiscard]] bool WasOn(std::thread::id thread) const {
    const std::lock_guard guard(m_mutex);
    return std::find(m_threads.begin(), m_threads.end(), thread) != m_threads.end();
  }

 private:
  static void Run(const std::function<void(std::int32_t)>& hook, std::int32_t id) {
    if (hook) hook(id);
  }
  [[nodiscard]] int CountLocked(const std::string& note) const {
    const bool beginning = note.ends_with(' ');
    return static_cast<int>(
        std::count_if(m_notes.begin(), m_notes.end(), [&](const std::string& candidate) {
          return beginning ? candidate.starts_with(note) : candidate == note;
        }));
  }

  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  std::vector<std::string> m_notes;
  std::vector<std::thread::id> m_threads;  // of each note
};

}  // namespace Tarnlo::test
