// The main function of every test program: GoogleTest's, with a watchdog. A test that takes longer
// than the limit ends the program with its name on stderr and exit code 86.
//
// TARNLO_TEST_LIMIT  seconds a test may take; 0 waits for ever, for a debugger. Default 600.
// TARNLO_TEST_TEMP   a folder that becomes the program's temporary folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/system.h"

namespace {

constexpr int kHungExitCode = 86;
constexpr int kDefaultLimitSeconds = 600;

// Ends the process when one test runs longer than the limit.
//
// Threads: told of the tests on the main thread; looks at the clock on a thread of its own.
// Lifetime: stopped before main returns.
class Watchdog : public testing::EmptyTestEventListener {
 public:
  explicit Watchdog(std::chrono::seconds limit) : m_limit(limit), m_thread([this] { Watch(); }) {}
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
  ~Watchdog() override {
    Change([this] { m_stopping = true; });
    m_thread.join();
  }

  void OnTestStart(const testing::TestInfo& test) override {
    Change([&] {
      m_test = std::string(test.test_suite_name()) + "." + test.name();
      m_deadline = std::chrono::steady_clock::now() + m_limit;
    });
  }
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    Change([this] { m_test.clear(); });
  }

 private:
  template <typename Step>
  void Change(Step step) {
    const std::lock_guard lock(m_mutex);
    step();
    m_changed.notify_one();
  }

  void Watch() {
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
      if (m_test.empty()) {
        m_changed.wait(lock);
      } else if (m_changed.wait_until(lock, m_deadline) == std::cv_status::timeout &&
                 !m_test.empty() && std::chrono::steady_clock::now() >= m_deadline) {
        std::fprintf(stderr, "\n[  HUNG    ] %s: no end in %lld s\n", m_test.c_str(),
                     static_cast<long long>(m_limit.count()));
        std::fflush(nullptr);
        std::_Exit(kHungExitCode);
      }
    }
  }

  const std::chrono::seconds m_limit;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_test;  // the one that runs; empty between tests
  std::chrono::steady_clock::time_point m_deadline;
  bool m_stopping = false;
  std::thread m_thread;
};

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

std::chrono::seconds Limit() {
  const std::string text = Environment("TARNLO_TEST_LIMIT");
  return std::chrono::seconds(text.empty() ? kDefaultLimitSeconds : std::atoi(text.c_str()));
}

// GoogleTest takes it for a success when its filter matches nothing.
int RunTests() {
  const int result = RUN_ALL_TESTS();
  const bool is_child = !Environment(Tarnlo::test::kChildMark).empty();
  const bool ran_nothing = testing::UnitTest::GetInstance()->successful_test_count() == 0;
  return result == 0 && is_child && ran_nothing ? Tarnlo::test::kChildRanNothing : result;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (const std::string folder = Environment("TARNLO_TEST_TEMP"); !folder.empty()) {
    for (const char* name : {"TMP", "TEMP", "TMPDIR"}) Tarnlo::test::SetEnvironment(name, folder);
  }
  const std::chrono::seconds limit = Limit();
  if (limit.count() == 0) return RunTests();
  Watchdog watchdog(limit);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  listeners.Append(&watchdog);
  const int result = RunTests();
  listeners.Release(&watchdog);
  return result;
}
