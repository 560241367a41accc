// A fresh folder for one test, and whole files in one call.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Tarnlo::test {

// Lifetime: made empty, removed with all that is in it at the end.
class TempFolder {
 public:
  TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();

  // With its closing separator.
  [[nodiscard]] std::wstring path() const;
  // The path of a file in it, which need not exist.
  [[nodiscard]] std::wstring File(const std::wstring& name) const { return path() + name; }
  // Makes a folder in it, with those above it.
  std::wstring MakeFolder(const std::wstring& name);
  // The names of all files in it, in order.
  [[nodiscard]] std::vector<std::wstring> Names() const;

 private:
  std::filesystem::path m_path;
};

bool FileExists(const std::wstring& path);
std::string ReadFileBytes(const std::wstring& path);
void WriteFileBytes(const std::wstring& path, const std::string& bytes);

}  // namespace Tarnlo::test
