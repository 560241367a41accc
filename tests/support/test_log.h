// What the library has written to its log, line by line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tarnlo::test {

// Starts the process's logger in a fresh temp folder, the first time; every reader does it too.
void StartTestLog();

// What each line of a log's text says, without line ends.
std::vector<std::string> LinesIn(const std::string& text);

// The lines written since it was made.
//
// Threads: any.
class LogReader {
 public:
  LogReader();

  // Without time and thread id: "[INFO] DownloadEnd 1".
  [[nodiscard]] std::vector<std::string> LinesOf(std::uint32_t thread_id) const;
  [[nodiscard]] std::vector<std::string> LinesOfThisThread() const;
  // Every line as it stands, without its line end.
  [[nodiscard]] std::vector<std::string> AllLines() const;
  // How many lines of all threads end with the text.
  [[nodiscard]] int Count(const std::string& text) const;
  // Until `count` of them do. False after half a minute.
  [[nodiscard]] bool Await(const std::string& text, int count = 1) const;

 private:
  std::uintmax_t m_begin;
};

}  // namespace Tarnlo::test
