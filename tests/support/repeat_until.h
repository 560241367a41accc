// For what a machine that is away for some milliseconds spoils without being wrong.
#pragma once

#include <gtest/gtest.h>

#include <chrono>

namespace Tarnlo::test {

// Makes the attempt again and again until it says that all was in time; false after a minute, and
// when the test has failed.
template <typename Attempt>
bool RepeatUntil(Attempt attempt) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!attempt()) {
    if (testing::Test::HasFailure() || std::chrono::steady_clock::now() > end) return false;
  }
  return true;
}

}  // namespace Tarnlo::test
