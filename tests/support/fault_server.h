// An HTTP server inside the test program that fails in the way a test asks for.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/fault_script.h"
#include "tests/support/interval.h"
#include "tests/support/test_socket.h"

namespace Tarnlo::test {

struct RecordedRequest {
  std::string method;
  std::string path;
  int order = 0;      // among the requests to all servers
  std::string bytes;  // all that came over the connection, what follows the empty line included
  std::int64_t body_bytes = 0;                        // that were sent for it
  std::string Header(const std::string& name) const;  // "" when it is not there
  // The range of a GET that asks for one with an end.
  [[nodiscard]] std::optional<Interval> AskedRange() const;
};

// Listens on an address and port of its own; a thread per connection, one request each.
//
//   FaultServer server;
//   server.Serve("/f", Body(1000)).Times(1).ClosingAfter(10);
//   server.Serve("/f", Body(1000)).IgnoringRanges();
//
// Threads: scripts are told before the first request to their path; everything else from any.
// Lifetime: ends its connections and joins its threads.
class FaultServer {
 public:
  explicit FaultServer(const std::string& address = "127.0.0.1", std::uint16_t port = 0);
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;
  ~FaultServer();

  // Adds a script to a path; the query belongs to the path. A path without script answers 404.
  FaultScript& Serve(const std::string& path, Body body = Body(0));

  [[nodiscard]] bool valid() const { return m_listener.valid(); }
  [[nodiscard]] std::uint16_t port() const { return m_listener.port(); }
  [[nodiscard]] const std::string& address() const { return m_address; }
  // "http://127.0.0.1:4711" and the path.
  [[nodiscard]] std::wstring Url(const std::string& path) const;
  // The same with a host name of the test's choice.
  [[nodiscard]] std::wstring UrlFor(const std::string& host, const std::string& path) const;

  // In the order in which their heads were complete.
  [[nodiscard]] std::vector<RecordedRequest> Requests() const;
  [[nodiscard]] std::vector<RecordedRequest> RequestsFor(const std::string& path) const;
  // Accepted so far, those without a request too.
  [[nodiscard]] int connections() const { return m_connections; }
  // Until that many were accepted. False after half a minute.
  [[nodiscard]] bool AwaitConnections(int count) const;
  // Until every accepted connection has ended. False after half a minute.
  [[nodiscard]] bool AwaitIdle() const;

 private:
  friend class FaultConnection;
  struct PathScripts {
    std::deque<FaultScript> scripts;  // references stay good
    std::vector<int> served;          // by each of them
  };

  void AcceptLoop();
  void JoinEnded();
  const FaultScript* TakeScript(const RecordedRequest& request);
  // The record of a request, which the connection goes on appending to.
  std::shared_ptr<RecordedRequest> Record(const std::string& bytes);

  const std::string m_address;
  TestListener m_listener;
  std::atomic<bool> m_stopping{false};
  std::atomic<int> m_connections{0};
  std::atomic<int> m_open_connections{0};
  mutable std::mutex m_mutex;
  std::map<std::string, PathScripts> m_paths;
  std::vector<std::shared_ptr<RecordedRequest>> m_requests;
  std::list<std::thread> m_threads;  // of connections; the accept thread's until it is joined
  std::vector<std::list<std::thread>::iterator> m_ended;  // of them, to be joined
  std::thread m_accept_thread;
};

}  // namespace Tarnlo::test
