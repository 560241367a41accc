// Makes calls of the library to the system fail.
#pragma once

#include <cstdint>

#include "support/os/fault_point.h"

namespace Tarnlo::test {

// While one exists, calls are counted and those it was told of fail; without one none does. The
// log's own calls have no fault point.
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
  // Waits for a single event take a part of their time.
  void DivideWaits(std::uint32_t divisor);

  // Calls made since this was made, of all kinds or one, and how many of them failed.
  [[nodiscard]] int Calls() const;
  [[nodiscard]] int Calls(os::Call call) const;
  // Until so many of that kind were begun; false after a minute.
  [[nodiscard]] bool AwaitCalls(os::Call call, int count) const;
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
