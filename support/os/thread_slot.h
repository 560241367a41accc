// One pointer per thread.
#pragma once

#include <cstdint>

namespace Tarnlo::os {

// Null on a thread that has not set it. Needs nothing at a thread's start or end. Does not own.
class ThreadSlot {
 public:
  ThreadSlot();
  ~ThreadSlot();
  ThreadSlot(const ThreadSlot&) = delete;
  ThreadSlot& operator=(const ThreadSlot&) = delete;

  [[nodiscard]] void* Get() const;
  void Set(void* value);

 private:
  std::uint32_t m_index;
};

}  // namespace Tarnlo::os
