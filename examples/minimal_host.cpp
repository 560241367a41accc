// The least a host needs: one file into one folder, and how it ended.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "api/tarnlo.h"

namespace {
std::atomic<int> g_ended{-1};  // 0, or why it failed
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  Tarnlo::set_callback_process([](int, std::int64_t done, std::int64_t total, int speed) {
    std::printf("%lld of %lld bytes, %d/s\n", static_cast<long long>(done),
                static_cast<long long>(total), speed);
  });
  Tarnlo::set_callback_complete([](int) { g_ended = 0; });
  Tarnlo::set_callback_fail([](int, Tarnlo::NsResultEnum why) { g_ended = why; });

  Tarnlo::Task task;
  task.id = 1;
  task.url = argv[1];
  task.save_dir = L".";
  if (Tarnlo::create_task(&task) == -1) return 1;
  while (g_ended == -1) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return g_ended;
}
