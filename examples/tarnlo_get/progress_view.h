// The progress of all downloads, for the eye.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

#include "examples/tarnlo_get/download.h"
#include "examples/tarnlo_get/stream.h"

namespace host {

// A block of lines that is drawn over itself on a terminal, a line for each download that runs,
// once a second, elsewhere.
class ProgressView {
 public:
  explicit ProgressView(Stream& stream) : m_stream(stream) {}

  [[nodiscard]] std::chrono::milliseconds interval() const {
    return std::chrono::milliseconds(m_stream.IsTerminal() ? 200 : 1000);
  }
  void Show(const std::deque<Download>& downloads);

 private:
  void ToTop();
  void Line(std::wstring text);

  Stream& m_stream;
  std::size_t m_lines = 0;  // that the block has on the terminal
};

}  // namespace host
