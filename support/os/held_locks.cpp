#include "support/os/held_locks.h"

#include <cstdint>
#include <new>

#include "support/os/clock.h"
#include "support/os/thread_slot.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kUntilTheEndMs = 1000;

// Made with the first thread, and never destroyed: from then on the module stays loaded. A module
// that is unloaded again without having started one has made none.
constinit std::atomic<ThreadSlot*> g_slot{nullptr};

ThreadSlot& MakeSlot() {
  alignas(ThreadSlot) static unsigned char storage[sizeof(ThreadSlot)];
  static auto* const slot = new (storage) ThreadSlot();
  return *slot;
}

HeldLocks* OfThisThread() {
  const ThreadSlot* const slot = g_slot.load(std::memory_order_acquire);
  return slot == nullptr ? nullptr : static_cast<HeldLocks*>(slot->Get());
}

}  // namespace

void HeldLocks::Adopt(HeldLocks* locks) {
  ThreadSlot& slot = MakeSlot();
  slot.Set(locks);
  g_slot.store(&slot, std::memory_order_release);
}

void HeldLocks::Enter() {
  HeldLocks* const locks = OfThisThread();
  if (locks == nullptr) return;
  int count = locks->m_count.load();
  while (count != kDoomed && !locks->m_count.compare_exchange_weak(count, count + 1)) {
  }
  while (count == kDoomed) SleepMs(kUntilTheEndMs);
}

void HeldLocks::Leave() {
  if (HeldLocks* const locks = OfThisThread()) --locks->m_count;
}

bool HeldLocks::Doom() {
  int none = 0;
  return m_count.compare_exchange_strong(none, kDoomed);
}

}  // namespace Tarnlo::os
