#include "support/os/module.h"

namespace Tarnlo::os {

// A program's own code is never unloaded.
bool PinThisModule() {
  return true;
}

}  // namespace Tarnlo::os
