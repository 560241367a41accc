#include "support/os/wait.h"

#include <algorithm>

#include "support/os/fault_point.h"
#include "tests/native/kernel_object.h"

namespace Tarnlo::os {
namespace {

constexpr std::size_t kMaxObjects = 64;

native::Signal& SignalOf(const Waitable& object) {
  return native::ObjectOf<native::Signal>(object.native);
}

std::optional<std::size_t> FirstSet(std::span<const Waitable> objects) {
  const auto found = std::find_if(objects.begin(), objects.end(),
                                  [](const Waitable& object) { return SignalOf(object).IsSet(); });
  if (found == objects.end()) return std::nullopt;
  return static_cast<std::size_t>(found - objects.begin());
}

}  // namespace

std::optional<std::size_t> native::WaitForFirst(std::span<const Waitable> objects,
                                                std::uint32_t milliseconds) {
  if (objects.empty() || objects.size() > kMaxObjects) return std::nullopt;
  for (const Waitable& object : objects) {
    if (object.native == nullptr) return std::nullopt;
  }
  if (const auto first = FirstSet(objects); first || milliseconds == 0) return first;
  native::Waiter waiter;
  for (const Waitable& object : objects) SignalOf(object).Add(waiter);
  waiter.Sleep(milliseconds);
  for (const Waitable& object : objects) SignalOf(object).Remove(waiter);
  return FirstSet(objects);
}

std::optional<std::size_t> WaitForAny(std::span<const Waitable> objects,
                                      std::uint32_t milliseconds) {
  if (Fails(Call::kWait)) return std::nullopt;
  return native::WaitForFirst(objects, milliseconds);
}

}  // namespace Tarnlo::os
