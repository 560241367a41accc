#include "support/os/thread.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <ctime>
#include <memory>
#include <mutex>
#include <utility>

#include "support/os/fault_point.h"
#include "tests/native/kernel_mutex_object.h"
#include "tests/native/kernel_object.h"
#include "tests/native/unfrozen.h"

namespace Tarnlo::os {
namespace native {
namespace {

// What a sanitizer adds to every frame needs more than the library asks for.
constexpr std::size_t kMinStackBytes = 2 * 1024 * 1024;
constexpr std::uint32_t kTerminationMs = 30'000;  // a sanitizer may be slow to tell the thread
constexpr std::uint32_t kTellAgainMs = 50;

std::atomic<std::uint32_t> g_forced_ends{0};

// A thread, signalled when it has ended. The thread refers to it as well as its handles do.
class ThreadObject : public Signal {
 public:
  ThreadObject(Thread::Entry entry, void* context, std::shared_ptr<HeldLocks> locks)
      : m_entry(entry), m_context(context), m_locks(std::move(locks)) {}

  bool Start(std::size_t stack_bytes);
  void Freeze();
  // On its own thread, where it stays for ever.
  void FreezeHere();
  HeldMutexes& held() { return m_held; }
  [[nodiscard]] std::uint32_t id() const { return m_id.load(); }

 private:
  static void* Run(void* object);

  const Thread::Entry m_entry;
  void* const m_context;
  const std::shared_ptr<HeldLocks> m_locks;
  HeldMutexes m_held;
  pthread_t m_thread{};
  std::atomic<std::uint32_t> m_id{0};
  Signal m_started;
  std::atomic<bool> m_frozen{false};
  std::atomic<bool> m_ending{false};  // by itself: it is not frozen any more
  std::mutex m_end_mutex;  // between its end and being ended: the thread is there while it is held
};

thread_local ThreadObject* t_current = nullptr;
thread_local HeldMutexes t_held;  // of a thread that is not ours

void FreezeHandler(int /*signal*/) {
  if (t_current != nullptr && !Unfrozen::Defers()) t_current->FreezeHere();
}

// Takes the handler into use, once.
bool HandleFreezing() {
  static const bool done = [] {
    struct sigaction action {};
    action.sa_handler = FreezeHandler;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    return sigaction(kFreezeSignal, &action, nullptr) == 0;
  }();
  return done;
}

void Await(Signal& signal, std::uint32_t milliseconds) {
  native::WaitForFirst(std::array{Waitable{HandleOf(&signal)}}, milliseconds);
}

bool ThreadObject::Start(std::size_t stack_bytes) {
  pthread_attr_t attributes;
  if (!HandleFreezing() || pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, std::max(stack_bytes, kMinStackBytes));
  AddReference();  // the thread's
  const bool started = pthread_create(&m_thread, &attributes, Run, this) == 0;
  pthread_attr_destroy(&attributes);
  if (started) {
    Await(m_started, kForever);
  } else {
    DropReference();
  }
  return started;
}

void* ThreadObject::Run(void* object) {
  auto& self = *static_cast<ThreadObject*>(object);
  t_current = &self;
  self.m_id.store(static_cast<std::uint32_t>(gettid()));
  self.m_started.Set();
  HeldLocks::Adopt(self.m_locks.get());
  self.m_entry(self.m_context);
  HeldLocks::Adopt(nullptr);
  t_current = nullptr;
  self.m_ending.store(true);
  {
    const SeamGuard guard(self.m_end_mutex);
    self.m_held.AbandonAll();
    self.Set();
  }
  self.DropReference();
  return nullptr;
}

void ThreadObject::Freeze() {
  const SeamGuard guard(m_end_mutex);
  if (IsSet()) return;
  const auto comes_to_it = [this] { return m_frozen.load() || m_ending.load(); };
  for (std::uint32_t waited = 0; !comes_to_it() && waited < kTerminationMs; ++waited) {
    // Again and again: the thread sanitizer loses a signal that comes while the thread is about to
    // wait for the first time.
    if (waited % kTellAgainMs == 0 && pthread_kill(m_thread, kFreezeSignal) != 0) return;
    const timespec millisecond{0, 1'000'000};
    nanosleep(&millisecond, nullptr);
  }
  if (!m_frozen.load()) return;
  m_held.AbandonAll();
  Set();
}

void ThreadObject::FreezeHere() {
  m_frozen.store(true);
  for (;;) pause();
}

}  // namespace

HeldMutexes& HeldByThisThread() {
  return t_current != nullptr ? t_current->held() : t_held;
}

}  // namespace native

Thread Thread::Start(std::size_t stack_bytes, Entry entry, void* context) {
  auto held = std::make_shared<HeldLocks>();
  auto object = std::make_unique<native::ThreadObject>(entry, context, held);
  Thread thread;
  if (Fails(Call::kThread) || !object->Start(stack_bytes)) return thread;
  thread.m_held = std::move(held);
  thread.m_id = object->id();
  thread.m_handle.Reset(native::HandleOf(object.release()));
  return thread;
}

bool Thread::IsRunning() const {
  return !WaitForEnd(0);
}

bool Thread::WaitForEnd(std::uint32_t milliseconds) const {
  return !valid() || native::WaitForFirst(std::array{waitable()}, milliseconds).has_value();
}

void Thread::Terminate() {
  if (!valid() || !AwaitNoLocks()) return;
  native::g_forced_ends.fetch_add(1);
  native::ObjectOf<native::ThreadObject>(m_handle.get()).Freeze();
}

std::uint32_t CurrentThreadId() {
  return static_cast<std::uint32_t>(gettid());
}

std::uint32_t ForcedEnds() {
  return native::g_forced_ends.load();
}

}  // namespace Tarnlo::os
