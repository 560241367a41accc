#include "support/os/event.h"

#include <algorithm>

#include "support/os/clock.h"
#include "support/os/fault_point.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kSliceMs = 10;

}  // namespace

Event::Event()
    : m_handle(Fails(Call::kEvent) ? nullptr : CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

void Event::Set() {
  m_set.store(true, std::memory_order_release);
  if (m_handle.valid()) SetEvent(m_handle.get());
}

bool Event::Wait(std::uint32_t milliseconds) const {
  if (IsSet()) return true;
  const std::uint32_t limit_ms = ScaledWait(milliseconds);
  if (m_handle.valid()) return WaitForSingleObject(m_handle.get(), limit_ms) == WAIT_OBJECT_0;
  const std::uint32_t begin = TickMs();
  for (std::uint32_t waited = 0; waited < limit_ms; waited = TickMs() - begin) {
    SleepMs(std::min(kSliceMs, limit_ms - waited));
    if (IsSet()) return true;
  }
  return false;
}

}  // namespace Tarnlo::os
