// One event of each type.
#pragma once

#include <cstdint>

#include "support/task_event.h"

namespace Tarnlo::test {

// Types 0 to 7, of task 7; of worker 3 where a worker sends it.
inline void SendAllTypes(IObserver& observer, std::int32_t result = 0) {
  SendTextEvent(&observer, 7, kEventRemoteName, L"setup.exe");
  SendEvent(&observer, kWholeJob, 7, kEventContentLength, 5'000'000'000);
  SendEvent(&observer, kWholeJob, 7, kEventFinished, result);
  SendProgressEvent(&observer, 7, TaskProgress{7, 1000, 400, 2000});
  SendEvent(&observer, 3, 7, kEventRangeLength, 100);
  SendEvent(&observer, 3, 7, kEventRangeProgress, 60);
  SendEvent(&observer, 3, 7, kEventBufferedBytes, 20);
  SendEvent(&observer, kWholeJob, 7, kEventStarted, 0);
}

}  // namespace Tarnlo::test
