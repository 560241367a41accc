#include "support/os/lock.h"

#include <atomic>
#include <memory>

#include "support/os/held_locks.h"
#include "tests/native/kernel_mutex_object.h"
#include "tests/native/sanitizer.h"

namespace Tarnlo::os {
namespace {

// The state as a number: held by a writer, waited for by a writer, and how many readers there are.
// Readers do not come in before a writer that waits.
constexpr std::uintptr_t kWriter = 1;
constexpr std::uintptr_t kWriterWaits = 2;
constexpr std::uintptr_t kReader = 4;

void* AsState(std::uintptr_t number) {
  return reinterpret_cast<void*>(number);
}

class State {
 public:
  explicit State(void*& state) : m_state(state) {}

  [[nodiscard]] std::uintptr_t Load() const {
    return reinterpret_cast<std::uintptr_t>(m_state.load(std::memory_order_relaxed));
  }
  // Changes `old` to `wanted`; otherwise tells in `old` what was found.
  bool Change(std::uintptr_t& old, std::uintptr_t wanted) {
    void* expected = AsState(old);
    if (m_state.compare_exchange_strong(expected, AsState(wanted), std::memory_order_acq_rel)) {
      return true;
    }
    old = reinterpret_cast<std::uintptr_t>(expected);
    return false;
  }
  void Await(std::uintptr_t old) { m_state.wait(AsState(old)); }
  void WakeAll() { m_state.notify_all(); }

 private:
  std::atomic_ref<void*> m_state;
};

bool TryShared(State& state, std::uintptr_t& seen) {
  while ((seen & (kWriter | kWriterWaits)) == 0) {
    if (state.Change(seen, seen + kReader)) return true;
  }
  return false;
}

}  // namespace

void Lock::Acquire() {
  HeldLocks::Enter();
  const native::LockNote note(this, native::LockUse::kExclusive);
  State state(m_state);
  std::uintptr_t seen = state.Load();
  for (;;) {
    if ((seen & ~kWriterWaits) == 0) {
      // Others that wait say so again when they wake.
      if (state.Change(seen, kWriter)) return;
    } else if ((seen & kWriterWaits) != 0 || state.Change(seen, seen | kWriterWaits)) {
      state.Await(seen | kWriterWaits);
      seen = state.Load();
    }
  }
}

void Lock::Release() {
  const native::UnlockNote note(this, native::LockUse::kExclusive);
  State state(m_state);
  std::uintptr_t seen = state.Load();
  while (!state.Change(seen, 0)) {
  }
  state.WakeAll();
  HeldLocks::Leave();
}

void Lock::AcquireShared() {
  HeldLocks::Enter();
  const native::LockNote note(this, native::LockUse::kShared);
  State state(m_state);
  std::uintptr_t seen = state.Load();
  while (!TryShared(state, seen)) {
    state.Await(seen);
    seen = state.Load();
  }
}

void Lock::ReleaseShared() {
  const native::UnlockNote note(this, native::LockUse::kShared);
  State state(m_state);
  std::uintptr_t seen = state.Load();
  while (!state.Change(seen, seen - kReader)) {
  }
  if (seen - kReader < kReader) state.WakeAll();
  HeldLocks::Leave();
}

bool Lock::TryAcquireShared() {
  HeldLocks::Enter();
  native::LockNote note(this, native::LockUse::kTryShared);
  State state(m_state);
  std::uintptr_t seen = state.Load();
  if (TryShared(state, seen)) return true;
  HeldLocks::Leave();
  return note.Failed();
}

KernelMutex::KernelMutex()
    : m_handle(native::HandleOf(std::make_unique<native::MutexObject>().release())) {}

bool KernelMutex::Acquire(std::uint32_t milliseconds) {
  if (!native::ObjectOf<native::MutexObject>(m_handle.get()).Acquire(milliseconds)) return false;
  HeldLocks::Enter();  // not before: the next one gets it from a thread that is ended here
  return true;
}

void KernelMutex::Release() {
  native::ObjectOf<native::MutexObject>(m_handle.get()).Release();
  HeldLocks::Leave();
}

}  // namespace Tarnlo::os
