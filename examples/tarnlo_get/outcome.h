// How a download ended, in words.
#pragma once

#include <filesystem>
#include <string>

#include "examples/tarnlo_get/download.h"

namespace host {

// The file, what it was checked against (`md5` is the list that the task was given), and how fast
// it came.
std::wstring Success(const Download& download, const std::filesystem::path& folder,
                     const std::wstring& md5);
std::wstring Failure(const Download& download);

}  // namespace host
