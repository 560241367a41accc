#include "support/os/wait.h"

#include <array>

#include "support/os/fault_point.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {

WaitAnswer WaitForAny(std::span<const Waitable> objects, std::uint32_t milliseconds) {
  constexpr WaitAnswer kFailed{std::nullopt, true};
  if (Fails(Call::kWait)) return kFailed;
  std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> handles{};
  if (objects.empty() || objects.size() > handles.size()) return kFailed;
  for (std::size_t i = 0; i < objects.size(); ++i) handles[i] = objects[i].native;
  const DWORD answer = WaitForMultipleObjects(static_cast<DWORD>(objects.size()), handles.data(),
                                              FALSE, milliseconds);
  if (answer == WAIT_TIMEOUT) return {};
  const std::size_t index = answer - WAIT_OBJECT_0;
  if (index >= objects.size()) return kFailed;
  return {index};
}

}  // namespace Tarnlo::os
