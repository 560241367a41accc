#include "tests/support/fault_server.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "tests/support/fault_connection.h"

namespace Tarnlo::test {
namespace {

constexpr int kBacklog = 1024;  // many tasks at once
constexpr std::uint32_t kAcceptSliceMs = 20;

bool AwaitTrue(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

std::wstring Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

}  // namespace

std::string RecordedRequest::Header(const std::string& name) const {
  const std::string line = "\r\n" + name + ": ";
  const std::size_t at = bytes.find(line);
  if (at == std::string::npos) return {};
  const std::size_t begin = at + line.size();
  return bytes.substr(begin, bytes.find("\r\n", begin) - begin);
}

std::optional<Interval> RecordedRequest::AskedRange() const {
  constexpr std::string_view kUnit = "bytes=";
  const std::string range = Header("Range");
  if (method != "GET" || !range.starts_with(kUnit)) return std::nullopt;
  char* dash = nullptr;
  const std::int64_t begin = std::strtoll(range.c_str() + kUnit.size(), &dash, 10);
  if (*dash != '-' || dash[1] == '\0') return std::nullopt;
  return Interval{begin, std::strtoll(dash + 1, nullptr, 10) + 1};
}

FaultServer::FaultServer(const std::string& address, std::uint16_t port)
    : m_address(address), m_listener(address, port, kBacklog) {
  m_accept_thread = std::thread([this] { AcceptLoop(); });
}

FaultServer::~FaultServer() {
  m_stopping = true;
  m_accept_thread.join();
  for (std::thread& thread : m_threads) thread.join();
}

FaultScript& FaultServer::Serve(const std::string& path, Body body) {
  const std::lock_guard guard(m_mutex);
  PathScripts& entry = m_paths[path];
  entry.served.push_back(0);
  return entry.scripts.emplace_back(body);
}

std::wstring FaultServer::Url(const std::string& path) const {
  return UrlFor(m_address, path);
}

std::wstring FaultServer::UrlFor(const std::string& host, const std::string& path) const {
  return Widen("http://" + host + ":" + std::to_string(port()) + path);
}

std::vector<RecordedRequest> FaultServer::Requests() const {
  const std::lock_guard guard(m_mutex);
  std::vector<RecordedRequest> requests;
  for (const auto& request : m_requests) requests.push_back(*request);
  return requests;
}

std::vector<RecordedRequest> FaultServer::RequestsFor(const std::string& path) const {
  std::vector<RecordedRequest> requests = Requests();
  std::erase_if(requests, [&](const RecordedRequest& request) { return request.path != path; });
  return requests;
}

bool FaultServer::AwaitConnections(int count) const {
  return AwaitTrue([&] { return m_connections >= count; });
}

bool FaultServer::AwaitIdle() const {
  return AwaitTrue([&] { return m_open_connections == 0; });
}

void FaultServer::AcceptLoop() {
  while (!m_stopping) {
    TestSocket socket = m_listener.Accept(kAcceptSliceMs);
    if (!socket.valid()) continue;
    ++m_open_connections;
    ++m_connections;
    JoinEnded();
    const auto thread = m_threads.emplace(m_threads.end());
    *thread = std::thread([this, thread, accepted = std::move(socket)]() mutable {
      FaultConnection(*this, std::move(accepted)).Run();
      --m_open_connections;
      const std::lock_guard guard(m_mutex);
      m_ended.push_back(thread);
    });
  }
}

// A server that answers thousands does not keep what their threads leave.
void FaultServer::JoinEnded() {
  std::vector<std::list<std::thread>::iterator> ended;
  {
    const std::lock_guard guard(m_mutex);
    ended.swap(m_ended);
  }
  for (const auto& thread : ended) {
    thread->join();
    m_threads.erase(thread);
  }
}

const FaultScript* FaultServer::TakeScript(const RecordedRequest& request) {
  const std::string range = request.Header("Range");
  const bool piece = !range.empty() && !range.ends_with('-');
  const std::lock_guard guard(m_mutex);
  const auto found = m_paths.find(request.path);
  if (found == m_paths.end()) return nullptr;
  PathScripts& entry = found->second;
  for (std::size_t i = 0; i < entry.scripts.size(); ++i) {
    const FaultScript& script = entry.scripts[i];
    if (script.m_for_pieces && !piece) continue;
    if (script.m_times >= 0 && entry.served[i] >= script.m_times) continue;
    ++entry.served[i];
    return &script;
  }
  return nullptr;
}

std::shared_ptr<RecordedRequest> FaultServer::Record(const std::string& bytes) {
  static std::atomic<int> requests{0};
  auto request = std::make_shared<RecordedRequest>();
  request->order = ++requests;
  request->bytes = bytes;
  const std::size_t first = bytes.find(' ');
  const std::size_t second = bytes.find(' ', first + 1);
  request->method = bytes.substr(0, first);
  request->path = bytes.substr(first + 1, second - first - 1);
  const std::lock_guard guard(m_mutex);
  m_requests.push_back(request);
  return request;
}

}  // namespace Tarnlo::test
