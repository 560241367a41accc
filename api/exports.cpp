#include "api/callback_bridge.h"
#include "api/library.h"
#include "api/tarnlo.h"
#include "support/os/clock.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr std::uint32_t kTestMs = 100'000;
constexpr std::int32_t kTestId = 755;
constexpr const wchar_t* kTestUrl = L"http://localhost/tarnlo/setup.exe";
constexpr const wchar_t* kTestFolder = L"C:\\Users\\Public\\Documents\\Quorvane\\";

std::int32_t AddTask(DownloaderManager& manager, const Task& task) {
  return manager.AddTask(NarrowToWide(task.url).c_str(), task.save_dir.c_str(), L"", task.id,
                         NarrowToWide(task.version).c_str(), NarrowToWide(task.md5).c_str(), 0);
}

// False before the first task too.
bool Tell(std::int32_t (DownloaderManager::*operation)(std::int32_t), std::int32_t id) {
  try {
    DownloaderManager* manager = StartedLibrary();
    return manager != nullptr && (manager->*operation)(id) != 0;
  } catch (...) {  // out of memory: no exception crosses the boundary
    return false;
  }
}

}  // namespace

void set_callback_start(StartCallback callback) {
  g_host_callbacks.start = callback;
}

void set_callback_complete(CompleteCallback callback) {
  g_host_callbacks.complete = callback;
}

void set_callback_process(ProcessCallback callback) {
  g_host_callbacks.process = callback;
}

void set_callback_fail(FailCallback callback) {
  g_host_callbacks.fail = callback;
}

std::int32_t create_task(const Task* task) {
  try {
    DownloaderManager* manager = StartLibrary();
    return manager == nullptr ? -1 : AddTask(*manager, *task);
  } catch (...) {  // out of memory
    return -1;
  }
}

bool cancel_task(std::int32_t id) {
  return Tell(&DownloaderManager::CancelTask, id);
}

bool pause_task(std::int32_t id) {
  return Tell(&DownloaderManager::PauseTask, id);
}

bool continue_task(std::int32_t id) {
  return Tell(&DownloaderManager::ContinueTask, id);
}

// Deliberately without effect: tasks end one by one, or with the process.
bool cancel_all_task() {
  return true;
}

std::string get_all_tasks() {
  return {};
}

std::int32_t test_download() {
  try {
    if (DownloaderManager* manager = StartSessionAside()) {
      manager->AddTask(kTestUrl, kTestFolder, L"", kTestId, L"", L"", 0);
    }
  } catch (...) {  // out of memory: the test downloads nothing
  }
  os::SleepMs(kTestMs);
  return 0;
}

std::int32_t fntarnlo() {
  return 0;
}

std::int32_t ntarnlo = 0;

Ctarnlo::Ctarnlo() = default;

}  // namespace Tarnlo
