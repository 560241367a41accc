// The tasks of a child process: where from and where to is told by its parent.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "api/tarnlo.h"

namespace Tarnlo::test {

// The children that are started from now on: task 7 fetches `url` with "7" behind it into `folder`.
inline void Tell(const std::wstring& url, const std::wstring& folder) {
  SetEnvironmentVariableW(L"TARNLO_CHILD_URL", url.c_str());
  SetEnvironmentVariableW(L"TARNLO_CHILD_FOLDER", folder.c_str());
}

inline std::string Told(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

inline std::wstring ToldFolder() {
  const std::string folder = Told("TARNLO_CHILD_FOLDER");
  return {folder.begin(), folder.end()};
}

inline Task ToldTask(std::int32_t id) {
  Task task;
  task.save_dir = ToldFolder();
  task.url = Told("TARNLO_CHILD_URL") + std::to_string(id);
  task.id = id;
  return task;
}

}  // namespace Tarnlo::test
