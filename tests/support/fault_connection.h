// One connection of the fault server, from its request to its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tests/support/fault_server.h"

namespace Tarnlo::test {

// Threads: lives on a thread of its own.
class FaultConnection {
 public:
  FaultConnection(FaultServer& server, TestSocket socket)
      : m_server(server), m_socket(std::move(socket)) {}
  void Run();

 private:
  struct Range {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    bool partial = false;
  };

  bool ReadRequest();
  void Answer(const FaultScript& script);
  void AnswerHead(const FaultScript& script);
  bool SendHead(const FaultScript& script, std::string head, const Range& range);
  void SendBody(const FaultScript& script, const Range& range, std::int64_t begin);
  // Sends file bytes [begin, end); false when the peer is gone or the server stops.
  bool SendBytes(const FaultScript& script, std::int64_t begin, std::int64_t end);
  void CountBody(std::int64_t bytes);
  bool SendAll(std::string_view bytes);
  void ReadToTheEnd();

  Range RangeOf(const FaultScript& script) const;
  std::string HeadFor(const FaultScript& script, const Range& range) const;

  FaultServer& m_server;
  TestSocket m_socket;
  std::shared_ptr<RecordedRequest> m_request;
};

}  // namespace Tarnlo::test
