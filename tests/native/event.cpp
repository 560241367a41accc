#include "support/os/event.h"

#include <array>
#include <memory>

#include "tests/native/kernel_object.h"

namespace Tarnlo::os {

Event::Event() : m_handle(native::HandleOf(std::make_unique<native::Signal>().release())) {}

void Event::Set() {
  m_set.store(true, std::memory_order_release);
  auto& signal = native::ObjectOf<native::Signal>(m_handle.get());
  signal.AddReference();  // who waits may close it as soon as it is set
  signal.Set();
  signal.DropReference();
}

bool Event::Wait(std::uint32_t milliseconds) const {
  return IsSet() || WaitForAny(std::array{waitable()}, milliseconds).has_value();
}

}  // namespace Tarnlo::os
