#include "tests/support/test_log.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "support/os/thread.h"
#include "support/simple_log.h"
#include "tests/support/system.h"

namespace Tarnlo::test {
namespace {

namespace fs = std::filesystem;

fs::path g_folder;

// The folder goes when the process ends; what the logger moves aside after that is a file or two.
struct FolderOfThisProcess {
  FolderOfThisProcess() {
    // Numbers come again, and what an earlier process left may be there.
    g_folder = fs::temp_directory_path() /
               ("tarnlo_test_" + ProcessNumber() + "_" + std::to_string(std::random_device()()));
    fs::create_directories(g_folder);
    PointTempFolderAt(g_folder);
    simpleLog::Start();
  }
  ~FolderOfThisProcess() { RemoveTree(g_folder); }
  FolderOfThisProcess(const FolderOfThisProcess&) = delete;
  FolderOfThisProcess& operator=(const FolderOfThisProcess&) = delete;
};

// The log and what was moved aside at midnight's approach, oldest first.
std::vector<fs::path> LogFiles() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(g_folder)) {
    if (entry.path().filename().string().starts_with("tarnlo.log.")) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  files.push_back(g_folder / "tarnlo.log");
  return files;
}

std::uintmax_t SizeOfFile(const fs::path& file) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(file, error);
  return error ? 0 : size;
}

std::uintmax_t SizeOfLog() {
  std::uintmax_t size = 0;
  for (const fs::path& file : LogFiles()) size += SizeOfFile(file);
  return size;
}

// What follows the first `begin` bytes, which may be many: long runs read the log over and over.
std::string ReadLog(std::uintmax_t begin) {
  std::string text;
  for (const fs::path& file : LogFiles()) {
    const std::uintmax_t size = SizeOfFile(file);
    if (begin < size) {
      std::ifstream stream(file, std::ios::binary);
      stream.seekg(static_cast<std::streamoff>(begin));
      text.append(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    begin -= std::min(begin, size);
  }
  return text;
}

// "[time] [INFO] 4711 - text" in parts; false for a line of another shape.
bool Split(std::string_view line, std::string& level, std::string& thread, std::string& text) {
  const std::size_t level_at = line.find("] [");
  if (level_at == std::string_view::npos) return false;
  line.remove_prefix(level_at + 2);
  const std::size_t level_end = line.find("] ");
  const std::size_t dash = line.find(" - ");
  if (level_end == std::string_view::npos || dash == std::string_view::npos) return false;
  level = line.substr(0, level_end + 1);
  thread = line.substr(level_end + 2, dash - level_end - 2);
  text = line.substr(dash + 3);
  return true;
}

}  // namespace

void StartTestLog() {
  static const FolderOfThisProcess folder;
}

std::vector<std::string> LinesIn(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find("\r\n", begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 2;
  }
  return lines;
}

LogReader::LogReader() {
  StartTestLog();
  m_begin = SizeOfLog();
}

std::vector<std::string> LogReader::AllLines() const {
  return LinesIn(ReadLog(m_begin));
}

std::vector<std::string> LogReader::LinesOf(std::uint32_t thread_id) const {
  const std::string wanted = std::to_string(thread_id);
  std::vector<std::string> lines;
  for (const std::string& line : AllLines()) {
    std::string level;
    std::string thread;
    std::string text;
    if (Split(line, level, thread, text) && thread == wanted) lines.push_back(level + " " + text);
  }
  return lines;
}

std::vector<std::string> LogReader::LinesOfThisThread() const {
  return LinesOf(os::CurrentThreadId());
}

int LogReader::Count(const std::string& text) const {
  const auto lines = AllLines();
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.ends_with(" - " + text);
  }));
}

bool LogReader::Await(const std::string& text, int count) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (Count(text) < count) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace Tarnlo::test
