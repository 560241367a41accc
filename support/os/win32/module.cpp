#include "support/os/module.h"

#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {

bool PinThisModule() {
  static const char address_inside = 0;
  HMODULE module = nullptr;
  return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                            reinterpret_cast<const wchar_t*>(&address_inside), &module) != 0;
}

}  // namespace Tarnlo::os
