// Where threads wait for one another.
#pragma once

#include <condition_variable>
#include <mutex>

namespace Tarnlo::test {

// For so many threads, once. In the place of std::latch and std::barrier: the library of the
// compiler for Windows waits for an atomic without looking at it again under the lock that it is
// notified without, so that a thread can miss the last one's coming and sleep for ever.
class Meeting {
 public:
  explicit Meeting(int threads) : m_missing(threads) {}
  // Back when all have come.
  void Attend() {
    std::unique_lock lock(m_mutex);
    if (--m_missing == 0) m_complete.notify_all();
    m_complete.wait(lock, [this] { return m_missing <= 0; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_complete;
  int m_missing;
};

}  // namespace Tarnlo::test
