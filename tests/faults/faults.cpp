#include "tests/faults/faults.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "support/os/fault_point.h"
#include "support/os/thread.h"
#include "support/os/wait.h"

namespace Tarnlo {
namespace {

constexpr std::array<const char*, os::kCalls> kNames = {
    "buffer",        "event",         "thread", "wait",      "open file",
    "file size",     "seek",          "read",   "write",     "write whole",
    "set end",       "flush",         "remove", "mark file", "rename",
    "start network", "resolve",       "socket", "blocking",  "connect",
    "wait readable", "wait writable", "send",   "receive",   "head"};

// Which of the calls counted here fail: from `first` on, `end` no more.
struct Rule {
  std::atomic<int> calls{0};
  std::atomic<int> first{0};
  std::atomic<int> end{0};

  void Set(int from, int times) {
    end = 0;
    const int before = calls;
    first = before + from;
    end = before + from + times;
  }
  void Clear() { calls = first = end = 0; }
  bool Matches() {
    const int number = calls.fetch_add(1) + 1;
    return number < end && number >= first;  // in the order in which both are set
  }
};

std::atomic<bool> g_counting{false};
std::array<Rule, os::kCalls> g_rules;
Rule g_any;
std::atomic<int> g_failed{0};
std::atomic<int> g_last_failed{-1};
std::atomic<std::uint32_t> g_wait_divisor{1};
std::atomic<std::uint32_t> g_interval_divisor{1};
std::atomic<std::uint32_t> g_watched_ms{os::kForever};
std::atomic<std::uint32_t> g_watched_last_ms{os::kForever};
std::atomic<int> g_waits{0};
std::atomic<int> g_held{-1};        // the kind that does not come back
std::atomic<int> g_holding{0};      // of it
std::atomic<int> g_standing{0};     // that have not gone on yet
std::atomic<int> g_let_through{0};  // of it, from the first held on
thread_local int t_without = 0;
constexpr std::chrono::milliseconds kLook(2);

struct AskedWait {
  std::uint32_t thread_id = 0;
  std::uint32_t milliseconds = 0;
};
std::mutex g_asked_mutex;
std::vector<AskedWait> g_asked;

void NoteWait(std::uint32_t milliseconds) {
  if (!g_counting || t_without > 0 || milliseconds == 0) return;
  const std::lock_guard guard(g_asked_mutex);
  g_asked.push_back({os::CurrentThreadId(), milliseconds});
}

// Rounded up: what is more than nothing stays so.
std::uint32_t Divided(std::uint32_t milliseconds, std::uint32_t divisor) {
  return (milliseconds + divisor - 1) / divisor;
}

// False when it is not so within a minute.
template <typename Condition>
bool Await(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(kLook);
  }
  return true;
}

// Whether the call that is the n-th of the held kind may go on; set before any of them is held.
std::function<bool(int number)> g_may_go_on;

void StandStillIfHeld(os::Call call) {
  const int kind = static_cast<int>(call);
  ++g_standing;
  if (g_held == kind) {
    const int number = ++g_holding;
    while (g_held == kind && !g_may_go_on(number)) std::this_thread::sleep_for(kLook);
  }
  --g_standing;
}

void HoldNone() {
  g_held = -1;
  while (g_standing > 0) std::this_thread::sleep_for(kLook);
}

void HoldNext(os::Call call, std::function<bool(int)> may_go_on) {
  HoldNone();
  g_holding = 0;
  g_may_go_on = std::move(may_go_on);
  g_held = static_cast<int>(call);
}

}  // namespace

bool os::Fails(Call call) {
  if (!g_counting.load(std::memory_order_relaxed) || t_without > 0) return false;
  const bool any = g_any.Matches();
  const bool own = g_rules[static_cast<std::size_t>(call)].Matches();
  StandStillIfHeld(call);
  if (!any && !own) return false;
  g_last_failed = static_cast<int>(call);
  ++g_failed;
  return true;
}

std::uint32_t os::ScaledInterval(std::uint32_t milliseconds) {
  const std::uint32_t divisor = g_interval_divisor.load(std::memory_order_relaxed);
  return divisor == 0 ? kForever : Divided(milliseconds, divisor);
}

std::uint32_t os::ScaledWait(std::uint32_t milliseconds) {
  NoteWait(milliseconds);
  if (milliseconds != os::kForever && milliseconds == g_watched_ms && t_without == 0) {
    ++g_waits;
    return g_watched_last_ms;
  }
  if (milliseconds == kForever) return kForever;
  return Divided(milliseconds, g_wait_divisor.load(std::memory_order_relaxed));
}

namespace test {

Faults::Faults() {
  for (Rule& rule : g_rules) rule.Clear();
  g_any.Clear();
  g_failed = 0;
  g_last_failed = -1;
  {
    const std::lock_guard guard(g_asked_mutex);
    g_asked.clear();
  }
  g_counting = true;
}

Faults::~Faults() {
  g_counting = false;
  HoldNone();
  g_wait_divisor = 1;
  g_interval_divisor = 1;
  g_watched_ms = os::kForever;
}

void Faults::Fail(os::Call call, int first, int times) {
  g_rules[static_cast<std::size_t>(call)].Set(first, times);
}

void Faults::FailAny(int nth) {
  g_any.Set(nth, 1);
}

void Faults::Hold(os::Call call) {
  g_let_through = 0;
  HoldNext(call, [](int number) { return g_let_through >= number; });
}

void Faults::LetThrough(int calls) {
  g_let_through += calls;
}

void Faults::HoldUntil(os::Call call, std::function<bool()> condition) {
  HoldNext(call, [condition = std::move(condition)](int) { return condition(); });
}

void Faults::DivideWaits(std::uint32_t divisor) {
  g_wait_divisor = divisor;
}

void Faults::DivideIntervals(std::uint32_t divisor) {
  g_interval_divisor = divisor;
}

void Faults::WatchWaits(std::uint32_t milliseconds, std::uint32_t instead) {
  g_waits = 0;
  g_watched_last_ms = instead;
  g_watched_ms = milliseconds;
}

int Faults::Calls() const {
  return g_any.calls;
}

int Faults::Calls(os::Call call) const {
  return g_rules[static_cast<std::size_t>(call)].calls;
}

bool Faults::AwaitCalls(os::Call call, int count) const {
  return Await([&] { return Calls(call) >= count; });
}

int Faults::Waits() const {
  return g_waits;
}

bool Faults::AwaitWaits(int count) const {
  return Await([&] { return Waits() >= count; });
}

std::vector<std::uint32_t> Faults::WaitsOf(std::uint32_t thread_id) const {
  const std::lock_guard guard(g_asked_mutex);
  std::vector<std::uint32_t> waits;
  for (const AskedWait& asked : g_asked) {
    if (asked.thread_id == thread_id) waits.push_back(asked.milliseconds);
  }
  return waits;
}

int Faults::Failed() const {
  return g_failed;
}

const char* Faults::LastFailed() const {
  const int last = g_last_failed;
  return last < 0 ? nullptr : kNames[static_cast<std::size_t>(last)];
}

WithoutFaults::WithoutFaults() {
  ++t_without;
}

WithoutFaults::~WithoutFaults() {
  --t_without;
}

}  // namespace test
}  // namespace Tarnlo
