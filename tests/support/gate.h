// A point in a server's script that a test opens.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace Tarnlo::test {

// Copies are the same gate.
//
// Threads: any.
class Gate {
 public:
  // Lets everyone through, those to come too.
  void Open() const {
    const std::lock_guard guard(m_state->mutex);
    m_state->open = true;
    m_state->changed.notify_all();
  }

  // The test's side: until `count` have come to the gate. False after half a minute.
  [[nodiscard]] bool AwaitArrivals(int count = 1) const {
    std::unique_lock lock(m_state->mutex);
    return m_state->changed.wait_for(lock, std::chrono::seconds(30),
                                     [&] { return m_state->arrivals >= count; });
  }

  [[nodiscard]] int Arrivals() const {
    const std::lock_guard guard(m_state->mutex);
    return m_state->arrivals;
  }

  // The server's side: until the gate is open. False when `stopping` first.
  [[nodiscard]] bool Pass(const std::atomic<bool>& stopping) const {
    std::unique_lock lock(m_state->mutex);
    ++m_state->arrivals;
    m_state->changed.notify_all();
    while (!m_state->open && !stopping) {
      m_state->changed.wait_for(lock, std::chrono::milliseconds(20));
    }
    return m_state->open;
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool open = false;
    int arrivals = 0;
  };
  std::shared_ptr<State> m_state = std::make_shared<State>();
};

}  // namespace Tarnlo::test
