#include "support/os/path_form.h"

namespace Tarnlo::os {

std::wstring CallForm(const std::wstring& path, std::size_t /*extra*/) {
  return path;
}

}  // namespace Tarnlo::os
