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

bool CanBeWaitedFor(std::span<const Waitable> objects) {
  return !objects.empty() && objects.size() <= kMaxObjects &&
         std::ranges::none_of(objects,
                              [](const Waitable& object) { return object.native == nullptr; });
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
  if (!CanBeWaitedFor(objects)) return std::nullopt;
  if (const auto first = FirstSet(objects); first || milliseconds == 0) return first;
  native::Waiter waiter;
  for (const Waitable& object : objects) SignalOf(object).Add(waiter);
  waiter.Sleep(milliseconds);
  for (const Waitable& object : objects) SignalOf(object).Remove(waiter);
  return FirstSet(objects);
}

WaitAnswer WaitForAny(std::span<const Waitable> objects, std::uint32_t milliseconds) {
  if (Fails(Call::kWait) || !CanBeWaitedFor(objects)) return {std::nullopt, true};
  return {native::WaitForFirst(objects, milliseconds)};
}

}  // namespace Tarnlo::os
