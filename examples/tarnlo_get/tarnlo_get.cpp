// Downloads files from the command line through tarnlo.dll: an example of a host.
//
// The library tells everything on its own threads; here the callbacks only note it down, and the
// main thread looks at the notes, shows the progress on stderr and prints the results on stdout.
#include <windows.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "api/tarnlo.h"
#include "examples/tarnlo_get/command_line.h"
#include "examples/tarnlo_get/download.h"
#include "examples/tarnlo_get/file_name.h"
#include "examples/tarnlo_get/outcome.h"
#include "examples/tarnlo_get/progress_view.h"
#include "examples/tarnlo_get/stream.h"

namespace host {
namespace {

constexpr int kAllCompleted = 0;
constexpr int kOneFailed = 1;
constexpr int kBadArguments = 2;
constexpr int kInterrupted = 130;

// ---- What the callbacks tell ----

// Shared between the callbacks, Ctrl+C and the main thread.
std::mutex g_mutex;
std::condition_variable g_changed;
std::deque<Download> g_downloads;  // task ids are positions, from 1
bool g_interrupted = false;

template <typename Change>
void Note(std::int32_t id, Change change) {
  const std::lock_guard lock(g_mutex);
  change(g_downloads[static_cast<std::size_t>(id) - 1]);
  g_changed.notify_one();
}

void OnProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total, std::int32_t speed) {
  const Sample sample{Clock::now(), downloaded};
  Note(id, [&](Download& download) {
    if (!download.first) download.first = sample;
    download.last = sample;
    download.total = total;
    download.speed = speed;
  });
}

void OnEnd(std::int32_t id, std::int32_t result) {
  const Clock::time_point now = Clock::now();
  Note(id, [&](Download& download) {
    download.ended = now;
    download.result = result;
  });
}
void OnComplete(std::int32_t id) {
  OnEnd(id, Tarnlo::kResultSuccess);
}
void OnFail(std::int32_t id, Tarnlo::NsResultEnum result) {
  OnEnd(id, result);
}

// On a thread of the system's. A second Ctrl+C ends the program on the spot.
BOOL WINAPI OnConsoleEvent(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  const std::lock_guard lock(g_mutex);
  if (std::exchange(g_interrupted, true)) return FALSE;
  g_changed.notify_one();
  return TRUE;
}

// ---- The tasks ----

std::string ToNarrow(const std::wstring& text) {
  const int wide = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), wide, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, text.data(), wide, narrow.data(), size, nullptr, nullptr);
  return narrow;
}

void CreateTasks(const Arguments& arguments, const std::filesystem::path& folder) {
  for (const std::wstring& url : arguments.urls) {
    Tarnlo::Task task;
    task.save_dir = folder.wstring();
    task.url = ToNarrow(url);
    task.md5 = ToNarrow(arguments.md5);
    task.version = ToNarrow(arguments.version);
    {
      const std::lock_guard lock(g_mutex);
      Download& download = g_downloads.emplace_back();
      download.url = url;
      download.name = NameOf(url);
      download.created = Clock::now();
      task.id = static_cast<std::int32_t>(g_downloads.size());
    }
    if (Tarnlo::create_task(&task) != task.id) OnEnd(task.id, -1);
  }
}

bool AllEnded(const std::deque<Download>& downloads) {
  return std::all_of(downloads.begin(), downloads.end(),
                     [](const Download& download) { return download.ended.has_value(); });
}

std::deque<Download> Copy() {
  const std::lock_guard lock(g_mutex);
  return g_downloads;
}

// Looks at the downloads until all have ended; false when Ctrl+C came first.
bool Watch(ProgressView& view) {
  while (true) {
    std::deque<Download> downloads;
    {
      std::unique_lock lock(g_mutex);
      g_changed.wait_for(lock, view.interval(),
                         [] { return g_interrupted || AllEnded(g_downloads); });
      if (g_interrupted) return false;
      downloads = g_downloads;
    }
    view.Show(downloads);
    if (AllEnded(downloads)) return true;
  }
}

// Hashes whole files, so not under our lock.
int Report(Stream& out, const std::filesystem::path& folder, const std::wstring& md5) {
  int exit_code = kAllCompleted;
  for (const Download& download : Copy()) {
    const bool complete = download.result == Tarnlo::kResultSuccess;
    out.Write(complete ? Success(download, folder, md5) : Failure(download));
    if (!complete) exit_code = kOneFailed;
  }
  return exit_code;
}

int PauseAll(Stream& messages) {
  std::int32_t count = 0;
  {
    const std::lock_guard lock(g_mutex);
    count = static_cast<std::int32_t>(g_downloads.size());
  }
  // Without our lock: the callbacks that a pause waits for take it.
  for (std::int32_t id = 1; id <= count; ++id) Tarnlo::pause_task(id);
  messages.Write(L"paused: run the same command again to go on from here\n");
  return kInterrupted;
}

}  // namespace
}  // namespace host

int main() {
  using namespace host;
  Stream out(STD_OUTPUT_HANDLE);
  Stream messages(STD_ERROR_HANDLE);
  const std::optional<Arguments> arguments = ParseArguments(CommandLine());
  if (!arguments) {
    messages.Write(kUsage);
    return kBadArguments;
  }
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::absolute(arguments->folder, error);
  std::filesystem::create_directories(folder, error);
  if (!std::filesystem::is_directory(folder, error)) {
    messages.Write(L"no such folder: " + folder.wstring() + L"\n" + kUsage);
    return kBadArguments;
  }
  SetConsoleCtrlHandler(&OnConsoleEvent, TRUE);
  Tarnlo::set_callback_process(&OnProgress);
  Tarnlo::set_callback_complete(&OnComplete);
  Tarnlo::set_callback_fail(&OnFail);
  CreateTasks(*arguments, folder);
  ProgressView view(messages);
  return Watch(view) ? Report(out, folder, arguments->md5) : PauseAll(messages);
}
