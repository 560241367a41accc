#include "support/os/event.h"

#include <algorithm>
#include <array>
#include <memory>

#include "support/os/clock.h"
#include "support/os/fault_point.h"
#include "tests/native/kernel_object.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kSliceMs = 10;

void* MakeSignal() {
  if (Fails(Call::kEvent)) return nullptr;
  return native::HandleOf(std::make_unique<native::Signal>().release());
}

}  // namespace

Event::Event() : m_handle(MakeSignal()) {}

void Event::Set() {
  m_set.store(true, std::memory_order_release);
  if (!m_handle.valid()) return;
  auto& signal = native::ObjectOf<native::Signal>(m_handle.get());
  signal.AddReference();  // who waits may close it as soon as it is set
  signal.Set();
  signal.DropReference();
}

bool Event::Wait(std::uint32_t milliseconds) const {
  if (IsSet()) return true;
  const std::uint32_t limit_ms = ScaledWait(milliseconds);
  if (m_handle.valid()) return native::WaitForFirst(std::array{waitable()}, limit_ms).has_value();
  const std::uint32_t begin = TickMs();
  for (std::uint32_t waited = 0; waited < limit_ms; waited = TickMs() - begin) {
    SleepMs(std::min(kSliceMs, limit_ms - waited));
    if (IsSet()) return true;
  }
  return false;
}

}  // namespace Tarnlo::os
