#include "tests/support/temp_folder.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>

#include "tests/support/system.h"

namespace Tarnlo::test {
namespace {

namespace fs = std::filesystem;

fs::path MakeFreshFolder() {
  std::random_device random;
  for (;;) {
    fs::path path = fs::temp_directory_path() / ("tarnlo_folder_" + std::to_string(random()));
    if (fs::create_directory(path)) return path;
  }
}

}  // namespace

TempFolder::TempFolder() : m_path(MakeFreshFolder()) {}

TempFolder::~TempFolder() {
  RemoveTree(m_path);
}

std::wstring TempFolder::path() const {
  return SystemPath(m_path / "");
}

std::wstring TempFolder::MakeFolder(const std::wstring& name) {
  const fs::path folder = LocalPath(path() + name);
  fs::create_directories(folder);
  return SystemPath(folder);
}

std::vector<std::wstring> TempFolder::Names() const {
  std::vector<std::wstring> names;
  for (const auto& entry : fs::directory_iterator(m_path)) {
    names.push_back(entry.path().filename().wstring());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool FileExists(const std::wstring& path) {
  std::error_code ignored;
  return fs::exists(LocalPath(path), ignored);
}

std::string ReadFileBytes(const std::wstring& path) {
  std::ifstream stream(LocalPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  std::ofstream stream(LocalPath(path), std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace Tarnlo::test
