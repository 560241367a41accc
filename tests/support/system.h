// What tests ask of the system beneath them.
#pragma once

#include <filesystem>
#include <string>

namespace Tarnlo::test {

// A path as the library has it, and the same file as the test program reaches it.
std::wstring SystemPath(const std::filesystem::path& path);
std::filesystem::path LocalPath(const std::wstring& system_path);

bool IsHidden(const std::wstring& system_path);
// A new file whose holes need no room, where the system does not make all files so.
void MakeSparseFile(const std::wstring& system_path);

// A folder and all that is in it, however long its paths; what cannot be removed stays.
void RemoveTree(const std::filesystem::path& folder);

std::string ProcessNumber();
void SetEnvironment(const std::string& name, const std::string& value);
// From now on the library's temporary folder, and the test program's.
void PointTempFolderAt(const std::filesystem::path& folder);

}  // namespace Tarnlo::test
