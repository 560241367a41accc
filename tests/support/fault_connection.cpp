#include "tests/support/fault_connection.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

namespace Tarnlo::test {
namespace {

constexpr std::uint32_t kSliceMs = 20;
constexpr std::size_t kBlock = 64 * 1024;

}  // namespace

void FaultConnection::Run() {
  if (!ReadRequest()) return;
  if (const FaultScript* script = m_server.TakeScript(*m_request)) {
    Answer(*script);
  } else {
    SendAll("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
  }
  if (!m_socket.valid()) return;
  m_socket.ShutdownSend();
  ReadToTheEnd();
}

bool FaultConnection::ReadRequest() {
  std::string bytes;
  std::vector<char> chunk(kBlock);
  while (!m_server.m_stopping) {
    if (!m_socket.WaitReadable(kSliceMs)) continue;
    const int count = m_socket.Receive(chunk.data(), chunk.size());
    if (count < 1) return false;
    bytes.append(chunk.data(), static_cast<std::size_t>(count));
    if (bytes.find("\r\n\r\n") == std::string::npos) continue;
    m_request = m_server.Record(bytes);
    return true;
  }
  return false;
}

// What a client sends behind its request is recorded; left unread it would turn the end of the
// connection into a reset.
void FaultConnection::ReadToTheEnd() {
  std::vector<char> chunk(kBlock);
  while (!m_server.m_stopping) {
    if (!m_socket.WaitReadable(kSliceMs)) continue;
    const int count = m_socket.Receive(chunk.data(), chunk.size());
    if (count < 1) return;
    const std::lock_guard guard(m_server.m_mutex);
    m_request->bytes.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

void FaultConnection::Answer(const FaultScript& script) {
  if (script.m_answer_gate && !script.m_answer_gate->Pass(m_server.m_stopping)) return;
  if (m_request->method == "HEAD") return AnswerHead(script);
  if (script.m_raw) {
    SendHead(script, *script.m_raw, Range{});
    return;
  }
  const Range range = RangeOf(script);
  if (!SendHead(script, HeadFor(script, range), range)) return;
  const auto leading =
      std::min(static_cast<std::int64_t>(script.m_leading), range.end - range.begin);
  SendBody(script, range, range.begin + leading);
}

void FaultConnection::AnswerHead(const FaultScript& script) {
  const std::optional<Gate>& gate = script.m_head_request_gate;
  if (gate && !gate->Pass(m_server.m_stopping)) return;
  if (script.m_raw && !script.m_head_length) {
    SendAll(*script.m_raw);
    return;
  }
  std::string head = "HTTP/1.1 " + script.m_head_status.value_or("200 OK") + "\r\n";
  const std::string length = script.m_head_length.value_or(std::to_string(script.m_body.size()));
  if (!length.empty()) head += "Content-Length: " + length + "\r\n";
  SendAll(head + script.m_headers + "Connection: close\r\n\r\n");
}

FaultConnection::Range FaultConnection::RangeOf(const FaultScript& script) const {
  const std::int64_t size = script.m_body.size();
  Range range{0, size, false};
  const std::string asked = m_request->Header("Range");
  constexpr std::string_view kUnit = "bytes=";
  if (script.m_ignores_ranges || !asked.starts_with(kUnit)) return range;
  char* behind = nullptr;
  range.partial = true;
  range.begin =
      std::min<std::int64_t>(std::strtoll(asked.c_str() + kUnit.size(), &behind, 10), size);
  if (*behind == '-' && behind[1] != '\0') {
    range.end = std::min<std::int64_t>(std::strtoll(behind + 1, nullptr, 10) + 1, size);
  }
  range.end = std::max(range.begin, range.end);
  if (script.m_at_most < range.end - range.begin) range.end = range.begin + script.m_at_most;
  return range;
}

std::string FaultConnection::HeadFor(const FaultScript& script, const Range& range) const {
  const std::int64_t size = script.m_body.size();
  std::string head = "HTTP/1.1 ";
  head += script.m_status.value_or(range.partial ? "206 Partial Content" : "200 OK") + "\r\n";
  head += "Content-Type: application/octet-stream\r\n";
  head += script.m_content_length.value_or(
      "Content-Length: " + std::to_string(range.end - range.begin) + "\r\n");
  if (range.partial) {
    head += script.m_content_range.value_or("Content-Range: bytes " + std::to_string(range.begin) +
                                            "-" + std::to_string(range.end - 1) + "/" +
                                            std::to_string(size) + "\r\n");
  } else {
    head += script.m_content_range.value_or("");
  }
  head += script.m_headers + "Connection: close\r\n";
  if (script.m_head_size) {
    const std::size_t others = head.size() + sizeof("X-Pad: \r\n\r\n") - 1;
    head += "X-Pad: " + std::string(*script.m_head_size - others, 'p') + "\r\n";
  }
  return head + "\r\n";
}

bool FaultConnection::SendHead(const FaultScript& script, std::string head, const Range& range) {
  const auto leading =
      std::min(static_cast<std::int64_t>(script.m_leading), range.end - range.begin);
  head += script.m_body.Bytes(range.begin, static_cast<std::size_t>(leading));
  std::string_view rest = head;
  if (script.m_head_gate) {
    if (!SendAll(rest.substr(0, script.m_head_split))) return false;
    if (!script.m_head_gate->Pass(m_server.m_stopping)) return false;
    rest.remove_prefix(std::min(rest.size(), script.m_head_split));
  }
  return SendAll(rest);
}

void FaultConnection::SendBody(const FaultScript& script, const Range& range, std::int64_t begin) {
  std::int64_t end = range.end;
  if (script.m_close_after < range.end - range.begin) end = range.begin + script.m_close_after;
  if (script.m_body_gate) {
    const std::int64_t stall = std::min(end, range.begin + script.m_stall_after);
    if (!SendBytes(script, begin, stall)) return;
    if (!script.m_body_gate->Pass(m_server.m_stopping)) return;
    begin = std::max(begin, stall);
  }
  if (!SendBytes(script, begin, end)) return;
  if (script.m_resets) {
    m_socket.Reset();
    return;
  }
  SendBytes(script, end, end + script.m_overrun);
}

bool FaultConnection::SendBytes(const FaultScript& script, std::int64_t begin, std::int64_t end) {
  const std::int64_t rate = script.m_rate;
  std::vector<char> bytes(std::max(kBlock, static_cast<std::size_t>(rate / 10 + 1)));
  for (std::int64_t tenth = 0; begin < end; ++tenth) {
    auto block = static_cast<std::int64_t>(kBlock);
    // What is due in this tenth of a second, so that ten of them make the rate, whatever it is.
    if (rate > 0) block = (tenth + 1) * rate / 10 - tenth * rate / 10;
    const auto count = static_cast<std::size_t>(std::min(block, end - begin));
    script.m_body.Fill(begin, bytes.data(), count);
    if (!SendAll(std::string_view(bytes.data(), count))) return false;
    begin += static_cast<std::int64_t>(count);
    CountBody(static_cast<std::int64_t>(count));
    if (rate > 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return !m_server.m_stopping;
}

void FaultConnection::CountBody(std::int64_t bytes) {
  const std::lock_guard guard(m_server.m_mutex);
  m_request->body_bytes += bytes;
}

bool FaultConnection::SendAll(std::string_view bytes) {
  while (!bytes.empty()) {
    if (m_server.m_stopping) return false;
    if (!m_socket.WaitWritable(kSliceMs)) continue;
    const int count = m_socket.Send(bytes.data(), bytes.size());
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace Tarnlo::test
