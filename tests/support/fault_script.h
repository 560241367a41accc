// What the fault server answers on one path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/body.h"
#include "tests/support/gate.h"

namespace Tarnlo::test {

// Left alone, a script serves its body as a good server does: 206 and the bytes asked for to a
// request with a Range, 200 and everything to one without, the length to a HEAD.
//
// Threads: told before the first request comes, only read after that.
class FaultScript {
 public:
  explicit FaultScript(Body body) : m_body(body) {}

  // For the next `count` requests alone; then the path's next script takes over.
  FaultScript& Times(int count) { return Set(m_times, count); }

  // For requests that name both ends of a range alone; others are the next script's.
  FaultScript& ForPieces() { return Set(m_for_pieces, true); }

  // --- The head
  FaultScript& IgnoringRanges() { return Set(m_ignores_ranges, true); }
  // "404 Not Found". The body, and the headers about it, stay.
  FaultScript& WithStatus(std::string status) { return Set(m_status, std::move(status)); }
  // A line of its own, without line end.
  FaultScript& WithHeader(const std::string& line) {
    return Set(m_headers, m_headers + line + "\r\n");
  }
  // Whole lines with line ends in the place of the right Content-Range; "" for none.
  FaultScript& WithContentRange(std::string lines) {
    return Set(m_content_range, std::move(lines));
  }
  FaultScript& WithContentLength(const std::string& value) {
    return Set(m_content_length, "Content-Length: " + value + "\r\n");
  }
  FaultScript& WithoutContentLength() { return Set(m_content_length, std::string()); }
  // `status` and a Location, no body.
  FaultScript& RedirectingTo(const std::string& location, const std::string& status = "302 Found") {
    Set(m_raw, "HTTP/1.1 " + status + "\r\nLocation: " + location +
                   "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    return *this;
  }
  // These bytes and no others.
  FaultScript& AnsweringRaw(std::string bytes) { return Set(m_raw, std::move(bytes)); }
  // Makes the whole head this long, its empty line included, by a header at its end.
  FaultScript& PaddingHeadTo(std::size_t bytes) { return Set(m_head_size, bytes); }

  // --- When
  // Nothing is sent before the gate is open.
  FaultScript& HoldingAnswer(const Gate& gate) { return Set(m_answer_gate, gate); }
  // The head's first `at` bytes; the rest when the gate is open.
  FaultScript& SplittingHeadAt(std::size_t at, const Gate& gate) {
    m_head_gate = gate;
    return Set(m_head_split, at);
  }
  // The head and this many bytes of the body in one piece.
  FaultScript& LeadingBody(std::size_t bytes) { return Set(m_leading, bytes); }
  // The body's first `bytes`; the rest when the gate is open.
  FaultScript& StallingAfter(std::int64_t bytes, const Gate& gate) {
    m_body_gate = gate;
    return Set(m_stall_after, bytes);
  }
  // The whole body at this rate.
  FaultScript& Trickling(std::int64_t bytes_per_second) { return Set(m_rate, bytes_per_second); }

  // --- How much
  // Answers with a shorter range than was asked for.
  FaultScript& AtMost(std::int64_t bytes) { return Set(m_at_most, bytes); }
  // The head promises all, the connection ends after `bytes` of it.
  FaultScript& ClosingAfter(std::int64_t bytes) { return Set(m_close_after, bytes); }
  FaultScript& ResettingAfter(std::int64_t bytes) {
    m_resets = true;
    return Set(m_close_after, bytes);
  }
  // This many bytes of the file follow those that were promised.
  FaultScript& RunningOver(std::int64_t bytes) { return Set(m_overrun, bytes); }

  // --- HEAD requests
  FaultScript& WithHeadLength(std::string value) { return Set(m_head_length, std::move(value)); }
  FaultScript& WithHeadStatus(std::string status) { return Set(m_head_status, std::move(status)); }
  // Nothing is sent to them before the gate is open.
  FaultScript& HoldingHead(const Gate& gate) { return Set(m_head_request_gate, gate); }

 private:
  friend class FaultConnection;
  friend class FaultServer;

  static constexpr std::int64_t kAll = std::numeric_limits<std::int64_t>::max();

  template <typename Member, typename Value>
  FaultScript& Set(Member& member, Value&& value) {
    member = std::forward<Value>(value);
    return *this;
  }

  Body m_body;
  int m_times = -1;  // any number
  bool m_for_pieces = false;
  bool m_ignores_ranges = false;
  std::optional<std::string> m_status;
  std::string m_headers;
  std::optional<std::string> m_content_range;
  std::optional<std::string> m_content_length;
  std::optional<std::string> m_raw;
  std::optional<std::size_t> m_head_size;
  std::optional<Gate> m_answer_gate;
  std::optional<Gate> m_head_gate;
  std::size_t m_head_split = 0;
  std::size_t m_leading = 0;
  std::optional<Gate> m_body_gate;
  std::int64_t m_stall_after = kAll;
  std::int64_t m_rate = 0;
  std::int64_t m_at_most = kAll;
  std::int64_t m_close_after = kAll;
  bool m_resets = false;
  std::int64_t m_overrun = 0;
  std::optional<std::string> m_head_length;
  std::optional<std::string> m_head_status;
  std::optional<Gate> m_head_request_gate;
};

}  // namespace Tarnlo::test
