#include "support/run_aside.h"

#include <array>
#include <cstddef>

#include "support/os/thread.h"
#include "support/os/wait.h"

namespace Tarnlo {
namespace {

// A name resolver needs more than a thread of ours would.
constexpr std::size_t kStackBytes = std::size_t{1024} * 1024;

using Work = std::function<void()>;

std::uint32_t RunWork(void* context) {
  const std::unique_ptr<Work> work(static_cast<Work*>(context));
  try {
    (*work)();
  } catch (...) {  // nobody is there to be told
    return 1;
  }
  return 0;
}

}  // namespace

bool StartDetached(std::function<void()> work) {
  auto owned = std::make_unique<Work>(std::move(work));
  const os::Thread thread = os::Thread::Start(kStackBytes, RunWork, owned.get());
  if (!thread.valid()) return false;
  static_cast<void>(owned.release());  // the new thread's from now on
  return true;
}

bool WaitUnlessStopped(const os::Event& done, const os::Event* stop, std::uint32_t milliseconds) {
  if (stop == nullptr) return done.Wait(milliseconds);
  const std::array<os::Waitable, 2> waitables = {stop->waitable(), done.waitable()};
  return os::WaitForAny(waitables, milliseconds).signalled == std::size_t{1};
}

}  // namespace Tarnlo
