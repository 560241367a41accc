// Makes calls of the library to the system fail.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "support/os/call.h"

namespace Tarnlo::test {

// While one exists, calls are counted and those it was told of fail; without one none does. A line
// of the log is written by calls that have no fault point. The log's start and its look for a
// backup make calls that have one (an event, a thread; a file's opening and size): the process's
// log is started before one of these is made, and looks again only every five minutes, at the file
// only in the last hour of a day.
//
// Threads: any. Lifetime: at most one at a time.
class Faults {
 public:
  Faults();
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;
  ~Faults();

  // Of the calls of this kind from now on the `first`-th, from 1, and the ones after it fail,
  // `times` in all.
  void Fail(os::Call call, int first = 1, int times = 1);
  // Of the calls of all kinds from now on the `nth` fails.
  void FailAny(int nth);
  // The calls of this kind from now on do not come back before they are let through, one by one or,
  // at this object's end, all. One kind at a time is held.
  void Hold(os::Call call);
  void LetThrough(int calls = 1);
  // The same until `condition`, asked on the thread that makes the call, is true.
  void HoldUntil(os::Call call, std::function<bool()> condition);
  // Waits for a single event take a part of their time.
  void DivideWaits(std::uint32_t divisor);
  // os::HasElapsed is true after a part of the time, with 0 never: the trailer is saved sooner, or
  // not at all.
  void DivideIntervals(std::uint32_t divisor);
  // Counts the waits for a single event that are to last this long, from now on, and makes them
  // last `instead`.
  void WatchWaits(std::uint32_t milliseconds, std::uint32_t instead);
  void WatchWaits(std::uint32_t milliseconds) { WatchWaits(milliseconds, milliseconds); }

  // Calls made since this was made, of all kinds or one, and how many of them failed.
  [[nodiscard]] int Calls() const;
  [[nodiscard]] int Calls(os::Call call) const;
  // Until so many of that kind were begun; false after a minute.
  [[nodiscard]] bool AwaitCalls(os::Call call, int count) const;
  // Until so many more than now were begun: the first of those that follow each other has ended.
  [[nodiscard]] bool AwaitMoreCalls(os::Call call, int count) const {
    return AwaitCalls(call, Calls(call) + count);
  }
  // The watched waits that were begun; until there are so many, false after a minute.
  [[nodiscard]] int Waits() const;
  [[nodiscard]] bool AwaitWaits(int count) const;
  // The waits for a single event that the thread has asked for, whatever they lasted: their
  // milliseconds. Looks at an event are none.
  [[nodiscard]] std::vector<std::uint32_t> WaitsOf(std::uint32_t thread_id) const;
  [[nodiscard]] int Failed() const;
  // The kind of the last one that failed; null when none did.
  [[nodiscard]] const char* LastFailed() const;
};

// What the calling thread asks of the system meanwhile is not counted and does not fail: for what a
// test does for itself.
class WithoutFaults {
 public:
  WithoutFaults();
  WithoutFaults(const WithoutFaults&) = delete;
  WithoutFaults& operator=(const WithoutFaults&) = delete;
  ~WithoutFaults();
};

}  // namespace Tarnlo::test
