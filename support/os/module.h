// The life of the loaded module.
#pragma once

namespace Tarnlo::os {

// The module that holds this code stays loaded until the process ends, whatever the host frees.
bool PinThisModule();

}  // namespace Tarnlo::os
