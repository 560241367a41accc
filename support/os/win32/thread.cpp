#include "support/os/thread.h"

#include <atomic>
#include <memory>
#include <utility>

#include "support/os/fault_point.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

constexpr DWORD kTerminationMs = 1000;

std::atomic<std::uint32_t> g_forced_ends{0};

struct StartContext {
  Thread::Entry entry;
  void* context;
  std::shared_ptr<HeldLocks> held;
};

DWORD WINAPI RunEntry(void* parameter) {
  const StartContext start = *std::unique_ptr<StartContext>(static_cast<StartContext*>(parameter));
  HeldLocks::Adopt(start.held.get());
  const DWORD code = start.entry(start.context);
  HeldLocks::Adopt(nullptr);
  return code;
}

}  // namespace

Thread Thread::Start(std::size_t stack_bytes, Entry entry, void* context) {
  auto held = std::make_shared<HeldLocks>();
  auto start = std::make_unique<StartContext>(StartContext{entry, context, held});
  DWORD id = 0;
  Thread thread;
  if (Fails(Call::kThread)) return thread;
  thread.m_handle.Reset(CreateThread(nullptr, stack_bytes, RunEntry, start.get(),
                                     STACK_SIZE_PARAM_IS_A_RESERVATION, &id));
  if (!thread.valid()) return thread;
  static_cast<void>(start.release());  // the new thread's from now on
  thread.m_held = std::move(held);
  thread.m_id = id;
  return thread;
}

bool Thread::IsRunning() const {
  return !WaitForEnd(0);
}

bool Thread::WaitForEnd(std::uint32_t milliseconds) const {
  return !valid() || WaitForSingleObject(m_handle.get(), milliseconds) == WAIT_OBJECT_0;
}

void Thread::Terminate() {
  if (!valid() || !AwaitNoLocks()) return;
  g_forced_ends.fetch_add(1);
  // Returns at once; what the thread uses may be freed only when it is really gone.
  if (TerminateThread(m_handle.get(), 0) != 0) WaitForSingleObject(m_handle.get(), kTerminationMs);
}

std::uint32_t CurrentThreadId() {
  return GetCurrentThreadId();
}

std::uint32_t ForcedEnds() {
  return g_forced_ends.load();
}

}  // namespace Tarnlo::os
