// A stop that comes while the first of several HEAD exchanges is under way.
#pragma once

#include "support/os/event.h"
#include "tests/faults/faults.h"
#include "tests/support/repeat_until.h"

namespace Tarnlo::test {

// Calls `ask` with a stop event that the first exchange sets; again where that one has not begun in
// its 100 ms. True when it was the only one.
template <typename Ask>
bool IsEndedInTheFirstExchange(Ask ask) {
  return RepeatUntil([&] {
    os::Event stop;
    Faults faults;
    faults.HoldUntil(os::Call::kHead, [&stop] {
      stop.Set();
      return true;
    });
    ask(stop);
    return stop.IsSet() && faults.Calls(os::Call::kHead) == 1;
  });
}

}  // namespace Tarnlo::test
