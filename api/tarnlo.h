// Tarnlo: downloads files over HTTP into folders of a Windows desktop application.
//
// Set the callbacks, fill a Task, call create_task. Everything after that is told by the callbacks.
// Host and library must be built with the same compiler and runtime: the record holds strings.
#pragma once

#include <cstdint>
#include <string>

#include "support/result.h"

#if !defined(_WIN32) || defined(TARNLO_STATIC)
#define TARNLO_API
#elif defined(TARNLO_BUILDING)
#define TARNLO_API __declspec(dllexport)
#else
#define TARNLO_API __declspec(dllimport)
#endif

namespace Tarnlo {

// What to download. The caller owns it; it is only read, and only during the call.
struct Task {
  std::wstring save_dir;      // the folder for the file; must exist
  std::string url;            // fetched by plain HTTP, whatever its scheme
  std::string md5;            // hex; several, separated by ",", when any of them will do; or empty
  std::string version;        // "major.minor.build" that a file already there must reach; or empty
  std::int32_t reserved = 0;  // not read
  std::int32_t id = 0;        // above 0, chosen by the caller; the task's name everywhere else
};

// Callbacks run on threads of the library, several tasks' at once. They should be short. Inside
// one, a pause, a cancel and a new start of the task it is called for are refused.
using StartCallback = void (*)(std::int32_t id);
using CompleteCallback = void (*)(std::int32_t id);
using ProcessCallback = void (*)(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                                 std::int32_t bytes_per_second);
using FailCallback = void (*)(std::int32_t id, NsResultEnum result);

// Each stores a pointer; null: that event is dropped. May be called at any time; later events use
// it.
TARNLO_API void set_callback_start(StartCallback callback);
TARNLO_API void set_callback_complete(CompleteCallback callback);
TARNLO_API void set_callback_process(ProcessCallback callback);  // at most every 100 ms a task
TARNLO_API void set_callback_fail(FailCallback callback);

// Starts a download; a task of the same id is cancelled first. The id, or -1 when it is refused.
// The first call starts the library, which then stays loaded until the process ends.
TARNLO_API std::int32_t create_task(const Task* task);

// Stops the task and forgets it; its partial file stays. False before the first create_task and
// where it is refused, else true, for unknown ids as well.
TARNLO_API bool cancel_task(std::int32_t id);

// Stops the task and keeps it. False before the first create_task and where it is refused, else
// true, for unknown ids as well.
TARNLO_API bool pause_task(std::int32_t id);

// Goes on with a paused or ended task from what its partial file holds. True when it was started or
// had not ended. Waits for a callback that tells its end, 5 seconds at most, unless called inside
// it.
TARNLO_API bool continue_task(std::int32_t id);

// Does nothing to any task. Always true.
TARNLO_API bool cancel_all_task();

// Always empty: the library lists no tasks.
TARNLO_API std::string get_all_tasks();

// Downloads a fixed test file from this machine, task 755, with a manager of its own, and returns 0
// after 100 seconds.
TARNLO_API std::int32_t test_download();

// Always 0.
TARNLO_API std::int32_t fntarnlo();

// Always 0, never written.
extern TARNLO_API std::int32_t ntarnlo;

// Has nothing but its making.
class TARNLO_API Ctarnlo {
 public:
  Ctarnlo();
};

}  // namespace Tarnlo
