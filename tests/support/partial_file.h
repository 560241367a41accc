// A partial file as a process left it, and what is said behind its bytes of which of them are
// there.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/body.h"
#include "tests/support/interval.h"
#include "tests/support/trailer.h"

namespace Tarnlo::test {

inline constexpr std::int64_t kConnections = 6;
inline constexpr std::int64_t kTrailerBytes = kConnections * 24 + 4;

// Of six connections. The bytes that are claimed: the done ones of each record, and those that no
// record names, whose range was complete before its worker was given another.
//
// Lifetime: the file stays as it is meanwhile.
class PartialFile {
 public:
  PartialFile(std::wstring path, const Body& body);

  // Not even a part of a trailer was saved yet.
  [[nodiscard]] bool blank() const { return m_blank; }
  // A whole one was, so it must hold; else nothing is claimed.
  [[nodiscard]] bool saved() const { return m_trailer.count > 0; }
  // What must still be fetched, in as few intervals as can be.
  [[nodiscard]] std::vector<Interval> Missing() const;
  [[nodiscard]] std::int64_t Claimed() const { return m_body.size() - BytesIn(Missing()); }
  [[nodiscard]] std::int64_t InNoRecord() const;
  // Empty when what is said can be and is so.
  [[nodiscard]] std::string Fault() const;

 private:
  [[nodiscard]] std::string RecordFault() const;

  const std::wstring m_path;
  const Body m_body;
  const Trailer m_trailer;
  const bool m_has_right_size;
  bool m_blank = false;
};

}  // namespace Tarnlo::test
